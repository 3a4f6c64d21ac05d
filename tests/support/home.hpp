// The homes that the password database knows.
#pragma once

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <optional>
#include <string>

namespace qal::test {

inline std::optional<std::string> home_of(uid_t user) {
  char store[16384];
  passwd entry;
  passwd *found = nullptr;
  EXPECT_EQ(getpwuid_r(user, &entry, store, sizeof store, &found), 0);
  return found ? std::optional<std::string>{found->pw_dir} : std::nullopt;
}

// Cases about the home of the user who runs them. In a container that user may be unknown.
class WithHome : public testing::Test {
 protected:
  void SetUp() override {
    if (!home_of(getuid())) GTEST_SKIP() << "the password database does not know this user";
  }

  const std::string home = home_of(getuid()).value_or("");
};

}  // namespace qal::test

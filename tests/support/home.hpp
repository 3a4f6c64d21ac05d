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

// What "~" and the rest of a name lead to for the user who runs the tests: nothing for one whom the
// database does not know, as in a container.
inline std::optional<std::string> below_own_home(const std::string &rest) {
  auto place = home_of(getuid());
  if (place) *place += rest;
  return place;
}

}  // namespace qal::test

// Directory resolution on a platform that lacks what ours has: a root, a platform word, a home.
#include <gtest/gtest.h>
#include <pwd.h>
#include <kalmora/directories.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/child.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::test::clear_environment;
using qal::test::in_child;
using qal::test::LogCapture;

struct Platform {
  const char *root = "/opt/zul";
  const char *word = "apple";
  const char *home = nullptr;  // null: there is no such user
  bool environment_is_full = false;
  const char *setting = nullptr;  // ZUL_ARCH beforehand
};
Platform platform;

}  // namespace

extern "C" {
const char *__wrap__Z12qal_zul_homev() { return platform.root; }
const char *__wrap__Z12qal_zul_archv() { return platform.word; }

int __real_putenv(char *text);
int __wrap_putenv(char *text) {
  if (!platform.environment_is_full) return __real_putenv(text);
  errno = ENOMEM;
  return -1;
}

int __wrap_getpwuid_r(uid_t, passwd *entry, char *store, std::size_t size, passwd **found) {
  *found = nullptr;
  if (!platform.home) return 0;
  const std::size_t needed = std::strlen(platform.home) + 1;
  if (size < needed) return ERANGE;
  std::memcpy(store, platform.home, needed);
  *entry = {};
  entry->pw_dir = store;
  *found = entry;
  return 0;
}
}

namespace {

template <typename Checks>
void resolved(const Platform &on, Checks checks) {
  in_child([&] {
    clear_environment();
    platform = on;
    if (on.setting) setenv("ZUL_ARCH", on.setting, 1);
    const LogCapture log;
    query_env_vars("kalmora");
    checks(log.text());
  });
}

TEST(DirectoryResolve, UsesTheFixedTreesWithoutARoot) {
  resolved({.root = nullptr}, [](const std::string &log) {
    EXPECT_STREQ(Zul_home_directory, "/usr/local/ZUL/");
    EXPECT_STREQ(Vemo_home_directory, "/usr/local/ZUL/vemo32");
    EXPECT_EQ(log, "getenv(ZUL_HOME) returned NULL\n");
  });
}

TEST(DirectoryResolve, PublishesADefaultWithoutAPlatformWord) {
  resolved({.word = nullptr}, [](const std::string &log) {
    EXPECT_STREQ(Zul_arch, "apple");
    EXPECT_STREQ(std::getenv("ZUL_ARCH"), "apple");
    EXPECT_EQ(log,
              "getenv(ZUL_HOME) returned [/opt/zul]\n"
              "\nZUL_ARCH environment variable not defined.\n"
              "Setting ZUL_ARCH to default value -- apple.\n");
    EXPECT_STREQ(TransportPaths, "/opt/zul/vemo32/machines/apple/ZUL/transports");
  });
}

TEST(DirectoryResolve, PutsTheDefaultInPlaceOfAnotherSetting) {
  resolved({.word = nullptr, .setting = "other"}, [](const std::string &) {
    EXPECT_STREQ(Zul_arch, "apple");
    EXPECT_STREQ(std::getenv("ZUL_ARCH"), "apple");
  });
}

TEST(DirectoryResolve, HasItsDefaultWhenTheEnvironmentTakesNoMore) {
  resolved({.word = nullptr, .environment_is_full = true}, [](const std::string &log) {
    EXPECT_STREQ(Zul_arch, "apple");
    EXPECT_EQ(std::getenv("ZUL_ARCH"), nullptr);
    EXPECT_NE(log.find("default value -- apple.\n"), log.npos);
  });
}

TEST(DirectoryResolve, HasNoMachinesUnderAnEmptyPlatformWord) {
  resolved({.word = ""}, [](const std::string &) {
    EXPECT_STREQ(Zul_arch, "");
    EXPECT_STREQ(TransportPaths, "");
    EXPECT_STRNE(LaunchConfigPaths, "");
  });
}

TEST(DirectoryResolve, ConvertsThePlatformWordInTheTransportsAlone) {
  resolved({.word = "a\\b"}, [](const std::string &) {
    EXPECT_STREQ(Zul_arch, "a\\b");
    EXPECT_STREQ(TransportPaths, "/opt/zul/vemo32/machines/a/b/ZUL/transports");
  });
}

TEST(DirectoryResolve, CutsALongPlatformWord) {
  const std::string word(5000, 'w');
  resolved({.word = word.c_str()},
           [](const std::string &) { EXPECT_EQ(Zul_arch, std::string(79, 'w')); });
}

TEST(DirectoryResolve, KeepsTheLeadingSlashForAnUnknownUser) {
  resolved({.home = nullptr}, [](const std::string &) {
    EXPECT_STREQ(User_home_directory, "");
    EXPECT_STREQ(User_resource_directory, "/Library/Application Support/kalmora102");
  });
}

TEST(DirectoryResolve, TakesAHomeOf1008BytesAndNoLongerOne) {
  for (const std::size_t length : {1008u, 1009u, 1023u, 1024u, 5000u}) {
    const std::string path = "/" + std::string(length - 1, 'h');
    resolved({.home = path.c_str()}, [&](const std::string &) {
      EXPECT_EQ(User_home_directory, length == 1008 ? path : "");
      EXPECT_STREQ(User_resource_directory, "");  // home or joined path did not fit
    });
  }
}

TEST(DirectoryResolve, TakesTheSlashedFormOfTheHome) {
  resolved({.home = "\\Users\\mira"}, [](const std::string &) {
    EXPECT_STREQ(User_home_directory, "/Users/mira");
    EXPECT_STREQ(User_resource_directory, "/Users/mira/Library/Application Support/kalmora102");
  });
}

}  // namespace

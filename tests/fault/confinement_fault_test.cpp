// Giving up rights on a simulated kernel, whose calls fail one after the other.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "internal/file_system.hpp"
#include "platform/platform.hpp"
#include "support/fault.hpp"
#include "support/scratch.hpp"

using qal::internal::still_means;
using qal::test::fail_nth;
using qal::test::Fault;
using qal::test::ScratchDir;
using testing::IsEmpty;
namespace platform = qal::internal::platform;

namespace {

Fault prctl_fault, version_fault, ruleset_fault, open_fault, rule_fault, restrict_fault;

// What the kernel was told.
struct Kernel {
  long version = 3;
  std::uint64_t given_up = 0;
  std::vector<struct stat> directories = {};  // where files may be deleted
  bool restricts = false;
  bool gives_new_privileges = true;
};

Kernel kernel;

long create_ruleset(const landlock_ruleset_attr *attributes) {
  if (!attributes) return version_fault.strikes() ? -1 : kernel.version;
  if (ruleset_fault.strikes()) return -1;
  kernel.given_up = attributes->handled_access_fs;
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

long add_rule(const landlock_path_beneath_attr &rule) {
  if (rule_fault.strikes()) return -1;
  EXPECT_EQ(rule.allowed_access, std::uint64_t{LANDLOCK_ACCESS_FS_REMOVE_FILE});
  struct stat directory;
  EXPECT_EQ(fstat(rule.parent_fd, &directory), 0);
  kernel.directories.push_back(directory);
  return 0;
}

long restrict_self() {
  if (restrict_fault.strikes()) return -1;
  kernel.restricts = true;
  return 0;
}

}  // namespace

extern "C" {

long __real_syscall(long number, ...);

// A coverage build makes calls of its own when a process ends.
static long forward(long number, va_list arguments) {
  long values[4];
  for (long &value : values) value = va_arg(arguments, long);
  return __real_syscall(number, values[0], values[1], values[2], values[3]);
}

// Each call has arguments of its own; more than were passed may not be read.
long __wrap_syscall(long number, ...) {
  va_list arguments;
  va_start(arguments, number);
  long result = 0;
  if (number == SYS_landlock_create_ruleset) {
    result = create_ruleset(va_arg(arguments, const landlock_ruleset_attr *));
  } else if (number == SYS_landlock_add_rule) {
    va_arg(arguments, int);  // the ruleset
    va_arg(arguments, int);  // the kind of rule
    result = add_rule(*va_arg(arguments, const landlock_path_beneath_attr *));
  } else if (number == SYS_landlock_restrict_self) {
    result = restrict_self();
  } else {
    result = forward(number, arguments);
  }
  va_end(arguments);
  return result;
}

int __wrap_prctl(int option, ...) {
  EXPECT_EQ(option, PR_SET_NO_NEW_PRIVS);
  if (prctl_fault.strikes()) return -1;
  kernel.gives_new_privileges = false;
  return 0;
}

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...) {
  if ((flags & O_PATH) != 0 && open_fault.strikes()) return -1;
  return __real_open(path, flags);
}
}

namespace {

class Confinement : public testing::Test {
 protected:
  Confinement() {
    kernel = {};
    scratch_.directory("one");
    scratch_.directory("two");
  }

  bool confine(const char *two = "two") const {
    const std::string paths[] = {scratch_ / "one/", scratch_ / two};
    const char *const directories[] = {paths[0].c_str(), paths[1].c_str()};
    return platform::keep_only_deleting_in(directories, std::size(directories));
  }

  ScratchDir scratch_;
};

TEST_F(Confinement, AllowsDeletingFilesInTheDirectories) {
  EXPECT_TRUE(confine());
  EXPECT_TRUE(kernel.restricts);
  EXPECT_FALSE(kernel.gives_new_privileges);
  ASSERT_EQ(kernel.directories.size(), 2U);
  EXPECT_TRUE(still_means((scratch_ / "one").c_str(), kernel.directories[0]));
  EXPECT_TRUE(still_means((scratch_ / "two").c_str(), kernel.directories[1]));
}

TEST_F(Confinement, GivesUpWhatTheKernelKnowsAndNeverReading) {
  constexpr std::uint64_t truncating = 1U << 14U;
  constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
  for (const long version : {1, 2, 3, 9}) {
    kernel = {.version = version};
    EXPECT_TRUE(confine());
    EXPECT_EQ((kernel.given_up & truncating) != 0, version >= 3);
    EXPECT_EQ(kernel.given_up & reading, 0U);
    EXPECT_NE(kernel.given_up & LANDLOCK_ACCESS_FS_WRITE_FILE, 0U);
    EXPECT_NE(kernel.given_up & LANDLOCK_ACCESS_FS_REMOVE_FILE, 0U);
  }
}

TEST_F(Confinement, NeedsNoDirectory) {
  EXPECT_TRUE(platform::keep_only_deleting_in(nullptr, 0));
  EXPECT_TRUE(kernel.restricts);
}

// Without its rule a directory could not be swept.
TEST_F(Confinement, IsLeftOutWhenADirectoryCannotBeOpened) {
  EXPECT_FALSE(confine("missing"));
  EXPECT_FALSE(kernel.restricts);
  open_fault = fail_nth(2, EMFILE);
  EXPECT_FALSE(confine());
  EXPECT_FALSE(kernel.restricts);
}

TEST_F(Confinement, IsLeftOutWhenACallFails) {
  for (Fault *const fault : {&version_fault, &ruleset_fault, &rule_fault, &restrict_fault}) {
    kernel = {};
    *fault = fail_nth(1, ENOSYS);
    EXPECT_FALSE(confine());
    EXPECT_FALSE(kernel.restricts);
    EXPECT_FALSE(kernel.gives_new_privileges);
  }
  kernel = {};
  prctl_fault = fail_nth(1, EPERM);
  EXPECT_FALSE(confine());
  EXPECT_FALSE(kernel.restricts);
}

TEST_F(Confinement, IsLeftOutWhereTheKernelHasSwitchedItOff) {
  kernel.version = 0;
  EXPECT_FALSE(confine());
  EXPECT_FALSE(kernel.restricts);
}

}  // namespace

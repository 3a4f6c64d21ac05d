// The path functions when system calls fail, and how many calls they make.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <qal/path.h>
#include <qal/status.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

#include "internal/password.hpp"
#include "support/child.hpp"
#include "support/fault.hpp"
#include "support/listing.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"

namespace {

using qal::test::fail_all;
using qal::test::fail_from;
using qal::test::fail_times;
using qal::test::Fault;
using qal::test::in_unprivileged_child;
using qal::test::LogCapture;
using qal::test::ScratchDir;

// What the replaced calls do; a test sets it before it calls the library.
struct Faults {
  std::size_t smallest_refused_block = SIZE_MAX;
  Fault open, opendir, readdir, lookup;
  bool no_home = false;
  std::vector<std::size_t> lookup_sizes;
  bool record_opens = false;
  std::vector<std::string> opened;
  int last_open_flags = 0;
  std::string last_directory;
  std::vector<void *> checked_blocks;  // allocated and not yet freed
};
Faults faults;

}  // namespace

extern "C" {

void __real_qal_malloc(const char *label, void *out, uint64_t size, int line, const char *file);
void __real_qal_free(void *block, int line, const char *file);
void *__real_malloc(std::size_t size);
void *__real_realloc(void *block, std::size_t size);
int __real_open(const char *path, int flags, ...);
DIR *__real_opendir(const char *path);
dirent *__real_readdir(DIR *directory);
int __real_getpwuid_r(uid_t user, passwd *entry, char *store, std::size_t size, passwd **found);
int __real_getpwnam_r(const char *user, passwd *entry, char *store, std::size_t size,
                      passwd **found);

static bool refused(std::size_t size) {
  if (size < faults.smallest_refused_block) return false;
  errno = ENOMEM;
  return true;
}

void *__wrap_malloc(std::size_t size) { return refused(size) ? nullptr : __real_malloc(size); }

void *__wrap_realloc(void *block, std::size_t size) {
  return refused(size) ? nullptr : __real_realloc(block, size);
}

void __wrap_qal_malloc(const char *label, void *out, uint64_t size, int line, const char *file) {
  __real_qal_malloc(label, out, size, line, file);
  faults.checked_blocks.push_back(*static_cast<void **>(out));
}

void __wrap_qal_free(void *block, int line, const char *file) {
  std::erase(faults.checked_blocks, block);
  __real_qal_free(block, line, file);
}

int __wrap_open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  if (faults.record_opens) {
    faults.opened.emplace_back(path);
    faults.last_open_flags = flags;
  }
  return faults.open.strikes() ? -1 : __real_open(path, flags, mode);
}

DIR *__wrap_opendir(const char *path) {
  faults.last_directory = path;
  return faults.opendir.strikes() ? nullptr : __real_opendir(path);
}

dirent *__wrap_readdir(DIR *directory) {
  return faults.readdir.strikes() ? nullptr : __real_readdir(directory);
}

// The error of this look-up, or 0.
static int lookup_fault(std::size_t size, passwd **found) {
  faults.lookup_sizes.push_back(size);
  *found = nullptr;
  return faults.lookup.error_of_call();
}

static int without_home(int result, passwd *entry) {
  if (faults.no_home) entry->pw_dir = nullptr;
  return result;
}

int __wrap_getpwuid_r(uid_t user, passwd *entry, char *store, std::size_t size, passwd **found) {
  if (const int error = lookup_fault(size, found)) return error;
  return without_home(__real_getpwuid_r(user, entry, store, size, found), entry);
}

int __wrap_getpwnam_r(const char *user, passwd *entry, char *store, std::size_t size,
                      passwd **found) {
  if (const int error = lookup_fault(size, found)) return error;
  return without_home(__real_getpwnam_r(user, entry, store, size, found), entry);
}

}  // extern "C"

namespace {

using qal::internal::PasswordEntry;
using qal::test::Listing;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

class PathFault : public testing::Test {
 protected:
  void SetUp() override { faults = Faults{}; }
  void TearDown() override { faults = Faults{}; }
};

using PathNormaliseFault = PathFault;
using PathExpandFault = PathFault;
class PathRangeFault : public PathFault {
 protected:
  const ScratchDir scratch;
};

struct Range {
  int status;
  std::int32_t first;
  std::int32_t last;
  bool operator==(const Range &) const = default;
};

Range find_range(const std::string &path, std::int32_t first = -1, std::int32_t last = -1) {
  faults.record_opens = true;
  const int status = qal_valid_pathname_range(path.c_str(), &first, &last);
  faults.record_opens = false;
  return {status, first, last};
}

int expand(const char *path) {
  std::array<char, 1024> out{};
  const int status = qal_expand_pathname(path, out.data(), static_cast<int>(out.size()));
  EXPECT_TRUE(status == QAL_STATUS_OK || out[0] == '\0');
  return status;
}

TEST_F(PathNormaliseFault, RefusesWhenMemoryIsShort) {
  std::string path(100, 'a');
  std::array<char, 256> out{"kept"};
  faults.smallest_refused_block = path.size() + 64;
  EXPECT_EQ(-1, qal_get_norm_path(path.c_str(), out.data(), 256));
  EXPECT_STREQ("kept", out.data());
}

TEST_F(PathNormaliseFault, ReportsMissingMemoryUnderItsName) {
  std::string path(100, 'a');
  std::array<char, 256> out{};
  const LogCapture log;
  faults.smallest_refused_block = path.size() + 64;
  EXPECT_EQ(-1, qal_get_norm_path(path.c_str(), out.data(), 256));
  faults.smallest_refused_block = SIZE_MAX;
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ("ERROR: qal_get_norm_path: Memory allocation failed.\n", log.lines().back());
}

TEST_F(PathNormaliseFault, AllocatesThePathAnd64Bytes) {
  std::string path(100, 'a');
  std::array<char, 256> out{};
  faults.smallest_refused_block = path.size() + 65;
  EXPECT_EQ(0, qal_get_norm_path(path.c_str(), out.data(), 256));
}

TEST_F(PathNormaliseFault, FreesItsCopyAsItWasAllocated) {
  std::array<char, 256> out{};
  EXPECT_EQ(0, qal_get_norm_path("a/../b", out.data(), 256));
  EXPECT_EQ(-1, qal_get_norm_path("/..", out.data(), 256));
  EXPECT_THAT(faults.checked_blocks, IsEmpty());
}

TEST_F(PathNormaliseFault, NeedsNoMemoryForAnEmptyPath) {
  std::array<char, 4> out{};
  faults.smallest_refused_block = 64;
  EXPECT_EQ(0, qal_get_norm_path("", out.data(), 4));
  EXPECT_STREQ(".", out.data());
}

TEST_F(PathNormaliseFault, NeedsNoMemoryToRefuseAPathThatBeginsWithTwoDots) {
  std::array<char, 4> out{};
  const LogCapture log;
  faults.smallest_refused_block = 64;
  EXPECT_EQ(-1, qal_get_norm_path("..x", out.data(), 4));
  faults.smallest_refused_block = SIZE_MAX;
  EXPECT_EQ(log.text(), "");
}

TEST_F(PathExpandFault, DoesNotFindAnyoneWhenTheDatabaseFails) {
  faults.lookup = fail_all(EIO);
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, expand("~"));
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, expand("~daemon/x"));
}

TEST_F(PathExpandFault, RepeatsAnInterruptedLookUp) {
  const int without_interruption = expand("~/x");
  faults.lookup = fail_times(3, EINTR);
  EXPECT_EQ(without_interruption, expand("~/x"));
  faults.lookup = fail_times(3, EINTR);
  EXPECT_EQ(QAL_STATUS_OK, expand("~daemon"));
}

TEST_F(PathExpandFault, GrowsTheStoreOfALongEntry) {
  faults.lookup = fail_times(3, ERANGE);
  EXPECT_EQ(QAL_STATUS_OK, expand("~daemon"));
  EXPECT_EQ((std::vector<std::size_t>{1024, 2048, 4096, 8192}), faults.lookup_sizes);
}

TEST_F(PathExpandFault, GivesUpOnAnEntryWithoutEnd) {
  faults.lookup = fail_all(ERANGE);
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, expand("~"));
  EXPECT_EQ(1U << 20, faults.lookup_sizes.back());
}

TEST_F(PathExpandFault, DoesNotFindAnyoneWhenMemoryIsShort) {
  faults.smallest_refused_block = 1024;
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, expand("~"));
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, expand("~daemon"));
  const std::string long_name = "~" + std::string(1023, 'n');
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, expand(long_name.c_str()));
  EXPECT_TRUE(faults.lookup_sizes.empty());
}

TEST_F(PathExpandFault, FreesTheRoomOfALookUpAsItWasAllocated) {
  expand("~");
  expand("~no-such-user");
  EXPECT_THAT(faults.checked_blocks, IsEmpty());
}

TEST_F(PathExpandFault, ReportsTheMissingMemoryOfALookUp) {
  const auto report = ElementsAre("ERROR: Cannot allocate memory: " + std::to_string(ENOMEM) + "\n",
                                  "ERROR: QAL_MALLOC: Memory allocation (size 1024) failed:\n",
                                  AllOf(StartsWith("ERROR: At line "), EndsWith("/password.cpp\n")),
                                  "ERROR: PasswordEntry: Memory allocation failed.\n");
  LogCapture log;
  faults.smallest_refused_block = 1024;
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, expand("~"));
  faults.smallest_refused_block = SIZE_MAX;
  EXPECT_THAT(log.lines(), report);

  log.clear();
  faults.smallest_refused_block = 1024;
  const Listing listing("~/*");
  faults.smallest_refused_block = SIZE_MAX;
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, listing.status);
  EXPECT_EQ(nullptr, listing.full_path);
  EXPECT_THAT(log.lines(), report);
}

TEST_F(PathExpandFault, TakesAMissingHomeForAnEmptyOne) {
  faults.no_home = true;
  std::array<char, 16> out{};
  EXPECT_EQ(QAL_STATUS_OK, qal_expand_pathname("~daemon/x", out.data(), 16));
  EXPECT_STREQ("/x", out.data());
}

TEST_F(PathExpandFault, KnowsNeitherNameNorHomeOfAnUnknownUser) {
  const PasswordEntry nobody_known{"no-such-user"};
  EXPECT_FALSE(nobody_known);
  const PasswordEntry daemon{"daemon"};
  EXPECT_TRUE(daemon);
  EXPECT_EQ("daemon", daemon.name());
}

TEST_F(PathRangeFault, ReadsTheDirectoryOnceInsteadOfProbing) {
  scratch.file("f987654321");
  EXPECT_EQ((Range{0, 987654321, 987654321}), find_range(scratch / "f#########"));
  EXPECT_EQ(1, faults.opendir.calls);
  EXPECT_EQ((std::vector<std::string>{scratch / "f987654321", scratch / "f987654321",
                                      scratch / "f987654322"}),
            faults.opened);
}

TEST_F(PathRangeFault, OpensNothingWhenTheDirectoryListsNothing) {
  EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "f#########"));
  EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "absent/f#########"));
  EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "absent/d#/f"));
  EXPECT_TRUE(faults.opened.empty());
}

TEST_F(PathRangeFault, OpensOnlyWhatTheDirectoryListsInTheTemplatesForm) {
  for (const char *name : {"f1.b", "g2.a", "fx.a", "f:.a", "f44.a", "f.a", "af5.a", "f4.ab"}) {
    scratch.file(name);
  }
  EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "f#.a"));
  EXPECT_TRUE(faults.opened.empty());
}

// Counted as digits, ":" and "." would make 20 and 18 of these.
TEST_F(PathRangeFault, OpensNothingForAFieldThatHoldsMoreThanDigits) {
  for (const char *name : {"f1:", "f2."}) scratch.file(name);
  EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "f##"));
  EXPECT_TRUE(faults.opened.empty());
}

TEST_F(PathRangeFault, OpensNothingWhereTheDirectoryCannotBe) {
  for (const int error : {ENOENT, ENOTDIR, ELOOP, ENAMETOOLONG, EMFILE, ENFILE, ENOMEM}) {
    faults.opendir = fail_all(error);
    EXPECT_EQ((Range{6, -1, -1}), find_range("/f##")) << error;
    EXPECT_EQ((Range{6, -1, -1}), find_range("/d##/f")) << error;
  }
  EXPECT_TRUE(faults.opened.empty());
}

TEST_F(PathRangeFault, ReadsTheRootForATemplateRightBelowIt) {
  faults.opendir = fail_all(ENOENT);
  EXPECT_EQ((Range{6, -1, -1}), find_range("/f##"));
  EXPECT_EQ("/", faults.last_directory);
}

TEST_F(PathRangeFault, ConfirmsTheListedNumbersInAscendingOrder) {
  for (const char *name : {"F7", "F2", "F5", "F3", "f8"}) scratch.file(name);
  EXPECT_EQ((Range{0, 8, 8}), find_range(scratch / "f#"));
  EXPECT_EQ(
      (std::vector<std::string>{scratch / "f2", scratch / "f3", scratch / "f5", scratch / "f7",
                                scratch / "f8", scratch / "f8", scratch / "f9"}),
      faults.opened);
}

TEST_F(PathRangeFault, DoesNotReadTheDirectoryForAGivenFirstNumber) {
  scratch.file("f1");
  EXPECT_EQ((Range{0, 1, 1}), find_range(scratch / "f#", 1));
  EXPECT_EQ(0, faults.opendir.calls);
}

TEST_F(PathRangeFault, DoesNotProbeBeyondTheLimitOrTheField) {
  for (const char *name : {"f8", "f9"}) scratch.file(name);
  find_range(scratch / "f#", 8, 8);
  find_range(scratch / "f#", 9, 12);
  EXPECT_EQ((std::vector<std::string>{scratch / "f8", scratch / "f9"}), faults.opened);
}

TEST_F(PathRangeFault, OpensWithoutWaitingAndWithoutInheritance) {
  scratch.file("f0");
  find_range(scratch / "f#");
  EXPECT_EQ(O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, faults.last_open_flags);
}

TEST_F(PathRangeFault, RepeatsAnInterruptedOpen) {
  scratch.file("f0");
  faults.open = fail_times(3, EINTR);
  EXPECT_EQ((Range{0, 0, 0}), find_range(scratch / "f#"));
}

TEST_F(PathRangeFault, OpensAnInterruptedDirectoryAgain) {
  scratch.file("f987654321");
  faults.opendir = fail_times(3, EINTR);
  EXPECT_EQ((Range{0, 987654321, 987654321}), find_range(scratch / "f#########"));
  EXPECT_EQ(3U, faults.opened.size());
}

TEST_F(PathRangeFault, OpensNothingInADirectoryThatMayNotBeSearched) {
  scratch.directory("closed");
  chmod((scratch / "closed").c_str(), 0444);
  in_unprivileged_child([&] {
    EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "closed/f#########"));
    faults.opendir = fail_all(EACCES);
    EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "closed/f#########"));
    EXPECT_TRUE(faults.opened.empty());
  });
}

TEST_F(PathRangeFault, ProbesWhenTheDirectoryCannotBeOpened) {
  scratch.file("f42");
  for (const int error : {EACCES, EIO}) {
    faults.opendir = fail_all(error);
    EXPECT_EQ((Range{0, 42, 42}), find_range(scratch / "f##")) << error;
  }
  ASSERT_FALSE(faults.opened.empty());
  EXPECT_EQ(scratch / "f00", faults.opened.front());
}

TEST_F(PathRangeFault, ProbesAllNumbersBeforeItFails) {
  faults.opendir = fail_all(EACCES);
  EXPECT_EQ((Range{6, -1, -1}), find_range(scratch / "f##"));
  ASSERT_EQ(100U, faults.opened.size());
  EXPECT_EQ(scratch / "f99", faults.opened.back());
}

TEST_F(PathRangeFault, ProbesWhenReadingTheDirectoryFails) {
  for (const char *name : {"f41", "f42"}) scratch.file(name);
  faults.readdir = fail_from(2, EIO);
  EXPECT_EQ((Range{0, 41, 42}), find_range(scratch / "f##"));
}

TEST_F(PathRangeFault, ProbesInSilenceWhenMemoryIsShort) {
  const LogCapture log;
  for (int number = 10; number < 99; ++number) scratch.file("f" + std::to_string(number));
  faults.smallest_refused_block = 512;  // the second block of the list
  EXPECT_EQ((Range{0, 10, 98}), find_range(scratch / "f##"));
  faults.smallest_refused_block = SIZE_MAX;
  ASSERT_FALSE(faults.opened.empty());
  EXPECT_EQ(scratch / "f00", faults.opened.front());
  EXPECT_EQ(log.text(), "");
}

}  // namespace

// System calls that fail in the middle of the work. Each replaced call passes through unless a test
// says which of them is to fail.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qal/files.h>
#include <qal/status.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "internal/handles.hpp"
#include "support/descriptors.hpp"
#include "support/fake_entry.hpp"
#include "support/fault.hpp"
#include "support/scratch.hpp"
#include "support/stream_model.hpp"

namespace {

using qal::internal::File;
using qal::test::byte_by_byte;
using qal::test::Deliveries;
using qal::test::Delivery;
using qal::test::exists;
using qal::test::fail_all;
using qal::test::fail_from;
using qal::test::fail_nth;
using qal::test::fail_times;
using qal::test::FakeEntry;
using qal::test::Fault;
using qal::test::FlakySource;
using qal::test::InScratch;
using qal::test::names_in;
using qal::test::open_descriptors;
using qal::test::read_file;
using qal::test::ScratchDir;

using CheckFault = InScratch;

using Lines = std::vector<std::string>;

using Plan = std::map<std::string_view, Fault>;

Plan faults;
std::vector<std::string> made_calls;  // of the functions that `faults` names, in their order

bool all_opened_close_on_exec = true;

std::deque<FakeEntry> more_entries;  // of the directory that is read next, behind its own

std::vector<ino_t> synchronised;  // the files that fsync was called for

bool empty_files_are_one = false;  // they have the same inode then, as on some file systems

std::function<void()> after_fstat;  // where there is something to do then

std::map<std::string, mode_t> played_kinds;  // by file name, in place of the real ones

bool owners_are_played = false;  // every file belongs to user 1 and group 2 then

// How much copy_file_range copies, and in pieces of how many bytes. It is played, as there are file
// systems and sandboxes that refuse it.
std::size_t kernel_copies_bytes = 0;
constexpr std::size_t kernel_piece = 10'000;

bool fails(const char *call) {
  const auto found = faults.find(call);
  if (found == faults.end()) return false;
  made_calls.emplace_back(call);
  return found->second.strikes();
}

// Sets the faults while it lives; the test's own checks run without them.
class Faults {
 public:
  explicit Faults(Plan armed) {
    made_calls.clear();
    faults = std::move(armed);
  }
  ~Faults() { faults.clear(); }
  Faults(const Faults &) = delete;
  Faults &operator=(const Faults &) = delete;
};

constexpr Fault never;
constexpr Fault interrupted_twice = fail_times(2, EINTR);

}  // namespace

extern "C" {

int __real_open(const char *, int, ...);
int __real_openat(int, const char *, int, ...);
ssize_t __real_read(int, void *, size_t);
ssize_t __real_write(int, const void *, size_t);
int __real_close(int);
int __real_stat(const char *, struct stat *);
int __real_fstat(int, struct stat *);
int __real_fstatat(int, const char *, struct stat *, int);
int __real_ftruncate(int, off_t);
int __real_fsync(int);
int __real_unlink(const char *);
int __real_unlinkat(int, const char *, int);
DIR *__real_fdopendir(int);
dirent *__real_readdir(DIR *);
void *__real_realloc(void *, size_t);

int __wrap_open(const char *path, int flags, ...) {
  all_opened_close_on_exec &= (flags & O_CLOEXEC) != 0;
  if (fails("open")) return -1;
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return __real_open(path, flags, mode);
}
int __wrap_openat(int parent, const char *path, int flags, ...) {
  all_opened_close_on_exec &= (flags & O_CLOEXEC) != 0;
  return fails("openat") ? -1 : __real_openat(parent, path, flags);
}
ssize_t __wrap_read(int file, void *to, size_t size) {
  return fails("read") ? -1 : __real_read(file, to, size);
}
// Where no error is set, a write that fails takes no byte.
ssize_t __wrap_write(int file, const void *from, size_t size) {
  if (fails("write")) return errno == 0 ? 0 : -1;
  return __real_write(file, from, size);
}
// Where no error is set, a call that fails has found nothing to copy.
ssize_t __wrap_copy_file_range(int from, off_t *from_at, int to, off_t *to_at, size_t size,
                               unsigned flags) {
  EXPECT_TRUE(!from_at && !to_at && flags == 0) << "goes on where the descriptors stand";
  if (fails("copy_file_range")) return errno == 0 ? 0 : -1;
  size = std::min({size, kernel_piece, kernel_copies_bytes});
  if (size == 0) {
    errno = EXDEV;
    return -1;
  }
  std::array<char, kernel_piece> piece{};
  const ssize_t taken = __real_read(from, piece.data(), size);
  if (taken <= 0) return taken;
  kernel_copies_bytes -= static_cast<size_t>(taken);
  return __real_write(to, piece.data(), static_cast<size_t>(taken));
}
// A close that fails has closed the descriptor even so.
int __wrap_close(int file) {
  const int result = __real_close(file);
  return fails("close") ? -1 : result;
}
int __wrap_stat(const char *path, struct stat *info) {
  const int result = __real_stat(path, info);
  if (owners_are_played) {
    info->st_uid = 1;
    info->st_gid = 2;
  }
  return result;
}
int __wrap_fstat(int file, struct stat *info) {
  if (fails("fstat")) return -1;
  const int result = __real_fstat(file, info);
  if (empty_files_are_one && info->st_size == 0) info->st_ino = 1;
  if (after_fstat) after_fstat();
  return result;
}
int __wrap_fstatat(int parent, const char *path, struct stat *info, int flags) {
  const int result = __real_fstatat(parent, path, info, flags);
  const auto played = played_kinds.find(path);
  if (played == played_kinds.end()) return result;
  info->st_mode = played->second;
  return 0;
}
int __wrap_ftruncate(int file, off_t size) {
  return fails("ftruncate") ? -1 : __real_ftruncate(file, size);
}
int __wrap_fsync(int file) {
  struct stat info = {};
  __real_fstat(file, &info);
  synchronised.push_back(info.st_ino);
  return fails("fsync") ? -1 : __real_fsync(file);
}
int __wrap_unlink(const char *path) { return fails("unlink") ? -1 : __real_unlink(path); }
int __wrap_unlinkat(int parent, const char *path, int flags) {
  return fails(flags & AT_REMOVEDIR ? "rmdirat" : "unlinkat")
             ? -1
             : __real_unlinkat(parent, path, flags);
}
DIR *__wrap_fdopendir(int file) { return fails("fdopendir") ? nullptr : __real_fdopendir(file); }
dirent *__wrap_readdir(DIR *directory) {
  if (fails("readdir")) return nullptr;
  dirent *const entry = __real_readdir(directory);
  if (entry || more_entries.empty()) return entry;
  static FakeEntry delivered{"", 0};
  delivered = more_entries.front();
  more_entries.pop_front();
  return delivered.entry();
}
void *__wrap_realloc(void *block, size_t size) {
  return fails("realloc") ? nullptr : __real_realloc(block, size);
}

}  // extern "C"

namespace {

class CopyFault : public testing::Test {
 protected:
  ~CopyFault() override { kernel_copies_bytes = 0; }
  int copy(Plan armed) const {
    const Faults guard(std::move(armed));
    return qal_file_copy(from.c_str(), to.c_str(), 0);
  }
  int move(Plan armed) const {
    const Faults guard(std::move(armed));
    return qal_file_rename(from.c_str(), to.c_str(), 0x10000);
  }

  const ScratchDir scratch;
  const std::string content = std::string(40000, 'c') + "end";
  const std::string from = scratch.file("from", content);
  const std::string to = scratch / "to";
};

TEST_F(CopyFault, BlocksHave16384Bytes) {
  EXPECT_EQ(copy({{"read", never}, {"write", never}}), QAL_STATUS_OK);
  EXPECT_EQ(made_calls, (Lines{"read", "write", "read", "write", "read", "write", "read"}));
}

TEST_F(CopyFault, InterruptedCallsAreMadeAgain) {
  scratch.file("to", "old");
  EXPECT_EQ(copy({{"open", interrupted_twice},
                  {"read", interrupted_twice},
                  {"write", interrupted_twice},
                  {"ftruncate", interrupted_twice}}),
            QAL_STATUS_OK);
  EXPECT_EQ(read_file(to), content);
  EXPECT_EQ(copy({{"open", fail_nth(2, EINTR)}}), QAL_STATUS_OK);
}

TEST_F(CopyFault, AReadErrorFailsAndThePartStays) {
  EXPECT_EQ(copy({{"read", fail_from(2, EIO)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(to), content.substr(0, 16384));
}

TEST_F(CopyFault, AWriteErrorFailsAndThePartStays) {
  EXPECT_EQ(copy({{"write", fail_from(3, ENOSPC)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(to), content.substr(0, 32768));
}

TEST_F(CopyFault, AWriteThatTakesNothingIsAnError) {
  EXPECT_EQ(copy({{"write", fail_nth(2, 0)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(to), content.substr(0, 16384));
}

TEST_F(CopyFault, NothingIsReadWithoutADestination) {
  EXPECT_EQ(copy({{"open", fail_nth(2, EACCES)}, {"read", never}}), QAL_STATUS_FAILED);
  EXPECT_EQ(made_calls, (Lines{"open", "open"}));
}

class KernelCopy : public CopyFault {
 protected:
  int copy_in_kernel(std::size_t bytes, Plan armed) const {
    kernel_copies_bytes = bytes;
    return copy(std::move(armed));
  }
};

TEST_F(KernelCopy, IsAskedUntilNothingIsLeft) {
  EXPECT_EQ(
      copy_in_kernel(SIZE_MAX, {{"copy_file_range", never}, {"read", never}, {"write", never}}),
      QAL_STATUS_OK);
  EXPECT_EQ(read_file(to), content);
  EXPECT_EQ(made_calls, (Lines{"copy_file_range", "copy_file_range", "copy_file_range",
                               "copy_file_range", "copy_file_range", "copy_file_range", "read"}));
}

TEST_F(KernelCopy, IsTakenUpWhereItStops) {
  for (const std::size_t bytes : {0U, 1U, 9'999U, 10'000U, 25'000U, 40'003U}) {
    EXPECT_EQ(copy_in_kernel(bytes, {}), QAL_STATUS_OK);
    EXPECT_EQ(read_file(to), content) << bytes;
    EXPECT_EQ(kernel_copies_bytes, bytes > content.size() ? bytes - content.size() : 0);
  }
}

TEST_F(KernelCopy, IsAskedAgainAfterASignal) {
  EXPECT_EQ(copy_in_kernel(SIZE_MAX, {{"copy_file_range", interrupted_twice}, {"write", never}}),
            QAL_STATUS_OK);
  EXPECT_EQ(read_file(to), content);
  EXPECT_EQ(std::count(made_calls.begin(), made_calls.end(), "write"), 0);
}

TEST_F(KernelCopy, LeavesItToReadingAndWritingWhetherAnErrorLasts) {
  const Fault second = fail_from(2, EIO);
  EXPECT_EQ(copy_in_kernel(SIZE_MAX, {{"copy_file_range", second}}), QAL_STATUS_OK);
  EXPECT_EQ(read_file(to), content);
  EXPECT_EQ(copy_in_kernel(SIZE_MAX, {{"copy_file_range", second}, {"read", fail_all(EIO)}}),
            QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(to), content.substr(0, kernel_piece));
  EXPECT_EQ(copy_in_kernel(SIZE_MAX, {{"copy_file_range", second}, {"write", fail_all(ENOSPC)}}),
            QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(to), content.substr(0, kernel_piece));
}

TEST_F(KernelCopy, ReadsAFileWhoseSizeTheKernelDoesNotKnow) {
  EXPECT_EQ(copy({{"copy_file_range", fail_all(0)}}), QAL_STATUS_OK);
  EXPECT_EQ(made_calls, Lines{"copy_file_range"});
  EXPECT_EQ(read_file(to), content);
}

TEST_F(CopyFault, TheResultOfClosingTheDestinationCounts) {
  EXPECT_EQ(copy({{"close", fail_nth(1, ENOSPC)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(to), content);
}

TEST_F(CopyFault, TheResultOfClosingTheSourceDoesNot) {
  EXPECT_EQ(copy({{"close", fail_from(2, EIO)}}), QAL_STATUS_OK);
}

TEST_F(CopyFault, WhatCannotBeExaminedIsNotTouched) {
  for (const int nth : {1, 2}) {
    scratch.file("to", "kept");
    EXPECT_EQ(copy({{"fstat", fail_nth(nth, EIO)}}), QAL_STATUS_FAILED);
    EXPECT_EQ(read_file(to), "kept");
  }
}

TEST_F(CopyFault, ANewFileIsNeverTakenForItsSource) {
  empty_files_are_one = true;
  const int status = qal_file_copy(scratch.file("empty").c_str(), to.c_str(), 0);
  empty_files_are_one = false;
  EXPECT_EQ(status, QAL_STATUS_OK);
}

TEST_F(CopyFault, ADestinationThatCannotBeEmptiedFails) {
  scratch.file("to", "kept");
  EXPECT_EQ(copy({{"ftruncate", fail_all(EIO)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(to), "kept");
}

TEST_F(CopyFault, AnEmptyDestinationIsNotTruncated) {
  for (int existing = 0; existing < 2; ++existing) {
    if (existing) scratch.file("to", "");
    EXPECT_EQ(copy({{"ftruncate", never}}), QAL_STATUS_OK);
    EXPECT_EQ(made_calls, Lines{});
    EXPECT_EQ(read_file(to), content);
  }
}

TEST_F(CopyFault, WithoutMoveNothingIsForcedToTheDisk) {
  EXPECT_EQ(copy({{"fsync", never}}), QAL_STATUS_OK);
  EXPECT_EQ(made_calls, Lines{});
}

TEST_F(CopyFault, NoDescriptorStaysOpen) {
  const auto before = open_descriptors();
  for (const char *call : {"open", "fstat", "ftruncate", "read", "write", "close"}) {
    copy({{call, fail_all(EIO)}});
    copy({{call, fail_from(2, EIO)}});
  }
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(CopyFault, AMoveIsOnTheDiskAndClosedBeforeTheSourceGoes) {
  EXPECT_EQ(move({{"fsync", never}, {"unlink", never}, {"close", never}}), QAL_STATUS_OK);
  EXPECT_EQ(made_calls, (Lines{"fsync", "close", "close", "fsync", "close", "unlink"}));
  EXPECT_EQ(names_in(scratch.path()), Lines{"to"});
}

TEST_F(CopyFault, AMovePutsTheFileAndItsDirectoryOnTheDisk) {
  synchronised.clear();
  EXPECT_EQ(move({}), QAL_STATUS_OK);
  std::vector<ino_t> expected;
  for (const auto &path : {to, scratch.path()}) {
    struct stat info = {};
    EXPECT_EQ(stat(path.c_str(), &info), 0);
    expected.push_back(info.st_ino);
  }
  EXPECT_EQ(synchronised, expected);
}

TEST_F(CopyFault, AMoveKeepsTheSourceWhenTheDiskDoesNotAnswer) {
  EXPECT_EQ(move({{"fsync", fail_all(EIO)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(from), content);
}

TEST_F(CopyFault, AMoveKeepsTheSourceWhenItsNewNameDoesNotReachTheDisk) {
  EXPECT_EQ(move({{"fsync", fail_nth(2, EIO)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(from), content);
}

TEST_F(CopyFault, AMoveGoesOnWhereTheDirectoryCannotBeOpened) {
  EXPECT_EQ(move({{"open", fail_nth(4, EACCES)}, {"fsync", never}, {"unlink", never}}),
            QAL_STATUS_OK);
  EXPECT_EQ(made_calls, (Lines{"open", "open", "open", "fsync", "open", "unlink"}));
  EXPECT_EQ(names_in(scratch.path()), Lines{"to"});
}

TEST_F(CopyFault, AMoveKeepsTheSourceWhenClosingFails) {
  EXPECT_EQ(move({{"close", fail_nth(1, EIO)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(from), content);
}

TEST_F(CopyFault, AMoveGoesOnWhereNothingCanBeForcedToTheDisk) {
  for (const int error : {EINVAL, EROFS, ENOTSUP, EOPNOTSUPP, ENOSYS}) {
    EXPECT_EQ(move({{"fsync", fail_all(error)}}), QAL_STATUS_OK) << error;
    EXPECT_EQ(names_in(scratch.path()), Lines{"to"});
    std::filesystem::rename(to, from);
  }
}

TEST_F(CopyFault, AnInterruptedFsyncIsMadeAgain) {
  EXPECT_EQ(move({{"fsync", interrupted_twice}}), QAL_STATUS_OK);
  EXPECT_EQ(made_calls, (Lines{"fsync", "fsync", "fsync", "fsync"}));
}

TEST_F(CopyFault, AMoveWhoseSourceStaysFails) {
  EXPECT_EQ(move({{"unlink", fail_all(EIO)}}), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(from), content);
  EXPECT_EQ(read_file(to), content);
}

TEST(UnlinkFault, ARefusalFails) {
  const ScratchDir scratch;
  const auto file = scratch.file("a");
  const Faults guard(Plan{{"unlink", fail_all(EIO)}});
  EXPECT_EQ(qal_file_unlink(file.c_str()), QAL_STATUS_FAILED);
}

// The real numbers are often equal.
TEST(StatFault, TheUserAndTheGroupAreNotMixedUp) {
  owners_are_played = true;
  QalStat record;
  EXPECT_EQ(qal_stat("/", &record), 0);
  owners_are_played = false;
  EXPECT_EQ(record.user_id, 1U);
  EXPECT_EQ(record.group_id, 2U);
}

// Deliberate: the question is whether the file can be created, and it was.
TEST_F(CheckFault, AFileThatCouldBeCreatedIsUsableEvenIfItCannotBeRemoved) {
  const Faults guard(Plan{{"unlink", fail_all(EIO)}});
  EXPECT_EQ(qal_io_chkfil((scratch / "new").c_str(), 1, 0), 1);
}

TEST_F(CheckFault, AFileThatCannotBeRecognisedIsNotRemoved) {
  const Faults guard(Plan{{"fstat", fail_all(EIO)}});
  EXPECT_EQ(qal_io_chkfil((scratch / "new").c_str(), 1, 0), 1);
  EXPECT_TRUE(exists(scratch / "new"));
}

TEST_F(CheckFault, AFileThatHasTakenTheNameIsNotRemoved) {
  const auto path = scratch / "new";
  after_fstat = [&] {
    std::filesystem::rename(path, scratch / "moved");
    scratch.file("new");
  };
  EXPECT_EQ(qal_io_chkfil(path.c_str(), 1, 0), 1);
  after_fstat = nullptr;
  EXPECT_TRUE(exists(path));
}

TEST_F(CheckFault, AnInterruptedCreationIsMadeAgain) {
  const Faults guard(Plan{{"open", interrupted_twice}});
  EXPECT_EQ(qal_io_chkfil((scratch / "new").c_str(), 1, 0), 1);
  EXPECT_FALSE(exists(scratch / "new"));
}

class TreeFault : public testing::Test {
 protected:
  TreeFault() { plant(); }
  ~TreeFault() override { played_kinds.clear(); }
  void plant() const {
    scratch.directory("tree/d/e");
    for (const char *name : {"tree/a", "tree/b", "tree/d/c", "tree/d/e/f"}) scratch.file(name);
  }
  int remove(Plan armed) const {
    const Faults guard(std::move(armed));
    return qal_file_rmdir(tree.c_str(), 1);
  }

  const ScratchDir scratch;
  const std::string tree = scratch / "tree";
};

TEST_F(TreeFault, EveryCallThatFailsEndsTheRemovalAndLeaksNothing) {
  const auto before = open_descriptors();
  const std::map<const char *, int> calls{{"openat", 4},  {"fdopendir", 4}, {"fstat", 2},
                                          {"readdir", 3}, {"unlinkat", 3},  {"rmdirat", 3},
                                          {"realloc", 3}};
  for (const auto &[call, last] : calls) {
    for (int nth = 1; nth <= last; ++nth) {
      plant();
      EXPECT_EQ(remove({{call, fail_nth(nth, EIO)}}), QAL_STATUS_FAILED) << call << nth;
      EXPECT_TRUE(exists(tree));
      EXPECT_EQ(open_descriptors(), before);
    }
  }
}

// What is not passed over cannot be removed, as there is no such directory.
TEST_F(TreeFault, ANameOfMoreThan255BytesIsPassedOver) {
  for (const std::size_t length : {std::size_t{256}, std::size_t{255}}) {
    const std::string name(length, 'n');
    more_entries.emplace_back(name, DT_DIR);
    played_kinds[name] = S_IFDIR;
    EXPECT_EQ(remove({}), length > 255 ? QAL_STATUS_OK : QAL_STATUS_FAILED);
    EXPECT_TRUE(more_entries.empty());
    scratch.directory("tree");
  }
}

TEST_F(TreeFault, NoDescriptorReachesAProgramStartedMeanwhile) {
  all_opened_close_on_exec = true;
  EXPECT_EQ(remove({}), QAL_STATUS_OK);
  const auto file = scratch.file("file");
  EXPECT_EQ(qal_file_copy(file.c_str(), (scratch / "copy").c_str(), 1), QAL_STATUS_OK);
  EXPECT_EQ(qal_io_chkfil((scratch / "new").c_str(), 1, 0), 1);
  EXPECT_TRUE(all_opened_close_on_exec);
}

TEST_F(TreeFault, TheFirstFileThatStaysIsTheLastOneTried) {
  EXPECT_EQ(remove({{"unlinkat", fail_nth(1, EIO)}, {"rmdirat", never}}), QAL_STATUS_FAILED);
  EXPECT_EQ(made_calls, Lines{"unlinkat"});
  EXPECT_EQ(names_in(tree), (Lines{"a", "b", "d"}));
}

// Some file systems remove a file's companion together with it.
TEST_F(TreeFault, AFileThatIsGoneAlreadyIsRemoved) {
  more_entries.emplace_back("gone", DT_REG);
  played_kinds["gone"] = S_IFREG;
  EXPECT_EQ(remove({{"unlinkat", never}}), QAL_STATUS_OK);
  EXPECT_EQ(made_calls, Lines(5, "unlinkat"));
  EXPECT_FALSE(exists(tree));
}

TEST_F(TreeFault, FilesGoBeforeSubdirectoriesAndThoseBeforeTheirParent) {
  EXPECT_EQ(remove({{"unlinkat", never}, {"rmdirat", never}, {"openat", never}}), QAL_STATUS_OK);
  EXPECT_EQ(made_calls, (Lines{"openat", "unlinkat", "unlinkat", "openat", "unlinkat", "openat",
                               "unlinkat", "rmdirat", "openat", "rmdirat", "rmdirat"}));
}

TEST_F(TreeFault, ADirectoryThatIsMovedMeanwhileFailsAndNothingGoesWhereItWent) {
  scratch.directory("elsewhere");
  scratch.file("elsewhere/kept");
  after_fstat = [this] {
    if (exists(tree + "/d")) std::filesystem::rename(tree + "/d", scratch / "elsewhere/d");
  };
  EXPECT_EQ(remove({}), QAL_STATUS_FAILED);
  after_fstat = nullptr;
  EXPECT_TRUE(exists(tree));
  EXPECT_EQ(names_in(scratch / "elsewhere"), (Lines{"d", "kept"}));
}

TEST_F(TreeFault, ADirectoryThatCannotBeReadToItsEndLosesNothing) {
  for (const int nth : {1, 2, 3}) {
    EXPECT_EQ(remove({{"readdir", fail_from(nth, EIO)}}), QAL_STATUS_FAILED);
    EXPECT_EQ(names_in(tree), (Lines{"a", "b", "d"}));
  }
}

TEST_F(TreeFault, ADirectoryWhoseNamesFindNoMemoryLosesNothing) {
  for (const int nth : {1, 2}) {
    EXPECT_EQ(remove({{"realloc", fail_nth(nth, ENOMEM)}}), QAL_STATUS_FAILED);
    EXPECT_EQ(names_in(tree), (Lines{"a", "b", "d"}));
  }
}

TEST_F(TreeFault, ADirectoryThatCannotBeOpenedIsNotRead) {
  EXPECT_EQ(remove({{"openat", fail_all(EIO)}, {"fdopendir", never}}), QAL_STATUS_FAILED);
  EXPECT_EQ(made_calls, Lines{"openat"});
}

TEST_F(TreeFault, TheRoomForNamesIsDoubled) {
  for (int number = 0; number < 100; ++number) scratch.file("tree/" + std::to_string(number));
  EXPECT_EQ(remove({{"realloc", never}}), QAL_STATUS_OK);
  EXPECT_LT(made_calls.size(), 20U);
}

// Deliberate: a stream that yields not even "." is taken for an unreadable one.
TEST_F(TreeFault, ADirectoryWithoutAnyEntryFails) {
  const auto empty = scratch.directory("empty");
  const Faults guard(Plan{{"readdir", fail_all(0)}});
  EXPECT_EQ(qal_file_rmdir(empty.c_str(), 1), QAL_STATUS_FAILED);
}

// Deliberate: a block device has the bit in its type that tells directories, so it counts as one.
TEST_F(TreeFault, ABlockDeviceFailsAfterTheFiles) {
  played_kinds = {{"a", S_IFBLK | 0600}};
  EXPECT_EQ(remove({}), QAL_STATUS_FAILED);
  EXPECT_EQ(names_in(tree), (Lines{"a", "d"}));
}

TEST_F(TreeFault, ACharacterDeviceIsAFile) {
  played_kinds = {{"a", S_IFCHR | 0600}};
  EXPECT_EQ(remove({}), QAL_STATUS_OK);
  EXPECT_FALSE(exists(tree));
}

// Every call that could remove something fails, in case the check is missing.
TEST(RootFault, TheRootFailsUntouched) {
  const Faults guard(Plan{{"openat", fail_all(EIO)},
                          {"unlink", fail_all(EIO)},
                          {"unlinkat", fail_all(EIO)},
                          {"rmdirat", fail_all(EIO)}});
  for (const char *path : {"/", "//", "\\", "/."}) {
    EXPECT_EQ(qal_file_rmdir(path, 1), QAL_STATUS_FAILED) << path;
  }
  EXPECT_EQ(made_calls, Lines{});
}

TEST_F(TreeFault, AnInterruptedOpenIsMadeAgain) {
  EXPECT_EQ(remove({{"openat", interrupted_twice}}), QAL_STATUS_OK);
  EXPECT_FALSE(exists(tree));
}

// A stream without a buffer over these deliveries.
class Stream {
 public:
  explicit Stream(Deliveries deliveries) : source_(std::move(deliveries)), file_(source_.open()) {
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);
  }
  std::FILE *get() const { return file_.get(); }

 private:
  FlakySource source_;
  File file_;
};

const Delivery failure{.bytes = "", .error = EIO};
const Delivery interruption{.bytes = "", .error = EINTR};

TEST(ReadFault, AfterAnErrorTheRestIsReadInHalfTheChunk) {
  const Stream stream({{"abcd"}, failure, {"efgh"}});
  char buffer[9] = {};
  EXPECT_EQ(qal_fread(buffer, 1, 8, stream.get()), 8U);
  EXPECT_STREQ(buffer, "abcdefgh");
  EXPECT_EQ(std::ferror(stream.get()), 0);
}

TEST(ReadFault, AfterAnErrorNoMoreIsReadThanWasAskedFor) {
  const Stream stream({{"abcdef"}, failure, {"ghijkl"}});
  char buffer[13] = {};
  EXPECT_EQ(qal_fread(buffer, 1, 8, stream.get()), 8U);
  EXPECT_STREQ(buffer, "abcdefgh");
}

TEST(ReadFault, EachErrorHalvesTheChunkUntilNothingIsLeft) {
  for (const std::size_t errors : {3U, 4U}) {  // chunks of 8, 4, 2 and 1
    Deliveries deliveries(errors, failure);
    deliveries.push_back({"abcdefgh"});
    const Stream stream(deliveries);
    char buffer[9] = {};
    EXPECT_EQ(qal_fread(buffer, 1, 8, stream.get()), errors == 3 ? 8U : 0U);
    EXPECT_STREQ(buffer, errors == 3 ? "abcdefgh" : "");
    EXPECT_EQ(std::ferror(stream.get()), 0);
  }
}

TEST(ReadFault, TheChunkStaysHalvedAfterASuccess) {
  // Chunks of 8, 4, 2 and 1.
  const Stream stream({failure, {"ab"}, failure, {"cd"}, failure, {"ef"}, failure, {"gh"}});
  char buffer[9] = {};
  EXPECT_EQ(qal_fread(buffer, 1, 8, stream.get()), 6U);
  EXPECT_STREQ(buffer, "abcdef");
}

// Deliberate: the bytes of a broken item are overwritten by the next one.
TEST(ReadFault, OnlyWholeItemsCountAndAdvance) {
  const Stream stream({{"abcdXY"}, failure, {"efgh"}});
  char buffer[17] = {};
  EXPECT_EQ(qal_fread(buffer, 4, 2, stream.get()), 2U);
  EXPECT_STREQ(buffer, "abcdefgh");
}

TEST(ReadFault, AnEndInsideAnItemLeavesItOut) {
  const Stream stream(byte_by_byte("abcdef"));
  char buffer[9] = {};
  EXPECT_EQ(qal_fread(buffer, 4, 2, stream.get()), 1U);
}

TEST(LineFault, AnInterruptedReadIsTakenUpAgain) {
  const Stream stream({interruption, {"ab"}, interruption, interruption, {"cd\n"}});
  char buffer[9];
  EXPECT_EQ(qal_io_get_aline(stream.get(), 8, buffer), 4);
  EXPECT_STREQ(buffer, "abcd");
}

TEST(LineFault, AReadErrorEndsTheLineLikeTheEndOfTheFile) {
  const Stream stream({{"ab"}, failure, failure, {"cd\n"}});
  char buffer[9];
  EXPECT_EQ(qal_io_get_aline(stream.get(), 8, buffer), 2);
  EXPECT_STREQ(buffer, "ab");
  EXPECT_EQ(qal_io_get_aline(stream.get(), 8, buffer), -1);
  EXPECT_EQ(qal_io_get_aline(stream.get(), 8, buffer), 2);
  EXPECT_STREQ(buffer, "cd");
}

}  // namespace

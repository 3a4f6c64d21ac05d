// A full disk, files that may not grow, and hardly a descriptor left: the calls report it, existing
// files stay whole, and nothing incomplete counts as done.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qal/qal.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <kalmora/kalmora.hpp>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "internal/handles.hpp"
#include "support/child.hpp"
#include "support/commands.hpp"
#include "support/descriptors.hpp"
#include "support/listing.hpp"
#include "support/scratch.hpp"
#include "support/zlib_blocks.hpp"

namespace {

using qal::internal::File;
using qal::test::exists;
using qal::test::exit_code;
using qal::test::in_child;
using qal::test::Listing;
using qal::test::names_in;
using qal::test::noise;
using qal::test::open_descriptors;
using qal::test::Read;
using qal::test::read_file;
using qal::test::run_in_child;
using qal::test::ScratchDir;
using qal::test::Write;

// Whether copy_file_range works.
bool kernel_copies = false;

constexpr int mount_refused = 77;  // exit status of a child

enum class Mount { done, refused, failed };

Mount refused_if(bool refused) { return refused ? Mount::refused : Mount::failed; }

bool write_all(const char *file, const std::string &text) {
  std::ofstream out(file);
  return static_cast<bool>(out << text << std::flush);
}

// Makes an ordinary user root in a namespace of its own, where the kernel allows it.
bool become_own_root() {
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  return unshare(CLONE_NEWUSER) == 0 && write_all("/proc/self/setgroups", "deny") &&
         write_all("/proc/self/uid_map", "0 " + user + " 1") &&
         write_all("/proc/self/gid_map", "0 " + group + " 1");
}

// In containers even root may need a namespace of its own for it.
bool may_mount() {
  if (geteuid() == 0 && unshare(CLONE_NEWNS) == 0) return true;
  return become_own_root() && unshare(CLONE_NEWNS) == 0;
}

// A file system of 64 KiB and of a few files, seen by this process alone. EINVAL and ENOSYS come
// from kernels without namespaces, ENOSPC from those that allow none.
Mount mount_small_disk(const std::string &directory) {
  if (!may_mount()) {
    return refused_if(errno == EPERM || errno == EACCES || errno == ENOSPC || errno == EINVAL ||
                      errno == ENOSYS);
  }
  if (mount("none", "/", "", MS_REC | MS_PRIVATE, "") == 0 &&
      mount("none", directory.c_str(), "tmpfs", 0, "size=64k,nr_inodes=8") == 0) {
    return Mount::done;
  }
  return refused_if(errno == EPERM || errno == EACCES);
}

}  // namespace

extern "C" {
ssize_t __real_copy_file_range(int from, off_t *from_at, int to, off_t *to_at, std::size_t size,
                               unsigned flags);
ssize_t __wrap_copy_file_range(int from, off_t *from_at, int to, off_t *to_at, std::size_t size,
                               unsigned flags) {
  if (kernel_copies) return __real_copy_file_range(from, from_at, to, to_at, size, flags);
  errno = EXDEV;
  return -1;
}
}

namespace {

class Limits : public testing::Test {
 protected:
  // Runs the body in a child with the disk mounted. Without a file system of its own no process can
  // fill a disk, and a kernel may forbid every mount: only then is there nothing to run.
  static void on_small_disk(const std::string &disk, const std::function<void()> &body) {
    const auto child = run_in_child([&] {
      alarm(60);
      const Mount result = mount_small_disk(disk);
      if (result == Mount::refused) _exit(mount_refused);
      ASSERT_EQ(result, Mount::done) << errno;
      body();
    });
    if (child.exited_with(mount_refused)) {
      GTEST_SKIP() << "the kernel lets neither root nor a namespace of the user's own mount a disk";
    }
    EXPECT_TRUE(child.exited_with(0)) << child.out << child.err;
  }

  const ScratchDir scratch;
  const std::string content = noise(100'000);
  const std::string source = scratch.file("source", content);
  const std::string disk = scratch.directory("disk");
};
using FullDisk = Limits;

// Both ways: by reading and writing, and in the kernel.
void expect_no_room_for_copies(const std::string &source, const std::string &content,
                               const std::string &to) {
  for (const bool by_the_kernel : {false, true}) {
    kernel_copies = by_the_kernel;
    EXPECT_EQ(qal_file_copy(source.c_str(), to.c_str(), 0), QAL_STATUS_FAILED);
    EXPECT_TRUE(read_file(source) == content);
    unlink(to.c_str());
    EXPECT_EQ(qal_file_rename(source.c_str(), to.c_str(), 0x10000), QAL_STATUS_FAILED);
    EXPECT_TRUE(read_file(source) == content);
    unlink(to.c_str());
  }
}

void expect_no_room_for_a_piece(std::string content, const std::string &to) {
  int64_t position = -1;
  EXPECT_EQ(remote_fileio(to.c_str(), 1, SEEK_SET, 0, static_cast<int64_t>(content.size()),
                          content.data(), &position),
            -3);
  EXPECT_EQ(position, 0);
  unlink(to.c_str());
}

// The writer returns the size even so. The stream reports the error, and the reader returns 0.
void expect_no_room_for_a_block(Write write, Read read, const std::string &content,
                                const std::string &to) {
  File file{std::fopen(to.c_str(), "wb")};
  EXPECT_EQ(write(content.data(), 1, content.size(), file.get()), content.size());
  EXPECT_TRUE(std::fflush(file.get()) != 0 || std::ferror(file.get()));
  file.reset(std::fopen(to.c_str(), "rb"));
  std::string copy(content.size(), '\0');
  EXPECT_EQ(read(copy.data(), 1, copy.size(), file.get()), 0U);
  unlink(to.c_str());
}

void expect_no_room(const std::string &source, const std::string &content, const std::string &to) {
  expect_no_room_for_copies(source, content, to);
  expect_no_room_for_a_piece(content, to);
  expect_no_room_for_a_block(&qal_fwrite_zlib, &qal_fread_zlib, content, to);
  expect_no_room_for_a_block(&fwrite_zlib, &fread_zlib, content, to);
}

TEST_F(FullDisk, IsToldAndSparesTheSource) {
  on_small_disk(disk, [this] { expect_no_room(source, content, disk + "/to"); });
}

// The kernel copies within one file system.
TEST_F(FullDisk, HasNoRoomForACopyOfItsOwnFile) {
  on_small_disk(disk, [this] {
    const std::string half = content.substr(0, 40'000);
    const std::string inside = disk + "/source";
    const File file{std::fopen(inside.c_str(), "wb")};
    ASSERT_EQ(std::fwrite(half.data(), 1, half.size(), file.get()), half.size());
    ASSERT_EQ(std::fflush(file.get()), 0);
    expect_no_room_for_copies(inside, half, disk + "/to");
  });
}

TEST_F(FullDisk, WithoutRoomForAFileHoldsNone) {
  on_small_disk(disk, [this] {
    for (int i = 0; i < 20; ++i) {
      const File file{std::fopen((disk + "/" + std::to_string(i)).c_str(), "w")};
      if (!file) break;
    }
    const auto to = disk + "/to";
    EXPECT_EQ(qal_io_chkfil(to.c_str(), 1, 0), 0);
    EXPECT_EQ(qal_file_copy(source.c_str(), to.c_str(), 0), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rename(source.c_str(), to.c_str(), 0x10000), QAL_STATUS_FAILED);
    EXPECT_EQ(_qal_logger_set_file(to.c_str()), nullptr);
    char byte = 'b';
    EXPECT_EQ(remote_fileio(to.c_str(), 1, SEEK_SET, 0, 1, &byte, nullptr), -2);
    EXPECT_FALSE(exists(to));
    EXPECT_TRUE(read_file(source) == content);
  });
}

void expect_log_lines_lost_quietly(const std::string &to) {
  ASSERT_NE(_qal_logger_set_file(to.c_str()), nullptr);
  qal_logger_init(nullptr, &_qal_logger_func, nullptr, nullptr);
  const std::string line(1000, 'l');
  for (int i = 0; i < 100; ++i) qal_info("%s\n", line.c_str());
  qal_logger_done();
  _qal_logger_set_file(nullptr);
  const std::size_t kept = read_file(to).size();
  EXPECT_GT(kept, 0U);
  EXPECT_LE(kept, 65536U);
}

TEST_F(FullDisk, LosesLogLinesQuietly) {
  on_small_disk(disk, [this] { expect_log_lines_lost_quietly(disk + "/log"); });
}

TEST(FullDevice, IsTold) {
  const ScratchDir scratch;
  const auto source = scratch.file("source", "content");
  EXPECT_EQ(qal_file_copy(source.c_str(), "/dev/full", 0), QAL_STATUS_FAILED);
  char byte = 'b';
  EXPECT_EQ(remote_fileio("/dev/full", 1, SEEK_SET, 0, 1, &byte, nullptr), -3);
  const File full{std::fopen("/dev/full", "wb")};
  EXPECT_EQ(qal_fwrite_zlib("content", 1, 7, full.get()), 7U);
  EXPECT_TRUE(std::fflush(full.get()) != 0 || std::ferror(full.get()));
}

using FileSizeLimit = Limits;

void let_no_file_grow_beyond(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit small{bytes, bytes};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
}

TEST_F(FileSizeLimit, IsToldAndSparesTheSource) {
  in_child([this] {
    let_no_file_grow_beyond(20'000);
    expect_no_room(source, content, scratch / "to");
  });
}

TEST_F(FileSizeLimit, LosesLogLinesQuietly) {
  in_child([this] {
    let_no_file_grow_beyond(20'000);
    expect_log_lines_lost_quietly(scratch / "log");
  });
}

using FewDescriptors = Limits;

// Uses up all descriptors but that many.
void leave_descriptors(std::size_t count) {
  constexpr rlim_t limit = 64;
  const rlimit few{limit, limit};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  std::vector<int> taken;
  for (int copy; (copy = fcntl(0, F_DUPFD_CLOEXEC, 0)) >= 0;) taken.push_back(copy);
  ASSERT_GE(taken.size(), count);
  for (; count > 0; --count) {
    close(taken.back());
    taken.pop_back();
  }
}

void with_descriptors(std::size_t count, const std::function<void()> &body) {
  const auto child = run_in_child([&] {
    alarm(60);
    leave_descriptors(count);
    const auto before = open_descriptors();
    body();
    EXPECT_EQ(open_descriptors(), before);
  });
  EXPECT_TRUE(child.exited_with(0)) << count << child.out << child.err;
}

TEST_F(FewDescriptors, ThanACopyNeedsMakeNone) {
  const auto to = scratch / "to";
  with_descriptors(0, [&] {
    EXPECT_EQ(qal_file_copy(source.c_str(), to.c_str(), 0), QAL_STATUS_NO_SOURCE);
    EXPECT_EQ(qal_file_rename(source.c_str(), to.c_str(), 0x10000), QAL_STATUS_NO_SOURCE);
  });
  with_descriptors(1, [&] {
    EXPECT_EQ(qal_file_copy(source.c_str(), to.c_str(), 0), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rename(source.c_str(), to.c_str(), 0x10000), QAL_STATUS_FAILED);
  });
  EXPECT_FALSE(exists(to));
  EXPECT_TRUE(read_file(source) == content);
  with_descriptors(2,
                   [&] { EXPECT_EQ(qal_file_copy(source.c_str(), to.c_str(), 0), QAL_STATUS_OK); });
  EXPECT_TRUE(read_file(to) == content);
}

TEST_F(FewDescriptors, ThanAPipeNeedsStartNothing) {
  const auto started = scratch / "started";
  const std::string command = "touch '" + started + "'";
  for (const std::size_t count : {0U, 1U}) {
    with_descriptors(count, [&] {
      int pid = -2;
      EXPECT_EQ(qal_pipe_popen_id(command.c_str(), "r", &pid), nullptr);
      EXPECT_EQ(pid, -1);
      EXPECT_EQ(qal_pipe_popen(command.c_str(), "w"), nullptr);
    });
  }
  EXPECT_FALSE(exists(started));
  with_descriptors(2, [&] {
    int pid = -2;
    File stream{qal_pipe_popen_id(command.c_str(), "r", &pid)};
    EXPECT_TRUE(stream);
    stream.reset();
    EXPECT_EQ(exit_code(pid), 0);
  });
  EXPECT_TRUE(exists(started));
}

TEST_F(FewDescriptors, ThanAListingNeedsListNothing) {
  const auto pattern = scratch / "*";
  const auto numbered = scratch / "#";
  with_descriptors(0, [&] {
    EXPECT_EQ(Listing{pattern}.status, QAL_STATUS_NOT_FOUND);
    dirent **entries = nullptr;
    EXPECT_EQ(our_scandir(scratch.path().c_str(), &entries, nullptr, nullptr), -1);
    EXPECT_EQ(entries, nullptr);
    int32_t first = -1;
    int32_t last = -1;
    EXPECT_EQ(qal_valid_pathname_range(numbered.c_str(), &first, &last), QAL_STATUS_INVALID);
  });
  with_descriptors(1, [&] { EXPECT_EQ(Listing{pattern}.status, QAL_STATUS_OK); });
}

TEST_F(FewDescriptors, ThanARemovalNeedsKeepTheRest) {
  const auto tree = scratch.directory("tree/d/e");
  scratch.file("tree/d/e/file");
  const auto root = scratch / "tree";
  for (const std::size_t count : {0U, 1U}) {
    with_descriptors(count, [&] { EXPECT_EQ(qal_file_rmdir(root.c_str(), 1), QAL_STATUS_FAILED); });
  }
  EXPECT_TRUE(exists(tree + "/file"));
  with_descriptors(2, [&] { EXPECT_EQ(qal_file_rmdir(root.c_str(), 1), QAL_STATUS_OK); });
}

TEST_F(FewDescriptors, AreEnoughToRemoveADeepTree) {
  const auto root = scratch / "tree";
  std::string deepest = "tree";
  for (int level = 0; level < 100; ++level) {
    scratch.directory(deepest);
    scratch.file(deepest + "/file");
    deepest += "/d";
  }
  with_descriptors(2, [&] { EXPECT_EQ(qal_file_rmdir(root.c_str(), 1), QAL_STATUS_OK); });
  EXPECT_FALSE(exists(root));
}

TEST_F(FewDescriptors, ThanAFileNeedsOpenNone) {
  const auto to = scratch / "to";
  with_descriptors(0, [&] {
    EXPECT_EQ(qal_io_chkfil(to.c_str(), 1, 0), 0);
    char byte = 'b';
    EXPECT_EQ(remote_fileio(to.c_str(), 1, SEEK_SET, 0, 1, &byte, nullptr), -2);
    EXPECT_EQ(file_getlinecount(source.c_str()), -1);
    EXPECT_EQ(_qal_logger_set_file(to.c_str()), nullptr);
  });
  EXPECT_FALSE(exists(to));
}

TEST_F(FewDescriptors, ThanASweepNeedsLeaveTheRecords) {
  const auto swept = scratch.directory("swept");
  scratch.file("swept/halix_server1.dat", "malformed");
  with_descriptors(0, [&] { process_directory(swept.c_str()); });
  EXPECT_EQ(names_in(swept).size(), 1U);
  with_descriptors(1, [&] { process_directory(swept.c_str()); });
  EXPECT_EQ(names_in(swept).size(), 0U);
}

TEST_F(FewDescriptors, ThanTheSystemsFiguresNeedAreNoFailure) {
  with_descriptors(0, [] {
    for (const int query : {1, 5, 8, 9, 10}) {
      int value = 0;
      EXPECT_EQ(qal_sysinfo(query, &value), 1);
      EXPECT_GT(value, 0);
    }
    char name[64] = "";
    EXPECT_EQ(qal_username(name, sizeof name), 0);
    EXPECT_STRNE(name, "");
  });
}

}  // namespace

// Every read and write moves one byte, and a signal interrupts between two of them: the results are
// those of an undisturbed run. The system calls of the library and the start of commands are
// replaced at link time; streams that the C library reads for itself are replaced by our own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qal/qal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <kalmora/blocks.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "internal/handles.hpp"
#include "record.hpp"
#include "support/commands.hpp"
#include "support/scratch.hpp"
#include "support/stream_model.hpp"
#include "support/zlib_blocks.hpp"

namespace {

bool trickling = false;
bool interrupted_last = false;
int short_calls = 0;
std::size_t kernel_copies_bytes = 0;  // before the rest is read and written

// Every other call is interrupted.
bool interrupted() {
  interrupted_last = !interrupted_last;
  if (interrupted_last) errno = EINTR;
  return interrupted_last;
}

std::FILE *version_output = nullptr;

}  // namespace

extern "C" {
ssize_t __real_read(int file, void *to, std::size_t size);
ssize_t __wrap_read(int file, void *to, std::size_t size) {
  if (!trickling) return __real_read(file, to, size);
  ++short_calls;
  return interrupted() ? -1 : __real_read(file, to, std::min<std::size_t>(size, 1));
}

ssize_t __wrap___read_chk(int file, void *to, std::size_t size, std::size_t) {
  return __wrap_read(file, to, size);
}

ssize_t __real_write(int file, const void *from, std::size_t size);
ssize_t __wrap_write(int file, const void *from, std::size_t size) {
  if (!trickling) return __real_write(file, from, size);
  ++short_calls;
  return interrupted() ? -1 : __real_write(file, from, std::min<std::size_t>(size, 1));
}

// Played, as there are file systems and sandboxes that refuse it.
ssize_t __wrap_copy_file_range(int from, off_t *, int to, off_t *, std::size_t, unsigned) {
  if (kernel_copies_bytes == 0) {
    errno = EXDEV;
    return -1;
  }
  ++short_calls;
  if (interrupted()) return -1;
  --kernel_copies_bytes;
  char byte = '\0';
  const ssize_t taken = __real_read(from, &byte, 1);
  return taken == 1 ? __real_write(to, &byte, 1) : taken;
}

std::FILE *__wrap_popen(const char *, const char *) { return version_output; }
int __wrap_pclose(std::FILE *stream) { return std::fclose(stream); }
}

namespace {

using qal::internal::File;
using qal::internal::read_record;
using qal::internal::Record;
using qal::internal::RecordStatus;
using qal::test::byte_by_byte;
using qal::test::exists;
using qal::test::exit_code;
using qal::test::FlakySource;
using qal::test::Read;
using qal::test::read_file;
using qal::test::ScratchDir;
using qal::test::Write;

class Trickle {
 public:
  Trickle() {
    short_calls = 0;
    trickling = true;
  }
  ~Trickle() { trickling = false; }
  Trickle(const Trickle &) = delete;
  Trickle &operator=(const Trickle &) = delete;
};

// A stream that gives one byte at a time.
class SlowSource {
 public:
  SlowSource(std::string_view content, bool with_signals)
      : source_(byte_by_byte(content, with_signals)), file_(source_.open()) {}
  std::FILE *get() const { return file_.get(); }

 private:
  FlakySource source_;
  File file_;
};

std::string varied_text(std::size_t size) {
  std::string text;
  for (unsigned i = 0; text.size() < size; ++i) text += std::to_string(i * 7919U) + '\n';
  return text.substr(0, size);
}

class ShortCalls : public testing::Test {
 protected:
  const ScratchDir scratch;
  const std::string content = varied_text(20'000);
  const std::string from = scratch.file("from", content);
  const std::string to = scratch / "to";
};

TEST_F(ShortCalls, CopyWholeFiles) {
  {
    const Trickle trickle;
    EXPECT_EQ(qal_file_copy(from.c_str(), to.c_str(), 0), QAL_STATUS_OK);
  }
  EXPECT_EQ(read_file(to), content);
  EXPECT_GE(short_calls, 2 * 2 * 20'000);
}

TEST_F(ShortCalls, CopyWholeFilesWithTheKernelsHelp) {
  for (const std::size_t bytes : {1U, 10'000U, 20'000U, 20'001U}) {
    kernel_copies_bytes = bytes;
    {
      const Trickle trickle;
      EXPECT_EQ(qal_file_copy(from.c_str(), to.c_str(), 0), QAL_STATUS_OK);
    }
    EXPECT_EQ(read_file(to), content);
    EXPECT_EQ(kernel_copies_bytes, 0U);
  }
}

TEST_F(ShortCalls, MoveWholeFiles) {
  {
    const Trickle trickle;
    EXPECT_EQ(qal_file_rename(from.c_str(), to.c_str(), 0x10000), QAL_STATUS_OK);
  }
  EXPECT_EQ(read_file(to), content);
  EXPECT_FALSE(exists(from));
}

TEST_F(ShortCalls, ReadWholeRecords) {
  const auto path = scratch.file("record", "http://localhost:8080/x user\tpass:word\n4711\n");
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat info;
  ASSERT_EQ(fstat(file, &info), 0);
  Record record;
  {
    const Trickle trickle;
    EXPECT_EQ(read_record(file, info, record), RecordStatus::whole);
  }
  close(file);
  EXPECT_STREQ(record.url, "http://localhost:8080/x");
  EXPECT_STREQ(record.user, "user");
  EXPECT_STREQ(record.password, "pass:word");
  EXPECT_EQ(record.pid, 4711);
}

TEST(ShortStreams, GiveWholeLines) {
  const SlowSource source("first line\r\nsecond\n\nlast", true);
  char line[32];
  std::vector<std::string> lines;
  while (qal_io_get_aline(source.get(), sizeof line - 1, line) >= 0) lines.emplace_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"first line", "second", "", "last"}));
}

TEST(ShortStreams, GiveWholeItems) {
  const SlowSource source("abcdefghijkl", false);
  char items[13] = {};
  EXPECT_EQ(qal_fread(items, 3, 4, source.get()), 4U);
  EXPECT_STREQ(items, "abcdefghijkl");
}

void expect_whole_block(Write write, Read read) {
  const std::string data = varied_text(100'000);
  const ScratchDir scratch;
  const auto path = scratch / "block";
  write(data.data(), 1, data.size(), File{std::fopen(path.c_str(), "wb")}.get());
  for (const bool with_signals : {false, true}) {
    const SlowSource source(read_file(path), with_signals);
    std::string copy(data.size(), '\0');
    EXPECT_EQ(read(copy.data(), 1, copy.size(), source.get()), data.size()) << with_signals;
    EXPECT_TRUE(copy == data);
  }
}

TEST(ShortStreams, GiveWholeBlocks) {
  expect_whole_block(&qal_fwrite_zlib, &qal_fread_zlib);
  expect_whole_block(&fwrite_zlib, &fread_zlib);
}

TEST(ShortStreams, GiveTheWholeVersion) {
  for (const bool with_signals : {false, true}) {
    FlakySource source(byte_by_byte("ProductName: macOS\nProductVersion:\t12.6.3\n", with_signals));
    version_output = source.open();
    char name[16];
    int major = 0;
    int minor = 0;
    EXPECT_EQ(qal_get_osx_ver(name, &major, &minor), 0) << with_signals;
    EXPECT_EQ(major, 12);
    EXPECT_EQ(minor, 6);
  }
}

TEST(ShortPipes, GiveWholeOutput) {
  int pid = -1;
  File stream{qal_pipe_popen_id("for c in a b c d; do printf $c; done; echo", "r", &pid)};
  ASSERT_TRUE(stream);
  char text[8] = {};
  EXPECT_EQ(qal_pipe_fread(text, 1, 5, stream.get()), 5U);
  EXPECT_STREQ(text, "abcd\n");
  stream.reset();
  EXPECT_EQ(exit_code(pid), 0);
}

}  // namespace

#define ZLIB_CONST  // has zlib take its input as const
#include <gtest/gtest.h>
#include <qal/blocks.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <kalmora/blocks.hpp>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "internal/handles.hpp"
#include "support/child.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"
#include "support/zlib_blocks.hpp"

namespace {

using qal::internal::File;
using qal::test::block;
using qal::test::compressed;
using qal::test::four_gib;
using qal::test::header;
using qal::test::in_child;
using qal::test::InScratch;
using qal::test::LogCapture;
using qal::test::noise;
using qal::test::number;
using qal::test::read_file;
using qal::test::ScratchDir;

using BlocksWrite = InScratch;

struct Writer {
  const char *name;
  std::size_t (*write)(const void *data, std::size_t size, std::size_t count, std::FILE *stream);
};
struct Reader {
  const char *name;
  std::size_t (*read)(void *data, std::size_t size, std::size_t count, std::FILE *stream);
};

constexpr Writer writers[]{{"qal_fwrite_zlib", qal_fwrite_zlib}, {"fwrite_zlib", fwrite_zlib}};
constexpr Reader readers[]{{"qal_fread_zlib", qal_fread_zlib}, {"fread_zlib", fread_zlib}};

constexpr std::size_t header_size = 9;
constexpr std::string_view mismatch = "Uncompressed data size mismatch\n";

std::string words(std::size_t size) {
  std::string text;
  for (int i = 0; text.size() < size; ++i)
    text += "line " + std::to_string(i % 97) + " of the table\n";
  text.resize(size);
  return text;
}

// A file that holds `content` and is read from its start.
class Input {
 public:
  explicit Input(const std::string &content) : scratch_(), file_(open(content)) {}
  std::FILE *get() const { return file_.get(); }
  off_t position() const { return ftello(file_.get()); }

 private:
  std::FILE *open(const std::string &content) const {
    return std::fopen(scratch_.file("input", content).c_str(), "rbe");
  }

  ScratchDir scratch_;
  File file_;
};

// The same without a file, for the many streams of one test; `content` outlives it.
File memory_stream(const std::string &content) {
  return File(fmemopen(const_cast<char *>(content.data()), content.size(), "rb"));
}

std::string written_by(const Writer &writer, std::string_view text, std::size_t size = 1) {
  const ScratchDir scratch;
  File out(std::fopen((scratch / "block").c_str(), "wbe"));
  EXPECT_EQ(writer.write(text.data(), size, text.size() / size, out.get()), text.size());
  out.reset();
  return read_file(scratch / "block");
}

// What reading gives, in a room with guard bytes on both sides.
struct Read {
  std::size_t result = 0;
  std::string bytes;  // the first `result` of the room
  bool guards_intact = false;
};

Read read_from(const Reader &reader, std::FILE *stream, std::size_t size) {
  constexpr std::size_t guard_size = 64;
  const std::string guard(guard_size, '\x5A');
  std::string room = guard + std::string(size, '\xEE') + guard;
  Read read;
  read.result = reader.read(room.data() + guard_size, 1, size, stream);
  read.guards_intact =
      room.substr(0, guard_size) == guard && room.substr(guard_size + size) == guard;
  if (read.result <= size) read.bytes = room.substr(guard_size, read.result);
  return read;
}

Read read_from(const Reader &reader, const std::string &content, std::size_t size) {
  const File stream = memory_stream(content);
  return read_from(reader, stream.get(), size);
}

void expect_read(const Reader &reader, const std::string &content, std::string_view text) {
  const Read read = read_from(reader, content, text.size());
  EXPECT_EQ(read.result, text.size());
  EXPECT_TRUE(read.bytes == text);
  EXPECT_TRUE(read.guards_intact);
}

// A read that returns nothing and reports nothing.
void expect_nothing(const Reader &reader, const std::string &content, std::size_t size) {
  const LogCapture log;
  const Read read = read_from(reader, content, size);
  EXPECT_EQ(read.result, 0U);
  EXPECT_TRUE(read.guards_intact);
  EXPECT_EQ(log.text(), "");
}

class LevelGuard {
 public:
  LevelGuard() { zlib_compression_method(&level_, 0); }
  ~LevelGuard() { zlib_compression_method(&level_, 1); }
  LevelGuard(const LevelGuard &) = delete;
  LevelGuard &operator=(const LevelGuard &) = delete;

 private:
  int level_ = 0;
};

void set_level(int level) { zlib_compression_method(&level, 1); }

int current_level() {
  int level = 12345;
  zlib_compression_method(&level, 0);
  return level;
}

struct Counters {
  std::uint64_t in = 0;
  std::uint64_t out = 0;
  bool operator==(const Counters &) const = default;
};

void PrintTo(const Counters &counters, std::ostream *out) {
  *out << counters.in << " in, " << counters.out << " out";
}

Counters program_counters(int reset = 0) {
  Counters counters;
  zlib_io_stats(&counters.in, &counters.out, reset);
  return counters;
}

Counters library_counters() { return {zlib_io_in_bytes, zlib_io_out_bytes}; }

void reset_counters() {
  zlib_io_stats(nullptr, nullptr, 1);
  zlib_io_in_bytes = zlib_io_out_bytes = 0;
}

TEST_F(BlocksWrite, StoresTheLowestByteFirst) {
  const std::string text(0x010203, 'x');
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    EXPECT_EQ(written_by(writer, text).substr(0, 4), std::string("\x03\x02\x01\x00", 4));
  }
}

TEST_F(BlocksWrite, CompressesAsZlibDoesByDefault) {
  for (const auto &text : {words(10), words(100'000), noise(100'000)}) {
    for (const auto &writer : writers) {
      SCOPED_TRACE(writer.name);
      EXPECT_TRUE(written_by(writer, text) == block(text));
    }
  }
}

TEST_F(BlocksWrite, AnswersBytesNotElements) {
  const std::string text = words(1000);
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    EXPECT_EQ(written_by(writer, text, 8), block(text));
    EXPECT_EQ(written_by(writer, text, 250), block(text));
  }
}

TEST_F(BlocksWrite, WritesAnEmptyBlock) {
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    for (const void *data :
         {static_cast<const void *>("text"), static_cast<const void *>(nullptr)}) {
      File out(std::fopen((scratch / "block").c_str(), "wbe"));
      EXPECT_EQ(writer.write(data, 0, 10, out.get()), 0U);
      EXPECT_EQ(writer.write(data, 10, 0, out.get()), 0U);
      out.reset();
      EXPECT_EQ(read_file(scratch / "block"), block("") + block(""));
    }
  }
}

TEST_F(BlocksWrite, LeavesTheStreamBehindTheBlock) {
  const std::string text = words(50'000);
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    const File out(std::fopen((scratch / "block").c_str(), "wbe"));
    std::fputs("before", out.get());
    EXPECT_EQ(writer.write(text.data(), 1, text.size(), out.get()), text.size());
    EXPECT_EQ(ftello(out.get()), static_cast<off_t>(6 + block(text).size()));
    std::fputs("after", out.get());
    std::fflush(out.get());
    EXPECT_TRUE(read_file(scratch / "block") == "before" + block(text) + "after");
  }
}

TEST_F(BlocksWrite, ReplacesWhatStandsAtThePositionAndNothingElse) {
  const std::string text = words(100);
  const std::string expected = block(text);
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    const auto path = scratch.file("block", std::string(3, 'a') + std::string(1000, 'b'));
    File file(std::fopen(path.c_str(), "r+be"));
    ASSERT_EQ(fseeko(file.get(), 3, SEEK_SET), 0);
    EXPECT_EQ(writer.write(text.data(), 1, text.size(), file.get()), text.size());
    file.reset();
    EXPECT_EQ(read_file(path), "aaa" + expected + std::string(1000 - expected.size(), 'b'));
  }
}

// Random bytes are stored with 11 bytes around them, so the compressed size can be aimed at.
TEST(BlocksRoundTrip, HoldsWhereTheCompressedSizeMeetsTheChunk) {
  const std::string source = noise(40'000);
  for (const std::size_t target : {16383U, 16384U, 16385U}) {
    const std::string text = source.substr(0, target - 11);
    ASSERT_EQ(compressed(text).size(), target);
    for (const auto &writer : writers) {
      SCOPED_TRACE(writer.name);
      const std::string bytes = written_by(writer, text);
      EXPECT_TRUE(bytes == block(text));
      for (const auto &reader : readers) expect_read(reader, bytes, text);
    }
  }
}

TEST(BlocksRoundTrip, HoldsWhereTheCompressedSizeMeetsTwoChunks) {
  const std::string source = noise(40'000);
  std::size_t met = 0;
  for (std::size_t size = 32'740; size < 32'770; ++size) {
    const std::string text = source.substr(0, size);
    const std::size_t compressed_size = compressed(text).size();
    if (compressed_size < 32'767 || compressed_size > 32'769) continue;
    ++met;
    for (const auto &writer : writers) {
      const std::string bytes = written_by(writer, text);
      EXPECT_TRUE(bytes == block(text));
      for (const auto &reader : readers) expect_read(reader, bytes, text);
    }
  }
  EXPECT_EQ(met, 3U);
}

TEST(BlocksRoundTrip, HoldsForEveryPairAndSize) {
  const std::string random = noise(1 << 20);
  const std::string ordinary = words(1 << 20);
  for (const std::size_t size : {1U, 2U, 100U, 16383U, 16384U, 16385U, 1U << 20}) {
    for (const auto &text : {random.substr(0, size), ordinary.substr(0, size)}) {
      for (const auto &writer : writers) {
        const std::string bytes = written_by(writer, text);
        for (const auto &reader : readers) {
          SCOPED_TRACE(std::string(writer.name) + " to " + reader.name);
          expect_read(reader, bytes, text);
        }
      }
    }
  }
}

TEST(BlocksRoundTrip, HoldsForAnEmptyBlock) {
  for (const auto &writer : writers) {
    const std::string bytes = written_by(writer, "");
    for (const auto &reader : readers) {
      SCOPED_TRACE(std::string(writer.name) + " to " + reader.name);
      expect_nothing(reader, bytes, 0);
      const Input input(bytes);
      EXPECT_EQ(reader.read(nullptr, 0, 7, input.get()), 0U);
      EXPECT_EQ(input.position(), static_cast<off_t>(bytes.size()));
    }
  }
}

TEST(BlocksRoundTrip, HoldsForSeveralBlocksInOneStream) {
  const std::string first = words(70'000);
  const std::string second = noise(50'000);
  const std::string bytes = "text" + written_by(writers[0], first) + written_by(writers[1], "") +
                            written_by(writers[1], second) + "more";
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const Input input(bytes);
    ASSERT_EQ(fseeko(input.get(), 4, SEEK_SET), 0);
    EXPECT_TRUE(read_from(reader, input.get(), first.size()).bytes == first);
    EXPECT_EQ(read_from(reader, input.get(), 0).result, 0U);
    EXPECT_TRUE(read_from(reader, input.get(), second.size()).bytes == second);
    EXPECT_EQ(std::fgetc(input.get()), 'm');
  }
}

TEST(BlocksRoundTrip, HoldsForElementsOfAnySize) {
  const std::string text = words(1000);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const Input input(written_by(writers[0], text, 8));
    std::string room(1000, '\0');
    EXPECT_EQ(reader.read(room.data(), 20, 50, input.get()), 1000U);
    EXPECT_EQ(room, text);
  }
}

TEST(BlocksLevel, StartsAsTheDefaultOfZlib) { EXPECT_EQ(current_level(), -1); }

TEST(BlocksLevel, IsStoredAndSet) {
  const LevelGuard guard;
  set_level(9);
  EXPECT_EQ(current_level(), 9);
  set_level(-1);
  EXPECT_EQ(current_level(), -1);
}

TEST(BlocksLevel, StaysUnderAnyOtherMode) {
  const LevelGuard guard;
  set_level(4);
  for (const int mode : {-1, 2, 3, std::numeric_limits<int>::max()}) {
    int level = 7;
    zlib_compression_method(&level, mode);
    EXPECT_EQ(level, 7);
    EXPECT_EQ(current_level(), 4);
  }
}

TEST(BlocksLevel, IgnoresANullLevel) {
  const LevelGuard guard;
  set_level(4);
  for (const int mode : {0, 1, 2}) zlib_compression_method(nullptr, mode);
  EXPECT_EQ(current_level(), 4);
}

TEST(BlocksLevel, CountsForTheProgramPairAlone) {
  const LevelGuard guard;
  const std::string text = words(100'000);
  ASSERT_NE(compressed(text, 1), compressed(text));
  ASSERT_NE(compressed(text, 9).size(), compressed(text, 1).size());
  for (const int level : {1, 9}) {
    set_level(level);
    EXPECT_TRUE(written_by({"", fwrite_zlib}, text) == block(text.size(), compressed(text, level)));
    EXPECT_TRUE(written_by({"", qal_fwrite_zlib}, text) == block(text));
  }
}

TEST(BlocksLevel, MayLeaveTheTextUncompressed) {
  const LevelGuard guard;
  set_level(0);
  const std::string text = words(100'000);
  const std::string bytes = written_by({"", fwrite_zlib}, text);
  EXPECT_GT(bytes.size(), text.size());
  for (const auto &reader : readers) expect_read(reader, bytes, text);
}

TEST(BlocksLevel, UnknownToZlibLeavesAHeaderAlone) {
  const LevelGuard guard;
  const ScratchDir scratch;
  for (const int level : {-2, 10}) {
    set_level(level);
    File out(std::fopen((scratch / "block").c_str(), "wbe"));
    EXPECT_EQ(fwrite_zlib("text", 1, 4, out.get()), 0U);
    EXPECT_EQ(ftello(out.get()), 9);
    out.reset();
    EXPECT_EQ(read_file(scratch / "block"), header(4, 0));
  }
}

TEST(BlocksCounters, StayAtZeroWhileOnlyWriting) {
  reset_counters();
  for (const auto &writer : writers) written_by(writer, words(1000));
  EXPECT_EQ(program_counters(), (Counters{0, 0}));
  EXPECT_EQ(library_counters(), (Counters{0, 0}));
}

TEST(BlocksCounters, GrowByTheSizesOfEachBlockRead) {
  reset_counters();
  const std::string text = words(1000);
  const std::string bytes = block(text);
  const std::uint64_t compressed_size = bytes.size() - header_size;

  read_from({"", fread_zlib}, bytes, text.size());
  EXPECT_EQ(program_counters(), (Counters{1000, compressed_size}));
  EXPECT_EQ(library_counters(), (Counters{0, 0}));
  read_from({"", fread_zlib}, bytes, text.size());
  EXPECT_EQ(program_counters(), (Counters{2000, 2 * compressed_size}));

  read_from({"", qal_fread_zlib}, bytes, text.size());
  EXPECT_EQ(library_counters(), (Counters{1000, compressed_size}));
  EXPECT_EQ(program_counters(), (Counters{2000, 2 * compressed_size}));
}

TEST(BlocksCounters, GrowBeyond32Bits) {
  reset_counters();
  const std::string bytes = header(0xFFFFFFFF, 0xFFFFFFFF);
  for (int i = 0; i < 2; ++i) {
    const File program = memory_stream(bytes);
    EXPECT_EQ(fread_zlib(nullptr, 0xFFFFFFFF, 1, program.get()), 0U);
    const File library = memory_stream(bytes);
    EXPECT_EQ(qal_fread_zlib(nullptr, 0xFFFFFFFF, 1, library.get()), 0U);
  }
  EXPECT_EQ(program_counters(), (Counters{0x1FFFFFFFE, 0x1FFFFFFFE}));
  EXPECT_EQ(library_counters(), (Counters{0x1FFFFFFFE, 0x1FFFFFFFE}));
}

TEST(BlocksCounters, CountBlocksThatTurnOutCorruptOrCutOff) {
  const std::string corrupt = block(10, "no zlib stream");
  const std::string cut_off = header(20, 30);
  const std::string no_flag = number(40) + number(50);
  reset_counters();
  for (const auto &reader : readers) {
    read_from(reader, corrupt, 10);
    read_from(reader, cut_off, 20);
    read_from(reader, no_flag, 40);
  }
  EXPECT_EQ(program_counters(), (Counters{70, 94}));
  EXPECT_EQ(library_counters(), (Counters{70, 94}));
}

TEST(BlocksCounters, LeaveOutBlocksOfAnotherSizeAndCutHeaders) {
  const std::string bytes = block("text");
  in_child([&] {
    const LogCapture log;
    reset_counters();
    for (const auto &reader : readers) {
      read_from(reader, bytes, 5);
      read_from(reader, bytes.substr(0, 7), 4);
    }
    EXPECT_EQ(program_counters(), (Counters{0, 0}));
    EXPECT_EQ(library_counters(), (Counters{0, 0}));
  });
}

TEST(BlocksCounters, AreToldOneByOneAndResetAfterwards) {
  reset_counters();
  const std::string bytes = block("text");
  const std::uint64_t compressed_size = bytes.size() - header_size;
  read_from({"", fread_zlib}, bytes, 4);

  std::uint64_t in = 1;
  std::uint64_t out = 1;
  zlib_io_stats(&in, nullptr, 0);
  EXPECT_EQ(in, 4U);
  zlib_io_stats(nullptr, &out, 0);
  EXPECT_EQ(out, compressed_size);
  EXPECT_EQ(program_counters(-1), (Counters{4, compressed_size}));
  EXPECT_EQ(program_counters(), (Counters{0, 0}));

  read_from({"", fread_zlib}, bytes, 4);
  zlib_io_stats(&in, nullptr, 1);
  EXPECT_EQ(program_counters(), (Counters{0, 0}));
}

TEST(BlocksCounters, LoseNothingToThreadsThatReadAtOnce) {
  constexpr std::uint64_t rounds = 500;
  const std::string bytes = block("text");
  const std::uint64_t compressed_size = bytes.size() - header_size;
  reset_counters();
  std::array<std::thread, 4> threads;
  for (auto &thread : threads) {
    thread = std::thread([&] {
      for (std::uint64_t i = 0; i < rounds; ++i) {
        for (const auto &reader : readers) expect_read(reader, bytes, "text");
      }
    });
  }
  for (auto &thread : threads) thread.join();
  constexpr std::uint64_t blocks = threads.size() * rounds;
  EXPECT_EQ(program_counters(), (Counters{4 * blocks, compressed_size * blocks}));
  EXPECT_EQ(library_counters(), (Counters{4 * blocks, compressed_size * blocks}));
}

// Each of them is none that the block's header holds.
void read_in_wrong_sizes(decltype(Reader::read) function) {
  const std::string bytes = block("text");
  for (const std::size_t size : {0U, 3U, 5U}) {
    const Read read = read_from({"", function}, bytes, size);
    EXPECT_EQ(read.result, 0U);
    EXPECT_TRUE(read.guards_intact);
  }
}

TEST(BlocksMismatch, IsToldOnStandardErrorByTheLibraryPair) {
  const auto child = in_child([] {
    const LogCapture log;
    read_in_wrong_sizes(qal_fread_zlib);
    EXPECT_EQ(log.text(), "");
  });
  EXPECT_EQ(child.err, std::string(mismatch) + std::string(mismatch) + std::string(mismatch));
}

TEST(BlocksMismatch, IsToldThroughTheLoggerByTheProgramPair) {
  const auto child = in_child([] {
    const LogCapture log;
    read_in_wrong_sizes(fread_zlib);
    EXPECT_EQ(log.lines(), std::vector<std::string>(3, std::string(mismatch)));
  });
  EXPECT_EQ(child.err, "");
}

TEST(BlocksMismatch, LeavesTheStreamBehindTheFirstEightBytes) {
  const std::string bytes = block("text");
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    in_child([&] {
      const Input input(bytes);
      EXPECT_EQ(read_from(reader, input.get(), 3).result, 0U);
      EXPECT_EQ(input.position(), 8);
    });
  }
}

// Cut to 32 bits, or wrapped around at 64 before, these products equal what the header says.
TEST(BlocksMismatch, IncludesSizesThatNoHeaderCanHold) {
  constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();
  constexpr std::pair<std::size_t, std::size_t> sizes[]{
      {four_gib + 5, 1}, {1, four_gib + 5}, {6'148'914'691'236'517'207, 3}, {largest, largest - 4}};
  const std::string five = block("bytes");
  for (const auto &[size, count] : sizes) {
    ASSERT_EQ(static_cast<std::uint32_t>(size * count), 5U) << size << " " << count;
    const auto child = in_child([&, item_size = size, items = count] {
      const LogCapture log;
      for (const auto &reader : readers) {
        char room[5] = {};
        const Input input(five);
        EXPECT_EQ(reader.read(room, item_size, items, input.get()), 0U);
        EXPECT_EQ(input.position(), 8);
        EXPECT_EQ(std::string_view(room, 5), std::string_view("\0\0\0\0\0", 5));
      }
      EXPECT_EQ(log.text(), mismatch);
    });
    EXPECT_EQ(child.err, mismatch);
  }
}

TEST_F(BlocksWrite, RefusesSizesThatNoHeaderCanHold) {
  constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();
  constexpr std::pair<std::size_t, std::size_t> sizes[]{
      {four_gib, 1}, {1, four_gib},        {65536, 65536},    {largest, 1},
      {largest, 2},  {four_gib, four_gib}, {largest, largest}};
  for (const auto &writer : writers) {
    for (const auto &[size, count] : sizes) {
      File out(std::fopen((scratch / "block").c_str(), "wbe"));
      EXPECT_EQ(writer.write("text", size, count, out.get()), 0U) << size << " " << count;
      out.reset();
      EXPECT_EQ(read_file(scratch / "block"), "");
    }
  }
}

TEST_F(BlocksWrite, RefusesNullArguments) {
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    File out(std::fopen((scratch / "block").c_str(), "wbe"));
    EXPECT_EQ(writer.write(nullptr, 1, 1, out.get()), 0U);
    EXPECT_EQ(writer.write("text", 1, 4, nullptr), 0U);
    out.reset();
    EXPECT_EQ(read_file(scratch / "block"), "");
  }
}

TEST_F(BlocksWrite, DoesNotLookAtErrorsOfTheStream) {
  const auto path = scratch.file("block", "old");
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    const File read_only(std::fopen(path.c_str(), "rbe"));
    EXPECT_EQ(writer.write("text", 1, 4, read_only.get()), 4U);
    EXPECT_NE(std::ferror(read_only.get()), 0);
  }
  EXPECT_EQ(read_file(path), "old");
}

TEST_F(BlocksWrite, KeepsTheFirstHeaderWhereItCannotSeek) {
  const std::string text = words(1000);
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const File source(fdopen(ends[0], "rb"));
    File out(fdopen(ends[1], "wb"));
    EXPECT_EQ(writer.write(text.data(), 1, text.size(), out.get()), text.size());
    out.reset();
    std::string bytes(2000, '\0');
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), source.get()));
    EXPECT_EQ(bytes, header(text.size(), 0) + compressed(text));
  }
}

TEST(BlocksRead, NeedsNoSeeking) {
  const std::string text = words(1000);
  const std::string bytes = block(text);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const File source(fdopen(ends[0], "rb"));
    File out(fdopen(ends[1], "wb"));
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), out.get()), bytes.size());
    out.reset();
    EXPECT_EQ(read_from(reader, source.get(), text.size()).bytes, text);
  }
}

// Deliberate: such a stream is told not to be used. It writes everything at its end, the second
// header too.
TEST_F(BlocksWrite, LosesTheCompressedSizeInAppendMode) {
  for (const auto &writer : writers) {
    SCOPED_TRACE(writer.name);
    const auto path = scratch.file("block", "old");
    File out(std::fopen(path.c_str(), "abe"));
    EXPECT_EQ(writer.write("text", 1, 4, out.get()), 4U);
    out.reset();
    const std::string bytes = read_file(path);
    EXPECT_EQ(bytes.substr(0, 12), "old" + header(4, 0));
    for (const auto &reader : readers) expect_nothing(reader, bytes.substr(3), 4);
  }
}

TEST(BlocksRead, IgnoresTheFlagByte) {
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    for (const char flag : {'\1', '\xFF'}) {
      std::string bytes = block("text");
      bytes[8] = flag;
      expect_read(reader, bytes, "text");
    }
  }
}

TEST(BlocksRead, GivesNothingForNullArguments) {
  const std::string bytes = block("text");
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const File stream = memory_stream(bytes);
    EXPECT_EQ(reader.read(nullptr, 1, 4, stream.get()), 0U);
    char room[4];
    EXPECT_EQ(reader.read(room, 1, 4, nullptr), 0U);
  }
}

TEST(BlocksRead, GivesNothingForABlockWithoutAStream) {
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const std::string bytes = header(4, 0) + compressed("text");
    expect_nothing(reader, bytes, 4);
    const Input input(bytes);
    EXPECT_EQ(read_from(reader, input.get(), 4).result, 0U);
    EXPECT_EQ(input.position(), 9);
  }
}

TEST(BlocksRead, GivesNothingForABlockCutAtAnyByte) {
  for (const auto &text : {std::string(), words(300), noise(300)}) {
    const std::string bytes = block(text);
    for (const auto &reader : readers) {
      SCOPED_TRACE(reader.name);
      for (std::size_t size = 0; size < bytes.size(); ++size)
        expect_nothing(reader, bytes.substr(0, size), text.size());
    }
  }
}

TEST(BlocksRead, GivesNothingForABlockCutInALaterChunk) {
  const std::string text = noise(50'000);
  const std::string bytes = block(text);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    for (const std::size_t size : {16384U, 16392U, 16393U, 16394U, 32777U, 40'000U})
      expect_nothing(reader, bytes.substr(0, size), text.size());
    errno = EINTR;  // left by an earlier call
    expect_nothing(reader, bytes.substr(0, bytes.size() - 1), text.size());
  }
}

TEST(BlocksRead, GivesNothingForAStreamThatEndsFarTooEarly) {
  const std::string bytes = header(4, 0xFFFFFFFF) + compressed("text");
  for (const auto &reader : readers) expect_nothing(reader, bytes, 4);
}

TEST(BlocksRead, GivesNothingForCorruptData) {
  const std::string text = words(300);
  std::string wrong_sum = block(text);
  wrong_sum.back() = static_cast<char>(wrong_sum.back() + 1);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    expect_nothing(reader, block(300, "no zlib stream"), 300);
    expect_nothing(reader, wrong_sum, 300);
  }
}

TEST(BlocksRead, LeavesWhatWasProducedUntilALaterChunkTurnedOutCorrupt) {
  const std::string text = noise(50'000);
  std::string bytes = block(text);
  bytes.back() = static_cast<char>(bytes.back() + 1);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const File stream = memory_stream(bytes);
    std::string room(text.size(), '\0');
    EXPECT_EQ(reader.read(room.data(), 1, room.size(), stream.get()), 0U);
    EXPECT_TRUE(room == text);
  }
}

TEST(BlocksRead, SaysNothingOfCorruptOrCutOffBlocks) {
  const std::string good = block("text");
  const auto child = in_child([&] {
    for (const auto &reader : readers) {
      for (const std::size_t size : {0U, 7U, 8U, 9U, 12U}) {
        expect_nothing(reader, good.substr(0, size), 4);
      }
      expect_nothing(reader, block(4, "no zlib stream"), 4);
      expect_nothing(reader, header(4, 0), 4);
    }
  });
  EXPECT_EQ(child.err, "");
}

TEST(BlocksRead, GivesNothingForDataThatNeedsADictionary) {
  z_stream zlib{};
  const std::string text = words(300);
  ASSERT_EQ(deflateInit(&zlib, 9), Z_OK);
  ASSERT_EQ(deflateSetDictionary(&zlib, reinterpret_cast<const Bytef *>(text.data()), 100), Z_OK);
  std::string stream(1000, '\0');
  zlib.next_in = reinterpret_cast<const Bytef *>(text.data());
  zlib.avail_in = static_cast<uInt>(text.size());
  zlib.next_out = reinterpret_cast<Bytef *>(stream.data());
  zlib.avail_out = static_cast<uInt>(stream.size());
  ASSERT_EQ(deflate(&zlib, Z_FINISH), Z_STREAM_END);
  stream.resize(zlib.total_out);
  deflateEnd(&zlib);
  for (const auto &reader : readers) expect_nothing(reader, block(text.size(), stream), 300);
}

// The result is only sure to fit, and to be right where the changed byte has no meaning.
TEST(BlocksRead, StaysInTheRoomWhateverByteIsChanged) {
  const std::string texts[]{std::string(), "text", words(60), noise(60)};
  for (const auto &text : texts) {
    const std::string good = block(text);
    const auto child = in_child([&] {
      const LogCapture log;
      for (const auto &reader : readers) {
        for (std::size_t at = 0; at < good.size(); ++at) {
          for (int change = 1; change < 256; ++change) {
            std::string bytes = good;
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            const Read read = read_from(reader, bytes, text.size());
            EXPECT_TRUE(read.guards_intact) << at << " " << change;
            EXPECT_LE(read.result, text.size()) << at << " " << change;
            EXPECT_TRUE(at >= 4 || read.result == 0) << at << " " << change;
            EXPECT_TRUE(at != 8 || read.bytes == text) << change;
          }
        }
      }
      EXPECT_EQ(log.lines(), std::vector<std::string>(4 * 255, std::string(mismatch)));
    });
    EXPECT_EQ(child.err.size(), 4 * 255 * mismatch.size());
  }
}

// Deliberate: the bytes produced are the answer, and the caller compares.
TEST(BlocksRead, GivesWhatAShortStreamProduces) {
  const std::string ten = block(100, compressed("ten bytes!"));
  std::string without_sum = compressed("ten bytes!");
  without_sum.resize(without_sum.size() - 4);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const Read read = read_from(reader, ten, 100);
    EXPECT_EQ(read.bytes, "ten bytes!");
    EXPECT_TRUE(read.guards_intact);
    expect_read(reader, block(10, without_sum), "ten bytes!");
  }
}

TEST(BlocksRead, StopsAtTheRoomOfALongerStream) {
  const std::string random = noise(100'000);
  const std::string ordinary = words(100'000);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    for (const auto &text : {random, ordinary}) {
      for (const std::size_t size : {1U, 5U, 16384U, 50'000U, 99'999U}) {
        const std::string bytes = block(size, compressed(text));
        expect_read(reader, bytes, text.substr(0, size));
        const Input input(bytes + "next");
        read_from(reader, input.get(), size);
        EXPECT_EQ(input.position(), static_cast<off_t>(bytes.size()));
      }
      expect_nothing(reader, block(0, compressed(text)), 0);
    }
  }
}

TEST(BlocksRead, PassesOverWhatFollowsTheStreamInsideTheCompressedSize) {
  const std::string text = words(1000);
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    for (const std::size_t garbage : {1U, 16384U, 40'000U}) {
      const std::string bytes = block(1000, compressed(text) + std::string(garbage, 'g'));
      expect_read(reader, bytes, text);
      const Input input(bytes + "next");
      EXPECT_EQ(read_from(reader, input.get(), 1000).bytes, text);
      EXPECT_EQ(std::fgetc(input.get()), 'n');
    }
  }
}

// An empty room may have no address; what is in the block is passed over all the same.
TEST(BlocksRead, PassesOverTheWholeOfAnEmptyBlockWithoutARoom) {
  const std::string bytes = block(0, compressed("") + std::string(40'000, 'g'));
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const Input input(bytes + "next");
    EXPECT_EQ(reader.read(nullptr, 0, 7, input.get()), 0U);
    EXPECT_EQ(input.position(), static_cast<off_t>(bytes.size()));
  }
}

TEST(BlocksRead, GivesNothingForAnEmptyStreamOfBytes) {
  const ScratchDir scratch;
  const auto path = scratch.file("empty");
  for (const auto &reader : readers) {
    SCOPED_TRACE(reader.name);
    const LogCapture log;
    const File stream(std::fopen(path.c_str(), "rbe"));
    EXPECT_EQ(read_from(reader, stream.get(), 4).result, 0U);
    EXPECT_EQ(log.text(), "");
  }
}

}  // namespace

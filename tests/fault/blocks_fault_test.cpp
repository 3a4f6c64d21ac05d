// Compressed blocks when zlib or a stream fails, and the arguments that zlib gets. Each replaced
// call passes through unless a test says otherwise.
#define ZLIB_CONST  // as the library has it
#include <gtest/gtest.h>
#include <qal/blocks.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <kalmora/blocks.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "internal/handles.hpp"
#include "support/fault.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"
#include "support/stream_model.hpp"
#include "support/zlib_blocks.hpp"

namespace {

using qal::test::block;
using qal::test::compressed;
using qal::test::Deliveries;
using qal::test::fail_nth;
using qal::test::Fault;
using qal::test::FlakySource;
using qal::test::four_gib;
using qal::test::header;
using qal::test::LogCapture;
using qal::test::noise;
using qal::test::Read;
using qal::test::read_file;
using qal::test::ScratchDir;
using qal::test::Write;

struct Start {
  int level = 0;
  std::string version;
};

struct Step {
  const void *in = nullptr;
  std::size_t in_size = 0;
  const void *out = nullptr;
  std::size_t out_size = 0;
  int flush = 0;
};

// What the calls were given, and what they return.
struct Zlib {
  std::optional<int> start_answer;
  std::optional<int> inflate_answer;
  std::optional<std::uint64_t> deflate_total;  // pretends to have produced so much
  std::vector<Start> starts;
  std::vector<Step> steps;
  int ends = 0;
};

Zlib zlib;
Fault tell;
Fault seek;

void note(const z_stream *stream, int flush) {
  zlib.steps.push_back(
      {stream->next_in, stream->avail_in, stream->next_out, stream->avail_out, flush});
}

}  // namespace

extern "C" {
int __real_deflateInit_(z_stream *stream, int level, const char *version, int size);
int __real_inflateInit_(z_stream *stream, const char *version, int size);
int __real_deflate(z_stream *stream, int flush);
int __real_inflate(z_stream *stream, int flush);
int __real_deflateEnd(z_stream *stream);
int __real_inflateEnd(z_stream *stream);
off_t __real_ftello(FILE *stream);
int __real_fseeko(FILE *stream, off_t offset, int origin);

int __wrap_deflateInit_(z_stream *stream, int level, const char *version, int size) {
  zlib.starts.push_back({level, version});
  return zlib.start_answer ? *zlib.start_answer : __real_deflateInit_(stream, level, version, size);
}

int __wrap_inflateInit_(z_stream *stream, const char *version, int size) {
  zlib.starts.push_back({0, version});
  return zlib.start_answer ? *zlib.start_answer : __real_inflateInit_(stream, version, size);
}

int __wrap_deflate(z_stream *stream, int flush) {
  if (!zlib.deflate_total) {
    note(stream, flush);
    return __real_deflate(stream, flush);
  }
  const std::uint64_t now = std::min<std::uint64_t>(*zlib.deflate_total, stream->avail_out);
  std::memset(stream->next_out, 0, now);
  stream->avail_out -= static_cast<uInt>(now);
  *zlib.deflate_total -= now;
  return Z_OK;
}

int __wrap_inflate(z_stream *stream, int flush) {
  note(stream, flush);
  const int answer = __real_inflate(stream, flush);
  return zlib.inflate_answer.value_or(answer);
}

int __wrap_deflateEnd(z_stream *stream) {
  ++zlib.ends;
  return __real_deflateEnd(stream);
}

int __wrap_inflateEnd(z_stream *stream) {
  ++zlib.ends;
  return __real_inflateEnd(stream);
}

off_t __wrap_ftello(FILE *stream) { return tell.strikes() ? -1 : __real_ftello(stream); }

int __wrap_fseeko(FILE *stream, off_t offset, int origin) {
  return seek.strikes() ? -1 : __real_fseeko(stream, offset, origin);
}
}

namespace {

using qal::internal::File;

constexpr Write writers[]{qal_fwrite_zlib, fwrite_zlib};
constexpr Read readers[]{qal_fread_zlib, fread_zlib};
constexpr std::string_view text = "a text, and a text";

void start_over() {
  zlib = {};
  tell = seek = {};
}

// What a writer that returns `expected` leaves in a file.
std::string written(Write write, std::size_t expected) {
  const ScratchDir scratch;
  File out(std::fopen((scratch / "block").c_str(), "wbe"));
  EXPECT_EQ(write(text.data(), 1, text.size(), out.get()), expected);
  out.reset();
  return read_file(scratch / "block");
}

std::size_t read_result(Read read, std::string content, std::string &room) {
  const File stream(fmemopen(content.data(), content.size(), "rb"));
  return read(room.data(), 1, room.size(), stream.get());
}

std::size_t read_result(Read read, const std::string &content, std::size_t size = text.size()) {
  std::string room(size, '\0');
  return read_result(read, content, room);
}

// A seekable stream that keeps only what is written to its first nine bytes.
class Sink {
 public:
  Sink() {
    cookie_io_functions_t calls{};
    calls.write = [](void *self, const char *bytes, std::size_t size) {
      return static_cast<Sink *>(self)->write(bytes, size);
    };
    calls.seek = [](void *self, off64_t *offset, int origin) {
      return static_cast<Sink *>(self)->seek(*offset, origin);
    };
    file_.reset(fopencookie(this, "wb", calls));
  }
  std::FILE *get() const { return file_.get(); }
  const std::string &beginning() const { return beginning_; }

 private:
  ssize_t write(const char *bytes, std::size_t size) {
    for (std::size_t i = 0; i < size && position_ + i < beginning_.size(); ++i)
      beginning_[position_ + i] = bytes[i];
    position_ += size;
    return static_cast<ssize_t>(size);
  }
  int seek(off64_t &offset, int origin) {
    if (origin == SEEK_CUR) offset += static_cast<off64_t>(position_);
    position_ = static_cast<std::size_t>(offset);
    return 0;
  }

  std::string beginning_ = std::string(9, '?');
  std::size_t position_ = 0;
  File file_;
};

TEST(BlocksWriteFault, AnswersZeroAndLeavesAHeaderWhenTheCompressorDoesNotStart) {
  for (const auto write : writers) {
    for (const int answer : {Z_MEM_ERROR, Z_VERSION_ERROR, Z_STREAM_ERROR}) {
      start_over();
      zlib.start_answer = answer;
      EXPECT_EQ(written(write, 0), header(text.size(), 0));
      EXPECT_EQ(zlib.ends, 0);
    }
  }
}

TEST(BlocksWriteFault, StartsZlibWithItsLevelAndVersion) {
  start_over();
  written(qal_fwrite_zlib, text.size());
  int level = 3;
  zlib_compression_method(&level, 1);
  written(fwrite_zlib, text.size());
  written(qal_fwrite_zlib, text.size());
  ASSERT_EQ(zlib.starts.size(), 3U);
  EXPECT_EQ(zlib.starts[0].level, -1);
  EXPECT_EQ(zlib.starts[1].level, 3);
  EXPECT_EQ(zlib.starts[2].level, -1);
  for (const auto &start : zlib.starts) EXPECT_EQ(start.version, "1.2.11");
  EXPECT_EQ(zlib.ends, 3);
  level = -1;
  zlib_compression_method(&level, 1);
}

TEST(BlocksWriteFault, HandsTheWholeInputOverAndTakesChunks) {
  const std::string bytes = noise(40'000);
  for (const auto write : writers) {
    start_over();
    const Sink sink;
    EXPECT_EQ(write(bytes.data(), 1, bytes.size(), sink.get()), bytes.size());
    ASSERT_EQ(zlib.steps.size(), 3U);
    EXPECT_EQ(zlib.steps[0].in, bytes.data());
    EXPECT_EQ(zlib.steps[0].in_size, bytes.size());
    for (const auto &step : zlib.steps) {
      EXPECT_EQ(step.out, zlib.steps[0].out);
      EXPECT_EQ(step.out_size, 16384U);
      EXPECT_EQ(step.flush, Z_FINISH);
    }
    EXPECT_EQ(zlib.ends, 1);
  }
}

TEST(BlocksWriteFault, KeepsTheFirstHeaderWhenThePositionCannotBeAsked) {
  for (const auto write : writers) {
    for (const int failing : {1, 2}) {
      start_over();
      tell = fail_nth(failing, ESPIPE);
      EXPECT_EQ(written(write, text.size()), header(text.size(), 0) + compressed(text));
      EXPECT_EQ(seek.calls, 0);
    }
  }
}

TEST(BlocksWriteFault, KeepsTheFirstHeaderWhenItCannotGoBack) {
  for (const auto write : writers) {
    start_over();
    seek = fail_nth(1, ESPIPE);
    EXPECT_EQ(written(write, text.size()), header(text.size(), 0) + compressed(text));
    EXPECT_EQ(seek.calls, 1);
  }
}

TEST(BlocksWriteFault, AnswersTheSizeWhenItCannotReturnToTheEnd) {
  for (const auto write : writers) {
    start_over();
    seek = fail_nth(2, ESPIPE);
    EXPECT_EQ(written(write, text.size()), block(text));
    EXPECT_EQ(seek.calls, 2);
  }
}

// The compressor is replaced and reads no input, so the text need not be that long.
TEST(BlocksWriteFault, NamesAnUncompressedSizeJustBelowFourGiB) {
  for (const auto write : writers) {
    start_over();
    zlib.deflate_total = 100;
    const Sink sink;
    EXPECT_EQ(write(text.data(), four_gib - 1, 1, sink.get()), four_gib - 1);
    std::fflush(sink.get());
    EXPECT_EQ(sink.beginning(), header(four_gib - 1, 100));
  }
}

TEST(BlocksWriteFault, NamesACompressedSizeJustBelowFourGiB) {
  for (const auto write : writers) {
    start_over();
    zlib.deflate_total = four_gib - 1;
    const Sink sink;
    EXPECT_EQ(write(text.data(), 1, text.size(), sink.get()), text.size());
    EXPECT_EQ(ftello(sink.get()), static_cast<off_t>(9 + four_gib - 1));
    std::fflush(sink.get());
    EXPECT_EQ(sink.beginning(), header(text.size(), four_gib - 1));
    EXPECT_EQ(zlib.ends, 1);
  }
}

TEST(BlocksWriteFault, AnswersZeroWhenTheCompressedSizeReachesFourGiB) {
  for (const auto write : writers) {
    start_over();
    zlib.deflate_total = four_gib;
    const Sink sink;
    EXPECT_EQ(write(text.data(), 1, text.size(), sink.get()), 0U);
    std::fflush(sink.get());
    EXPECT_EQ(sink.beginning(), header(text.size(), 0));
    EXPECT_EQ(zlib.ends, 1);
  }
}

TEST(BlocksReadFault, AnswersZeroBehindTheFlagByteWhenTheDecompressorDoesNotStart) {
  for (const auto read : readers) {
    for (const int answer : {Z_MEM_ERROR, Z_VERSION_ERROR, Z_STREAM_ERROR}) {
      start_over();
      zlib_io_stats(nullptr, nullptr, 1);
      zlib_io_in_bytes = zlib_io_out_bytes = 0;
      zlib.start_answer = answer;
      const LogCapture log;
      std::string content = block(text);
      const File stream(fmemopen(content.data(), content.size(), "rb"));
      std::string room(text.size(), 'r');
      EXPECT_EQ(read(room.data(), 1, room.size(), stream.get()), 0U);
      EXPECT_EQ(__real_ftello(stream.get()), 9);
      EXPECT_EQ(room, std::string(text.size(), 'r'));
      EXPECT_EQ(log.text(), "");
      EXPECT_EQ(zlib.ends, 0);
      std::uint64_t in = 0;
      zlib_io_stats(&in, nullptr, 0);
      EXPECT_EQ(in + zlib_io_in_bytes, text.size());
    }
  }
}

TEST(BlocksReadFault, StartsZlibWithItsVersionAndEndsItOnEveryWay) {
  std::string corrupt = block(text);
  corrupt[9] = '\0';
  for (const auto read : readers) {
    for (const auto &content : {block(text), corrupt, block(text).substr(0, 12),
                                block(text).substr(0, 9), header(text.size(), 0)}) {
      start_over();
      read_result(read, content);
      ASSERT_EQ(zlib.starts.size(), 1U);
      EXPECT_EQ(zlib.starts[0].version, "1.2.11");
      EXPECT_EQ(zlib.ends, 1);
    }
  }
}

TEST(BlocksReadFault, HandsTheWholeRoomOverAndFinishesWithTheLastChunk) {
  const std::string bytes = noise(40'000);
  const std::string content = block(bytes);
  const std::size_t rest = content.size() - 9 - 2 * 16384;
  for (const auto read : readers) {
    start_over();
    std::string room(bytes.size(), '\0');
    EXPECT_EQ(read_result(read, content, room), bytes.size());
    EXPECT_TRUE(room == bytes);
    ASSERT_EQ(zlib.steps.size(), 3U);
    EXPECT_EQ(zlib.steps[0].out, room.data());
    EXPECT_EQ(zlib.steps[0].out_size, room.size());
    EXPECT_EQ(zlib.steps[0].in_size, 16384U);
    EXPECT_EQ(zlib.steps[0].flush, Z_NO_FLUSH);
    EXPECT_EQ(zlib.steps[1].in_size, 16384U);
    EXPECT_EQ(zlib.steps[1].flush, Z_NO_FLUSH);
    EXPECT_EQ(zlib.steps[2].in_size, rest);
    EXPECT_EQ(zlib.steps[2].flush, Z_FINISH);
  }
}

TEST(BlocksReadFault, DoesNotFinishWhenTheLastChunkIsFull) {
  const std::string bytes = noise(16384 - 11);
  const std::string content = block(bytes);
  ASSERT_EQ(content.size(), 9U + 16384U);
  for (const auto read : readers) {
    start_over();
    EXPECT_EQ(read_result(read, content, bytes.size()), bytes.size());
    ASSERT_EQ(zlib.steps.size(), 1U);
    EXPECT_EQ(zlib.steps[0].flush, Z_NO_FLUSH);
  }
}

TEST(BlocksReadFault, CallsZlibOncePerChunkWhateverTheStreamHolds) {
  const std::string rest = std::string(100'000, 'g');
  for (const auto &stream : {compressed(text) + rest, compressed(noise(50'000)) + rest}) {
    const std::string content = header(text.size(), stream.size()) + stream;
    for (const auto read : readers) {
      start_over();
      EXPECT_EQ(read_result(read, content), text.size());
      EXPECT_LE(zlib.steps.size(), stream.size() / 16384 + 1);
    }
  }
}

TEST(BlocksReadFault, AnswersZeroForEveryErrorOfZlib) {
  const std::string content = block(text);
  for (const auto read : readers) {
    for (const int answer :
         {Z_DATA_ERROR, Z_MEM_ERROR, Z_NEED_DICT, Z_STREAM_ERROR, Z_VERSION_ERROR, Z_ERRNO}) {
      start_over();
      zlib.inflate_answer = answer;
      EXPECT_EQ(read_result(read, content), 0U) << answer;
      EXPECT_EQ(zlib.ends, 1);
    }
    for (const int answer : {Z_OK, Z_STREAM_END, Z_BUF_ERROR}) {
      start_over();
      zlib.inflate_answer = answer;
      EXPECT_EQ(read_result(read, content), text.size()) << answer;
    }
  }
}

TEST(BlocksReadFault, AnswersZeroWhenTheStreamFails) {
  const std::string bytes = noise(40'000);
  const std::string content = block(bytes);
  for (const auto read : readers) {
    for (const std::size_t failing_at : {0U, 5U, 8U, 9U, 100U, 9U + 16384U, 30'000U}) {
      start_over();
      Deliveries deliveries{{content.substr(0, failing_at)}, {"", EIO}};
      if (failing_at == 0) deliveries.erase(deliveries.begin());
      FlakySource source(deliveries, true);
      const File stream(source.open());
      std::string room(bytes.size(), '\0');
      EXPECT_EQ(read(room.data(), 1, room.size(), stream.get()), 0U) << failing_at;
    }
  }
}

}  // namespace

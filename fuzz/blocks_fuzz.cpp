// Compressed blocks of any bytes through each pair of writer and reader, and mutated blocks. An
// input is a byte that chooses the scenario, one for the pair, one for the level, the edits of the
// block and the content.
#define ZLIB_CONST  // has zlib take its input as const
#include <qal/blocks.h>
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <kalmora/blocks.hpp>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "input.hpp"
#include "internal/handles.hpp"
#include "require.hpp"
#include "room.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::require;
using qal::fuzz::Room;
using qal::internal::File;
using qal::test::LogCapture;

using Write = std::size_t (*)(const void *data, std::size_t size, std::size_t count, FILE *stream);
using Read = std::size_t (*)(void *data, std::size_t size, std::size_t count, FILE *stream);
constexpr Write writers[] = {qal_fwrite_zlib, fwrite_zlib};
constexpr Read readers[] = {qal_fread_zlib, fread_zlib};

constexpr std::size_t header_size = 9;
constexpr std::size_t chunk_size = 16384;
constexpr std::size_t largest_content = 0xFFFF;
constexpr std::string_view mismatch = "Uncompressed data size mismatch\n";

unsigned inflate_calls = 0;

// Collects what a stream is given.
class Sink {
 public:
  Sink() : stream_(open_memstream(&bytes_, &size_)) { require(stream_ != nullptr, "a stream"); }
  ~Sink() {
    stream_.reset();
    std::free(bytes_);
  }
  Sink(const Sink &) = delete;
  Sink &operator=(const Sink &) = delete;

  FILE *stream() const { return stream_.get(); }
  std::string bytes() {
    std::fflush(stream());
    return {bytes_, size_};
  }

 private:
  char *bytes_ = nullptr;
  std::size_t size_ = 0;
  File stream_;
};

// Standard error while this lives.
class ErrorCapture {
 public:
  ErrorCapture() : before_(std::exchange(stderr, sink_.stream())) {}
  ~ErrorCapture() { stderr = before_; }
  ErrorCapture(const ErrorCapture &) = delete;
  ErrorCapture &operator=(const ErrorCapture &) = delete;

  std::string text() { return sink_.bytes(); }

 private:
  Sink sink_;
  FILE *before_;
};

std::size_t number_at(const std::string &bytes, std::size_t position) {
  std::size_t number = 0;
  for (std::size_t i = 4; i-- > 0;)
    number = number << 8 | static_cast<unsigned char>(bytes[position + i]);
  return number;
}

// The rest of the input as it is, or repeated, or noise; of every order of size, up to several
// chunks.
std::string content_in(Input &input) {
  const unsigned kind = input.byte();
  const std::size_t size = input.number() >> kind / 4 % 16;
  const std::string piece = input.rest();
  std::string content;
  if (kind % 4 == 0 || piece.empty()) return piece;
  while (content.size() < size) content += piece;
  content.resize(size);
  std::minstd_rand noise(kind);
  if (kind % 4 == 1) std::generate(content.begin(), content.end(), noise);
  return content;
}

void set_level(Input &input) {
  int level = input.byte() % 11 - 1;
  zlib_compression_method(&level, 1);
}

std::string written(Write write, const std::string &content) {
  Sink sink;
  const Room room = Room::holding(content);
  require(write(room.data(), 1, content.size(), sink.stream()) == content.size(),
          "writing answers the size");
  const std::string block = sink.bytes();
  require(block.size() > header_size, "a block has a header and a stream");
  require(number_at(block, 0) == content.size(), "the header holds the size");
  require(number_at(block, 4) == block.size() - header_size, "and that of the zlib stream");
  require(block[8] == '\0', "and a zero");
  return block;
}

struct Answer {
  std::size_t produced;
  std::string bytes;
  std::string message;
  off_t position;
};

Answer answer(Read read, const std::string &block, std::size_t size) {
  const Room stored = Room::holding(block);
  const File stream(fmemopen(stored.data(), stored.size(), "rb"));
  require(stream != nullptr, "a stream over the block");
  const Room room(size);
  const LogCapture log;
  ErrorCapture error;
  inflate_calls = 0;
  const std::size_t produced = read(room.data(), 1, size, stream.get());
  require(produced <= size, "no more is produced than there is room for");
  return {produced, room.all(), log.text() + error.text(), ftello(stream.get())};
}

struct Counters {
  std::uint64_t in = 0;
  std::uint64_t out = 0;
  bool operator==(const Counters &) const = default;
};

// Those of both pairs together.
Counters counted() {
  Counters counters;
  zlib_io_stats(&counters.in, &counters.out, 0);
  return {counters.in + zlib_io_in_bytes, counters.out + zlib_io_out_bytes};
}

void round_trip(Input &input) {
  const unsigned pair = input.byte();
  set_level(input);
  const std::string content = content_in(input);
  Counters counters = counted();
  const std::string block = written(writers[pair & 1], content);
  require(counted() == counters, "writing counts nothing");
  const Answer read = answer(readers[pair >> 1 & 1], block, content.size());
  require(read.produced == content.size() && read.bytes == content, "what was written is read");
  require(read.message.empty(), "in silence");
  require(read.position == static_cast<off_t>(block.size()), "up to the end of the block");
  counters.in += content.size();
  counters.out += block.size() - header_size;
  require(counted() == counters, "reading counts both sizes");
}

// What zlib itself makes of a stream that the reader takes in one call.
std::string inflated(std::string_view compressed, std::size_t size) {
  std::string room(std::max<std::size_t>(size, 1), '\0');
  z_stream zlib{};
  zlib.next_in = reinterpret_cast<const Bytef *>(compressed.data());
  zlib.avail_in = static_cast<uInt>(compressed.size());
  zlib.next_out = reinterpret_cast<Bytef *>(room.data());
  zlib.avail_out = static_cast<uInt>(size);
  require(inflateInit(&zlib) == Z_OK, "zlib starts");
  const int result = inflate(&zlib, Z_FINISH);
  inflateEnd(&zlib);
  const bool usable = result == Z_OK || result == Z_STREAM_END || result == Z_BUF_ERROR;
  return room.substr(0, usable ? size - zlib.avail_out : 0);
}

// Reads a block that may hold anything.
void check(Read read, const std::string &block, std::size_t size) {
  const Answer got = answer(read, block, size);
  const std::size_t calls = inflate_calls;
  if (block.size() < 8) {
    require(got.produced == 0 && got.message.empty(), "half a header is nothing");
    return;
  }
  if (number_at(block, 0) != size) {
    require(got.produced == 0 && got.position == 8, "a block of another size is left");
    require(got.message == mismatch, "and reported");
    return;
  }
  require(got.message.empty(), "all else is silent");
  const std::size_t compressed = number_at(block, 4);
  require(calls <= compressed / chunk_size + 2, "few calls of zlib");
  const bool whole = block.size() >= header_size && block.size() - header_size >= compressed;
  if (!whole || compressed == 0) require(got.produced == 0, "no whole stream, no bytes");
  if (!whole || compressed >= chunk_size) return;
  const std::string expected =
      inflated(std::string_view{block}.substr(header_size, compressed), size);
  require(got.bytes.substr(0, got.produced) == expected, "the bytes that zlib produces");
}

std::size_t size_to_ask_for(const std::string &block, std::size_t other) {
  const std::size_t stated = block.size() < 4 ? other : number_at(block, 0);
  return stated <= largest_content ? stated : other;
}

// A byte to put at a place, which counts from the end when it is above the middle.
struct Edit {
  unsigned place;
  char value;
};

std::vector<Edit> edits_in(Input &input) {
  std::vector<Edit> edits(input.byte() % 16);
  for (Edit &edit : edits) {
    edit.place = input.number();
    edit.value = static_cast<char>(input.byte());
  }
  return edits;
}

void apply(const Edit &edit, std::string &block) {
  const bool from_end = edit.place >= 0x8000;
  const std::size_t at = from_end ? block.size() - (0x10000 - edit.place) : edit.place;
  if (at < block.size()) block[at] = edit.value;
}

void mutated(Input &input) {
  const unsigned pair = input.byte();
  set_level(input);
  const unsigned cut = input.number();
  const std::vector<Edit> edits = edits_in(input);
  const std::string content = content_in(input);
  std::string block = written(writers[pair & 1], content);
  for (const Edit &edit : edits) apply(edit, block);
  block.resize(block.size() - std::min<std::size_t>(cut, block.size() - 1));
  const std::size_t asked_for =
      (pair & 4) != 0 ? size_to_ask_for(block, content.size()) : content.size();
  check(readers[pair >> 1 & 1], block, asked_for);
}

void by_hand(Input &input) {
  const unsigned pair = input.byte();
  const std::size_t size = input.number();
  const std::string block = input.rest();
  if (block.empty()) return;
  check(readers[pair & 1], block, (pair & 2) != 0 ? size_to_ask_for(block, size) : size);
}

constexpr void (*scenarios[])(Input &) = {round_trip, mutated, by_hand};

}  // namespace

extern "C" {
int __real_inflate(z_streamp zlib, int flush);
int __wrap_inflate(z_streamp zlib, int flush) {
  ++inflate_calls;
  return __real_inflate(zlib, flush);
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  scenarios[input.byte() % std::size(scenarios)](input);
  return 0;
}

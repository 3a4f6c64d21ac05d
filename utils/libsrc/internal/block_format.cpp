// The compressed block format: two sizes, a byte without a meaning and a zlib stream.
#include "internal/block_format.hpp"

#define ZLIB_CONST  // has zlib take its input as const
#include <sys/types.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "internal/retry.hpp"

namespace qal::internal {
namespace {

constexpr std::size_t block_chunk_size = 16384;
constexpr std::size_t header_size = 8;  // the two sizes, each with its low byte first
constexpr const char *zlib_version_text = "1.2.11";

// The bytes of a block, if a header can hold that number.
std::optional<std::uint32_t> block_size(std::size_t size, std::size_t count) {
  std::size_t total = 0;
  if (__builtin_mul_overflow(size, count, &total)) return std::nullopt;
  if (total > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  return static_cast<std::uint32_t>(total);
}

struct BlockHeader {
  std::uint32_t uncompressed = 0;
  std::uint32_t compressed = 0;

  bool read(std::FILE *stream) {
    std::array<unsigned char, header_size> bytes;
    if (read_uninterrupted(bytes.data(), bytes.size(), stream) != bytes.size()) return false;
    uncompressed = number_at(&bytes[0]);
    compressed = number_at(&bytes[4]);
    return true;
  }

  void write(std::FILE *stream) const {
    std::array<unsigned char, header_size> bytes;
    put_number(uncompressed, &bytes[0]);
    put_number(compressed, &bytes[4]);
    std::fwrite(bytes.data(), 1, bytes.size(), stream);
  }

 private:
  static std::uint32_t number_at(const unsigned char *bytes) {
    std::uint32_t number = 0;
    for (int i = 3; i >= 0; --i) number = number << 8 | bytes[i];
    return number;
  }
  static void put_number(std::uint32_t number, unsigned char *bytes) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<unsigned char>(number >> 8 * i);
  }
};

class Deflater {
 public:
  explicit Deflater(int level)
      : started_(deflateInit_(&zlib_, level, zlib_version_text, sizeof zlib_) == Z_OK) {}
  ~Deflater() {
    if (started_) deflateEnd(&zlib_);
  }
  Deflater(const Deflater &) = delete;
  Deflater &operator=(const Deflater &) = delete;

  bool started() const { return started_; }

  // Compresses everything into the stream and returns the compressed size.
  std::uint64_t run(const void *data, std::uint32_t size, std::FILE *stream) {
    std::array<unsigned char, block_chunk_size> chunk;
    std::uint64_t total = 0;
    zlib_.next_in = static_cast<const Bytef *>(data);
    zlib_.avail_in = size;
    std::size_t produced = 0;
    do {
      zlib_.next_out = chunk.data();
      zlib_.avail_out = chunk.size();
      deflate(&zlib_, Z_FINISH);
      produced = chunk.size() - zlib_.avail_out;
      if (produced > 0) std::fwrite(chunk.data(), 1, produced, stream);
      total += produced;
    } while (produced == chunk.size());
    return total;
  }

 private:
  z_stream zlib_{};
  bool started_;
};

class Inflater {
 public:
  Inflater() : started_(inflateInit_(&zlib_, zlib_version_text, sizeof zlib_) == Z_OK) {}
  ~Inflater() {
    if (started_) inflateEnd(&zlib_);
  }
  Inflater(const Inflater &) = delete;
  Inflater &operator=(const Inflater &) = delete;

  bool started() const { return started_; }

  // Decompresses `compressed` bytes of the stream into the room. Returns the bytes produced, or 0
  // when the data is corrupt or ends early.
  std::size_t run(std::FILE *stream, std::uint32_t compressed, void *room, std::uint32_t size) {
    zlib_.next_out = size > 0 ? static_cast<Bytef *>(room) : &nowhere_;
    zlib_.avail_out = size;
    for (std::size_t left = compressed; left > 0;) {
      const std::size_t wanted = std::min(block_chunk_size, left);
      if (!take_chunk(stream, wanted)) return 0;
      left -= wanted;
    }
    return size - zlib_.avail_out;
  }

 private:
  bool take_chunk(std::FILE *stream, std::size_t wanted) {
    if (read_uninterrupted(chunk_.data(), wanted, stream) != wanted) return false;
    zlib_.next_in = chunk_.data();
    zlib_.avail_in = static_cast<uInt>(wanted);
    const int result = inflate(&zlib_, wanted == block_chunk_size ? Z_NO_FLUSH : Z_FINISH);
    // A full room or a stream that has ended is no error: the result says what was produced.
    return result == Z_OK || result == Z_STREAM_END || result == Z_BUF_ERROR;
  }

  std::array<unsigned char, block_chunk_size> chunk_;
  Bytef nowhere_ = 0;  // zlib takes no null address, even for an empty room
  z_stream zlib_{};
  bool started_;
};

// Called when the compressed size is known. A stream that cannot seek keeps the header it has.
void rewrite_header(std::FILE *stream, off_t start, const BlockHeader &header) {
  const off_t end = ftello(stream);
  if (start < 0 || end < 0 || fseeko(stream, start, SEEK_SET) != 0) return;
  header.write(stream);
  fseeko(stream, end, SEEK_SET);
}

// Counters are plain variables that other threads may use at the same time.
void add_atomically(std::uint64_t &counter, std::uint64_t amount) {
  __atomic_fetch_add(&counter, amount, __ATOMIC_RELAXED);
}

}  // namespace

// Deliberate: writing counts nothing, only reading does.
std::size_t write_block(const void *data, std::size_t size, std::size_t count, std::FILE *stream,
                        int level) {
  const auto total = block_size(size, count);
  if (!total || !stream || (!data && *total > 0)) return 0;
  const off_t start = ftello(stream);
  BlockHeader header{*total};
  header.write(stream);
  std::fputc(0, stream);
  Deflater deflater(level);
  if (!deflater.started()) return 0;
  const std::uint64_t compressed = deflater.run(data, *total, stream);
  if (compressed > std::numeric_limits<std::uint32_t>::max()) return 0;
  header.compressed = static_cast<std::uint32_t>(compressed);
  rewrite_header(stream, start, header);
  return *total;
}

std::size_t read_block(void *data, std::size_t size, std::size_t count, std::FILE *stream,
                       BlockCounters counters, void (*report)(const char *message)) {
  BlockHeader header;
  if (!stream || !header.read(stream)) return 0;
  if (block_size(size, count) != header.uncompressed) {
    report("Uncompressed data size mismatch\n");
    return 0;
  }
  unsigned char flag;  // has no meaning
  read_uninterrupted(&flag, 1, stream);
  add_atomically(counters.uncompressed, header.uncompressed);
  add_atomically(counters.compressed, header.compressed);
  if (!data && header.uncompressed > 0) return 0;
  Inflater inflater;
  return inflater.started() ? inflater.run(stream, header.compressed, data, header.uncompressed)
                            : 0;
}

}  // namespace qal::internal

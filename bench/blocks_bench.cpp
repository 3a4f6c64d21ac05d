// Compressed blocks beside plain zlib, which writes the same data in a stream of its own.
#include <qal/blocks.h>
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "rows.hpp"
#include "scratch.hpp"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t data_size = std::size_t{64} << 20U;
constexpr std::size_t buffer_size = std::size_t{16} << 10U;

// Records of a scene, say: some bytes hardly ever change, others always do.
const Bytes &data() {
  static const Bytes bytes = [] {
    Bytes made(data_size);
    std::uint32_t noise = 1;
    for (std::size_t i = 0; i < made.size(); ++i) {
      noise = noise * 1664525U + 1013904223U;
      made[i] = static_cast<unsigned char>(i % 4 == 0 ? noise >> 28U : i >> 12U);
    }
    return made;
  }();
  return bytes;
}

class Stream {
 public:
  explicit Stream(const char *name) : file_(std::fopen((scratch() / name).c_str(), "w+be")) {}
  ~Stream() { std::fclose(file_); }
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;

  std::FILE *rewound() const {
    std::rewind(file_);
    return file_;
  }

 private:
  static const qal::bench::Scratch &scratch() {
    static const qal::bench::Scratch directory;
    return directory;
  }

  std::FILE *file_;
};

void deflate_into(std::FILE *to) {
  z_stream zlib{};
  deflateInit(&zlib, Z_DEFAULT_COMPRESSION);
  zlib.next_in = const_cast<Bytef *>(data().data());
  zlib.avail_in = data_size;
  Bytes buffer(buffer_size);
  int result = Z_OK;
  while (result != Z_STREAM_END) {
    zlib.next_out = buffer.data();
    zlib.avail_out = buffer_size;
    result = deflate(&zlib, Z_FINISH);
    std::fwrite(buffer.data(), 1, buffer_size - zlib.avail_out, to);
  }
  deflateEnd(&zlib);
}

void inflate_from(std::FILE *from, Bytes &room) {
  z_stream zlib{};
  inflateInit(&zlib);
  zlib.next_out = room.data();
  zlib.avail_out = data_size;
  Bytes buffer(buffer_size);
  int result = Z_OK;
  while (result == Z_OK) {
    zlib.next_in = buffer.data();
    zlib.avail_in = static_cast<uInt>(std::fread(buffer.data(), 1, buffer_size, from));
    result = inflate(&zlib, Z_NO_FLUSH);
  }
  inflateEnd(&zlib);
}

void write_block(benchmark::State &state) {
  const Stream stream("block");
  for (auto _ : state) qal_fwrite_zlib(data().data(), 1, data_size, stream.rewound());
}

void write_by_zlib(benchmark::State &state) {
  const Stream stream("zlib");
  for (auto _ : state) deflate_into(stream.rewound());
}

void read_block(benchmark::State &state) {
  static const Stream stream("block");
  static Bytes room(data_size);
  static const bool written =
      qal_fwrite_zlib(data().data(), 1, data_size, stream.rewound()) == data_size;
  for (auto _ : state) qal_fread_zlib(room.data(), 1, data_size, stream.rewound());
  if (!written || room != data()) state.SkipWithError("the block came back changed");
}

void read_by_zlib(benchmark::State &state) {
  static const Stream stream("zlib");
  static Bytes room(data_size);
  static const bool written = (deflate_into(stream.rewound()), true);
  for (auto _ : state) inflate_from(stream.rewound(), room);
  if (!written || room != data()) state.SkipWithError("the data came back changed");
}

// The floors: the same in memory.
void compress_in_memory(benchmark::State &state) {
  static Bytes room(compressBound(data_size));
  for (auto _ : state) {
    uLongf size = room.size();
    compress(room.data(), &size, data().data(), data_size);
  }
}

void uncompress_in_memory(benchmark::State &state) {
  static Bytes room(data_size);
  static Bytes compressed(compressBound(data_size));
  uLongf size = compressed.size();
  compress(compressed.data(), &size, data().data(), data_size);
  for (auto _ : state) {
    uLongf room_size = room.size();
    uncompress(room.data(), &room_size, compressed.data(), size);
  }
}

const bool registered = [] {
  using qal::bench::row;
  row("compressed blocks 64 MiB, write", {{"qal", write_block},
                                          {"zlib", write_by_zlib},
                                          {"floor: zlib in memory", compress_in_memory}});
  row("compressed blocks 64 MiB, read", {{"qal", read_block},
                                         {"zlib", read_by_zlib},
                                         {"floor: zlib in memory", uncompress_in_memory}});
  return true;
}();

}  // namespace

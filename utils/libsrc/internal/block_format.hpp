// The compressed block format, shared by the two pairs of functions that write and read it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace qal::internal {

// Where a pair counts the bytes of the blocks that it reads.
struct BlockCounters {
  std::uint64_t &uncompressed;
  std::uint64_t &compressed;
};

// Returns the size of the data before compression, or 0 on failure. `level` is one of zlib's.
std::size_t write_block(const void *data, std::size_t size, std::size_t count, std::FILE *stream,
                        int level);

// Returns the size of the data after decompression, or 0 on failure. A block of another size
// than `size` times `count` is reported and not counted.
std::size_t read_block(void *data, std::size_t size, std::size_t count, std::FILE *stream,
                       BlockCounters counters, void (*report)(const char *message));

}  // namespace qal::internal

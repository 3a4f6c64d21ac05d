// The library's pair for compressed blocks.
#include <qal/blocks.h>
#include <zlib.h>

#include <cstdio>

#include "internal/block_format.hpp"

uint64_t zlib_io_in_bytes = 0;
uint64_t zlib_io_out_bytes = 0;

size_t qal_fwrite_zlib(const void *data, size_t size, size_t count, FILE *stream) {
  return qal::internal::write_block(data, size, count, stream, Z_DEFAULT_COMPRESSION);
}

size_t qal_fread_zlib(void *data, size_t size, size_t count, FILE *stream) {
  return qal::internal::read_block(data, size, count, stream, {zlib_io_in_bytes, zlib_io_out_bytes},
                                   [](const char *message) { std::fputs(message, stderr); });
}

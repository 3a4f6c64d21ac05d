// The programs' pair for compressed blocks.
#include <qal/logger.h>
#include <zlib.h>
#include <kalmora/blocks.hpp>

#include "internal/block_format.hpp"

namespace {

std::uint64_t in_bytes = 0;
std::uint64_t out_bytes = 0;
int compression_level = Z_DEFAULT_COMPRESSION;

void report(std::uint64_t &counter, std::uint64_t *out, bool reset) {
  const std::uint64_t value = reset ? __atomic_exchange_n(&counter, 0, __ATOMIC_RELAXED)
                                    : __atomic_load_n(&counter, __ATOMIC_RELAXED);
  if (out) *out = value;
}

}  // namespace

std::size_t fwrite_zlib(const void *data, std::size_t size, std::size_t count, std::FILE *stream) {
  const int level = __atomic_load_n(&compression_level, __ATOMIC_RELAXED);
  return qal::internal::write_block(data, size, count, stream, level);
}

std::size_t fread_zlib(void *data, std::size_t size, std::size_t count, std::FILE *stream) {
  return qal::internal::read_block(data, size, count, stream, {in_bytes, out_bytes},
                                   [](const char *message) { qal_info("%s", message); });
}

void zlib_compression_method(int *level, int mode) {
  if (!level) return;
  if (mode == KALMORA_LEVEL_GET) *level = __atomic_load_n(&compression_level, __ATOMIC_RELAXED);
  if (mode == KALMORA_LEVEL_SET) __atomic_store_n(&compression_level, *level, __ATOMIC_RELAXED);
}

void zlib_io_stats(std::uint64_t *in, std::uint64_t *out, int reset) {
  report(in_bytes, in, reset != 0);
  report(out_bytes, out, reset != 0);
}

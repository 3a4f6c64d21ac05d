/** @file
 *  Compressed blocks in a stream: the programs' two functions, with a level that can be set and
 *  counters that can be read. The format, the limits and the results are those of <qal/blocks.h>.
 *  C++ only.
 *
 *  Threads: different streams may be used by different threads at once; the level and the counters
 *  are those of the whole process, and any thread may read and set them.
 *
 *  Source: app/blocks.cpp. */
#ifndef KALMORA_BLOCKS_HPP
#define KALMORA_BLOCKS_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>

/** As qal_fwrite_zlib, at the level of zlib_compression_method. */
std::size_t fwrite_zlib(const void *data, std::size_t size, std::size_t count, std::FILE *stream);

/** As qal_fread_zlib, but a block of another size is reported through qal_info (logger.h). */
std::size_t fread_zlib(void *data, std::size_t size, std::size_t count, std::FILE *stream);

/** Modes of zlib_compression_method. */
enum {
  KALMORA_LEVEL_GET = 0, /**< stores the level in `level` */
  KALMORA_LEVEL_SET = 1  /**< takes the level from `level` */
};

/** Reads or sets the level of fwrite_zlib, which starts as -1, zlib's default. With a level that
 *  zlib does not know, fwrite_zlib returns 0.
 *
 *  @param level null is ignored.
 *  @param mode  one of the modes above; any other does nothing. */
void zlib_compression_method(int *level, int mode);

/** Stores how many bytes the blocks had that fread_zlib has read so far, uncompressed in `in` and
 *  compressed in `out`, each of which may be null. Writing does not count.
 *  @param reset not 0: both counters start again at 0 afterwards. */
void zlib_io_stats(std::uint64_t *in, std::uint64_t *out, int reset);

#endif

/** @file
 *  Compressed blocks in a stream: the programs' pair, with a level that can be set and counters
 *  that can be asked. The format, the limits and the results are those of <qal/blocks.h>. C++ only.
 *
 *  Threads: different streams may be used by different threads at once; the level and the counters
 *  are those of the whole process, and any thread may ask and set them.
 *
 *  Source: app/blocks.cpp. */
#ifndef KALMORA_BLOCKS_HPP
#define KALMORA_BLOCKS_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>

/** As qal_fwrite_zlib, at the level of zlib_compression_method. */
std::size_t fwrite_zlib(const void *data, std::size_t size, std::size_t count, std::FILE *stream);

/** As qal_fread_zlib, but a block of another size is told through qal_info (logger.h). */
std::size_t fread_zlib(void *data, std::size_t size, std::size_t count, std::FILE *stream);

/** Reads or sets the level of fwrite_zlib, which starts as -1, zlib's default.
 *
 *  @param level null is ignored.
 *  @param mode  0 stores the level in `level`, 1 takes it from there, others do nothing. A level
 *               that zlib does not know makes fwrite_zlib answer 0. */
void zlib_compression_method(int *level, int mode);

/** Stores the bytes that fread_zlib has met so far, uncompressed in `in` and compressed in `out`,
 *  each of which may be null. Writing does not count.
 *  @param reset not 0: both counters start again at 0 afterwards. */
void zlib_io_stats(std::uint64_t *in, std::uint64_t *out, int reset);

#endif

/** @file
 *  Compressed blocks in a stream: the programs' two functions, with a level that can be set and
 *  counters that can be read. The format and the limits are those of <qal/blocks.h>. C++ only.
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

/** Writes one block at the stream's position, as qal_fwrite_zlib() does, at the level of
 *  zlib_compression_method().
 *
 *  @param data    the bytes to write, `size` times `count` of them; borrowed. May be null when that
 *                 is 0.
 *  @param size    bytes in an item.
 *  @param count   items; only the product of both numbers counts, which must be below 4 GiB.
 *  @param stream  open for writing, seekable and not in append mode; null fails.
 *  @return the uncompressed size in bytes. On failure 0: with nothing written for a size of 4 GiB
 *          or more and for null arguments; with a header in the stream when zlib does not know the
 *          level or cannot start; with a header and all compressed bytes in the stream when these
 *          reach 4 GiB.
 *  @note   Write errors of the stream are not noticed: check it with ferror() or on closing. */
std::size_t fwrite_zlib(const void *data, std::size_t size, std::size_t count, std::FILE *stream);

/** Reads the block at the stream's position, as qal_fread_zlib() does, but reports a block of
 *  another size through qal_info() (logger.h).
 *
 *  @param data    receives the bytes, `size` times `count` at most; caller-owned. May be null when
 *                 that is 0.
 *  @param size    bytes in an item.
 *  @param count   items; only the product of both numbers counts, which must be the block's size.
 *  @param stream  open for reading; null fails.
 *  @return the bytes produced. They are fewer than asked for when the zlib stream is short, so
 *          compare. 0 when the block has another size, with the stream standing after the block's
 *          first 8 bytes. 0 for corrupt data and for a stream that ends early: `data` then holds
 *          what was produced so far. */
std::size_t fread_zlib(void *data, std::size_t size, std::size_t count, std::FILE *stream);

/** Modes of zlib_compression_method(). */
enum {
  KALMORA_LEVEL_GET = 0, /**< stores the level in `level` */
  KALMORA_LEVEL_SET = 1  /**< takes the level from `level` */
};

/** Reads or sets the level of fwrite_zlib(), which starts as zlib's default, -1. With a level that
 *  zlib does not know, fwrite_zlib() returns 0.
 *
 *  @param level  receives the level or holds the new one, by address; caller-owned. zlib knows 0
 *                (no compression) to 9 (the smallest output) and -1; any number is stored. Null
 *                does nothing.
 *  @param mode   one of the modes above; any other does nothing. */
void zlib_compression_method(int *level, int mode);

/** Stores how many bytes the blocks had that fread_zlib() has read so far. Every block whose size
 *  was the one asked for counts, even a corrupt one; writing does not.
 *
 *  @param in     receives the uncompressed bytes; may be null.
 *  @param out    receives the compressed bytes; may be null.
 *  @param reset  0 leaves the counters; with any other number both start again at 0. */
void zlib_io_stats(std::uint64_t *in, std::uint64_t *out, int reset);

#endif

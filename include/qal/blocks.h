/** @file
 *  Compressed blocks in a stream: the library's pair.
 *
 *  A block is a 9-byte header and a zlib stream. The header holds the uncompressed size and the
 *  size of the zlib stream, each as four bytes, the lowest first, and a zero byte. Blocks may
 *  follow one another. What this pair writes, the pair of <kalmora/blocks.hpp> reads, and the
 *  reverse.
 *
 *  The stream must be seekable and not in append mode: the writer comes back to the header once it
 *  knows the compressed size. Sizes are below 4 GiB.
 *
 *  Threads: different streams may be used by different threads at once.
 *
 *  Source: utils/libsrc/qal_blocks.cpp. */
#ifndef QAL_BLOCKS_H
#define QAL_BLOCKS_H

#include <qal/export.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Bytes that qal_fread_zlib has met so far, uncompressed: every block whose size was the one asked
 *  for counts, writing does not. A host may read and reset it. */
QAL_API extern uint64_t zlib_io_in_bytes;
/** The compressed bytes of the same blocks. */
QAL_API extern uint64_t zlib_io_out_bytes;

/** Writes `size` times `count` bytes as one block at the stream's position, at zlib's default
 *  level.
 *
 *  @return the uncompressed size in bytes; 0 with nothing written for a size of 4 GiB or more and
 *          for null arguments; 0 with a header left in the stream when the compressor cannot start
 *          or its output reaches 4 GiB.
 *  @note Write errors of the stream are not looked at: check it with `ferror` or when it is closed.
 *        When the position cannot be sought the header keeps a compressed size of 0. */
QAL_API size_t qal_fwrite_zlib(const void *data, size_t size, size_t count, FILE *stream);

/** Reads the block at the stream's position.
 *
 *  @param data room for `size` times `count` bytes; not a byte more is written, whatever the
 *              stream holds.
 *  @return the bytes produced, fewer than asked for when the zlib stream is short: compare. 0 when
 *          the block's size is another than the one asked for, which is told on standard error and
 *          leaves the stream behind the first 8 bytes; 0 for corrupt data and for a stream that
 *          ends early; `data` then holds what was produced until there. */
QAL_API size_t qal_fread_zlib(void *data, size_t size, size_t count, FILE *stream);

#ifdef __cplusplus
}
#endif

#endif

/** @file
 *  Compressed blocks in a stream: the library's two functions.
 *
 *  A block is a 9-byte header and a zlib stream. The header holds the uncompressed size and the
 *  size of the zlib stream, each as four bytes, the lowest first, and a zero byte. Blocks may
 *  follow one another. These functions and those of <kalmora/blocks.hpp> read each other's blocks.
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

/** Uncompressed bytes of the blocks that qal_fread_zlib() has read so far. Every block whose size
 *  was the one asked for counts, even a corrupt one; writing does not. A host may read and
 *  reset it while no thread reads a block. */
QAL_API extern uint64_t zlib_io_in_bytes;
/** The compressed bytes of the same blocks. */
QAL_API extern uint64_t zlib_io_out_bytes;

/** Writes `size` times `count` bytes as one block at the stream's position, at zlib's default
 *  level.
 *
 *  @param data    the bytes to write, borrowed; null is allowed when there are none.
 *  @param size    bytes in an item.
 *  @param count   items, 0 allowed.
 *  @param stream  open for writing; stays the caller's.
 *  @return the uncompressed size in bytes, which is 0 for an empty block. On failure 0: with
 *          nothing written for 4 GiB or more, for a null `stream` and for a null `data` that should
 *          hold bytes; with the header in the stream when the compressor cannot start; with the
 *          whole block in the stream, its compressed size unset, when that size reaches 4 GiB.
 *  @note Write errors of the stream are not noticed: check it with `ferror` or when it is closed.
 *        In a stream that cannot seek, the header keeps a compressed size of 0. */
QAL_API size_t qal_fwrite_zlib(const void *data, size_t size, size_t count, FILE *stream);

/** Reads the block at the stream's position.
 *
 *  @param data    room for `size` times `count` bytes; not a byte more is written, whatever the
 *                 stream holds. Null is allowed when there are none.
 *  @param size    bytes in an item.
 *  @param count   items, 0 allowed; the block must have exactly as many.
 *  @param stream  open for reading; stays the caller's. A whole block is read to its end.
 *  @return the bytes produced. They are fewer than asked for when the zlib stream is short, so
 *          compare. 0 when the block has another size than the one asked for: this is reported on
 *          standard error, and the stream stands after the block's first 8 bytes. 0 for corrupt
 *          data and for a stream that ends early: `data` then holds what was produced so far, and
 *          the stream stands somewhere in the block. 0 with the stream after the 9 bytes of the
 *          header when memory is short or `data` is null though it needs room. 0 for a null
 *          `stream`. */
QAL_API size_t qal_fread_zlib(void *data, size_t size, size_t count, FILE *stream);

#ifdef __cplusplus
}
#endif

#endif

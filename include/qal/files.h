/** @file
 *  Checks and operations on single files, and the removal of whole directory trees.
 *
 *  Paths are NUL-terminated text, borrowed for the call. They are handed to the operating system as
 *  they are, with no "~" expanded and, except in the recursive removal, no "\" turned into "/". A
 *  null path fails like one that names nothing.
 *
 *  Errors: a status is QAL_STATUS_OK, QAL_STATUS_FAILED, QAL_STATUS_EXISTS or QAL_STATUS_NO_SOURCE
 *  (see status.h). Only qal_io_chkfil reports anything through the logger; all else is silent.
 *
 *  Threads: no function keeps state or leaves a file open, so any thread may call any of them. One
 *  stream or one record serves one thread at a time.
 *
 *  Sources: utils/libsrc/qal_io/file_check.cpp, file_ops.cpp, file_tempnam.cpp and file_remove.cpp.
 */
#ifndef QAL_FILES_H
#define QAL_FILES_H

#include <qal/export.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What is known about a file. The order and widths of the fields are the same on every platform;
 *  whatever is wider on the platform (device numbers) keeps its low bits. */
typedef struct QalStat {
  int64_t access_time;       /**< seconds since the epoch of the last access */
  int64_t change_time;       /**< of the last change of status */
  int64_t modification_time; /**< of the last change of content */
  uint64_t inode;            /**< number of the file on its device */
  uint32_t group_id;         /**< the group that owns it */
  uint32_t user_id;          /**< the user who owns it */
  int32_t device;            /**< the device that holds the file */
  uint32_t mode;             /**< file type (mask 0170000) and permission bits */
  uint32_t link_count;       /**< names that it has */
  int32_t special_device;    /**< which device a device file stands for */
  int64_t size;              /**< in bytes */
} QalStat;

/** Says whether a file can be read, or whether it can be written or created.
 *
 *  To find out whether a missing file can be created it is created and removed again; a file that
 *  comes into being meanwhile is never touched.
 *
 *  @param path     the file.
 *  @param mode     the word without its bits 8 to 15 selects the check: 0 can it be read, anything
 *                  else can it be written or created. Bit 0x100 also refuses a directory, bit 0x200
 *                  whatever is no regular file; both follow links.
 *  @param verbose  exactly 1 reports the finding through qal_error: why the answer is 0, or, for a
 *                  file that exists and may be written, that it will be overwritten. Any other
 *                  value is silent.
 *  @return 1 usable, 0 not. */
QAL_API int qal_io_chkfil(const char *path, unsigned mode, int verbose);

/** Reads one line of bounded length.
 *
 *  A line ends at a newline, which is consumed and not stored, or at the end of the file, for which
 *  a read error counts as well. One carriage return at its end is dropped, after it has counted
 *  toward the limit.
 *
 *  @param stream     open for reading; a read that a signal interrupts is taken up again.
 *  @param max_chars  most characters that the line may have. When negative nothing is written.
 *  @param buf        `max_chars` + 1 bytes, caller-owned.
 *  @return the length of the line in `buf`, which is terminated; -1 at the end of the file, `buf`
 *          then empty when `max_chars` is above 0 and untouched otherwise; -2 when the line is too
 *          long: `buf` holds its first `max_chars` characters without a terminator, the one
 *          character that was too much is gone and the rest is next in the stream. A null `stream`
 *          or `buf` gives -1. */
QAL_API int qal_io_get_aline(FILE *stream, int max_chars, char *buf);

/** Asks what is known about a file, following links.
 *
 *  @param path    the file.
 *  @param record  caller-owned, not null; zeroed first, so it is all zero after a failure.
 *  @return 0, or -1 as the platform's `stat` with the reason in `errno`. */
QAL_API int qal_stat(const char *path, QalStat *record);

/** Says whether a path names a directory, following links.
 *
 *  @param path  the path.
 *  @return 1 a directory, 0 anything else, nothing, or not to be found out. */
QAL_API int qal_is_dir(const char *path);

/** Copies the content of a file.
 *
 *  A destination that does not exist is created with the source's permission bits, less the
 *  process's mask; one that exists keeps its own.
 *
 *  @param src    the file to copy.
 *  @param dst    where to; truncated first.
 *  @param flags  bit 0x1 keeps a destination that can be opened for reading.
 *  @return QAL_STATUS_OK; QAL_STATUS_NO_SOURCE when `src` cannot be opened; QAL_STATUS_EXISTS when
 *          bit 0x1 kept the destination; QAL_STATUS_FAILED when `dst` cannot be opened, when it is
 *          the source itself (which stays whole), or when reading, writing or closing fails: what
 *          was written by then stays. */
QAL_API int qal_file_copy(const char *src, const char *dst, unsigned flags);

/** Removes a file, or a link but not what it leads to.
 *
 *  @param path  the file.
 *  @return QAL_STATUS_OK or QAL_STATUS_FAILED. */
QAL_API int qal_file_unlink(const char *path);

/** Removes a directory, on request with everything in it.
 *
 *  The recursive removal turns each backslash in `path` into a slash. In each directory the files,
 *  the hidden too, go before the subdirectories. It stops at the first failure; what is gone by
 *  then stays gone. It fails, and never reaches outside the directory, when it meets
 *    - a link to a directory, also as `path` itself: the link and its target stay (a link to a file
 *      is removed, the file stays);
 *    - a link that leads nowhere;
 *    - a socket or a block device;
 *    - a name that holds a backslash or is longer than 255 bytes;
 *    - an entry whose path, counted from the start of `path`, needs more than 1023 bytes;
 *    - more levels than the process may have open files.
 *
 *  A `path` that ends in "." or "..", is "/" or empty, or needs more than 1023 bytes fails with
 *  nothing removed.
 *
 *  @param path       the directory; trailing slashes are allowed.
 *  @param recursive  exactly 1 removes the content first; otherwise the directory must be empty.
 *  @return QAL_STATUS_OK or QAL_STATUS_FAILED. */
QAL_API int qal_file_rmdir(const char *path, int recursive);

/** Renames a file, or moves it by copying.
 *
 *  @param from   the file.
 *  @param to     its new name.
 *  @param flags  bit 0x10000 copies `from` and removes it afterwards, which also works between file
 *                systems. The copy is on the disk before the source goes. Without it the platform's
 *                `rename` is used, which replaces an existing `to`.
 *  @return QAL_STATUS_OK or QAL_STATUS_FAILED; with bit 0x10000 also the other results of
 *          qal_file_copy with its bit 0x1. `from` is still there after every failure. */
QAL_API int qal_file_rename(const char *from, const char *to, unsigned flags);

/** Reads items and goes on after errors, asking for half as many after each.
 *
 *  After an error in the middle of an item the bytes of that item are lost to the caller.
 *
 *  @param buf        room for `count` items, caller-owned.
 *  @param item_size  bytes in an item.
 *  @param count      how many items to read.
 *  @param stream     open for reading; its error mark is cleared after each error.
 *  @return how many whole items were read. 0, with nothing read, when a size is 0, when the two
 *          multiplied do not fit the address space, or when `buf` or `stream` is null. */
QAL_API uint64_t qal_fread(void *buf, uint64_t item_size, uint64_t count, FILE *stream);

/** Makes up the name of a file that does not exist yet, as the platform's `tempnam` does.
 *
 *  Nothing reserves the name: another process may take it before the caller creates the file, which
 *  should therefore be opened so that it fails on an existing one.
 *
 *  @param dir     directory to prefer; null means the value of the environment variable ZUL_TMPDIR,
 *                 and when that is unset the platform chooses.
 *  @param prefix  beginning of the file name, of which the platform may use only some characters;
 *                 null for none.
 *  @return the name, released by the caller with `free`; null when there is none.
 *  @note   Reads the environment: not while another thread changes it. */
QAL_API char *qal_tempnam(const char *dir, const char *prefix);

#ifdef __cplusplus
}
#endif

#endif

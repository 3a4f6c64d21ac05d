/** @file
 *  Checks and operations on single files, and the removal of whole directory trees.
 *
 *  Paths are NUL-terminated text, borrowed for the call. They are handed to the operating system as
 *  they are, with no "~" expanded and, except in the recursive removal, no "\" turned into "/". A
 *  null path counts as empty and fails, where its function does not say otherwise.
 *
 *  Errors: only qal_io_chkfil() reports through the logger; the other functions are silent.
 *
 *  Threads: no function keeps state or leaves a file open, so any thread may call any of them. A
 *  stream or record is used by one thread at a time.
 *
 *  Source: utils/libsrc/qal_io/file_check.cpp, file_ops.cpp, file_tempnam.cpp, file_remove.cpp. */
#ifndef QAL_FILES_H
#define QAL_FILES_H

#include <qal/export.h>
#include <qal/status.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What the system knows about a file. The order and widths of the fields are the same on every
 *  platform; where the platform's are wider (device numbers), the low bits are kept. */
typedef struct QalStat {
  int64_t access_time;       /**< seconds since the epoch of the last access */
  int64_t change_time;       /**< of the last change of status */
  int64_t modification_time; /**< of the last change of content */
  uint64_t inode;            /**< number of the file on its device */
  uint32_t group_id;         /**< the group that owns it */
  uint32_t user_id;          /**< the user who owns it */
  int32_t device;            /**< the device that holds the file */
  uint32_t mode;             /**< file type (mask 0170000) and permission bits */
  uint32_t link_count;       /**< hard links to it */
  int32_t special_device;    /**< the device that a device file stands for */
  int64_t size;              /**< in bytes */
} QalStat;

/** What qal_io_chkfil() checks: one of the first two, with any of the others added by "|". */
enum {
  QAL_CHECK_READ = 0,              /**< the file can be read */
  QAL_CHECK_WRITE = 1,             /**< the file can be written or created */
  QAL_CHECK_NOT_DIRECTORY = 0x100, /**< it is no directory, nor a link to one */
  QAL_CHECK_REGULAR = 0x200        /**< it is a regular file, or a link to one, if it exists */
};

/** A value of `verbose` of qal_io_chkfil(). */
enum {
  QAL_CHECK_VERBOSE = 1 /**< the finding is reported */
};

/** Says whether a file can be read, or whether it can be written or created.
 *
 *  To find out whether a missing file can be created, it is created and removed again. It is
 *  removed only while its name means the file that was created; if that cannot be told, it stays.
 *
 *  @param path     the file; links are followed, but nothing is created through one that leads
 *                  nowhere: the result is then 0.
 *  @param mode     the checks. The bits other than 8 to 15 are one number: 0 is QAL_CHECK_READ, and
 *                  any other counts as QAL_CHECK_WRITE.
 *  @param verbose  QAL_CHECK_VERBOSE reports the finding through qal_error(): why the result is 0,
 *                  or that a file which exists and can be written will be overwritten. Any other
 *                  value is silent.
 *  @return 1 when the file passes the checks, else 0. */
QAL_API int qal_io_chkfil(const char *path, unsigned mode, int verbose);

/** What qal_io_get_aline() returns when there is no line. */
enum {
  QAL_LINE_END_OF_FILE = -1, /**< the stream has no more lines */
  QAL_LINE_TOO_LONG = -2     /**< the line has more characters than were allowed */
};

/** Reads one line of bounded length.
 *
 *  A line ends at a newline, which is consumed and not stored, or at the end of the file. A read
 *  error counts as the end of the file. One carriage return at the end of a line is dropped, but
 *  counts toward the limit.
 *
 *  @param stream     open for reading, caller-owned; a read that a signal interrupts is repeated.
 *  @param max_chars  most characters that the line may have. When negative, nothing is written,
 *                    not even a terminator.
 *  @param buf        `max_chars` + 1 bytes, caller-owned.
 *  @return the length of the line in `buf`, which is terminated; QAL_LINE_END_OF_FILE for a null
 *          `stream` or `buf`, with nothing written, and when there is no line: `buf` is then empty
 *          if `max_chars` is above 0, else untouched; QAL_LINE_TOO_LONG when `buf` holds the first
 *          `max_chars` characters without a terminator, one more has been dropped, and the rest of
 *          the line is next in the stream. */
QAL_API int qal_io_get_aline(FILE *stream, int max_chars, char *buf);

/** Reads what the system knows about a file, following links.
 *
 *  @param path    the file.
 *  @param record  caller-owned, not null; zeroed first, so it is all zero after a failure.
 *  @return what the platform's `stat` returns: 0, or -1 with the reason in `errno`. */
QAL_API int qal_stat(const char *path, QalStat *record);

/** Says whether a path names a directory, following links.
 *
 *  @param path  the path.
 *  @return 1 for a directory; 0 for anything else, for nothing, and when it cannot be examined. */
QAL_API int qal_is_dir(const char *path);

/** Flags of qal_file_copy() and qal_file_rename(). */
enum {
  QAL_COPY_KEEP_EXISTING = 0x1, /**< qal_file_copy() leaves an existing destination alone */
  QAL_RENAME_BY_COPY = 0x10000  /**< qal_file_rename() copies the file and removes the source */
};

/** Copies the content of a file, following links.
 *
 *  A destination that does not exist is created with the source's nine permission bits, less the
 *  process's mask; one that exists keeps its own. Owner and times are not copied. The copy need not
 *  be on the disk yet when the function returns.
 *
 *  @param src    the file to copy. A pipe or a device is read to its end.
 *  @param dst    the file to copy to; a regular file is emptied first.
 *  @param flags  0, or QAL_COPY_KEEP_EXISTING: a destination that can be opened for reading, a
 *                directory too, stays as it is. Other bits are ignored.
 *  @return QAL_STATUS_OK; QAL_STATUS_NO_SOURCE when `src` cannot be opened, with nothing changed;
 *          QAL_STATUS_EXISTS when the destination was kept; QAL_STATUS_FAILED with nothing changed
 *          when `src` is a directory or `dst` itself, or when `dst` cannot be opened or emptied;
 *          QAL_STATUS_FAILED when reading, writing or closing fails, with what was written by then
 *          in `dst`. */
QAL_API int qal_file_copy(const char *src, const char *dst, unsigned flags);

/** Removes a file. Of a link only the link goes.
 *
 *  @param path  the file.
 *  @return QAL_STATUS_OK; QAL_STATUS_FAILED when it cannot be removed, as a directory cannot. */
QAL_API int qal_file_unlink(const char *path);

/** A value of `recursive` of qal_file_rmdir(). */
enum {
  QAL_RMDIR_RECURSIVE = 1 /**< the content is removed first */
};

/** Removes a directory, on request with everything in it.
 *
 *  The recursive removal takes each backslash in `path` for a slash. In each directory it removes
 *  the files, hidden ones too, before the subdirectories, each in the system's order. A link to a
 *  regular file, a FIFO or a character device is removed as a file is, and its target stays; the
 *  kind of the target is that at the time its directory is read. The removal never reaches outside
 *  the directory. It stops at the first failure and restores nothing. It fails
 *    - at a name that holds a backslash;
 *    - at a socket, a block device, or a link to one of these or to a directory; they come among
 *      the subdirectories;
 *    - at the end of a directory in which something is passed over: a link that leads nowhere, a
 *      name longer than 255 bytes, an entry whose path, counted from the start of `path`, needs
 *      more than 1023 bytes;
 *    - when a directory is moved elsewhere meanwhile.
 *
 *  When `path` itself is a link of any kind, the call fails, recursive or not, and the link and its
 *  target stay. (If not recursive and with a slash after the link, that is up to the platform's
 *  `rmdir`; on Linux it fails.) Links before the last component are followed.
 *
 *  The call fails, with nothing removed, when the last component of `path` is "." or ".." (a
 *  directory "foo." can be removed), when `path` is "/" or empty and, if recursive, when it has
 *  more than 1022 bytes with its trailing slashes. The recursive removal opens two directories at a
 *  time, however deep the tree is.
 *
 *  @param path       the directory; trailing slashes are allowed.
 *  @param recursive  QAL_RMDIR_RECURSIVE; with any other value the directory must be empty.
 *  @return QAL_STATUS_OK; QAL_STATUS_FAILED when it cannot be removed, and when there is none. */
QAL_API int qal_file_rmdir(const char *path, int recursive);

/** Renames a file, or moves it by copying.
 *
 *  @param from   the file, or with `flags` 0 a directory.
 *  @param to     its new name.
 *  @param flags  0: the platform's `rename`, which replaces an existing `to`. QAL_RENAME_BY_COPY:
 *                `from` is copied, with QAL_COPY_KEEP_EXISTING, and removed afterwards, which also
 *                works between file systems. Before the source is removed, the copy and its name
 *                are synchronised to the disk, if the file system can. Other bits are ignored.
 *  @return QAL_STATUS_OK; QAL_STATUS_FAILED when the platform's `rename` fails. With
 *          QAL_RENAME_BY_COPY the other results of qal_file_copy(), and QAL_STATUS_FAILED also when
 *          the copy does not reach the disk or `from` cannot be removed: the copy then stays.
 *          `from` is still there after every failure. */
QAL_API int qal_file_rename(const char *from, const char *to, unsigned flags);

/** Reads items and goes on after errors, asking for half as many after each until half is none.
 *
 *  When an error comes in the middle of an item, the bytes of that item are lost.
 *
 *  @param buf        room for `count` items, caller-owned.
 *  @param item_size  bytes in an item.
 *  @param count      how many items to read.
 *  @param stream     open for reading; its error mark is cleared after each error.
 *  @return how many whole items were read. 0, with nothing read, when `item_size` or `count` is 0,
 *          when their product does not fit the address space, or when `buf` or `stream` is null. */
QAL_API uint64_t qal_fread(void *buf, uint64_t item_size, uint64_t count, FILE *stream);

/** Makes up the name of a file that does not exist yet, as the platform's `tempnam` does.
 *
 *  Nothing reserves the name: another process may create the file first. So open it in a way that
 *  fails when it exists.
 *
 *  @param dir     directory to prefer; null means the value of the environment variable ZUL_TMPDIR,
 *                 and when that is unset the platform chooses.
 *  @param prefix  beginning of the file name, of which the platform may use only some characters;
 *                 null for no prefix.
 *  @return the name, released by the caller with `free`; null on failure.
 *  @note   Reads the environment: do not call it while another thread changes it. */
QAL_API char *qal_tempnam(const char *dir, const char *prefix);

#ifdef __cplusplus
}
#endif

#endif

/** @file
 *  Shell commands whose input or output the caller holds as a stream.
 *
 *  The streams are the caller's. Other programs do not inherit their descriptors: of the pipes of
 *  this library, a command has only its own. Where the system cannot open a pipe in this way
 *  (macOS), a command that another thread starts at the same moment may inherit it.
 *
 *  Threads: any thread may start commands. A stream is used by one thread at a time.
 *
 *  Source: utils/libsrc/qal_io/pipe.cpp. */
#ifndef QAL_PIPE_H
#define QAL_PIPE_H

#include <qal/export.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What qal_pipe_popen_id() stores instead of a command's process id. */
enum {
  QAL_PIPE_NO_PROCESS = -1, /**< nothing was started */
  QAL_PIPE_IN_CHILD = 0     /**< this is the child, and the shell could not be started */
};

/** Runs "/bin/sh -c command" in a process group of its own.
 *
 *  Standard output and error are flushed first. The command keeps the caller's signal mask, ignored
 *  signals, directory and environment.
 *
 *  @param command  the shell command; borrowed.
 *  @param mode     begins with "r" to read what the command writes to its standard output and
 *                  error, merged, or with "w" to write what it reads; the whole text is handed to
 *                  fdopen(). Borrowed.
 *  @param pid_out  receives the command's process id, which is also its group's, or
 *                  QAL_PIPE_NO_PROCESS; null fails.
 *  @return the stream, to be closed with fclose() before the command is waited for with waitpid().
 *          Null when an argument is null, for any other mode, and when no pipe or process can be
 *          made (the latter is reported on standard error). Null with a process id above 0 when the
 *          stream cannot be made: the command runs, the caller's end of the pipe is closed, and the
 *          command is still to be waited for.
 *  @warning When the shell cannot be started, this function returns null in the child as well, with
 *           QAL_PIPE_IN_CHILD: a caller that sees that must call _exit(). */
QAL_API FILE *qal_pipe_popen_id(const char *command, const char *mode, int *pid_out);

/** @name The platform's calls, for callers that want one family of names
 *  Reading and writing take the streams of either kind. */
/**@{*/
/** Starts a shell command as the platform's popen() does.
 *
 *  @param command  the shell command; borrowed.
 *  @param mode     "r" to read what the command writes to its standard output, "w" to write what it
 *                  reads; any other text is for popen() to judge. Borrowed.
 *  @return the stream, to be closed with qal_pipe_pclose(); null when an argument is null, and with
 *          `errno` set when popen() fails. */
QAL_API FILE *qal_pipe_popen(const char *command, const char *mode);
/** Closes a stream of qal_pipe_popen() and waits for its command, as the platform's pclose() does.
 *
 *  @param stream  a stream of qal_pipe_popen(), gone afterwards; not one of qal_pipe_popen_id().
 *  @return the command's status, as waitpid() stores it; -1 for a null stream, and with `errno` set
 *          when pclose() fails. */
QAL_API int qal_pipe_pclose(FILE *stream);
/** Reads a line or a part of it, as the platform's fgets() does.
 *
 *  @param buffer  receives the text, its line feed and a terminator; caller-owned, not null.
 *  @param size    bytes of room in `buffer`, at least 1; beyond what an `int` holds it counts as
 *                 the largest `int`.
 *  @param stream  open for reading, not null.
 *  @return `buffer`; null at the end of the stream, with `buffer` untouched, and when reading
 *          fails. */
QAL_API char *qal_pipe_fgets(char *buffer, uint32_t size, FILE *stream);
/** Reads items, as the platform's fread() does.
 *
 *  @param buffer     receives the items; `item_size` times `count` bytes, caller-owned.
 *  @param item_size  bytes in an item.
 *  @param count      items to read.
 *  @param stream     open for reading, not null.
 *  @return the whole items read; fewer than `count` at the end of the stream and when reading
 *          fails. */
QAL_API size_t qal_pipe_fread(void *buffer, size_t item_size, size_t count, FILE *stream);
/** Writes items, as the platform's fwrite() does.
 *
 *  @param buffer     the items, `item_size` times `count` bytes; borrowed.
 *  @param item_size  bytes in an item.
 *  @param count      items to write.
 *  @param stream     open for writing, not null.
 *  @return the whole items taken; fewer than `count` when writing fails. */
QAL_API size_t qal_pipe_fwrite(const void *buffer, size_t item_size, size_t count, FILE *stream);
/** Says whether a read has met the end of a stream, as the platform's feof() does.
 *
 *  @param stream  the stream, not null.
 *  @return 0 when no read has met the end, else another number. */
QAL_API int qal_pipe_feof(FILE *stream);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif

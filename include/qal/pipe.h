/** @file
 *  Shell commands whose input or output the caller holds as a stream.
 *
 *  The streams are the caller's. Other programs do not inherit their descriptors: a command has the
 *  pipe that it is started with and none of the others of this library. Where the system's popen
 *  cannot open a stream so (macOS), a command that another thread starts during qal_pipe_popen may
 *  inherit it.
 *
 *  Threads: any thread may start commands.
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

/** Runs "/bin/sh -c command" in a process group of its own.
 *
 *  Standard output and error are flushed first. The command keeps the caller's signal mask, ignored
 *  signals, directory and environment.
 *
 *  @param command borrowed.
 *  @param mode    begins with "r" to read what the command writes to its standard output and error,
 *                 merged, or with "w" to write what it reads; the whole text is handed to `fdopen`.
 *  @param pid_out receives the command's process id, which is also its group's; -1 when nothing was
 *                 started.
 *  @return the stream, to be closed with `fclose` before the command is waited for with `waitpid`.
 *          Null when an argument is null, for any other mode, and when no pipe or process can be
 *          made (the latter is reported on standard error). Null with a process id above 0 when the
 *          stream cannot be made: the command runs, the caller's end of the pipe is closed, and the
 *          command is still to be waited for.
 *  @warning When the shell cannot be started, this function returns null in the child as well, with
 *           a process id of 0: a caller that sees that must call `_exit`. */
QAL_API FILE *qal_pipe_popen_id(const char *command, const char *mode, int *pid_out);

/** @name The platform's calls, for callers that want one family of names
 *  Reading and writing take the streams of either kind. */
/**@{*/
/** The platform's popen; null for null arguments. */
QAL_API FILE *qal_pipe_popen(const char *command, const char *mode);
/** The platform's pclose, for streams of qal_pipe_popen alone; -1 for null. */
QAL_API int qal_pipe_pclose(FILE *stream);
/** The platform's fgets.
 *  @param size bytes of room in `buffer`; beyond what an int holds it counts as the largest int. */
QAL_API char *qal_pipe_fgets(char *buffer, uint32_t size, FILE *stream);
/** The platform's fread. */
QAL_API size_t qal_pipe_fread(void *buffer, size_t item_size, size_t count, FILE *stream);
/** The platform's fwrite. */
QAL_API size_t qal_pipe_fwrite(const void *buffer, size_t item_size, size_t count, FILE *stream);
/** The platform's feof. */
QAL_API int qal_pipe_feof(FILE *stream);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif

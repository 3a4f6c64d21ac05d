/** @file
 *  Messages: four console levels, one that ends the process, and a separate log channel.
 *
 *  The logger owns no stream. Lines go to the callbacks that a host passes to qal_logger_init();
 *  until it does, every level is silent and a call costs one comparison. A line has at most 8191
 *  bytes, a longer one is cut; it is composed on the caller's stack. The logger itself allocates
 *  nothing, but the platform may: for an unusual conversion, a stream's buffer or a time zone. A
 *  level adds its marker but no line end: that is part of the format. Formats must not be null and
 *  must not hold "%n", at which a C library that checks may end the process. When the arguments
 *  cannot be converted, the line is its time stamp and marker alone. Logging leaves `errno` as it
 *  was.
 *
 *  Threads: any thread may log. The settings (qal_logger_init(), qal_logger_done(),
 *  qal_logger_time_stamp(), _qal_logger_set_file(), Verbose_level) are made while no other thread
 *  logs.
 *
 *  Source: utils/libsrc/qal_logger.cpp; how text is formatted on each system is under
 *  utils/libsrc/platform. */
#ifndef QAL_LOGGER_H
#define QAL_LOGGER_H

#include <qal/export.h>
#include <stdarg.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Receives a finished line.
 *
 *  It is called by the thread that logs, before the logging function returns. The logger holds no
 *  lock, so several threads may be in the callback at once. But a pool that reports missing memory
 *  holds its own lock: use no pools, lists, tables or ids here. A callback that logs is called
 *  recursively and must end the recursion itself. It must not leave by longjmp(). Its changes to
 *  `errno` are undone.
 *
 *  @param stream  the handle that was installed with the callback.
 *  @param format  the line, marker and line end included, with no further arguments; borrowed for
 *                 the call. A callback that formats it again reads each "%" in it as a directive:
 *                 hosts that log foreign text pass it through qal_scrub_format_string() first, or
 *                 install _qal_logger_func(), which does not format a finished line. */
typedef void (*QalLoggerFunc)(void *stream, const char *format, ...);

/** How much a host wants to be reported; 0 at start. The logger itself does not read it. */
extern QAL_API int Verbose_level;

/** Installs the callbacks and the handles that they are called with.
 *
 *  @param console_stream  first argument of the console callback, passed on as it is; may be null.
 *  @param console_func    receives the console levels; null makes them silent.
 *  @param log_stream      first argument of the log callback, passed on as it is; may be null.
 *  @param log_func        receives qal_log(); null makes it silent. */
QAL_API void qal_logger_init(void *console_stream, QalLoggerFunc console_func, void *log_stream,
                             QalLoggerFunc log_func);

/** Removes both callbacks and both handles. The copy file and the time stamp setting stay. */
QAL_API void qal_logger_done(void);

/** Switches the time stamp.
 *
 *  @param on  0: a line starts with its marker; anything else: with the local time as HH:MM:SS. */
QAL_API void qal_logger_time_stamp(int on);

/** Hands the console callback a line without a marker; silent without a callback.
 *
 *  @param format  as printf takes it, with its arguments behind it and its line end included;
 *                 borrowed. */
QAL_API void qal_info(const char *format, ...) QAL_PRINTF(1, 2);

/** Hands the console callback a line marked "WARNING: "; silent without a callback.
 *
 *  @param format  as for qal_info(). */
QAL_API void qal_warn(const char *format, ...) QAL_PRINTF(1, 2);

/** Hands the console callback a line marked "ERROR: "; silent without a callback.
 *
 *  @param format  as for qal_info(). */
QAL_API void qal_error(const char *format, ...) QAL_PRINTF(1, 2);

/** Hands the console callback a line marked "FATAL: "; silent without a callback. It returns:
 *  ending the process is the caller's decision.
 *
 *  @param format  as for qal_info(). */
QAL_API void qal_fatal(const char *format, ...) QAL_PRINTF(1, 2);

/** Hands the console callback a line marked "ABORT: " and ends the process with `abort`. Without a
 *  console callback it does neither and returns.
 *
 *  @param format  as for qal_info(). */
QAL_API void qal_abort(const char *format, ...) QAL_PRINTF(1, 2);

/** Hands the log callback a line without a marker; silent without a log callback.
 *
 *  @param format  as for qal_info(). */
QAL_API void qal_log(const char *format, ...) QAL_PRINTF(1, 2);

/** Does nothing with its arguments: debugging output can stay in a release.
 *
 *  @param format  as for qal_info(), but not read. */
QAL_API void qal_debug(const char *format, ...) QAL_PRINTF(1, 2);

/** Does nothing: a place for a breakpoint. thread.h says when it is called. */
QAL_API void qal_stop_here(void);

/** Writes a text to a standard stream and to the copy file: the ready-made callback.
 *
 *  The line that the logger is delivering on this thread is not formatted again: "%%" gives "%" and
 *  every other byte stays. Any other format is formatted as usual.
 *
 *  @param stream  a `FILE *`, for example stderr; borrowed and not flushed. Null: copy file only.
 *  @param format  as printf takes it; more than 8191 bytes of text are cut. With an argument that
 *                 cannot be converted nothing is written.
 *  @note  The copy file is flushed at once, so that it holds the last line before a crash. */
QAL_API void _qal_logger_func(void *stream, const char *format, ...) QAL_PRINTF(2, 3);

/** Chooses the file that _qal_logger_func() copies to; an earlier one is closed first.
 *
 *  @param path  file to create or to empty; borrowed. Null: no copy.
 *  @return the open file, which stays the logger's, or null when it cannot be opened (`errno` says
 *          why); there is no copy then. */
QAL_API FILE *_qal_logger_set_file(const char *path);

/** Returns the copy file.
 *
 *  @return the open file, which stays the logger's; null when there is no copy. */
QAL_API FILE *_qal_logger_get_file(void);

/** Copies a text with every "%" doubled, so that printf-like functions print the text itself.
 *
 *  @param text  NUL-terminated, any length; borrowed.
 *  @return a new buffer of twice the length and one byte, zero after the text, which the caller
 *          releases with `free`; null for a null text and when memory is short. */
QAL_API char *qal_scrub_format_string(const char *text);

/** Does nothing: a hook for systems whose console window follows the program's state.
 *
 *  @param state  ignored. */
QAL_API void update_windows_console(int state);

/** Formats with the platform's own text formatting, whatever the length.
 *
 *  @param out        receives the text and its terminator; caller-owned. There is no bound: the
 *                    caller provides the room. When the arguments cannot be converted, or give
 *                    2 GiB or more, it is the empty text. It may be an argument of a text of up to
 *                    8191 bytes.
 *  @param format     as printf takes it; on macOS the object placeholder "%@" too; borrowed.
 *  @param arguments  the format's arguments; indeterminate afterwards, as after vprintf. */
QAL_API void nsstring_vsprintf(char *out, const char *format, va_list arguments) QAL_PRINTF(2, 0);

#ifdef __cplusplus
}
#endif

#endif

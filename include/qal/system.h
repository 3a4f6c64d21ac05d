/** @file
 *  The machine, the user and processes.
 *
 *  Figures of the machine are asked for by number and answered into an `int`; memory is in KiB and
 *  a figure that an `int` cannot hold is answered as INT_MAX. Every pointer is needed.
 *
 *  Threads: nothing here owns memory or keeps state, so any thread may call any of it; qal_signal
 *  changes the whole process.
 *
 *  Source: utils/libsrc/qal_system.cpp; what differs between systems is under
 *  utils/libsrc/platform. */
#ifndef QAL_SYSTEM_H
#define QAL_SYSTEM_H

#include <qal/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Answers one figure of the machine or of this process.
 *
 *  | query   | answer |
 *  |---------|--------|
 *  | 0       | bytes of a memory page |
 *  | 1       | physical memory in KiB |
 *  | 2, 3, 4 | not supported |
 *  | 5       | processors; on Linux those online |
 *  | 6       | threads that this process may have, -1 without a limit |
 *  | 7       | memory of this process held in RAM, in KiB, or -1 when that is not known |
 *  | 8       | processor packages |
 *  | 9       | physical cores |
 *  | 10      | logical processors; on Linux those online |
 *
 *  If the system does not report its packages, query 8 gives the number of physical cores; if it
 *  does not report these either, the number of logical processors, and failing that the answer to
 *  query 5. Queries 9 and 10 fall back in the same order.
 *
 *  @param query  one of the numbers above; every other number is not supported.
 *  @param value  where the answer goes; untouched unless the result is 1.
 *  @return 1 answered, 0 not supported, or -1 when query 1 or the last fallback of queries 5 and
 *          8 to 10 failed; "sysctl: " and the reason then stand on standard error. */
QAL_API int qal_sysinfo(int query, int *value);

/** Tells the byte order.
 *
 *  @return 0 on a little-endian machine, 1 on a big-endian one. */
QAL_API int qal_endian(void);

/** Copies the login name of the real user.
 *
 *  @param dst   the name, or "notfound" for a user without a password entry; always terminated, a
 *               longer name is cut.
 *  @param size  bytes of `dst`; below 1 nothing is written.
 *  @return 0. */
QAL_API int qal_username(char *dst, int size);

/** Sleeps for a number of seconds; a signal that is handled ends the sleep early.
 *
 *  @return 0. */
QAL_API int qal_sleep(unsigned seconds);

/** Sleeps for a number of microseconds; a signal that is handled ends the sleep early.
 *
 *  @return 0. */
QAL_API int qal_usleep(unsigned microseconds);

/** Lets other threads run first.
 *
 *  @return the system's own result: 0, or -1 with `errno` set. */
QAL_API int qal_sched_yield(void);

/** Sets what a signal does, for the whole process. The handler that stood before is lost, and a
 *  signal that cannot be handled stays as it is.
 *
 *  @param signal_number  a signal of <signal.h>.
 *  @param handler        the handler, SIG_IGN or SIG_DFL.
 *  @return 0. */
QAL_API int qal_signal(int signal_number, void (*handler)(int));

/** Tells the process id of the caller. */
QAL_API int qal_getpid(void);

/** Probes for a process. The sense is the opposite of what the name suggests: the answer is 1 for
 *  a process that is gone.
 *
 *  @param pid  a process id; 0 and negative ids mean process groups, as they do to kill().
 *  @return 1 when no such process exists; 0 when it exists, a zombie included, or when the probe
 *          failed for another reason, such as a process of another user. */
QAL_API int qal_is_pid_running(int pid);

/** Asks the system's version tool, /usr/bin/sw_vers, for the version of macOS.
 *
 *  @param name   receives "Mac OS X"; at least 9 bytes, written in every case.
 *  @param major  receives the first number of the version, or -1.
 *  @param minor  receives the second number, or -1; both numbers are set or neither is.
 *  @return 0, or -1 when the tool cannot be started or its answer holds no version; one line on
 *          standard error then says which. */
QAL_API int qal_get_osx_ver(char *name, int *major, int *minor);

#ifdef __cplusplus
}
#endif

#endif

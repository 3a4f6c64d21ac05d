/** @file
 *  The machine, the user and processes.
 *
 *  Figures of the machine are `int`s. Memory is in KiB, and INT_MAX stands for more than an `int`
 *  can hold. No pointer may be null, and buffers belong to the caller.
 *
 *  Threads: nothing here owns memory or keeps state, so any thread may call any function;
 *  qal_signal() changes the whole process.
 *
 *  Source: utils/libsrc/qal_system.cpp; what differs between systems is under
 *  utils/libsrc/platform. */
#ifndef QAL_SYSTEM_H
#define QAL_SYSTEM_H

#include <qal/export.h>
#include <qal/status.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What qal_sysinfo() can be asked for. */
enum {
  QAL_SYSINFO_PAGE_BYTES = 0,         /**< bytes of a memory page */
  QAL_SYSINFO_MEMORY = 1,             /**< physical memory in KiB */
  QAL_SYSINFO_PROCESSORS = 5,         /**< processors; on Linux those online */
  QAL_SYSINFO_THREAD_LIMIT = 6,       /**< threads that this process may have */
  QAL_SYSINFO_RESIDENT_MEMORY = 7,    /**< RAM that this process holds, in KiB */
  QAL_SYSINFO_PACKAGES = 8,           /**< processor packages */
  QAL_SYSINFO_PHYSICAL_CORES = 9,     /**< physical cores */
  QAL_SYSINFO_LOGICAL_PROCESSORS = 10 /**< logical processors; on Linux those online */
};

/** What qal_sysinfo() stores where there is no figure. */
enum {
  QAL_SYSINFO_UNLIMITED = -1, /**< for QAL_SYSINFO_THREAD_LIMIT: there is no limit */
  QAL_SYSINFO_NOT_KNOWN = -1  /**< for QAL_SYSINFO_RESIDENT_MEMORY: the system does not report it */
};

/** Results of qal_sysinfo(). */
enum {
  QAL_SYSINFO_FAILED = -1,       /**< the system did not give the figure */
  QAL_SYSINFO_NOT_SUPPORTED = 0, /**< there is no such query */
  QAL_SYSINFO_ANSWERED = 1       /**< the figure is stored */
};

/** Stores one figure of the machine or of this process.
 *
 *  If the system does not report its packages, the number of physical cores is stored; if it does
 *  not report these either, the number of logical processors, and failing that the number of
 *  processors. Queries for cores and logical processors fall back in the same order.
 *
 *  @param query  one of the queries above.
 *  @param value  receives the figure, or what stands for none; untouched unless the result is
 *                QAL_SYSINFO_ANSWERED.
 *  @return QAL_SYSINFO_ANSWERED; QAL_SYSINFO_NOT_SUPPORTED for any other query; QAL_SYSINFO_FAILED
 *          when the system does not report the physical memory, or not even the number of
 *          processors: "sysctl: " and the reason then stand on standard error. */
QAL_API int qal_sysinfo(int query, int *value);

/** Results of qal_endian(). */
enum {
  QAL_LITTLE_ENDIAN = 0, /**< the lowest byte comes first */
  QAL_BIG_ENDIAN = 1     /**< the highest byte comes first */
};

/** Returns the byte order of the machine.
 *
 *  @return QAL_LITTLE_ENDIAN or QAL_BIG_ENDIAN. */
QAL_API int qal_endian(void);

/** Copies the login name of the real user.
 *
 *  @param dst   receives the name, or "notfound" when no password entry can be had, which the
 *               allocator reports if memory is short; always terminated, and a longer name is cut.
 *  @param size  bytes of `dst`; below 1 nothing is written.
 *  @return QAL_STATUS_OK, always. */
QAL_API int qal_username(char *dst, int size);

/** Sleeps for a number of seconds; a signal that is handled ends the sleep early.
 *
 *  @param seconds  any number; 0 returns at once.
 *  @return QAL_STATUS_OK, also when the sleep ended early. */
QAL_API int qal_sleep(unsigned seconds);

/** Sleeps for a number of microseconds; a signal that is handled ends the sleep early.
 *
 *  @param microseconds  below 1,000,000: not every platform's usleep() takes more.
 *  @return QAL_STATUS_OK, also when the sleep ended early or did not begin. */
QAL_API int qal_usleep(unsigned microseconds);

/** Lets other threads run first.
 *
 *  @return the result of the platform's sched_yield(): 0, or -1 with `errno` set. */
QAL_API int qal_sched_yield(void);

/** Sets what a signal does, for the whole process, as the platform's signal() does.
 *
 *  The handler stays set after it has run, the signal waits while it runs, and the system calls
 *  that it interrupts go on where the platform can restart them. The previous handler is not
 *  returned.
 *
 *  @param signal_number  a signal of <signal.h>. SIGKILL, SIGSTOP and a number that is no signal
 *                        change nothing but `errno`.
 *  @param handler        SIG_IGN, SIG_DFL, or a function that stays valid and may call only what is
 *                        safe in signal handlers. It gets the number of the signal, on whichever
 *                        thread the system chooses.
 *  @return QAL_STATUS_OK, always, even when the platform's signal() fails. */
QAL_API int qal_signal(int signal_number, void (*handler)(int));

/** Returns the process id of the caller.
 *
 *  @return the id, above 0. */
QAL_API int qal_getpid(void);

/** Results of qal_is_pid_running(). */
enum {
  QAL_PID_EXISTS = 0, /**< the process exists */
  QAL_PID_GONE = 1    /**< there is no such process */
};

/** Probes for a process. The result is the opposite of what the name suggests.
 *
 *  @param pid  a process id; 0 and negative ids mean what they mean to kill().
 *  @return QAL_PID_GONE when no such process exists; QAL_PID_EXISTS when it exists, a zombie
 *          included, and when the probe fails for another reason, such as a process of another
 *          user. */
QAL_API int qal_is_pid_running(int pid);

/** Results of qal_get_osx_ver(). */
enum {
  QAL_OSX_VER_FOUND = 0,     /**< the version is stored */
  QAL_OSX_VER_NOT_KNOWN = -1 /**< the version is not known; stands for both of its numbers too */
};

/** Asks the system's version tool, /usr/bin/sw_vers, for the version of macOS.
 *
 *  @param name   receives "Mac OS X"; at least 9 bytes, written in every case.
 *  @param major  receives the first number of the version, or QAL_OSX_VER_NOT_KNOWN.
 *  @param minor  receives the second number, or QAL_OSX_VER_NOT_KNOWN; both numbers are found or
 *                neither is. A number that an `int` cannot hold becomes the nearest that it can.
 *  @return QAL_OSX_VER_FOUND; or QAL_OSX_VER_NOT_KNOWN when the tool cannot be started or its
 *          output holds no version: standard error then says which, and quotes the output. */
QAL_API int qal_get_osx_ver(char *name, int *major, int *minor);

#ifdef __cplusplus
}
#endif

#endif

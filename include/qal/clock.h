/** @file
 *  The wall clock, the local date and time, and a table of stopwatches.
 *
 *  The clock is the platform's time of day: when it is set, even backwards, the times here jump
 *  with it. Dates are local time. A change of TZ takes effect with the next call; where TZ is not
 *  set, a change of the system's time zone does within a second. No pointer may be null.
 *
 *  The stopwatches ("timers") add up the running time of a phase of work. There is one table of
 *  QAL_MAX_TIMERS entries. Starting and stopping cost a reading of the clock and little else. A
 *  timer's number is passed by address.
 *
 *  Errors: the clock functions cannot fail. A timer function reports a mistake through qal_error()
 *  where its comment says so; any other mistake is ignored.
 *
 *  Threads: any thread may read the clock, provided no other thread changes the environment. All
 *  threads share the timers without a lock: only one thread may ask for new ones, and no two
 *  threads may use the same one at once.
 *
 *  Source: utils/libsrc/qal_clock.cpp. */
#ifndef QAL_CLOCK_H
#define QAL_CLOCK_H

#include <qal/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Entries of the timer table; the last one is never handed out. */
#define QAL_MAX_TIMERS 1024

/** A moment of the wall clock. */
typedef struct QalTime {
  int32_t seconds;      /**< since the epoch, the low 32 bits: wraps to negative in 2038 */
  int32_t microseconds; /**< 0 to 999,999 */
} QalTime;

/** Reads the time of day.
 *
 *  @param out  receives the moment; caller-owned. */
QAL_API void qal_time_get(QalTime *out);

/** Reads the time of day as seconds since the epoch, with the microseconds as fraction.
 *
 *  @return the seconds in full: unlike those of qal_time_get() they are not cut to 32 bits. */
QAL_API double qal_time_get_s(void);

/** Reads the local date and time as numbers.
 *
 *  @param out  receives six numbers, caller-owned: the year in full, the month from 1, the day of
 *              the month, the hour from 0 to 23, the minute and the second.
 *  @return the second, the last of the six numbers. */
QAL_API int qal_date_get(int out[6]);

/** Forms of qal_date_get_string(). Every number but 0 stands for the long one. */
enum {
  QAL_DATE_SHORT = 0, /**< "HH:MM:SS" */
  QAL_DATE_LONG = 1   /**< "MM:DD HH:MM:SS", where January is month 00 and December 11 */
};

/** Writes the local date and time as text.
 *
 *  @param dst        receives the text and its terminator: 15 bytes in the long form, 9 in the
 *                    short one; caller-owned.
 *  @param long_form  one of the forms above.
 *  @return the number of characters written: 14 in the long form, 8 in the short one. */
QAL_API int qal_date_get_string(char *dst, int long_form);

/** Hands out the next timer, with its sum at 0.
 *
 *  Numbers run from 0 to 1022, and a timer cannot be given back. Its start is left as it is.
 *
 *  @param id  receives the number; caller-owned; untouched when all timers are handed out, which
 *             is reported. */
QAL_API void qal_timer_new(int *id);

/** Starts a timer, or starts it again.
 *
 *  @param id  a number that qal_timer_new() gave; one outside the table is ignored. */
QAL_API void qal_timer_start(const int *id);

/** Adds the time since a timer was started to its sum.
 *
 *  The start stays, so another stop adds the time since the same start once more. A timer that was
 *  never started counts from the epoch.
 *
 *  @param id  a number that was handed out; any other is reported. */
QAL_API void qal_timer_stop(const int *id);

/** Sets the sum of a timer to 0; its start stays.
 *
 *  @param id  any number of the table, 0 to 1023, handed out or not; any other is reported, with
 *             the text of qal_timer_stop(). */
QAL_API void qal_timer_clear(const int *id);

/** Prints the sum of a timer, in single precision, with qal_info(): a tab, "time: %f" and a line
 *  end.
 *
 *  @param id  a number that was handed out; any other is reported. */
QAL_API void qal_timer_print(const int *id);

/** Returns the sum of a timer.
 *
 *  @param id  a number that qal_timer_new() gave.
 *  @return the sum in seconds; 0 for a number outside the table. */
QAL_API float qal_timer_elapsed(const int *id);

#ifdef __cplusplus
}
#endif

#endif

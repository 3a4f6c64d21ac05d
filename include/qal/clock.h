/** @file
 *  The wall clock, the local date and time, and a table of stopwatches.
 *
 *  The clock is the platform's time of day: it may be set, also backwards, and the figures here
 *  follow it. Dates are local time; the time zone is read anew for each call. The clock functions
 *  cannot fail and any thread may call them, provided no other thread changes the environment.
 *
 *  The stopwatches ("timers") add up the running time of a phase of work. The table holds
 *  QAL_MAX_TIMERS entries for the whole process and is not locked: hand timers out from one thread
 *  and use each from one thread at a time. A start or stop is one reading of the clock and one
 *  access to the table. Timers take their number by address, and the address must not be null.
 *  Mistakes are reported through qal_error and in no other way.
 *
 *  Source: utils/libsrc/qal_time.cpp. */
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
 *  @return the seconds in full: unlike those of qal_time_get they are not cut to 32 bits. */
QAL_API double qal_time_get_s(void);

/** Reads the local date and time as numbers.
 *
 *  @param out  receives year (four digits), month (1 to 12), day of the month, hour (0 to 23),
 *              minute and second, in this order; caller-owned.
 *  @return the second, as stored last. */
QAL_API int qal_date_get(int out[6]);

/** Writes the local date and time as text.
 *
 *  @param dst        receives the text; at least 15 bytes for the long form and 9 for the short,
 *                    which is not checked.
 *  @param long_form  0: "HH:MM:SS". Any other value: "MM:DD HH:MM:SS", where the month counts from
 *                    0 as the platform's does, so that January is 00 and December 11.
 *  @return the number of characters written. */
QAL_API int qal_date_get_string(char *dst, int long_form);

/** Hands out the next timer, with its sum at 0.
 *
 *  Numbers count from 0 to 1022 and are never returned. The timer's start is left as it is.
 *
 *  @param id  receives the number; untouched when all timers are handed out, which is reported. */
QAL_API void qal_timer_new(int *id);

/** Records the current time as the timer's start.
 *
 *  @param id  a number that qal_timer_new gave; one outside the table is ignored. */
QAL_API void qal_timer_start(const int *id);

/** Adds the time since the timer's start to its sum.
 *
 *  The start stays: a second stop adds again from the same start, and a stop without a start adds
 *  the time since the epoch.
 *
 *  @param id  a number that was handed out; any other is reported. */
QAL_API void qal_timer_stop(const int *id);

/** Sets the timer's sum to 0.
 *
 *  @param id  any number of the table, 0 to 1023, handed out or not; any other is reported, in the
 *             words of qal_timer_stop. */
QAL_API void qal_timer_clear(const int *id);

/** Prints the timer's sum through qal_info as "\ttime: %f\n", in single precision.
 *
 *  @param id  a number that was handed out; any other is reported. */
QAL_API void qal_timer_print(const int *id);

/** Gives the timer's sum.
 *
 *  @param id  a number that qal_timer_new gave.
 *  @return the sum in seconds; 0 for a number outside the table. */
QAL_API float qal_timer_elapsed(const int *id);

#ifdef __cplusplus
}
#endif

#endif

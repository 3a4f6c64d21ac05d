/** @file
 *  Barriers, and reductions that combine one value of every thread of a group.
 *
 *  A barrier holds its threads until all of them have arrived, and can be used again at once. A
 *  reduction needs no set-up: every thread of a group calls the same operation with the same number
 *  of threads and gets the combined value back. One group at a time uses an operation; the
 *  operations are independent of one another, and the next group may have another size.
 *
 *  Threads: what a thread wrote before it arrived is visible to every thread of the group
 *  afterwards.
 *
 *  Source: utils/libsrc/qal_barrier.cpp, qal_reduce.cpp. */
#ifndef QAL_BARRIER_H
#define QAL_BARRIER_H

#include <qal/export.h>
#include <qal/thread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A barrier. The fields are for debuggers; use the functions. */
typedef struct QalThreadBarrier {
  uint32_t count;          /**< threads in the group; 0 until the next arrival sets it */
  uint32_t remaining;      /**< arrivals that this cycle still waits for */
  uint32_t phase;          /**< 0 or 1, flipped by the last arrival of each cycle */
  uint32_t magic;          /**< 0xABCD while the barrier is valid, all bits set once destroyed */
  QalThreadMutex mutex;    /**< guards the counts */
  QalThreadCond condition; /**< wakes those that wait */
} QalThreadBarrier;

/** Results of the functions of a barrier. */
enum {
  QAL_THREAD_BARRIER_FAILED = -1, /**< the call failed */
  QAL_THREAD_BARRIER_OK = 0,      /**< the call succeeded */
  QAL_THREAD_BARRIER_LAST = 1     /**< this thread was the last of its cycle to arrive */
};

/** Makes a barrier. The first arrival sets its size.
 *
 *  @param b  caller-owned; receives the barrier, whatever it held before. Null fails.
 *  @return QAL_THREAD_BARRIER_OK; QAL_THREAD_BARRIER_FAILED for null, and when the mutex or the
 *          condition cannot be made: nothing is left behind then, and `b` holds no barrier. */
QAL_API int qal_thread_barrier_init(QalThreadBarrier *b);

/** Lets the next arrival set the size anew. Call it only while no thread is at the barrier.
 *
 *  @param b  the barrier; null is ignored. */
QAL_API void qal_thread_barrier_reinit(QalThreadBarrier *b);

/** Ends a barrier that no thread is at.
 *
 *  @param b  the barrier, whose memory stays the caller's.
 *  @return QAL_THREAD_BARRIER_OK, after which arriving at it and ending it fail until
 *          qal_thread_barrier_init() makes it again; QAL_THREAD_BARRIER_FAILED when it is null or
 *          not valid, with nothing changed. */
QAL_API int qal_thread_barrier_destroy(QalThreadBarrier *b);

/** Waits until as many threads have arrived as the barrier's size says.
 *
 *  @param b  the barrier.
 *  @param n  the size, at least 1, if no arrival has set it yet; else it is ignored.
 *  @return QAL_THREAD_BARRIER_LAST in the last thread to arrive, QAL_THREAD_BARRIER_OK in the
 *          others; QAL_THREAD_BARRIER_FAILED when the barrier is null or not valid, when the
 *          platform fails, and for an `n` of 0 that would set the size.
 *  @note A waiting thread cannot be cancelled. It spins and yields for a moment before it
 *        sleeps. */
QAL_API int qal_thread_barrier(QalThreadBarrier *b, unsigned n);

/** @name Reductions
 *
 *  A thread that cannot lock an operation's mutex reports it with qal_error() and returns at once;
 *  the rest of its group then waits for ever. A thread for which the platform cannot make or hold
 *  the barriers goes on alone, unreported: its result may lack what others add later. */
/**@{*/

/** Finds the largest value of the group. A NaN counts only if it arrives first: it is the result
 *  then.
 *
 *  @param x         the calling thread's value.
 *  @param nthreads  threads in the group, the same in every thread; below 1 counts as 1.
 *  @return the largest value, in every thread of the group; 0 when the mutex cannot be locked. */
QAL_API double qal_thread_reduce_dmax(double x, int nthreads);

/** Finds the smallest value of the group. A NaN counts only if it arrives first: it is the result
 *  then.
 *
 *  @param x         the calling thread's value.
 *  @param nthreads  threads in the group, the same in every thread; below 1 counts as 1.
 *  @return the smallest value, in every thread of the group; 0 when the mutex cannot be locked. */
QAL_API double qal_thread_reduce_dmin(double x, int nthreads);

/** Adds up the values of the group, in the order of arrival: the last bits of the sum may differ
 *  from run to run.
 *
 *  @param x         the calling thread's value.
 *  @param nthreads  threads in the group, the same in every thread; below 1 counts as 1.
 *  @return the sum, in every thread of the group; 0 when the mutex cannot be locked. */
QAL_API double qal_thread_global_dsum(double x, int nthreads);

/** Adds up the integers of the group, wrapping around at 32 bits.
 *
 *  @param x         the calling thread's value.
 *  @param nthreads  threads in the group, the same in every thread; below 1 counts as 1.
 *  @return the sum, in every thread of the group; 0 when the mutex cannot be locked. */
QAL_API int qal_thread_global_isum(int x, int nthreads);

/** Adds up arrays element by element, in the order of arrival.
 *
 *  @param in        the calling thread's array of `count` elements; borrowed. Null is allowed when
 *                   `count` is below 1.
 *  @param out       the group's one array, shared by all its threads: the first `count` elements
 *                   receive the sums. It may not overlap any `in`. Null is allowed when `count` is
 *                   below 1. When the mutex cannot be locked it lacks this thread's elements. The
 *                   first thread that adds into it again overwrites the sums: all must have read
 *                   them by then, which a barrier between the two calls ensures.
 *  @param count     elements, the same in every thread; with 0 or less nothing is added, but the
 *                   threads still wait for one another.
 *  @param nthreads  threads in the group, the same in every thread; below 1 counts as 1. */
QAL_API void qal_thread_global_dsums(const double *in, double *out, int count, int nthreads);

/** Adds up arrays of integers element by element, wrapping around at 32 bits.
 *
 *  @param in        as for qal_thread_global_dsums().
 *  @param out       as for qal_thread_global_dsums().
 *  @param count     as for qal_thread_global_dsums().
 *  @param nthreads  as for qal_thread_global_dsums(). */
QAL_API void qal_thread_global_isums(const int *in, int *out, int count, int nthreads);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif

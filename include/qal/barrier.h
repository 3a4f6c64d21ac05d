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

/** A result of qal_thread_barrier. */
enum {
  QAL_THREAD_BARRIER_LAST = 1 /**< this thread was the last of its cycle to arrive */
};

/** Makes a barrier. The first arrival sets its size.
 *  @return 0, or -1 when the mutex or the condition cannot be made; nothing is then left behind. */
QAL_API int qal_thread_barrier_init(QalThreadBarrier *b);

/** Lets the next arrival set the size anew. Call it only while no thread is at the barrier. Null is
 *  ignored. */
QAL_API void qal_thread_barrier_reinit(QalThreadBarrier *b);

/** Ends a barrier that no thread is at.
 *  @return 0, or -1 when it is null or not valid. Every later call on it returns -1. */
QAL_API int qal_thread_barrier_destroy(QalThreadBarrier *b);

/** Waits until as many threads have arrived as the barrier's size says.
 *
 *  @param n the size, at least 1, if no arrival has set it yet; else it is ignored.
 *  @return QAL_THREAD_BARRIER_LAST in the last thread to arrive, 0 in the others; -1 when the
 *          barrier is null or not valid, when the platform fails, and for an `n` of 0 that would
 *          set the size.
 *  @note A waiting thread cannot be cancelled. It spins and yields for a moment before it
 *        sleeps. */
QAL_API int qal_thread_barrier(QalThreadBarrier *b, unsigned n);

/** @name Reductions
 *
 *  @param nthreads threads in the group; below 1 counts as 1.
 *
 *  A thread that cannot lock an operation's mutex reports it with qal_error and returns 0 at once;
 *  the rest of its group then waits for ever. */
/**@{*/

/** The largest `x` of the group. */
QAL_API double qal_thread_reduce_dmax(double x, int nthreads);
/** The smallest `x` of the group. */
QAL_API double qal_thread_reduce_dmin(double x, int nthreads);
/** The sum of all `x`, added in the order of arrival: its last bits may differ from run to run. */
QAL_API double qal_thread_global_dsum(double x, int nthreads);
/** The sum of all `x`, wrapping around at 32 bits. */
QAL_API int qal_thread_global_isum(int x, int nthreads);

/** Sums arrays element by element, each thread bringing its own `in`.
 *
 *  @param out   the group's one array, shared by all its threads: the first `count` elements
 *               receive the sums. It may not overlap any `in`.
 *  @param count elements, the same in every thread; with 0 or less nothing is summed, but the
 *               threads still wait for one another. */
QAL_API void qal_thread_global_dsums(const double *in, double *out, int count, int nthreads);
/** The same for integers, wrapping around at 32 bits. */
QAL_API void qal_thread_global_isums(const int *in, int *out, int count, int nthreads);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif

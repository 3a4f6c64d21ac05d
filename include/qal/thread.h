/** @file
 *  Threads with small numbers, keys, mutexes, condition variables and counting semaphores.
 *
 *  A thin layer over POSIX threads. Every thread that qal_thread_create starts gets an index from 1
 *  to 2047, its slot in a fixed table; the main thread is index 0. Indices are handed out in rising
 *  order and wrap around; a joined thread's index comes back only when the search reaches it again.
 *  Every thread that is started must be joined: nothing else frees its slot. Threads that something
 *  else started have index 0 too, so they must not use pools, lists, tables or ids.
 *
 *  Errors: results are 0 for success and -1 for failure unless a function says otherwise. A null
 *  pointer gives -1 and changes nothing. When the platform fails a lock, unlock, wait, signal,
 *  broadcast or semaphore operation, qal_stop_here (logger.h) is called before -1 is returned: set
 *  a breakpoint there.
 *
 *  Threads: qal_utils_init (startup.h) sets the layer up. Mutexes, conditions and semaphores may be
 *  used before that; everything else may be called by any thread afterwards.
 *
 *  Source: utils/libsrc/qal_thread.cpp, qal_thread_init_sys.cpp, qal_thread_sync.cpp,
 *  qal_thread_sema.cpp. */
#ifndef QAL_THREAD_H
#define QAL_THREAD_H

#include <pthread.h>
#include <qal/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef pthread_mutex_t QalThreadMutex; /**< a mutex */
typedef pthread_cond_t QalThreadCond;   /**< a condition variable */
typedef pthread_key_t QalThreadKey;     /**< a key of thread-specific values */
typedef pthread_t QalThreadHandle;      /**< the platform's name of a thread */

/** What a thread runs; its result is kept for the thread that joins it. */
typedef int (*QalThreadRoutine)(void *argument);

/** A counting semaphore. The fields are for debuggers; use the functions. */
typedef struct QalThreadSema {
  int32_t count;           /**< permits left; below zero, how many threads are owed one */
  int32_t waiters;         /**< threads blocked in qal_thread_sema_wait */
  QalThreadMutex mutex;    /**< guards the counts */
  QalThreadCond condition; /**< wakes the waiters */
} QalThreadSema;

/** @name Start-up and identity */
/**@{*/

/** Sets the thread table up and makes the calling thread the main thread, index 0.
 *
 *  For the start-up of a process, while no other thread runs. Threads that were started before lose
 *  their index; they can still be joined as long as it is not handed out again.
 *  @return 0, or what qal_thread_init_sys returned when that is not 0; the index key is then not
 *          made and no thread should be created. */
QAL_API int qal_thread_init(void);

/** The platform's part of qal_thread_init. On the platforms of today it does nothing.
 *  @return 0. */
QAL_API int qal_thread_init_sys(void);

/** Takes a hint at how many threads will run at once, and ignores it.
 *  @return 0. */
QAL_API int qal_thread_setconcurrency(int level);

/** The calling thread's index: 0 in the main thread, and in every thread that this layer did not
 *  start. Such threads must not use what is kept for each index, above all the memory pools. */
QAL_API int qal_thread_self(void);

/** The same as qal_thread_self. */
QAL_API int qal_thread_index(void);
/**@}*/

/** @name Life of a thread */
/**@{*/

/** Claims a slot and starts a thread with a stack of 2 MiB.
 *
 *  @param index_out receives the thread's index, also when the platform could not start it: that
 *         slot stays claimed until it is joined. Untouched when all 2048 slots are taken.
 *  @param routine   what to run; a null routine makes a thread that ends at once.
 *  @param argument  handed to the routine as it is.
 *  @return 0, or -1 when no slot is free or the platform cannot start a thread.
 *  @note The routine begins only after the index has been stored. What the caller wrote before is
 *        visible to it. */
QAL_API int qal_thread_create(int *index_out, QalThreadRoutine routine, void *argument);

/** Waits for a thread to end and frees its slot.
 *
 *  @param index      the thread's index, by address.
 *  @param result_out null, or receives the routine's result: -1 when it was cancelled or could not
 *                    be started, 0 when the index was never handed out.
 *  @return 0; or -1 for an index outside the table, and for a slot without a thread to wait for:
 *          the result is still stored and the slot freed, except slot 0, the main thread's.
 *  @note One thread joins an index, once. What the thread wrote before its end is visible to the
 *        caller afterwards. */
QAL_API int qal_thread_join(const int *index, int *result_out);

/** Asks for the cancellation of a thread, which takes effect as on the platform. The thread must
 *  still be joined.
 *
 *  @return 0, or -1 for an index outside the table or a slot without a thread. */
QAL_API int qal_thread_cancel(const int *index);

/** The platform call behind qal_thread_create: a thread that runs qal_thread_start_void with
 *  `index` as its argument. No slot is claimed.
 *  @param handle_out receives the thread's handle; untouched on failure. */
QAL_API int qal_thread_create_sys(QalThreadHandle *handle_out, int index);
/** The platform call behind qal_thread_join. */
QAL_API int qal_thread_join_sys(QalThreadHandle handle);
/** The platform call behind qal_thread_cancel. */
QAL_API int qal_thread_cancel_sys(QalThreadHandle handle);

/** What a new thread runs first: takes `index`, a pointer-sized integer, as the calling thread's
 *  index, then runs the routine of that slot and keeps its result.
 *
 *  @return null; at once when the index is outside the table or its slot has no routine. The
 *          thread's index is set in any case. */
QAL_API void *qal_thread_start_void(void *index);
/** The same as qal_thread_start_void. */
QAL_API void *qal_thread_start_int(void *index);
/**@}*/

/** @name Thread-specific values */
/**@{*/

/** Makes a key under which every thread keeps a value of its own, null at first. Nothing is called
 *  for the value when a thread ends. */
QAL_API int qal_thread_key_create(QalThreadKey *key_out);
/** Sets the calling thread's value.
 *  @return the platform's result as it is: 0 or an error number. */
QAL_API int qal_thread_setspecific(QalThreadKey key, const void *value);
/** The calling thread's value. */
QAL_API void *qal_thread_getspecific(QalThreadKey key);
/**@}*/

/** @name Mutexes
 *  Not recursive; unlocked by the thread that locked them. */
/**@{*/

/** A result of qal_thread_mutex_trylock. */
enum {
  QAL_THREAD_BUSY = 1 /**< a thread holds the mutex, perhaps the caller itself */
};

/** Makes a mutex. */
QAL_API int qal_thread_mutex_init(QalThreadMutex *m);
/** Ends a mutex that no thread holds. */
QAL_API int qal_thread_mutex_destroy(QalThreadMutex *m);
/** Locks the mutex, waiting until it is free. */
QAL_API int qal_thread_mutex_lock(QalThreadMutex *m);
/** Locks the mutex if it is free.
 *  @return 0 with the mutex locked, QAL_THREAD_BUSY, or -1 on failure. */
QAL_API int qal_thread_mutex_trylock(QalThreadMutex *m);
/** Unlocks the mutex. */
QAL_API int qal_thread_mutex_unlock(QalThreadMutex *m);
/**@}*/

/** @name Condition variables
 *  A wait may also end without a signal: test what is waited for in a loop. */
/**@{*/

/** A result of qal_thread_cond_timedwait. */
enum {
  QAL_THREAD_TIMED_OUT = 99 /**< the time has passed */
};

/** Makes a condition variable. */
QAL_API int qal_thread_cond_init(QalThreadCond *c);
/** Ends a condition variable that no thread waits for. */
QAL_API int qal_thread_cond_destroy(QalThreadCond *c);
/** Wakes every waiting thread. */
QAL_API int qal_thread_cond_broadcast(QalThreadCond *c);
/** Wakes one waiting thread, if there is any. */
QAL_API int qal_thread_cond_signal(QalThreadCond *c);
/** Waits for a signal: unlocks the mutex meanwhile and holds it again when it returns.
 *  Cancellation point. */
QAL_API int qal_thread_cond_wait(QalThreadCond *c, QalThreadMutex *m);
/** Waits until a signal, or until so many seconds of the wall clock (qal_time_get) have passed. The
 *  mutex is held again in any case. Cancellation point.
 *
 *  @param seconds not a number counts as 0. A whole part beyond 32 bits is clamped to them. A
 *         negative time lies in the past.
 *  @return 0 when woken, QAL_THREAD_TIMED_OUT, or -1 on failure. It also fails when the deadline's
 *          nanoseconds come to exactly 10^9, which are not carried into the seconds, and when a
 *          negative time makes them negative. */
QAL_API int qal_thread_cond_timedwait(QalThreadCond *c, QalThreadMutex *m, float seconds);
/**@}*/

/** @name Counting semaphores
 *
 *  The waiters of a semaphore pass together: with k threads blocked, the first k - 1 releases wake
 *  none of them, and the k-th lets all k pass. A thread that starts to wait between that release
 *  and the passing of the last waiter joins the group, and the whole group then waits for one more
 *  release. So two threads that take turns without a pause can block each other; where threads
 *  compete for permits, use a mutex and a condition variable. */
/**@{*/

/** Makes a semaphore with `initial` permits; a negative number is a debt that releases pay first.
 *  @return 0, or -1 when the mutex or the condition cannot be made; nothing is then left behind. */
QAL_API int qal_thread_sema_init(QalThreadSema *s, int initial);
/** Ends a semaphore that no thread uses any more. Failures of the platform are ignored. */
QAL_API int qal_thread_sema_destroy(QalThreadSema *s);
/** Takes a permit, waiting for one if there is none. Cancellation point: a cancelled wait gives up
 *  its place, and the others pass if they now may. */
QAL_API int qal_thread_sema_wait(QalThreadSema *s);
/** Adds a permit. */
QAL_API int qal_thread_sema_release(QalThreadSema *s);
/** Starts over with `value` permits, without locking: for a semaphore that no thread uses.
 *  @return 0. */
QAL_API int qal_thread_sema_reset(QalThreadSema *s, int value);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif

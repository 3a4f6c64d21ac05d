/** @file
 *  Threads with small numbers, keys, mutexes, condition variables and counting semaphores.
 *
 *  A thin layer over POSIX threads. Every thread that qal_thread_create() starts gets an index from
 *  1 to 2047, its slot in a fixed table; the main thread is index 0. Indices are handed out in
 *  rising order and wrap around; a joined thread's index comes back only when the search reaches it
 *  again. Every thread that is started must be joined: nothing else frees its slot.
 *
 *  A thread that something else started, such as a std::thread, a pthread or a thread of another
 *  library, has index 0 too. Two threads of one index that use a pool at the same time corrupt it,
 *  directly or through lists and tables: both take the same elements. Often nothing crashes at
 *  first, and the program seems to work. So start the thread with qal_thread_create(), or have a
 *  thread started so, or the main thread, do its work with pools, lists and tables. Where neither
 *  is possible, one lock around every use of them by any thread is enough: no two threads are then
 *  in a pool at once. Everything else is as thread-safe for such a thread as for any other.
 *
 *  Errors: a null pointer gives QAL_THREAD_FAILED and changes nothing, unless its function allows
 *  it. When the platform's lock, unlock, wait, signal or broadcast fails, also inside a semaphore's
 *  wait or release, qal_stop_here() (logger.h) is called before QAL_THREAD_FAILED is returned: set
 *  a breakpoint there.
 *
 *  Threads: qal_utils_init() (startup.h) sets the layer up. Mutexes, conditions and semaphores may
 *  be used before that. Afterwards any thread may call any function, with these exceptions:
 *  qal_thread_init() is for the start-up; an index or a handle is joined by one thread, once, and
 *  not cancelled afterwards; no thread may use an object that another makes, ends or resets.
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

/** Results that the functions of this header share. */
enum {
  QAL_THREAD_OK = 0,     /**< success */
  QAL_THREAD_FAILED = -1 /**< a null pointer, no room, or a failure of the platform */
};

/** What a thread runs.
 *
 *  @param argument  what qal_thread_create() was given.
 *  @return any number, kept for the thread that joins this one. */
typedef int (*QalThreadRoutine)(void *argument);

/** A counting semaphore. The fields are for debuggers; use the functions. */
typedef struct QalThreadSema {
  int32_t count;           /**< permits left; below zero, how many releases are missing */
  int32_t waiters;         /**< threads blocked in qal_thread_sema_wait() */
  QalThreadMutex mutex;    /**< guards the counts */
  QalThreadCond condition; /**< wakes the waiters */
} QalThreadSema;

/** @name Start-up and identity */
/**@{*/

/** Sets the thread table up and makes the calling thread the main thread, index 0.
 *
 *  For the start-up of a process, while no other thread runs. Threads that were started before lose
 *  their index; they can still be joined as long as it is not handed out again, with 0 for a result
 *  if they have already returned.
 *
 *  @return QAL_THREAD_OK, also when the platform has no key left for the indices: after a first
 *          start every thread then has index 0, after a further one the old key stays. A status of
 *          qal_thread_init_sys() other than QAL_THREAD_OK is passed on: no key is made then, and no
 *          thread should be created. */
QAL_API int qal_thread_init(void);

/** Does the platform's part of qal_thread_init(): on the platforms of today nothing. A program that
 *  links the static library may have a function of its own in its place.
 *
 *  @return QAL_THREAD_OK, always. */
QAL_API int qal_thread_init_sys(void);

/** Takes a hint at how many threads will run at once, and ignores it.
 *
 *  @param level  any number.
 *  @return QAL_THREAD_OK, always. */
QAL_API int qal_thread_setconcurrency(int level);

/** The index of the main thread. */
enum {
  QAL_THREAD_MAIN_INDEX = 0 /**< also of every thread that this layer did not start */
};

/** Returns the calling thread's index.
 *
 *  @return 1 to 2047 in a thread of qal_thread_create(); in one of qal_thread_create_sys() the
 *          number that it was started with; in any other QAL_THREAD_MAIN_INDEX. A thread that has
 *          this index without being the main thread must not use pools: it corrupts them. */
QAL_API int qal_thread_self(void);

/** Returns the calling thread's index: the same as qal_thread_self().
 *
 *  @return the result of qal_thread_self(). */
QAL_API int qal_thread_index(void);
/**@}*/

/** @name Life of a thread */
/**@{*/

/** What qal_thread_join() stores instead of a routine's result. */
enum {
  QAL_THREAD_NO_RESULT = -1 /**< the routine was not run, or not run to its end */
};

/** Claims a slot and starts a thread with a stack of 2 MiB.
 *
 *  @param index_out  receives the thread's index, also when the platform could not start it: that
 *                    slot stays claimed until it is joined. Untouched when all 2048 slots are
 *                    taken.
 *  @param routine    what to run; a null routine makes a thread that ends at once.
 *  @param argument   handed to the routine as it is; stays the caller's. May be null.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `index_out` is null, no slot is free or the
 *          platform cannot start a thread.
 *  @note The routine begins only after the index has been stored. What the caller wrote before is
 *        visible to it. */
QAL_API int qal_thread_create(int *index_out, QalThreadRoutine routine, void *argument);

/** Waits for a thread to end and frees its slot.
 *
 *  @param index       the index of another thread, by address; borrowed.
 *  @param result_out  null, or receives the routine's result: QAL_THREAD_NO_RESULT when it was
 *                     cancelled, was null or could not be started, and for the main thread's
 *                     index; 0 when the index was never handed out.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED for a null `index` or one outside the table, with
 *          nothing stored, and for a slot without a thread to wait for: the result is still stored
 *          and the slot freed, except slot 0, the main thread's. The same holds when the platform
 *          fails.
 *  @note One thread joins an index, once. What the thread wrote before its end is visible to the
 *        caller afterwards. A thread that is cancelled while it waits here has freed nothing: the
 *        index can still be joined. */
QAL_API int qal_thread_join(const int *index, int *result_out);

/** Asks for the cancellation of a thread, which takes effect as on the platform. The thread must
 *  still be joined.
 *
 *  @param index  the thread's index, by address; borrowed.
 *  @return QAL_THREAD_OK, which does not say that the thread has ended; or QAL_THREAD_FAILED for a
 *          null `index` or one outside the table, for a slot without a thread, and when the
 *          platform fails. */
QAL_API int qal_thread_cancel(const int *index);

/** Starts a platform thread for qal_thread_create(): one with a stack of 2 MiB that runs
 *  qal_thread_start_void() with `index`. Programs call qal_thread_create(), because here no slot is
 *  claimed: a thread runs the routine that its slot has at the time.
 *
 *  @param handle_out  receives the thread's handle, which only qal_thread_join_sys() releases;
 *                     untouched on failure.
 *  @param index       the index that the thread is to have. Any number is taken, but with one
 *                     outside the table, or whose slot has no routine, the thread ends at once.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `handle_out` is null or the platform cannot
 *          start a thread. */
QAL_API int qal_thread_create_sys(QalThreadHandle *handle_out, int index);

/** Waits for a platform thread to end, for qal_thread_join(). No slot is freed and the routine's
 *  result is not returned.
 *
 *  @param handle  what qal_thread_create_sys() stored; not joined before, and invalid afterwards.
 *  @return QAL_THREAD_OK, or QAL_THREAD_FAILED when the platform fails to join it. */
QAL_API int qal_thread_join_sys(QalThreadHandle handle);

/** Asks for the cancellation of a platform thread, for qal_thread_cancel(). It must still be
 *  joined.
 *
 *  @param handle  what qal_thread_create_sys() stored; not joined yet.
 *  @return QAL_THREAD_OK, or QAL_THREAD_FAILED when the platform fails to cancel it. */
QAL_API int qal_thread_cancel_sys(QalThreadHandle handle);

/** What a new thread runs first: takes its index, then runs the routine of that slot and keeps the
 *  routine's result there.
 *
 *  @param index  the index for the calling thread, an integer in the place of a pointer. It is
 *                taken even when it is outside the table.
 *  @return null; at once when the index is outside the table or its slot has no routine. */
QAL_API void *qal_thread_start_void(void *index);

/** The same as qal_thread_start_void().
 *
 *  @param index  as for qal_thread_start_void().
 *  @return null. */
QAL_API void *qal_thread_start_int(void *index);
/**@}*/

/** @name Thread-specific values */
/**@{*/

/** Makes a key under which every thread keeps a value of its own, null at first.
 *
 *  The value stays the caller's: nothing is called for it when a thread ends. A key is for good, as
 *  no function here gives it back, and a process has few of them: 1024 with the GNU C library, 512
 *  on macOS.
 *
 *  @param key_out  receives the key; meaningless after a failure.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `key_out` is null, when the platform has no key
 *          left and when memory is short. */
QAL_API int qal_thread_key_create(QalThreadKey *key_out);

/** Sets the calling thread's value.
 *
 *  @param key    a key of qal_thread_key_create().
 *  @param value  the value, which may be null; kept as it is and not owned.
 *  @return the result of the platform's pthread_setspecific(): 0, or an error number with the value
 *          as it was. */
QAL_API int qal_thread_setspecific(QalThreadKey key, const void *value);

/** Returns the calling thread's value.
 *
 *  @param key  a key of qal_thread_key_create().
 *  @return the value that this thread set last; null when it has set none. */
QAL_API void *qal_thread_getspecific(QalThreadKey key);
/**@}*/

/** @name Mutexes
 *  Not recursive; unlocked by the thread that locked them. */
/**@{*/

/** A result of qal_thread_mutex_trylock(). */
enum {
  QAL_THREAD_BUSY = 1 /**< a thread holds the mutex, perhaps the caller itself */
};

/** Makes a mutex that no thread holds.
 *
 *  @param m  the caller's room for it, not a mutex in use; it may not be copied or moved
 *            afterwards.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `m` is null or the platform fails: there is
 *          then no mutex. */
QAL_API int qal_thread_mutex_init(QalThreadMutex *m);

/** Ends a mutex that no thread holds.
 *
 *  @param m  the mutex.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `m` is null or the platform fails, as some do
 *          while a thread holds the mutex. */
QAL_API int qal_thread_mutex_destroy(QalThreadMutex *m);

/** Locks a mutex, waiting until it is free; for ever, when the caller holds it itself.
 *
 *  @param m  the mutex.
 *  @return QAL_THREAD_OK with the mutex locked; or QAL_THREAD_FAILED when `m` is null or the
 *          platform fails: the mutex is then not locked. */
QAL_API int qal_thread_mutex_lock(QalThreadMutex *m);

/** Locks a mutex if it is free.
 *
 *  @param m  the mutex.
 *  @return QAL_THREAD_OK with the mutex locked; QAL_THREAD_BUSY when it is not free; or
 *          QAL_THREAD_FAILED when `m` is null or the platform fails. */
QAL_API int qal_thread_mutex_trylock(QalThreadMutex *m);

/** Unlocks a mutex that the caller holds.
 *
 *  @param m  the mutex.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `m` is null or the platform fails. */
QAL_API int qal_thread_mutex_unlock(QalThreadMutex *m);
/**@}*/

/** @name Condition variables
 *  A wait may also end without a signal: test what is waited for in a loop. */
/**@{*/

/** A result of qal_thread_cond_timedwait(). */
enum {
  QAL_THREAD_TIMED_OUT = 99 /**< the time has passed */
};

/** Makes a condition variable.
 *
 *  @param c  the caller's room for it, not one in use; it may not be copied or moved afterwards.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `c` is null or the platform fails: there is
 *          then no condition variable. */
QAL_API int qal_thread_cond_init(QalThreadCond *c);

/** Ends a condition variable that no thread waits for.
 *
 *  @param c  the condition variable.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `c` is null or the platform fails. */
QAL_API int qal_thread_cond_destroy(QalThreadCond *c);

/** Wakes every waiting thread.
 *
 *  @param c  the condition variable.
 *  @return QAL_THREAD_OK, also when no thread waits; or QAL_THREAD_FAILED when `c` is null or the
 *          platform fails. */
QAL_API int qal_thread_cond_broadcast(QalThreadCond *c);

/** Wakes one waiting thread, if there is any.
 *
 *  @param c  the condition variable.
 *  @return QAL_THREAD_OK, also when no thread waits; or QAL_THREAD_FAILED when `c` is null or the
 *          platform fails. */
QAL_API int qal_thread_cond_signal(QalThreadCond *c);

/** Waits for a signal. Cancellation point.
 *
 *  @param c  the condition variable.
 *  @param m  a mutex that the caller holds: unlocked during the wait and held again afterwards,
 *            also when the wait is cancelled.
 *  @return QAL_THREAD_OK when woken; or QAL_THREAD_FAILED when `c` or `m` is null or the platform
 *          fails. */
QAL_API int qal_thread_cond_wait(QalThreadCond *c, QalThreadMutex *m);

/** Waits for a signal, but only so many seconds of the wall clock (qal_time_get()). From 2038 on,
 *  when that clock's seconds no longer fit, every wait times out at once. Cancellation point.
 *
 *  @param c        the condition variable.
 *  @param m        a mutex that the caller holds: unlocked during the wait and held again
 *                  afterwards in any case.
 *  @param seconds  how long. Not a number counts as 0; a whole part that does not fit 32 bits is
 *                  the nearest that does. A negative time lies in the past.
 *  @return QAL_THREAD_OK when woken; QAL_THREAD_TIMED_OUT; or QAL_THREAD_FAILED when `c` or `m` is
 *          null or the platform fails. Linux also refuses a deadline whose nanoseconds come to
 *          exactly 10^9, which are not carried into the seconds, or are negative because
 *          `seconds` is. */
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

/** Makes a semaphore.
 *
 *  @param s        the caller's room for it, not one in use; it may not be copied or moved
 *                  afterwards.
 *  @param initial  permits at first; a negative number is a debt that releases pay first.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `s` is null and when the mutex or the condition
 *          cannot be made: nothing is then left behind. */
QAL_API int qal_thread_sema_init(QalThreadSema *s, int initial);

/** Ends a semaphore that no thread uses any more.
 *
 *  @param s  the semaphore.
 *  @return QAL_THREAD_OK, also when the platform fails; or QAL_THREAD_FAILED when `s` is null. */
QAL_API int qal_thread_sema_destroy(QalThreadSema *s);

/** Takes a permit, waiting for one if there is none. Cancellation point: a cancelled wait gives up
 *  its place, and the others pass if they now may.
 *
 *  @param s  the semaphore.
 *  @return QAL_THREAD_OK with a permit taken; or QAL_THREAD_FAILED when `s` is null, when the mutex
 *          cannot be locked, and when the platform fails after that: the permit then counts as
 *          taken. */
QAL_API int qal_thread_sema_wait(QalThreadSema *s);

/** Adds a permit.
 *
 *  @param s  the semaphore. Beyond 32 bits the number of permits wraps around.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `s` is null, when the mutex cannot be locked,
 *          and when the platform fails after that: the permit is then added, but may have woken
 *          nobody. */
QAL_API int qal_thread_sema_release(QalThreadSema *s);

/** Starts over, without locking: for a semaphore that no thread uses.
 *
 *  @param s      the semaphore.
 *  @param value  permits; a negative number is a debt that releases pay first.
 *  @return QAL_THREAD_OK; or QAL_THREAD_FAILED when `s` is null. */
QAL_API int qal_thread_sema_reset(QalThreadSema *s, int value);
/**@}*/

#ifdef __cplusplus
}
#endif

#endif

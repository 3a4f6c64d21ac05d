/** @file
 *  A pool of elements of one size.
 *
 *  Elements are carved from chunks, and chunks are given back only when the pool ends. Each thread
 *  index (thread.h) has a free list of its own, from which it allocates without a lock; freed
 *  elements go to one shared list, from which the thread lists are refilled a chunk's worth at a
 *  time. Elements are aligned to 8 bytes and not cleared.
 *
 *  qal_utils_init() (startup.h) comes first, because it gives threads their indices: without it
 *  every thread has index 0, and only one may use pools.
 *
 *  Threads: the main thread and those of qal_thread_create() may use one pool at once. A
 *  std::thread, a pthread or a thread of another library must not use pools: it shares index 0 with
 *  the main thread, and two threads of one index corrupt a pool, often without an immediate crash.
 *  thread.h says what to do instead.
 *
 *  Source: utils/libsrc/qal_mpool.cpp, and utils/libsrc/internal/pool_fast_path.hpp, where an
 *  element usually comes from. */
#ifndef QAL_MPOOL_H
#define QAL_MPOOL_H

#include <qal/export.h>
#include <qal/thread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A pool. The fields are for debuggers; use the functions. */
typedef struct QalMpool {
  uint32_t element_size;   /**< bytes per element, at least 16, a multiple of 8 */
  uint32_t chunk_count;    /**< elements per chunk */
  void *thread_free[2048]; /**< each thread index's own free list */
  QalThreadMutex lock;     /**< guards the fields below */
  void *shared_free;       /**< the free list that freed elements go to */
  int32_t shared_count;    /**< elements on it */
  void *chunks;            /**< every chunk, the newest first */
} QalMpool;

/** Makes an empty pool.
 *
 *  @param element_size  bytes per element, raised to at least 16 and to a multiple of 8.
 *  @param chunk_count   elements to carve at a time. With 0, or when they would need 4 GiB or
 *                       more, the pool is made but every allocation from it returns null.
 *  @return the pool, which qal_mpool_destroy() takes back; null without memory or when the raised
 *          size does not fit 32 bits. */
QAL_API QalMpool *qal_mpool_create(uint32_t element_size, uint32_t chunk_count);

/** Ends a pool and all its elements, also those in use. No other thread may use the pool then.
 *
 *  @param pool_address  address of the caller's handle, which becomes null; null, and the address
 *                       of a null handle, are ignored. */
QAL_API void qal_mpool_destroy(QalMpool **pool_address);

/** Takes an element.
 *
 *  @param pool  the pool.
 *  @return the element, which is the caller's until it goes back or the pool ends; null for a null
 *          pool, on a thread whose index is outside the table (reported with qal_error()), for a
 *          pool that cannot have chunks, and without memory.
 *  @warning When there is no memory for a chunk, the pool's lock stays held: threads that free to
 *           the pool or refill from it afterwards wait for ever. A pool that cannot have chunks
 *           (see qal_mpool_create()) gives null without a message and without holding the lock. */
QAL_API void *qal_mpool_alloc(QalMpool *pool);

/** Results of qal_mpool_free(). */
enum {
  QAL_MPOOL_FAILED = -1, /**< the call failed */
  QAL_MPOOL_OK = 0       /**< the element is back in the pool */
};

/** Gives an element back.
 *
 *  @param pool     the pool.
 *  @param element  taken from this pool and not given back since; this is not checked, see
 *                  qal_mpool_verify_ptr().
 *  @return QAL_MPOOL_OK; QAL_MPOOL_FAILED for a null pool or element, with nothing done, and when
 *          the pool's mutex cannot be unlocked: the element is back in the pool then. */
QAL_API int qal_mpool_free(QalMpool *pool, void *element);

/** Says whether an address lies anywhere in one of the pool's chunks. For diagnosis: takes no lock,
 *  so no other thread may use the pool meanwhile.
 *
 *  @param pool     the pool.
 *  @param address  any address, null included; nothing is read there.
 *  @return 1 when it lies in a chunk; 0 when not, and for a null pool. */
QAL_API int qal_mpool_verify_ptr(QalMpool *pool, const void *address);

/** Counts the pool's elements. Takes no lock: call it while no other thread uses the pool.
 *
 *  @param pool       the pool; null counts as one without elements.
 *  @param total_out  receives the number of all elements; may be null.
 *  @param free_out   receives the number of free elements; may be null.
 *  @return the number of free elements. */
QAL_API uint32_t qal_mpool_status(QalMpool *pool, uint32_t *total_out, uint32_t *free_out);

/** A hook for a check that this build does not have: does nothing. */
QAL_API void qal_mpool_check_corruption(void);

/** A hook for a check that this build does not have: does nothing. */
QAL_API void qal_mpool_debug(void);

#ifdef __cplusplus
}
#endif

#endif

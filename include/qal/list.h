/** @file
 *  Pooled lists, doubly linked, whose elements hold the caller's data inline.
 *
 *  An element is a payload of fixed size with two hidden links in front of it; every function takes
 *  and returns payload addresses. Elements come from a list pool, which any number of lists can
 *  share; while it has free ones, nothing is allocated from the system. Payloads start on an 8-byte
 *  boundary and are not cleared.
 *
 *  Linking, unlinking and sorting cannot fail. They do nothing when an argument is null. An
 *  element is in one list at most: what is linked in must be fresh, popped or removed.
 *
 *  qal_utils_init() (startup.h) comes first, because it gives threads the indices by which they
 *  share a pool: without it only one thread may use lists.
 *
 *  Errors: when there was no memory for a chunk, the lock of its pool stays held (mpool.h). A call
 *  that gives an element or a pooled header back to that pool then waits for ever, and so does one
 *  that needs a new one when its thread has none left. Destroying a list gives both back.
 *
 *  Threads: a list is used by one thread at a time; the main thread and those of
 *  qal_thread_create() (thread.h) may use lists of one pool at once. A std::thread, a pthread or a
 *  thread of another library must not use lists: it shares index 0 with the main thread, and two
 *  threads of one index corrupt the pool, often without an immediate crash. thread.h says what to
 *  do instead.
 *
 *  Source: utils/libsrc/qal_list.cpp, qal_list_inline.c. */
#ifndef QAL_LIST_H
#define QAL_LIST_H

#include <qal/export.h>
#include <qal/mpool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Where lists and their elements come from. */
typedef struct QalListPool {
  uint32_t element_size;   /**< payload bytes per element */
  uint32_t chunk_count;    /**< elements carved at a time */
  QalMpool *element_pool;  /**< of links and payload together */
  int32_t use_header_pool; /**< not 0: headers come from header_pool, else from qal_malloc() */
  QalMpool *header_pool;   /**< of list headers, or null */
} QalListPool;

/** A list. Both ends are null exactly when it is empty. */
typedef struct QalList {
  QalListPool *pool; /**< where its elements come from */
  void *first;       /**< the first payload */
  void *last;        /**< the last payload */
} QalList;

/** Compares two payloads of a list. It may neither change nor walk the list, and gets no context:
 *  what else decides the order is in the payloads or in a variable that it can reach.
 *
 *  @param earlier  the payload that stands earlier; borrowed.
 *  @param later    the payload that stands later; borrowed.
 *  @return above 0 when `earlier` belongs after `later`; else they keep their order. */
typedef int (*QalListCompare)(const void *earlier, const void *later);

/** Makes a list pool.
 *
 *  @param element_size     payload bytes, 0 allowed; with the links, and raised to a multiple of 8,
 *                          it must fit 32 bits.
 *  @param chunk_count      elements to carve at a time; with 0, or when they would need 4 GiB or
 *                          more, no element can be made.
 *  @param use_header_pool  not 0: list headers are pooled as well, 20 at a time.
 *  @return the pool, which qal_list_pool_destroy() takes back; null without memory or when the size
 *          does not fit: nothing is then left behind. */
QAL_API QalListPool *qal_list_pool_create(uint32_t element_size, uint32_t chunk_count,
                                          int32_t use_header_pool);

/** Ends a pool. Its elements become invalid, and so do lists with pooled headers; lists with other
 *  headers must have been destroyed.
 *
 *  @param pool_address  address of the caller's handle, which becomes null; null, and the address
 *                       of a null handle, are ignored. */
QAL_API void qal_list_pool_destroy(QalListPool **pool_address);

/** Makes an empty list.
 *
 *  @param pool  where the list and its elements come from; it must outlive the list.
 *  @return the list, which qal_list_destroy() takes back; null for a null pool, without memory, and
 *          where qal_mpool_alloc() gives null for a pooled header. */
QAL_API QalList *qal_list_create(QalListPool *pool);

/** Gives a list and its elements back.
 *
 *  @param list_address  address of the caller's handle; null, and the address of a null handle, are
 *                       ignored. The handle becomes null if the header was not pooled; for a pooled
 *                       header it keeps the old address, and the caller clears it. */
QAL_API void qal_list_destroy(QalList **list_address);

/** Takes a fresh element from a list's pool, without linking it in.
 *
 *  @param list  the list.
 *  @return the payload, as from qal_list_alloc2(); null also for a null list. */
QAL_API void *qal_list_alloc(QalList *list);

/** Takes a fresh element from a pool.
 *
 *  @param pool  the pool.
 *  @return the payload, which is the caller's until it is linked in or given back; null for a null
 *          pool, and where qal_mpool_alloc() gives null. */
QAL_API void *qal_list_alloc2(QalListPool *pool);

/** Gives an element that is in no list back to the pool of a list.
 *
 *  @param list     the list; null does nothing.
 *  @param payload  an element of that pool; null is ignored. */
QAL_API void qal_list_free(QalList *list, void *payload);

/** Gives an element that is in no list back to its pool.
 *
 *  @param pool     the pool; null does nothing.
 *  @param payload  an element of that pool; null is ignored. */
QAL_API void qal_list_free2(QalListPool *pool, void *payload);

/** Returns the first payload of a list.
 *
 *  @param list  the list.
 *  @return the payload, which stays in the list; null for an empty or a null list. */
QAL_API inline void *qal_list_first(const QalList *list) { return list ? list->first : NULL; }

/** Returns the last payload of a list.
 *
 *  @param list  the list.
 *  @return the payload, which stays in the list; null for an empty or a null list. */
QAL_API inline void *qal_list_last(const QalList *list) { return list ? list->last : NULL; }

/** Returns the payload behind another. In front of a payload are the addresses of the elements
 *  before and behind it, and an element begins with these links.
 *
 *  @param payload  an element.
 *  @return the next payload of its list; null for the last one, for an element in no list and for a
 *          null payload. */
QAL_API inline void *qal_list_next(const void *payload) {
  char *next = NULL;
  if (payload) memcpy(&next, (const char *)payload - sizeof next, sizeof next);
  return next ? next + 2 * sizeof next : NULL;
}

/** Returns the payload before another.
 *
 *  @param payload  an element.
 *  @return the payload before it in its list; null for the first one, for an element in no list and
 *          for a null payload. */
QAL_API inline void *qal_list_prev(const void *payload) {
  char *prev = NULL;
  if (payload) memcpy(&prev, (const char *)payload - 2 * sizeof prev, sizeof prev);
  return prev ? prev + 2 * sizeof prev : NULL;
}

/** Links an element in before all others.
 *
 *  @param list     the list.
 *  @param payload  an element of its pool that is in no list; it is the list's from then on. */
QAL_API void qal_list_prepend(QalList *list, void *payload);

/** Links an element in behind all others.
 *
 *  @param list     the list.
 *  @param payload  as for qal_list_prepend(). */
QAL_API void qal_list_append(QalList *list, void *payload);

/** Links an element in behind another.
 *
 *  @param list     the list.
 *  @param at       an element of the list.
 *  @param payload  as for qal_list_prepend(). */
QAL_API void qal_list_insert_after(QalList *list, void *at, void *payload);

/** Links an element in before another.
 *
 *  @param list     the list.
 *  @param at       an element of the list.
 *  @param payload  as for qal_list_prepend(). */
QAL_API void qal_list_insert_before(QalList *list, void *at, void *payload);

/** Unlinks an element.
 *
 *  @param list     the list.
 *  @param payload  an element of the list (not checked); it is the caller's from then on. */
QAL_API void qal_list_remove(QalList *list, void *payload);

/** Unlinks the first element.
 *
 *  @param list  the list.
 *  @return its payload, which is the caller's from then on; null for an empty or a null list. */
QAL_API void *qal_list_pop(QalList *list);

/** Moves all elements of a list behind those of another.
 *
 *  @param dst  the list that receives them.
 *  @param src  a list of the same pool, empty afterwards. With `dst` itself nothing changes. */
QAL_API void qal_list_concat(QalList *dst, QalList *src);

/** Counts the elements, one after the other.
 *
 *  @param list  the list.
 *  @return how many there are; 0 for a null list. */
QAL_API uint32_t qal_list_length(const QalList *list);

/** Sorts a pooled list in place with a stable merge sort, in at most n log n comparisons: payloads
 *  that compare as equal keep their order.
 *
 *  @param list     the list.
 *  @param compare  the order; null leaves the list as it is. */
QAL_API void qal_list_sort(QalList *list, QalListCompare compare);

#ifdef __cplusplus
}
#endif

#endif

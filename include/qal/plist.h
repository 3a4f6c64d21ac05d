/** @file
 *  Pooled lists of pointers, doubly linked; headers and nodes come from two process-wide pools.
 *
 *  A list never owns what its nodes point to. qal_utils_init() (startup.h) comes first, because it
 *  makes the pools and gives threads the indices by which they share them; qal_utils_done() ends
 *  the pools. Without pools no list or node can be made.
 *
 *  Linking cannot fail. It does nothing when an argument is null. A node is in one list at most:
 *  what is linked in must come from qal_plist_alloc(), qal_plist_pop() or qal_plist_remove().
 *
 *  Errors: when there was no memory for a chunk, the lock of its pool stays held (mpool.h). A call
 *  that gives a node or a list header back to that pool then waits for ever, and so does one that
 *  needs a new one when its thread has none left. Destroying a list gives both back.
 *
 *  Threads: a list is used by one thread at a time; the main thread and those of
 *  qal_thread_create() (thread.h) may use lists of their own at once. A std::thread, a pthread or a
 *  thread of another library must not use lists: it shares index 0 with the main thread, and two
 *  threads of one index corrupt the pools, often without an immediate crash. thread.h says what to
 *  do instead. The pools are made and ended while no thread uses lists.
 *
 *  Source: utils/libsrc/qal_plist.cpp, and qal_list_inline.c for the accessors. */
#ifndef QAL_PLIST_H
#define QAL_PLIST_H

#include <qal/export.h>
#include <qal/status.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A node. */
typedef struct QalPlistNode {
  struct QalPlistNode *prev; /**< the node before it, or null */
  struct QalPlistNode *next; /**< the node behind it, or null */
  void *data;                /**< the caller's to read and to set */
} QalPlistNode;

/** A list. Both ends are null exactly when it is empty. */
typedef struct QalPlist {
  QalPlistNode *first; /**< the first node */
  QalPlistNode *last;  /**< the last node */
} QalPlist;

/** Compares the `data` of two nodes. It may neither change nor walk the list, and gets no context:
 *  what else decides the order is in the data or in a variable that it can reach.
 *
 *  @param earlier  the `data` of the node that stands earlier.
 *  @param later    the `data` of the node that stands later.
 *  @return above 0 when `earlier` belongs after `later`; any other number leaves their order. */
typedef int (*QalPlistCompare)(const void *earlier, const void *later);

/** Makes the two pools. Pools that exist already are abandoned, not freed.
 *
 *  @param header_chunk  list headers that the first pool carves at a time. With 0, or when they
 *                       would need 4 GiB or more, no list can be made.
 *  @param node_chunk    nodes that the second pool carves at a time. With 0, or when they would
 *                       need 4 GiB or more, no node can be made.
 *  @return QAL_STATUS_OK; or QAL_STATUS_NO_MEMORY, when there are no pools. */
QAL_API int qal_plist_pool_create(uint32_t header_chunk, uint32_t node_chunk);

/** Ends the two pools; every list and node becomes invalid at once.
 *
 *  @return QAL_STATUS_OK, also when there are no pools. */
QAL_API int qal_plist_pool_destroy(void);

/** Makes an empty list.
 *
 *  @return the list, to be given back with qal_plist_destroy(); null where qal_mpool_alloc()
 *          gives null, and without pools. */
QAL_API QalPlist *qal_plist_create(void);

/** Gives a list and its nodes back. What the nodes point to is not touched.
 *
 *  @param list_address  the address of the caller's handle, which becomes null. A null address or
 *                       handle does nothing. */
QAL_API void qal_plist_destroy(QalPlist **list_address);

/** Makes a node.
 *
 *  @return the node, its fields null, to be linked into a list or given back with
 *          qal_plist_free(); null where qal_mpool_alloc() gives null, and without pools. */
QAL_API QalPlistNode *qal_plist_alloc(void);

/** Gives a node that is in no list back.
 *
 *  @param node_address  the address of the caller's handle, which becomes null. A null address or
 *                       handle does nothing. */
QAL_API void qal_plist_free(QalPlistNode **node_address);

/** Returns the first node of a list.
 *
 *  @param list  the list, or null.
 *  @return the node, still in the list; null when the list is empty or null. */
QAL_API inline QalPlistNode *qal_plist_first(const QalPlist *list) {
  return list ? list->first : NULL;
}

/** Returns the last node of a list.
 *
 *  @param list  the list, or null.
 *  @return the node, still in the list; null when the list is empty or null. */
QAL_API inline QalPlistNode *qal_plist_last(const QalPlist *list) {
  return list ? list->last : NULL;
}

/** Returns the node behind another.
 *
 *  @param node  the node, or null.
 *  @return the next node; null behind the last one and for null. */
QAL_API inline QalPlistNode *qal_plist_next(const QalPlistNode *node) {
  return node ? node->next : NULL;
}

/** Returns the node before another.
 *
 *  @param node  the node, or null.
 *  @return the node before it; null before the first one and for null. */
QAL_API inline QalPlistNode *qal_plist_prev(const QalPlistNode *node) {
  return node ? node->prev : NULL;
}

/** Links a node in before all others.
 *
 *  @param list  the list.
 *  @param node  a node that is in no list; the list's from then on. */
QAL_API void qal_plist_prepend(QalPlist *list, QalPlistNode *node);

/** Links a node in behind all others.
 *
 *  @param list  the list.
 *  @param node  a node that is in no list; the list's from then on. */
QAL_API void qal_plist_append(QalPlist *list, QalPlistNode *node);

/** Links a node in behind another.
 *
 *  @param list  the list.
 *  @param at    a node of the list.
 *  @param node  a node that is in no list; the list's from then on. */
QAL_API void qal_plist_insert_after(QalPlist *list, QalPlistNode *at, QalPlistNode *node);

/** Links a node in before another.
 *
 *  @param list  the list.
 *  @param at    a node of the list.
 *  @param node  a node that is in no list; the list's from then on. */
QAL_API void qal_plist_insert_before(QalPlist *list, QalPlistNode *at, QalPlistNode *node);

/** Unlinks a node.
 *
 *  @param list  the list.
 *  @param node  a node of the list; the caller's from then on, its links null and its `data` as it
 *               was. */
QAL_API void qal_plist_remove(QalPlist *list, QalPlistNode *node);

/** Unlinks the first node.
 *
 *  @param list  the list.
 *  @return the node, the caller's from then on, its links null and its `data` as it was; null when
 *          the list is empty or null. */
QAL_API QalPlistNode *qal_plist_pop(QalPlist *list);

/** Moves all nodes of a list behind those of another. A list joined to itself stays as it is.
 *
 *  @param dst  the list that receives the nodes.
 *  @param src  the list that loses them: empty afterwards, and still to be destroyed. */
QAL_API void qal_plist_concat(QalPlist *dst, QalPlist *src);

/** Counts the nodes, walking the list.
 *
 *  @param list  the list, or null.
 *  @return their number; 0 for null. */
QAL_API uint32_t qal_plist_length(const QalPlist *list);

/** Sorts a pooled list of pointers in place with a stable merge sort, in at most n log n
 *  comparisons: nodes that compare as equal keep their order.
 *
 *  @param list     the list.
 *  @param compare  orders two nodes by their `data`. */
QAL_API void qal_plist_sort(QalPlist *list, QalPlistCompare compare);

#ifdef __cplusplus
}
#endif

#endif

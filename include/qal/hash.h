/** @file
 *  Tables of records of fixed size, each a key and its data, and the same keyed by unordered pairs
 *  of integers.
 *
 *  QalHash does not hash: the caller picks the slot of a key, from 0 to num_slots - 1, and gives it
 *  to every call. A slot keeps its records in the order in which they were added, and the key is
 *  compared with one after the other, so a large table needs many slots. Keys are not unique: a
 *  record is added beside one with an equal key. All records of a table come from one list pool
 *  (list.h), so adding and removing allocate from the system only when the pool needs a new chunk.
 *  QalHashPairs picks its slots itself.
 *
 *  Keys and data are copied byte by byte and need no alignment. A record's data follows its key
 *  directly, so a callback reads what it is given with memcpy.
 *
 *  qal_utils_init() (startup.h) comes first, because it gives threads the indices that the pools of
 *  tables go by: without it only one thread may use tables.
 *
 *  Errors: when there was no memory for a chunk, the lock of its pool stays held (list.h). A call
 *  that gives a record or a list header back to that pool then waits for ever, and so does one that
 *  needs a new one when its thread has none left. A slot takes a header with its first record;
 *  reinitialising or destroying a table gives back all headers and records.
 *
 *  Threads: the main thread and those of qal_thread_create() (thread.h) may use different tables at
 *  once; threads that share a table need a lock of their own. A std::thread, a pthread or a thread
 *  of another library must not use tables: it shares index 0 with the main thread, and two threads
 *  of one index corrupt a table's pool, often without an immediate crash. thread.h says what to do
 *  instead.
 *
 *  Source: utils/libsrc/qal_hash.cpp, qal_hash_pairs.cpp. */
#ifndef QAL_HASH_H
#define QAL_HASH_H

#include <qal/export.h>
#include <qal/list.h>
#include <qal/status.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A table. */
typedef struct QalHash {
  int32_t num_slots;       /**< at least 1, fixed */
  int32_t chunk_count;     /**< records carved at a time */
  int32_t key_size;        /**< bytes */
  int32_t data_size;       /**< bytes */
  uint32_t remove_on_find; /**< not 0: finding a record removes it */
  QalList **slots;         /**< each null until its first record */
  QalListPool *pool;       /**< where the records come from */
} QalHash;

/** Verdicts of a QalHashMergeFunc. */
enum {
  QAL_HASH_REMOVE = 0, /**< removes the record from `dst` */
  QAL_HASH_KEEP = 1,   /**< leaves the record in `dst` as it is, as every other number does */
  QAL_HASH_REPLACE = 2 /**< gives the record in `dst` the source's data */
};

/** Decides what becomes of a key that both tables of a merge have. The source's record is dropped
 *  whatever the verdict. The callback may use neither table.
 *
 *  @param dst_key   the key, borrowed.
 *  @param dst_data  the data in `dst`, borrowed; may be changed in place.
 *  @param src_data  the data in `src`, borrowed; may be changed before QAL_HASH_REPLACE copies it.
 *  @param user      what was passed to qal_hash_merge().
 *  @return one of the verdicts. */
typedef int (*QalHashMergeFunc)(const void *dst_key, void *dst_data, void *src_data, void *user);

/** Makes a table.
 *
 *  @param num_slots       slots, at least 1.
 *  @param chunk_count     records to carve at a time, at least 1.
 *  @param key_size        bytes per key; with 0 every record of a slot matches every key.
 *  @param data_size       bytes of data per record, 0 allowed.
 *  @param remove_on_find  not 0: qal_hash_find() removes what it finds.
 *  @return the table, which qal_hash_destroy() takes back; null for an argument out of range, when
 *          a record is too large for qal_list_pool_create(), and without memory. Nothing is then
 *          left behind. */
QAL_API QalHash *qal_hash_create(int32_t num_slots, int32_t chunk_count, int32_t key_size,
                                 int32_t data_size, uint32_t remove_on_find);

/** Ends a table with its records.
 *
 *  @param table_address  address of the caller's handle, which becomes null; null, and the address
 *                        of a null handle, are ignored. */
QAL_API void qal_hash_destroy(QalHash **table_address);

/** Removes every record. Their memory stays with the table for the next ones.
 *
 *  @param table  the table; null is ignored. */
QAL_API void qal_hash_reinit(QalHash *table);

/** Adds a record behind the others of its slot.
 *
 *  @param table  the table.
 *  @param slot   the key's slot, from 0 to `num_slots` - 1.
 *  @param key    `key_size` bytes, which are copied; may be null when there are none.
 *  @param data   `data_size` bytes, which are copied; may be null when there are none.
 *  @return QAL_STATUS_OK, also for a null table; QAL_STATUS_NO_MEMORY, also on a thread whose index
 *          is outside the table of threads; QAL_STATUS_INVALID for a slot out of range, and for a
 *          key or data that is null though it has a size. On failure no record was added. */
QAL_API int qal_hash_add(QalHash *table, int32_t slot, const void *key, const void *data);

/** Results of qal_hash_find(). */
enum {
  QAL_HASH_NOT_FOUND = 0, /**< no such record */
  QAL_HASH_FOUND = 1      /**< the record is there */
};

/** Finds the first record of the slot with that key.
 *
 *  @param table     the table.
 *  @param slot      the key's slot, from 0 to `num_slots` - 1.
 *  @param key       `key_size` bytes, borrowed; may be null when there are none.
 *  @param data_out  receives the `data_size` bytes of the record; caller-owned, may be null.
 *                   Untouched if no record is found.
 *  @return QAL_HASH_FOUND; QAL_HASH_NOT_FOUND, also for a null table, a slot out of range and a key
 *          that is null though it has a size. */
QAL_API int qal_hash_find(QalHash *table, int32_t slot, const void *key, void *data_out);

/** Removes the first record of the slot with that key.
 *
 *  @param table     the table.
 *  @param slot      as for qal_hash_find().
 *  @param key       as for qal_hash_find().
 *  @param data_out  as for qal_hash_find().
 *  @return QAL_STATUS_OK, also for a null table; QAL_STATUS_INVALID when there is no such record,
 *          for a slot out of range and for a key that is null though it has a size. */
QAL_API int qal_hash_remove(QalHash *table, int32_t slot, const void *key, void *data_out);

/** Moves every record of a table into another, slot by slot.
 *
 *  A slot of `dst` that has no list takes all records as they are, equal keys included. Any other
 *  slot, even one whose list is empty, takes a record if it does not hold the key yet; what this
 *  merge has put there counts too. `callback` decides about the other records, and without one they
 *  are dropped. A record for which there is no memory is lost, and the merge may wait for ever at
 *  a later one (see Errors).
 *
 *  @param dst       the table that receives the records.
 *  @param src       the table that gives them, empty afterwards.
 *  @param callback  what decides about a key that both tables have, or null.
 *  @param user      handed to the callback; may be null.
 *  @return QAL_STATUS_OK, also for a table merged with itself, which changes nothing;
 *          QAL_STATUS_INVALID, with nothing changed, when a table is null or the numbers of slots,
 *          key sizes or data sizes differ. */
QAL_API int qal_hash_merge(QalHash *dst, QalHash *src, QalHashMergeFunc callback, void *user);

/** Prints the keys of a slot to standard error in hexadecimal, for debugging.
 *
 *  @param table  the table; null prints nothing.
 *  @param slot   the slot; one out of range prints nothing. */
QAL_API void qal_hash_slot_traverse(QalHash *table, int32_t slot);

/** A table keyed by unordered pairs of integers: (a, b) and (b, a) are one key. */
typedef struct QalHashPairs {
  int32_t num_slots;       /**< at least 1, fixed */
  int32_t chunk_count;     /**< records carved at a time */
  int32_t key_size;        /**< 8 */
  int32_t data_size;       /**< bytes */
  uint32_t remove_on_find; /**< not 0: finding a record removes it */
  QalHash *table;          /**< keyed by the smaller integer, then the larger */
} QalHashPairs;

/** Makes a table of pairs. Pairs with the same mean share a slot.
 *
 *  @param num_slots       slots, at least 1.
 *  @param chunk_count     records to carve at a time, at least 1.
 *  @param data_size       bytes of data per record, 0 allowed.
 *  @param remove_on_find  not 0: qal_hash_pairs_find() removes what it finds.
 *  @return the table, which qal_hash_pairs_destroy() takes back; null where qal_hash_create()
 *          returns null. */
QAL_API QalHashPairs *qal_hash_pairs_create(int32_t num_slots, int32_t chunk_count,
                                            int32_t data_size, uint32_t remove_on_find);

/** Ends a table of pairs with its records.
 *
 *  @param pairs_address  address of the caller's handle, which becomes null; null, and the address
 *                        of a null handle, are ignored. */
QAL_API void qal_hash_pairs_destroy(QalHashPairs **pairs_address);

/** Removes every record. Their memory stays with the table for the next ones.
 *
 *  @param pairs  the table; null is ignored. */
QAL_API void qal_hash_pairs_reinit(QalHashPairs *pairs);

/** Adds a record for a pair behind the others of its slot.
 *
 *  @param pairs  the table.
 *  @param a      one integer of the pair.
 *  @param b      the other integer.
 *  @param data   `data_size` bytes, which are copied; may be null when there are none.
 *  @return as qal_hash_add(). */
QAL_API int qal_hash_pairs_add(QalHashPairs *pairs, int32_t a, int32_t b, const void *data);

/** Finds the first record of a pair.
 *
 *  @param pairs     the table.
 *  @param a         one integer of the pair.
 *  @param b         the other integer.
 *  @param data_out  as for qal_hash_find().
 *  @return QAL_HASH_FOUND; QAL_HASH_NOT_FOUND, also for a null table. */
QAL_API int qal_hash_pairs_find(QalHashPairs *pairs, int32_t a, int32_t b, void *data_out);

/** Removes the first record of a pair.
 *
 *  @param pairs     the table.
 *  @param a         one integer of the pair.
 *  @param b         the other integer.
 *  @param data_out  as for qal_hash_find().
 *  @return QAL_STATUS_OK, also for a null table; QAL_STATUS_INVALID when there is no such record.
 */
QAL_API int qal_hash_pairs_remove(QalHashPairs *pairs, int32_t a, int32_t b, void *data_out);

#ifdef __cplusplus
}
#endif

#endif

/** @file
 *  Tables of records of fixed size, each a key and its data, and the same keyed by unordered pairs
 *  of integers.
 *
 *  QalHash does not hash: the caller picks the slot of a key, from 0 to num_slots - 1, and gives it
 *  to every call. Within a slot records stand in the order in which they were added and are found
 *  by comparing key bytes, so look-ups are linear there; choose the number of slots for the load.
 *  Keys are not unique: a record is added beside one with an equal key. All records of a table come
 *  from one list pool (list.h), so adding and removing costs nothing from the system once it has
 *  chunks. QalHashPairs picks its slots itself.
 *
 *  Keys and data are copied byte by byte and may be unaligned on both sides; a record's data
 *  follows its key at once, so read what a callback is given with memcpy.
 *
 *  Threads: distinct tables may be used by different threads at once; one table needs a lock of its
 *  user's.
 *
 *  Source: utils/libsrc/qal_hash.cpp, qal_hash_pairs.cpp. */
#ifndef QAL_HASH_H
#define QAL_HASH_H

#include <qal/export.h>
#include <qal/list.h>
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

/** Decides what becomes of a key that both tables of a merge have: 2 gives the record in `dst` the
 *  source's data, 0 removes the record from `dst`, anything else leaves it. The source's record
 *  goes in every case. */
typedef int (*QalHashMergeFunc)(const void *dst_key, void *dst_data, void *src_data, void *user);

/** Makes a table.
 *
 *  @param num_slots      slots, at least 1.
 *  @param chunk_count    records to carve at a time, at least 1.
 *  @param key_size       bytes per key; with 0 every record of a slot matches every key.
 *  @param data_size      bytes of data per record, 0 allowed.
 *  @param remove_on_find not 0: qal_hash_find removes what it finds.
 *  @return the table; or null for an argument out of range, for records that do not fit 32 bits
 *          with their links, and without memory. Nothing is then left behind. */
QAL_API QalHash *qal_hash_create(int32_t num_slots, int32_t chunk_count, int32_t key_size,
                                 int32_t data_size, uint32_t remove_on_find);
/** Ends a table with its records and sets the caller's handle to null. */
QAL_API void qal_hash_destroy(QalHash **table_address);
/** Removes every record. Their memory stays with the table for the next ones. */
QAL_API void qal_hash_reinit(QalHash *table);

/** Adds a record behind the others of its slot.
 *  @return 0, also for a null table; 2 without memory; 6 for a slot out of range, and for a key or
 *          data that is null though it has a size. On failure no record was added. */
QAL_API int qal_hash_add(QalHash *table, int32_t slot, const void *key, const void *data);

/** Finds the first record of the slot with that key.
 *  @param data_out receives the record's data; null, or untouched if there is none.
 *  @return 1 found; 0 not found, no table or slot out of range. */
QAL_API int qal_hash_find(QalHash *table, int32_t slot, const void *key, void *data_out);

/** Removes the first record of the slot with that key.
 *  @param data_out as for qal_hash_find.
 *  @return 0 removed, or no table; 6 for a slot out of range or no such record. */
QAL_API int qal_hash_remove(QalHash *table, int32_t slot, const void *key, void *data_out);

/** Moves every record of `src` into `dst`, slot by slot; `src` is empty afterwards.
 *
 *  Into a slot for which `dst` has no list, all records go as they are, equal keys included. Into
 *  any other slot, an empty list included, a record goes if its key is not there yet, counting
 *  records that this merge has put there; `callback` decides about the others, and without one they
 *  are dropped. Records for which there is no memory are lost.
 *
 *  @param callback null, or what decides about a key that both have.
 *  @param user     handed to the callback.
 *  @return 0, also for a table merged with itself, which changes nothing; 6 when a table is null or
 *          their slots, key sizes or data sizes differ. */
QAL_API int qal_hash_merge(QalHash *dst, QalHash *src, QalHashMergeFunc callback, void *user);

/** Prints the keys of a slot to standard error in hexadecimal, for debugging. Nothing for a null
 *  table or a slot out of range. */
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

/** Makes a table of pairs; as qal_hash_create, without a key size. Pairs with the same mean share a
 *  slot. */
QAL_API QalHashPairs *qal_hash_pairs_create(int32_t num_slots, int32_t chunk_count,
                                            int32_t data_size, uint32_t remove_on_find);
/** Ends a table of pairs and sets the caller's handle to null. */
QAL_API void qal_hash_pairs_destroy(QalHashPairs **pairs_address);
/** Removes every record. */
QAL_API void qal_hash_pairs_reinit(QalHashPairs *pairs);
/** As qal_hash_add for the pair of `a` and `b`; 0 for a null table, as those that follow. */
QAL_API int qal_hash_pairs_add(QalHashPairs *pairs, int32_t a, int32_t b, const void *data);
/** As qal_hash_find for the pair of `a` and `b`. */
QAL_API int qal_hash_pairs_find(QalHashPairs *pairs, int32_t a, int32_t b, void *data_out);
/** As qal_hash_remove for the pair of `a` and `b`. */
QAL_API int qal_hash_pairs_remove(QalHashPairs *pairs, int32_t a, int32_t b, void *data_out);

#ifdef __cplusplus
}
#endif

#endif

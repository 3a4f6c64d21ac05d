/* The layouts that programs of the family rely on: where each field of a public record lies. They
   are compiled as C11 here and as C++17 from layouts.cpp. */
#include <assert.h>
#include <stddef.h>

#include <qal/qal.h>

#define AT(record, field, place) \
  static_assert(offsetof(record, field) == (place), "place of " #record "." #field)
#define SIZE(record, bytes) static_assert(sizeof(record) == (bytes), "size of " #record)

AT(QalMpool, element_size, 0);
AT(QalMpool, chunk_count, 4);
AT(QalMpool, thread_free, 8);
AT(QalMpool, lock, 8 + 2048 * 8);
AT(QalMpool, shared_free, 8 + 2048 * 8 + sizeof(QalThreadMutex));
AT(QalMpool, shared_count, 16 + 2048 * 8 + sizeof(QalThreadMutex));
AT(QalMpool, chunks, 24 + 2048 * 8 + sizeof(QalThreadMutex));
SIZE(QalMpool, 32 + 2048 * 8 + sizeof(QalThreadMutex));

AT(QalPlist, first, 0);
AT(QalPlist, last, 8);
SIZE(QalPlist, 16);

AT(QalPlistNode, prev, 0);
AT(QalPlistNode, next, 8);
AT(QalPlistNode, data, 16);
SIZE(QalPlistNode, 24);

AT(QalListPool, element_size, 0);
AT(QalListPool, chunk_count, 4);
AT(QalListPool, element_pool, 8);
AT(QalListPool, use_header_pool, 16);
AT(QalListPool, header_pool, 24);
SIZE(QalListPool, 32);

AT(QalList, pool, 0);
AT(QalList, first, 8);
AT(QalList, last, 16);
SIZE(QalList, 24);

AT(QalHash, num_slots, 0);
AT(QalHash, chunk_count, 4);
AT(QalHash, key_size, 8);
AT(QalHash, data_size, 12);
AT(QalHash, remove_on_find, 16);
AT(QalHash, slots, 24);
AT(QalHash, pool, 32);
SIZE(QalHash, 40);

AT(QalHashPairs, num_slots, 0);
AT(QalHashPairs, chunk_count, 4);
AT(QalHashPairs, key_size, 8);
AT(QalHashPairs, data_size, 12);
AT(QalHashPairs, remove_on_find, 16);
AT(QalHashPairs, table, 24);
SIZE(QalHashPairs, 32);

AT(QalTempSegment, size, 0);
AT(QalTempSegment, requested, 8);
AT(QalTempSegment, mptr, 16);
AT(QalTempSegment, next, 24);
SIZE(QalTempSegment, 32);

AT(QalTime, seconds, 0);
AT(QalTime, microseconds, 4);
SIZE(QalTime, 8);

AT(QalStat, access_time, 0);
AT(QalStat, change_time, 8);
AT(QalStat, modification_time, 16);
AT(QalStat, inode, 24);
AT(QalStat, group_id, 32);
AT(QalStat, user_id, 36);
AT(QalStat, device, 40);
AT(QalStat, mode, 44);
AT(QalStat, link_count, 48);
AT(QalStat, special_device, 52);
AT(QalStat, size, 56);
SIZE(QalStat, 64);

AT(QalThreadSema, count, 0);
AT(QalThreadSema, waiters, 4);
AT(QalThreadSema, mutex, 8);
AT(QalThreadSema, condition, 8 + sizeof(QalThreadMutex));
SIZE(QalThreadSema, 8 + sizeof(QalThreadMutex) + sizeof(QalThreadCond));

AT(QalThreadBarrier, count, 0);
AT(QalThreadBarrier, remaining, 4);
AT(QalThreadBarrier, phase, 8);
AT(QalThreadBarrier, magic, 12);
AT(QalThreadBarrier, mutex, 16);
AT(QalThreadBarrier, condition, 16 + sizeof(QalThreadMutex));
SIZE(QalThreadBarrier, 16 + sizeof(QalThreadMutex) + sizeof(QalThreadCond));

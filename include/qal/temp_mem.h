/** @file
 *  Scratch memory that is kept after use: for code that needs a large work buffer again and again.
 *
 *  A block is handed out by qal_temp_mem_alloc and given back with qal_temp_mem_release, which
 *  keeps it; only the three free functions return memory to the system. A new block has at least
 *  100 bytes. An idle one is handed out whole, however small the request, unless it is larger than
 *  1,000,000 bytes and more than four times the request.
 *
 *  Every call walks a list, so the cost grows with the number of blocks: keep them few and large.
 *
 *  Threads: nothing is locked. The functions and both lists belong to one thread at a time.
 *
 *  Source: utils/libsrc/qal_temp_mem.cpp. */
#ifndef QAL_TEMP_MEM_H
#define QAL_TEMP_MEM_H

#include <qal/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The record of one block, a member of either list. */
typedef struct QalTempSegment {
  int64_t size;                /**< bytes that the block has */
  int64_t requested;           /**< bytes that the caller last asked for */
  void *mptr;                  /**< the block; null only after a growth that failed */
  struct QalTempSegment *next; /**< next in the same list, null at its end */
} QalTempSegment;

/** Blocks handed out, the latest last. Read it, do not change it. */
extern QAL_API QalTempSegment *Tmem_InUse;

/** Blocks released, the smallest first, and among equal ones the latest first. Read it, do not
 *  change it. */
extern QAL_API QalTempSegment *Tmem_Avail;

/** Hands out a block: the smallest idle one that is large enough, else a new one.
 *
 *  @param size  bytes; less than 100, also zero and below, counts as 100.
 *  @return the block, its content indeterminate; not to be freed with `free`. Null when memory is
 *          short, which qal_malloc reports; a record made for the block is then lost. */
QAL_API void *qal_temp_mem_alloc(int64_t size);

/** A result of qal_temp_mem_release and qal_temp_mem_free. */
enum {
  QAL_TEMP_MEM_NOT_FOUND = 1 /**< no block has this address */
};

/** Gives a block back to be handed out again; nothing is freed.
 *
 *  @param ptr  a block that is handed out.
 *  @return 0, or QAL_TEMP_MEM_NOT_FOUND when no block that is handed out has this address: nothing
 *          changes then. */
QAL_API int qal_temp_mem_release(void *ptr);

/** Makes room for a new size in a block that is handed out; it never shrinks.
 *
 *  @param ptr   a block that is handed out.
 *  @param size  bytes; a block that grows gets exactly this size.
 *  @return the block, which may have moved. Null when no block that is handed out has this address:
 *          nothing changes then. Null also when memory is short: the old block is lost then, and
 *          its record stays in Tmem_InUse, with a null block, until qal_temp_mem_free(NULL). Do not
 *          release such a record: it would be handed out again, still without a block. */
QAL_API void *qal_temp_mem_resize(void *ptr, int64_t size);

/** Frees a block, handed out or released.
 *
 *  @param ptr  the block.
 *  @return 0, or QAL_TEMP_MEM_NOT_FOUND when no block has this address: nothing changes then. */
QAL_API int qal_temp_mem_free(void *ptr);

/** Frees every released block; those handed out stay.
 *
 *  @return always 0. */
QAL_API int qal_temp_mem_free_all_avail(void);

/** Frees every block, those handed out included; both lists are empty afterwards.
 *
 *  @return always 0. */
QAL_API int qal_temp_mem_free_all(void);

/** Writes both lists and the sums of their sizes to standard error. */
QAL_API void qal_temp_mem_display(void);

#ifdef __cplusplus
}
#endif

#endif

/** @file
 *  Scratch memory that is kept after use: for code that needs a large work buffer again and again.
 *
 *  A block is handed out by qal_temp_mem_alloc() and given back with qal_temp_mem_release(), which
 *  keeps it for the next request; the three free functions return it to the system. A new block has
 *  at least 100 bytes. An idle one is handed out whole, however small the request, unless it is
 *  larger than 1,000,000 bytes and more than four times the request. Blocks are aligned for every
 *  standard type, as those of malloc() are: to 16 bytes on 64-bit systems.
 *
 *  Every call walks a list, so the cost grows with the number of blocks: keep them few and large.
 *
 *  Errors: qal_malloc() and qal_realloc() report when memory is short.
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
 *  @return the block, its content indeterminate; not to be freed with free(). Null when memory is
 *          short: both lists are as before, and a record made for the block is lost. Null also when
 *          the idle record chosen has lost its block, see qal_temp_mem_resize(). */
QAL_API void *qal_temp_mem_alloc(int64_t size);

/** Results of qal_temp_mem_release() and of the functions that free. */
enum {
  QAL_TEMP_MEM_OK = 0,       /**< success */
  QAL_TEMP_MEM_NOT_FOUND = 1 /**< no block has this address */
};

/** Gives a block back to be handed out again; nothing is freed.
 *
 *  @param ptr  a block that is handed out.
 *  @return QAL_TEMP_MEM_OK; or QAL_TEMP_MEM_NOT_FOUND when no block that is handed out has this
 *          address: nothing changes then. */
QAL_API int qal_temp_mem_release(void *ptr);

/** Makes room for a new size in a block that is handed out; it never shrinks.
 *
 *  @param ptr   a block that is handed out.
 *  @param size  bytes; a block that grows gets exactly this size, any other stays as it is.
 *  @return the block, which may have moved, with its content. Null when no block that is handed out
 *          has this address: nothing changes then. Null also when memory is short: the old block is
 *          lost then, and its record stays in Tmem_InUse with a null block. Free such a record with
 *          qal_temp_mem_free(), given null, or give it a block by resizing null to more than its
 *          size; do not release it: it would be handed out again, still without a block. */
QAL_API void *qal_temp_mem_resize(void *ptr, int64_t size);

/** Frees a block, handed out or released.
 *
 *  @param ptr  the block, or null for a record whose block is lost.
 *  @return QAL_TEMP_MEM_OK; or QAL_TEMP_MEM_NOT_FOUND when no block has this address: nothing
 *          changes then. */
QAL_API int qal_temp_mem_free(void *ptr);

/** Frees every released block; those handed out stay.
 *
 *  @return QAL_TEMP_MEM_OK, always. */
QAL_API int qal_temp_mem_free_all_avail(void);

/** Frees every block, those handed out included; both lists are empty afterwards.
 *
 *  @return QAL_TEMP_MEM_OK, always. */
QAL_API int qal_temp_mem_free_all(void);

/** Writes both lists and the sums of their sizes to standard error. */
QAL_API void qal_temp_mem_display(void);

#ifdef __cplusplus
}
#endif

#endif

/** @file
 *  Heap memory: allocation that reports its own failure.
 *
 *  The caller says what a block is for (`label`) and where the call is (`line`, `file`). The block
 *  goes to the pointer variable at the address `out`, which must not be null; the variable may be a
 *  pointer to any object type. Blocks come from the C library and may be released with `free`.
 *
 *  Errors: when memory is short, four lines at error level report what the caller said, and `errno`
 *  still holds the system's reason. The process is never ended: callers test their pointer.
 *
 *  Threads: no state, so any thread may call.
 *
 *  Source: utils/libsrc/qal_alloc.cpp. */
#ifndef QAL_ALLOC_H
#define QAL_ALLOC_H

#include <qal/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Allocates a block.
 *
 *  @param label  NUL-terminated, for the report; borrowed.
 *  @param out    address of the caller's pointer. It receives the block, which is uninitialised, or
 *                null on failure and for a `size` of 0, which is not a failure.
 *  @param size   bytes. The report shows it as a 32-bit int, so 2 GiB and more appear wrapped.
 *  @param line   line of the call, for the report.
 *  @param file   NUL-terminated file of the call, for the report; borrowed. */
QAL_API void qal_malloc(const char *label, void *out, uint64_t size, int line, const char *file);

/** Changes the size of a block.
 *
 *  A null pointer with a size is allocated and reported as by qal_malloc(); a pointer with size 0
 *  is freed and becomes null; a null pointer with size 0 stays null.
 *
 *  @param label  NUL-terminated, for the report; borrowed.
 *  @param out    address of the caller's pointer: null or a block of the C library. It receives the
 *                block, which may have moved. On failure it becomes null although the old block
 *                still exists: a caller that wants it back keeps a copy of the pointer.
 *  @param size   bytes; a negative size fails.
 *  @param line   line of the call, for the report.
 *  @param file   NUL-terminated file of the call, for the report; borrowed. */
QAL_API void qal_realloc(const char *label, void *out, int64_t size, int line, const char *file);

/** Frees a block. The caller's variable keeps its value.
 *
 *  @param ptr   a block of the C library, or null.
 *  @param line  line of the call; not used.
 *  @param file  file of the call; not used. */
QAL_API void qal_free(void *ptr, int line, const char *file);

/** Calls qal_malloc() for the pointer variable `ptr`, with the place of the call. */
#define QAL_MALLOC(label, ptr, size) \
  qal_malloc((label), (void *)&(ptr), (uint64_t)(size), __LINE__, __FILE__)

/** Calls qal_realloc() for the pointer variable `ptr`, with the place of the call. */
#define QAL_REALLOC(label, ptr, size) \
  qal_realloc((label), (void *)&(ptr), (int64_t)(size), __LINE__, __FILE__)

/** Calls qal_free() for the block `ptr`, with the place of the call. */
#define QAL_FREE(ptr) qal_free((ptr), __LINE__, __FILE__)

#ifdef __cplusplus
}
#endif

#endif

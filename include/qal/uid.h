/** @file
 *  Ids that are unique in the process, each standing for two values.
 *
 *  Ids count up from 1 and are never used again. The registry remembers two 64-bit values for every
 *  id until it is retired; their meaning is the caller's. qal_utils_init() (startup.h) comes first,
 *  because it makes the registry: without one ids are handed out but none is found.
 *
 *  Errors: when there was no memory for a chunk of records, or of the lists that hold them, the
 *  lock of that pool stays held (mpool.h). A new id may need either lock; retiring a registered id
 *  needs that of the records. The next call that needs the held one waits for it for ever and holds
 *  the registry's lock, so that every later call of any thread waits too.
 *
 *  Threads: once the registry is made, any thread may call any function, also a std::thread or a
 *  pthread: the registry's lock guards the pool of its records as well.
 *
 *  Source: utils/libsrc/qal_uid.cpp. */
#ifndef QAL_UID_H
#define QAL_UID_H

#include <qal/export.h>
#include <qal/status.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Makes the registry, unless there is one. For start-up, before other threads run.
 *
 *  @return QAL_STATUS_OK, also without memory: no registry is made then, and a later call tries
 *          again; or QAL_THREAD_FAILED (thread.h) when the mutex cannot be made. */
QAL_API int qal_uid_init(void);

/** Hands out the next id and registers two values for it.
 *
 *  @param first   the first value, any number.
 *  @param second  the second value, any number.
 *  @return the id, also when it could not be registered, for lack of memory or of an index for the
 *          thread: it is then never found. */
QAL_API uint64_t qal_uid_new(uint64_t first, uint64_t second);

/** Returns the id that the next qal_uid_new() will hand out.
 *
 *  @return the id, which is not reserved: another thread may get it. */
QAL_API uint64_t qal_uid_next(void);

/** Finds the two values of an id.
 *
 *  @param id          the id, of which only the low 48 bits count.
 *  @param first_out   receives the first value; may be null. Untouched if the id is not found.
 *  @param second_out  receives the second value; may be null. Untouched if the id is not found.
 *  @return QAL_STATUS_OK; or QAL_STATUS_NO_ID when the id is not registered, and without a
 *          registry. */
QAL_API int qal_uid_find(uint64_t id, uint64_t *first_out, uint64_t *second_out);

/** Retires an id: it is no longer found and never handed out again.
 *
 *  @param id  the id, of which only the low 48 bits count.
 *  @return QAL_STATUS_OK, also without a registry; or QAL_STATUS_INVALID if the id is unknown. */
QAL_API int qal_uid_destroy(uint64_t id);

#ifdef __cplusplus
}
#endif

#endif

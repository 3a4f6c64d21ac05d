/** @file
 *  Starting the library and shutting it down, and the cache directory.
 *
 *  The cache directory is one text for the whole process. The library only keeps it for its host.
 *
 *  Threads: call these functions from the main thread. Start the library before other threads run,
 *  and shut it down after they have ended.
 *
 *  Source: utils/libsrc/qal_startup.cpp. */
#ifndef QAL_STARTUP_H
#define QAL_STARTUP_H

#include <qal/export.h>
#include <qal/status.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Starts the library, once per process: the unique ids, the pools of the pointer lists and the
 *  thread layer. No cache directory is set afterwards.
 *
 *  Every further call returns QAL_STATUS_OK and does nothing, whether the first one succeeded or
 *  not and also after qal_utils_done().
 *
 *  @return QAL_STATUS_OK, or QAL_STATUS_NO_THREADS when the thread layer does not start. Too little
 *          memory for ids and pools is not reported here: the functions that need them fail. */
QAL_API int qal_utils_init(void);

/** Shuts the library down: the cache directory is released and no longer set, and the pools of the
 *  pointer lists end with every list. A later qal_utils_init() starts nothing again.
 *
 *  @return QAL_STATUS_OK, always. */
QAL_API int qal_utils_done(void);

/** Sets the cache directory.
 *
 *  @param path  the directory's name, copied as it is; borrowed. It may be the stored text itself
 *               or a part of it. Null: no directory is set afterwards.
 *  @return QAL_STATUS_OK; or QAL_STATUS_NO_MEMORY: no directory is set then, and the allocator has
 *          reported it (see qal/alloc.h). The old directory is gone in either case. */
QAL_API int qal_utils_set_cachedir(const char *path);

/** Returns the cache directory.
 *
 *  @return the stored text, valid until the directory is set again or the library is started or
 *          shut down; borrowed, not to be freed. Null when no directory is set. */
QAL_API const char *qal_utils_get_cachedir(void);

#ifdef __cplusplus
}
#endif

#endif

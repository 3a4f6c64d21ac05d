/** @file
 *  Starting the library and shutting it down, and the cache directory.
 *
 *  The cache directory is one text for the whole process, which the library only keeps for its
 *  host.
 *
 *  Threads: all of it belongs to the main thread: start the library before other threads run, and
 *  shut it down after they ended.
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
 *  thread layer. The cache directory is none afterwards.
 *
 *  Every further call answers QAL_STATUS_OK and does nothing, whether the first one succeeded or
 *  not and also after qal_utils_done.
 *
 *  @return QAL_STATUS_OK, or 5 when the thread layer does not start. Ids and pools that could not
 *          be made for want of memory are no failure here: what needs them answers so later. */
QAL_API int qal_utils_init(void);

/** Shuts the library down: the cache directory is released and becomes none, and the pools of the
 *  pointer lists end with every list. A later qal_utils_init starts nothing again.
 *
 *  @return QAL_STATUS_OK. */
QAL_API int qal_utils_done(void);

/** Sets the cache directory.
 *
 *  @param path  the directory's name, copied as it stands; the stored text itself, or a part of
 *               it, may be given; null sets none.
 *  @return QAL_STATUS_OK, or QAL_STATUS_NO_MEMORY when memory for the copy is short: none is set
 *          then, and the allocator reports it (see qal/alloc.h). */
QAL_API int qal_utils_set_cachedir(const char *path);

/** Tells the cache directory.
 *
 *  @return the stored text, valid until the directory is set again or the library is shut down;
 *          borrowed, not to be freed. Null when none is set. */
QAL_API const char *qal_utils_get_cachedir(void);

#ifdef __cplusplus
}
#endif

#endif

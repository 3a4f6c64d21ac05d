/** @file
 *  The whole C surface of the foundation library in one include, for C11 and for C++17 or later.
 *
 *  Conventions that hold in every header:
 *
 *  1. A status is an `int` and 0 is success. The other codes are in status.h; a function with other
 *     results says so.
 *  2. Text is NUL-terminated bytes in buffers that the caller owns. A size is in bytes and counts
 *     the terminator. Each function says what happens to a text that does not fit: some cut it,
 *     most leave it out. A path is never cut, except where its function or variable says so:
 *     qal_get_norm_path() (path.h) in a single byte, the program's path of an identity
 *     (identity.hpp), qal_zul_home(), Zul_home_directory and the two directories of 64 bytes
 *     beside it (kalmora/directories.hpp).
 *  3. A null result means that there is nothing. An argument may be null only where its function
 *     says so.
 *  4. Memory that a function hands over is released with the C library's free(), unless a
 *     function of the same area takes it back.
 *  5. Set-up functions are called by the main thread, before other threads start.
 *     qal_thread_create(), pools, lists, tables and ids need qal_utils_init() (startup.h) first:
 *     it makes what they share and gives threads their indices. The rest needs no start-up.
 *  6. Where a header says nothing about threads, a function keeps no state and is thread-safe.
 *     Pools, and with them lists and tables, are for the main thread and for threads of
 *     qal_thread_create(): a std::thread, a pthread or a thread of another library that uses them
 *     corrupts a pool, often without an immediate crash. thread.h says what to do instead.
 *  7. The library reports through the logger (logger.h), which is silent until a host installs a
 *     callback; qal_fread_zlib(), qal_get_osx_ver(), qal_hash_slot_traverse(), qal_pipe_popen_id(),
 *     qal_sysinfo() and qal_temp_mem_display() write to standard error themselves. It never ends
 *     the process, except where a function says so. */
#ifndef QAL_QAL_H
#define QAL_QAL_H

#include <qal/alloc.h>
#include <qal/barrier.h>
#include <qal/blocks.h>
#include <qal/clock.h>
#include <qal/dir_list.h>
#include <qal/files.h>
#include <qal/hash.h>
#include <qal/list.h>
#include <qal/logger.h>
#include <qal/mpool.h>
#include <qal/path.h>
#include <qal/pipe.h>
#include <qal/plist.h>
#include <qal/startup.h>
#include <qal/status.h>
#include <qal/system.h>
#include <qal/temp_mem.h>
#include <qal/text.h>
#include <qal/thread.h>
#include <qal/uid.h>
#include <qal/utf8.h>
#include <qal/version.h>
#include <qal/wildcard.h>

#endif

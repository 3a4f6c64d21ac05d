// The library's start-up and end, and its cache directory.
#include <qal/alloc.h>
#include <qal/plist.h>
#include <qal/startup.h>
#include <qal/thread.h>
#include <qal/uid.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr int expected_threads = 256;
constexpr std::uint32_t list_headers_per_chunk = 32;
constexpr std::uint32_t list_nodes_per_chunk = 256;

// Used by the main thread alone.
struct State {
  bool started = false;
  char *QalUtilCacheDir = nullptr;
} state;

void forget_cachedir() {
  QAL_FREE(state.QalUtilCacheDir);
  state.QalUtilCacheDir = nullptr;
}

char *copy_of(const char *text) {
  const std::size_t size = std::strlen(text) + 1;
  char *copy = nullptr;
  QAL_MALLOC("qal_utils_set_cachedir", copy, size);
  if (copy) std::memcpy(copy, text, size);
  return copy;
}

}  // namespace

int qal_utils_init() {
  if (state.started) return QAL_STATUS_OK;
  // Deliberate: set before anything is started, so a start-up that failed is never tried again.
  state.started = true;
  qal_uid_init();
  qal_plist_pool_create(list_headers_per_chunk, list_nodes_per_chunk);
  forget_cachedir();
  if (qal_thread_init() != QAL_THREAD_OK) return QAL_STATUS_NO_THREADS;
  qal_thread_setconcurrency(expected_threads);
  return QAL_STATUS_OK;
}

int qal_utils_done() {
  // Deliberate: the library stays marked as started, so it is started at most once per process.
  forget_cachedir();
  qal_plist_pool_destroy();
  return QAL_STATUS_OK;
}

int qal_utils_set_cachedir(const char *path) {
  // Copied before the old text is freed: `path` may be a part of it.
  char *copy = path ? copy_of(path) : nullptr;
  forget_cachedir();
  state.QalUtilCacheDir = copy;
  return path && !copy ? QAL_STATUS_NO_MEMORY : QAL_STATUS_OK;
}

const char *qal_utils_get_cachedir() { return state.QalUtilCacheDir; }

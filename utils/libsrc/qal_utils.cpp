#include <qal/alloc.h>
#include <qal/startup.h>

#include <cstdlib>
#include <cstring>

namespace {

// Touched by the main thread only.
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
  forget_cachedir();
  return QAL_STATUS_OK;
}

int qal_utils_done() {
  // Deliberate: the library stays marked as started, so it is started at most once per process.
  forget_cachedir();
  return QAL_STATUS_OK;
}

int qal_utils_set_cachedir(const char *path) {
  // Copied before the old text goes: `path` may be that text.
  char *copy = path ? copy_of(path) : nullptr;
  forget_cachedir();
  state.QalUtilCacheDir = copy;
  return path && !copy ? QAL_STATUS_NO_MEMORY : QAL_STATUS_OK;
}

const char *qal_utils_get_cachedir() { return state.QalUtilCacheDir; }

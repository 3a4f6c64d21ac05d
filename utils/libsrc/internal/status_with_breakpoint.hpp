// The library's status for a platform's error number, with a place to stop in a debugger on
// failure.
#pragma once

#include <qal/logger.h>
#include <qal/thread.h>

namespace qal::internal {

// A breakpoint on qal_stop_here shows every call that failed.
inline int status_with_breakpoint(int platform_result) {
  if (platform_result == 0) return QAL_THREAD_OK;
  qal_stop_here();
  return QAL_THREAD_FAILED;
}

}  // namespace qal::internal

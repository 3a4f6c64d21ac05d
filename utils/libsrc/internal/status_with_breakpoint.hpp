// The library's status for a platform's error number, with a place to stop in a debugger on
// failure.
#pragma once

#include <qal/logger.h>

namespace qal::internal {

// Returns 0 for 0, else -1. A breakpoint on qal_stop_here shows every call that failed.
inline int status_with_breakpoint(int platform_result) {
  if (platform_result == 0) return 0;
  qal_stop_here();
  return -1;
}

}  // namespace qal::internal

// The platform's results as the library's, for the calls whose failures a debugger can wait for.
#pragma once

#include <qal/logger.h>

namespace qal::internal {

inline int stopped(int platform_result) {
  if (platform_result == 0) return 0;
  qal_stop_here();
  return -1;
}

}  // namespace qal::internal

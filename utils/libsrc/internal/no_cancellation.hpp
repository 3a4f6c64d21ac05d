// A scope guard for code in which the calling thread must not be cancelled.
#pragma once

#include <pthread.h>

namespace qal::internal {

class NoCancellation {
 public:
  NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
  // A thread that may be cancelled at any moment can be cancelled here, which unwinds its stack.
  ~NoCancellation() noexcept(false) { pthread_setcancelstate(previous_, nullptr); }
  NoCancellation(const NoCancellation &) = delete;
  NoCancellation &operator=(const NoCancellation &) = delete;

 private:
  int previous_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace qal::internal

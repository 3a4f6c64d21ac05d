// Whether the mutexes of pools and of the id registry have to be locked.
#pragma once

#include <atomic>

#include "platform/platform.hpp"

namespace qal::internal {

// Set before any of these mutexes is locked. It stays so once there is a second thread, because a
// mutex may be held by a thread that ended with it, or in a forked child by a thread that is not
// there; and once a refill failed, which leaves the pool locked.
extern std::atomic<bool> locks_in_use;

inline void start_locking() {
  if (!locks_in_use.load(std::memory_order_relaxed)) locks_in_use = true;
}

// False while nobody can hold one of these mutexes.
inline bool locks_needed() {
  return locks_in_use.load(std::memory_order_relaxed) || platform::single_threaded == 0;
}

}  // namespace qal::internal

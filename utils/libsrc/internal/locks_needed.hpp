// Whether the mutexes of pools and of the id registry have to be locked.
#pragma once

#include <atomic>

#include "platform/platform.hpp"

namespace qal::internal {

// Set before any of these mutexes is locked. It stays set once there is a second thread, because
// the thread that holds a mutex may have ended or be missing in a forked child; and once a refill
// has failed, which leaves the pool locked.
extern std::atomic<bool> locks_in_use;

inline void start_locking() {
  if (!locks_in_use.load(std::memory_order_relaxed)) locks_in_use = true;
}

// False while nobody can hold one of these mutexes.
inline bool locks_needed() {
  return locks_in_use.load(std::memory_order_relaxed) || platform::single_threaded == 0;
}

}  // namespace qal::internal

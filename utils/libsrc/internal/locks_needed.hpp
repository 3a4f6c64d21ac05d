// Whether the mutexes of pools and of the id registry have to be locked.
#pragma once

#include <atomic>

#include "platform/platform.hpp"

namespace qal::internal {

// Set before any of these mutexes is locked, and then for good: one may be held by a thread that
// ended with it, or in a forked child by a thread that is not there.
extern std::atomic<bool> locks_in_use;

inline void start_locking() {
  if (!locks_in_use.load(std::memory_order_relaxed)) locks_in_use = true;
}

// False in a process of one thread as long as no mutex was locked: nobody can hold one.
inline bool locks_needed() {
  return locks_in_use.load(std::memory_order_relaxed) || platform::single_threaded == 0;
}

}  // namespace qal::internal

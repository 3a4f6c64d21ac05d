// The calling thread's index, inline because every allocation from a pool looks it up.
#pragma once

#include <qal/thread.h>

#include <cstdint>

namespace qal::internal {

// The key exists from start-up on; before that every thread has index 0.
extern QalThreadKey _qal_thread_self_key;
extern bool self_key_made;

inline int thread_index() {
  if (!self_key_made) return 0;
  void *const index = pthread_getspecific(_qal_thread_self_key);
  return static_cast<int>(reinterpret_cast<std::intptr_t>(index));
}

}  // namespace qal::internal

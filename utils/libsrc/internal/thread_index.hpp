// The calling thread's index, for those who ask too often for a call.
#pragma once

#include <qal/thread.h>

#include <cstdint>

namespace qal::internal {

// The key exists from start-up on; before that every thread reads as index 0.
struct SelfKey {
  QalThreadKey key;
  bool made;
};
extern SelfKey _qal_thread_self_key;

inline int thread_index() {
  if (!_qal_thread_self_key.made) return 0;
  void *const index = pthread_getspecific(_qal_thread_self_key.key);
  return static_cast<int>(reinterpret_cast<std::intptr_t>(index));
}

}  // namespace qal::internal

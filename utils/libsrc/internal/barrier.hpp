// The meeting of threads at a barrier, shared by the public barrier and by the reductions, which
// differ in what tells a waiter that its cycle is over.
#pragma once

#include <qal/barrier.h>

#include <cstdint>

namespace qal::internal {

constexpr int barrier_failed = -1;
constexpr int barrier_waited = 0;
constexpr int barrier_last = 1;
constexpr std::uint32_t barrier_valid = 0xABCD;

// Waits on the condition, without cancellation, as long as `blocked` says so.
template <typename Blocked>
int wait_while(QalThreadBarrier &barrier, const Blocked &blocked) {
  int previous = 0;
  int result = barrier_waited;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
  while (blocked() && result == barrier_waited) {
    if (pthread_cond_wait(&barrier.condition, &barrier.mutex) != 0) result = barrier_failed;
  }
  pthread_setcancelstate(previous, nullptr);
  return result;
}

// One arrival. `generation` is what waiters watch, read and changed under the barrier's mutex;
// `flip` changes it, and more if the cycle's end calls for it, before anybody is released.
template <typename Generation, typename Flip>
int arrive(QalThreadBarrier &barrier, unsigned n, const Generation &generation, const Flip &flip) {
  if (barrier.magic != barrier_valid || pthread_mutex_lock(&barrier.mutex) != 0) {
    return barrier_failed;
  }
  int result = barrier_failed;
  if (barrier.count == 0) barrier.count = barrier.remaining = n;
  if (barrier.count != 0) {
    const auto entered = generation();
    if (barrier.remaining-- == 1) {
      barrier.remaining = barrier.count;
      flip();
      result = pthread_cond_broadcast(&barrier.condition) == 0 ? barrier_last : barrier_failed;
    } else {
      result = wait_while(barrier, [&] { return generation() == entered; });
    }
  }
  pthread_mutex_unlock(&barrier.mutex);
  return result;
}

}  // namespace qal::internal

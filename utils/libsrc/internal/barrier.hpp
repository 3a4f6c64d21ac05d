// How threads meet at a barrier: the public one, or one of a reduction.
#pragma once

#include <qal/barrier.h>

#include <cstdint>

#include "internal/no_cancellation.hpp"
#include "internal/patience.hpp"

namespace qal::internal {

constexpr std::uint32_t barrier_valid = 0xABCD;

// What waiters watch is stored under the barrier's mutex alone. Waiters that are awake load it
// without the mutex; relaxed is enough, because they load it again with the mutex held before they
// return.
template <typename Number>
Number load_relaxed(const Number &number) {
  return __atomic_load_n(&number, __ATOMIC_RELAXED);
}

template <typename Number>
void store_relaxed(Number &number, Number value) {
  __atomic_store_n(&number, value, __ATOMIC_RELAXED);
}

template <typename Blocked>
int sleep_while(QalThreadBarrier &barrier, const Blocked &blocked) {
  if (pthread_mutex_lock(&barrier.mutex) != 0) return QAL_THREAD_BARRIER_FAILED;
  int result = QAL_THREAD_BARRIER_OK;
  while (blocked() && result == QAL_THREAD_BARRIER_OK) {
    const TimedSleep until_woken;
    if (pthread_cond_wait(&barrier.condition, &barrier.mutex) != 0)
      result = QAL_THREAD_BARRIER_FAILED;
  }
  pthread_mutex_unlock(&barrier.mutex);
  return result;
}

// Waits while `blocked` returns true. Called with the mutex held; returns without it.
template <typename Blocked>
int wait_while(QalThreadBarrier &barrier, const Blocked &blocked) {
  const unsigned threads = barrier.count;
  const NoCancellation until_return;
  pthread_mutex_unlock(&barrier.mutex);
  Patience patience(threads);
  while (blocked() && patience.lasts()) continue;
  return sleep_while(barrier, blocked);
}

// Called by the last arrival with the mutex held; returns without it.
template <typename EndCycle>
int release_all(QalThreadBarrier &barrier, const EndCycle &end_cycle) {
  barrier.remaining = barrier.count;
  end_cycle();
  const int status = pthread_cond_broadcast(&barrier.condition);
  pthread_mutex_unlock(&barrier.mutex);
  return status == 0 ? QAL_THREAD_BARRIER_LAST : QAL_THREAD_BARRIER_FAILED;
}

// One arrival. Waiters watch the number `watched`. The last arrival calls `end_cycle` under the
// barrier's mutex, before any waiter is released: it stores another number there, and does whatever
// else must be done by then.
template <typename Number, typename EndCycle>
int arrive(QalThreadBarrier &barrier, unsigned n, const Number &watched,
           const EndCycle &end_cycle) {
  if (barrier.magic != barrier_valid || pthread_mutex_lock(&barrier.mutex) != 0) {
    return QAL_THREAD_BARRIER_FAILED;
  }
  if (barrier.count == 0) barrier.count = barrier.remaining = n;
  if (barrier.count == 0) {
    pthread_mutex_unlock(&barrier.mutex);
    return QAL_THREAD_BARRIER_FAILED;
  }
  const Number entered = load_relaxed(watched);
  if (--barrier.remaining == 0) return release_all(barrier, end_cycle);
  return wait_while(barrier, [&] { return load_relaxed(watched) == entered; });
}

}  // namespace qal::internal

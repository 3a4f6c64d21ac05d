// The meeting of threads at a barrier, shared by the public barrier and by the reductions, which
// differ in what tells a waiter that its cycle is over.
#pragma once

#include <qal/barrier.h>

#include <chrono>
#include <cstdint>

namespace qal::internal {

constexpr int barrier_failed = -1;
constexpr int barrier_waited = 0;
constexpr int barrier_last = 1;
constexpr std::uint32_t barrier_valid = 0xABCD;

// What tells waiters that their cycle is over. It changes under the barrier's mutex alone; those
// that are still awake glance at it without, and believe what they saw once they hold the mutex.
template <typename Number>
Number glance(const Number &number) {
  return __atomic_load_n(&number, __ATOMIC_RELAXED);
}

template <typename Number>
void change(Number &number, Number value) {
  __atomic_store_n(&number, value, __ATOMIC_RELAXED);
}

// How long a thread that waits for others stays awake. Most meetings are over before it would have
// fallen asleep and been woken again.
class Patience {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Patience(unsigned threads);

  // False when it is time to sleep. At first the thread may look again at once, unless there are
  // too few processors for all who meet; later others run in between.
  bool lasts();

 private:
  Clock::time_point spins_until_{};
  int turns_left_;
};

template <typename Blocked>
int sleep_while(QalThreadBarrier &barrier, const Blocked &blocked) {
  if (pthread_mutex_lock(&barrier.mutex) != 0) return barrier_failed;
  int result = barrier_waited;
  while (blocked() && result == barrier_waited) {
    if (pthread_cond_wait(&barrier.condition, &barrier.mutex) != 0) result = barrier_failed;
  }
  pthread_mutex_unlock(&barrier.mutex);
  return result;
}

// Waits, without cancellation, as long as `blocked` says so. Called with the mutex held, which it
// gives back.
template <typename Blocked>
int wait_while(QalThreadBarrier &barrier, const Blocked &blocked) {
  const unsigned threads = barrier.count;
  int previous = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
  pthread_mutex_unlock(&barrier.mutex);
  Patience patience(threads);
  while (blocked() && patience.lasts()) continue;
  const int result = sleep_while(barrier, blocked);
  pthread_setcancelstate(previous, nullptr);
  return result;
}

// One arrival. `generation` glances at what waiters watch; `flip` changes it under the barrier's
// mutex, and more if the cycle's end calls for it, before anybody is released.
template <typename Generation, typename Flip>
int arrive(QalThreadBarrier &barrier, unsigned n, const Generation &generation, const Flip &flip) {
  if (barrier.magic != barrier_valid || pthread_mutex_lock(&barrier.mutex) != 0) {
    return barrier_failed;
  }
  int result = barrier_failed;
  if (barrier.count == 0) barrier.count = barrier.remaining = n;
  if (barrier.count != 0) {
    const auto entered = generation();
    if (barrier.remaining-- != 1) {
      return wait_while(barrier, [&] { return generation() == entered; });
    }
    barrier.remaining = barrier.count;
    flip();
    result = pthread_cond_broadcast(&barrier.condition) == 0 ? barrier_last : barrier_failed;
  }
  pthread_mutex_unlock(&barrier.mutex);
  return result;
}

}  // namespace qal::internal

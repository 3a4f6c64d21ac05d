// The public barrier, and how long those who wait at any barrier stay awake.
#include <qal/barrier.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <limits>

#include "internal/barrier.hpp"
#include "platform/platform.hpp"

namespace {

using qal::internal::barrier_valid;
using qal::internal::change;
using qal::internal::glance;
using Clock = qal::internal::Patience::Clock;

constexpr int ok = 0;
constexpr int failed = -1;
constexpr std::uint32_t destroyed = std::numeric_limits<std::uint32_t>::max();

// Both together take about as long as being put to sleep and woken again.
constexpr std::chrono::microseconds spin_time{1};
constexpr int turns_given = 8;

// Giving others a turn pays while these are the threads that are waited for, soon done. After a
// long turn other work needs the processors and would take one at every meeting; nobody gives way
// then for so many times as long.
constexpr std::chrono::microseconds long_turn{100};
constexpr int rests_after_long_turn = 20;
std::atomic<Clock::rep> next_turn{0};

Clock::rep ticks(Clock::time_point time) { return time.time_since_epoch().count(); }

void give_way(Clock::time_point now) {
  sched_yield();
  const Clock::time_point back = Clock::now();
  if (back - now > long_turn) next_turn = ticks(back + rests_after_long_turn * (back - now));
}

unsigned processors() {
  static const int count = [] {
    const int kept_errno = errno;
    int found = 1;
    qal::internal::platform::processor_count(found);
    errno = kept_errno;
    return found;
  }();
  return static_cast<unsigned>(count);
}

}  // namespace

namespace qal::internal {

Patience::Patience(unsigned threads) : turns_left_(turns_given) {
  if (threads <= processors()) spins_until_ = Clock::now() + spin_time;
}

bool Patience::lasts() {
  const Clock::time_point now = Clock::now();
  if (now < spins_until_) return true;
  if (turns_left_-- == 0 || ticks(now) < next_turn) return false;
  give_way(now);
  return true;
}

}  // namespace qal::internal

int qal_thread_barrier_init(QalThreadBarrier *b) {
  if (!b) return failed;
  b->count = b->remaining = b->phase = 0;
  if (pthread_mutex_init(&b->mutex, nullptr) != 0) return failed;
  if (pthread_cond_init(&b->condition, nullptr) != 0) {
    pthread_mutex_destroy(&b->mutex);
    return failed;
  }
  b->magic = barrier_valid;
  return ok;
}

void qal_thread_barrier_reinit(QalThreadBarrier *b) {
  if (b) b->count = 0;
}

int qal_thread_barrier_destroy(QalThreadBarrier *b) {
  if (!b || b->magic != barrier_valid) return failed;
  b->magic = destroyed;
  pthread_mutex_destroy(&b->mutex);
  pthread_cond_destroy(&b->condition);
  return ok;
}

int qal_thread_barrier(QalThreadBarrier *b, unsigned n) {
  if (!b) return failed;
  // The phase changes with every cycle, so a thread that races ahead into the next cycle cannot
  // release the stragglers of this one.
  return qal::internal::arrive(
      *b, n, [b] { return glance(b->phase); }, [b] { change(b->phase, b->phase ^ 1U); });
}

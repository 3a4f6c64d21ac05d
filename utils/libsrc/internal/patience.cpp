// How long a thread that waits at a barrier stays awake.
#include "internal/patience.hpp"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>

#include "internal/kept_errno.hpp"
#include "platform/platform.hpp"

namespace qal::internal {

namespace {

using Clock = Patience::Clock;

// A short wait spins and yields for as long as a meeting takes while everybody is awake.
constexpr std::chrono::microseconds spin_time{1};
constexpr int fewest_yields = 8;

// So a thread that is always the first by far stays awake for long in one wait of nine.
constexpr int short_waits_after_one_in_vain = 8;
thread_local int short_waits_left = 0;

// What this thread's sleeps have taken of late. While two threads wake each other, both learn what
// waking takes, and the one that is awake for so long meets the other before it sleeps too.
constexpr std::chrono::microseconds least_sleep{1};
constexpr std::chrono::microseconds longest_sleep{100};
thread_local Clock::duration sleep_cost = longest_sleep;

// Yielding helps while the processor goes to the threads that are waited for. A yield longer than
// this has let other work run, which would take the processor at every meeting: then yielding
// pauses, in all threads, for as long as it took.
constexpr std::chrono::microseconds long_yield{100};
std::atomic<Clock::rep> yielding_resumes{0};

Clock::rep ticks(Clock::time_point time) { return time.time_since_epoch().count(); }

// Returns the time after the yield.
Clock::time_point yield_to_others(Clock::time_point now) {
  sched_yield();
  const Clock::time_point back = Clock::now();
  const Clock::duration taken = back - now;
  if (taken > long_yield) yielding_resumes = ticks(back + taken);
  return back;
}

unsigned processors() {
  static const int count = [] {
    const KeptErrno until_return;
    int found = 1;
    platform::processor_count(found);
    return found;
  }();
  return static_cast<unsigned>(count);
}

}  // namespace

Patience::Patience(unsigned threads)
    : yields_left_(fewest_yields), is_short_(short_waits_left > 0) {
  if (threads <= processors()) spins_until_ = now_ + spin_time;
  if (is_short_) {
    --short_waits_left;
  } else {
    yields_until_ = now_ + sleep_cost;
  }
}

bool Patience::lasts() {
  if (now_ < spins_until_) {
    now_ = Clock::now();
    return true;
  }
  if (ticks(now_) < yielding_resumes) return false;
  if (yields_left_-- > 0 || now_ < yields_until_) {
    now_ = yield_to_others(now_);
    return true;
  }
  if (!is_short_) short_waits_left = short_waits_after_one_in_vain;
  return false;
}

// A sleep that was long because the others came late says little: the cost at most doubles.
TimedSleep::~TimedSleep() {
  const Clock::duration slept = Clock::now() - began_;
  sleep_cost = std::clamp<Clock::duration>(
      slept, least_sleep, std::min<Clock::duration>(2 * sleep_cost, longest_sleep));
}

}  // namespace qal::internal

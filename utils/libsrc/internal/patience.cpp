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

constexpr std::chrono::microseconds spin_time{2};

// An effort that failed in one wait of a thread is skipped in the thread's next eight waits.
class Effort {
 public:
  bool is_due() {
    if (waits_left_out_ == 0) return true;
    --waits_left_out_;
    return false;
  }
  void was_in_vain() { waits_left_out_ = 8; }

 private:
  int waits_left_out_ = 0;
};
thread_local Effort spinning;
thread_local Effort staying_awake;

// How long this thread's recent sleeps took. Two threads that keep waking each other both learn how
// long waking takes, and a thread that stays awake for that long meets the other without sleeping.
constexpr std::chrono::microseconds least_sleep{1};
constexpr Clock::duration longest_sleep = std::chrono::microseconds{100};
thread_local Clock::duration sleep_cost = longest_sleep;

// Yielding helps while the processor goes to the threads that are waited for. A yield longer than
// this has let other work run, which would take the processor at every meeting: no thread then
// yields again for as long as that yield took.
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

Patience::Patience(unsigned threads) {
  if (threads <= processors() && spinning.is_due()) spins_until_ = now_ + spin_time;
  if (staying_awake.is_due()) yields_until_ = now_ + sleep_cost;
}

bool Patience::lasts() {
  if (now_ < spins_until_) {
    now_ = Clock::now();
    if (now_ >= spins_until_) spinning.was_in_vain();
    return true;
  }
  if (ticks(now_) < yielding_resumes) return false;
  if (yields_left_-- > 0 || now_ < yields_until_) {
    now_ = yield_to_others(now_);
    return true;
  }
  if (yields_until_ != Clock::time_point{}) staying_awake.was_in_vain();
  return false;
}

// A sleep that was long because the others came late says little: the cost at most doubles.
TimedSleep::~TimedSleep() {
  const Clock::duration slept = Clock::now() - began_;
  sleep_cost = std::clamp<Clock::duration>(
      slept, least_sleep, std::min<Clock::duration>(2 * sleep_cost, longest_sleep));
}

}  // namespace qal::internal

// How long a thread that waits at a barrier stays awake.
#include "internal/patience.hpp"

#include <sched.h>

#include <atomic>
#include <chrono>

#include "internal/kept_errno.hpp"
#include "platform/platform.hpp"

namespace qal::internal {

namespace {

using Clock = Patience::Clock;

// Together they take about as long as being put to sleep and woken again.
constexpr std::chrono::microseconds spin_time{1};
constexpr int most_yields = 8;

// Yielding helps while the processor goes to the threads that are waited for. A yield longer than
// this has let other work run, which would take the processor at every meeting: then yielding
// pauses, in all threads, for twenty times as long as it took.
constexpr std::chrono::microseconds long_yield{100};
constexpr int pause_per_long_yield = 20;
std::atomic<Clock::rep> yielding_resumes{0};

Clock::rep ticks(Clock::time_point time) { return time.time_since_epoch().count(); }

void yield_to_others(Clock::time_point now) {
  sched_yield();
  const Clock::time_point back = Clock::now();
  const Clock::duration taken = back - now;
  if (taken > long_yield) yielding_resumes = ticks(back + pause_per_long_yield * taken);
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

Patience::Patience(unsigned threads) : yields_left_(most_yields) {
  if (threads <= processors()) spins_until_ = Clock::now() + spin_time;
}

bool Patience::lasts() {
  const Clock::time_point now = Clock::now();
  if (now < spins_until_) return true;
  if (yields_left_-- == 0 || ticks(now) < yielding_resumes) return false;
  yield_to_others(now);
  return true;
}

}  // namespace qal::internal

// How long a thread that waits at a barrier stays awake.
#pragma once

#include <chrono>

namespace qal::internal {

// A waiting thread spins for a moment if every thread that meets can have a processor, and then
// yields for about as long as its own sleeps have taken. Spinning or yielding that failed is left
// out of its next waits, except for eight yields, so a thread whose waits are long soon sleeps.
class Patience {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Patience(unsigned threads);

  // Returns true to wait on, after a yield if it is time for one, and false to go to sleep.
  bool lasts();

 private:
  Clock::time_point now_ = Clock::now();
  Clock::time_point spins_until_{};
  Clock::time_point yields_until_{};
  int yields_left_ = 8;
};

// Stands around a sleep, from which the thread learns what sleeping and being woken costs.
class TimedSleep {
 public:
  TimedSleep() = default;
  ~TimedSleep();
  TimedSleep(const TimedSleep &) = delete;
  TimedSleep &operator=(const TimedSleep &) = delete;

 private:
  Patience::Clock::time_point began_ = Patience::Clock::now();
};

}  // namespace qal::internal

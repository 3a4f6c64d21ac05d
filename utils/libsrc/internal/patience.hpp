// How long a thread that waits at a barrier stays awake.
#pragma once

#include <chrono>

namespace qal::internal {

// Most meetings are over sooner than a thread could be put to sleep and woken again, so a waiting
// thread stays awake at first: it spins for a moment if every thread that meets can have a
// processor, then it yields a few times.
class Patience {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Patience(unsigned threads);

  // Returns true to look again, after a yield if it is time for one, and false to go to sleep.
  bool lasts();

 private:
  Clock::time_point spins_until_{};
  int yields_left_;
};

}  // namespace qal::internal

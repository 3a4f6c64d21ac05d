// Threads that follow a schedule, for targets whose property is that no thread waits forever.
#pragma once

#include <qal/thread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "require.hpp"
#include "support/workers.hpp"

namespace qal::fuzz {

// Half a minute without a step of any thread end the program, so that the fuzzer keeps the input. A
// busy machine may take longer for all of it.
class Watchdog {
 public:
  Watchdog() {
    std::signal(SIGALRM, &look);
    alarm(seconds);
  }
  ~Watchdog() { alarm(0); }
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;

  static void step() { ++steps_; }

 private:
  static constexpr unsigned seconds = 30;

  static void look(int) {
    const unsigned steps = steps_;
    if (seen_.exchange(steps) != steps) {
      alarm(seconds);
      return;
    }
    constexpr std::string_view message = "does not hold: nobody waits for good\n";
    if (write(STDERR_FILENO, message.data(), message.size()) < 0) std::_Exit(1);
    std::abort();
  }

  static inline std::atomic<unsigned> steps_{0};
  static inline std::atomic<unsigned> seen_{0};
};

// A thread's next step, after a moment that differs: nothing at all, a few turns for the others, or
// a while of work.
inline void pause(std::uint8_t length) {
  Watchdog::step();
  for (int turn = length % 8; turn > 0; --turn) sched_yield();
  for (std::atomic<int> work = length / 8 * 16; work > 0; --work) {
  }
}

// As test::team_of, with the thread layer started.
inline test::Team team_of(int count, const std::function<void(int)> &task) {
  static const bool started = qal_thread_init() == 0;
  require(started, "the thread layer can be started");
  return test::team_of(count, task);
}

}  // namespace qal::fuzz

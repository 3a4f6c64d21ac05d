// Threads that follow a schedule, for targets whose property is that nobody waits for good.
#pragma once

#include <qal/thread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "require.hpp"

namespace qal::fuzz {

// Five seconds without a step of any thread end the program, so that the fuzzer keeps the input. A
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
  static constexpr unsigned seconds = 5;

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

// A thread of the layer.
class Member {
 public:
  explicit Member(std::function<void()> task) : task_(std::move(task)) {
    static const bool started = qal_thread_init() == 0;
    require(started, "the thread layer can be started");
    require(qal_thread_create(&index_, &run, this) == 0, "a thread can be started");
  }
  ~Member() {
    if (!joined_) finished();
  }
  Member(const Member &) = delete;
  Member &operator=(const Member &) = delete;

  // Refused where the platform forgets threads as they end.
  void cancel() { qal_thread_cancel(&index_); }

  // Waits for it; whether it came to its end and was not cancelled.
  bool finished() {
    int result = 0;
    joined_ = true;
    require(qal_thread_join(&index_, &result) == 0, "a thread can be joined");
    return result == done;
  }
  bool is_joined() const { return joined_; }

 private:
  static constexpr int done = 1;

  // Stands on the stack of a thread that is cancelled: AddressSanitizer takes the stack back only
  // where something is unwound.
  struct Unwinding {
    Unwinding() = default;
    ~Unwinding() { ++count; }
    Unwinding(const Unwinding &) = delete;
    Unwinding &operator=(const Unwinding &) = delete;
    static inline std::atomic<int> count{0};
  };

  static int run(void *member) {
    const Unwinding unwinding;
    static_cast<Member *>(member)->task_();
    return done;
  }

  std::function<void()> task_;
  int index_ = 0;
  bool joined_ = false;
};

using Team = std::vector<std::unique_ptr<Member>>;

// Starts `task(0)` to `task(count - 1)`, which has to stay until the team is gone.
inline Team team_of(int count, const std::function<void(int)> &task) {
  Team team;
  for (int i = 0; i < count; ++i) {
    team.push_back(std::make_unique<Member>([&task, i] { task(i); }));
  }
  return team;
}

}  // namespace qal::fuzz

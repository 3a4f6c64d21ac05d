// Threads of the layer that do a task each, for tests and fuzz targets.
#pragma once

#include <qal/thread.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace qal::test {

// A local variable of routines that are cancelled; counts how often one was unwound. It also
// prevents a false alarm of AddressSanitizer, which takes the stack of a cancelled thread back only
// if something on it is unwound.
struct Unwinding {
  Unwinding() = default;
  ~Unwinding() { ++count; }
  Unwinding(const Unwinding &) = delete;
  Unwinding &operator=(const Unwinding &) = delete;

  static inline std::atomic<int> count{0};
};

// A thread of the layer, joined at the latest when the object goes.
class Worker {
 public:
  explicit Worker(std::function<int()> body) : body_(std::move(body)) {
    if (qal_thread_create(&index_, &run, this) != 0) std::abort();
  }
  ~Worker() {
    if (!joined_) join();
  }
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  int index() const { return index_; }
  // Fails where the platform forgets threads as they end.
  int cancel() const { return qal_thread_cancel(&index_); }
  bool is_joined() const { return joined_; }
  // The result of the body, or -1 when it was cancelled.
  int join() {
    int result = 0;
    joined_ = true;
    if (qal_thread_join(&index_, &result) != 0) std::abort();
    return result;
  }

 private:
  static int run(void *worker) { return static_cast<Worker *>(worker)->body_(); }

  std::function<int()> body_;
  int index_ = 0;
  bool joined_ = false;
};

using Team = std::vector<std::unique_ptr<Worker>>;

// Starts `task(0)` to `task(count - 1)`, which has to stay until the team is gone. The result of
// each is 0.
inline Team team_of(int count, const std::function<void(int)> &task) {
  Team team;
  for (int i = 0; i < count; ++i) {
    team.push_back(std::make_unique<Worker>([&task, i] {
      const Unwinding unwinding;
      task(i);
      return 0;
    }));
  }
  return team;
}

// Runs `body(0)` to `body(count - 1)` at once and waits for all of them.
inline void run_together(int count, const std::function<void(int)> &body) {
  const Team team = team_of(count, body);
}

}  // namespace qal::test

// Threads in tests: an end for cases that would hang, and ways to hold threads and to wait for what
// they do.
#pragma once

#include <gtest/gtest.h>
#include <qal/thread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace qal::test {

#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
constexpr bool under_thread_sanitizer = true;
#else
constexpr bool under_thread_sanitizer = false;
#endif

// How often to repeat what only repetition finds. ThreadSanitizer sees a race without luck.
constexpr int repetitions(int wanted) {
  return under_thread_sanitizer && wanted > 1000 ? wanted / 10 : wanted;
}

// Stands in routines that are cancelled and counts how often one was unwound. That also spares
// AddressSanitizer a false alarm: it takes the stack back from a cancelled thread only where
// something is unwound.
struct Unwinding {
  Unwinding() = default;
  ~Unwinding() { ++count; }
  Unwinding(const Unwinding &) = delete;
  Unwinding &operator=(const Unwinding &) = delete;

  static inline std::atomic<int> count{0};
};

// Ends the process when the case hangs.
class Watchdog {
 public:
  Watchdog() { alarm(1200); }
  ~Watchdog() { alarm(0); }
  Watchdog(const Watchdog &) = delete;
  Watchdog &operator=(const Watchdog &) = delete;
};

// The thread layer, started anew for each case.
class Threads : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(qal_thread_init(), 0); }

 private:
  Watchdog watchdog_;
};

template <typename Condition>
void await(const Condition &condition) {
  while (!condition()) sched_yield();
}

// Holds threads until it is opened.
class Gate {
 public:
  void wait() {
    std::unique_lock lock(mutex_);
    ++arrived_;
    changed_.wait(lock, [this] { return open_; });
  }
  void open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  int arrived() {
    const std::lock_guard lock(mutex_);
    return arrived_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
  int arrived_ = 0;
};

// A thread of the layer, joined at the latest when the object goes.
class Worker {
 public:
  explicit Worker(std::function<int()> body) : body_(std::move(body)) {
    EXPECT_EQ(qal_thread_create(&index_, &run, this), 0);
  }
  ~Worker() {
    if (!joined_) join();
  }
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  int index() const { return index_; }
  int cancel() const { return qal_thread_cancel(&index_); }
  int join() {
    int result = 0;
    joined_ = true;
    EXPECT_EQ(qal_thread_join(&index_, &result), 0);
    return result;
  }

 private:
  static int run(void *worker) { return static_cast<Worker *>(worker)->body_(); }

  std::function<int()> body_;
  int index_ = 0;
  bool joined_ = false;
};

// Runs `body(0)` to `body(count - 1)` at once and waits for all of them.
inline void run_together(int count, const std::function<void(int)> &body) {
  std::vector<std::unique_ptr<Worker>> workers;
  for (int i = 0; i < count; ++i) {
    workers.push_back(std::make_unique<Worker>([&body, i] {
      body(i);
      return 0;
    }));
  }
}

}  // namespace qal::test

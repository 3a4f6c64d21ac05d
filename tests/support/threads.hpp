// Threads in tests: an end for cases that hang, and ways to hold threads and to wait for them.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <qal/thread.h>
#include <sched.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "support/workers.hpp"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace qal::test {

#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
constexpr bool under_thread_sanitizer = true;
#else
constexpr bool under_thread_sanitizer = false;
#endif

// How often to repeat a case that finds a race only by luck. ThreadSanitizer needs no luck.
constexpr int repetitions(int wanted) {
  return under_thread_sanitizer && wanted > 1000 ? wanted / 10 : wanted;
}

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

// Whether the calling thread can be cancelled.
inline int cancel_state() {
  int state = 0;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
  pthread_setcancelstate(state, nullptr);
  return state;
}

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

// A thread that waits as long as the object lives.
class SecondThread {
 public:
  SecondThread()
      : worker_([this] {
          gate_.wait();
          return 0;
        }) {
    await([this] { return gate_.arrived() == 1; });
  }
  ~SecondThread() { gate_.open(); }
  SecondThread(const SecondThread &) = delete;
  SecondThread &operator=(const SecondThread &) = delete;

 private:
  Gate gate_;
  Worker worker_;
};

}  // namespace qal::test

#include <gtest/gtest.h>
#include <qal/barrier.h>
#include <qal/thread.h>

#include <atomic>

#include "stress.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::await;
using qal::test::run_together;
using qal::test::sized;
using qal::test::Stress;

constexpr int waiters = 64;

// One semaphore and a barrier at which a round begins and ends.
class SemaStress : public Stress {
 protected:
  SemaStress() {
    EXPECT_EQ(qal_thread_sema_init(&semaphore, 0), 0);
    EXPECT_EQ(qal_thread_barrier_init(&round), 0);
  }
  ~SemaStress() override {
    qal_thread_barrier_destroy(&round);
    qal_thread_sema_destroy(&semaphore);
  }

  void meet() { qal_thread_barrier(&round, waiters + 1); }

  int count() {
    qal_thread_mutex_lock(&semaphore.mutex);
    const int count = semaphore.count;
    qal_thread_mutex_unlock(&semaphore.mutex);
    return count;
  }

  void wait_in_rounds(int rounds) {
    for (int i = 0; i < rounds; ++i) {
      meet();
      EXPECT_EQ(qal_thread_sema_wait(&semaphore), 0);
      EXPECT_LE(++passed, granted);
      meet();
    }
  }

  // Gives a permit for each waiter, one by one, while nobody new can come.
  void release_in_rounds(int rounds) {
    for (int i = 0; i < rounds; ++i) {
      passed = granted = 0;
      meet();
      await([this] { return count() == -waiters; });
      EXPECT_EQ(passed, 0);
      for (int permit = 0; permit < waiters; ++permit) {
        ++granted;
        EXPECT_EQ(qal_thread_sema_release(&semaphore), 0);
      }
      meet();
      EXPECT_EQ(passed, waiters);
      EXPECT_EQ(semaphore.count, 0);
      EXPECT_EQ(semaphore.waiters, 0);
    }
  }

  QalThreadSema semaphore{};
  QalThreadBarrier round{};
  std::atomic<int> passed{0};
  std::atomic<int> granted{0};
};

TEST_F(SemaStress, LetsAllWaitersOfAGroupPass) {
  const int rounds = sized(100, 10'000);
  run_together(waiters + 1, [&](int i) {
    if (i == waiters) {
      release_in_rounds(rounds);
    } else {
      wait_in_rounds(rounds);
    }
  });
  record_count(rounds);
}

}  // namespace

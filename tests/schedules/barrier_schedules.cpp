#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <cstddef>
#include <vector>

#include "schedules.hpp"

namespace {

using qal::test::Are;
using qal::test::most_preemptions;
using qal::test::quick_preemptions;
using qal::test::Team;
using qal::test::together;

using BarrierSchedules = qal::test::Schedules;

// Nobody leaves a cycle that somebody has not begun, and each has one last arrival.
void meet(int threads, int cycles) {
  QalThreadBarrier barrier;
  EXPECT_EQ(qal_thread_barrier_init(&barrier), 0);
  std::vector<int> begun(static_cast<std::size_t>(threads));
  int last_arrivals = 0;
  together(threads, [&](int i) {
    for (int cycle = 1; cycle <= cycles; ++cycle) {
      begun[static_cast<std::size_t>(i)] = cycle;
      const int result = qal_thread_barrier(&barrier, static_cast<unsigned>(threads));
      EXPECT_NE(result, QAL_THREAD_BARRIER_FAILED);
      if (result == QAL_THREAD_BARRIER_LAST) ++last_arrivals;
      for (const int cycle_of_other : begun) EXPECT_GE(cycle_of_other, cycle);
    }
  });
  EXPECT_EQ(last_arrivals, cycles);
  EXPECT_EQ(qal_thread_barrier_destroy(&barrier), 0);
}

// Who waits at a barrier is needed there: cancelling it changes nothing.
void meet_though_cancelled() {
  QalThreadBarrier barrier;
  EXPECT_EQ(qal_thread_barrier_init(&barrier), 0);
  Team team;
  const auto results = together(team, 3, [&](int i) {
    if (i < 2) {
      EXPECT_NE(qal_thread_barrier(&barrier, 2), QAL_THREAD_BARRIER_FAILED);
    } else {
      team.front()->cancel();
    }
  });
  EXPECT_EQ(results, std::vector<int>(3, 0));
  EXPECT_EQ(qal_thread_barrier_destroy(&barrier), 0);
}

TEST_F(BarrierSchedules, TwoThreadsMeetThoughOneIsCancelled) {
  expect_every_good(most_preemptions, Are::different, meet_though_cancelled);
}

TEST_F(BarrierSchedules, TwoThreadsMeet) {
  expect_every_good(most_preemptions, Are::alike, [] { meet(2, 3); });
}

TEST_F(BarrierSchedules, ThreeThreadsMeet) {
  expect_every_good(quick_preemptions(), Are::alike, [] { meet(3, 2); });
}

TEST_F(BarrierSchedules, SixThreadsMeet) {
  expect_random_good([] { meet(6, 3); });
}

}  // namespace

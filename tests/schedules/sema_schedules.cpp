#include <gtest/gtest.h>
#include <qal/thread.h>

#include "schedules.hpp"

namespace {

using qal::test::Are;
using qal::test::every_schedule;
using qal::test::most_preemptions;
using qal::test::quick_preemptions;
using qal::test::replay;
using qal::test::Search;
using qal::test::Team;
using qal::test::together;

using SemaSchedules = qal::test::Schedules;

// Each of the threads takes a permit. One more thread gives those that are missing at first, and
// waits for nobody: whoever joins a group late is still released.
void take_permits(int takers, int permits) {
  QalThreadSema semaphore;
  EXPECT_EQ(qal_thread_sema_init(&semaphore, permits), 0);
  int taken = 0;
  int given = permits;
  together(takers + 1, [&](int i) {
    if (i < takers) {
      EXPECT_EQ(qal_thread_sema_wait(&semaphore), 0);
      EXPECT_LE(++taken, given);
    } else {
      while (given < takers) {
        ++given;
        EXPECT_EQ(qal_thread_sema_release(&semaphore), 0);
      }
    }
  });
  EXPECT_EQ(semaphore.count, 0);
  EXPECT_EQ(semaphore.waiters, 0);
  EXPECT_EQ(qal_thread_sema_destroy(&semaphore), 0);
}

// Two threads take a permit each, but the first one is cancelled as it waits or has passed. Two
// permits are enough for whoever is left, and one comes back from who did not pass.
void take_permits_and_cancel(int releases_before) {
  QalThreadSema semaphore;
  EXPECT_EQ(qal_thread_sema_init(&semaphore, 0), 0);
  int taken = 0;
  Team team;
  const auto results = together(team, 3, [&](int i) {
    if (i < 2) {
      EXPECT_EQ(qal_thread_sema_wait(&semaphore), 0);
      ++taken;
      return;
    }
    for (int made = 0; made < 2; ++made) {
      if (made == releases_before) team.front()->cancel();
      EXPECT_EQ(qal_thread_sema_release(&semaphore), 0);
    }
    if (releases_before == 2) team.front()->cancel();
  });
  EXPECT_EQ(taken, results.front() == QAL_THREAD_NO_RESULT ? 1 : 2);
  EXPECT_EQ(semaphore.count, 2 - taken);
  EXPECT_EQ(semaphore.waiters, 0);
  EXPECT_EQ(qal_thread_sema_destroy(&semaphore), 0);
}

TEST_F(SemaSchedules, OneThreadIsReleased) {
  expect_every_good(most_preemptions, Are::different, [] { take_permits(1, 0); });
}

TEST_F(SemaSchedules, TwoThreadsAreReleased) {
  expect_every_good(most_preemptions, Are::different, [] { take_permits(2, 0); });
}

TEST_F(SemaSchedules, TwoThreadsShareOnePermitUntilThereIsAnother) {
  expect_every_good(most_preemptions, Are::different, [] { take_permits(2, 1); });
}

TEST_F(SemaSchedules, AThreadIsCancelledBeforeItIsReleased) {
  expect_every_good(quick_preemptions(), Are::different, [] { take_permits_and_cancel(0); });
}

TEST_F(SemaSchedules, AThreadIsCancelledBetweenTheReleases) {
  expect_every_good(quick_preemptions(), Are::different, [] { take_permits_and_cancel(1); });
}

TEST_F(SemaSchedules, AThreadIsCancelledAfterTheReleases) {
  expect_every_good(quick_preemptions(), Are::different, [] { take_permits_and_cancel(2); });
}

TEST_F(SemaSchedules, SevenThreadsAreReleased) {
  expect_random_good([] { take_permits(7, 3); });
}

// Deliberate: one comes back before the other has passed and joins it, and nobody is left to
// release.
TEST_F(SemaSchedules, ThreadsThatTakeTurnsWithoutAPauseCanBlock) {
  const auto take_turns = [] {
    QalThreadSema semaphore;
    EXPECT_EQ(qal_thread_sema_init(&semaphore, 1), 0);
    together(2, [&](int) {
      for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(qal_thread_sema_wait(&semaphore), 0);
        EXPECT_EQ(qal_thread_sema_release(&semaphore), 0);
      }
    });
  };
  const Search found = every_schedule(most_preemptions, Are::alike, take_turns);
  EXPECT_EQ(found.failure, "all threads wait");
  const Search again = replay(found.line, Are::alike, take_turns);
  EXPECT_EQ(again.failure, found.failure);
  EXPECT_EQ(again.steps, found.steps);
}

TEST_F(SemaSchedules, ALineOfAnotherRunFails) {
  const Search search = replay("9", Are::alike, [] { take_permits(2, 0); });
  EXPECT_EQ(search.failure, "it is another run");
}

}  // namespace

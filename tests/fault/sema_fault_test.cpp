// Semaphores when the platform's calls fail, and with other threads' steps at critical points.
#include <gtest/gtest.h>
#include <qal/thread.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <utility>

#include "fault/pthread_calls.hpp"
#include "support/silence.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::await;
using qal::test::calls;
using qal::test::refused;
using qal::test::Silence;
using qal::test::Team;
using qal::test::team_of;
using qal::test::Threads;
using qal::test::Worker;

constexpr int untouched = 4711;

class SemaFault : public Threads {
 protected:
  void SetUp() override {
    Threads::SetUp();
    calls.order.clear();
    stops_before_ = calls.stop_here.count();
    signals_before_ = calls.cond_signal.count();
  }
  void TearDown() override { calls.instead_of_wait = nullptr; }

  void begin_with(int permits) { ASSERT_EQ(qal_thread_sema_init(&sema_, permits), 0); }
  int wait() { return qal_thread_sema_wait(&sema_); }
  int release() { return qal_thread_sema_release(&sema_); }
  int stops() const { return calls.stop_here.count() - stops_before_; }
  int signals() const { return calls.cond_signal.count() - signals_before_; }
  int waiters() {
    qal_thread_mutex_lock(&sema_.mutex);
    const int count = sema_.waiters;
    qal_thread_mutex_unlock(&sema_.mutex);
    return count;
  }

  // What other threads do while the caller would wait; they find the mutex free.
  template <typename Step>
  void while_waiting(const Step &step) {
    calls.instead_of_wait = [step](QalThreadCond *, QalThreadMutex *mutex) {
      qal_thread_mutex_unlock(mutex);
      step();
      qal_thread_mutex_lock(mutex);
      return 0;
    };
  }

  QalThreadSema sema_{};

 private:
  Silence silence_;
  int stops_before_ = 0;
  int signals_before_ = 0;
};

using SemaInit = SemaFault;
using SemaDestroy = SemaFault;
using SemaWait = SemaFault;
using SemaRelease = SemaFault;
using SemaReset = SemaFault;

TEST_F(SemaInit, MakesTheMutexAndThenTheCondition) {
  begin_with(3);
  EXPECT_EQ(calls.order, "+mutex +cond ");
}

TEST_F(SemaInit, SetsPermitsAndWaitersWhateverWasThere) {
  sema_.count = sema_.waiters = untouched;
  begin_with(3);
  EXPECT_EQ(sema_.count, 3);
  EXPECT_EQ(sema_.waiters, 0);
}

TEST_F(SemaInit, FailsWithoutAMutex) {
  sema_.count = sema_.waiters = untouched;
  EXPECT_EQ(refused(calls.mutex_init, ENOMEM, [this] { return qal_thread_sema_init(&sema_, 3); }),
            -1);
  EXPECT_EQ(calls.order, "");
  EXPECT_EQ(stops(), 0);
  EXPECT_EQ(sema_.count, untouched);
  EXPECT_EQ(sema_.waiters, untouched);
}

TEST_F(SemaInit, GivesTheMutexBackWhenThereIsNoCondition) {
  sema_.count = sema_.waiters = untouched;
  EXPECT_EQ(refused(calls.cond_init, ENOMEM, [this] { return qal_thread_sema_init(&sema_, 3); }),
            -1);
  EXPECT_EQ(calls.order, "+mutex -mutex ");
  EXPECT_EQ(stops(), 0);
  EXPECT_EQ(sema_.count, untouched);
  EXPECT_EQ(sema_.waiters, untouched);
}

TEST_F(SemaDestroy, EndsTheMutexAndThenTheCondition) {
  begin_with(0);
  calls.order.clear();
  EXPECT_EQ(qal_thread_sema_destroy(&sema_), 0);
  EXPECT_EQ(calls.order, "-mutex -cond ");
}

// Deliberate: the platform's error numbers are positive and are compared with -1.
TEST_F(SemaDestroy, OverlooksThePlatformsErrors) {
  begin_with(0);
  calls.order.clear();
  const auto destroy = [this] { return qal_thread_sema_destroy(&sema_); };
  EXPECT_EQ(refused(calls.mutex_destroy, EBUSY, destroy), 0);
  EXPECT_EQ(calls.order, "-mutex -cond ");
  EXPECT_EQ(refused(calls.cond_destroy, EBUSY, destroy), 0);
  EXPECT_EQ(stops(), 0);
}

TEST_F(SemaDestroy, WouldNoticeAMinusOneOfEitherCall) {
  const auto destroy = [this] { return qal_thread_sema_destroy(&sema_); };
  begin_with(0);
  EXPECT_EQ(refused(calls.mutex_destroy, -1, destroy), -1);
  EXPECT_EQ(refused(calls.cond_destroy, -1, destroy), -1);
}

TEST_F(SemaWait, ThatCannotLockTakesNothing) {
  begin_with(1);
  EXPECT_EQ(refused(calls.mutex_lock, EINVAL, [this] { return wait(); }), -1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.count, 1);
  EXPECT_EQ(sema_.waiters, 0);
}

TEST_F(SemaWait, ThatCannotUnlockFails) {
  begin_with(1);
  EXPECT_EQ(refused(calls.mutex_unlock, EPERM, [this] { return wait(); }), -1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.count, 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&sema_.mutex), 0);
}

TEST_F(SemaWait, WithAPermitNeitherWaitsNorSignals) {
  begin_with(2);
  sema_.waiters = 1;  // released, but not gone yet
  const int waits = calls.cond_wait.count();
  EXPECT_EQ(wait(), 0);
  EXPECT_EQ(wait(), 0);
  EXPECT_EQ(calls.cond_wait.count(), waits);
  EXPECT_EQ(signals(), 0);
}

// The place that a failed wait took is not given back.
TEST_F(SemaWait, ThatThePlatformRefusesStopsWaiting) {
  begin_with(0);
  const int waits = calls.cond_wait.count();
  EXPECT_EQ(refused(calls.cond_wait, EINVAL, [this] { return wait(); }), -1);
  EXPECT_EQ(calls.cond_wait.count(), waits + 1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.count, -1);
  EXPECT_EQ(sema_.waiters, 0);
  EXPECT_EQ(signals(), 0);
  EXPECT_EQ(qal_thread_mutex_trylock(&sema_.mutex), 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&sema_.mutex), 0);
}

TEST_F(SemaWait, ThatThePlatformRefusesStillPassesTheSignalOn) {
  begin_with(0);
  calls.instead_of_wait = [this](QalThreadCond *, QalThreadMutex *) {
    sema_.waiters = 2;
    sema_.count = 0;
    return EINVAL;
  };
  EXPECT_EQ(wait(), -1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.waiters, 1);
  EXPECT_EQ(signals(), 1);
}

TEST_F(SemaWait, GoesOnWaitingWhenWokenWithoutCause) {
  begin_with(0);
  int wakings = 0;
  while_waiting([this, &wakings] {
    EXPECT_EQ(sema_.waiters, 1);
    if (++wakings < 3) return;
    EXPECT_EQ(release(), 0);
  });
  EXPECT_EQ(wait(), 0);
  EXPECT_EQ(wakings, 3);
  EXPECT_EQ(sema_.waiters, 0);
}

TEST_F(SemaWait, PassesTheSignalOnWhileOthersWait) {
  begin_with(0);
  while_waiting([this] {
    sema_.waiters = 3;
    sema_.count = 0;
  });
  EXPECT_EQ(wait(), 0);
  EXPECT_EQ(sema_.waiters, 2);
  EXPECT_EQ(signals(), 1);
}

TEST_F(SemaWait, ThatWasTheLastPassesNothingOn) {
  begin_with(0);
  while_waiting([this] { sema_.count = 5; });
  EXPECT_EQ(wait(), 0);
  EXPECT_EQ(sema_.waiters, 0);
  EXPECT_EQ(signals(), 0);
}

TEST_F(SemaWait, ThatCannotPassTheSignalOnFails) {
  begin_with(0);
  while_waiting([this] {
    sema_.waiters = 2;
    sema_.count = 0;
  });
  EXPECT_EQ(refused(calls.cond_signal, EINVAL, [this] { return wait(); }), -1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.waiters, 1);
}

// Deliberate: the expected counterexample. One thread waits and is released; before it comes to
// look, a newcomer begins to wait. That takes the count below zero again, so both wait on.
TEST_F(SemaWait, JoinsTheGroupThatHasNotPassedYet) {
  begin_with(0);
  std::unique_ptr<Worker> newcomer;
  int rounds = 0;
  const auto begin_second_wait = [&] {
    calls.instead_of_wait = nullptr;
    newcomer = std::make_unique<Worker>([this] { return wait(); });
    await([this] { return waiters() == 2; });
  };
  while_waiting([&] {
    if (++rounds == 1) {
      EXPECT_EQ(release(), 0);
      EXPECT_EQ(sema_.count, 0);
      const auto first_wait = calls.instead_of_wait;
      begin_second_wait();
      EXPECT_EQ(sema_.count, -1);
      calls.instead_of_wait = first_wait;
    } else {
      EXPECT_EQ(sema_.waiters, 2);
      EXPECT_EQ(release(), 0);
    }
  });
  EXPECT_EQ(wait(), 0);
  EXPECT_EQ(rounds, 2);
  EXPECT_EQ(newcomer->join(), 0);
  EXPECT_EQ(sema_.count, 0);
  EXPECT_EQ(sema_.waiters, 0);
}

// One signal wakes the first of those who stay, and each but the last of them passes it on.
TEST_F(SemaWait, ThatIsCancelledSignalsOnlyWhenOthersMayPassThen) {
  for (const auto &[team_size, released] : {std::pair{1, 0}, std::pair{3, 0}, std::pair{3, 2}}) {
    begin_with(0);
    const int before = signals();
    const std::function<void(int)> one_wait = [this](int) { wait(); };
    Team team = team_of(team_size, one_wait);
    await([this, all = team_size] { return waiters() == all; });
    for (int i = 0; i < released; ++i) EXPECT_EQ(release(), 0);
    EXPECT_EQ(team.front()->cancel(), 0);
    EXPECT_EQ(team.front()->join(), -1);
    EXPECT_TRUE(released > 0 || signals() == before);
    for (int i = released; i < team_size - 1; ++i) EXPECT_EQ(release(), 0);
    team.clear();
    EXPECT_EQ(signals(), before + team_size - 1);
    EXPECT_EQ(qal_thread_sema_destroy(&sema_), 0);
  }
}

TEST_F(SemaRelease, SignalsOnceAndOnlyWhenTheCountReachesZero) {
  begin_with(-3);
  for (const int expected : {0, 0, 1, 1, 1}) {
    EXPECT_EQ(release(), 0);
    EXPECT_EQ(signals(), expected);
  }
  EXPECT_EQ(sema_.count, 2);
}

TEST_F(SemaRelease, ThatCannotLockGivesNothing) {
  begin_with(1);
  EXPECT_EQ(refused(calls.mutex_lock, EINVAL, [this] { return release(); }), -1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.count, 1);
}

TEST_F(SemaRelease, ThatCannotSignalGivesThePermitAndFails) {
  begin_with(-1);
  EXPECT_EQ(refused(calls.cond_signal, EINVAL, [this] { return release(); }), -1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.count, 0);
  EXPECT_EQ(qal_thread_mutex_trylock(&sema_.mutex), 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&sema_.mutex), 0);
}

TEST_F(SemaRelease, ThatCannotUnlockFails) {
  begin_with(1);
  EXPECT_EQ(refused(calls.mutex_unlock, EPERM, [this] { return release(); }), -1);
  EXPECT_EQ(stops(), 1);
  EXPECT_EQ(sema_.count, 2);
  EXPECT_EQ(qal_thread_mutex_unlock(&sema_.mutex), 0);
}

TEST_F(SemaReset, TakesNoMutexAndWakesNobody) {
  begin_with(-1);
  sema_.waiters = untouched;
  const int locks = calls.mutex_lock.count();
  EXPECT_EQ(qal_thread_sema_reset(&sema_, 7), 0);
  EXPECT_EQ(calls.mutex_lock.count(), locks);
  EXPECT_EQ(sema_.count, 7);
  EXPECT_EQ(sema_.waiters, 0);
  EXPECT_EQ(signals(), 0);
}

}  // namespace

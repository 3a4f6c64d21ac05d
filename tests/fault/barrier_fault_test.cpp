// Barriers and reductions when the platform's calls fail, in a chosen order of arrival, and with
// threads held back at critical points.
#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "fault/pthread_calls.hpp"
#include "internal/barrier.hpp"
#include "platform/platform.hpp"
#include "support/child.hpp"
#include "support/log_capture.hpp"
#include "support/silence.hpp"
#include "support/threads.hpp"

namespace {

using qal::internal::Patience;
using Clock = Patience::Clock;
using std::chrono::microseconds;

// A clock that advances only when a thread yields.
struct {
  bool is_used = false;
  Clock::time_point now{};
  microseconds turn{0};
} still_clock;
std::atomic<int> turns{0};

}  // namespace

Clock::time_point real_now() __asm__("__real__ZNSt6chrono3_V212steady_clock3nowEv");
Clock::time_point wrapped_now() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
Clock::time_point wrapped_now() { return still_clock.is_used ? still_clock.now : real_now(); }

extern "C" {
int __real_sched_yield();
int __wrap_sched_yield() {
  ++turns;
  if (!still_clock.is_used) return __real_sched_yield();
  still_clock.now += still_clock.turn;
  return 0;
}
}

namespace {

using qal::test::await;
using qal::test::Call;
using qal::test::calls;
using qal::test::cancel_state;
using qal::test::in_new_process;
using qal::test::LogCapture;
using qal::test::refused;
using qal::test::Silence;
using qal::test::Threads;
using qal::test::Unwinding;
using qal::test::Watchdog;
using qal::test::Worker;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

class BarrierFault : public Threads {
 protected:
  void SetUp() override {
    Threads::SetUp();
    calls.order.clear();
    stops_before_ = calls.stop_here.count();
  }
  void TearDown() override {
    calls.instead_of_wait = nullptr;
    calls.behind_wait = nullptr;
    calls.behind_unlock = nullptr;
    EXPECT_EQ(calls.stop_here.count(), stops_before_);  // no case here calls qal_stop_here
  }

  QalThreadBarrier barrier_{};

 private:
  Silence silence_;
  int stops_before_ = 0;
};

// Under the still clock, in new processes: the library remembers until when it rests.
class BarrierPatience : public BarrierFault {
 protected:
  void SetUp() override {
    BarrierFault::SetUp();
    still_clock.is_used = true;
  }
  void TearDown() override {
    still_clock.is_used = false;
    BarrierFault::TearDown();
  }

  // How often a thread yields before it sleeps where there are more threads than processors.
  static int turns_in_a_crowd() {
    const int before = turns;
    Patience patience(UINT_MAX);
    while (patience.lasts()) continue;
    return turns - before;
  }

  // The same after a sleep of this length, in the one wait of nine that is not short.
  static int turns_after_sleep(microseconds length) {
    sleep_in_a_crowd(length);
    int most = 0;
    for (int i = 0; i < 9; ++i) most = std::max(most, turns_in_a_crowd());
    return most;
  }

  // Waits at a barrier until its sleep is over.
  static void sleep_in_a_crowd(microseconds length) {
    QalThreadBarrier barrier;
    ASSERT_EQ(qal_thread_barrier_init(&barrier), 0);
    calls.instead_of_wait = [=](QalThreadCond *, QalThreadMutex *) {
      still_clock.now += length;
      return EINVAL;
    };
    EXPECT_EQ(qal_thread_barrier(&barrier, UINT_MAX), -1);
    calls.instead_of_wait = nullptr;
    EXPECT_EQ(qal_thread_barrier_destroy(&barrier), 0);
  }
};

using ReduceFault = BarrierFault;
using ReduceOrder = BarrierFault;
using ReduceStraggler = BarrierFault;

TEST_F(BarrierFault, MakesTheMutexAndThenTheCondition) {
  calls.has_attributes = true;
  EXPECT_EQ(qal_thread_barrier_init(&barrier_), 0);
  EXPECT_FALSE(calls.has_attributes);
  EXPECT_EQ(qal_thread_barrier_destroy(&barrier_), 0);
  EXPECT_EQ(calls.order, "+mutex +cond -mutex -cond ");
}

TEST_F(BarrierFault, IsNoBarrierWithoutAMutex) {
  EXPECT_EQ(refused(calls.mutex_init, ENOMEM, [&] { return qal_thread_barrier_init(&barrier_); }),
            -1);
  EXPECT_EQ(calls.order, "");
  EXPECT_EQ(qal_thread_barrier(&barrier_, 1), -1);
}

TEST_F(BarrierFault, GivesTheMutexBackWhenThereIsNoCondition) {
  EXPECT_EQ(refused(calls.cond_init, ENOMEM, [&] { return qal_thread_barrier_init(&barrier_); }),
            -1);
  EXPECT_EQ(calls.order, "+mutex -mutex ");
  EXPECT_EQ(qal_thread_barrier(&barrier_, 1), -1);
}

TEST_F(BarrierFault, IsGoneAfterANewStartInVain) {
  for (Call *const part : {&calls.mutex_init, &calls.cond_init}) {
    barrier_.magic = qal::internal::barrier_valid;
    barrier_.count = barrier_.remaining = barrier_.phase = 1;
    EXPECT_EQ(refused(*part, ENOMEM, [&] { return qal_thread_barrier_init(&barrier_); }), -1);
    EXPECT_EQ(barrier_.count + barrier_.remaining + barrier_.phase, 0U);
    const int locks = calls.mutex_lock.count();
    EXPECT_EQ(qal_thread_barrier(&barrier_, 1), -1);
    EXPECT_EQ(calls.mutex_lock.count(), locks);
    EXPECT_EQ(qal_thread_barrier_destroy(&barrier_), -1);
  }
}

TEST_F(BarrierFault, ForgetsItsSizeWithoutALockAndWhateverTheMagic) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  EXPECT_EQ(qal_thread_barrier(&barrier_, 1), 1);
  qal_thread_mutex_lock(&barrier_.mutex);
  const int locks = calls.mutex_lock.count();
  qal_thread_barrier_reinit(&barrier_);
  EXPECT_EQ(calls.mutex_lock.count(), locks);
  EXPECT_EQ(barrier_.count, 0U);
  qal_thread_mutex_unlock(&barrier_.mutex);
  barrier_.magic = 0;
  barrier_.count = 7;
  qal_thread_barrier_reinit(&barrier_);
  EXPECT_EQ(barrier_.count, 0U);
}

TEST_F(BarrierFault, IgnoresWhatItsEndMeets) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  calls.cond_destroy.refuse(EBUSY);
  uint32_t magic = 0;
  calls.before_destroy = [&] { magic = barrier_.magic; };
  EXPECT_EQ(
      refused(calls.mutex_destroy, EBUSY, [&] { return qal_thread_barrier_destroy(&barrier_); }),
      0);
  calls.before_destroy = nullptr;
  calls.cond_destroy.allow();
  EXPECT_EQ(magic, 0xFFFFFFFFU);
  EXPECT_EQ(barrier_.magic, 0xFFFFFFFFU);
}

TEST_F(BarrierFault, CountsNoArrivalThatCannotLock) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  EXPECT_EQ(refused(calls.mutex_lock, EINVAL, [&] { return qal_thread_barrier(&barrier_, 2); }),
            -1);
  EXPECT_EQ(barrier_.count, 0U);
  EXPECT_EQ(barrier_.remaining, 0U);
}

TEST_F(BarrierFault, DoesNotLockWhatIsNoBarrier) {
  const int locks = calls.mutex_lock.count();
  EXPECT_EQ(qal_thread_barrier(&barrier_, 1), -1);
  EXPECT_EQ(calls.mutex_lock.count(), locks);
}

TEST_F(BarrierFault, FailsTheLastArrivalThatCannotBroadcast) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  EXPECT_EQ(refused(calls.cond_broadcast, EINVAL, [&] { return qal_thread_barrier(&barrier_, 1); }),
            -1);
  EXPECT_EQ(barrier_.phase, 1U);
  EXPECT_EQ(barrier_.remaining, 1U);
  EXPECT_EQ(qal_thread_mutex_trylock(&barrier_.mutex), 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&barrier_.mutex), 0);
}

TEST_F(BarrierFault, EndsAWaitThatThePlatformRefuses) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  const int waits = calls.cond_wait.count();
  EXPECT_EQ(refused(calls.cond_wait, EINVAL, [&] { return qal_thread_barrier(&barrier_, 2); }), -1);
  EXPECT_EQ(calls.cond_wait.count(), waits + 1);
  EXPECT_EQ(barrier_.remaining, 1U);
  EXPECT_EQ(cancel_state(), PTHREAD_CANCEL_ENABLE);
  EXPECT_EQ(qal_thread_mutex_trylock(&barrier_.mutex), 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&barrier_.mutex), 0);
}

TEST_F(BarrierFault, EndsAWaitThatCannotLockAgain) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  const int waits = calls.cond_wait.count();
  calls.behind_unlock = [](QalThreadMutex *) { calls.mutex_lock.refuse(EINVAL); };
  const int status = qal_thread_barrier(&barrier_, 2);
  calls.behind_unlock = nullptr;
  calls.mutex_lock.allow();
  EXPECT_EQ(status, -1);
  EXPECT_EQ(calls.cond_wait.count(), waits);
  EXPECT_EQ(cancel_state(), PTHREAD_CANCEL_ENABLE);
  EXPECT_EQ(qal_thread_mutex_trylock(&barrier_.mutex), 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&barrier_.mutex), 0);
}

TEST_F(BarrierFault, CannotBeCancelledAwakeOrAsleep) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  int awake = -2;
  int asleep = -2;
  calls.behind_unlock = [&, first = true](QalThreadMutex *) mutable {
    if (std::exchange(first, false)) awake = cancel_state();
  };
  calls.instead_of_wait = [&asleep](QalThreadCond *, QalThreadMutex *) {
    asleep = cancel_state();
    return EINVAL;
  };
  EXPECT_EQ(qal_thread_barrier(&barrier_, 2), -1);
  EXPECT_EQ(awake, PTHREAD_CANCEL_DISABLE);
  EXPECT_EQ(asleep, PTHREAD_CANCEL_DISABLE);
  EXPECT_EQ(cancel_state(), PTHREAD_CANCEL_ENABLE);
}

TEST_F(BarrierFault, UnwindsAThreadThatWasCancelledInItsWait) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  calls.instead_of_wait = [](QalThreadCond *, QalThreadMutex *) {
    pthread_cancel(pthread_self());
    return EINVAL;
  };
  const int unwound = Unwinding::count;
  Worker waiter([this] {
    const Unwinding unwinding;
    pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    return qal_thread_barrier(&barrier_, 2);
  });
  EXPECT_EQ(waiter.join(), -1);
  EXPECT_EQ(Unwinding::count, unwound + 1);
}

TEST_F(BarrierFault, DoesNotSleepWhenTheOthersHaveComeMeanwhile) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  const int waits = calls.cond_wait.count();
  calls.behind_unlock = [this, first = true](QalThreadMutex *) mutable {
    if (!std::exchange(first, false)) return;
    Worker last([this] { return qal_thread_barrier(&barrier_, 2); });
    EXPECT_EQ(last.join(), 1);
  };
  EXPECT_EQ(qal_thread_barrier(&barrier_, 2), 0);
  EXPECT_EQ(calls.cond_wait.count(), waits);
}

// The next waiter is woken twice without cause, and a third time after `cause`.
void wake_thrice(const std::function<void()> &cause) {
  const int waits = calls.cond_wait.count();
  calls.instead_of_wait = [=](QalThreadCond *, QalThreadMutex *mutex) {
    qal_thread_mutex_unlock(mutex);
    if (calls.cond_wait.count() == waits + 3) {
      calls.instead_of_wait = nullptr;
      cause();
    }
    qal_thread_mutex_lock(mutex);
    return 0;
  };
}

TEST_F(BarrierFault, GoesOnWaitingWhenWokenWithoutCause) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  const int waits = calls.cond_wait.count();
  const auto arrive = [this] { return qal_thread_barrier(&barrier_, 2); };
  int status_of_last = -1;
  wake_thrice([&] { status_of_last = Worker(arrive).join(); });
  EXPECT_EQ(arrive(), 0);
  EXPECT_EQ(status_of_last, 1);
  EXPECT_EQ(calls.cond_wait.count(), waits + 3);
}

TEST_F(BarrierFault, IgnoresAnUnlockingThatThePlatformRefuses) {
  ASSERT_EQ(qal_thread_barrier_init(&barrier_), 0);
  EXPECT_EQ(refused(calls.mutex_unlock, EPERM, [&] { return qal_thread_barrier(&barrier_, 1); }),
            1);
  EXPECT_EQ(qal_thread_mutex_unlock(&barrier_.mutex), 0);
}

TEST_F(BarrierPatience, LastsForAHundredMicrosecondsAtFirst) {
  in_new_process([] {
    still_clock.turn = microseconds{10};
    EXPECT_EQ(turns_in_a_crowd(), 10);
  });
}

TEST_F(BarrierPatience, ComesBeforeTheSleepAtABarrier) {
  in_new_process([] {
    still_clock.turn = microseconds{10};
    const int before = turns;
    sleep_in_a_crowd(microseconds{0});
    EXPECT_EQ(turns, before + 10);
  });
}

TEST_F(BarrierPatience, GivesEightTurnsThatAreNotLong) {
  in_new_process([] {
    still_clock.turn = microseconds{100};
    EXPECT_EQ(turns_in_a_crowd(), 8);
  });
}

TEST_F(BarrierPatience, IsShortEightTimesAfterItWasInVain) {
  in_new_process([] {
    still_clock.turn = microseconds{10};
    for (int cycle = 0; cycle < 3; ++cycle) {
      EXPECT_EQ(turns_in_a_crowd(), 10);
      for (int i = 0; i < 8; ++i) EXPECT_EQ(turns_in_a_crowd(), 8);
    }
  });
}

// A wait that the others end in time does not count as one in vain.
TEST_F(BarrierPatience, StaysAsItIsWhileTheOthersComeInTime) {
  in_new_process([] {
    still_clock.turn = microseconds{10};
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(Patience(UINT_MAX).lasts());
    EXPECT_EQ(turns_in_a_crowd(), 10);
  });
}

TEST_F(BarrierPatience, LastsForAsLongAsTheLastSleepTook) {
  in_new_process([] {
    still_clock.turn = microseconds{1};
    for (const int length : {30, 15, 30, 60, 100}) {
      EXPECT_EQ(turns_after_sleep(microseconds{length}), length);
    }
  });
}

TEST_F(BarrierPatience, AtMostDoublesAfterALongSleep) {
  in_new_process([] {
    still_clock.turn = microseconds{1};
    EXPECT_EQ(turns_after_sleep(microseconds{20}), 20);
    for (const int turns_after : {40, 80, 100, 100}) {
      EXPECT_EQ(turns_after_sleep(microseconds{5000}), turns_after);
    }
  });
}

TEST_F(BarrierPatience, GrowsAgainAfterSleepsThatTookNoTime) {
  in_new_process([] {
    still_clock.turn = microseconds{1};
    EXPECT_EQ(turns_after_sleep(microseconds{0}), 8);
    for (const int turns_after : {8, 8, 8, 16, 32}) {
      EXPECT_EQ(turns_after_sleep(microseconds{5000}), turns_after);
    }
  });
}

TEST_F(BarrierPatience, RestsAsLongAsALongTurnTook) {
  in_new_process([] {
    still_clock.turn = microseconds{200};
    EXPECT_EQ(turns_in_a_crowd(), 1);
    EXPECT_EQ(turns_in_a_crowd(), 0);
    still_clock.turn = microseconds{10};
    still_clock.now += microseconds{199};
    EXPECT_EQ(turns_in_a_crowd(), 0);
    still_clock.now += microseconds{1};
    EXPECT_EQ(turns_in_a_crowd(), 10);
  });
}

TEST_F(BarrierPatience, SpinsForTwoMicrosecondsWhenEverybodyHasAProcessor) {
  in_new_process([] {
    still_clock.turn = microseconds{100};
    const int before = turns;
    Patience patience(1);
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(patience.lasts());
    still_clock.now += microseconds{2};
    EXPECT_TRUE(patience.lasts());
    EXPECT_EQ(turns, before);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(patience.lasts());
    EXPECT_FALSE(patience.lasts());
    EXPECT_EQ(turns, before + 8);
  });
}

TEST_F(BarrierPatience, SpinsForUpToAsManyThreadsAsThereAreProcessors) {
  in_new_process([] {
    int processors = 0;
    ASSERT_TRUE(qal::internal::platform::processor_count(processors));
    const auto most = static_cast<unsigned>(processors);
    const int before = turns;
    EXPECT_TRUE(Patience(most).lasts());
    EXPECT_EQ(turns, before);
    EXPECT_TRUE(Patience(most + 1).lasts());
    EXPECT_EQ(turns, before + 1);
  });
}

TEST_F(BarrierPatience, DoesNotSpinEightTimesAfterItWasInVain) {
  in_new_process([] {
    const int before = turns;
    Patience in_vain(1);
    still_clock.now += microseconds{2};
    EXPECT_TRUE(in_vain.lasts());
    for (int i = 1; i <= 8; ++i) {
      EXPECT_TRUE(Patience(1).lasts());
      EXPECT_EQ(turns, before + i);
    }
    EXPECT_TRUE(Patience(1).lasts());
    EXPECT_EQ(turns, before + 8);
  });
}

struct Operation {
  const char *message;
  std::function<double(int nthreads)> run;
};

const Operation operations[] = {
    {"ERROR: qal_thread_reduce_dmax: error from locking dmax_mutex 35\n",
     [](int nthreads) { return qal_thread_reduce_dmax(3, nthreads); }},
    {"ERROR: qal_thread_reduce_dmin: error from locking dmin_mutex 35\n",
     [](int nthreads) { return qal_thread_reduce_dmin(3, nthreads); }},
    {"ERROR: qal_thread_global_dsum: error from locking dsum_mutex 35\n",
     [](int nthreads) { return qal_thread_global_dsum(3, nthreads); }},
    {"ERROR: qal_thread_global_dsums: error from locking dsums_mutex 35\n",
     [](int nthreads) {
       const double in = 3;
       double out = 0;
       qal_thread_global_dsums(&in, &out, 1, nthreads);
       return out;
     }},
    {"ERROR: qal_thread_global_isum: error from locking isum_mutex 35\n",
     [](int nthreads) { return qal_thread_global_isum(3, nthreads); }},
    {"ERROR: qal_thread_global_isums: error from locking isums_mutex 35\n",
     [](int nthreads) {
       const int in = 3;
       int out = 0;
       qal_thread_global_isums(&in, &out, 1, nthreads);
       return static_cast<double>(out);
     }},
};

TEST_F(ReduceFault, MakesItsBarriersOnce) {
  in_new_process([] {
    const Watchdog watchdog;
    for (const auto &operation : operations) {
      calls.order.clear();
      EXPECT_EQ(operation.run(1), 3);
      EXPECT_EQ(calls.order, "+mutex +cond +mutex +cond ");
      EXPECT_EQ(operation.run(1), 3);
      EXPECT_EQ(calls.order, "+mutex +cond +mutex +cond ");
    }
  });
}

// Nothing ends the cycle then, so later values are combined with the earlier ones.
TEST_F(ReduceFault, WithoutBarriersWaitsForNobodyAndNeverBeginsAfresh) {
  in_new_process([] {
    const Watchdog watchdog;
    const LogCapture log;
    EXPECT_EQ(refused(calls.cond_init, ENOMEM, [] { return qal_thread_global_isum(3, 2); }), 3);
    EXPECT_EQ(qal_thread_global_isum(4, 2), 7);
    EXPECT_EQ(refused(calls.mutex_init, ENOMEM, [] { return qal_thread_reduce_dmax(3, 2); }), 3);
    EXPECT_EQ(qal_thread_reduce_dmax(1, 2), 3);
    EXPECT_EQ(log.text(), "");
  });
}

TEST_F(ReduceFault, ReportsTheLockThatThePlatformRefusesAndTakesNoPart) {
  for (const auto &operation : operations) {
    EXPECT_EQ(operation.run(1), 3);  // makes the barriers
    const LogCapture log;
    const int locks = calls.mutex_lock.count();
    const int waits = calls.cond_wait.count();
    calls.mutex_lock.refuse_next(35);
    EXPECT_EQ(refused(calls.cond_wait, EINVAL, [&] { return operation.run(2); }), 0);
    EXPECT_EQ(log.text(), operation.message);
    EXPECT_EQ(calls.mutex_lock.count(), locks + 1);
    EXPECT_EQ(calls.cond_wait.count(), waits);
    EXPECT_EQ(operation.run(1), 3);
  }
}

TEST_F(ReduceFault, BeginsAfreshAfterABroadcastThatThePlatformRefuses) {
  for (const auto &operation : operations) {
    EXPECT_EQ(refused(calls.cond_broadcast, EINVAL, [&] { return operation.run(1); }), 3);
    EXPECT_EQ(operation.run(1), 3);
  }
}

TEST_F(ReduceFault, GoesOnWaitingWhenWokenWithoutCause) {
  std::optional<Worker> other;
  const int waits = calls.cond_wait.count();
  wake_thrice([&] {
    other.emplace([] { return qal_thread_global_isum(4, 2); });
    await([=] { return calls.cond_wait.count() > waits + 3; });  // for the second meeting
  });
  EXPECT_EQ(qal_thread_global_isum(3, 2), 7);
  ASSERT_TRUE(other);
  EXPECT_EQ(other->join(), 7);
}

// The caller alone has contributed then, and goes on with what it contributed.
TEST_F(ReduceFault, GoesOnAloneWhenItCannotWaitForTheOthers) {
  in_new_process([] {
    const Watchdog watchdog;
    for (const auto &operation : operations) {
      const int waits = calls.cond_wait.count();
      EXPECT_EQ(refused(calls.cond_wait, EINVAL, [&] { return operation.run(2); }), 3);
      EXPECT_EQ(calls.cond_wait.count(), waits + 2);
    }
  });
}

// The reduction's own mutex is locked first; the barriers' are those that follow.
TEST_F(ReduceFault, GoesOnAloneWhenItCannotLockTheBarriers) {
  in_new_process([] {
    const Watchdog watchdog;
    for (const auto &operation : operations) {
      operation.run(1);  // makes the barriers
      calls.behind_unlock = [](QalThreadMutex *) { calls.mutex_lock.refuse(EINVAL); };
      EXPECT_EQ(operation.run(2), 3);
      calls.behind_unlock = nullptr;
      calls.mutex_lock.allow();
    }
  });
}

// Contributes `first` and, once that thread waits for the other, `second`; both get the same.
template <typename Value>
Value in_order(Value (*operation)(Value, int), Value first, Value second) {
  const int waits = calls.cond_wait.count();
  Value early_result{};
  Worker early([&] {
    early_result = operation(first, 2);
    return 0;
  });
  await([=] { return calls.cond_wait.count() > waits; });
  const Value late_result = operation(second, 2);
  early.join();
  EXPECT_EQ(std::bit_cast<std::uint64_t>(early_result), std::bit_cast<std::uint64_t>(late_result));
  return late_result;
}

TEST_F(ReduceOrder, KeepsTheStoredOneOfEqualValues) {
  EXPECT_TRUE(std::signbit(in_order(&qal_thread_reduce_dmax, -0.0, 0.0)));
  EXPECT_FALSE(std::signbit(in_order(&qal_thread_reduce_dmax, 0.0, -0.0)));
  EXPECT_TRUE(std::signbit(in_order(&qal_thread_reduce_dmin, -0.0, 0.0)));
  EXPECT_FALSE(std::signbit(in_order(&qal_thread_reduce_dmin, 0.0, -0.0)));
}

TEST_F(ReduceOrder, KeepsNotANumberWhenItCameFirst) {
  EXPECT_TRUE(std::isnan(in_order(&qal_thread_reduce_dmax, not_a_number, 1.0)));
  EXPECT_TRUE(std::isnan(in_order(&qal_thread_reduce_dmin, not_a_number, 1.0)));
  EXPECT_EQ(in_order(&qal_thread_reduce_dmax, 1.0, not_a_number), 1.0);
  EXPECT_EQ(in_order(&qal_thread_reduce_dmin, 1.0, not_a_number), 1.0);
}

TEST_F(ReduceOrder, TakesTheBetterValueWheneverItComes) {
  EXPECT_EQ(in_order(&qal_thread_reduce_dmax, 1.0, 2.0), 2.0);
  EXPECT_EQ(in_order(&qal_thread_reduce_dmax, 2.0, 1.0), 2.0);
  EXPECT_EQ(in_order(&qal_thread_reduce_dmin, 1.0, 2.0), 1.0);
  EXPECT_EQ(in_order(&qal_thread_reduce_dmin, 2.0, 1.0), 1.0);
}

double sum_of_arrays(double x, int nthreads) {
  static double sum;
  qal_thread_global_dsums(&x, &sum, 1, nthreads);
  return sum;
}

// Sums three values in this order.
double sum_in_order(double (*operation)(double, int), double first, double second, double third) {
  const int waits = calls.cond_wait.count();
  Worker early([=] {
    operation(first, 3);
    return 0;
  });
  await([=] { return calls.cond_wait.count() > waits; });
  Worker middle([=] {
    operation(second, 3);
    return 0;
  });
  await([=] { return calls.cond_wait.count() > waits + 1; });
  return operation(third, 3);
}

TEST_F(ReduceOrder, AddsAsTheThreadsArrive) {
  for (const auto operation : {&qal_thread_global_dsum, &sum_of_arrays}) {
    EXPECT_EQ(sum_in_order(operation, 1e100, -1e100, 1.0), 1.0);
    EXPECT_EQ(sum_in_order(operation, 1.0, 1e100, -1e100), 0.0);
  }
}

thread_local int unlockings_of_late = INT_MIN;  // of every other thread

// Two threads meet in an operation, one of them so late at both barriers that the other sleeps
// there already; then each goes on alone.
class LateMeeting {
 public:
  // Holds the early thread, which the second barrier has released, until the late one is done.
  void hold_the_early() {
    calls.behind_wait = [this](QalThreadCond *condition, QalThreadMutex *mutex) {
      if (!at_second_barrier(condition)) return;
      qal_thread_mutex_unlock(mutex);
      await([this] { return done_.load(); });
      qal_thread_mutex_lock(mutex);
    };
  }
  // Holds the late thread, as soon as it has let the mutex of the second barrier go, until the
  // early one is done.
  void hold_the_late() { late_is_held_ = true; }

  void run(const Operation &operation) {
    calls.behind_unlock = [this](QalThreadMutex *) { unlocked(); };
    Worker early([&] { return go(operation); });
    await_waits(1);
    Worker late([&] {
      unlockings_of_late = 0;
      return go(operation);
    });
    EXPECT_EQ(early.join(), late.join()) << operation.message;
    calls.behind_unlock = nullptr;
    calls.behind_wait = nullptr;
  }

 private:
  // The result of the two. The lone run in between must not change it for the one held back.
  int go(const Operation &operation) {
    const double together = operation.run(2);
    EXPECT_EQ(operation.run(1), 3);
    done_ = true;
    return static_cast<int>(together);
  }
  // The late thread unlocks the operation's mutex, then the first barrier's, then the second's.
  void unlocked() {
    ++unlockings_of_late;
    if (unlockings_of_late == 2) await_waits(2);
    if (unlockings_of_late == 3 && late_is_held_) await([this] { return done_.load(); });
  }
  void await_waits(int expected) {
    await([=, this] { return calls.cond_wait.count() - waits_before_ >= expected; });
  }
  bool at_second_barrier(QalThreadCond *condition) {
    QalThreadCond *none = nullptr;
    return !first_.compare_exchange_strong(none, condition) && none != condition;
  }

  const int waits_before_ = calls.cond_wait.count();
  bool late_is_held_ = false;
  std::atomic<QalThreadCond *> first_{nullptr};
  std::atomic<bool> done_{false};
};

TEST_F(ReduceStraggler, IsReleasedThoughASmallerGroupCameAndWent) {
  for (const auto &operation : operations) {
    LateMeeting meeting;
    meeting.hold_the_early();
    meeting.run(operation);
  }
}

TEST_F(ReduceStraggler, FindsTheSizesForgottenOnceItIsReleased) {
  for (const auto &operation : operations) {
    LateMeeting meeting;
    meeting.hold_the_late();
    meeting.run(operation);
  }
}

}  // namespace

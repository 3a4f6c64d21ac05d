#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "support/threads.hpp"

namespace {

using qal::test::await;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::Threads;
using qal::test::Unwinding;
using qal::test::Worker;

constexpr std::uint32_t valid = 43981;
constexpr std::uint32_t destroyed = 0xFFFFFFFF;

static_assert(std::is_same_v<decltype(QalThreadBarrier::count), std::uint32_t>);
static_assert(std::is_same_v<decltype(QalThreadBarrier::remaining), std::uint32_t>);
static_assert(std::is_same_v<decltype(QalThreadBarrier::phase), std::uint32_t>);
static_assert(std::is_same_v<decltype(QalThreadBarrier::magic), std::uint32_t>);

class Barrier {
 public:
  Barrier() { EXPECT_EQ(qal_thread_barrier_init(&record), 0); }
  ~Barrier() { qal_thread_barrier_destroy(&record); }
  Barrier(const Barrier &) = delete;
  Barrier &operator=(const Barrier &) = delete;

  int meet(unsigned n) { return qal_thread_barrier(&record, n); }
  void await_remaining(std::uint32_t expected) {
    await([this, expected] {
      qal_thread_mutex_lock(&record.mutex);
      const bool reached = record.count != 0 && record.remaining == expected;
      qal_thread_mutex_unlock(&record.mutex);
      return reached;
    });
  }

  QalThreadBarrier record;
};

class BarrierMeet : public Threads {
 protected:
  // All threads meet `cycles` times; each time exactly one of them is told that it came last.
  void meet_over_and_over(int threads, int cycles) {
    std::vector<int> lasts(static_cast<std::size_t>(threads));
    run_together(threads, [&, this](int i) {
      for (int cycle = 0; cycle < cycles; ++cycle) {
        const int status = barrier_.meet(static_cast<unsigned>(threads));
        EXPECT_TRUE(status == 0 || status == 1);
        lasts[static_cast<std::size_t>(i)] += status;
      }
    });
    int all = 0;
    for (const int last : lasts) all += last;
    EXPECT_EQ(all, cycles) << threads;
  }

  Barrier barrier_;
};

using BarrierRecord = Threads;
using BarrierDestroy = Threads;

TEST_F(BarrierRecord, IsValidAndWithoutSizeAtFirst) {
  const Barrier barrier;
  EXPECT_EQ(barrier.record.count, 0U);
  EXPECT_EQ(barrier.record.remaining, 0U);
  EXPECT_EQ(barrier.record.phase, 0U);
  EXPECT_EQ(barrier.record.magic, valid);
}

TEST_F(BarrierRecord, FollowsTheCycles) {
  Barrier barrier;
  for (const std::uint32_t phase : {1U, 0U, 1U}) {
    EXPECT_EQ(barrier.meet(1), 1);
    EXPECT_EQ(barrier.record.count, 1U);
    EXPECT_EQ(barrier.record.remaining, 1U);
    EXPECT_EQ(barrier.record.phase, phase);
  }
}

TEST_F(BarrierRecord, KeepsItsPhaseWhenItsSizeIsForgotten) {
  Barrier barrier;
  EXPECT_EQ(barrier.meet(1), 1);
  qal_thread_barrier_reinit(&barrier.record);
  EXPECT_EQ(barrier.record.count, 0U);
  EXPECT_EQ(barrier.record.remaining, 1U);
  EXPECT_EQ(barrier.record.phase, 1U);
  EXPECT_EQ(barrier.record.magic, valid);
}

TEST_F(BarrierMeet, TellsTheLastArrivalAlone) {
  Worker first([this] { return barrier_.meet(3); });
  barrier_.await_remaining(2);
  Worker second([this] { return barrier_.meet(3); });
  barrier_.await_remaining(1);
  EXPECT_EQ(barrier_.meet(3), 1);
  EXPECT_EQ(first.join(), 0);
  EXPECT_EQ(second.join(), 0);
  EXPECT_EQ(barrier_.record.remaining, 3U);
}

TEST_F(BarrierMeet, LetsOneThreadPassAtOnce) {
  for (int i = 0; i < 10; ++i) EXPECT_EQ(barrier_.meet(1), 1);
}

// The first that waits in a process asks how many processors there are.
TEST_F(BarrierMeet, KeepsErrno) {
  Worker waiter([this] {
    errno = 0;
    EXPECT_EQ(barrier_.meet(2), 0);
    return errno;
  });
  barrier_.await_remaining(1);
  EXPECT_EQ(barrier_.meet(2), 1);
  EXPECT_EQ(waiter.join(), 0);
}

TEST_F(BarrierMeet, ShowsEveryThreadWhatTheOthersWroteBefore) {
  constexpr int threads = 4;
  std::array<int, threads> written{};
  run_together(threads, [&](int i) {
    for (int cycle = 1; cycle <= repetitions(5'000); ++cycle) {
      written[static_cast<std::size_t>(i)] = cycle;
      barrier_.meet(threads);
      for (const int value : written) EXPECT_EQ(value, cycle);
      barrier_.meet(threads);
    }
  });
}

TEST_F(BarrierMeet, IsUsedAgainAtOnce) { meet_over_and_over(4, repetitions(20'000)); }

TEST_F(BarrierMeet, WorksForGroupsOfManySizes) {
  for (const int threads : {2, 16, 1, 3, 8, 5}) {
    meet_over_and_over(threads, repetitions(2'000));
    EXPECT_EQ(barrier_.record.count, static_cast<std::uint32_t>(threads));
    qal_thread_barrier_reinit(&barrier_.record);
  }
}

TEST_F(BarrierMeet, KeepsTheSizeThatWasFixedFirst) {
  for (const unsigned ignored : {3U, 1U, 0U, UINT_MAX}) {
    qal_thread_barrier_reinit(&barrier_.record);
    Worker first([this] { return barrier_.meet(2); });
    barrier_.await_remaining(1);
    EXPECT_EQ(barrier_.meet(ignored), 1);
    EXPECT_EQ(first.join(), 0);
    EXPECT_EQ(barrier_.record.count, 2U);
  }
}

TEST_F(BarrierMeet, KeepsTheSizeInLaterCyclesToo) {
  Worker first([this] { return barrier_.meet(2) + barrier_.meet(7); });
  Worker second([this] { return barrier_.meet(2) + barrier_.meet(9); });
  EXPECT_EQ(first.join() + second.join(), 2);
}

TEST_F(BarrierMeet, RefusesASizeOfZero) {
  EXPECT_EQ(barrier_.meet(0), -1);
  EXPECT_EQ(barrier_.record.count, 0U);
  EXPECT_EQ(barrier_.record.phase, 0U);
  EXPECT_EQ(barrier_.meet(1), 1);
  EXPECT_EQ(barrier_.meet(0), 1);
  qal_thread_barrier_reinit(&barrier_.record);
  EXPECT_EQ(barrier_.meet(0), -1);
}

TEST_F(BarrierMeet, CannotBeCancelledWhileItWaits) {
  int status = -2;
  int state = -2;
  Worker waiter([&] {
    const Unwinding unwinding;
    status = barrier_.meet(2);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
    pthread_testcancel();
    return 0;
  });
  barrier_.await_remaining(1);
  EXPECT_EQ(waiter.cancel(), 0);
  EXPECT_EQ(barrier_.meet(2), 1);
  EXPECT_EQ(waiter.join(), -1);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
}

TEST_F(BarrierMeet, LeavesCancellationSwitchedOffWhereItWas) {
  Worker waiter([this] {
    int state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    EXPECT_EQ(barrier_.meet(2), 0);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    return state;
  });
  barrier_.await_remaining(1);
  EXPECT_EQ(barrier_.meet(2), 1);
  EXPECT_EQ(waiter.join(), PTHREAD_CANCEL_DISABLE);
}

TEST_F(BarrierDestroy, EndsTheBarrier) {
  Barrier barrier;
  EXPECT_EQ(qal_thread_barrier_destroy(&barrier.record), 0);
  EXPECT_EQ(barrier.record.magic, destroyed);
  EXPECT_EQ(barrier.meet(1), -1);
  EXPECT_EQ(qal_thread_barrier_destroy(&barrier.record), -1);
  EXPECT_EQ(barrier.record.magic, destroyed);
}

TEST_F(BarrierDestroy, MayBeFollowedByANewStart) {
  Barrier barrier;
  EXPECT_EQ(barrier.meet(1), 1);
  EXPECT_EQ(qal_thread_barrier_destroy(&barrier.record), 0);
  EXPECT_EQ(qal_thread_barrier_init(&barrier.record), 0);
  EXPECT_EQ(barrier.record.count, 0U);
  EXPECT_EQ(barrier.record.phase, 0U);
  EXPECT_EQ(barrier.meet(1), 1);
}

TEST_F(BarrierDestroy, RefusesWhatIsNoBarrier) {
  for (const std::uint32_t magic : {0U, valid - 1, valid + 1, valid | 0x10000U, destroyed}) {
    QalThreadBarrier barrier{};
    barrier.magic = magic;
    EXPECT_EQ(qal_thread_barrier(&barrier, 1), -1);
    EXPECT_EQ(qal_thread_barrier_destroy(&barrier), -1);
    EXPECT_EQ(barrier.magic, magic);
    EXPECT_EQ(barrier.count, 0U);
  }
}

TEST_F(BarrierDestroy, RefusesNull) {
  EXPECT_EQ(qal_thread_barrier_init(nullptr), -1);
  EXPECT_EQ(qal_thread_barrier(nullptr, 1), -1);
  EXPECT_EQ(qal_thread_barrier_destroy(nullptr), -1);
  qal_thread_barrier_reinit(nullptr);
}

}  // namespace

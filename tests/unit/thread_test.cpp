#include <gtest/gtest.h>
#include <qal/thread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "support/child.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::await;
using qal::test::Gate;
using qal::test::in_child;
using qal::test::in_new_process;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::Threads;
using qal::test::Unwinding;
using qal::test::Worker;

constexpr int last_index = 2047;
constexpr int untouched = 4711;

// Made before any test is registered: on Linux it is key 0, and so reads the layer's own key until
// start-up makes it.
const QalThreadKey first_key = [] {
  QalThreadKey key{};
  pthread_key_create(&key, nullptr);
  return key;
}();

using ThreadInit = Threads;
using ThreadCreate = Threads;
using ThreadJoin = Threads;
using ThreadCancel = Threads;
using ThreadStart = Threads;
using ThreadKey = Threads;
using ThreadMutex = Threads;
using ThreadCond = Threads;
using ThreadSema = Threads;

int own_index(void *) { return qal_thread_index(); }

int start(QalThreadRoutine routine, void *argument = nullptr) {
  int index = untouched;
  EXPECT_EQ(qal_thread_create(&index, routine, argument), 0);
  return index;
}

int join(int index) {
  int result = untouched;
  EXPECT_EQ(qal_thread_join(&index, &result), 0);
  return result;
}

// What a join that fails stores all the same.
int failed_join(int index) {
  int result = untouched;
  EXPECT_EQ(qal_thread_join(&index, &result), -1);
  return result;
}

int next_index() {
  const int index = start(&own_index);
  join(index);
  return index;
}

// Uses indices up until `last` was handed out.
void go_round_to(int last) {
  while (next_index() != last) {
  }
}

// The first free index of the table.
int lowest_index() {
  go_round_to(last_index);
  return next_index();
}

// What `question` returns in a thread that the layer did not start.
template <typename Question>
int ask_elsewhere(const Question &question) {
  int answer = untouched;
  std::thread([&] { answer = question(); }).join();
  return answer;
}

void *as_index(std::intptr_t number) { return reinterpret_cast<void *>(number); }

[[noreturn]] int wait_for_cancellation(void *) {
  const Unwinding unwinding;
  for (;;) pause();
}

TEST(ThreadBeforeStartUp, ReadsAsTheMainThread) {
  in_new_process([] {
    EXPECT_EQ(qal_thread_index(), 0);
    EXPECT_EQ(qal_thread_self(), 0);
  });
}

TEST(ThreadBeforeStartUp, TakesNoOtherKeysValueForAnIndex) {
  in_new_process([] {
    ASSERT_EQ(pthread_setspecific(first_key, as_index(7)), 0);
    EXPECT_EQ(qal_thread_index(), 0);
  });
}

TEST(ThreadBeforeStartUp, MayUseMutexes) {
  in_new_process([] {
    QalThreadMutex mutex;
    EXPECT_EQ(qal_thread_mutex_init(&mutex), 0);
    EXPECT_EQ(qal_thread_mutex_lock(&mutex), 0);
    EXPECT_EQ(qal_thread_mutex_unlock(&mutex), 0);
    EXPECT_EQ(qal_thread_mutex_destroy(&mutex), 0);
  });
}

TEST(ThreadSetUp, OfThePlatformHasNothingToDo) { EXPECT_EQ(qal_thread_init_sys(), 0); }

TEST(ThreadSetUp, AcceptsAnyConcurrency) {
  for (const int level : {256, 0, -1, INT_MAX, INT_MIN}) {
    EXPECT_EQ(qal_thread_setconcurrency(level), 0);
  }
}

TEST_F(ThreadInit, MakesTheCallerTheMainThread) {
  EXPECT_EQ(qal_thread_index(), 0);
  EXPECT_EQ(qal_thread_self(), 0);
}

TEST_F(ThreadInit, FreesEverySlotButTheMainThreads) {
  EXPECT_EQ(next_index(), 1);
  EXPECT_EQ(next_index(), 2);
  ASSERT_EQ(qal_thread_init(), 0);
  EXPECT_EQ(next_index(), 1);
  EXPECT_EQ(lowest_index(), 1);
}

TEST_F(ThreadInit, ClearsTheResults) {
  const int index = start([](void *) { return 7; });
  join(index);
  ASSERT_EQ(qal_thread_init(), 0);
  EXPECT_EQ(failed_join(index), 0);
}

TEST_F(ThreadInit, LeavesEarlierThreadsJoinable) {
  Gate gate;
  Worker early([&gate] {
    gate.wait();
    return 5 + qal_thread_index();  // the index went with the old key
  });
  await([&gate] { return gate.arrived() == 1; });
  ASSERT_EQ(qal_thread_init(), 0);
  gate.open();
  EXPECT_EQ(early.join(), 5);
}

TEST_F(ThreadInit, LeavesEarlierThreadsCancellable) {
  std::atomic<bool> waits{false};
  Worker early([&waits] {
    waits = true;
    return wait_for_cancellation(nullptr);
  });
  await([&waits] { return waits.load(); });
  ASSERT_EQ(qal_thread_init(), 0);
  EXPECT_EQ(early.cancel(), 0);
  EXPECT_EQ(early.join(), 0);  // its result was cleared
}

TEST_F(ThreadInit, LeavesRoutinesAndArgumentsWhereTheyAre) {
  int runs = 0;
  const int index = start([](void *argument) { return ++*static_cast<int *>(argument); }, &runs);
  EXPECT_EQ(join(index), 1);
  ASSERT_EQ(qal_thread_init(), 0);
  ask_elsewhere([=] { return qal_thread_start_void(as_index(index)) == nullptr ? 1 : 0; });
  EXPECT_EQ(runs, 2);
}

// In a process of its own, because each start takes a key and the keys run out.
TEST(ThreadSetUp, MayBeRepeatedBeyondTheNumberOfKeys) {
  in_child([] {
    for (int i = 0; i < 3000; ++i) ASSERT_EQ(qal_thread_init(), 0);
    EXPECT_EQ(qal_thread_index(), 0);
    EXPECT_EQ(join(start(&own_index)), 1);
  });
}

TEST_F(ThreadCreate, NumbersThreadsFromOne) {
  const int first = start(&own_index);
  const int second = start(&own_index);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 2);
  EXPECT_EQ(join(first), 1);
  EXPECT_EQ(join(second), 2);
}

TEST_F(ThreadCreate, LetsAThreadAskForItsNumberByEitherName) {
  EXPECT_EQ(join(start([](void *) { return qal_thread_self(); })), 1);
  EXPECT_EQ(join(start([](void *) { return qal_thread_index(); })), 2);
  EXPECT_EQ(qal_thread_index(), 0);
}

TEST_F(ThreadCreate, HandsTheArgumentOver) {
  int number = 0;
  const auto increment = [](void *argument) { return ++*static_cast<int *>(argument); };
  EXPECT_EQ(join(start(increment, &number)), 1);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(join(start([](void *argument) { return argument == nullptr ? 1 : 0; })), 1);
}

TEST_F(ThreadCreate, StoresTheIndexBeforeTheRoutineBegins) {
  const auto stored_index = [](void *argument) { return *static_cast<int *>(argument); };
  for (int i = 1; i <= 200; ++i) {
    int index = untouched;
    ASSERT_EQ(qal_thread_create(&index, stored_index, &index), 0);
    EXPECT_EQ(join(index), i);
  }
}

TEST_F(ThreadCreate, GoesOnBehindAFreedIndex) {
  for (int i = 1; i <= 5; ++i) start(&own_index);
  join(3);
  EXPECT_EQ(start(&own_index), 6);
  for (int index : {1, 2, 4, 5, 6}) join(index);
}

TEST_F(ThreadCreate, HandsOutEveryIndexInTurnAndNeverZero) {
  for (int expected = 1; expected <= last_index; ++expected) ASSERT_EQ(next_index(), expected);
  EXPECT_EQ(next_index(), 1);
  EXPECT_EQ(next_index(), 2);
}

TEST_F(ThreadCreate, PassesOverFinishedThreadsUntilTheyAreJoined) {
  const int first = start(&own_index);
  const int second = start(&own_index);
  EXPECT_EQ(lowest_index(), 3);
  join(second);
  EXPECT_EQ(lowest_index(), 2);
  join(first);
}

// Every slot has a waiting thread, as the layer promises. Where the system allows fewer, its limit
// must be raised for these tests.
class FullThreadTable : public Threads {
 protected:
  void SetUp() override {
    Threads::SetUp();
    fill();
  }
  void TearDown() override { empty(); }

  void fill() {
    gate_.emplace();
    for (count_ = 0; count_ < last_index; ++count_) {
      int index = untouched;
      if (qal_thread_create(&index, &wait_at_gate, &*gate_) != 0) {
        qal_thread_join(&index, nullptr);  // the slot of the thread that did not start
        FAIL() << "the system allows " << count_ << " threads";
      }
      EXPECT_EQ(index, count_ + 1);
    }
  }
  void let_end() { gate_->open(); }
  void empty() {
    let_end();
    for (; count_ > 0; --count_) EXPECT_EQ(join(count_), count_);
  }

 private:
  static int wait_at_gate(void *gate) {
    static_cast<Gate *>(gate)->wait();
    return qal_thread_index();
  }

  std::optional<Gate> gate_;
  int count_ = 0;
};

TEST_F(FullThreadTable, RefusesTheThreadThatFindsNoSlot) {
  int index = untouched;
  EXPECT_EQ(qal_thread_create(&index, &own_index, nullptr), -1);
  EXPECT_EQ(index, untouched);
}

TEST_F(FullThreadTable, FindsTheOneSlotThatIsFree) {
  let_end();
  EXPECT_EQ(join(5), 5);
  EXPECT_EQ(start(&own_index), 5);
  EXPECT_EQ(join(5), 5);
  EXPECT_EQ(start(&own_index), 5);  // the search comes all the way round to where it stood
  int index = untouched;
  EXPECT_EQ(qal_thread_create(&index, &own_index, nullptr), -1);
  EXPECT_EQ(join(3), 3);
  EXPECT_EQ(join(6), 6);
  EXPECT_EQ(start(&own_index), 6);  // behind 5, where the search in vain ended
  EXPECT_EQ(start(&own_index), 3);
}

TEST_F(FullThreadTable, FillsAndEmptiesOverAndOver) {
  for (int round = 0; round < 2; ++round) {
    empty();
    fill();
  }
}

TEST_F(ThreadCreate, MayBeCalledByManyThreadsAtOnce) {
  std::array<std::set<int>, 8> seen;
  run_together(8, [&seen](int i) {
    for (int round = 0; round < 20; ++round) {
      const int index = start(&own_index);
      seen[static_cast<std::size_t>(i)].insert(index);
      EXPECT_EQ(join(index), index);
    }
  });
  std::set<int> all;
  for (const auto &indices : seen) all.insert(indices.begin(), indices.end());
  EXPECT_EQ(all.size(), 160U);
}

TEST_F(ThreadCreate, GivesTheThreadAStackOfTwoMebibytes) {
  const auto use_most_of_it = [](void *) {
    volatile char block[1024 * 1024];
    for (std::size_t i = 0; i < sizeof block; i += 1024) block[i] = 1;
    return static_cast<int>(block[0]);
  };
  EXPECT_EQ(join(start(use_most_of_it)), 1);
}

TEST_F(ThreadCreate, WithoutARoutineEndsAtOnce) { EXPECT_EQ(join(start(nullptr)), -1); }

TEST_F(ThreadCreate, WithoutAPlaceForTheIndexTakesNoSlot) {
  EXPECT_EQ(qal_thread_create(nullptr, &own_index, nullptr), -1);
  EXPECT_EQ(next_index(), 1);
}

TEST_F(ThreadJoin, HandsTheResultOver) {
  EXPECT_EQ(join(start([](void *) { return 7; })), 7);
  EXPECT_EQ(join(start([](void *) { return 0; })), 0);
  EXPECT_EQ(join(start([](void *) { return INT_MAX; })), INT_MAX);
  EXPECT_EQ(join(start([](void *) { return INT_MIN; })), INT_MIN);
}

TEST_F(ThreadJoin, WaitsForTheThread) {
  Gate gate;
  int written = 0;
  Worker worker([&] {
    gate.wait();
    return written = 1;
  });
  Worker opener([&] {
    await([&gate] { return gate.arrived() == 1; });
    gate.open();
    return 0;
  });
  worker.join();
  EXPECT_EQ(written, 1);
}

TEST_F(ThreadJoin, NeedsNoPlaceForTheResult) {
  const int index = start(&own_index);
  EXPECT_EQ(qal_thread_join(&index, nullptr), 0);
  EXPECT_EQ(lowest_index(), 1);
}

TEST_F(ThreadJoin, MayBeCalledByAnotherThreadThanTheCreator) {
  const int index = start([](void *) { return 7; });
  Worker joiner([index] { return join(index); });
  EXPECT_EQ(joiner.join(), 7);
}

TEST_F(ThreadJoin, FailsTheSecondTimeAndGivesTheSameResult) {
  const int index = start([](void *) { return 7; });
  EXPECT_EQ(join(index), 7);
  EXPECT_EQ(failed_join(index), 7);
}

TEST_F(ThreadJoin, OfAnIndexThatWasNeverStartedFails) {
  for (const int index : {1, 9, last_index}) {
    EXPECT_EQ(failed_join(index), 0);
  }
  EXPECT_EQ(next_index(), 1);
}

TEST_F(ThreadJoin, OfTheMainThreadFailsAndLeavesItsSlotClaimed) {
  EXPECT_EQ(failed_join(0), -1);
  EXPECT_EQ(lowest_index(), 1);
}

TEST_F(ThreadJoin, OutsideTheTableFailsAndWritesNothing) {
  for (const int index : {-1, last_index + 1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(failed_join(index), untouched);
  }
}

TEST_F(ThreadJoin, WithoutAnIndexFailsAndWritesNothing) {
  int result = untouched;
  EXPECT_EQ(qal_thread_join(nullptr, &result), -1);
  EXPECT_EQ(result, untouched);
}

TEST_F(ThreadCancel, LeavesTheResultToARoutineThatReturnsFirst) {
  Gate gate;
  Worker worker([&gate] {
    int previous = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous);
    gate.wait();
    return 7;
  });
  await([&gate] { return gate.arrived() == 1; });
  EXPECT_EQ(worker.cancel(), 0);
  gate.open();
  EXPECT_EQ(worker.join(), 7);
}

TEST_F(ThreadCancel, UnwindsTheRoutine) {
  const int before = Unwinding::count;
  const int index = start(&wait_for_cancellation);
  EXPECT_EQ(qal_thread_cancel(&index), 0);
  EXPECT_EQ(join(index), -1);
  EXPECT_EQ(Unwinding::count, before + 1);
}

// Left out with ThreadSanitizer, which does not know that pthread_join can be cancelled.
TEST_F(ThreadCancel, OfAThreadThatJoinsLeavesTheOtherToBeJoined) {
  Gate gate;
  Worker awaited([&gate] {
    gate.wait();
    return 7;
  });
  Worker joining([index = awaited.index()] {
    const Unwinding unwinding;
    return join(index);
  });
  EXPECT_EQ(joining.cancel(), 0);
  EXPECT_EQ(joining.join(), -1);
  gate.open();
  EXPECT_EQ(awaited.join(), 7);
}

TEST_F(ThreadCancel, KeepsTheSlotUntilTheJoin) {
  const int index = start(&wait_for_cancellation);
  EXPECT_EQ(qal_thread_cancel(&index), 0);
  EXPECT_EQ(lowest_index(), 2);
  EXPECT_EQ(join(index), -1);
  EXPECT_EQ(lowest_index(), 1);
}

TEST_F(ThreadCancel, WithoutAThreadFails) {
  const int joined = next_index();
  for (const int index : {0, joined, 9, last_index, -1, last_index + 1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(qal_thread_cancel(&index), -1) << index;
  }
  EXPECT_EQ(qal_thread_cancel(nullptr), -1);
}

TEST_F(ThreadCancel, MayBeRepeatedWithNewThreads) {
  for (int i = 0; i < repetitions(20'000); ++i) {
    const int index = start(&wait_for_cancellation);
    ASSERT_EQ(qal_thread_cancel(&index), 0);
    ASSERT_EQ(join(index), -1);
  }
}

TEST_F(ThreadStart, LeavesAThreadOfSomebodyElseAtZero) {
  EXPECT_EQ(ask_elsewhere(&qal_thread_index), 0);
}

TEST_F(ThreadStart, TakesTheIndexWhateverItIs) {
  join(start(nullptr));  // slot 1 has no routine
  for (const int number : {0, 1, last_index + 1, -1, INT_MAX, INT_MIN}) {
    for (const auto entry : {&qal_thread_start_void, &qal_thread_start_int}) {
      EXPECT_EQ(ask_elsewhere([=] {
                  EXPECT_EQ(entry(as_index(number)), nullptr);
                  return qal_thread_index();
                }),
                number);
    }
  }
}

TEST_F(ThreadStart, RunsNothingForAnIndexThatFitsTheTableOnlyWhenCut) {
  int runs = 0;
  ASSERT_EQ(start([](void *argument) { return ++*static_cast<int *>(argument); }, &runs), 1);
  join(1);
  for (const auto entry : {&qal_thread_start_void, &qal_thread_start_int}) {
    EXPECT_EQ(ask_elsewhere([=] { return entry(as_index(0x1'0000'0001)) == nullptr ? 1 : 0; }), 1);
  }
  EXPECT_EQ(runs, 1);
}

TEST_F(ThreadStart, RunsTheRoutineOfTheSlotAndKeepsItsResult) {
  for (const auto entry : {&qal_thread_start_void, &qal_thread_start_int}) {
    int runs = 0;
    int index = start([](void *argument) { return 40 + ++*static_cast<int *>(argument); }, &runs);
    EXPECT_EQ(join(index), 41);
    EXPECT_EQ(ask_elsewhere([=] { return entry(as_index(index)) == nullptr ? 1 : 0; }), 1);
    EXPECT_EQ(runs, 2);
    EXPECT_EQ(failed_join(index), 42);
  }
}

TEST_F(ThreadStart, FinishesTheSlotSoThatOnlyAJoinFreesIt) {
  const int index = next_index();
  ask_elsewhere([=] { return qal_thread_start_int(as_index(index)) == nullptr ? 1 : 0; });
  EXPECT_EQ(lowest_index(), 2);
  EXPECT_EQ(qal_thread_join(&index, nullptr), -1);
  EXPECT_EQ(lowest_index(), 1);
}

TEST_F(ThreadKey, KeepsAValuePerThread) {
  QalThreadKey key;
  ASSERT_EQ(qal_thread_key_create(&key), 0);
  EXPECT_EQ(qal_thread_getspecific(key), nullptr);
  int mine = 0;
  EXPECT_EQ(qal_thread_setspecific(key, &mine), 0);
  run_together(4, [key](int i) {
    EXPECT_EQ(qal_thread_getspecific(key), nullptr);
    EXPECT_EQ(qal_thread_setspecific(key, &i), 0);
    EXPECT_EQ(qal_thread_getspecific(key), &i);
  });
  EXPECT_EQ(qal_thread_getspecific(key), &mine);
  pthread_key_delete(key);
}

TEST_F(ThreadKey, AnswersThePlatformsErrorNumberForADeletedKey) {
  QalThreadKey key;
  ASSERT_EQ(qal_thread_key_create(&key), 0);
  pthread_key_delete(key);
  EXPECT_EQ(qal_thread_setspecific(key, &key), EINVAL);
  EXPECT_EQ(qal_thread_key_create(nullptr), -1);
}

struct Mutex {
  Mutex() { EXPECT_EQ(qal_thread_mutex_init(&platform), 0); }
  ~Mutex() { EXPECT_EQ(qal_thread_mutex_destroy(&platform), 0); }
  Mutex(const Mutex &) = delete;
  Mutex &operator=(const Mutex &) = delete;
  void lock() { EXPECT_EQ(qal_thread_mutex_lock(&platform), 0); }
  void unlock() { EXPECT_EQ(qal_thread_mutex_unlock(&platform), 0); }
  int tried_elsewhere() {
    return ask_elsewhere([this] {
      const int status = qal_thread_mutex_trylock(&platform);
      if (status == 0) unlock();
      return status;
    });
  }
  QalThreadMutex platform;
};

struct Condition {
  Condition() { EXPECT_EQ(qal_thread_cond_init(&platform), 0); }
  ~Condition() { EXPECT_EQ(qal_thread_cond_destroy(&platform), 0); }
  Condition(const Condition &) = delete;
  Condition &operator=(const Condition &) = delete;
  QalThreadCond platform;
};

TEST_F(ThreadMutex, ExcludesOtherThreads) {
  Mutex mutex;
  int count = 0;
  run_together(4, [&](int) {
    for (int i = 0; i < 10'000; ++i) {
      mutex.lock();
      ++count;
      mutex.unlock();
    }
  });
  EXPECT_EQ(count, 40'000);
}

TEST_F(ThreadMutex, IsBusyWhileAnotherThreadHoldsIt) {
  Mutex mutex;
  EXPECT_EQ(mutex.tried_elsewhere(), 0);
  mutex.lock();
  EXPECT_EQ(mutex.tried_elsewhere(), 1);
  mutex.unlock();
  EXPECT_EQ(mutex.tried_elsewhere(), 0);
}

TEST_F(ThreadMutex, IsNotRecursive) {
  Mutex mutex;
  EXPECT_EQ(qal_thread_mutex_trylock(&mutex.platform), 0);
  EXPECT_EQ(qal_thread_mutex_trylock(&mutex.platform), 1);
  mutex.unlock();
}

TEST_F(ThreadMutex, RefusesNull) {
  EXPECT_EQ(qal_thread_mutex_init(nullptr), -1);
  EXPECT_EQ(qal_thread_mutex_destroy(nullptr), -1);
  EXPECT_EQ(qal_thread_mutex_lock(nullptr), -1);
  EXPECT_EQ(qal_thread_mutex_trylock(nullptr), -1);
  EXPECT_EQ(qal_thread_mutex_unlock(nullptr), -1);
}

// Tickets that waiting threads take one by one.
struct Tickets {
  int take() {
    mutex.lock();
    ++waiting;
    while (left == 0) EXPECT_EQ(qal_thread_cond_wait(&changed.platform, &mutex.platform), 0);
    --left;
    mutex.unlock();
    return 0;
  }
  void put(int count, int (*wake)(QalThreadCond *)) {
    mutex.lock();
    left += count;
    EXPECT_EQ(wake(&changed.platform), 0);
    mutex.unlock();
  }
  void await_waiting(int count) {
    await([this, count] {
      mutex.lock();
      const bool there = waiting == count;
      mutex.unlock();
      return there;
    });
  }
  Mutex mutex;
  Condition changed;
  int waiting = 0;
  int left = 0;
};

TEST_F(ThreadCond, WakesAWaitingThreadBySignal) {
  Tickets tickets;
  Worker waiter([&tickets] { return tickets.take(); });
  tickets.await_waiting(1);
  tickets.put(1, &qal_thread_cond_signal);
  waiter.join();
  EXPECT_EQ(tickets.left, 0);
}

TEST_F(ThreadCond, WakesAllWaitingThreadsByBroadcast) {
  Tickets tickets;
  Worker putter([&tickets] {
    tickets.await_waiting(8);
    tickets.put(8, &qal_thread_cond_broadcast);
    return 0;
  });
  run_together(8, [&tickets](int) { tickets.take(); });
  EXPECT_EQ(tickets.left, 0);
}

TEST_F(ThreadCond, RefusesNull) {
  Mutex mutex;
  Condition condition;
  EXPECT_EQ(qal_thread_cond_init(nullptr), -1);
  EXPECT_EQ(qal_thread_cond_destroy(nullptr), -1);
  EXPECT_EQ(qal_thread_cond_broadcast(nullptr), -1);
  EXPECT_EQ(qal_thread_cond_signal(nullptr), -1);
  EXPECT_EQ(qal_thread_cond_wait(nullptr, &mutex.platform), -1);
  EXPECT_EQ(qal_thread_cond_wait(&condition.platform, nullptr), -1);
  EXPECT_EQ(qal_thread_cond_timedwait(nullptr, &mutex.platform, 0), -1);
  EXPECT_EQ(qal_thread_cond_timedwait(&condition.platform, nullptr, 0), -1);
}

// Nobody signals; waking without cause is the platform's right.
int timed_wait(Condition &condition, Mutex &mutex, float seconds) {
  int status = 0;
  while (status == 0) {
    status = qal_thread_cond_timedwait(&condition.platform, &mutex.platform, seconds);
  }
  return status;
}

TEST_F(ThreadCond, TimesOutWithTheMutexHeld) {
  Mutex mutex;
  Condition condition;
  mutex.lock();
  for (const float seconds : {0.0F, 0.01F, -1.0F}) {
    EXPECT_EQ(timed_wait(condition, mutex, seconds), 99) << seconds;
    EXPECT_EQ(mutex.tried_elsewhere(), 1);
  }
  mutex.unlock();
}

TEST_F(ThreadCond, EndsATimedWaitBySignal) {
  Mutex mutex;
  Condition condition;
  bool waiting = false;
  bool woken = false;
  Worker waiter([&] {
    mutex.lock();
    waiting = true;
    int status = 0;
    while (!woken && status == 0) {
      status = qal_thread_cond_timedwait(&condition.platform, &mutex.platform, 200.0F);
    }
    mutex.unlock();
    return status;
  });
  await([&] {
    mutex.lock();
    woken = waiting;
    const bool done = woken && qal_thread_cond_signal(&condition.platform) == 0;
    mutex.unlock();
    return done;
  });
  EXPECT_EQ(waiter.join(), 0);
}

// A semaphore and the threads that wait for it.
class Sema {
 public:
  explicit Sema(int initial) { EXPECT_EQ(qal_thread_sema_init(&platform, initial), 0); }
  ~Sema() {
    workers_.clear();
    EXPECT_EQ(qal_thread_sema_destroy(&platform), 0);
  }
  Sema(const Sema &) = delete;
  Sema &operator=(const Sema &) = delete;

  // Starts threads that wait, one after the other, until all of them do.
  void block(int threads) {
    for (int i = 0; i < threads; ++i) {
      const int before = waiters();
      workers_.push_back(std::make_unique<Worker>([this] {
        const int status = qal_thread_sema_wait(&platform);
        ++passed_;
        return status;
      }));
      await([this, before] { return waiters() == before + 1; });
    }
  }
  void release(int times) {
    for (int i = 0; i < times; ++i) EXPECT_EQ(qal_thread_sema_release(&platform), 0);
  }
  Worker &worker(int i) { return *workers_.at(static_cast<std::size_t>(i)); }
  void cancel(int i) {
    EXPECT_EQ(worker(i).cancel(), 0);
    EXPECT_EQ(worker(i).join(), -1);
  }
  void join_all_but(int cancelled) {
    for (int i = 0; i < static_cast<int>(workers_.size()); ++i) {
      if (i == cancelled) continue;
      EXPECT_EQ(worker(i).join(), 0);
    }
  }
  void expect(int count_now, int waiters_now) {
    EXPECT_EQ(count(), count_now);
    EXPECT_EQ(waiters(), waiters_now);
  }
  int passed() const { return passed_; }
  int count() { return locked(platform.count); }
  int waiters() { return locked(platform.waiters); }
  bool free_to_use() {
    const int status = qal_thread_mutex_trylock(&platform.mutex);
    if (status == 0) qal_thread_mutex_unlock(&platform.mutex);
    return status == 0;
  }

  QalThreadSema platform;

 private:
  int locked(const std::int32_t &field) {
    EXPECT_EQ(qal_thread_mutex_lock(&platform.mutex), 0);
    const int value = field;
    EXPECT_EQ(qal_thread_mutex_unlock(&platform.mutex), 0);
    return value;
  }

  std::atomic<int> passed_{0};
  std::vector<std::unique_ptr<Worker>> workers_;
};

TEST_F(ThreadSema, HandsOutItsPermits) {
  Sema sema(2);
  sema.expect(2, 0);
  EXPECT_EQ(qal_thread_sema_wait(&sema.platform), 0);
  EXPECT_EQ(qal_thread_sema_wait(&sema.platform), 0);
  sema.expect(0, 0);
  sema.release(1);
  EXPECT_EQ(sema.count(), 1);
  EXPECT_EQ(qal_thread_sema_wait(&sema.platform), 0);
}

TEST_F(ThreadSema, LetsItsOneWaiterPass) {
  Sema sema(0);
  sema.block(1);
  EXPECT_EQ(sema.count(), -1);
  sema.release(1);
  EXPECT_EQ(sema.worker(0).join(), 0);
  sema.expect(0, 0);
}

TEST_F(ThreadSema, LetsAllWaitersPassTogetherWithTheLastRelease) {
  for (const int blocked : {2, 3, 8}) {
    Sema sema(0);
    sema.block(blocked);
    for (int left = blocked - 1; left > 0; --left) {
      sema.release(1);
      sema.expect(-left, blocked);
      EXPECT_EQ(sema.passed(), 0);
    }
    sema.release(1);
    for (int i = 0; i < blocked; ++i) EXPECT_EQ(sema.worker(i).join(), 0);
    sema.expect(0, 0);
  }
}

TEST_F(ThreadSema, MayStartInDebt) {
  Sema sema(-2);
  sema.block(1);
  EXPECT_EQ(sema.count(), -3);
  sema.release(2);
  EXPECT_EQ(sema.waiters(), 1);
  sema.release(1);
  EXPECT_EQ(sema.worker(0).join(), 0);
}

TEST_F(ThreadSema, MakesTheFirstThreadBehindTheLastPermitWait) {
  Sema sema(1);
  EXPECT_EQ(qal_thread_sema_wait(&sema.platform), 0);
  sema.block(1);
  EXPECT_EQ(sema.count(), -1);
  sema.release(1);
  EXPECT_EQ(sema.worker(0).join(), 0);
}

TEST_F(ThreadSema, WrapsAroundAtThirtyTwoBits) {
  Sema sema(INT_MAX);
  sema.release(1);
  EXPECT_EQ(sema.count(), INT_MIN);
  EXPECT_EQ(qal_thread_sema_reset(&sema.platform, INT_MIN), 0);
  EXPECT_EQ(qal_thread_sema_wait(&sema.platform), 0);
  EXPECT_EQ(sema.count(), INT_MAX);
}

TEST_F(ThreadSema, TakesACancelledWaitersClaimBackWhereverItStood) {
  for (const int cancelled : {0, 1, 2}) {
    Sema sema(0);
    sema.block(3);
    sema.cancel(cancelled);
    sema.expect(-2, 2);
    EXPECT_TRUE(sema.free_to_use());
    sema.release(1);
    EXPECT_EQ(sema.passed(), 0);
    sema.release(1);
    sema.join_all_but(cancelled);
    EXPECT_EQ(sema.passed(), 2);
    sema.expect(0, 0);
  }
}

TEST_F(ThreadSema, IsAsBeforeWhenItsOnlyWaiterIsCancelled) {
  Sema sema(0);
  sema.block(1);
  sema.cancel(0);
  sema.expect(0, 0);
  sema.release(1);
  EXPECT_EQ(qal_thread_sema_wait(&sema.platform), 0);
}

TEST_F(ThreadSema, LetsTheOthersPassWhenACancelledWaiterWasTheLastOneOwed) {
  for (const int cancelled : {0, 1, 2}) {
    Sema sema(0);
    sema.block(3);
    sema.release(2);
    EXPECT_EQ(sema.count(), -1);
    sema.cancel(cancelled);
    sema.join_all_but(cancelled);
    sema.expect(0, 0);
  }
}

TEST_F(ThreadSema, StartsOverWithoutLocking) {
  Sema sema(-5);
  sema.platform.waiters = 3;
  EXPECT_EQ(qal_thread_mutex_lock(&sema.platform.mutex), 0);
  EXPECT_EQ(qal_thread_sema_reset(&sema.platform, 1), 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&sema.platform.mutex), 0);
  sema.expect(1, 0);
  EXPECT_EQ(qal_thread_sema_wait(&sema.platform), 0);
  EXPECT_EQ(qal_thread_sema_reset(&sema.platform, -7), 0);
  EXPECT_EQ(sema.count(), -7);
}

TEST_F(ThreadSema, RefusesNull) {
  EXPECT_EQ(qal_thread_sema_init(nullptr, 1), -1);
  EXPECT_EQ(qal_thread_sema_destroy(nullptr), -1);
  EXPECT_EQ(qal_thread_sema_wait(nullptr), -1);
  EXPECT_EQ(qal_thread_sema_release(nullptr), -1);
  EXPECT_EQ(qal_thread_sema_reset(nullptr, 1), -1);
}

}  // namespace

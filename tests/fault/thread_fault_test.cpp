// The thread layer when the platform's calls fail, with a clock that the test sets.
#include <gtest/gtest.h>
#include <qal/thread.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "fault/pthread_calls.hpp"
#include "support/child.hpp"
#include "support/silence.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::await;
using qal::test::Call;
using qal::test::calls;
using qal::test::Gate;
using qal::test::in_new_process;
using qal::test::refused;
using qal::test::Silence;
using qal::test::Threads;
using qal::test::Unwinding;

std::atomic<int> allocations{0};

}  // namespace

extern "C" {
void *__real_malloc(std::size_t size);
void *__wrap_malloc(std::size_t size) {
  ++allocations;
  return __real_malloc(size);
}

void *__real_calloc(std::size_t count, std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __real_calloc(count, size);
}
}

namespace {

constexpr int last_index = 2047;
constexpr int untouched = 4711;

int own_index(void *) { return qal_thread_index(); }

struct Created {
  int status;
  int index;
};

Created create(QalThreadRoutine routine = &own_index, void *argument = nullptr) {
  Created created{untouched, untouched};
  created.status = qal_thread_create(&created.index, routine, argument);
  return created;
}

struct Joined {
  int status;
  int result;
};

Joined join(int index) {
  Joined joined{untouched, untouched};
  joined.status = qal_thread_join(&index, &joined.result);
  return joined;
}

int next_index() {
  const int index = create().index;
  join(index);
  return index;
}

void go_round_to(int last) {
  while (next_index() != last) {
  }
}

// Every case checks how often qal_stop_here was called.
class ThreadFault : public Threads {
 protected:
  void SetUp() override {
    Threads::SetUp();
    stops_before_ = calls.stop_here.count();
  }
  int stops() const { return calls.stop_here.count() - stops_before_; }

 private:
  Silence silence_;
  int stops_before_ = 0;
};

using ThreadCreateFault = ThreadFault;
using ThreadJoinFault = ThreadFault;
using ThreadInitFault = ThreadFault;
using ThreadWrapperFault = ThreadFault;
using ThreadTimedWait = ThreadFault;

// Nothing may have started the layer before.
TEST(ThreadInitWithoutKey, NumbersThreadsThatCannotAskForTheirNumber) {
  in_new_process([] {
    EXPECT_EQ(refused(calls.key_create, EAGAIN, &qal_thread_init), 0);
    EXPECT_EQ(qal_thread_index(), 0);
    const Created created = create([](void *) { return 10 + qal_thread_index(); });
    EXPECT_EQ(created.status, 0);
    EXPECT_EQ(created.index, 1);
    EXPECT_EQ(join(created.index).result, 10);
  });
}

TEST_F(ThreadCreateFault, AsksForAJoinableThreadWithAStackOfTwoMebibytes) {
  std::size_t stack_size = 0;
  int detached = untouched;
  calls.before_create = [&](QalThreadHandle *, const pthread_attr_t *attributes) {
    pthread_attr_getstacksize(attributes, &stack_size);
    pthread_attr_getdetachstate(attributes, &detached);
  };
  calls.order.clear();
  const Created created = create();
  calls.before_create = nullptr;
  EXPECT_EQ(stack_size, 2'097'152U);
  EXPECT_EQ(detached, PTHREAD_CREATE_JOINABLE);
  EXPECT_EQ(calls.order, "+attr create -attr ");
  EXPECT_EQ(join(created.index).status, 0);
}

TEST_F(ThreadCreateFault, HandsTheIndexOutThoughTheStartFailed) {
  calls.order.clear();
  const Created created = refused(calls.create, EAGAIN, [] { return create(); });
  EXPECT_EQ(created.status, -1);
  EXPECT_EQ(created.index, 1);
  EXPECT_EQ(calls.order, "+attr -attr ");
  EXPECT_EQ(next_index(), 2);
  EXPECT_EQ(stops(), 0);
}

TEST_F(ThreadCreateFault, AllocatesNothing) {
  const int before = allocations;
  EXPECT_EQ(refused(calls.create, EAGAIN, [] { return create(); }).status, -1);
  EXPECT_EQ(allocations, before);
}

TEST_F(ThreadCreateFault, FailsWithoutAttributes) {
  const int creations = calls.create.count();
  const Created created = refused(calls.attr_init, ENOMEM, [] { return create(); });
  EXPECT_EQ(created.status, -1);
  EXPECT_EQ(created.index, 1);
  EXPECT_EQ(calls.create.count(), creations);
  EXPECT_EQ(stops(), 0);
}

TEST_F(ThreadCreateFault, StartsNoThreadWithAnotherStack) {
  const int creations = calls.create.count();
  calls.order.clear();
  const Created created = refused(calls.attr_setstacksize, EINVAL, [] { return create(); });
  EXPECT_EQ(created.status, -1);
  EXPECT_EQ(created.index, 1);
  EXPECT_EQ(calls.create.count(), creations);
  EXPECT_EQ(calls.order, "+attr -attr ");
}

TEST_F(ThreadCreateFault, KeepsTheSlotOfAFailedStartUntilItIsJoined) {
  EXPECT_EQ(refused(calls.create, EAGAIN, [] { return create(); }).index, 1);
  go_round_to(last_index);
  EXPECT_EQ(next_index(), 2);
  EXPECT_EQ(join(1).status, -1);
  go_round_to(last_index);
  EXPECT_EQ(next_index(), 1);
}

TEST_F(ThreadCreateFault, LeavesNoThreadToJoinOrCancel) {
  const int index = refused(calls.create, EAGAIN, [] { return create(); }).index;
  const int joins = calls.join.count();
  const int cancels = calls.cancel.count();
  EXPECT_EQ(qal_thread_cancel(&index), -1);
  const Joined joined = join(index);
  EXPECT_EQ(joined.status, -1);
  EXPECT_EQ(joined.result, -1);
  EXPECT_EQ(calls.join.count(), joins);
  EXPECT_EQ(calls.cancel.count(), cancels);
}

// No routine begins before its thread's index is stored.
TEST_F(ThreadCreateFault, HoldsTheLockWhileThePlatformStartsTheThread) {
  const auto held = [] { return calls.mutex_lock.count() - calls.mutex_unlock.count(); };
  const int before = held();
  int meanwhile = untouched;
  calls.before_create = [&](QalThreadHandle *, const pthread_attr_t *) { meanwhile = held(); };
  refused(calls.create, EAGAIN, [] { return create(); });
  calls.before_create = nullptr;
  EXPECT_EQ(meanwhile, before + 1);
  EXPECT_EQ(held(), before);
}

TEST_F(ThreadCreateFault, GivesUpTheLockWhenItFails) {
  refused(calls.create, EAGAIN, [] { return create(); });
  EXPECT_EQ(create().status, 0);
  EXPECT_EQ(join(2).status, 0);
}

// A thread from before a new start keeps its handle when its index is handed out again and that
// thread cannot start.
TEST_F(ThreadCreateFault, SparesTheHandleThatIsStillToBeJoined) {
  Gate gate;
  const auto wait_at = [](void *where) {
    static_cast<Gate *>(where)->wait();
    return 7;
  };
  EXPECT_EQ(create(wait_at, &gate).index, 1);
  await([&gate] { return gate.arrived() == 1; });
  ASSERT_EQ(qal_thread_init(), 0);
  calls.before_create = [](QalThreadHandle *handle, const pthread_attr_t *) {
    *handle = QalThreadHandle{};
  };
  EXPECT_EQ(refused(calls.create, EAGAIN, [] { return create(); }).index, 1);
  calls.before_create = nullptr;
  gate.open();
  const Joined joined = join(1);
  EXPECT_EQ(joined.status, 0);
  EXPECT_EQ(joined.result, 7);
}

TEST_F(ThreadCreateFault, OfThePlatformsPartIsReducedToMinusOne) {
  QalThreadHandle handle{};
  EXPECT_EQ(refused(calls.create, EAGAIN, [&] { return qal_thread_create_sys(&handle, 0); }), -1);
  EXPECT_EQ(qal_thread_create_sys(nullptr, 0), -1);
  EXPECT_EQ(refused(calls.join, EINVAL, [=] { return qal_thread_join_sys(handle); }), -1);
  EXPECT_EQ(refused(calls.cancel, ESRCH, [=] { return qal_thread_cancel_sys(handle); }), -1);
  EXPECT_EQ(stops(), 0);
}

TEST_F(ThreadCreateFault, OfThePlatformsPartDoesNotConcernTheOthers) {
  QalThreadHandle handle{};
  EXPECT_EQ(qal_thread_create_sys(&handle, last_index + 1), 0);
  EXPECT_EQ(qal_thread_join_sys(handle), 0);
  EXPECT_EQ(next_index(), 1);
}

TEST_F(ThreadJoinFault, LeavesTheThreadToBeJoined) {
  const int index = create([](void *) { return 7; }).index;
  EXPECT_EQ(refused(calls.join, EDEADLK, [=] { return join(index).status; }), -1);
  EXPECT_EQ(stops(), 0);
  const Joined again = join(index);
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.result, 7);
  EXPECT_EQ(join(index).status, -1);
}

// A thread that waits to be cancelled, and what it needs once its index is somebody else's.
struct Stray {
  static int wait(void *stray) {
    const Unwinding unwinding;
    static_cast<Stray *>(stray)->handle = pthread_self();
    static_cast<Stray *>(stray)->waits = true;
    for (;;) pause();
    return 0;
  }
  std::atomic<bool> waits{false};
  QalThreadHandle handle{};
};

TEST_F(ThreadJoinFault, CopiesTheResultAndFreesTheSlotAllTheSame) {
  Stray stray;
  ASSERT_EQ(create(&Stray::wait, &stray).index, 1);
  await([&stray] { return stray.waits.load(); });
  const Joined joined = refused(calls.join, EDEADLK, [] { return join(1); });
  EXPECT_EQ(joined.status, -1);
  EXPECT_EQ(joined.result, -1);
  go_round_to(last_index);
  EXPECT_EQ(next_index(), 1);
  EXPECT_EQ(pthread_cancel(stray.handle), 0);
  EXPECT_EQ(pthread_join(stray.handle, nullptr), 0);
}

TEST_F(ThreadJoinFault, LeavesACancelToThePlatform) {
  const int index = create().index;
  EXPECT_EQ(refused(calls.cancel, ESRCH, [&] { return qal_thread_cancel(&index); }), -1);
  EXPECT_EQ(stops(), 0);
  EXPECT_EQ(join(index).result, index);
}

TEST_F(ThreadInitFault, IgnoresAKeyThatIsRefused) {
  EXPECT_EQ(refused(calls.key_create, EAGAIN, &qal_thread_init), 0);
  EXPECT_EQ(qal_thread_index(), 0);
  // The key of the earlier start still works.
  EXPECT_EQ(join(create().index).result, 1);
  EXPECT_EQ(stops(), 0);
}

TEST_F(ThreadInitFault, MakesTheCallerTheMainThreadUnderAnOldKey) {
  const auto begin_anew = [](void *) {
    const int before = qal_thread_index();
    EXPECT_EQ(refused(calls.key_create, EAGAIN, &qal_thread_init), 0);
    return 10 * before + qal_thread_index();
  };
  EXPECT_EQ(join(create(begin_anew).index).result, 10);
}

TEST_F(ThreadInitFault, IgnoresAMutexThatIsRefused) {
  EXPECT_EQ(refused(calls.mutex_init, ENOMEM, &qal_thread_init), 0);
  EXPECT_EQ(next_index(), 1);
}

TEST_F(ThreadInitFault, MakesAKeyAndThenAMutex) {
  const int keys = calls.key_create.count();
  calls.order.clear();
  EXPECT_EQ(qal_thread_init(), 0);
  EXPECT_EQ(calls.key_create.count(), keys + 1);
  EXPECT_FALSE(calls.key_has_destructor);
  EXPECT_EQ(calls.order, "+key +mutex ");
}

struct Wrapper {
  const char *name;
  Call *call;
  std::function<int()> run;
  int stops;
};

TEST_F(ThreadWrapperFault, IsReducedToMinusOneAndStopsWhereADebuggerWaits) {
  QalThreadMutex m;
  QalThreadCond c;
  QalThreadKey key;
  const std::vector<Wrapper> wrappers = {
      {"key_create", &calls.key_create, [&] { return qal_thread_key_create(&key); }, 0},
      {"mutex_init", &calls.mutex_init, [&] { return qal_thread_mutex_init(&m); }, 0},
      {"mutex_destroy", &calls.mutex_destroy, [&] { return qal_thread_mutex_destroy(&m); }, 0},
      {"mutex_lock", &calls.mutex_lock, [&] { return qal_thread_mutex_lock(&m); }, 1},
      {"mutex_trylock", &calls.mutex_trylock, [&] { return qal_thread_mutex_trylock(&m); }, 1},
      {"mutex_unlock", &calls.mutex_unlock, [&] { return qal_thread_mutex_unlock(&m); }, 1},
      {"cond_init", &calls.cond_init, [&] { return qal_thread_cond_init(&c); }, 0},
      {"cond_destroy", &calls.cond_destroy, [&] { return qal_thread_cond_destroy(&c); }, 0},
      {"cond_broadcast", &calls.cond_broadcast, [&] { return qal_thread_cond_broadcast(&c); }, 1},
      {"cond_signal", &calls.cond_signal, [&] { return qal_thread_cond_signal(&c); }, 1},
      {"cond_wait", &calls.cond_wait, [&] { return qal_thread_cond_wait(&c, &m); }, 1},
      {"cond_timedwait", &calls.cond_timedwait,
       [&] { return qal_thread_cond_timedwait(&c, &m, 0); }, 1},
  };
  int expected_stops = 0;
  for (const auto &wrapper : wrappers) {
    for (const int error : {EINVAL, EPERM}) {
      const int before = wrapper.call->count();
      EXPECT_EQ(refused(*wrapper.call, error, wrapper.run), -1) << wrapper.name;
      EXPECT_EQ(wrapper.call->count(), before + 1) << wrapper.name;
      expected_stops += wrapper.stops;
      EXPECT_EQ(stops(), expected_stops) << wrapper.name;
    }
  }
}

TEST_F(ThreadWrapperFault, OfABusyOrTimedOutCallIsNoFailure) {
  QalThreadMutex m;
  QalThreadCond c;
  EXPECT_EQ(refused(calls.mutex_trylock, EBUSY, [&] { return qal_thread_mutex_trylock(&m); }), 1);
  EXPECT_EQ(refused(calls.cond_timedwait, ETIMEDOUT,
                    [&] { return qal_thread_cond_timedwait(&c, &m, 0); }),
            99);
  EXPECT_EQ(stops(), 0);
}

TEST_F(ThreadWrapperFault, OfAnotherCallThatIsBusyOrTimedOutIsOne) {
  QalThreadMutex m;
  QalThreadCond c;
  EXPECT_EQ(refused(calls.mutex_lock, EBUSY, [&] { return qal_thread_mutex_lock(&m); }), -1);
  EXPECT_EQ(refused(calls.mutex_trylock, ETIMEDOUT, [&] { return qal_thread_mutex_trylock(&m); }),
            -1);
  EXPECT_EQ(
      refused(calls.cond_timedwait, EBUSY, [&] { return qal_thread_cond_timedwait(&c, &m, 0); }),
      -1);
  EXPECT_EQ(refused(calls.cond_wait, ETIMEDOUT, [&] { return qal_thread_cond_wait(&c, &m); }), -1);
  EXPECT_EQ(stops(), 4);
}

TEST_F(ThreadWrapperFault, DoesNotStopForNull) {
  qal_thread_mutex_lock(nullptr);
  qal_thread_mutex_trylock(nullptr);
  qal_thread_mutex_unlock(nullptr);
  qal_thread_cond_signal(nullptr);
  qal_thread_cond_broadcast(nullptr);
  qal_thread_cond_wait(nullptr, nullptr);
  qal_thread_cond_timedwait(nullptr, nullptr, 0);
  EXPECT_EQ(stops(), 0);
}

TEST_F(ThreadWrapperFault, NeverArisesFromAttributes) {
  QalThreadMutex m;
  QalThreadCond c;
  calls.has_attributes = true;
  EXPECT_EQ(qal_thread_mutex_init(&m), 0);
  EXPECT_FALSE(calls.has_attributes);
  calls.has_attributes = true;
  EXPECT_EQ(qal_thread_cond_init(&c), 0);
  EXPECT_FALSE(calls.has_attributes);
  qal_thread_cond_destroy(&c);
  qal_thread_mutex_destroy(&m);
}

TEST_F(ThreadWrapperFault, OfAMutexThatIsStillHeldLeavesItAlone) {
  QalThreadMutex m;
  ASSERT_EQ(qal_thread_mutex_init(&m), 0);
  EXPECT_EQ(refused(calls.mutex_destroy, EBUSY, [&] { return qal_thread_mutex_destroy(&m); }), -1);
  EXPECT_EQ(qal_thread_mutex_lock(&m), 0);
  EXPECT_EQ(qal_thread_mutex_unlock(&m), 0);
  EXPECT_EQ(qal_thread_mutex_destroy(&m), 0);
}

struct Deadline {
  std::int64_t seconds;
  std::int64_t nanoseconds;
  bool operator==(const Deadline &) const = default;
};

void PrintTo(const Deadline &deadline, std::ostream *out) {
  *out << deadline.seconds << " s + " << deadline.nanoseconds << " ns";
}

constexpr std::int64_t now = 1'700'000'000;

// The deadline that the platform is given for a wait that begins at this fraction of a second.
Deadline deadline_after(float seconds, int microseconds = 0, std::int64_t clock = now) {
  QalThreadMutex m = PTHREAD_MUTEX_INITIALIZER;
  QalThreadCond c = PTHREAD_COND_INITIALIZER;
  calls.clock = timeval{clock, microseconds};
  calls.answer_of_timedwait = 0;
  EXPECT_EQ(qal_thread_cond_timedwait(&c, &m, seconds), 0);
  calls.clock.reset();
  calls.answer_of_timedwait.reset();
  return {calls.deadline.tv_sec, calls.deadline.tv_nsec};
}

// The status of such a wait on the real platform.
int waited(float seconds, int microseconds) {
  QalThreadMutex m = PTHREAD_MUTEX_INITIALIZER;
  QalThreadCond c = PTHREAD_COND_INITIALIZER;
  qal_thread_mutex_lock(&m);
  calls.clock = timeval{now, microseconds};
  const int status = qal_thread_cond_timedwait(&c, &m, seconds);
  calls.clock.reset();
  qal_thread_mutex_unlock(&m);
  return status;
}

TEST_F(ThreadTimedWait, AddsSecondsAndFraction) {
  EXPECT_EQ(deadline_after(2.25F), (Deadline{now + 2, 250'000'000}));
  EXPECT_EQ(deadline_after(0.5F), (Deadline{now, 500'000'000}));
  EXPECT_EQ(deadline_after(0.0F, 123'456), (Deadline{now, 123'456'000}));
  EXPECT_EQ(deadline_after(3.0F, 999'999), (Deadline{now + 3, 999'999'000}));
}

TEST_F(ThreadTimedWait, TakesTheFractionInSinglePrecisionAndCutsIt) {
  EXPECT_EQ(deadline_after(0.1F), (Deadline{now, 100'000'001}));
  EXPECT_EQ(deadline_after(1.1F), (Deadline{now + 1, 100'000'023}));
  EXPECT_EQ(deadline_after(3.3F), (Deadline{now + 3, 299'999'952}));
  EXPECT_EQ(deadline_after(1e-10F), (Deadline{now, 0}));
}

TEST_F(ThreadTimedWait, CarriesAboveOneThousandMillionNanoseconds) {
  EXPECT_EQ(deadline_after(0.75F, 750'000), (Deadline{now + 1, 500'000'000}));
  EXPECT_EQ(deadline_after(0.300071001F, 699'929), (Deadline{now + 1, 1}));
  EXPECT_EQ(deadline_after(0.300016999F, 699'983), (Deadline{now, 999'999'999}));
}

// Deliberate: the carry begins one nanosecond late, so this deadline is invalid.
TEST_F(ThreadTimedWait, PassesExactlyOneThousandMillionNanosecondsOn) {
  EXPECT_EQ(deadline_after(0.25F, 750'000), (Deadline{now, 1'000'000'000}));
  EXPECT_EQ(deadline_after(5.5F, 500'000), (Deadline{now + 5, 1'000'000'000}));
  EXPECT_EQ(stops(), 0);
  EXPECT_EQ(waited(0.25F, 750'000), -1);
  EXPECT_EQ(stops(), 1);
}

TEST_F(ThreadTimedWait, TakesANegativeTimeThroughTheSameSteps) {
  EXPECT_EQ(deadline_after(-1.25F, 500'000), (Deadline{now - 1, 250'000'000}));
  EXPECT_EQ(deadline_after(-0.5F, 750'000), (Deadline{now, 250'000'000}));
  EXPECT_EQ(deadline_after(-2.0F), (Deadline{now - 2, 0}));
  EXPECT_EQ(deadline_after(-1.25F), (Deadline{now - 1, -250'000'000}));
  EXPECT_EQ(waited(-1.25F, 500'000), 99);
  EXPECT_EQ(stops(), 0);
  EXPECT_EQ(waited(-1.25F, 0), -1);
  EXPECT_EQ(stops(), 1);
}

TEST_F(ThreadTimedWait, TakesNotANumberAsNoTime) {
  EXPECT_EQ(deadline_after(std::numeric_limits<float>::quiet_NaN(), 5), (Deadline{now, 5'000}));
  EXPECT_EQ(deadline_after(-std::numeric_limits<float>::quiet_NaN(), 5), (Deadline{now, 5'000}));
}

TEST_F(ThreadTimedWait, ClampsAWholePartBeyondThirtyTwoBits) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  EXPECT_EQ(deadline_after(2'147'483'520.0F, 7), (Deadline{now + 2'147'483'520, 7'000}));
  for (const float seconds : {2'147'483'648.0F, 1e30F, infinity}) {
    EXPECT_EQ(deadline_after(seconds, 7), (Deadline{now + INT_MAX, 7'000}));
  }
  EXPECT_EQ(deadline_after(-2'147'483'520.0F, 7), (Deadline{now - 2'147'483'520, 7'000}));
  for (const float seconds : {-2'147'483'648.0F, -2'147'483'904.0F, -1e30F, -infinity}) {
    EXPECT_EQ(deadline_after(seconds, 7), (Deadline{now + INT_MIN, 7'000}));
  }
}

TEST_F(ThreadTimedWait, AddsTheSecondsInSixtyFourBits) {
  EXPECT_EQ(deadline_after(2'147'483'520.0F, 0, INT_MAX),
            (Deadline{std::int64_t{INT_MAX} + 2'147'483'520, 0}));
  EXPECT_EQ(deadline_after(0.75F, 999'999, INT_MAX),
            (Deadline{std::int64_t{INT_MAX} + 1, 749'999'000}));
}

}  // namespace

// The containers when memory is short, and the place that each of their allocations reports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qal/alloc.h>
#include <qal/hash.h>
#include <qal/list.h>
#include <qal/logger.h>
#include <qal/mpool.h>
#include <qal/plist.h>
#include <qal/startup.h>
#include <qal/thread.h>
#include <qal/uid.h>
#include <sys/single_threaded.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/child.hpp"
#include "support/fault.hpp"
#include "support/log_capture.hpp"
#include "support/pool_model.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::allocation_report;
using qal::test::await;
using qal::test::become_index;
using qal::test::cancel_state;
using qal::test::fail_all;
using qal::test::fail_from;
using qal::test::fail_nth;
using qal::test::Fault;
using qal::test::Gate;
using qal::test::in_child;
using qal::test::in_new_process;
using qal::test::is_locked;
using qal::test::LogCapture;
using qal::test::run_in_child;
using qal::test::SecondThread;
using qal::test::Unwinding;
using qal::test::Worker;

// What a test wants to know about every call. No two threads use it at once.
struct Calls {
  Fault allocation;
  Fault index_node;
  std::vector<std::string> made;    // the checked calls in their order, as `told` writes them
  std::map<void *, int> live;       // blocks not freed yet, each with the line that made it
  std::function<void()> on_malloc;  // called within a checked allocation
  std::function<void()> on_lock;    // called after a mutex was locked
  std::vector<QalThreadMutex *> mutexes_made;
  std::vector<QalThreadMutex *> mutexes_ended;
  bool unlock_fails = false;
  int stops = 0;  // calls of qal_stop_here
  bool init_fails = false;
  // Called before a record is added to a table.
  std::function<void(const QalHash &, int32_t slot, const void *key, const void *data)> on_add;
} calls;

// Called before a thread asks for a mutex that is locked; each thread has its own.
thread_local std::function<void()> on_wait;

// A child that ends in the place of waiting for good has this status, unless an expectation failed.
constexpr int waiting = 42;
void end_in_place_of_waiting() {
  on_wait = [] { _exit(testing::Test::HasFailure() ? 1 : waiting); };
}

// "malloc qal_hash_create 75 qal_hash", and the same for a free without the label.
std::string told(const char *call, const char *label, int line, const char *file) {
  std::string place = file;
  const std::string folder = "utils/libsrc/";
  place = place.rfind(folder, 0) == 0 ? place.substr(folder.size()) : "elsewhere:" + place;
  return call + std::string(" ") + label + (*label ? " " : "") + std::to_string(line) + " " + place;
}

}  // namespace

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void __real_qal_malloc(const char *label, void *out, uint64_t size, int line, const char *file);
void __real_qal_free(void *block, int line, const char *file);
int __real_qal_hash_add(QalHash *table, int32_t slot, const void *key, const void *data);
int __real_qal_thread_mutex_init(QalThreadMutex *mutex);
int __real_qal_thread_mutex_destroy(QalThreadMutex *mutex);
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);

void *__wrap_malloc(std::size_t size) {
  return calls.allocation.strikes() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(std::size_t count, std::size_t size) {
  return calls.index_node.strikes() ? nullptr : __real_calloc(count, size);
}

void __wrap_qal_malloc(const char *label, void *out, uint64_t size, int line, const char *file) {
  calls.made.push_back(told("malloc", label, line, file) + " " + std::to_string(size));
  if (calls.on_malloc) calls.on_malloc();
  __real_qal_malloc(label, out, size, line, file);
  void *block = nullptr;
  std::memcpy(&block, out, sizeof block);
  if (block) calls.live.emplace(block, line);
}

void __wrap_qal_realloc(const char *label, void *, int64_t, int line, const char *file) {
  ADD_FAILURE() << told("realloc", label, line, file);
}

void __wrap_qal_free(void *block, int line, const char *file) {
  const auto made = calls.live.find(block);
  const std::string of = made == calls.live.end() ? "nothing" : std::to_string(made->second);
  calls.made.push_back(told("free", "", line, file) + " of " + of);
  if (made != calls.live.end()) calls.live.erase(made);
  __real_qal_free(block, line, file);
}

int __wrap_qal_hash_add(QalHash *table, int32_t slot, const void *key, const void *data) {
  if (calls.on_add) calls.on_add(*table, slot, key, data);
  return __real_qal_hash_add(table, slot, key, data);
}

int __wrap_qal_thread_mutex_init(QalThreadMutex *mutex) {
  calls.mutexes_made.push_back(mutex);
  const int status = __real_qal_thread_mutex_init(mutex);
  return calls.init_fails ? -1 : status;
}

int __wrap_qal_thread_mutex_destroy(QalThreadMutex *mutex) {
  calls.mutexes_ended.push_back(mutex);
  return __real_qal_thread_mutex_destroy(mutex);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  int status = on_wait ? pthread_mutex_trylock(mutex) : EBUSY;
  if (status == EBUSY) {
    if (on_wait) on_wait();
    status = __real_pthread_mutex_lock(mutex);
  }
  if (calls.on_lock) calls.on_lock();
  return status;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  const int status = __real_pthread_mutex_unlock(mutex);
  return calls.unlock_fails ? EPERM : status;
}

void __wrap_qal_stop_here() { ++calls.stops; }
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Made = std::vector<std::string>;

// One pool's record, whose size depends on the platform's mutex.
std::string pool_made() {
  return "malloc qal_mpool_create 65 qal_mpool " + std::to_string(sizeof(QalMpool));
}
const std::string pool_ended = "free 123 qal_mpool of 65";

// What is logged about an allocation that failed.
std::vector<std::string> report_of(const char *label, uint64_t size, int line, const char *file) {
  return allocation_report("QAL_MALLOC", static_cast<int>(size), line,
                           std::string("utils/libsrc/") + file, label);
}

std::vector<std::string> pool_report() {
  return report_of("qal_mpool_create", sizeof(QalMpool), 65, "qal_mpool");
}

std::vector<std::string> chunk_report(uint64_t size) {
  return report_of("qal_mpool_alloc", size, 168, "qal_mpool");
}

// What making a table does.
Made hash_making(int32_t slots) {
  return {"malloc qal_hash_create 75 qal_hash 40",
          "malloc qal_hash_create 86 qal_hash " + std::to_string(slots * 8), pool_made(),
          "malloc qal_list_pool_create 83 qal_list 32", pool_made()};
}

// These need a process in which nothing was started yet.
TEST(UidStartFault, MakesATableOf1000SlotsAndIdsOfTwoValues) {
  in_new_process([] {
    alarm(60);
    calls = Calls{};
    EXPECT_EQ(qal_uid_init(), 0);
    EXPECT_EQ(std::exchange(calls.made, {}), hash_making(1000));
    EXPECT_EQ(qal_uid_new(1, 2), 1U);
    EXPECT_THAT(std::exchange(calls.made, {}),
                ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 488",
                            "malloc qal_mpool_alloc 168 qal_mpool 40008"));
    calls.mutexes_made.clear();
    qal_uid_init();
    EXPECT_THAT(calls.made, IsEmpty());
    EXPECT_THAT(calls.mutexes_made, IsEmpty());
  });
}

TEST(UidStartFault, KeepsAnIdInTheSlotThatIsTheIdModulo1000) {
  in_new_process([] {
    qal_uid_init();
    uint64_t added = 0;
    calls.on_add = [&added](const QalHash &table, int32_t slot, const void *key, const void *data) {
      const uint64_t id = ++added;
      const uint64_t values[] = {id + 5, ~id};
      EXPECT_EQ(static_cast<uint64_t>(slot), id % 1000);
      ASSERT_EQ(table.key_size, 8);
      EXPECT_EQ(std::memcmp(key, &id, 8), 0) << id;
      ASSERT_EQ(table.data_size, 16);
      EXPECT_EQ(std::memcmp(data, values, 16), 0) << id;
      EXPECT_EQ(table.remove_on_find, 0U);
    };
    for (uint64_t id = 1; id <= 2001; ++id) EXPECT_EQ(qal_uid_new(id + 5, ~id), id);
    calls.on_add = nullptr;
    EXPECT_EQ(added, 2001U);
  });
}

TEST(UidStartFault, TriesAgainAfterATableThatCouldNotBeMade) {
  in_new_process([] {
    alarm(60);
    for (int failing = 1; failing <= 5; ++failing) {
      calls = Calls{};
      calls.allocation = fail_nth(failing, ENOMEM);
      EXPECT_EQ(qal_uid_init(), 0);  // it returns the mutex's status
      EXPECT_GE(calls.allocation.calls, failing);
      EXPECT_THAT(calls.live, IsEmpty());
      const uint64_t id = qal_uid_new(1, 2);
      EXPECT_EQ(id, static_cast<uint64_t>(failing));
      uint64_t first = 0;
      uint64_t second = 0;
      EXPECT_EQ(qal_uid_find(id, &first, &second), 4);
      EXPECT_EQ(qal_uid_destroy(id), 0);
    }
    qal_uid_init();
    EXPECT_EQ(qal_uid_new(3, 4), 6U);
    uint64_t first = 0;
    uint64_t second = 0;
    EXPECT_EQ(qal_uid_find(6, &first, &second), 0);
    EXPECT_EQ(first, 3U);
    EXPECT_EQ(second, 4U);
    EXPECT_EQ(qal_uid_find(5, &first, &second), 4);
  });
}

TEST(UidStartFault, AnswersWhatMakingTheMutexAnswered) {
  in_new_process([] {
    calls.init_fails = true;
    EXPECT_EQ(qal_uid_init(), -1);
    EXPECT_EQ(qal_uid_new(1, 2), 1U);
    EXPECT_EQ(qal_uid_find(1, nullptr, nullptr), 0);
  });
}

TEST(UidStartFault, MakesTheMutexAlsoForATableThatCouldNotBeMade) {
  in_new_process([] {
    alarm(60);
    calls.init_fails = true;
    calls.allocation = fail_nth(1, ENOMEM);
    EXPECT_EQ(qal_uid_init(), -1);
    EXPECT_EQ(calls.mutexes_made.size(), 1U);  // no pool was reached
    EXPECT_EQ(qal_uid_next(), 1U);
  });
}

// Start-up is over before a case counts calls.
class Containers : public testing::Test {
 protected:
  Containers() {
    qal_utils_init();
    calls = Calls{};
  }
  ~Containers() override {
    EXPECT_THAT(calls.live, IsEmpty());
    calls = Calls{};
  }

  static void fail_at(int allocation) { calls.allocation = fail_nth(allocation, ENOMEM); }
  static Made made_since() { return std::exchange(calls.made, {}); }

  // Fails each allocation of `create` in turn: what it reports, and the frees that follow.
  template <typename Create>
  static void expect_undone(const Create &create, const std::vector<Made> &reports,
                            const std::vector<Made> &undone) {
    for (std::size_t i = 0; i < reports.size(); ++i) {
      const LogCapture log;
      calls = Calls{};
      fail_at(static_cast<int>(i) + 1);
      EXPECT_EQ(create(), nullptr) << i;
      EXPECT_EQ(log.lines(), reports[i]);
      const Made made = made_since();
      EXPECT_EQ(Made(made.begin() + static_cast<std::ptrdiff_t>(i) + 1, made.end()), undone[i]);
      EXPECT_THAT(calls.live, IsEmpty());
    }
  }
};
using MpoolFault = Containers;
using PlistFault = Containers;
using ListFault = Containers;
using HashFault = Containers;
using HashPairsFault = Containers;
using UidFault = Containers;

TEST_F(MpoolFault, NamesThePlaceOfEachBlock) {
  QalMpool *pool = qal_mpool_create(20, 3);
  EXPECT_THAT(made_since(), ElementsAre(pool_made()));
  for (int i = 0; i < 4; ++i) qal_mpool_alloc(pool);
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 80",
                                        "malloc qal_mpool_alloc 168 qal_mpool 80"));
  qal_mpool_destroy(&pool);
  EXPECT_THAT(made_since(),
              ElementsAre("free 115 qal_mpool of 168", "free 115 qal_mpool of 168", pool_ended));
}

TEST_F(MpoolFault, MakesAndEndsItsMutex) {
  QalMpool *pool = qal_mpool_create(16, 1);
  QalThreadMutex *const lock = &pool->lock;
  EXPECT_THAT(calls.mutexes_made, ElementsAre(lock));
  EXPECT_THAT(calls.mutexes_ended, IsEmpty());
  qal_mpool_destroy(&pool);
  EXPECT_THAT(calls.mutexes_ended, ElementsAre(lock));
}

TEST_F(MpoolFault, GivesNoPoolWithoutMemory) {
  const LogCapture log;
  fail_at(1);
  EXPECT_EQ(qal_mpool_create(16, 1), nullptr);
  EXPECT_EQ(log.lines(), pool_report());
  EXPECT_THAT(calls.mutexes_made, IsEmpty());
}

TEST_F(MpoolFault, AsksForNoMemoryWhenTheSizeLeaves32Bits) {
  EXPECT_EQ(qal_mpool_create(UINT32_MAX - 6, 1), nullptr);
  EXPECT_THAT(made_since(), IsEmpty());
  EXPECT_THAT(calls.mutexes_made, IsEmpty());
}

// Deliberate: whoever needs the shared list of such a pool waits for good.
TEST_F(MpoolFault, StaysLockedAfterAChunkThatCouldNotBeHad) {
  const LogCapture log;
  QalMpool *pool = qal_mpool_create(16, 4);
  fail_at(1);
  EXPECT_EQ(qal_mpool_alloc(pool), nullptr);
  EXPECT_EQ(log.lines(), chunk_report(72));
  EXPECT_EQ(pool->chunks, nullptr);
  EXPECT_EQ(pool->thread_free[0], nullptr);
  EXPECT_TRUE(is_locked(pool));
  qal_mpool_destroy(&pool);
}

// An index that no thread of this program ever has: where one had it, becoming that index
// would run its routine again.
constexpr std::intptr_t other_index = 2047;

// A pool with an element in use, one free element on the list of the other index, and a chunk whose
// allocation failed.
struct LockedPool {
  QalMpool *pool = qal_mpool_create(16, 2);
  void *element = nullptr;

  LockedPool() {
    become_index(other_index);
    element = qal_mpool_alloc(pool);
    become_index(0);
    calls.allocation = fail_nth(1, ENOMEM);
    EXPECT_EQ(qal_mpool_alloc(pool), nullptr);
  }
  ~LockedPool() { qal_mpool_destroy(&pool); }
  LockedPool(const LockedPool &) = delete;
  LockedPool &operator=(const LockedPool &) = delete;
};

TEST_F(MpoolFault, LetsAFreeWaitForGoodAfterThat) {
  const auto result = run_in_child([] {
    const LockedPool locked;
    end_in_place_of_waiting();
    qal_mpool_free(locked.pool, locked.element);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

TEST_F(MpoolFault, LetsARefillWaitForGoodAfterThat) {
  const auto result = run_in_child([] {
    const LockedPool locked;
    end_in_place_of_waiting();
    qal_mpool_alloc(locked.pool);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

TEST_F(MpoolFault, StillServesThreadsFromTheirOwnListsAfterThat) {
  in_child([] {
    const LockedPool locked;
    alarm(60);
    become_index(other_index);
    EXPECT_NE(qal_mpool_alloc(locked.pool), nullptr);
    EXPECT_EQ(qal_mpool_verify_ptr(locked.pool, locked.element), 1);
    EXPECT_EQ(qal_mpool_status(locked.pool, nullptr, nullptr), 0U);
  });
}

TEST_F(MpoolFault, AddsTheLinkToAChunkOfAlmost4GiBIn64Bits) {
  const struct {
    uint32_t element_size, chunk_count;
  } cases[] = {{1864, 2304167}, {UINT32_MAX - 7, 1}};  // both come to 2^32 - 8
  for (const auto &[element_size, chunk_count] : cases) {
    QalMpool *pool = qal_mpool_create(element_size, chunk_count);
    made_since();
    fail_at(1);
    EXPECT_EQ(qal_mpool_alloc(pool), nullptr);
    EXPECT_THAT(made_since(), ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 4294967296"));
    qal_mpool_destroy(&pool);
  }
}

TEST_F(MpoolFault, AnswersWhatUnlockingAnswered) {
  const SecondThread thread;  // so that there is something to unlock
  QalMpool *pool = qal_mpool_create(16, 2);
  void *const element = qal_mpool_alloc(pool);
  calls.unlock_fails = true;
  EXPECT_EQ(qal_mpool_free(pool, element), -1);
  EXPECT_EQ(calls.stops, 1);
  EXPECT_EQ(pool->shared_count, 1);
  qal_mpool_destroy(&pool);
}

TEST_F(MpoolFault, SwitchesCancellationOffAroundTheMakingOfChunksAlone) {
  const SecondThread thread;
  for (const int before : {PTHREAD_CANCEL_ENABLE, PTHREAD_CANCEL_DISABLE}) {
    std::vector<int> in_malloc;
    std::vector<int> after_lock;
    QalMpool *pool = qal_mpool_create(16, 1);
    pthread_setcancelstate(before, nullptr);
    calls.on_malloc = [&] { in_malloc.push_back(cancel_state()); };
    calls.on_lock = [&] { after_lock.push_back(cancel_state()); };
    void *const element = qal_mpool_alloc(pool);  // makes a chunk
    qal_mpool_free(pool, element);
    qal_mpool_alloc(pool);  // refills
    EXPECT_EQ(cancel_state(), before);
    EXPECT_THAT(in_malloc, ElementsAre(PTHREAD_CANCEL_DISABLE));
    EXPECT_THAT(after_lock, ElementsAre(before, before, before));
    fail_at(1);
    EXPECT_EQ(qal_mpool_alloc(pool), nullptr);
    EXPECT_EQ(cancel_state(), before);
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    calls.on_malloc = nullptr;
    calls.on_lock = nullptr;
    qal_mpool_destroy(&pool);
  }
}

// How often mutexes are locked meanwhile.
int locks_of(const std::function<void()> &use) {
  int locks = 0;
  calls.on_lock = [&locks] { ++locks; };
  use();
  calls.on_lock = nullptr;
  return locks;
}

int locks_of_a_free(QalMpool *pool, void *element) {
  return locks_of([=] { EXPECT_EQ(qal_mpool_free(pool, element), 0); });
}

// Says what the C library says of the process, which need not be so.
class Claim {
 public:
  explicit Claim(bool single_threaded) { __libc_single_threaded = single_threaded; }
  ~Claim() { __libc_single_threaded = before_; }
  Claim(const Claim &) = delete;
  Claim &operator=(const Claim &) = delete;

 private:
  const char before_ = __libc_single_threaded;
};

TEST(MpoolLockFault, IsNotTakenInAProcessOfOneThread) {
  in_new_process([] {
    qal_utils_init();
    const Claim claim(true);
    QalMpool *pool = qal_mpool_create(16, 2);
    EXPECT_EQ(locks_of_a_free(pool, qal_mpool_alloc(pool)), 0);
    EXPECT_EQ(pool->shared_count, 1);
    EXPECT_EQ(locks_of_a_free(pool, qal_mpool_alloc(pool)), 0);
    EXPECT_FALSE(is_locked(pool));
    qal_mpool_destroy(&pool);
  });
}

TEST(MpoolLockFault, IsTakenOnceThereIsAnotherThread) {
  in_new_process([] {
    qal_utils_init();
    QalMpool *pool = qal_mpool_create(16, 2);
    const SecondThread thread;
    EXPECT_EQ(locks_of_a_free(pool, qal_mpool_alloc(pool)), 1);
    qal_mpool_destroy(&pool);
  });
}

// A forked child has one thread, but not the one that may hold the mutex.
TEST(MpoolLockFault, IsTakenForGoodFromThenOn) {
  in_new_process([] {
    qal_utils_init();
    QalMpool *pool = qal_mpool_create(16, 2);
    {
      const Claim claim(false);
      EXPECT_EQ(locks_of_a_free(pool, qal_mpool_alloc(pool)), 1);
    }
    const Claim claim(true);
    EXPECT_EQ(locks_of_a_free(pool, qal_mpool_alloc(pool)), 1);
    qal_mpool_destroy(&pool);
  });
}

// What waits for good must do so for every thread that comes later, and in every pool.
TEST(MpoolLockFault, IsTakenForGoodOnceAnyChunkCouldNotBeHad) {
  in_new_process([] {
    qal_utils_init();
    const Claim claim(true);
    const LogCapture log;
    QalMpool *pool = qal_mpool_create(16, 2);
    void *const element = qal_mpool_alloc(pool);
    QalMpool *failing = qal_mpool_create(16, 2);
    calls.allocation = fail_nth(1, ENOMEM);
    EXPECT_EQ(qal_mpool_alloc(failing), nullptr);
    EXPECT_EQ(locks_of_a_free(pool, element), 1);
    EXPECT_EQ(locks_of([] { qal_uid_next(); }), 1);
    qal_mpool_destroy(&failing);
    qal_mpool_destroy(&pool);
  });
}

// A refill in between would note by itself that locks are needed.
TEST(MpoolLockFault, IsTakenForGoodFromAFreeOn) {
  in_new_process([] {
    qal_utils_init();
    QalMpool *pool = qal_mpool_create(16, 2);
    void *const first = qal_mpool_alloc(pool);
    void *const second = qal_mpool_alloc(pool);
    {
      const Claim claim(false);
      EXPECT_EQ(locks_of_a_free(pool, first), 1);
    }
    const Claim claim(true);
    EXPECT_EQ(locks_of_a_free(pool, second), 1);
    qal_mpool_destroy(&pool);
  });
}

TEST(MpoolLockFault, HeldByAThreadIsNotSkippedInAForkedChild) {
  in_new_process([] {
    qal_utils_init();
    QalMpool *pool = qal_mpool_create(16, 1);
    void *const element = qal_mpool_alloc(pool);
    Gate gate;
    Worker worker([&] {
      calls.on_malloc = [&] { gate.wait(); };
      qal_mpool_alloc(pool);
      return 0;
    });
    await([&] { return gate.arrived() == 1; });
    const auto result = run_in_child([&] {
      const Claim claim(true);
      end_in_place_of_waiting();
      qal_mpool_free(pool, element);
    });
    EXPECT_TRUE(result.exited_with(waiting));
    gate.open();
  });
}

QalMpool *reporting = nullptr;
int reports_with_lock = 0;

void note_lock(void *, const char *, ...) { reports_with_lock += is_locked(reporting) ? 1 : 0; }

TEST_F(MpoolFault, HoldsTheLockWhileItReports) {
  in_child([] {
    reporting = qal_mpool_create(16, 2);
    qal_logger_init(nullptr, &note_lock, nullptr, nullptr);
    fail_at(1);
    EXPECT_EQ(qal_mpool_alloc(reporting), nullptr);
    EXPECT_EQ(reports_with_lock, 4);
  });
}

struct CancelledAllocation {
  QalMpool *pool;
  void *element = nullptr;
};

// Asks for its own cancellation in the middle of making a chunk.
void *allocate_and_be_cancelled(void *argument) {
  const Unwinding unwinding;
  auto &work = *static_cast<CancelledAllocation *>(argument);
  calls.on_malloc = [] {
    pthread_cancel(pthread_self());
    pthread_testcancel();
  };
  work.element = qal_mpool_alloc(work.pool);
  calls.on_malloc = nullptr;
  pthread_testcancel();
  return nullptr;
}

TEST_F(MpoolFault, IsNotLeftLockedByACancelledThread) {
  in_child([] {
    alarm(60);
    CancelledAllocation work{qal_mpool_create(16, 2)};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, &allocate_and_be_cancelled, &work), 0);
    void *end = nullptr;
    ASSERT_EQ(pthread_join(thread, &end), 0);
    EXPECT_EQ(end, PTHREAD_CANCELED);
    EXPECT_NE(work.element, nullptr);
    EXPECT_FALSE(is_locked(work.pool));
    EXPECT_EQ(qal_mpool_free(work.pool, work.element), 0);
    qal_mpool_destroy(&work.pool);
  });
}

TEST_F(PlistFault, NamesThePlaceOfEachBlock) {
  EXPECT_EQ(qal_plist_pool_destroy(), 0);  // start-up's
  calls = Calls{};
  EXPECT_EQ(qal_plist_pool_create(3, 5), 0);
  EXPECT_THAT(made_since(), ElementsAre(pool_made(), pool_made()));
  QalPlist *list = qal_plist_create();
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 56"));
  qal_plist_append(list, qal_plist_alloc());
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 128"));
  qal_plist_destroy(&list);
  EXPECT_THAT(made_since(), IsEmpty());
  EXPECT_EQ(qal_plist_pool_destroy(), 0);
  EXPECT_THAT(made_since(), ElementsAre("free 115 qal_mpool of 168", pool_ended,
                                        "free 115 qal_mpool of 168", pool_ended));
}

TEST_F(PlistFault, HasNoPoolsWhenOneOfThemCannotBeMade) {
  qal_plist_pool_destroy();
  for (const int failing : {1, 2}) {
    const LogCapture log;
    calls = Calls{};
    fail_at(failing);
    EXPECT_EQ(qal_plist_pool_create(32, 256), 2);
    EXPECT_EQ(log.lines(), pool_report());
    EXPECT_THAT(calls.live, IsEmpty());
    EXPECT_EQ(qal_plist_create(), nullptr);
    EXPECT_EQ(qal_plist_alloc(), nullptr);
    EXPECT_EQ(qal_plist_pool_destroy(), 0);
  }
}

// Deliberate: a second set-up forgets the first before it knows of its own success. In a child,
// whose leak nobody misses.
TEST_F(PlistFault, HasNoPoolsAfterASecondSetUpThatFailed) {
  in_child([] {
    for (const int failing : {1, 2}) {
      EXPECT_EQ(qal_plist_pool_create(4, 4), 0);
      fail_at(failing);
      EXPECT_EQ(qal_plist_pool_create(4, 4), 2);
      EXPECT_EQ(qal_plist_create(), nullptr);
      EXPECT_EQ(qal_plist_alloc(), nullptr);
    }
  });
}

TEST_F(PlistFault, GivesNoListAndNoNodeWithoutMemory) {
  const LogCapture log;
  qal_plist_pool_destroy();
  qal_plist_pool_create(1, 1);
  fail_at(1);
  EXPECT_EQ(qal_plist_create(), nullptr);
  fail_at(1);
  EXPECT_EQ(qal_plist_alloc(), nullptr);
  EXPECT_EQ(log.lines().size(), 8U);
  qal_plist_pool_destroy();
}

TEST_F(PlistFault, LetsADestroyWaitForGoodAfterANodeThatCouldNotBeHad) {
  const auto result = run_in_child([] {
    qal_plist_pool_destroy();
    qal_plist_pool_create(1, 1);
    QalPlist *list = qal_plist_create();
    qal_plist_append(list, qal_plist_alloc());
    fail_at(1);
    EXPECT_EQ(qal_plist_alloc(), nullptr);
    end_in_place_of_waiting();
    qal_plist_destroy(&list);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

TEST_F(ListFault, LetsADestroyWaitForGoodAfterAnElementThatCouldNotBeHad) {
  const auto result = run_in_child([] {
    QalListPool *pool = qal_list_pool_create(8, 1, 0);
    QalList *list = qal_list_create(pool);
    qal_list_append(list, qal_list_alloc(list));
    fail_at(1);
    EXPECT_EQ(qal_list_alloc(list), nullptr);
    end_in_place_of_waiting();
    qal_list_destroy(&list);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

TEST_F(ListFault, NamesThePlaceOfEachBlock) {
  QalListPool *pool = qal_list_pool_create(30, 2, 1);
  EXPECT_THAT(made_since(),
              ElementsAre(pool_made(), "malloc qal_list_pool_create 83 qal_list 32", pool_made()));
  QalList *list = qal_list_create(pool);
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 488"));
  for (int i = 0; i < 3; ++i) qal_list_append(list, qal_list_alloc(list));
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 104",
                                        "malloc qal_mpool_alloc 168 qal_mpool 104"));
  qal_list_destroy(&list);
  EXPECT_THAT(made_since(), IsEmpty());
  qal_list_pool_destroy(&pool);
  EXPECT_THAT(made_since(),
              ElementsAre("free 115 qal_mpool of 168", "free 115 qal_mpool of 168", pool_ended,
                          "free 115 qal_mpool of 168", pool_ended, "free 123 qal_list of 83"));
}

TEST_F(ListFault, NamesThePlaceOfHeadersOutsidePools) {
  QalListPool *pool = qal_list_pool_create(8, 2, 0);
  EXPECT_THAT(made_since(), ElementsAre(pool_made(), "malloc qal_list_pool_create 83 qal_list 32"));
  QalList *list = qal_list_create(pool);
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_list_create 139 qal_list 24"));
  qal_list_destroy(&list);
  EXPECT_THAT(made_since(), ElementsAre("free 175 qal_list of 139"));
  qal_list_pool_destroy(&pool);
  EXPECT_THAT(made_since(), ElementsAre(pool_ended, "free 123 qal_list of 83"));
}

TEST_F(ListFault, LeavesNothingBehindWhicheverAllocationOfThePoolFails) {
  const std::vector<Made> reports = {
      pool_report(), report_of("qal_list_pool_create", 32, 83, "qal_list"), pool_report()};
  const std::vector<Made> undone = {{}, {pool_ended}, {pool_ended, "free 100 qal_list of 83"}};
  expect_undone([] { return qal_list_pool_create(8, 2, 1); }, reports, undone);
  fail_at(4);
  QalListPool *pool = qal_list_pool_create(8, 2, 1);
  EXPECT_NE(pool, nullptr);
  EXPECT_EQ(calls.allocation.calls, 3);
  qal_list_pool_destroy(&pool);
}

TEST_F(ListFault, GivesNoListWithoutMemory) {
  for (const int32_t use_header_pool : {0, 1}) {
    QalListPool *pool = qal_list_pool_create(8, 2, use_header_pool);
    const LogCapture log;
    fail_at(1);
    EXPECT_EQ(qal_list_create(pool), nullptr);
    EXPECT_EQ(log.lines(), use_header_pool ? chunk_report(488)
                                           : report_of("qal_list_create", 24, 139, "qal_list"));
    qal_list_pool_destroy(&pool);
    EXPECT_THAT(calls.live, IsEmpty());
  }
}

TEST_F(ListFault, GivesNoElementWithoutMemory) {
  QalListPool *pool = qal_list_pool_create(8, 2, 0);
  QalList *list = qal_list_create(pool);
  const LogCapture log;
  fail_at(1);
  EXPECT_EQ(qal_list_alloc(list), nullptr);
  EXPECT_EQ(log.lines(), chunk_report(56));
  EXPECT_EQ(qal_list_length(list), 0U);
  qal_list_destroy(&list);
  qal_list_pool_destroy(&pool);
}

// What ending a table does. A used one has one chunk of records and one of headers.
Made hash_ending(bool used) {
  const Made chunk = used ? Made{"free 115 qal_mpool of 168"} : Made{};
  Made all = chunk;
  all.push_back(pool_ended);
  all.insert(all.end(), chunk.begin(), chunk.end());
  for (const char *const freed : {"free 123 qal_mpool of 65", "free 123 qal_list of 83",
                                  "free 129 qal_hash of 86", "free 130 qal_hash of 75"}) {
    all.emplace_back(freed);
  }
  return all;
}

TEST_F(HashFault, NamesThePlaceOfEachBlock) {
  QalHash *table = qal_hash_create(6, 3, 8, 4, 0);
  EXPECT_EQ(made_since(), hash_making(6));
  EXPECT_EQ(qal_hash_add(table, 0, "the key.", "data"), 0);
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_mpool_alloc 168 qal_mpool 488",
                                        "malloc qal_mpool_alloc 168 qal_mpool 104"));
  EXPECT_EQ(qal_hash_add(table, 5, "the key.", "data"), 0);
  qal_hash_reinit(table);
  EXPECT_EQ(qal_hash_add(table, 3, "the key.", "data"), 0);
  EXPECT_THAT(made_since(), IsEmpty());
  qal_hash_destroy(&table);
  EXPECT_EQ(made_since(), hash_ending(true));
}

TEST_F(HashFault, LeavesNothingBehindWhicheverAllocationOfTheTableFails) {
  const std::vector<Made> reports = {
      report_of("qal_hash_create", 40, 75, "qal_hash"),
      report_of("qal_hash_create", 48, 86, "qal_hash"), pool_report(),
      report_of("qal_list_pool_create", 32, 83, "qal_list"), pool_report()};
  const std::string slots_freed = "free 99 qal_hash of 86";
  const std::string table_freed = "free 100 qal_hash of 75";
  const std::vector<Made> undone = {
      {},
      {"free 88 qal_hash of 75"},
      {slots_freed, table_freed},
      {pool_ended, slots_freed, table_freed},
      {pool_ended, "free 100 qal_list of 83", slots_freed, table_freed}};
  expect_undone([] { return qal_hash_create(6, 3, 8, 4, 0); }, reports, undone);
}

TEST_F(HashFault, ChecksItsArgumentsBeforeItAllocates) {
  const LogCapture log;
  EXPECT_EQ(qal_hash_create(0, 3, 8, 4, 0), nullptr);
  EXPECT_EQ(qal_hash_create(6, 0, 8, 4, 0), nullptr);
  EXPECT_EQ(qal_hash_create(6, 3, -1, 4, 0), nullptr);
  EXPECT_EQ(qal_hash_create(6, 3, 8, -1, 0), nullptr);
  EXPECT_THAT(made_since(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(HashFault, AsksForTheSlotsIn64Bits) {
  fail_at(2);
  EXPECT_EQ(qal_hash_create(INT_MAX, 1, 8, 8, 0), nullptr);
  EXPECT_EQ(made_since()[1], "malloc qal_hash_create 86 qal_hash 17179869176");
}

TEST_F(HashFault, FreesWhatItMadeForRecordsThatLeave32Bits) {
  EXPECT_EQ(qal_hash_create(6, 1, INT_MAX, INT_MAX, 0), nullptr);
  EXPECT_THAT(made_since(), ElementsAre("malloc qal_hash_create 75 qal_hash 40",
                                        "malloc qal_hash_create 86 qal_hash 48",
                                        "free 99 qal_hash of 86", "free 100 qal_hash of 75"));
}

TEST_F(HashFault, KeepsASlotNoneWhenItsListCannotBeHad) {
  QalHash *table = qal_hash_create(6, 3, 8, 4, 0);
  const LogCapture log;
  fail_at(1);
  EXPECT_EQ(qal_hash_add(table, 2, "the key.", "data"), 2);
  EXPECT_EQ(log.lines(), chunk_report(488));
  EXPECT_EQ(table->slots[2], nullptr);
  EXPECT_EQ(qal_hash_find(table, 2, "the key.", nullptr), 0);
  EXPECT_EQ(qal_hash_remove(table, 2, "the key.", nullptr), 6);
  qal_hash_destroy(&table);
}

TEST_F(HashFault, KeepsTheEmptyListWhenTheRecordCannotBeHad) {
  QalHash *table = qal_hash_create(6, 3, 8, 4, 0);
  const LogCapture log;
  fail_at(2);
  EXPECT_EQ(qal_hash_add(table, 2, "the key.", "data"), 2);
  EXPECT_EQ(log.lines(), chunk_report(104));
  ASSERT_NE(table->slots[2], nullptr);
  EXPECT_EQ(qal_list_length(table->slots[2]), 0U);
  EXPECT_EQ(qal_hash_find(table, 2, "the key.", nullptr), 0);
  EXPECT_EQ(qal_hash_remove(table, 2, "the key.", nullptr), 6);
  qal_hash_destroy(&table);
}

TEST_F(HashFault, KeepsTheRecordsOfASlotThatCannotHaveMore) {
  QalHash *table = qal_hash_create(6, 1, 8, 4, 0);
  EXPECT_EQ(qal_hash_add(table, 2, "the key.", "data"), 0);
  QalList *const list = table->slots[2];
  fail_at(1);
  EXPECT_EQ(qal_hash_add(table, 2, "another.", "more"), 2);
  EXPECT_EQ(table->slots[2], list);
  EXPECT_EQ(qal_list_length(list), 1U);
  char data[] = "????";
  EXPECT_EQ(qal_hash_find(table, 2, "the key.", data), 1);
  EXPECT_STREQ(data, "data");
  EXPECT_EQ(qal_hash_find(table, 2, "another.", data), 0);
  table->slots[2] = nullptr;  // nothing can be given back to a pool that stays locked
  qal_hash_destroy(&table);
}

TEST_F(HashFault, LetsADestroyWaitForGoodAfterThat) {
  const auto result = run_in_child([] {
    QalHash *table = qal_hash_create(6, 1, 8, 4, 0);
    qal_hash_add(table, 2, "the key.", "data");
    fail_at(1);
    EXPECT_EQ(qal_hash_add(table, 2, "another.", "more"), 2);
    end_in_place_of_waiting();
    qal_hash_destroy(&table);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

TEST_F(HashFault, LetsAMergeWaitForGoodAtTheNextRecord) {
  const auto result = run_in_child([] {
    QalHash *dst = qal_hash_create(6, 3, 8, 4, 0);
    QalHash *src = qal_hash_create(6, 3, 8, 4, 0);
    qal_hash_add(src, 2, "the key.", "data");
    qal_hash_add(src, 2, "another.", "more");
    calls.allocation = fail_from(1, ENOMEM);
    end_in_place_of_waiting();
    qal_hash_merge(dst, src, nullptr, nullptr);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

// The twins' records make the thread one without memory and then itself again.
TEST_F(HashFault, GoesOnMergingBehindARecordLostWithoutALock) {
  QalHash *dst = qal_hash_create(6, 3, 8, 4, 0);
  QalHash *src = qal_hash_create(6, 3, 8, 4, 0);
  for (const char *twin : {"no room.", "room now"}) qal_hash_add(dst, 2, twin, "kept");
  for (const char *key : {"no room.", "the lost", "room now", "the next"}) {
    qal_hash_add(src, 2, key, "data");
  }
  const auto change_room = [](const void *key, void *, void *, void *) {
    become_index(std::memcmp(key, "no room.", 8) == 0 ? INT_MAX : 0);
    return int{QAL_HASH_KEEP};
  };
  EXPECT_EQ(qal_hash_merge(dst, src, change_room, nullptr), 0);
  EXPECT_EQ(qal_hash_find(dst, 2, "the lost", nullptr), 0);
  EXPECT_EQ(qal_hash_find(dst, 2, "the next", nullptr), 1);
  qal_hash_destroy(&dst);
  qal_hash_destroy(&src);
}

TEST_F(HashFault, AllocatesNothingWhileRecordsComeAndGo) {
  for (const uint32_t remove_on_find : {0U, 1U}) {
    QalHash *table = qal_hash_create(4, 8, 8, 8, remove_on_find);
    const auto come_and_go = [=](int rounds) {
      for (int64_t key = 100; key < 100 + rounds; ++key) {
        const auto slot = static_cast<int32_t>(key % 4);
        EXPECT_EQ(qal_hash_add(table, slot, &key, &key), 0);
        EXPECT_EQ(qal_hash_find(table, slot, &key, nullptr), 1);
        EXPECT_EQ(qal_hash_remove(table, slot, &key, nullptr), remove_on_find ? 6 : 0);
      }
    };
    for (int64_t key = 0; key < 20; ++key) {
      qal_hash_add(table, static_cast<int32_t>(key % 4), &key, &key);
    }
    come_and_go(100);
    made_since();
    come_and_go(10'000);
    EXPECT_THAT(made_since(), IsEmpty());
    qal_hash_destroy(&table);
  }
}

// Deliberate: a merge does not tell what it lost.
TEST_F(HashFault, LosesTheRecordThatAMergeCannotStore) {
  for (const int failing : {1, 2}) {
    QalHash *dst = qal_hash_create(6, 3, 8, 4, 0);
    QalHash *src = qal_hash_create(6, 3, 8, 4, 0);
    qal_hash_add(src, 2, "the key.", "data");
    fail_at(failing);
    EXPECT_EQ(qal_hash_merge(dst, src, nullptr, nullptr), 0);
    EXPECT_EQ(src->slots[2], nullptr);
    EXPECT_EQ(qal_hash_find(dst, 2, "the key.", nullptr), 0);
    EXPECT_EQ(qal_mpool_status(src->pool->element_pool, nullptr, nullptr), 3U);
    qal_hash_destroy(&dst);
    qal_hash_destroy(&src);
    EXPECT_THAT(calls.live, IsEmpty());
  }
}

TEST_F(HashPairsFault, NamesThePlaceOfEachBlock) {
  QalHashPairs *pairs = qal_hash_pairs_create(6, 3, 4, 0);
  Made expected = hash_making(6);
  expected.insert(expected.begin(), "malloc qal_hash_pairs_create 484 qal_hash 32");
  EXPECT_EQ(made_since(), expected);
  qal_hash_pairs_destroy(&pairs);
  expected = hash_ending(false);
  expected.emplace_back("free 545 qal_hash of 484");
  EXPECT_EQ(made_since(), expected);
}

TEST_F(HashPairsFault, FreesARecordWithoutATable) {
  QalHashPairs *pairs = qal_hash_pairs_create(6, 3, 4, 0);
  qal_hash_destroy(&pairs->table);
  EXPECT_EQ(qal_hash_pairs_find(pairs, 1, 2, nullptr), 0);
  made_since();
  qal_hash_pairs_destroy(&pairs);
  EXPECT_THAT(made_since(), ElementsAre("free 545 qal_hash of 484"));
}

TEST_F(HashPairsFault, LeavesNothingBehindWhicheverAllocationFails) {
  for (int failing = 1; failing <= 6; ++failing) {
    const LogCapture log;
    calls = Calls{};
    fail_at(failing);
    EXPECT_EQ(qal_hash_pairs_create(6, 3, 4, 0), nullptr) << failing;
    EXPECT_EQ(log.lines().size(), 4U);
    const Made made = made_since();
    if (failing == 1) {
      EXPECT_EQ(log.lines(), report_of("qal_hash_pairs_create", 32, 484, "qal_hash"));
      EXPECT_EQ(made.size(), 1U);
    } else {
      EXPECT_EQ(made.back(), "free 498 qal_hash of 484");
    }
    EXPECT_THAT(calls.live, IsEmpty());
  }
}

TEST_F(HashPairsFault, ChecksItsArgumentsBeforeItAllocates) {
  const LogCapture log;
  EXPECT_EQ(qal_hash_pairs_create(0, 3, 4, 0), nullptr);
  EXPECT_EQ(qal_hash_pairs_create(6, 0, 4, 0), nullptr);
  EXPECT_EQ(qal_hash_pairs_create(6, 3, -1, 0), nullptr);
  EXPECT_THAT(made_since(), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

// Deliberate: an id is handed out although it could not be registered.
TEST_F(UidFault, HandsOutAnIdThatItCouldNotRegister) {
  for (const int failing : {1, 2}) {
    in_child([failing] {
      const LogCapture log;
      alarm(60);
      fail_at(failing);
      const uint64_t id = qal_uid_new(1, 2);
      EXPECT_EQ(qal_uid_next(), id + 1);
      uint64_t first = 0;
      uint64_t second = 0;
      EXPECT_EQ(qal_uid_find(id, &first, &second), 4);
      EXPECT_EQ(qal_uid_destroy(id), 6);
      EXPECT_EQ(log.lines(), chunk_report(failing == 1 ? 488 : 40008));
    });
  }
}

// The registry's records come in chunks of 1000.
void use_up_the_chunk_of_records() {
  while (qal_uid_new(0, 0) != 1000) continue;
  calls.allocation = fail_nth(1, ENOMEM);
  EXPECT_EQ(qal_uid_new(0, 0), 1001U);
}

TEST_F(UidFault, LetsTheNextChunkWaitForGoodAfterOneThatCouldNotBeHad) {
  const auto result = run_in_child([] {
    fail_at(2);  // the first is that of list headers
    qal_uid_new(1, 2);
    end_in_place_of_waiting();
    qal_uid_new(3, 4);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

TEST_F(UidFault, LetsARetirementWaitForGoodAfterAChunkThatCouldNotBeHad) {
  const auto result = run_in_child([] {
    use_up_the_chunk_of_records();
    end_in_place_of_waiting();
    qal_uid_destroy(1);
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

TEST_F(UidFault, LetsEveryThreadWaitForOneThatWaitsForGood) {
  const auto result = run_in_child([] {
    use_up_the_chunk_of_records();
    std::atomic<bool> other_waits = false;
    const Worker worker([&other_waits] {
      on_wait = [&other_waits] { other_waits = true; };
      return qal_uid_destroy(1);
    });
    await([&other_waits] { return other_waits.load(); });
    end_in_place_of_waiting();
    qal_uid_next();
    _exit(0);  // without waiting for the other thread
  });
  EXPECT_TRUE(result.exited_with(waiting));
}

// Beside a map, over growing and shrinking numbers of ids.
void use_ids_at_random(int steps) {
  std::mt19937_64 random(1);
  std::map<uint64_t, uint64_t> model;
  for (int step = 0; step < steps; ++step) {
    const bool shrinks = step / 2000 % 2 != 0;
    const uint64_t wanted = 1 + random() % qal_uid_next();
    if (random() % 3 == 0) {
      uint64_t value = 0;
      const auto known = model.find(wanted);
      EXPECT_EQ(qal_uid_find(wanted, &value, nullptr), known == model.end() ? 4 : 0);
      EXPECT_EQ(value, known == model.end() ? 0 : known->second);
    } else if (random() % 4 < (shrinks ? 1U : 3U)) {
      const uint64_t value = random();
      model.emplace(qal_uid_new(value, 0), value);
    } else {
      const auto known = model.lower_bound(wanted);
      EXPECT_EQ(qal_uid_destroy(known == model.end() ? wanted : known->first),
                known == model.end() ? 6 : 0);
      if (known != model.end()) model.erase(known);
    }
  }
  for (uint64_t id = 1; id < qal_uid_next(); ++id) {
    EXPECT_EQ(qal_uid_find(id, nullptr, nullptr), model.count(id) == 1 ? 0 : 4);
  }
}

TEST_F(UidFault, FindsAndRetiresIdsWhateverPartOfTheirIndexIsMissing) {
  constexpr int steps = 6000;
  for (const Fault &fault :
       {Fault{}, fail_all(ENOMEM), fail_nth(1, ENOMEM), fail_nth(2, ENOMEM), fail_nth(3, ENOMEM),
        fail_from(4, ENOMEM), Fault{.error = ENOMEM, .first = 5, .how_many = 3}}) {
    in_new_process([&fault] {
      qal_utils_init();
      const LogCapture log;
      calls = Calls{};
      calls.index_node = fault;
      use_ids_at_random(steps);
      EXPECT_GE(calls.index_node.calls, 5);
      EXPECT_THAT(log.lines(), IsEmpty());
    });
  }
}

TEST_F(UidFault, TellsTheIdsOfASlotApartWithoutTheirIndex) {
  in_new_process([] {
    constexpr uint64_t slots = 1000;
    qal_utils_init();
    calls = Calls{};
    calls.index_node = fail_all(ENOMEM);
    while (qal_uid_new(0, 0) != slots + 1) continue;
    EXPECT_EQ(qal_uid_find(1, nullptr, nullptr), 0);
    EXPECT_EQ(qal_uid_destroy(slots + 1), 0);
    EXPECT_EQ(qal_uid_find(slots + 1, nullptr, nullptr), 4);
    EXPECT_EQ(qal_uid_find(1, nullptr, nullptr), 0);
  });
}

// A node leads to 256 of them.
TEST_F(UidFault, MakesNoMoreNodesOfTheIndexForIdsThatComeAndGo) {
  in_new_process([] {
    constexpr int many = 20'000;
    qal_utils_init();
    calls = Calls{};
    for (int i = 0; i < many; ++i) EXPECT_EQ(qal_uid_destroy(qal_uid_new(1, 2)), 0);
    EXPECT_LE(calls.index_node.calls, 2);
    qal_uid_new(1, 2);  // stays
    for (int i = 0; i < many; ++i) EXPECT_EQ(qal_uid_destroy(qal_uid_new(1, 2)), 0);
    EXPECT_LE(calls.index_node.calls, 3);
  });
}

TEST(UidLockFault, IsNotTakenInAProcessOfOneThread) {
  in_new_process([] {
    qal_utils_init();
    const Claim claim(true);
    qal_uid_new(1, 2);  // makes the chunks
    const auto use = [] {
      const uint64_t id = qal_uid_new(3, 4);
      EXPECT_EQ(qal_uid_find(id, nullptr, nullptr), 0);
      EXPECT_EQ(qal_uid_destroy(id), 0);
      EXPECT_EQ(qal_uid_next(), 3U);
    };
    EXPECT_EQ(locks_of(use), 0);
  });
}

TEST(UidLockFault, IsTakenOnceThereIsAnotherThread) {
  in_new_process([] {
    qal_utils_init();
    qal_uid_new(1, 2);
    const SecondThread thread;
    int locks = 0;
    calls.on_lock = [&locks] { ++locks; };
    EXPECT_EQ(qal_uid_next(), 2U);
    EXPECT_EQ(qal_uid_find(1, nullptr, nullptr), 0);
    EXPECT_EQ(locks, 2);
    EXPECT_EQ(qal_uid_new(3, 4), 2U);
    EXPECT_EQ(locks, 3);
    EXPECT_EQ(qal_uid_destroy(1), 0);
    EXPECT_EQ(locks, 5);  // that of the records' pool, too
    calls.on_lock = nullptr;
  });
}

TEST(UidLockFault, IsTakenForGoodFromThenOn) {
  in_new_process([] {
    qal_utils_init();
    for (const bool single_threaded : {false, true}) {
      const Claim claim(single_threaded);
      EXPECT_EQ(locks_of([] { EXPECT_EQ(qal_uid_next(), 1U); }), 1);
    }
  });
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/mpool.h>
#include <qal/startup.h>
#include <qal/thread.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "support/child.hpp"
#include "support/log_capture.hpp"
#include "support/pool_churn.hpp"
#include "support/pool_model.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::become_index;
using qal::test::chain_from;
using qal::test::ChildResult;
using qal::test::churn;
using qal::test::elements_of;
using qal::test::Exchange;
using qal::test::in_child;
using qal::test::is_locked;
using qal::test::LogCapture;
using qal::test::next_of;
using qal::test::PoolModel;
using qal::test::repetitions;
using qal::test::run_in_child;
using qal::test::run_together;
using qal::test::Watchdog;
using testing::ElementsAre;
using testing::IsEmpty;

struct DestroyPool {
  void operator()(QalMpool *pool) const { qal_mpool_destroy(&pool); }
};
using Pool = std::unique_ptr<QalMpool, DestroyPool>;

Pool new_pool(uint32_t element_size, uint32_t chunk_count) {
  return Pool(qal_mpool_create(element_size, chunk_count));
}

std::byte *bytes(void *address) { return static_cast<std::byte *>(address); }

struct Counts {
  uint32_t total;
  uint32_t free;
};

Counts counts_of(QalMpool *pool) {
  Counts counts{};
  EXPECT_EQ(qal_mpool_status(pool, &counts.total, &counts.free), counts.free);
  return counts;
}

void expect_counts(const Pool &pool, uint32_t total, uint32_t free) {
  const Counts counts = counts_of(pool.get());
  EXPECT_EQ(counts.total, total);
  EXPECT_EQ(counts.free, free);
}

class Mpool : public testing::Test {
 protected:
  Mpool() { qal_utils_init(); }
  ~Mpool() override {
    become_index(0);
    qal_utils_done();
  }
};
using MpoolCreate = Mpool;
using MpoolAlloc = Mpool;
using MpoolFree = Mpool;
using MpoolVerifyPtr = Mpool;
using MpoolStatus = Mpool;
using MpoolDestroy = Mpool;
using MpoolHooks = Mpool;
using MpoolThreads = Mpool;

TEST_F(MpoolCreate, MakesAnEmptyPool) {
  const Pool pool = new_pool(40, 7);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->element_size, 40U);
  EXPECT_EQ(pool->chunk_count, 7U);
  for (const void *const list : pool->thread_free) EXPECT_EQ(list, nullptr);
  EXPECT_EQ(pool->shared_free, nullptr);
  EXPECT_EQ(pool->shared_count, 0);
  EXPECT_EQ(pool->chunks, nullptr);
  EXPECT_FALSE(is_locked(pool.get()));
}

TEST_F(MpoolCreate, KeepsAListForEachOf2048Threads) {
  EXPECT_EQ(std::size(QalMpool{}.thread_free), 2048U);
}

TEST_F(MpoolCreate, RaisesSizesTo16AndToMultiplesOf8) {
  const std::map<uint32_t, uint32_t> raised = {{0, 16},  {1, 16},  {8, 16},  {15, 16}, {16, 16},
                                               {17, 24}, {20, 24}, {23, 24}, {24, 24}, {25, 32}};
  for (const auto &[requested, size] : raised) {
    EXPECT_EQ(new_pool(requested, 1)->element_size, size) << requested;
  }
}

TEST_F(MpoolCreate, RefusesSizesWhoseRaisingLeaves32Bits) {
  EXPECT_EQ(new_pool(UINT32_MAX - 7, 1)->element_size, UINT32_MAX - 7);
  for (uint32_t size = UINT32_MAX - 6; size != 0; ++size) EXPECT_EQ(new_pool(size, 1), nullptr);
}

TEST_F(MpoolAlloc, CarvesAChunkInTheOrderOfAddresses) {
  const Pool pool = new_pool(24, 4);
  void *const first = qal_mpool_alloc(pool.get());
  ASSERT_NE(pool->chunks, nullptr);
  EXPECT_EQ(next_of(pool->chunks), nullptr);
  const std::vector<void *> all = elements_of(*pool, pool->chunks);
  EXPECT_EQ(first, all[0]);
  EXPECT_THAT(chain_from(pool->thread_free[0]), ElementsAre(all[1], all[2], all[3]));
  EXPECT_EQ(qal_mpool_alloc(pool.get()), all[1]);
  EXPECT_THAT(chain_from(pool->thread_free[0]), ElementsAre(all[2], all[3]));
  EXPECT_EQ(pool->shared_free, nullptr);
  EXPECT_EQ(pool->shared_count, 0);
}

TEST_F(MpoolAlloc, LeavesTheRestOfTheFirstChunkToItsThread) {
  const Pool pool = new_pool(16, 4);
  qal_mpool_alloc(pool.get());
  expect_counts(pool, 4, 3);
}

TEST_F(MpoolAlloc, PutsTheNewestChunkFirst) {
  const Pool pool = new_pool(16, 1);
  void *const first = qal_mpool_alloc(pool.get());
  void *const second = qal_mpool_alloc(pool.get());
  EXPECT_THAT(chain_from(pool->chunks),
              ElementsAre(bytes(second) - sizeof(void *), bytes(first) - sizeof(void *)));
}

TEST_F(MpoolAlloc, GivesWholeElementsOnPointerBoundaries) {
  const Pool pool = new_pool(21, 5);
  std::vector<void *> all;
  for (int i = 0; i < 17; ++i) {
    all.push_back(qal_mpool_alloc(pool.get()));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(all.back()) % 8, 0U);
    std::memset(all.back(), i, pool->element_size);
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    const std::vector<std::byte> expected(pool->element_size, static_cast<std::byte>(i));
    EXPECT_EQ(std::memcmp(all[i], expected.data(), expected.size()), 0);
  }
}

TEST_F(MpoolAlloc, RefillsFromTheSharedListOnlyWithAWholeChunksWorth) {
  const Pool pool = new_pool(16, 4);
  std::vector<void *> used;
  for (int i = 0; i < 8; ++i) used.push_back(qal_mpool_alloc(pool.get()));
  for (int i = 0; i < 3; ++i) qal_mpool_free(pool.get(), used[static_cast<std::size_t>(i)]);
  qal_mpool_alloc(pool.get());  // three are fewer than four
  expect_counts(pool, 12, 6);
  EXPECT_THAT(chain_from(pool->shared_free), ElementsAre(used[2], used[1], used[0]));
  for (int i = 0; i < 3; ++i) qal_mpool_alloc(pool.get());
  qal_mpool_free(pool.get(), used[3]);
  EXPECT_EQ(qal_mpool_alloc(pool.get()), used[3]);
  EXPECT_THAT(chain_from(pool->thread_free[0]), ElementsAre(used[2], used[1], used[0]));
  EXPECT_EQ(pool->shared_free, nullptr);
  EXPECT_EQ(pool->shared_count, 0);
  expect_counts(pool, 12, 3);
}

TEST_F(MpoolAlloc, LeavesWhatExceedsOneChunksWorthOnTheSharedList) {
  const Pool pool = new_pool(16, 2);
  std::vector<void *> used;
  for (int i = 0; i < 6; ++i) used.push_back(qal_mpool_alloc(pool.get()));
  for (int i = 0; i < 5; ++i) qal_mpool_free(pool.get(), used[static_cast<std::size_t>(i)]);
  EXPECT_EQ(qal_mpool_alloc(pool.get()), used[4]);
  EXPECT_THAT(chain_from(pool->thread_free[0]), ElementsAre(used[3]));
  EXPECT_THAT(chain_from(pool->shared_free), ElementsAre(used[2], used[1], used[0]));
  EXPECT_EQ(pool->shared_count, 3);
}

TEST_F(MpoolAlloc, ServesEachThreadIndexFromItsOwnList) {
  const Pool pool = new_pool(16, 3);
  qal_mpool_alloc(pool.get());
  const std::vector<void *> of_main = chain_from(pool->thread_free[0]);
  for (const int index : {1, 1024, 2047}) {
    become_index(index);
    qal_mpool_alloc(pool.get());
    EXPECT_EQ(chain_from(pool->thread_free[index]).size(), 2U) << index;
  }
  EXPECT_EQ(chain_from(pool->thread_free[0]), of_main);
  expect_counts(pool, 12, 8);
}

TEST_F(MpoolAlloc, TakesNoLockForAnElementOfTheThreadsOwnList) {
  in_child([] {
    const Watchdog watchdog;
    const Pool pool = new_pool(16, 3);
    qal_mpool_alloc(pool.get());
    qal_thread_mutex_lock(&pool->lock);
    EXPECT_NE(qal_mpool_alloc(pool.get()), nullptr);
    EXPECT_NE(qal_mpool_alloc(pool.get()), nullptr);
    qal_thread_mutex_unlock(&pool->lock);
  });
}

TEST_F(MpoolAlloc, ReportsAThreadIndexOutsideTheTable) {
  const Pool pool = new_pool(16, 4);
  qal_mpool_alloc(pool.get());
  for (const intptr_t index :
       {intptr_t{2048}, intptr_t{-1}, intptr_t{INT_MIN}, intptr_t{INT_MAX}}) {
    const LogCapture log;
    become_index(index);
    EXPECT_EQ(qal_mpool_alloc(pool.get()), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR: Bad thread index in qal_mpool_alloc\n")) << index;
  }
  expect_counts(pool, 4, 3);
  EXPECT_FALSE(is_locked(pool.get()));
}

// The mutex stands behind the lists in the pool.
TEST_F(MpoolAlloc, ReportsTheIndexBehindTheLastWhileThePoolIsLocked) {
  in_child([] {
    const Watchdog watchdog;
    const Pool pool = new_pool(16, 4);
    const LogCapture log;
    become_index(2048);
    qal_thread_mutex_lock(&pool->lock);
    EXPECT_EQ(qal_mpool_alloc(pool.get()), nullptr);
    qal_thread_mutex_unlock(&pool->lock);
    EXPECT_EQ(log.text(), "ERROR: Bad thread index in qal_mpool_alloc\n");
  });
}

TEST_F(MpoolAlloc, ServesTheLastThreadIndex) {
  const Pool pool = new_pool(16, 4);
  const LogCapture log;
  become_index(2047);
  EXPECT_NE(qal_mpool_alloc(pool.get()), nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MpoolAlloc, AnswersNoneFromAPoolOfEmptyChunks) {
  const Pool pool = new_pool(16, 0);
  ASSERT_NE(pool, nullptr);
  const LogCapture log;
  EXPECT_EQ(qal_mpool_alloc(pool.get()), nullptr);
  EXPECT_EQ(pool->chunks, nullptr);
  EXPECT_FALSE(is_locked(pool.get()));
  EXPECT_THAT(log.lines(), IsEmpty());
  expect_counts(pool, 0, 0);
}

TEST_F(MpoolAlloc, AnswersNoneWhenAChunkLeaves32Bits) {
  const struct {
    uint32_t element_size, chunk_count;
  } cases[] = {{65536, 65536},   {16, 268435456},  {24, 178956971},
               {0x80000000U, 2}, {16, UINT32_MAX}, {UINT32_MAX - 7, UINT32_MAX}};
  for (const auto &[element_size, chunk_count] : cases) {
    const Pool pool = new_pool(element_size, chunk_count);
    ASSERT_NE(pool, nullptr);
    const LogCapture log;
    EXPECT_EQ(qal_mpool_alloc(pool.get()), nullptr) << element_size << " x " << chunk_count;
    EXPECT_EQ(pool->chunks, nullptr);
    EXPECT_FALSE(is_locked(pool.get()));
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

TEST_F(MpoolAlloc, LooksAtTheThreadIndexBeforeTheSizeOfChunks) {
  const Pool pool = new_pool(16, 0);
  const LogCapture log;
  become_index(2048);
  EXPECT_EQ(qal_mpool_alloc(pool.get()), nullptr);
  EXPECT_EQ(log.text(), "ERROR: Bad thread index in qal_mpool_alloc\n");
}

TEST_F(MpoolAlloc, AsksForNoLockOfAPoolThatCannotHaveChunks) {
  in_child([] {
    const Watchdog watchdog;
    const Pool pool = new_pool(16, 0);
    qal_thread_mutex_lock(&pool->lock);
    EXPECT_EQ(qal_mpool_alloc(pool.get()), nullptr);
    qal_thread_mutex_unlock(&pool->lock);
  });
}

TEST_F(MpoolAlloc, AnswersNoneWithoutAPool) { EXPECT_EQ(qal_mpool_alloc(nullptr), nullptr); }

TEST_F(MpoolFree, PutsTheElementInFrontOfTheSharedList) {
  const Pool pool = new_pool(16, 4);
  void *const a = qal_mpool_alloc(pool.get());
  void *const b = qal_mpool_alloc(pool.get());
  const std::vector<void *> own = chain_from(pool->thread_free[0]);
  EXPECT_EQ(qal_mpool_free(pool.get(), a), 0);
  EXPECT_EQ(qal_mpool_free(pool.get(), b), 0);
  EXPECT_THAT(chain_from(pool->shared_free), ElementsAre(b, a));
  EXPECT_EQ(pool->shared_count, 2);
  EXPECT_EQ(chain_from(pool->thread_free[0]), own);
  expect_counts(pool, 4, 4);
}

TEST_F(MpoolFree, WorksUnderAnyThreadIndex) {
  for (const intptr_t index : {2048, -1}) {
    const Pool pool = new_pool(16, 4);
    become_index(0);
    void *const element = qal_mpool_alloc(pool.get());
    const LogCapture log;
    become_index(index);
    EXPECT_EQ(qal_mpool_free(pool.get(), element), 0) << index;
    EXPECT_EQ(pool->shared_free, element);
    EXPECT_EQ(pool->shared_count, 1);
    EXPECT_THAT(log.lines(), IsEmpty());
  }
}

TEST_F(MpoolFree, TouchesOnlyTheFirstWord) {
  const Pool pool = new_pool(32, 1);
  void *const element = qal_mpool_alloc(pool.get());
  std::memset(element, 0x5A, 32);
  qal_mpool_free(pool.get(), element);
  EXPECT_EQ(qal_mpool_alloc(pool.get()), element);
  const std::vector<std::byte> rest(24, std::byte{0x5A});
  EXPECT_EQ(std::memcmp(bytes(element) + 8, rest.data(), rest.size()), 0);
}

TEST_F(MpoolFree, NeverGivesMemoryBackToTheSystem) {
  const Pool pool = new_pool(16, 2);
  std::vector<void *> used;
  for (int i = 0; i < 10; ++i) used.push_back(qal_mpool_alloc(pool.get()));
  const std::vector<void *> chunks = chain_from(pool->chunks);
  for (void *const element : used) qal_mpool_free(pool.get(), element);
  EXPECT_EQ(chain_from(pool->chunks), chunks);
  expect_counts(pool, 10, 10);
}

TEST_F(MpoolFree, RefusesNone) {
  const LogCapture log;
  const Pool pool = new_pool(16, 2);
  void *const element = qal_mpool_alloc(pool.get());
  EXPECT_EQ(qal_mpool_free(nullptr, element), -1);
  EXPECT_EQ(qal_mpool_free(pool.get(), nullptr), -1);
  EXPECT_EQ(pool->shared_count, 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MpoolVerifyPtr, KnowsEveryByteOfEveryChunkAndNoneBeside) {
  const Pool pool = new_pool(16, 4);
  for (int i = 0; i < 9; ++i) qal_mpool_alloc(pool.get());
  const std::vector<void *> chunks = chain_from(pool->chunks);
  ASSERT_EQ(chunks.size(), 3U);
  constexpr std::ptrdiff_t chunk_size = 8 + 4 * 16;
  const auto in_a_chunk = [&](const std::byte *address) {
    return std::any_of(chunks.begin(), chunks.end(), [&](void *chunk) {
      return address >= bytes(chunk) && address < bytes(chunk) + chunk_size;
    });
  };
  for (void *const chunk : chunks) {
    for (std::ptrdiff_t offset = -40; offset < chunk_size + 40; ++offset) {
      std::byte *const address = bytes(chunk) + offset;
      EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), address), in_a_chunk(address) ? 1 : 0) << offset;
    }
  }
}

TEST_F(MpoolVerifyPtr, KnowsFreeElementsToo) {
  const Pool pool = new_pool(16, 4);
  void *const element = qal_mpool_alloc(pool.get());
  qal_mpool_free(pool.get(), element);
  EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), element), 1);
  EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), pool->thread_free[0]), 1);
}

TEST_F(MpoolVerifyPtr, DeniesForeignAddresses) {
  const LogCapture log;
  const Pool pool = new_pool(16, 4);
  const Pool other = new_pool(16, 4);
  int local = 0;
  EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), &local), 0);
  qal_mpool_alloc(pool.get());
  EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), &local), 0);
  EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), qal_mpool_alloc(other.get())), 0);
  EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), pool.get()), 0);
  EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), nullptr), 0);
  EXPECT_EQ(qal_mpool_verify_ptr(nullptr, &local), 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MpoolVerifyPtr, TakesNoLock) {
  in_child([] {
    const Watchdog watchdog;
    const Pool pool = new_pool(16, 2);
    void *const element = qal_mpool_alloc(pool.get());
    qal_thread_mutex_lock(&pool->lock);
    EXPECT_EQ(qal_mpool_verify_ptr(pool.get(), element), 1);
    expect_counts(pool, 2, 1);
    qal_thread_mutex_unlock(&pool->lock);
  });
}

TEST_F(MpoolStatus, CountsTheListsOfAllThreads) {
  const Pool pool = new_pool(16, 5);
  expect_counts(pool, 0, 0);
  void *const element = qal_mpool_alloc(pool.get());
  become_index(2047);
  qal_mpool_alloc(pool.get());
  qal_mpool_free(pool.get(), element);
  expect_counts(pool, 10, 9);
}

TEST_F(MpoolStatus, TakesNullForWhatIsNotWanted) {
  const LogCapture log;
  const Pool pool = new_pool(16, 5);
  qal_mpool_alloc(pool.get());
  EXPECT_EQ(qal_mpool_status(pool.get(), nullptr, nullptr), 4U);
  uint32_t total = 99;
  uint32_t free = 99;
  EXPECT_EQ(qal_mpool_status(nullptr, &total, &free), 0U);
  EXPECT_EQ(total, 0U);
  EXPECT_EQ(free, 0U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MpoolDestroy, ClearsTheHandle) {
  QalMpool *pool = qal_mpool_create(16, 2);
  for (int i = 0; i < 5; ++i) qal_mpool_alloc(pool);
  qal_mpool_destroy(&pool);
  EXPECT_EQ(pool, nullptr);
  qal_mpool_destroy(&pool);
  EXPECT_EQ(pool, nullptr);
  qal_mpool_destroy(nullptr);
}

TEST_F(MpoolHooks, DoNothing) {
  const LogCapture log;
  const ChildResult result = run_in_child([] {
    qal_mpool_check_corruption();
    qal_mpool_debug();
  });
  EXPECT_TRUE(result.exited_with(0));
  EXPECT_EQ(result.out + result.err + log.text(), "");
}

void run_beside_model(uint32_t chunk_count, unsigned seed) {
  std::mt19937 random(seed);
  const Pool pool = new_pool(static_cast<uint32_t>(random() % 60), chunk_count);
  PoolModel model(*pool);
  std::vector<void *> used;
  constexpr std::array<int, 4> indices{0, 1, 5, 2047};
  for (int step = 0; step < 400 && !testing::Test::HasFailure(); ++step) {
    // Phases of growing and of shrinking, so that both refills happen often.
    if (random() % 10 < (step / 50 % 2 ? 3U : 7U)) {
      const int index = indices[random() % indices.size()];
      become_index(index);
      used.push_back(qal_mpool_alloc(pool.get()));
      EXPECT_EQ(used.back(), model.alloc(index, pool->chunks));
      std::memset(used.back(), 0xFF, pool->element_size);
    } else if (!used.empty()) {
      std::swap(used[random() % used.size()], used.back());
      model.free(used.back());
      EXPECT_EQ(qal_mpool_free(pool.get(), used.back()), 0);
      used.pop_back();
    }
    EXPECT_TRUE(model.holds());
    EXPECT_TRUE(model.is_counted());
  }
}

TEST_F(MpoolAlloc, BehavesAsDescribedOverRandomOperations) {
  for (uint32_t chunk_count = 1; chunk_count <= 8; ++chunk_count) {
    for (unsigned seed = 0; seed < 3; ++seed) run_beside_model(chunk_count, seed);
  }
}

TEST_F(MpoolThreads, ShareOnePoolWithoutSharingAnElement) {
  in_child([] {
    const Watchdog watchdog;
    const Pool pool = new_pool(16, 32);
    Exchange exchange;
    run_together(8, [&](int) { EXPECT_EQ(churn(pool.get(), exchange, repetitions(40000)), 0); });
    const Counts counts = counts_of(pool.get());
    EXPECT_EQ(counts.total - counts.free, exchange.rest().size());
    for (uint64_t *const element : exchange.rest()) qal_mpool_free(pool.get(), element);
    expect_counts(pool, counts.total, counts.total);
  });
}

TEST_F(MpoolThreads, ReuseWhatAnotherThreadFreed) {
  in_child([] {
    const Watchdog watchdog;
    const Pool pool = new_pool(16, 3);
    std::vector<void *> mine;
    for (int i = 0; i < 3; ++i) mine.push_back(qal_mpool_alloc(pool.get()));
    for (void *const element : mine) qal_mpool_free(pool.get(), element);
    std::vector<void *> taken;
    run_together(1, [&](int) {
      for (int i = 0; i < 3; ++i) taken.push_back(qal_mpool_alloc(pool.get()));
    });
    EXPECT_THAT(taken, ElementsAre(mine[2], mine[1], mine[0]));
    expect_counts(pool, 3, 0);
  });
}

}  // namespace

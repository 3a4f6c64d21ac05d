#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/list.h>
#include <qal/startup.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "support/list_cases.hpp"
#include "support/list_kinds.hpp"
#include "support/log_capture.hpp"
#include "support/pool_model.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::become_index;
using qal::test::elements_of;
using qal::test::in_use;
using qal::test::InlineLists;
using qal::test::LogCapture;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::unlinked;
using qal::test::Watchdog;
using testing::ElementsAre;
using testing::IsEmpty;

using Payloads = std::vector<void *>;

struct DestroyPool {
  void operator()(QalListPool *pool) const { qal_list_pool_destroy(&pool); }
};
using Pool = std::unique_ptr<QalListPool, DestroyPool>;

Pool new_pool(uint32_t element_size, uint32_t chunk_count = 16, int32_t use_header_pool = 1) {
  return Pool(qal_list_pool_create(element_size, chunk_count, use_header_pool));
}

class Lists : public testing::Test {
 protected:
  Lists() { qal_utils_init(); }
  ~Lists() override { qal_utils_done(); }

  QalList *list_of(std::size_t length) const {
    QalList *const list = qal_list_create(pool_.get());
    for (std::size_t i = 0; i < length; ++i) qal_list_append(list, qal_list_alloc(list));
    return list;
  }

  QalListPool *pool() const { return pool_.get(); }

 private:
  Pool pool_ = new_pool(12);
};
using ListPoolCreate = Lists;
using ListPoolDestroy = Lists;
using ListCreate = Lists;
using ListDestroy = Lists;
using ListAlloc = Lists;
using ListFree = Lists;
using ListNavigate = Lists;
using ListThreads = Lists;

TEST_F(ListPoolCreate, MakesBothPools) {
  const Pool pool = new_pool(40, 6, -3);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->element_size, 40U);
  EXPECT_EQ(pool->chunk_count, 6U);
  EXPECT_EQ(pool->use_header_pool, -3);
  ASSERT_NE(pool->element_pool, nullptr);
  EXPECT_EQ(pool->element_pool->element_size, 56U);
  EXPECT_EQ(pool->element_pool->chunk_count, 6U);
  ASSERT_NE(pool->header_pool, nullptr);
  EXPECT_EQ(pool->header_pool->element_size, 24U);
  EXPECT_EQ(pool->header_pool->chunk_count, 20U);
}

TEST_F(ListPoolCreate, MakesNoHeaderPoolUnlessAskedTo) {
  const Pool pool = new_pool(40, 6, 0);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->use_header_pool, 0);
  EXPECT_EQ(pool->header_pool, nullptr);
}

TEST_F(ListPoolCreate, KeepsTheSizeAskedForBesideTheRaisedOne) {
  const Pool pool = new_pool(5);
  EXPECT_EQ(pool->element_size, 5U);
  EXPECT_EQ(pool->element_pool->element_size, 24U);
}

TEST_F(ListPoolCreate, RefusesElementsThatLeave32Bits) {
  const LogCapture log;
  constexpr uint32_t largest = UINT32_MAX - 7 - InlineLists::links_size;
  const Pool pool = new_pool(largest, 1);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->element_pool->element_size, UINT32_MAX - 7);
  for (uint32_t size = largest + 1; size != 0; ++size) EXPECT_EQ(new_pool(size, 1), nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ListPoolCreate, GivesAPoolWithoutElementsForChunksOfNone) {
  const Pool pool = new_pool(8, 0);
  ASSERT_NE(pool, nullptr);
  QalList *const list = qal_list_create(pool.get());
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(qal_list_alloc(list), nullptr);
}

TEST_F(ListPoolDestroy, ClearsTheHandle) {
  for (const int32_t use_header_pool : {0, 1}) {
    QalListPool *pool = qal_list_pool_create(8, 4, use_header_pool);
    qal_list_alloc2(pool);
    qal_list_pool_destroy(&pool);
    EXPECT_EQ(pool, nullptr);
    qal_list_pool_destroy(&pool);
    EXPECT_EQ(pool, nullptr);
  }
  qal_list_pool_destroy(nullptr);
}

TEST_F(ListPoolDestroy, TakesListsWithPooledHeadersAlong) {
  Pool pool = new_pool(8);
  QalList *const list = qal_list_create(pool.get());
  qal_list_append(list, qal_list_alloc(list));
  pool.reset();  // the leak checker sees what stays
}

TEST_F(ListCreate, MakesAnEmptyListOfThePool) {
  for (const int32_t use_header_pool : {0, 1, -3}) {
    const Pool pool = new_pool(8, 4, use_header_pool);
    QalList *list = qal_list_create(pool.get());
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->pool, pool.get());
    EXPECT_EQ(list->first, nullptr);
    EXPECT_EQ(list->last, nullptr);
    if (use_header_pool) {
      EXPECT_EQ(qal_mpool_verify_ptr(pool->header_pool, list), 1);
    }
    qal_list_destroy(&list);
  }
}

TEST_F(ListCreate, EmptiesAHeaderThatWasUsedBefore) {
  const Pool pool = new_pool(8);
  Payloads used(pool->header_pool->chunk_count);
  for (void *&header : used) {
    header = qal_mpool_alloc(pool->header_pool);
    std::memset(header, 0xFF, sizeof(QalList));
  }
  for (void *const header : used) qal_mpool_free(pool->header_pool, header);
  const QalList *const list = qal_list_create(pool.get());
  EXPECT_EQ(list, used.back());
  EXPECT_EQ(list->pool, pool.get());
  EXPECT_EQ(list->first, nullptr);
  EXPECT_EQ(list->last, nullptr);
}

TEST_F(ListCreate, AnswersNoneWithoutAPool) { EXPECT_EQ(qal_list_create(nullptr), nullptr); }

TEST_F(ListDestroy, ClearsTheHandleOfAListWithItsOwnHeader) {
  const Pool pool = new_pool(8, 4, 0);
  QalList *list = qal_list_create(pool.get());
  for (int i = 0; i < 5; ++i) qal_list_append(list, qal_list_alloc(list));
  EXPECT_EQ(in_use(pool->element_pool), 5U);
  qal_list_destroy(&list);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(in_use(pool->element_pool), 0U);
  qal_list_destroy(&list);
  qal_list_destroy(nullptr);
}

// Deliberate: with pooled headers the caller's variable keeps the old address.
TEST_F(ListDestroy, KeepsTheHandleOfAListWithAPooledHeader) {
  for (const int32_t use_header_pool : {1, -3}) {
    const Pool pool = new_pool(8, 4, use_header_pool);
    QalList *list = qal_list_create(pool.get());
    QalList *const address = list;
    for (int i = 0; i < 5; ++i) qal_list_append(list, qal_list_alloc(list));
    EXPECT_EQ(in_use(pool->element_pool), 5U);
    EXPECT_EQ(in_use(pool->header_pool), 1U);
    qal_list_destroy(&list);
    EXPECT_EQ(list, address);
    EXPECT_EQ(in_use(pool->element_pool), 0U);
    EXPECT_EQ(in_use(pool->header_pool), 0U);
  }
}

TEST_F(ListDestroy, ClearsTheLinksOfItsElements) {
  QalList *list = list_of(3);
  const Payloads payloads = elements_of(list);
  qal_list_destroy(&list);
  for (const void *const payload : payloads) EXPECT_EQ(qal_list_next(payload), nullptr);
}

TEST_F(ListDestroy, GivesItsElementsBackFromTheHead) {
  for (const int32_t use_header_pool : {0, 1}) {
    const Pool pool = new_pool(8, 3, use_header_pool);
    QalList *list = qal_list_create(pool.get());
    for (int i = 0; i < 3; ++i) qal_list_append(list, qal_list_alloc(list));
    Payloads payloads = elements_of(list);
    qal_list_destroy(&list);
    std::reverse(payloads.begin(), payloads.end());
    for (const void *const payload : payloads) EXPECT_EQ(qal_list_alloc2(pool.get()), payload);
  }
}

TEST_F(ListAlloc, GivesUnlinkedElementsOnBoundariesOf8) {
  const Pool pool = new_pool(13, 3);
  QalList *const list = qal_list_create(pool.get());
  for (int i = 0; i < 10; ++i) {
    void *const payload = i % 2 ? qal_list_alloc(list) : qal_list_alloc2(pool.get());
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(payload) % 8, 0U);
    EXPECT_TRUE(unlinked(payload));
    EXPECT_EQ(qal_list_next(payload), nullptr);
    EXPECT_EQ(qal_list_prev(payload), nullptr);
    std::memset(payload, 0xFF, 13);
  }
  EXPECT_EQ(in_use(pool->element_pool), 10U);
}

TEST_F(ListAlloc, ClearsBothLinksOfAnElementThatWasUsedBefore) {
  const Pool pool = new_pool(8, 1);
  void *const used = qal_mpool_alloc(pool->element_pool);
  std::memset(used, 0xFF, 24);
  qal_mpool_free(pool->element_pool, used);
  void *const payload = qal_list_alloc2(pool.get());
  EXPECT_EQ(InlineLists::start_of(payload), used);
  EXPECT_TRUE(unlinked(payload));
}

TEST_F(ListAlloc, PutsThePayloadBehindTwoLinks) {
  void *const payload = qal_list_alloc2(pool());
  EXPECT_EQ(InlineLists::start_of(payload),
            static_cast<std::byte *>(pool()->element_pool->chunks) + 8);
}

TEST_F(ListAlloc, DoesNotClearThePayload) {
  const Pool pool = new_pool(12, 1);
  void *const payload = qal_list_alloc2(pool.get());
  std::memcpy(payload, "hello world", 12);
  qal_list_free2(pool.get(), payload);
  EXPECT_EQ(qal_list_alloc2(pool.get()), payload);
  EXPECT_STREQ(static_cast<const char *>(payload), "hello world");
}

TEST_F(ListAlloc, GivesDistinctElementsOfNoPayload) {
  const Pool pool = new_pool(0, 4);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->element_pool->element_size, 16U);
  QalList *const list = qal_list_create(pool.get());
  for (int i = 0; i < 9; ++i) qal_list_append(list, qal_list_alloc(list));
  Payloads payloads = elements_of(list);
  EXPECT_EQ(payloads.size(), 9U);
  std::sort(payloads.begin(), payloads.end());
  EXPECT_EQ(std::unique(payloads.begin(), payloads.end()), payloads.end());
}

TEST_F(ListAlloc, AnswersNoneOfNone) {
  const LogCapture log;
  EXPECT_EQ(qal_list_alloc(nullptr), nullptr);
  EXPECT_EQ(qal_list_alloc2(nullptr), nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ListFree, GivesTheElementBack) {
  QalList *const list = list_of(0);
  void *const a = qal_list_alloc(list);
  void *const b = qal_list_alloc(list);
  InlineLists::set_links(a, a, b);
  InlineLists::set_links(b, a, b);
  qal_list_free(list, a);
  EXPECT_EQ(in_use(pool()->element_pool), 1U);
  qal_list_free2(pool(), b);
  EXPECT_EQ(in_use(pool()->element_pool), 0U);
  EXPECT_EQ(qal_list_next(a), nullptr);
  EXPECT_EQ(qal_list_next(b), nullptr);
}

void free_into_pool(QalList *list, void *payload) { qal_list_free2(list->pool, payload); }

TEST_F(ListFree, DoesNotUnlink) {
  for (const auto free_one : {&qal_list_free, &free_into_pool}) {
    QalList *const three = list_of(3);
    const Payloads payloads = elements_of(three);
    free_one(three, payloads[1]);
    EXPECT_EQ(three->first, payloads[0]);
    EXPECT_EQ(three->last, payloads[2]);
    EXPECT_EQ(qal_list_next(payloads[0]), payloads[1]);
    EXPECT_EQ(qal_list_prev(payloads[2]), payloads[1]);

    QalList *const one = list_of(1);
    void *const only = one->first;
    free_one(one, only);
    EXPECT_EQ(one->first, only);
    EXPECT_EQ(one->last, only);
  }
}

TEST_F(ListFree, WorksUnderAnyThreadIndex) {
  QalList *const list = list_of(1);
  const LogCapture log;
  become_index(2048);
  qal_list_free2(pool(), list->first);
  become_index(0);
  EXPECT_EQ(in_use(pool()->element_pool), 0U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ListFree, IgnoresNone) {
  const LogCapture log;
  QalList *const list = list_of(1);
  qal_list_free(list, nullptr);
  qal_list_free2(pool(), nullptr);
  qal_list_free(nullptr, list->first);
  qal_list_free2(nullptr, list->first);
  EXPECT_EQ(in_use(pool()->element_pool), 1U);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(ListNavigate, LinksTheStartsOfElements) {
  const Payloads payloads = elements_of(list_of(3));
  void *starts[3];
  std::transform(payloads.begin(), payloads.end(), starts, &InlineLists::start_of);
  void *links[2];
  std::memcpy(links, starts[0], sizeof links);
  EXPECT_EQ(links[1], starts[1]);
  std::memcpy(links, starts[1], sizeof links);
  EXPECT_THAT(links, ElementsAre(starts[0], starts[2]));
  std::memcpy(links, starts[2], sizeof links);
  EXPECT_EQ(links[0], starts[1]);
}

TEST_F(ListThreads, UseListsOfTheirOwnFromOnePool) {
  const Watchdog watchdog;
  run_together(4, [this](int thread) {
    for (int round = 0; round < repetitions(2000); ++round) {
      QalList *list = qal_list_create(pool());
      for (int i = 0; i < 10; ++i) {
        void *const payload = qal_list_alloc(list);
        std::memcpy(payload, &thread, sizeof thread);
        qal_list_append(list, payload);
      }
      for (const void *const payload : elements_of(list)) {
        EXPECT_EQ(std::memcmp(payload, &thread, sizeof thread), 0);
      }
      qal_list_destroy(&list);
    }
  });
  EXPECT_EQ(in_use(pool()->element_pool), 0U);
  EXPECT_EQ(in_use(pool()->header_pool), 0U);
}

}  // namespace

namespace qal::test {

INSTANTIATE_TYPED_TEST_SUITE_P(List, Links, InlineLists);
INSTANTIATE_TYPED_TEST_SUITE_P(List, LinkSequences, InlineLists);
INSTANTIATE_TYPED_TEST_SUITE_P(List, Sort, Sorted<InlineLists>);

}  // namespace qal::test

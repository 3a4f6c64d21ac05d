#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/list.h>
#include <qal/startup.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <list>
#include <memory>
#include <random>
#include <vector>

#include "support/log_capture.hpp"
#include "support/sort_cases.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::compare_items;
using qal::test::compare_keys;
using qal::test::Item;
using qal::test::item_at;
using qal::test::item_order;
using qal::test::Items;
using qal::test::items_of;
using qal::test::LogCapture;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::Watchdog;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

using Payloads = std::vector<void *>;

constexpr std::size_t links_size = 16;

struct DestroyPool {
  void operator()(QalListPool *pool) const { qal_list_pool_destroy(&pool); }
};
using Pool = std::unique_ptr<QalListPool, DestroyPool>;

Pool new_pool(uint32_t element_size, uint32_t chunk_count = 16, int32_t use_header_pool = 1) {
  return Pool(qal_list_pool_create(element_size, chunk_count, use_header_pool));
}

struct Links {
  void *prev;
  void *next;
};

// What stands in front of a payload.
Links links_of(const void *payload) {
  Links links{};
  std::memcpy(&links, static_cast<const std::byte *>(payload) - links_size, sizeof links);
  return links;
}

void set_links(void *payload, const Links &links) {
  std::memcpy(static_cast<std::byte *>(payload) - links_size, &links, sizeof links);
}

bool unlinked(const void *payload) {
  const Links links = links_of(payload);
  return !links.prev && !links.next;
}

// The start of the element that a payload belongs to.
void *start_of(void *payload) { return static_cast<std::byte *>(payload) - links_size; }

// A list from its first to its last payload, checked from both sides.
Payloads payloads_of(const QalList *list) {
  Payloads forward;
  for (void *at = qal_list_first(list); at; at = qal_list_next(at)) forward.push_back(at);
  Payloads backward;
  for (void *at = qal_list_last(list); at; at = qal_list_prev(at)) backward.push_back(at);
  std::reverse(backward.begin(), backward.end());
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(qal_list_length(list), forward.size());
  return forward;
}

uint32_t in_use(QalMpool *pool) {
  uint32_t total = 0;
  uint32_t free = 0;
  qal_mpool_status(pool, &total, &free);
  return total - free;
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
using ListPrepend = Lists;
using ListAppend = Lists;
using ListInsert = Lists;
using ListRemove = Lists;
using ListPop = Lists;
using ListConcat = Lists;
using ListLength = Lists;
using ListSort = Lists;
using ListOperations = Lists;
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
  constexpr uint32_t largest = UINT32_MAX - 7 - links_size;
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
  for (const int32_t use_header_pool : {0, 1}) {
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
  QalList *list = list_of(5);
  QalList *const address = list;
  EXPECT_EQ(in_use(pool()->element_pool), 5U);
  EXPECT_EQ(in_use(pool()->header_pool), 1U);
  qal_list_destroy(&list);
  EXPECT_EQ(list, address);
  EXPECT_EQ(in_use(pool()->element_pool), 0U);
  EXPECT_EQ(in_use(pool()->header_pool), 0U);
}

TEST_F(ListDestroy, ClearsTheLinksOfItsElements) {
  QalList *list = list_of(3);
  const Payloads payloads = payloads_of(list);
  qal_list_destroy(&list);
  for (const void *const payload : payloads) EXPECT_EQ(links_of(payload).next, nullptr);
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

TEST_F(ListAlloc, PutsThePayloadBehindTwoLinks) {
  void *const payload = qal_list_alloc2(pool());
  EXPECT_EQ(start_of(payload), static_cast<std::byte *>(pool()->element_pool->chunks) + 8);
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
  Payloads payloads = payloads_of(list);
  EXPECT_EQ(payloads.size(), 9U);
  std::sort(payloads.begin(), payloads.end());
  EXPECT_EQ(std::unique(payloads.begin(), payloads.end()), payloads.end());
}

TEST_F(ListAlloc, AnswersNoneOfNone) {
  EXPECT_EQ(qal_list_alloc(nullptr), nullptr);
  EXPECT_EQ(qal_list_alloc2(nullptr), nullptr);
}

TEST_F(ListFree, GivesTheElementBack) {
  QalList *const list = list_of(0);
  void *const a = qal_list_alloc(list);
  void *const b = qal_list_alloc(list);
  set_links(a, {a, b});
  set_links(b, {a, b});
  qal_list_free(list, a);
  EXPECT_EQ(in_use(pool()->element_pool), 1U);
  qal_list_free2(pool(), b);
  EXPECT_EQ(in_use(pool()->element_pool), 0U);
  EXPECT_EQ(links_of(a).next, nullptr);
  EXPECT_EQ(links_of(b).next, nullptr);
}

TEST_F(ListFree, IgnoresNone) {
  QalList *const list = list_of(1);
  qal_list_free(list, nullptr);
  qal_list_free2(pool(), nullptr);
  qal_list_free(nullptr, list->first);
  qal_list_free2(nullptr, list->first);
  EXPECT_EQ(in_use(pool()->element_pool), 1U);
}

TEST_F(ListNavigate, WalksBothWaysByPayloads) {
  QalList *const list = list_of(3);
  const Payloads payloads = payloads_of(list);
  EXPECT_EQ(qal_list_first(list), payloads[0]);
  EXPECT_EQ(qal_list_last(list), payloads[2]);
  EXPECT_EQ(list->first, payloads[0]);
  EXPECT_EQ(list->last, payloads[2]);
  EXPECT_EQ(qal_list_next(payloads[0]), payloads[1]);
  EXPECT_EQ(qal_list_prev(payloads[2]), payloads[1]);
  EXPECT_EQ(qal_list_next(payloads[2]), nullptr);
  EXPECT_EQ(qal_list_prev(payloads[0]), nullptr);
}

TEST_F(ListNavigate, LinksTheStartsOfElements) {
  const Payloads payloads = payloads_of(list_of(3));
  EXPECT_EQ(links_of(payloads[0]).next, start_of(payloads[1]));
  EXPECT_EQ(links_of(payloads[2]).prev, start_of(payloads[1]));
  EXPECT_EQ(links_of(payloads[1]).prev, start_of(payloads[0]));
  EXPECT_EQ(links_of(payloads[1]).next, start_of(payloads[2]));
}

TEST_F(ListNavigate, AnswersNoneOfNone) {
  EXPECT_EQ(qal_list_first(nullptr), nullptr);
  EXPECT_EQ(qal_list_last(nullptr), nullptr);
  EXPECT_EQ(qal_list_next(nullptr), nullptr);
  EXPECT_EQ(qal_list_prev(nullptr), nullptr);
  EXPECT_EQ(qal_list_pop(nullptr), nullptr);
  EXPECT_EQ(qal_list_length(nullptr), 0U);
}

TEST_F(ListPrepend, PutsAnElementBeforeAllOthers) {
  QalList *const list = list_of(0);
  void *const a = qal_list_alloc(list);
  void *const b = qal_list_alloc(list);
  qal_list_prepend(list, a);
  EXPECT_THAT(payloads_of(list), ElementsAre(a));
  qal_list_prepend(list, b);
  EXPECT_THAT(payloads_of(list), ElementsAre(b, a));
}

// Deliberate: the link that looks outward is the caller's.
TEST_F(ListPrepend, LeavesTheOutwardLinkOfTheElement) {
  QalList *const list = list_of(1);
  void *const stale = qal_list_alloc(list);
  void *const payload = qal_list_alloc(list);
  set_links(payload, {start_of(stale), nullptr});
  qal_list_prepend(list, payload);
  EXPECT_EQ(qal_list_prev(payload), stale);
  EXPECT_EQ(qal_list_pop(list), payload);
  EXPECT_TRUE(unlinked(payload));
  EXPECT_TRUE(unlinked(stale));
  EXPECT_EQ(payloads_of(list).size(), 1U);
}

TEST_F(ListAppend, PutsAnElementBehindAllOthers) {
  QalList *const list = list_of(0);
  void *const a = qal_list_alloc(list);
  void *const b = qal_list_alloc(list);
  qal_list_append(list, a);
  EXPECT_THAT(payloads_of(list), ElementsAre(a));
  qal_list_append(list, b);
  EXPECT_THAT(payloads_of(list), ElementsAre(a, b));
}

// Deliberate: the link that looks outward is the caller's.
TEST_F(ListAppend, LeavesTheOutwardLinkOfTheElement) {
  QalList *const list = list_of(1);
  void *const stale = qal_list_alloc(list);
  void *const payload = qal_list_alloc(list);
  set_links(payload, {nullptr, start_of(stale)});
  qal_list_append(list, payload);
  EXPECT_EQ(qal_list_next(payload), stale);
  EXPECT_EQ(qal_list_last(list), payload);
}

TEST_F(ListInsert, GoesBehindAnElementAndMovesTheEnd) {
  QalList *const list = list_of(2);
  const Payloads payloads = payloads_of(list);
  void *const middle = qal_list_alloc(list);
  void *const end = qal_list_alloc(list);
  qal_list_insert_after(list, payloads[0], middle);
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[0], middle, payloads[1]));
  qal_list_insert_after(list, payloads[1], end);
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[0], middle, payloads[1], end));
}

TEST_F(ListInsert, GoesBeforeAnElementAndMovesTheStart) {
  QalList *const list = list_of(2);
  const Payloads payloads = payloads_of(list);
  void *const middle = qal_list_alloc(list);
  void *const start = qal_list_alloc(list);
  qal_list_insert_before(list, payloads[1], middle);
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[0], middle, payloads[1]));
  qal_list_insert_before(list, payloads[0], start);
  EXPECT_THAT(payloads_of(list), ElementsAre(start, payloads[0], middle, payloads[1]));
}

TEST_F(ListRemove, MovesTheEndsAndClearsTheLinks) {
  QalList *const list = list_of(4);
  const Payloads payloads = payloads_of(list);
  qal_list_remove(list, payloads[3]);
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[0], payloads[1], payloads[2]));
  qal_list_remove(list, payloads[1]);
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[0], payloads[2]));
  qal_list_remove(list, payloads[0]);
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[2]));
  qal_list_remove(list, payloads[2]);
  EXPECT_THAT(payloads_of(list), IsEmpty());
  EXPECT_THAT(payloads, Each(testing::Truly(&unlinked)));
}

TEST_F(ListRemove, KeepsTheElementTheCallers) {
  QalList *const list = list_of(2);
  qal_list_remove(list, list->first);
  EXPECT_EQ(in_use(pool()->element_pool), 2U);
}

TEST_F(ListPop, HandsTheFirstElementOver) {
  QalList *const list = list_of(2);
  const Payloads payloads = payloads_of(list);
  EXPECT_EQ(qal_list_pop(list), payloads[0]);
  EXPECT_TRUE(unlinked(payloads[0]));
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[1]));
  EXPECT_EQ(qal_list_pop(list), payloads[1]);
  EXPECT_EQ(list->first, nullptr);
  EXPECT_EQ(list->last, nullptr);
  EXPECT_EQ(qal_list_pop(list), nullptr);
  EXPECT_EQ(in_use(pool()->element_pool), 2U);
}

TEST_F(ListConcat, JoinsTwoLists) {
  QalList *const dst = list_of(2);
  QalList *const src = list_of(2);
  Payloads all = payloads_of(dst);
  const Payloads more = payloads_of(src);
  all.insert(all.end(), more.begin(), more.end());
  qal_list_concat(dst, src);
  EXPECT_EQ(payloads_of(dst), all);
  EXPECT_THAT(payloads_of(src), IsEmpty());
}

TEST_F(ListConcat, MovesBothEndsIntoAnEmptyList) {
  QalList *const dst = list_of(0);
  QalList *const src = list_of(3);
  const Payloads payloads = payloads_of(src);
  qal_list_concat(dst, src);
  EXPECT_EQ(payloads_of(dst), payloads);
  EXPECT_EQ(src->first, nullptr);
  EXPECT_EQ(src->last, nullptr);
}

TEST_F(ListConcat, ChangesNothingForAnEmptySourceOrItself) {
  QalList *const list = list_of(3);
  const Payloads payloads = payloads_of(list);
  qal_list_concat(list, list_of(0));
  EXPECT_EQ(payloads_of(list), payloads);
  qal_list_concat(list, list);
  EXPECT_EQ(payloads_of(list), payloads);
}

TEST_F(ListLength, CountsElements) {
  QalList *const list = list_of(3);
  EXPECT_EQ(qal_list_length(list), 3U);
  qal_list_remove(list, qal_list_next(list->first));
  EXPECT_EQ(qal_list_length(list), 2U);
  EXPECT_EQ(qal_list_length(list_of(0)), 0U);
}

TEST_F(ListOperations, DoNothingWithNone) {
  QalList *const list = list_of(2);
  const Payloads payloads = payloads_of(list);
  void *const loose = qal_list_alloc(list);
  qal_list_prepend(list, nullptr);
  qal_list_prepend(nullptr, loose);
  qal_list_append(list, nullptr);
  qal_list_append(nullptr, loose);
  for (const auto insert : {&qal_list_insert_after, &qal_list_insert_before}) {
    insert(nullptr, payloads[0], loose);
    insert(list, nullptr, loose);
    insert(list, payloads[0], nullptr);
  }
  qal_list_remove(list, nullptr);
  qal_list_remove(nullptr, payloads[0]);
  qal_list_concat(list, nullptr);
  qal_list_concat(nullptr, list);
  qal_list_sort(list, nullptr);
  qal_list_sort(nullptr, [](const void *, const void *) { return 0; });
  EXPECT_EQ(payloads_of(list), payloads);
  EXPECT_TRUE(unlinked(loose));
}

// Three lists of one pool and some loose elements, all beside lists of the standard library.
class ListModel {
 public:
  explicit ListModel(unsigned seed)
      : random_(seed), pool_(new_pool(sizeof(unsigned), seed % 7 + 1, seed % 2)) {
    for (QalList *&list : lists_) list = qal_list_create(pool_.get());
  }
  ~ListModel() {
    for (QalList *&list : lists_) qal_list_destroy(&list);
  }
  ListModel(const ListModel &) = delete;
  ListModel &operator=(const ListModel &) = delete;

  void step() {
    const std::size_t at = random_() % lists_.size();
    const std::size_t other = random_() % lists_.size();
    switch (random_() % 10) {
      case 0:
        return add(at, &qal_list_prepend, model_[at].begin());
      case 1:
        return add(at, &qal_list_append, model_[at].end());
      case 2:
        return insert(at, &qal_list_insert_after, 1);
      case 3:
        return insert(at, &qal_list_insert_before, 0);
      case 4:
        return remove(at);
      case 5:
        return pop(at);
      case 6:
        return free_one(at);
      case 7:
        return concat(at, other);
      case 8:
        return random_() % 8 == 0 ? renew(at) : sort(at);
      default:
        return alloc(at);
    }
  }

  void expect_equal() const {
    std::size_t elements = loose_.size();
    for (std::size_t i = 0; i < lists_.size(); ++i) {
      Payloads expected;
      for (const Entry &entry : model_[i]) {
        expected.push_back(entry.payload);
        EXPECT_EQ(value_of(entry.payload), entry.value);
      }
      EXPECT_EQ(payloads_of(lists_[i]), expected);
      elements += expected.size();
    }
    for (const Entry &entry : loose_) {
      EXPECT_TRUE(unlinked(entry.payload));
      EXPECT_EQ(value_of(entry.payload), entry.value);
    }
    EXPECT_EQ(in_use(pool_->element_pool), elements);
    if (pool_->use_header_pool) {
      EXPECT_EQ(in_use(pool_->header_pool), lists_.size());
    }
  }

 private:
  struct Entry {
    void *payload;
    unsigned value;
  };

  static unsigned value_of(const void *payload) {
    unsigned value = 0;
    std::memcpy(&value, payload, sizeof value);
    return value;
  }

  static int compare_values(const void *a, const void *b) {
    return (value_of(a) > value_of(b)) - (value_of(a) < value_of(b));
  }

  std::list<Entry>::iterator any(std::size_t at) {
    return std::next(model_[at].begin(),
                     static_cast<std::ptrdiff_t>(random_() % model_[at].size()));
  }

  void alloc(std::size_t at) {
    const unsigned value = static_cast<unsigned>(random_() % 20);
    void *const payload = random_() % 2 ? qal_list_alloc(lists_[at]) : qal_list_alloc2(pool_.get());
    std::memcpy(payload, &value, sizeof value);
    loose_.push_back({payload, value});
  }

  Entry take_loose(std::size_t at) {
    if (loose_.empty()) alloc(at);
    const Entry entry = loose_.back();
    loose_.pop_back();
    return entry;
  }

  void free_one(std::size_t at) {
    if (loose_.empty()) return;
    const Entry entry = take_loose(at);
    if (random_() % 2) {
      qal_list_free(lists_[at], entry.payload);
    } else {
      qal_list_free2(pool_.get(), entry.payload);
    }
  }

  template <typename Operation, typename Place>
  void add(std::size_t at, Operation operation, Place place) {
    const Entry entry = take_loose(at);
    operation(lists_[at], entry.payload);
    model_[at].insert(place, entry);
  }

  template <typename Operation>
  void insert(std::size_t at, Operation operation, int behind) {
    if (model_[at].empty()) return;
    const auto place = any(at);
    const Entry entry = take_loose(at);
    operation(lists_[at], place->payload, entry.payload);
    model_[at].insert(std::next(place, behind), entry);
  }

  void remove(std::size_t at) {
    if (model_[at].empty()) return;
    const auto place = any(at);
    qal_list_remove(lists_[at], place->payload);
    loose_.push_back(*place);
    model_[at].erase(place);
  }

  void pop(std::size_t at) {
    void *const payload = qal_list_pop(lists_[at]);
    EXPECT_EQ(payload, model_[at].empty() ? nullptr : model_[at].front().payload);
    if (!payload) return;
    loose_.push_back(model_[at].front());
    model_[at].pop_front();
  }

  void concat(std::size_t at, std::size_t other) {
    qal_list_concat(lists_[at], lists_[other]);
    if (at != other) model_[at].splice(model_[at].end(), model_[other]);
  }

  void sort(std::size_t at) {
    qal_list_sort(lists_[at], &compare_values);
    model_[at].sort([](const Entry &a, const Entry &b) { return a.value < b.value; });
  }

  void renew(std::size_t at) {
    qal_list_destroy(&lists_[at]);
    lists_[at] = qal_list_create(pool_.get());
    model_[at].clear();
  }

  std::mt19937 random_;
  Pool pool_;
  std::array<QalList *, 3> lists_{};
  std::array<std::list<Entry>, 3> model_;
  std::vector<Entry> loose_;
};

TEST_F(ListOperations, BehaveAsAListOverRandomSequences) {
  for (unsigned seed = 0; seed < 14; ++seed) {
    ListModel model(seed);
    for (int step = 0; step < 800 && !HasFailure(); ++step) {
      model.step();
      model.expect_equal();
    }
  }
}

// Lists with the items in their payloads.
struct InlineLists {
  Items sorted(const Items &items) const {
    QalList *list = qal_list_create(pool.get());
    for (const Item &item : items) {
      void *const payload = qal_list_alloc(list);
      std::memcpy(payload, &item, sizeof item);
      qal_list_append(list, payload);
    }
    qal_list_sort(list, &compare_items);
    Items result;
    for (const void *const payload : payloads_of(list)) result.push_back(item_at(payload));
    qal_list_destroy(&list);
    return result;
  }

  Pool pool = new_pool(sizeof(Item));
};
TEST_F(ListSort, ComparesNothingInAListOfOneElementOrNone) {
  const auto never = [](const void *, const void *) {
    ADD_FAILURE();
    return 1;
  };
  QalList *const empty = list_of(0);
  qal_list_sort(empty, never);
  EXPECT_THAT(payloads_of(empty), IsEmpty());
  QalList *const one = list_of(1);
  qal_list_sort(one, never);
  EXPECT_EQ(payloads_of(one).size(), 1U);
}

TEST_F(ListSort, RelinksTheElementsThemselves) {
  QalList *const list = list_of(3);
  const Payloads payloads = payloads_of(list);
  for (const Item &item : items_of({3, 1, 2})) {
    std::memcpy(payloads[static_cast<std::size_t>(item.identity)], &item, sizeof item);
  }
  item_order = compare_keys;
  qal_list_sort(list, &compare_items);
  EXPECT_THAT(payloads_of(list), ElementsAre(payloads[1], payloads[2], payloads[0]));
}

TEST_F(ListSort, LeavesEndsThatLeadNowhereAndAStartThatCanBeChanged) {
  item_order = compare_keys;
  for (const int length : {1, 2, 3, 5, 9, 17, 33, 65}) {
    QalList *const list = list_of(static_cast<std::size_t>(length));
    Item item{length, 0};
    for (void *const payload : payloads_of(list)) {
      std::memcpy(payload, &item, sizeof item);
      --item.key;
    }
    qal_list_sort(list, &compare_items);
    ASSERT_EQ(links_of(list->first).prev, nullptr) << length;
    ASSERT_EQ(links_of(list->last).next, nullptr) << length;
    Payloads expected = payloads_of(list);
    void *const start = qal_list_alloc(list);
    qal_list_insert_before(list, list->first, start);
    expected.insert(expected.begin(), start);
    EXPECT_EQ(payloads_of(list), expected);
    EXPECT_EQ(qal_list_pop(list), start);
    qal_list_remove(list, expected[1]);
    expected.erase(expected.begin(), expected.begin() + 2);
    EXPECT_EQ(payloads_of(list), expected);
  }
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
      for (const void *const payload : payloads_of(list)) {
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

INSTANTIATE_TYPED_TEST_SUITE_P(List, Sort, InlineLists);

}  // namespace qal::test

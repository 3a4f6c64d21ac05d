#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/plist.h>
#include <qal/startup.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <list>
#include <random>
#include <vector>

#include "support/child.hpp"
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
using qal::test::run_in_child;
using qal::test::run_together;
using qal::test::Watchdog;
using testing::ElementsAre;
using testing::IsEmpty;

using Nodes = std::vector<QalPlistNode *>;

// A list from its first to its last node, checked from both sides.
Nodes nodes_of(const QalPlist *list) {
  Nodes forward;
  for (auto *node = qal_plist_first(list); node; node = qal_plist_next(node)) {
    forward.push_back(node);
  }
  Nodes backward;
  for (auto *node = qal_plist_last(list); node; node = qal_plist_prev(node)) {
    backward.insert(backward.begin(), node);
  }
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(qal_plist_length(list), forward.size());
  return forward;
}

bool unlinked(const QalPlistNode *node) { return !node->prev && !node->next; }

class Plist : public testing::Test {
 protected:
  Plist() { qal_plist_pool_create(32, 256); }
  ~Plist() override { qal_plist_pool_destroy(); }

  // A list of that many fresh nodes.
  static QalPlist *list_of(std::size_t length) {
    QalPlist *const list = qal_plist_create();
    for (std::size_t i = 0; i < length; ++i) qal_plist_append(list, qal_plist_alloc());
    return list;
  }
};
using PlistCreate = Plist;
using PlistDestroy = Plist;
using PlistAlloc = Plist;
using PlistFree = Plist;
using PlistNavigate = Plist;
using PlistPrepend = Plist;
using PlistAppend = Plist;
using PlistInsert = Plist;
using PlistRemove = Plist;
using PlistPop = Plist;
using PlistConcat = Plist;
using PlistLength = Plist;
using PlistSort = Plist;
using PlistOperations = Plist;

TEST_F(PlistCreate, MakesAnEmptyList) {
  QalPlist *const list = qal_plist_create();
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->first, nullptr);
  EXPECT_EQ(list->last, nullptr);
}

TEST_F(PlistCreate, EmptiesAReusedHeader) {
  for (int i = 0; i < 100; ++i) {
    QalPlist *list = list_of(2);
    EXPECT_EQ(nodes_of(list).size(), 2U);
    qal_plist_destroy(&list);
  }
}

TEST_F(PlistAlloc, GivesANodeOfNothing) {
  for (int i = 0; i < 600; ++i) {
    QalPlistNode *node = qal_plist_alloc();
    ASSERT_NE(node, nullptr);
    EXPECT_TRUE(unlinked(node));
    EXPECT_EQ(node->data, nullptr);
    node->prev = node->next = node;
    node->data = &i;
    qal_plist_free(&node);
  }
}

TEST_F(PlistFree, ClearsTheNodeAndTheHandle) {
  int value = 0;
  QalPlistNode *node = qal_plist_alloc();
  QalPlistNode *const freed = node;
  node->next = node;
  node->data = &value;
  qal_plist_free(&node);
  EXPECT_EQ(node, nullptr);
  EXPECT_EQ(freed->next, nullptr);
  EXPECT_EQ(freed->data, nullptr);
  qal_plist_free(&node);
  EXPECT_EQ(node, nullptr);
  qal_plist_free(nullptr);
}

TEST_F(PlistDestroy, GivesTheNodesBackAndClearsTheHandle) {
  int value = 42;
  QalPlist *list = list_of(3);
  const Nodes nodes = nodes_of(list);
  for (QalPlistNode *const node : nodes) node->data = &value;
  qal_plist_destroy(&list);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(value, 42);
  for (const QalPlistNode *const node : nodes) EXPECT_EQ(node->next, nullptr);
  qal_plist_destroy(&list);
  EXPECT_EQ(list, nullptr);
  qal_plist_destroy(nullptr);
}

TEST_F(PlistDestroy, LetsNodesAndHeadersBeUsedAgain) {
  // As many as one chunk has, so that the next ones can only be these.
  QalPlist *list = list_of(256);
  Nodes old_nodes = nodes_of(list);
  std::vector<QalPlist *> headers{list};
  for (int i = 1; i < 32; ++i) headers.push_back(qal_plist_create());
  std::vector<QalPlist *> old_headers = headers;
  for (QalPlist *&header : headers) qal_plist_destroy(&header);
  Nodes nodes;
  for (int i = 0; i < 256; ++i) nodes.push_back(qal_plist_alloc());
  for (QalPlist *&header : headers) header = qal_plist_create();
  std::sort(nodes.begin(), nodes.end());
  std::sort(old_nodes.begin(), old_nodes.end());
  EXPECT_EQ(nodes, old_nodes);
  std::sort(headers.begin(), headers.end());
  std::sort(old_headers.begin(), old_headers.end());
  EXPECT_EQ(headers, old_headers);
}

TEST_F(PlistNavigate, WalksBothWays) {
  QalPlist *const list = list_of(3);
  const Nodes nodes = nodes_of(list);
  EXPECT_EQ(qal_plist_first(list), nodes[0]);
  EXPECT_EQ(qal_plist_last(list), nodes[2]);
  EXPECT_EQ(qal_plist_next(nodes[0]), nodes[1]);
  EXPECT_EQ(qal_plist_prev(nodes[2]), nodes[1]);
  EXPECT_EQ(qal_plist_next(nodes[2]), nullptr);
  EXPECT_EQ(qal_plist_prev(nodes[0]), nullptr);
}

TEST_F(PlistNavigate, AnswersNoneOfNone) {
  EXPECT_EQ(qal_plist_first(nullptr), nullptr);
  EXPECT_EQ(qal_plist_last(nullptr), nullptr);
  EXPECT_EQ(qal_plist_next(nullptr), nullptr);
  EXPECT_EQ(qal_plist_prev(nullptr), nullptr);
  EXPECT_EQ(qal_plist_pop(nullptr), nullptr);
  EXPECT_EQ(qal_plist_length(nullptr), 0U);
}

TEST_F(PlistPrepend, PutsANodeBeforeAllOthers) {
  QalPlist *const list = qal_plist_create();
  QalPlistNode *const a = qal_plist_alloc();
  QalPlistNode *const b = qal_plist_alloc();
  QalPlistNode *const c = qal_plist_alloc();
  qal_plist_prepend(list, a);
  EXPECT_THAT(nodes_of(list), ElementsAre(a));
  qal_plist_prepend(list, b);
  qal_plist_prepend(list, c);
  EXPECT_THAT(nodes_of(list), ElementsAre(c, b, a));
}

// Deliberate: the link that looks outward is the caller's.
TEST_F(PlistPrepend, LeavesTheOutwardLinkOfTheNode) {
  QalPlist *const list = list_of(1);
  QalPlistNode *const node = qal_plist_alloc();
  QalPlistNode stale{};
  node->prev = &stale;
  qal_plist_prepend(list, node);
  EXPECT_EQ(node->prev, &stale);
  EXPECT_EQ(qal_plist_first(list), node);
  EXPECT_EQ(qal_plist_pop(list), node);
  EXPECT_TRUE(unlinked(node));
  EXPECT_TRUE(unlinked(&stale));
  EXPECT_EQ(nodes_of(list).size(), 1U);
}

TEST_F(PlistPrepend, LeavesBothLinksOfTheOnlyNode) {
  QalPlist *const list = qal_plist_create();
  QalPlistNode *const node = qal_plist_alloc();
  QalPlistNode before{};
  QalPlistNode behind{};
  node->prev = &before;
  node->next = &behind;
  qal_plist_prepend(list, node);
  EXPECT_EQ(list->first, node);
  EXPECT_EQ(list->last, node);
  EXPECT_EQ(node->prev, &before);
  EXPECT_EQ(node->next, &behind);
}

TEST_F(PlistAppend, PutsANodeBehindAllOthers) {
  QalPlist *const list = qal_plist_create();
  QalPlistNode *const a = qal_plist_alloc();
  QalPlistNode *const b = qal_plist_alloc();
  qal_plist_append(list, a);
  EXPECT_THAT(nodes_of(list), ElementsAre(a));
  qal_plist_append(list, b);
  EXPECT_THAT(nodes_of(list), ElementsAre(a, b));
}

// Deliberate: the link that looks outward is the caller's.
TEST_F(PlistAppend, LeavesTheOutwardLinkOfTheNode) {
  QalPlist *const list = list_of(1);
  QalPlistNode *const first = list->first;
  QalPlistNode *const node = qal_plist_alloc();
  QalPlistNode stale{};
  node->next = &stale;
  qal_plist_append(list, node);
  EXPECT_EQ(list->first, first);
  EXPECT_EQ(list->last, node);
  EXPECT_EQ(node->prev, first);
  EXPECT_EQ(node->next, &stale);
}

TEST_F(PlistAppend, LeavesBothLinksOfTheOnlyNode) {
  QalPlist *const list = qal_plist_create();
  QalPlistNode *const node = qal_plist_alloc();
  QalPlistNode before{};
  node->prev = &before;
  node->next = &before;
  qal_plist_append(list, node);
  EXPECT_EQ(list->first, node);
  EXPECT_EQ(list->last, node);
  EXPECT_EQ(node->prev, &before);
  EXPECT_EQ(node->next, &before);
}

TEST_F(PlistInsert, GoesBehindANodeAndMovesTheEnd) {
  QalPlist *const list = list_of(2);
  const Nodes nodes = nodes_of(list);
  QalPlistNode *const middle = qal_plist_alloc();
  QalPlistNode *const end = qal_plist_alloc();
  qal_plist_insert_after(list, nodes[0], middle);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[0], middle, nodes[1]));
  qal_plist_insert_after(list, nodes[1], end);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[0], middle, nodes[1], end));
}

TEST_F(PlistInsert, GoesBeforeANodeAndMovesTheStart) {
  QalPlist *const list = list_of(2);
  const Nodes nodes = nodes_of(list);
  QalPlistNode *const middle = qal_plist_alloc();
  QalPlistNode *const start = qal_plist_alloc();
  qal_plist_insert_before(list, nodes[1], middle);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[0], middle, nodes[1]));
  qal_plist_insert_before(list, nodes[0], start);
  EXPECT_THAT(nodes_of(list), ElementsAre(start, nodes[0], middle, nodes[1]));
}

TEST_F(PlistInsert, OverwritesBothLinksOfTheNode) {
  QalPlist *const list = list_of(1);
  QalPlistNode *const only = list->first;
  QalPlistNode stale{};
  QalPlistNode *const behind = qal_plist_alloc();
  behind->prev = behind->next = &stale;
  qal_plist_insert_after(list, only, behind);
  QalPlistNode *const before = qal_plist_alloc();
  before->prev = before->next = &stale;
  qal_plist_insert_before(list, only, before);
  EXPECT_THAT(nodes_of(list), ElementsAre(before, only, behind));
}

TEST_F(PlistRemove, MovesTheEndsAndClearsTheLinks) {
  QalPlist *const list = list_of(4);
  const Nodes nodes = nodes_of(list);
  qal_plist_remove(list, nodes[3]);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[0], nodes[1], nodes[2]));
  qal_plist_remove(list, nodes[1]);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[0], nodes[2]));
  qal_plist_remove(list, nodes[0]);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[2]));
  qal_plist_remove(list, nodes[2]);
  EXPECT_THAT(nodes_of(list), IsEmpty());
  for (const QalPlistNode *const node : nodes) EXPECT_TRUE(unlinked(node));
}

TEST_F(PlistRemove, KeepsTheNodeAndItsDataTheCallers) {
  int value = 7;
  QalPlist *const list = list_of(1);
  QalPlistNode *const node = list->first;
  node->data = &value;
  qal_plist_remove(list, node);
  EXPECT_EQ(node->data, &value);
  EXPECT_NE(qal_plist_alloc(), node);
  qal_plist_append(list, node);
  EXPECT_THAT(nodes_of(list), ElementsAre(node));
}

TEST_F(PlistPop, HandsTheFirstNodeOver) {
  int value = 7;
  QalPlist *const list = list_of(3);
  const Nodes nodes = nodes_of(list);
  nodes[0]->data = &value;
  EXPECT_EQ(qal_plist_pop(list), nodes[0]);
  EXPECT_TRUE(unlinked(nodes[0]));
  EXPECT_EQ(nodes[0]->data, &value);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[1], nodes[2]));
}

TEST_F(PlistPop, EmptiesTheListWithItsOnlyNode) {
  QalPlist *const list = list_of(1);
  EXPECT_NE(qal_plist_pop(list), nullptr);
  EXPECT_EQ(list->first, nullptr);
  EXPECT_EQ(list->last, nullptr);
  EXPECT_EQ(qal_plist_pop(list), nullptr);
}

TEST_F(PlistConcat, JoinsTwoLists) {
  QalPlist *const dst = list_of(2);
  QalPlist *const src = list_of(2);
  Nodes all = nodes_of(dst);
  const Nodes more = nodes_of(src);
  all.insert(all.end(), more.begin(), more.end());
  qal_plist_concat(dst, src);
  EXPECT_EQ(nodes_of(dst), all);
  EXPECT_THAT(nodes_of(src), IsEmpty());
}

TEST_F(PlistConcat, MovesBothEndsIntoAnEmptyList) {
  QalPlist *const dst = qal_plist_create();
  QalPlist *const src = list_of(3);
  const Nodes nodes = nodes_of(src);
  qal_plist_concat(dst, src);
  EXPECT_EQ(nodes_of(dst), nodes);
  EXPECT_EQ(src->first, nullptr);
  EXPECT_EQ(src->last, nullptr);
}

TEST_F(PlistConcat, ChangesNothingForAnEmptySource) {
  QalPlist *const dst = list_of(2);
  QalPlist *const src = qal_plist_create();
  const Nodes nodes = nodes_of(dst);
  qal_plist_concat(dst, src);
  EXPECT_EQ(nodes_of(dst), nodes);
  QalPlist *const empty = qal_plist_create();
  qal_plist_concat(empty, src);
  EXPECT_THAT(nodes_of(empty), IsEmpty());
}

TEST_F(PlistConcat, ChangesNothingWhenAListIsJoinedToItself) {
  QalPlist *const list = list_of(3);
  const Nodes nodes = nodes_of(list);
  qal_plist_concat(list, list);
  EXPECT_EQ(nodes_of(list), nodes);
}

TEST_F(PlistLength, CountsNodes) {
  QalPlist *const list = qal_plist_create();
  EXPECT_EQ(qal_plist_length(list), 0U);
  for (uint32_t i = 1; i <= 300; ++i) {
    qal_plist_append(list, qal_plist_alloc());
    EXPECT_EQ(qal_plist_length(list), i);
  }
}

TEST_F(PlistOperations, DoNothingWithNone) {
  QalPlist *const list = list_of(2);
  const Nodes nodes = nodes_of(list);
  QalPlistNode *const node = qal_plist_alloc();
  qal_plist_prepend(list, nullptr);
  qal_plist_prepend(nullptr, node);
  qal_plist_append(list, nullptr);
  qal_plist_append(nullptr, node);
  for (const auto insert : {&qal_plist_insert_after, &qal_plist_insert_before}) {
    insert(nullptr, nodes[0], node);
    insert(list, nullptr, node);
    insert(list, nodes[0], nullptr);
  }
  qal_plist_remove(list, nullptr);
  qal_plist_remove(nullptr, nodes[0]);
  qal_plist_concat(list, nullptr);
  qal_plist_concat(nullptr, list);
  qal_plist_sort(list, nullptr);
  qal_plist_sort(nullptr, [](const void *, const void *) { return 0; });
  EXPECT_EQ(nodes_of(list), nodes);
  EXPECT_TRUE(unlinked(node));
}

// Three lists and some loose nodes, all beside lists of the standard library.
class PlistModel {
 public:
  explicit PlistModel(unsigned seed) : random_(seed) {
    for (QalPlist *&list : lists_) list = qal_plist_create();
  }

  void step() {
    const std::size_t at = random_() % lists_.size();
    const std::size_t other = random_() % lists_.size();
    switch (random_() % 10) {
      case 0:
        return add(at, &qal_plist_prepend, model_[at].begin());
      case 1:
        return add(at, &qal_plist_append, model_[at].end());
      case 2:
        return insert(at, &qal_plist_insert_after, 1);
      case 3:
        return insert(at, &qal_plist_insert_before, 0);
      case 4:
        return remove(at);
      case 5:
        return pop(at);
      case 6:
        return free_one();
      case 7:
        return concat(at, other);
      case 8:
        return random_() % 8 == 0 ? renew(at) : sort(at);
      default:
        return alloc();
    }
  }

  void expect_equal() const {
    for (std::size_t i = 0; i < lists_.size(); ++i) {
      EXPECT_EQ(nodes_of(lists_[i]), Nodes(model_[i].begin(), model_[i].end()));
      for (const QalPlistNode *const node : model_[i]) EXPECT_EQ(node->data, tag(node));
    }
    for (const QalPlistNode *const node : loose_) {
      EXPECT_TRUE(unlinked(node));
      EXPECT_EQ(node->data, tag(node));
    }
  }

 private:
  // What a node points to in these tests: something that is its own.
  static void *tag(const QalPlistNode *node) {
    return reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(node) * 2654435761U >> 8 & 0xFF);
  }

  QalPlistNode *take_loose() {
    if (loose_.empty()) alloc();
    QalPlistNode *const node = loose_.back();
    loose_.pop_back();
    return node;
  }

  std::list<QalPlistNode *>::iterator any(std::size_t at) {
    return std::next(model_[at].begin(),
                     static_cast<std::ptrdiff_t>(random_() % model_[at].size()));
  }

  void alloc() {
    QalPlistNode *const node = qal_plist_alloc();
    node->data = tag(node);
    loose_.push_back(node);
  }

  void free_one() {
    if (loose_.empty()) return;
    qal_plist_free(&loose_.back());
    EXPECT_EQ(loose_.back(), nullptr);
    loose_.pop_back();
  }

  template <typename Operation, typename Place>
  void add(std::size_t at, Operation operation, Place place) {
    QalPlistNode *const node = take_loose();
    operation(lists_[at], node);
    model_[at].insert(place, node);
  }

  template <typename Operation>
  void insert(std::size_t at, Operation operation, int behind) {
    if (model_[at].empty()) return;
    const auto place = any(at);
    QalPlistNode *const node = take_loose();
    operation(lists_[at], *place, node);
    model_[at].insert(std::next(place, behind), node);
  }

  void remove(std::size_t at) {
    if (model_[at].empty()) return;
    const auto place = any(at);
    qal_plist_remove(lists_[at], *place);
    loose_.push_back(*place);
    model_[at].erase(place);
  }

  void pop(std::size_t at) {
    QalPlistNode *const node = qal_plist_pop(lists_[at]);
    EXPECT_EQ(node, model_[at].empty() ? nullptr : model_[at].front());
    if (!node) return;
    loose_.push_back(node);
    model_[at].pop_front();
  }

  void concat(std::size_t at, std::size_t other) {
    qal_plist_concat(lists_[at], lists_[other]);
    if (at != other) model_[at].splice(model_[at].end(), model_[other]);
  }

  void sort(std::size_t at) {
    qal_plist_sort(lists_[at], [](const void *a, const void *b) { return (a > b) - (a < b); });
    model_[at].sort([](const auto *a, const auto *b) { return a->data < b->data; });
  }

  void renew(std::size_t at) {
    qal_plist_destroy(&lists_[at]);
    EXPECT_EQ(lists_[at], nullptr);
    lists_[at] = qal_plist_create();
    model_[at].clear();
  }

  std::mt19937 random_;
  std::array<QalPlist *, 3> lists_{};
  std::array<std::list<QalPlistNode *>, 3> model_;
  Nodes loose_;
};

TEST_F(PlistOperations, BehaveAsAListOverRandomSequences) {
  for (unsigned seed = 0; seed < 10; ++seed) {
    PlistModel model(seed);
    for (int step = 0; step < 1000 && !HasFailure(); ++step) {
      model.step();
      model.expect_equal();
    }
  }
}

// Lists of pointers to the items.
struct PointerLists {
  PointerLists() { qal_plist_pool_create(32, 256); }
  ~PointerLists() { qal_plist_pool_destroy(); }

  static Items sorted(Items items) {
    QalPlist *list = qal_plist_create();
    for (Item &item : items) {
      QalPlistNode *const node = qal_plist_alloc();
      node->data = &item;
      qal_plist_append(list, node);
    }
    qal_plist_sort(list, &compare_items);
    Items result;
    for (const QalPlistNode *const node : nodes_of(list)) result.push_back(item_at(node->data));
    qal_plist_destroy(&list);
    return result;
  }
};
TEST_F(PlistSort, ComparesNothingInAListOfOneNodeOrNone) {
  const auto never = [](const void *, const void *) {
    ADD_FAILURE();
    return 1;
  };
  QalPlist *const list = qal_plist_create();
  qal_plist_sort(list, never);
  EXPECT_THAT(nodes_of(list), IsEmpty());
  QalPlistNode *const node = qal_plist_alloc();
  qal_plist_append(list, node);
  qal_plist_sort(list, never);
  EXPECT_THAT(nodes_of(list), ElementsAre(node));
  EXPECT_TRUE(unlinked(node));
}

TEST_F(PlistSort, SortsFiveNodesByTheirPointers) {
  std::array<int, 5> values{};
  QalPlist *const list = qal_plist_create();
  for (const std::size_t i : {3U, 0U, 4U, 1U, 2U}) {
    QalPlistNode *const node = qal_plist_alloc();
    node->data = &values[i];
    qal_plist_append(list, node);
  }
  qal_plist_sort(list, [](const void *a, const void *b) { return (a > b) - (a < b); });
  EXPECT_EQ(qal_plist_last(list)->next, nullptr);
  const Nodes nodes = nodes_of(list);
  ASSERT_EQ(nodes.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(nodes[i]->data, &values[i]);
}

TEST_F(PlistSort, RelinksTheNodesThemselves) {
  Items items = items_of({3, 1, 2});
  item_order = compare_keys;
  QalPlist *const list = list_of(3);
  const Nodes nodes = nodes_of(list);
  for (std::size_t i = 0; i < 3; ++i) nodes[i]->data = &items[i];
  qal_plist_sort(list, &compare_items);
  EXPECT_THAT(nodes_of(list), ElementsAre(nodes[1], nodes[2], nodes[0]));
}

TEST_F(PlistSort, LeavesEndsThatLeadNowhereAndAStartThatCanBeChanged) {
  item_order = compare_keys;
  for (const int length : {1, 2, 3, 5, 9, 17, 33, 65}) {
    Items items;
    for (int key = length; key > 0; --key) items.push_back({key, 0});
    QalPlist *const list = list_of(items.size());
    auto item = items.begin();
    for (QalPlistNode *const node : nodes_of(list)) node->data = &*item++;
    qal_plist_sort(list, &compare_items);
    ASSERT_EQ(list->first->prev, nullptr) << length;
    ASSERT_EQ(list->last->next, nullptr) << length;
    Nodes expected = nodes_of(list);
    QalPlistNode *const start = qal_plist_alloc();
    qal_plist_insert_before(list, list->first, start);
    expected.insert(expected.begin(), start);
    EXPECT_EQ(nodes_of(list), expected);
    EXPECT_EQ(qal_plist_pop(list), start);
    qal_plist_remove(list, expected[1]);
    expected.erase(expected.begin(), expected.begin() + 2);
    EXPECT_EQ(nodes_of(list), expected);
  }
}

void expect_no_lists() {
  QalPlistNode node{};
  QalPlist list{};
  QalPlistNode *node_handle = &node;
  QalPlist *list_handle = &list;
  node.data = &list;
  list.first = list.last = &node;
  EXPECT_EQ(qal_plist_create(), nullptr);
  EXPECT_EQ(qal_plist_alloc(), nullptr);
  qal_plist_destroy(&list_handle);
  EXPECT_EQ(list_handle, nullptr);
  EXPECT_EQ(list.first, &node);
  qal_plist_free(&node_handle);
  EXPECT_EQ(node_handle, nullptr);
  EXPECT_EQ(node.data, &list);
}

TEST(PlistPool, IsMissedQuietlyBeforeStartUp) {
  const LogCapture log;
  expect_no_lists();
  EXPECT_EQ(qal_plist_pool_destroy(), 0);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(PlistPool, IsMissedQuietlyAfterShutDown) {
  const auto result = run_in_child([] {
    const LogCapture log;
    qal_utils_init();
    EXPECT_NE(qal_plist_create(), nullptr);
    qal_utils_done();
    expect_no_lists();
    qal_utils_init();  // starts nothing a second time
    expect_no_lists();
    EXPECT_EQ(qal_plist_pool_destroy(), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
  });
  EXPECT_TRUE(result.exited_with(0)) << result.out;
}

TEST(PlistPool, IsMadeByStartUpWithChunksOf32ListsAnd256Nodes) {
  const auto result = run_in_child([] {
    qal_utils_init();
    // What is carved from one chunk lies end to end.
    QalPlistNode *const node = qal_plist_alloc();
    for (int i = 1; i < 256; ++i) EXPECT_EQ(qal_plist_alloc(), node + i);
    EXPECT_NE(qal_plist_alloc(), node + 256);
    QalPlist *const list = qal_plist_create();
    for (int i = 1; i < 32; ++i) EXPECT_EQ(qal_plist_create(), list + i);
    EXPECT_NE(qal_plist_create(), list + 32);
  });
  EXPECT_TRUE(result.exited_with(0)) << result.out;
}

TEST(PlistPool, ServesListsAfterItsOwnSetUp) {
  EXPECT_EQ(qal_plist_pool_create(1, 2), 0);
  QalPlist *list = qal_plist_create();
  for (int i = 0; i < 7; ++i) qal_plist_append(list, qal_plist_alloc());
  EXPECT_EQ(nodes_of(list).size(), 7U);
  EXPECT_EQ(qal_plist_pool_destroy(), 0);
  expect_no_lists();
}

TEST(PlistPool, GivesNothingWhenItMayCarveNothing) {
  EXPECT_EQ(qal_plist_pool_create(0, 0), 0);
  EXPECT_EQ(qal_plist_create(), nullptr);
  EXPECT_EQ(qal_plist_alloc(), nullptr);
  EXPECT_EQ(qal_plist_pool_destroy(), 0);
}

// Deliberate: a second set-up abandons the first pools. In a child, whose leak nobody misses.
TEST(PlistPool, IsAbandonedByASecondSetUp) {
  const auto result = run_in_child([] {
    EXPECT_EQ(qal_plist_pool_create(4, 4), 0);
    QalPlistNode *const old_node = qal_plist_alloc();
    EXPECT_EQ(qal_plist_pool_create(4, 4), 0);
    QalPlist *const list = qal_plist_create();
    QalPlistNode *const node = qal_plist_alloc();
    qal_plist_append(list, old_node);
    qal_plist_append(list, node);
    EXPECT_THAT(nodes_of(list), ElementsAre(old_node, node));
  });
  EXPECT_TRUE(result.exited_with(0)) << result.out;
}

// Makes lists and drops them again, each with nodes that nobody else may have.
void use_own_lists(int thread) {
  for (int round = 0; round < repetitions(2000); ++round) {
    QalPlist *list = qal_plist_create();
    for (int i = 0; i < 10; ++i) {
      QalPlistNode *const node = qal_plist_alloc();
      node->data = &thread;
      qal_plist_append(list, node);
    }
    QalPlistNode *popped = qal_plist_pop(list);
    qal_plist_free(&popped);
    const Nodes nodes = nodes_of(list);
    EXPECT_EQ(nodes.size(), 9U);
    for (const QalPlistNode *const node : nodes) EXPECT_EQ(node->data, &thread);
    qal_plist_destroy(&list);
  }
}

TEST(PlistPool, ServesListsOfSeveralThreadsAtOnce) {
  const auto result = run_in_child([] {
    const Watchdog watchdog;
    qal_utils_init();
    run_together(4, &use_own_lists);
  });
  EXPECT_TRUE(result.exited_with(0)) << result.out;
}

}  // namespace

namespace qal::test {

INSTANTIATE_TYPED_TEST_SUITE_P(Plist, Sort, PointerLists);

}  // namespace qal::test

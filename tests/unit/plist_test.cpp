#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/plist.h>
#include <qal/startup.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/child.hpp"
#include "support/list_cases.hpp"
#include "support/list_kinds.hpp"
#include "support/log_capture.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::elements_of;
using qal::test::in_child;
using qal::test::LogCapture;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::unlinked;
using qal::test::Watchdog;
using testing::ElementsAre;
using testing::IsEmpty;

using Nodes = std::vector<QalPlistNode *>;

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
using PlistFree = Plist;
using PlistSort = Plist;

// Headers and nodes are carved one by one, so that the next one can only be the one given back.
class PlistReuse : public testing::Test {
 protected:
  PlistReuse() { qal_plist_pool_create(1, 1); }
  ~PlistReuse() override { qal_plist_pool_destroy(); }
};

TEST_F(PlistCreate, MakesAnEmptyList) {
  QalPlist *const list = qal_plist_create();
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->first, nullptr);
  EXPECT_EQ(list->last, nullptr);
}

TEST_F(PlistReuse, ClearsBothEndsOfAHeader) {
  QalPlist *list = qal_plist_create();
  QalPlist *const header = list;
  QalPlistNode node{};
  list->last = &node;
  qal_plist_destroy(&list);
  EXPECT_EQ(qal_plist_create(), header);
  EXPECT_EQ(header->first, nullptr);
  EXPECT_EQ(header->last, nullptr);
}

TEST_F(PlistReuse, ClearsAllFieldsOfANode) {
  QalPlistNode *handle = qal_plist_alloc();
  QalPlistNode *const node = handle;
  qal_plist_free(&handle);
  node->next = node;
  node->data = node;
  EXPECT_EQ(qal_plist_alloc(), node);
  EXPECT_TRUE(unlinked(node));
  EXPECT_EQ(node->data, nullptr);
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
  const Nodes nodes = elements_of(list);
  for (QalPlistNode *const node : nodes) node->data = &value;
  qal_plist_destroy(&list);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(value, 42);
  for (const QalPlistNode *const node : nodes) {
    EXPECT_EQ(node->next, nullptr);
    EXPECT_EQ(node->data, &value);
  }
  qal_plist_destroy(&list);
  EXPECT_EQ(list, nullptr);
  qal_plist_destroy(nullptr);
}

TEST_F(PlistDestroy, LetsNodesAndHeadersBeUsedAgain) {
  // As many as one chunk has, so that the next ones can only be these.
  QalPlist *list = list_of(256);
  Nodes old_nodes = elements_of(list);
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
  const Nodes nodes = elements_of(list);
  ASSERT_EQ(nodes.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(nodes[i]->data, &values[i]);
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
  in_child([] {
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
}

TEST(PlistPool, IsMadeByStartUpWithChunksOf32ListsAnd256Nodes) {
  in_child([] {
    qal_utils_init();
    // What is carved from one chunk lies end to end.
    QalPlistNode *const node = qal_plist_alloc();
    for (int i = 1; i < 256; ++i) EXPECT_EQ(qal_plist_alloc(), node + i);
    EXPECT_NE(qal_plist_alloc(), node + 256);
    QalPlist *const list = qal_plist_create();
    for (int i = 1; i < 32; ++i) EXPECT_EQ(qal_plist_create(), list + i);
    EXPECT_NE(qal_plist_create(), list + 32);
  });
}

TEST(PlistPool, ServesListsAfterItsOwnSetUp) {
  EXPECT_EQ(qal_plist_pool_create(1, 2), 0);
  QalPlist *list = qal_plist_create();
  for (int i = 0; i < 7; ++i) qal_plist_append(list, qal_plist_alloc());
  EXPECT_EQ(elements_of(list).size(), 7U);
  EXPECT_EQ(qal_plist_pool_destroy(), 0);
  expect_no_lists();
}

TEST(PlistPool, GivesNothingWhenItMayCarveNothing) {
  EXPECT_EQ(qal_plist_pool_create(0, 0), 0);
  EXPECT_EQ(qal_plist_create(), nullptr);
  EXPECT_EQ(qal_plist_alloc(), nullptr);
  EXPECT_EQ(qal_plist_pool_destroy(), 0);
}

TEST(PlistPool, GetsNodesBackFromTheHeadOfAList) {
  qal_plist_pool_create(1, 3);
  QalPlist *list = qal_plist_create();
  for (int i = 0; i < 3; ++i) qal_plist_append(list, qal_plist_alloc());
  Nodes nodes = elements_of(list);
  qal_plist_destroy(&list);
  std::ranges::reverse(nodes);
  for (QalPlistNode *const node : nodes) EXPECT_EQ(qal_plist_alloc(), node);
  qal_plist_pool_destroy();
}

// Deliberate: a second set-up abandons the first pools. In a child, because it leaks them.
TEST(PlistPool, IsAbandonedByASecondSetUp) {
  in_child([] {
    EXPECT_EQ(qal_plist_pool_create(4, 4), 0);
    QalPlistNode *const old_node = qal_plist_alloc();
    EXPECT_EQ(qal_plist_pool_create(4, 4), 0);
    QalPlist *const list = qal_plist_create();
    QalPlistNode *const node = qal_plist_alloc();
    qal_plist_append(list, old_node);
    qal_plist_append(list, node);
    EXPECT_THAT(elements_of(list), ElementsAre(old_node, node));
  });
}

// Makes lists and drops them again, each with nodes that no other thread may have.
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
    const Nodes nodes = elements_of(list);
    EXPECT_EQ(nodes.size(), 9U);
    for (const QalPlistNode *const node : nodes) EXPECT_EQ(node->data, &thread);
    qal_plist_destroy(&list);
  }
}

TEST(PlistPool, ServesListsOfSeveralThreadsAtOnce) {
  in_child([] {
    const Watchdog watchdog;
    qal_utils_init();
    run_together(4, &use_own_lists);
  });
}

}  // namespace

namespace qal::test {

INSTANTIATE_TYPED_TEST_SUITE_P(Plist, Links, PointerLists);
INSTANTIATE_TYPED_TEST_SUITE_P(Plist, LinkSequences, PointerLists);
INSTANTIATE_TYPED_TEST_SUITE_P(Plist, Sort, Sorted<PointerLists>);

}  // namespace qal::test

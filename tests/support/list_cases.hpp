// The cases that hold for both list kinds, except those of sorting (sort_cases.hpp).
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "input.hpp"
#include "linked_lists.hpp"
#include "support/list_kinds.hpp"
#include "support/log_capture.hpp"
#include "support/sort_cases.hpp"

namespace qal::test {

// A list from its first to its last element, checked from both sides.
template <typename Kind>
std::vector<typename Kind::Element *> walk(const typename Kind::List *list) {
  std::vector<typename Kind::Element *> forward;
  for (auto *at = Kind::first(list); at; at = Kind::next(at)) forward.push_back(at);
  std::vector<typename Kind::Element *> backward;
  for (auto *at = Kind::last(list); at; at = Kind::prev(at)) backward.push_back(at);
  std::reverse(backward.begin(), backward.end());
  EXPECT_EQ(forward, backward);
  EXPECT_EQ(Kind::length(list), forward.size());
  return forward;
}
inline auto elements_of(const QalList *list) { return walk<InlineLists>(list); }
inline auto elements_of(const QalPlist *list) { return walk<PointerLists>(list); }

inline bool unlinked(const void *payload) {
  return !qal_list_next(payload) && !qal_list_prev(payload);
}
inline bool unlinked(const QalPlistNode *node) { return !node->prev && !node->next; }

// The `sorted` that sort_cases.hpp needs, for either kind of list.
template <typename Kind>
struct Sorted {
  Items sorted(Items items) {
    auto *list = kind.create();
    for (Item &item : items) {
      auto *const element = kind.alloc();
      Kind::put(element, item);
      Kind::append(list, element);
    }
    Kind::sort(list, &compare_items);
    Items result;
    for (const auto *const element : elements_of(list))
      result.push_back(item_at(Kind::key(element)));
    kind.destroy(list);
    return result;
  }

  Kind kind;
};

template <typename Kind>
class Links : public testing::Test {
 protected:
  using List = typename Kind::List;
  using Element = typename Kind::Element;

  List *list_of(std::size_t length) {
    List *const list = kind.create();
    for (std::size_t i = 0; i < length; ++i) Kind::append(list, kind.alloc());
    return list;
  }

  Kind kind;
};
TYPED_TEST_SUITE_P(Links);

TYPED_TEST_P(Links, LeadBothWays) {
  auto *const list = this->list_of(3);
  const auto elements = elements_of(list);
  EXPECT_EQ(TypeParam::first(list), elements[0]);
  EXPECT_EQ(TypeParam::last(list), elements[2]);
  EXPECT_EQ(list->first, elements[0]);
  EXPECT_EQ(list->last, elements[2]);
  EXPECT_EQ(TypeParam::next(elements[0]), elements[1]);
  EXPECT_EQ(TypeParam::prev(elements[2]), elements[1]);
  EXPECT_EQ(TypeParam::next(elements[2]), nullptr);
  EXPECT_EQ(TypeParam::prev(elements[0]), nullptr);
}

TYPED_TEST_P(Links, OfNullAreNull) {
  const LogCapture log;
  EXPECT_EQ(TypeParam::first(nullptr), nullptr);
  EXPECT_EQ(TypeParam::last(nullptr), nullptr);
  EXPECT_EQ(TypeParam::next(nullptr), nullptr);
  EXPECT_EQ(TypeParam::prev(nullptr), nullptr);
  EXPECT_EQ(TypeParam::pop(nullptr), nullptr);
  EXPECT_EQ(TypeParam::length(nullptr), 0U);
  EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TYPED_TEST_P(Links, PrependPutsAnElementBeforeAllOthers) {
  auto *const list = this->list_of(0);
  auto *const a = this->kind.alloc();
  auto *const b = this->kind.alloc();
  auto *const c = this->kind.alloc();
  TypeParam::prepend(list, a);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(a));
  TypeParam::prepend(list, b);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(b, a));
  TypeParam::prepend(list, c);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(c, b, a));
}

// Deliberate: the link that looks outward is the caller's.
TYPED_TEST_P(Links, PrependLeavesTheOutwardLinkOfTheElement) {
  auto *const list = this->list_of(1);
  auto *const stale = this->kind.alloc();
  auto *const element = this->kind.alloc();
  TypeParam::set_links(element, stale, nullptr);
  TypeParam::prepend(list, element);
  EXPECT_EQ(TypeParam::prev(element), stale);
  EXPECT_EQ(TypeParam::first(list), element);
  EXPECT_EQ(TypeParam::pop(list), element);
  EXPECT_TRUE(unlinked(element));
  EXPECT_TRUE(unlinked(stale));
  EXPECT_EQ(elements_of(list).size(), 1U);
}

TYPED_TEST_P(Links, PrependLeavesBothLinksOfTheOnlyElement) {
  auto *const list = this->list_of(0);
  auto *const element = this->kind.alloc();
  auto *const before = this->kind.alloc();
  auto *const behind = this->kind.alloc();
  TypeParam::set_links(element, before, behind);
  TypeParam::prepend(list, element);
  EXPECT_EQ(list->first, element);
  EXPECT_EQ(list->last, element);
  EXPECT_EQ(TypeParam::prev(element), before);
  EXPECT_EQ(TypeParam::next(element), behind);
}

TYPED_TEST_P(Links, AppendPutsAnElementBehindAllOthers) {
  auto *const list = this->list_of(0);
  auto *const a = this->kind.alloc();
  auto *const b = this->kind.alloc();
  TypeParam::append(list, a);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(a));
  TypeParam::append(list, b);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(a, b));
}

// Deliberate: the link that looks outward is the caller's.
TYPED_TEST_P(Links, AppendLeavesTheOutwardLinkOfTheElement) {
  auto *const list = this->list_of(1);
  auto *const first = TypeParam::first(list);
  auto *const stale = this->kind.alloc();
  auto *const element = this->kind.alloc();
  TypeParam::set_links(element, nullptr, stale);
  TypeParam::append(list, element);
  EXPECT_EQ(list->first, first);
  EXPECT_EQ(TypeParam::last(list), element);
  EXPECT_EQ(TypeParam::prev(element), first);
  EXPECT_EQ(TypeParam::next(element), stale);
}

TYPED_TEST_P(Links, AppendLeavesBothLinksOfTheOnlyElement) {
  auto *const list = this->list_of(0);
  auto *const element = this->kind.alloc();
  auto *const stale = this->kind.alloc();
  TypeParam::set_links(element, stale, stale);
  TypeParam::append(list, element);
  EXPECT_EQ(list->first, element);
  EXPECT_EQ(list->last, element);
  EXPECT_EQ(TypeParam::prev(element), stale);
  EXPECT_EQ(TypeParam::next(element), stale);
}

TYPED_TEST_P(Links, InsertGoesBehindAnElementAndMovesTheEnd) {
  auto *const list = this->list_of(2);
  const auto elements = elements_of(list);
  auto *const middle = this->kind.alloc();
  auto *const end = this->kind.alloc();
  TypeParam::insert_after(list, elements[0], middle);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[0], middle, elements[1]));
  TypeParam::insert_after(list, elements[1], end);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[0], middle, elements[1], end));
}

TYPED_TEST_P(Links, InsertGoesBeforeAnElementAndMovesTheStart) {
  auto *const list = this->list_of(2);
  const auto elements = elements_of(list);
  auto *const middle = this->kind.alloc();
  auto *const start = this->kind.alloc();
  TypeParam::insert_before(list, elements[1], middle);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[0], middle, elements[1]));
  TypeParam::insert_before(list, elements[0], start);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(start, elements[0], middle, elements[1]));
}

TYPED_TEST_P(Links, InsertOverwritesBothLinksOfTheElement) {
  auto *const list = this->list_of(1);
  auto *const only = TypeParam::first(list);
  auto *const stale = this->kind.alloc();
  auto *const behind = this->kind.alloc();
  TypeParam::set_links(behind, stale, stale);
  TypeParam::insert_after(list, only, behind);
  auto *const before = this->kind.alloc();
  TypeParam::set_links(before, stale, stale);
  TypeParam::insert_before(list, only, before);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(before, only, behind));
}

TYPED_TEST_P(Links, RemoveMovesTheEndsAndClearsTheLinks) {
  auto *const list = this->list_of(4);
  const auto elements = elements_of(list);
  TypeParam::remove(list, elements[3]);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[0], elements[1], elements[2]));
  TypeParam::remove(list, elements[1]);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[0], elements[2]));
  TypeParam::remove(list, elements[0]);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[2]));
  TypeParam::remove(list, elements[2]);
  EXPECT_THAT(elements_of(list), testing::IsEmpty());
  for (const auto *const element : elements) EXPECT_TRUE(unlinked(element));
}

TYPED_TEST_P(Links, RemoveKeepsTheElementAndItsContentTheCallers) {
  auto *const list = this->list_of(1);
  auto *const element = TypeParam::first(list);
  this->kind.fill(element, 7);
  TypeParam::remove(list, element);
  EXPECT_TRUE(this->kind.check(element, 7));
  EXPECT_NE(this->kind.alloc(), element);
  EXPECT_TRUE(this->kind.holds(1, 2));
  TypeParam::append(list, element);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(element));
}

// Deliberate: an end may have an outward link, and the element that takes its place gets it.
TYPED_TEST_P(Links, RemoveAndInsertHandOnTheOutwardLinkOfTheStart) {
  auto *const list = this->list_of(1);
  auto *const other = TypeParam::first(list);
  auto *const stale = this->kind.alloc();
  auto *const element = this->kind.alloc();
  TypeParam::set_links(element, stale, nullptr);
  TypeParam::prepend(list, element);
  TypeParam::remove(list, element);
  EXPECT_TRUE(unlinked(element));
  EXPECT_EQ(list->first, other);
  EXPECT_EQ(TypeParam::prev(other), stale);
  EXPECT_EQ(TypeParam::next(stale), other);
  TypeParam::insert_before(list, other, element);
  EXPECT_EQ(list->first, element);
  EXPECT_EQ(TypeParam::prev(element), stale);
  EXPECT_EQ(TypeParam::next(stale), element);
}

// Deliberate: an end may have an outward link, and the element that takes its place gets it.
TYPED_TEST_P(Links, RemoveAndInsertHandOnTheOutwardLinkOfTheEnd) {
  auto *const list = this->list_of(1);
  auto *const other = TypeParam::last(list);
  auto *const stale = this->kind.alloc();
  auto *const element = this->kind.alloc();
  TypeParam::set_links(element, nullptr, stale);
  TypeParam::append(list, element);
  TypeParam::remove(list, element);
  EXPECT_TRUE(unlinked(element));
  EXPECT_EQ(list->last, other);
  EXPECT_EQ(TypeParam::next(other), stale);
  EXPECT_EQ(TypeParam::prev(stale), other);
  TypeParam::insert_after(list, other, element);
  EXPECT_EQ(list->last, element);
  EXPECT_EQ(TypeParam::next(element), stale);
  EXPECT_EQ(TypeParam::prev(stale), element);
}

TYPED_TEST_P(Links, PopHandsTheFirstElementOver) {
  auto *const list = this->list_of(3);
  const auto elements = elements_of(list);
  this->kind.fill(elements[0], 7);
  EXPECT_EQ(TypeParam::pop(list), elements[0]);
  EXPECT_TRUE(unlinked(elements[0]));
  EXPECT_TRUE(this->kind.check(elements[0], 7));
  EXPECT_TRUE(this->kind.holds(1, 3));
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[1], elements[2]));
}

TYPED_TEST_P(Links, PopEmptiesTheListWithItsOnlyElement) {
  auto *const list = this->list_of(1);
  EXPECT_NE(TypeParam::pop(list), nullptr);
  EXPECT_EQ(list->first, nullptr);
  EXPECT_EQ(list->last, nullptr);
  EXPECT_EQ(TypeParam::pop(list), nullptr);
}

TYPED_TEST_P(Links, ConcatJoinsTwoLists) {
  auto *const dst = this->list_of(2);
  auto *const src = this->list_of(2);
  auto all = elements_of(dst);
  const auto more = elements_of(src);
  all.insert(all.end(), more.begin(), more.end());
  TypeParam::concat(dst, src);
  EXPECT_EQ(elements_of(dst), all);
  EXPECT_THAT(elements_of(src), testing::IsEmpty());
}

TYPED_TEST_P(Links, ConcatMovesBothEndsIntoAnEmptyList) {
  auto *const dst = this->list_of(0);
  auto *const src = this->list_of(3);
  const auto elements = elements_of(src);
  TypeParam::concat(dst, src);
  EXPECT_EQ(elements_of(dst), elements);
  EXPECT_EQ(src->first, nullptr);
  EXPECT_EQ(src->last, nullptr);
}

TYPED_TEST_P(Links, ConcatChangesNothingForAnEmptySource) {
  auto *const dst = this->list_of(2);
  auto *const src = this->list_of(0);
  const auto elements = elements_of(dst);
  TypeParam::concat(dst, src);
  EXPECT_EQ(elements_of(dst), elements);
  auto *const empty = this->list_of(0);
  TypeParam::concat(empty, src);
  EXPECT_THAT(elements_of(empty), testing::IsEmpty());
}

TYPED_TEST_P(Links, ConcatChangesNothingWhenAListIsJoinedToItself) {
  auto *const list = this->list_of(3);
  const auto elements = elements_of(list);
  TypeParam::concat(list, list);
  EXPECT_EQ(elements_of(list), elements);
}

TYPED_TEST_P(Links, LengthCountsElements) {
  auto *const list = this->list_of(0);
  EXPECT_EQ(TypeParam::length(list), 0U);
  for (std::uint32_t i = 1; i <= 300; ++i) {
    TypeParam::append(list, this->kind.alloc());
    EXPECT_EQ(TypeParam::length(list), i);
  }
  TypeParam::remove(list, TypeParam::next(list->first));
  EXPECT_EQ(TypeParam::length(list), 299U);
}

TYPED_TEST_P(Links, StayAsTheyAreForNull) {
  auto *const list = this->list_of(2);
  const auto elements = elements_of(list);
  auto *const loose = this->kind.alloc();
  const LogCapture log;
  TypeParam::prepend(list, nullptr);
  TypeParam::prepend(nullptr, loose);
  TypeParam::append(list, nullptr);
  TypeParam::append(nullptr, loose);
  for (const auto insert : {TypeParam::insert_after, TypeParam::insert_before}) {
    insert(nullptr, elements[0], loose);
    insert(list, nullptr, loose);
    insert(list, elements[0], nullptr);
  }
  TypeParam::remove(list, nullptr);
  TypeParam::remove(nullptr, elements[0]);
  TypeParam::concat(list, nullptr);
  TypeParam::concat(nullptr, list);
  TypeParam::sort(list, nullptr);
  TypeParam::sort(nullptr, [](const void *, const void *) { return 0; });
  EXPECT_EQ(elements_of(list), elements);
  EXPECT_TRUE(unlinked(loose));
  EXPECT_THAT(log.lines(), testing::IsEmpty());
}

TYPED_TEST_P(Links, SortComparesNothingInAListOfOneElementOrNone) {
  const auto never = [](const void *, const void *) {
    ADD_FAILURE();
    return 1;
  };
  auto *const list = this->list_of(0);
  TypeParam::sort(list, never);
  EXPECT_THAT(elements_of(list), testing::IsEmpty());
  auto *const element = this->kind.alloc();
  TypeParam::append(list, element);
  TypeParam::sort(list, never);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(element));
  EXPECT_TRUE(unlinked(element));
}

TYPED_TEST_P(Links, SortRelinksTheElementsThemselves) {
  Items items = items_of({3, 1, 2});
  item_order = compare_keys;
  auto *const list = this->list_of(3);
  const auto elements = elements_of(list);
  for (std::size_t i = 0; i < 3; ++i) TypeParam::put(elements[i], items[i]);
  TypeParam::sort(list, &compare_items);
  EXPECT_THAT(elements_of(list), testing::ElementsAre(elements[1], elements[2], elements[0]));
}

TYPED_TEST_P(Links, SortLeavesEndsThatLeadNowhereAndAStartThatCanBeChanged) {
  item_order = compare_keys;
  for (const int length : {1, 2, 3, 5, 9, 17, 33, 65}) {
    Items items;
    for (int key = length; key > 0; --key) items.push_back({key, 0});
    auto *const list = this->list_of(items.size());
    auto item = items.begin();
    for (auto *const element : elements_of(list)) TypeParam::put(element, *item++);
    TypeParam::sort(list, &compare_items);
    ASSERT_EQ(TypeParam::prev(list->first), nullptr) << length;
    ASSERT_EQ(TypeParam::next(list->last), nullptr) << length;
    auto expected = elements_of(list);
    auto *const start = this->kind.alloc();
    TypeParam::insert_before(list, list->first, start);
    expected.insert(expected.begin(), start);
    EXPECT_EQ(elements_of(list), expected);
    EXPECT_EQ(TypeParam::pop(list), start);
    TypeParam::remove(list, expected[1]);
    expected.erase(expected.begin(), expected.begin() + 2);
    EXPECT_EQ(elements_of(list), expected);
  }
}

REGISTER_TYPED_TEST_SUITE_P(
    Links, LeadBothWays, OfNullAreNull, PrependPutsAnElementBeforeAllOthers,
    PrependLeavesTheOutwardLinkOfTheElement, PrependLeavesBothLinksOfTheOnlyElement,
    AppendPutsAnElementBehindAllOthers, AppendLeavesTheOutwardLinkOfTheElement,
    AppendLeavesBothLinksOfTheOnlyElement, InsertGoesBehindAnElementAndMovesTheEnd,
    InsertGoesBeforeAnElementAndMovesTheStart, InsertOverwritesBothLinksOfTheElement,
    RemoveMovesTheEndsAndClearsTheLinks, RemoveKeepsTheElementAndItsContentTheCallers,
    RemoveAndInsertHandOnTheOutwardLinkOfTheStart, RemoveAndInsertHandOnTheOutwardLinkOfTheEnd,
    PopHandsTheFirstElementOver, PopEmptiesTheListWithItsOnlyElement, ConcatJoinsTwoLists,
    ConcatMovesBothEndsIntoAnEmptyList, ConcatChangesNothingForAnEmptySource,
    ConcatChangesNothingWhenAListIsJoinedToItself, LengthCountsElements, StayAsTheyAreForNull,
    SortComparesNothingInAListOfOneElementOrNone, SortRelinksTheElementsThemselves,
    SortLeavesEndsThatLeadNowhereAndAStartThatCanBeChanged);

// Makes and ends the pools itself, which a process may have but once.
template <typename Kind>
class LinkSequences : public testing::Test {};
TYPED_TEST_SUITE_P(LinkSequences);

TYPED_TEST_P(LinkSequences, FollowTheModel) {
  for (unsigned seed = 0; seed < 24; ++seed) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(2400);
    for (std::uint8_t &byte : bytes) byte = static_cast<std::uint8_t>(random());
    fuzz::Input input(bytes.data(), bytes.size());
    fuzz::play_lists<TypeParam>(input);
  }
}

REGISTER_TYPED_TEST_SUITE_P(LinkSequences, FollowTheModel);

}  // namespace qal::test

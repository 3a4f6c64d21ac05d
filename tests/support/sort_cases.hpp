// The cases of sorting that hold for both list kinds. A kind has a function `sorted`, which makes a
// list of items, sorts it, checks it in both directions and returns the items in their order.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <tuple>

#include "support/merge_model.hpp"

namespace qal::test {

// A comparison has no context argument, so its order and the record of its calls are global.
inline ItemOrder item_order;
inline Comparisons seen_comparisons;

// A payload need not be aligned.
inline Item item_at(const void *payload) {
  Item item{};
  std::memcpy(&item, payload, sizeof item);
  return item;
}

inline int compare_items(const void *earlier, const void *later) {
  const Item a = item_at(earlier);
  const Item b = item_at(later);
  seen_comparisons.emplace_back(a.identity, b.identity);
  return item_order(a, b);
}

template <typename Kind>
class Sort : public testing::Test {
 protected:
  // Compares order and every comparison with the model, and answers how many there were.
  std::size_t expect_sorted_as_described(const Items &items) {
    seen_comparisons.clear();
    const Items sorted = kind.sorted(items);
    Comparisons expected;
    EXPECT_EQ(sorted, sorted_by_levels(items, item_order, expected));
    EXPECT_EQ(seen_comparisons, expected);
    return seen_comparisons.size();
  }

  Kind kind;
};
TYPED_TEST_SUITE_P(Sort);

TYPED_TEST_P(Sort, ComparesAsDescribedForEveryShortSequence) {
  item_order = compare_keys;
  for (std::size_t length = 0; length <= 7; ++length) {
    for_each_sequence(length, 4, [this](const Items &items) {
      if (!this->HasFailure()) this->expect_sorted_as_described(items);
    });
  }
}

TYPED_TEST_P(Sort, ComparesAsDescribedForLongLists) {
  item_order = compare_keys;
  for (unsigned seed = 0; seed < 60; ++seed) {
    const std::size_t length = seed * seed;
    const auto comparisons = this->expect_sorted_as_described(random_items(length, 100, seed));
    EXPECT_LE(comparisons, comparison_limit(length));
  }
}

TYPED_TEST_P(Sort, ComparesAsDescribedAtEveryNumberOfRuns) {
  item_order = compare_keys;
  for (std::size_t length = 0; length < 140; ++length) {
    this->expect_sorted_as_described(random_items(length, 10, static_cast<unsigned>(length)));
  }
}

TYPED_TEST_P(Sort, FollowsTheSameStepsForAnOrderThatContradictsItself) {
  item_order = compare_without_reason;
  for (unsigned seed = 0; seed < 200; ++seed) {
    this->expect_sorted_as_described(random_items(seed, 100, seed));
  }
}

TYPED_TEST_P(Sort, TakesTheLaterElementFirstOnlyForResultsAboveZero) {
  for (const int equal : {0, -1, INT_MIN}) {
    for (const int above : {1, 2, INT_MAX}) {
      item_order = [=](const Item &a, const Item &b) { return a.key > b.key ? above : equal; };
      this->expect_sorted_as_described(random_items(50, 5, 1));
    }
  }
}

TYPED_TEST_P(Sort, KeepsTheOrderOfEqualElements) {
  item_order = compare_keys;
  Items items = random_items(1000, 7, 3);
  const Items sorted = this->kind.sorted(items);
  std::sort(items.begin(), items.end(), [](const Item &a, const Item &b) {
    return std::tie(a.key, a.identity) < std::tie(b.key, b.identity);
  });
  EXPECT_EQ(sorted, items);
}

REGISTER_TYPED_TEST_SUITE_P(Sort, ComparesAsDescribedForEveryShortSequence,
                            ComparesAsDescribedForLongLists, ComparesAsDescribedAtEveryNumberOfRuns,
                            FollowsTheSameStepsForAnOrderThatContradictsItself,
                            TakesTheLaterElementFirstOnlyForResultsAboveZero,
                            KeepsTheOrderOfEqualElements);

}  // namespace qal::test

#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <cstddef>
#include <vector>

#include "schedules.hpp"

namespace {

using qal::test::Are;
using qal::test::most_preemptions;
using qal::test::quick_preemptions;
using qal::test::together;

using ReduceSchedules = qal::test::Schedules;

struct Group {
  int members = 0;
  int sum = 0;
};

// The threads reduce in groups, each smaller by one than the last. Those that leave a group first
// form the next one at once.
void shrink(int threads, int smallest) {
  std::vector<Group> groups(static_cast<std::size_t>(threads) + 1);
  together(threads, [&](int i) {
    for (int size = threads; size >= smallest; --size) {
      Group &group = groups[static_cast<std::size_t>(size)];
      if (group.members++ == size) break;
      group.sum += size << i;
      const int result = qal_thread_global_isum(size << i, size);
      EXPECT_EQ(result, group.sum);
    }
  });
}

TEST_F(ReduceSchedules, TwoThreadsAreFollowedByOne) {
  expect_every_good(most_preemptions, Are::alike, [] { shrink(2, 1); });
}

TEST_F(ReduceSchedules, ThreeThreadsAreFollowedByTwo) {
  expect_every_good(quick_preemptions(), Are::alike, [] { shrink(3, 2); });
}

TEST_F(ReduceSchedules, FiveThreadsShrink) {
  expect_random_good([] { shrink(5, 1); });
}

}  // namespace

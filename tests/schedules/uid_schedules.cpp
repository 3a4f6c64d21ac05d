#include <gtest/gtest.h>
#include <qal/uid.h>

#include <cstdint>
#include <set>

#include "schedules.hpp"
#include "slots.hpp"

namespace {

using qal::test::Are;
using qal::test::leave_slots;
using qal::test::most_preemptions;
using qal::test::Points;
using qal::test::run_together;

constexpr int slots_of_registry = 1000;

class UidSchedules : public qal::test::Schedules {
 protected:
  // A slot gets its list when it is used first, which the schedules are not to depend on.
  UidSchedules() {
    for (int i = 0; i < slots_of_registry; ++i) qal_uid_destroy(qal_uid_new(0, 0));
  }
};

std::uint64_t use(std::uint64_t mark) {
  const std::uint64_t id = qal_uid_new(mark, ~mark);
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  EXPECT_EQ(qal_uid_find(id, &first, &second), QAL_STATUS_OK);
  EXPECT_EQ(first, mark);
  EXPECT_EQ(second, ~mark);
  EXPECT_EQ(qal_uid_destroy(id), QAL_STATUS_OK);
  EXPECT_EQ(qal_uid_find(id, nullptr, nullptr), QAL_STATUS_NO_ID);
  return id;
}

// Each thread takes two records in each run, of 1000 that it gets at once. It is always the first
// one that needs more, so the second id takes the same calls in every run.
void share_registry(int threads) {
  std::set<std::uint64_t> ids;
  run_together(threads, [&](int i) {
    qal_uid_destroy(qal_uid_new(0, 0));
    const Points points;
    ids.insert(use(static_cast<std::uint64_t>(i)));
  });
  EXPECT_EQ(ids.size(), static_cast<std::size_t>(threads));
}

TEST_F(UidSchedules, TwoThreadsUseIds) {
  leave_slots(2);
  expect_every_good(most_preemptions, Are::alike, [] { share_registry(2); });
}

TEST_F(UidSchedules, ThreeThreadsUseIds) {
  leave_slots(3);
  expect_every_good(most_preemptions, Are::alike, [] { share_registry(3); });
}

TEST_F(UidSchedules, EightThreadsUseIds) {
  leave_slots(8);
  expect_random_good([] { share_registry(8); });
}

}  // namespace

#include <gtest/gtest.h>
#include <qal/mpool.h>

#include <array>
#include <cstdint>

#include "schedules.hpp"

namespace {

using qal::test::Are;
using qal::test::most_preemptions;
using qal::test::together;

using MpoolSchedules = qal::test::Schedules;

constexpr int elements_per_chunk = 2;

void *take(QalMpool *pool, int mark) {
  void *const element = qal_mpool_alloc(pool);
  *static_cast<std::int64_t *>(element) = mark;
  return element;
}

// The first two elements fill the shared list, from which a later refill may come.
void take_and_free(QalMpool *pool, int mark) {
  std::array<void *, 3> elements{};
  for (void *&element : elements) element = take(pool, mark);
  for (void *const element : elements) {
    EXPECT_EQ(*static_cast<std::int64_t *>(element), mark);
    EXPECT_EQ(qal_mpool_free(pool, element), 0);
  }
}

// No element is in two hands, and all are free in the end.
void share(int threads) {
  QalMpool *pool = qal_mpool_create(sizeof(std::int64_t), elements_per_chunk);
  together(threads, [pool](int i) { take_and_free(pool, i); });
  std::uint32_t total = 0;
  EXPECT_EQ(qal_mpool_status(pool, &total, nullptr), total);
  qal_mpool_destroy(&pool);
}

TEST_F(MpoolSchedules, TwoThreadsShareAPool) {
  expect_every_good(most_preemptions, Are::alike, [] { share(2); });
}

TEST_F(MpoolSchedules, ThreeThreadsShareAPool) {
  expect_every_good(most_preemptions, Are::alike, [] { share(3); });
}

TEST_F(MpoolSchedules, SixThreadsShareAPool) {
  expect_random_good([] { share(6); });
}

}  // namespace

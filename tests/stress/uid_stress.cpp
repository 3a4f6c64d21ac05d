#include <gtest/gtest.h>
#include <qal/uid.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "stress.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::run_together;
using qal::test::sized;
using qal::test::Stress;

using UidStress = Stress;

constexpr int threads = 8;
constexpr std::size_t most_registered = 16;  // by a thread at a time

// Finds an id with the values it was made with, and retires it.
void retire(uint64_t id, uint64_t thread) {
  uint64_t first = 0;
  uint64_t second = 0;
  EXPECT_EQ(qal_uid_find(id, &first, &second), 0);
  EXPECT_EQ(first, thread);
  EXPECT_EQ(second, ~thread);
  EXPECT_EQ(qal_uid_destroy(id), 0);
  EXPECT_EQ(qal_uid_find(id, nullptr, nullptr), 4);
}

TEST_F(UidStress, HandsEveryIdOutOnce) {
  const int per_thread = sized(5'000, 1'000'000);
  const uint64_t start = qal_uid_next();
  const auto all = static_cast<std::size_t>(per_thread) * threads;
  std::vector<std::atomic<char>> taken(all);
  run_together(threads, [&](int thread) {
    const auto mark = static_cast<uint64_t>(thread);
    std::deque<uint64_t> registered;
    for (int i = 0; i < per_thread; ++i) {
      registered.push_back(qal_uid_new(mark, ~mark));
      ASSERT_LT(registered.back() - start, all);
      EXPECT_EQ(taken[registered.back() - start].exchange(1), 0);
      if (registered.size() < most_registered) continue;
      retire(registered.front(), mark);
      registered.pop_front();
    }
    for (const uint64_t id : registered) retire(id, mark);
  });
  EXPECT_EQ(qal_uid_next(), start + all);
  record_count(static_cast<int>(all));
}

}  // namespace

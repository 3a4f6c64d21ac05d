#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/startup.h>
#include <qal/uid.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "internal/id_index.hpp"
#include "support/child.hpp"
#include "support/log_capture.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::Gate;
using qal::test::in_new_process;
using qal::test::LogCapture;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::Watchdog;
using testing::IsEmpty;

using Values = std::pair<uint64_t, uint64_t>;

std::optional<Values> found(uint64_t id) {
  Values values{};
  if (qal_uid_find(id, &values.first, &values.second) != 0) return {};
  return values;
}

TEST(UidNew, HandsOutIdsButFindsNoneWithoutARegistry) {
  in_new_process([] {
    EXPECT_EQ(qal_uid_next(), 1U);
    EXPECT_EQ(qal_uid_new(10, 20), 1U);
    EXPECT_EQ(qal_uid_new(30, 40), 2U);
    EXPECT_EQ(qal_uid_next(), 3U);
    uint64_t first = 7;
    uint64_t second = 8;
    EXPECT_EQ(qal_uid_find(1, &first, &second), 4);
    EXPECT_EQ(first, 7U);
    EXPECT_EQ(second, 8U);
    EXPECT_EQ(qal_uid_destroy(1), 0);
    EXPECT_EQ(qal_uid_init(), 0);
    EXPECT_EQ(found(1), std::nullopt);
    EXPECT_EQ(qal_uid_destroy(1), 6);
    EXPECT_EQ(qal_uid_new(50, 60), 3U);  // counting goes on
    EXPECT_EQ(found(3), Values(50, 60));
  });
}

TEST(UidNew, CountsFrom1) {
  in_new_process([] {
    qal_utils_init();
    EXPECT_EQ(qal_uid_next(), 1U);
    EXPECT_EQ(qal_uid_new(0, 0), 1U);
    EXPECT_EQ(qal_uid_next(), 2U);
    EXPECT_EQ(qal_uid_next(), 2U);
    EXPECT_EQ(qal_uid_new(0, 0), 2U);
  });
}

class Uid : public testing::Test {
 protected:
  Uid() { qal_utils_init(); }
  ~Uid() override { qal_utils_done(); }
};
using UidInit = Uid;
using UidFind = Uid;
using UidDestroy = Uid;
using UidOperations = Uid;
using UidThreads = Uid;

TEST_F(UidInit, KeepsTheRegistryWhenCalledAgain) {
  const uint64_t id = qal_uid_new(1, 2);
  qal_uid_init();
  EXPECT_EQ(found(id), Values(1, 2));
  EXPECT_EQ(qal_uid_next(), id + 1);
}

TEST_F(UidInit, OutlivesShutDown) {
  const uint64_t id = qal_uid_new(1, 2);
  qal_utils_done();
  EXPECT_EQ(found(id), Values(1, 2));
  EXPECT_EQ(qal_uid_new(3, 4), id + 1);
  EXPECT_EQ(found(id + 1), Values(3, 4));
}

TEST_F(UidFind, GivesBothValuesAndKeepsThem) {
  const uint64_t id = qal_uid_new(UINT64_MAX, 0x0123456789ABCDEFU);
  EXPECT_EQ(found(id), Values(UINT64_MAX, 0x0123456789ABCDEFU));
  EXPECT_EQ(found(id), Values(UINT64_MAX, 0x0123456789ABCDEFU));
}

TEST_F(UidFind, TellsIdsOfOneSlotApart) {
  const uint64_t first = qal_uid_new(1, 1);
  for (int i = 1; i < 1000; ++i) qal_uid_new(0, 0);
  const uint64_t second = qal_uid_new(2, 2);
  EXPECT_EQ(second, first + 1000);
  EXPECT_EQ(found(first), Values(1, 1));
  EXPECT_EQ(found(second), Values(2, 2));
}

TEST_F(UidFind, LeavesTheOutputsOfAnUnknownId) {
  const LogCapture log;
  const uint64_t next = qal_uid_next();
  for (const uint64_t id : {uint64_t{0}, next, next + 1000, UINT64_MAX}) {
    uint64_t first = 7;
    uint64_t second = 8;
    EXPECT_EQ(qal_uid_find(id, &first, &second), 4);
    EXPECT_EQ(first, 7U);
    EXPECT_EQ(second, 8U);
    EXPECT_EQ(qal_uid_destroy(id), 6);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(UidFind, TakesNullForValuesThatAreNotWanted) {
  const uint64_t id = qal_uid_new(1, 2);
  uint64_t value = 0;
  EXPECT_EQ(qal_uid_find(id, nullptr, nullptr), 0);
  EXPECT_EQ(qal_uid_find(id, &value, nullptr), 0);
  EXPECT_EQ(value, 1U);
  EXPECT_EQ(qal_uid_find(id, nullptr, &value), 0);
  EXPECT_EQ(value, 2U);
}

// Deliberate: the upper 16 bits of an id do not count when it is looked up.
TEST_F(UidFind, LooksAtTheLow48BitsOnly) {
  const uint64_t id = qal_uid_new(1, 2);
  EXPECT_EQ(found(id + (uint64_t{1} << 48)), Values(1, 2));
  EXPECT_EQ(found(id | 0xFFFF000000000000U), Values(1, 2));
  EXPECT_EQ(found(id + (uint64_t{1} << 47)), std::nullopt);
}

TEST_F(UidDestroy, RetiresAnIdForGood) {
  const uint64_t id = qal_uid_new(1, 2);
  EXPECT_EQ(qal_uid_destroy(id), 0);
  EXPECT_EQ(found(id), std::nullopt);
  EXPECT_EQ(qal_uid_destroy(id), 6);
  EXPECT_EQ(qal_uid_new(3, 4), id + 1);
  EXPECT_EQ(found(id), std::nullopt);
}

// Deliberate: the upper 16 bits of an id do not count when it is retired.
TEST_F(UidDestroy, LooksAtTheLow48BitsOnly) {
  const uint64_t id = qal_uid_new(1, 2);
  EXPECT_EQ(qal_uid_destroy(id + (uint64_t{1} << 47)), 6);
  EXPECT_EQ(qal_uid_destroy(id + (uint64_t{5} << 48)), 0);
  EXPECT_EQ(found(id), std::nullopt);
}

TEST_F(UidOperations, BehaveAsAMapOverRandomSequences) {
  std::mt19937_64 random(1);
  std::map<uint64_t, Values> model;
  const uint64_t start = qal_uid_next();
  uint64_t next = start;
  for (int step = 0; step < 20000; ++step) {
    const uint64_t id = start + random() % (next - start + 3);
    switch (random() % 4) {
      case 0: {
        const Values values(random(), random());
        EXPECT_EQ(qal_uid_new(values.first, values.second), next);
        model.emplace(next++, values);
        break;
      }
      case 1:
        EXPECT_EQ(qal_uid_destroy(id), model.erase(id) ? 0 : 6);
        break;
      case 2: {
        const auto known = model.find(id);
        EXPECT_EQ(found(id), known == model.end() ? std::nullopt : std::optional(known->second));
        break;
      }
      default:
        EXPECT_EQ(qal_uid_next(), next);
    }
  }
  for (uint64_t id = start; id < next; ++id) EXPECT_EQ(found(id).has_value(), model.count(id) == 1);
}

TEST_F(UidFind, FindsEachOfManyIds) {
  const uint64_t start = qal_uid_next();
  constexpr uint64_t many = 70'000;
  for (uint64_t i = 0; i < many; ++i) qal_uid_new(i, ~i);
  for (uint64_t i = 0; i < many; ++i) {
    if (i % 1000 != 7) {
      EXPECT_EQ(qal_uid_destroy(start + i), 0);
    }
  }
  for (uint64_t i = 0; i < many; ++i) {
    EXPECT_EQ(found(start + i), i % 1000 == 7 ? std::optional(Values(i, ~i)) : std::nullopt);
  }
}

// A random id that the index can hold: ids of every length, some of them close to each other.
uint64_t any_id(std::mt19937_64 &random) { return (random() % 3 << random() % 54) + random() % 4; }

TEST(UidIndex, LeadsToWhatAMapHoldsOverRandomSequences) {
  static qal::internal::IdIndex<int> index;
  std::array<int, 16> records{};
  std::mt19937_64 random(1);
  std::map<uint64_t, int *> model;
  for (int step = 0; step < 20000; ++step) {
    const uint64_t id = any_id(random);
    int *const record = random() % 3 == 0 ? nullptr : &records[random() % records.size()];
    EXPECT_TRUE(index.set(id, record));
    model[id] = record;
    const uint64_t other = any_id(random);
    const auto known = model.find(other);
    EXPECT_EQ(index.find(other), known == model.end() ? nullptr : known->second);
  }
  for (const auto &[id, record] : model) EXPECT_EQ(index.find(id), record);
  for (const auto &[id, record] : model) EXPECT_TRUE(index.set(id, nullptr));
  for (const auto &[id, record] : model) EXPECT_EQ(index.find(id), nullptr);
}

TEST(UidIndex, HoldsIdsBelow256ToTheSeventh) {
  static qal::internal::IdIndex<int> index;
  int record = 0;
  constexpr uint64_t first_beyond = uint64_t{1} << 56;
  EXPECT_TRUE(index.set(first_beyond - 1, &record));
  EXPECT_FALSE(index.set(first_beyond, &record));
  EXPECT_EQ(index.find(first_beyond - 1), &record);
  EXPECT_EQ(index.find(first_beyond), nullptr);
  EXPECT_EQ(index.find(~uint64_t{0}), nullptr);
}

// Unlike other pools, that of the registry serves threads which share an index.
TEST_F(UidThreads, NeedNotBeOfTheLibrary) {
  const Watchdog watchdog;
  Gate gate;
  std::array<std::thread, 4> threads;
  for (auto &thread : threads) {
    thread = std::thread([&gate] {
      gate.wait();
      for (uint64_t i = 0; i < repetitions(100'000); ++i) {
        const uint64_t id = qal_uid_new(i, ~i);
        ASSERT_EQ(found(id), Values(i, ~i));
        ASSERT_EQ(qal_uid_destroy(id), 0);
      }
    });
  }
  gate.open();
  for (auto &thread : threads) thread.join();
}

TEST_F(UidThreads, NeverShareAnId) {
  const Watchdog watchdog;
  constexpr int thread_count = 8;
  constexpr int per_thread = repetitions(20000);
  const uint64_t start = qal_uid_next();
  std::vector<std::vector<uint64_t>> ids(thread_count);
  run_together(thread_count, [&ids](int thread) {
    auto &own = ids[static_cast<std::size_t>(thread)];
    const auto mark = static_cast<uint64_t>(thread);
    for (int i = 0; i < per_thread; ++i) {
      own.push_back(qal_uid_new(mark, ~own.size()));
      EXPECT_GT(qal_uid_next(), own.back());
    }
    for (std::size_t i = 0; i < own.size(); ++i) {
      EXPECT_EQ(found(own[i]), Values(mark, ~i));
      if (i % 2) {
        EXPECT_EQ(qal_uid_destroy(own[i]), 0);
      }
    }
  });
  std::vector<uint64_t> all;
  for (const auto &own : ids) all.insert(all.end(), own.begin(), own.end());
  std::sort(all.begin(), all.end());
  ASSERT_EQ(all.size(), std::size_t{thread_count} * per_thread);
  for (std::size_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], start + i);
  EXPECT_EQ(qal_uid_next(), start + all.size());
  for (const auto &own : ids) {
    for (std::size_t i = 0; i < own.size(); ++i) EXPECT_EQ(found(own[i]).has_value(), i % 2 == 0);
  }
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/hash.h>
#include <qal/startup.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "support/log_capture.hpp"

namespace {

using qal::test::LogCapture;
using testing::IsEmpty;

struct DestroyPairs {
  void operator()(QalHashPairs *pairs) const { qal_hash_pairs_destroy(&pairs); }
};
using Pairs = std::unique_ptr<QalHashPairs, DestroyPairs>;

using Key = std::array<int32_t, 2>;

// Data of one 32-bit integer per pair.
Pairs new_pairs(int32_t num_slots = 10, uint32_t remove_on_find = 0) {
  return Pairs(qal_hash_pairs_create(num_slots, 4, sizeof(int32_t), remove_on_find));
}

int add(const Pairs &pairs, int32_t a, int32_t b, int32_t value) {
  return qal_hash_pairs_add(pairs.get(), a, b, &value);
}

std::optional<int32_t> found(const Pairs &pairs, int32_t a, int32_t b) {
  int32_t value = 0;
  if (qal_hash_pairs_find(pairs.get(), a, b, &value) != 1) return {};
  return value;
}

std::optional<int32_t> removed(const Pairs &pairs, int32_t a, int32_t b) {
  int32_t value = 0;
  if (qal_hash_pairs_remove(pairs.get(), a, b, &value) != 0) return {};
  return value;
}

Key key_at(const void *payload) {
  Key key{};
  std::memcpy(key.data(), payload, sizeof key);
  return key;
}

// The only slot with a list, or -1.
int32_t used_slot(const QalHash &table) {
  int32_t used = -1;
  for (int32_t slot = 0; slot < table.num_slots; ++slot) {
    if (!table.slots[slot]) continue;
    EXPECT_EQ(used, -1);
    used = slot;
  }
  return used;
}

// Where a pair goes in a table of that many slots.
int32_t slot_of(int32_t a, int32_t b, int32_t num_slots) {
  const Pairs pairs = new_pairs(num_slots);
  EXPECT_EQ(add(pairs, a, b, 0), 0);
  return used_slot(*pairs->table);
}

class HashPairs : public testing::Test {
 protected:
  HashPairs() { qal_utils_init(); }
  ~HashPairs() override { qal_utils_done(); }
};
using HashPairsCreate = HashPairs;
using HashPairsDestroy = HashPairs;
using HashPairsReinit = HashPairs;
using HashPairsAdd = HashPairs;
using HashPairsFind = HashPairs;
using HashPairsRemove = HashPairs;
using HashPairsSlot = HashPairs;

TEST_F(HashPairsCreate, WrapsATableWithKeysOfEightBytes) {
  const Pairs pairs(qal_hash_pairs_create(7, 9, 13, 42));
  ASSERT_NE(pairs, nullptr);
  EXPECT_EQ(pairs->num_slots, 7);
  EXPECT_EQ(pairs->chunk_count, 9);
  EXPECT_EQ(pairs->key_size, 8);
  EXPECT_EQ(pairs->data_size, 13);
  EXPECT_EQ(pairs->remove_on_find, 42U);
  ASSERT_NE(pairs->table, nullptr);
  EXPECT_EQ(pairs->table->num_slots, 7);
  EXPECT_EQ(pairs->table->chunk_count, 9);
  EXPECT_EQ(pairs->table->key_size, 8);
  EXPECT_EQ(pairs->table->data_size, 13);
  EXPECT_EQ(pairs->table->remove_on_find, 42U);
}

TEST_F(HashPairsCreate, TakesTheSmallestArgumentsAndNothingBelow) {
  const LogCapture log;
  EXPECT_NE(Pairs(qal_hash_pairs_create(1, 1, 0, 0)), nullptr);
  for (const int32_t bad : {0, -1, INT_MIN}) {
    EXPECT_EQ(qal_hash_pairs_create(bad, 1, 8, 0), nullptr);
    EXPECT_EQ(qal_hash_pairs_create(1, bad, 8, 0), nullptr);
  }
  for (const int32_t bad : {-1, INT_MIN}) EXPECT_EQ(qal_hash_pairs_create(1, 1, bad, 0), nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(HashPairsDestroy, ClearsTheHandle) {
  QalHashPairs *pairs = new_pairs().release();
  const int32_t value = 1;
  qal_hash_pairs_add(pairs, 1, 2, &value);
  qal_hash_pairs_destroy(&pairs);
  EXPECT_EQ(pairs, nullptr);
  qal_hash_pairs_destroy(&pairs);
  EXPECT_EQ(pairs, nullptr);
  qal_hash_pairs_destroy(nullptr);
}

TEST_F(HashPairsDestroy, TakesARecordWithoutATable) {
  QalHashPairs *pairs = new_pairs().release();
  qal_hash_destroy(&pairs->table);
  qal_hash_pairs_reinit(pairs);
  EXPECT_EQ(qal_hash_pairs_add(pairs, 1, 2, nullptr), 0);
  EXPECT_EQ(qal_hash_pairs_find(pairs, 1, 2, nullptr), 0);
  EXPECT_EQ(qal_hash_pairs_remove(pairs, 1, 2, nullptr), 0);
  qal_hash_pairs_destroy(&pairs);
  EXPECT_EQ(pairs, nullptr);
}

TEST_F(HashPairsReinit, EmptiesTheTable) {
  const Pairs pairs = new_pairs();
  for (int32_t i = 0; i < 20; ++i) add(pairs, i, i, i);
  qal_hash_pairs_reinit(pairs.get());
  for (int32_t slot = 0; slot < 10; ++slot) EXPECT_EQ(pairs->table->slots[slot], nullptr);
  for (int32_t i = 0; i < 20; ++i) EXPECT_EQ(found(pairs, i, i), std::nullopt);
  EXPECT_EQ(add(pairs, 1, 2, 3), 0);
  EXPECT_EQ(found(pairs, 1, 2), 3);
  qal_hash_pairs_reinit(nullptr);
}

TEST_F(HashPairsAdd, StoresTheSmallerIntegerFirst) {
  for (const auto &[a, b] : {std::pair{5, 9},
                             {9, 5},
                             {-3, 2},
                             {2, -3},
                             {4, 4},
                             {INT_MIN, INT_MAX},
                             {INT_MAX, INT_MIN}}) {
    const Pairs pairs = new_pairs(1);
    add(pairs, a, b, 77);
    const void *const record = qal_list_first(pairs->table->slots[0]);
    EXPECT_EQ(key_at(record), (Key{std::min(a, b), std::max(a, b)}));
    const int32_t value = 77;
    EXPECT_EQ(std::memcmp(static_cast<const char *>(record) + 8, &value, sizeof value), 0);
  }
}

TEST_F(HashPairsAdd, KeepsEqualPairsBesideEachOther) {
  const Pairs pairs = new_pairs();
  add(pairs, 1, 2, 10);
  add(pairs, 2, 1, 20);
  EXPECT_EQ(removed(pairs, 1, 2), 10);
  EXPECT_EQ(removed(pairs, 1, 2), 20);
  EXPECT_EQ(removed(pairs, 1, 2), std::nullopt);
}

TEST_F(HashPairsAdd, PassesTheTablesRefusalOn) {
  const Pairs pairs = new_pairs();
  EXPECT_EQ(qal_hash_pairs_add(pairs.get(), 1, 2, nullptr), 6);
}

TEST_F(HashPairsFind, KnowsAPairInEitherOrder) {
  const Pairs pairs = new_pairs();
  add(pairs, 5, 9, 59);
  add(pairs, 8, 6, 86);
  add(pairs, 7, 7, 77);
  EXPECT_EQ(found(pairs, 9, 5), 59);
  EXPECT_EQ(found(pairs, 5, 9), 59);
  EXPECT_EQ(found(pairs, 6, 8), 86);
  EXPECT_EQ(found(pairs, 7, 7), 77);
  EXPECT_EQ(found(pairs, 4, 10), std::nullopt);  // the same slot
}

TEST_F(HashPairsFind, RemovesThePairOfATableThatIsSoMade) {
  const Pairs pairs = new_pairs(10, 1);
  add(pairs, 5, 9, 59);
  EXPECT_EQ(found(pairs, 9, 5), 59);
  EXPECT_EQ(found(pairs, 9, 5), std::nullopt);
}

TEST_F(HashPairsFind, AnswersPresenceAloneInASetOfPairs) {
  const Pairs pairs(qal_hash_pairs_create(10, 4, 0, 0));
  EXPECT_EQ(qal_hash_pairs_add(pairs.get(), 3, 1, nullptr), 0);
  char data = '?';
  EXPECT_EQ(qal_hash_pairs_find(pairs.get(), 1, 3, &data), 1);
  EXPECT_EQ(qal_hash_pairs_find(pairs.get(), 1, 2, &data), 0);
  EXPECT_EQ(qal_hash_pairs_remove(pairs.get(), 1, 3, &data), 0);
  EXPECT_EQ(qal_hash_pairs_remove(pairs.get(), 1, 3, &data), 6);
  EXPECT_EQ(data, '?');
}

TEST_F(HashPairsRemove, AnswersWhatWasNotThere) {
  const Pairs pairs = new_pairs();
  int32_t value = -1;
  EXPECT_EQ(qal_hash_pairs_remove(pairs.get(), 1, 2, &value), 6);
  add(pairs, 1, 3, 13);
  EXPECT_EQ(qal_hash_pairs_remove(pairs.get(), 2, 2, &value), 6);  // the same slot
  EXPECT_EQ(value, -1);
  EXPECT_EQ(removed(pairs, 3, 1), 13);
}

// Deliberate: without a table everything answers 0, which means success to add and remove.
TEST_F(HashPairsFind, AnswersNothingWithoutATable) {
  int32_t value = -1;
  EXPECT_EQ(qal_hash_pairs_add(nullptr, 1, 2, &value), 0);
  EXPECT_EQ(qal_hash_pairs_find(nullptr, 1, 2, &value), 0);
  EXPECT_EQ(qal_hash_pairs_remove(nullptr, 1, 2, &value), 0);
  EXPECT_EQ(value, -1);
}

TEST_F(HashPairsSlot, IsTheMeanTowardZeroModuloTheSlots) {
  EXPECT_EQ(slot_of(5, 9, 10), 7);
  EXPECT_EQ(slot_of(-5, -9, 10), 7);
  EXPECT_EQ(slot_of(1, 2, 10), 1);
  EXPECT_EQ(slot_of(-1, -2, 10), 1);
  EXPECT_EQ(slot_of(0, -1, 10), 0);
  EXPECT_EQ(slot_of(20, 26, 10), 3);
  EXPECT_EQ(slot_of(-20, -26, 10), 3);
  for (const auto &[a, b] : {std::pair{2, 4}, {3, 3}, {1, 5}}) EXPECT_EQ(slot_of(a, b, 10), 3);
}

TEST_F(HashPairsSlot, ComesFromASumThatWraps) {
  EXPECT_EQ(slot_of(INT_MAX, INT_MAX, 10), 1);  // -2 / 2 = -1
  EXPECT_EQ(slot_of(INT_MAX, 1, 1000), 824);    // -2^31 / 2 = -1073741824
  EXPECT_EQ(slot_of(INT_MIN, INT_MIN, 10), 0);
  EXPECT_EQ(slot_of(INT_MIN, -1, 1000), 823);  // 2^31 - 1 halved is 1073741823
  EXPECT_EQ(slot_of(INT_MIN, 0, 1000), 824);
}

// The slot, computed in 64 bits.
int32_t described_slot(int32_t a, int32_t b, int32_t num_slots) {
  int64_t sum = int64_t{a} + b;
  if (sum > INT_MAX) sum -= int64_t{1} << 32;
  if (sum < INT_MIN) sum += int64_t{1} << 32;
  return static_cast<int32_t>(std::abs(sum / 2 % num_slots));
}

TEST_F(HashPairsSlot, IsTheSameForAllCallsAndAlwaysInTheTable) {
  std::mt19937 random(1);
  const auto number = [&random] {
    const auto wide = static_cast<int32_t>(random());
    return random() % 2 ? wide : wide % 100;
  };
  for (int i = 0; i < 3000; ++i) {
    const int32_t a = number();
    const int32_t b = number();
    const auto num_slots = static_cast<int32_t>(random() % 50 + 1);
    const Pairs pairs = new_pairs(num_slots);
    EXPECT_EQ(add(pairs, a, b, i), 0);
    EXPECT_EQ(used_slot(*pairs->table), described_slot(a, b, num_slots)) << a << " " << b;
    EXPECT_EQ(found(pairs, b, a), i);
    EXPECT_EQ(removed(pairs, b, a), i);
  }
}

// The pairs in the order in which they were added; calls find the first one of a key.
class PairsModel {
 public:
  explicit PairsModel(unsigned seed)
      : random_(seed), pairs_(new_pairs(static_cast<int32_t>(seed % 6 + 1), seed % 2)) {}

  void step() {
    const int32_t a = static_cast<int32_t>(random_() % 9) - 4;
    const int32_t b = static_cast<int32_t>(random_() % 9) - 4;
    const auto choice = static_cast<unsigned>(random_() % 100);
    if (choice == 0) {
      qal_hash_pairs_reinit(pairs_.get());
      model_.clear();
    } else if (choice < 45) {
      EXPECT_EQ(add(pairs_, a, b, next_value_), 0);
      model_.emplace_back(std::minmax(a, b), next_value_++);
    } else if (choice < 70) {
      EXPECT_EQ(found(pairs_, a, b), first(a, b, pairs_->remove_on_find != 0));
    } else {
      EXPECT_EQ(removed(pairs_, a, b), first(a, b, true));
    }
  }

  // Every slot holds its own pairs, in the order in which they were added.
  void expect_equal() const {
    const QalHash &table = *pairs_->table;
    for (int32_t slot = 0; slot < table.num_slots; ++slot) {
      const void *record = qal_list_first(table.slots[slot]);
      for (const auto &[key, value] : model_) {
        if (described_slot(key.first, key.second, table.num_slots) != slot) continue;
        ASSERT_NE(record, nullptr);
        EXPECT_EQ(key_at(record), (Key{key.first, key.second}));
        EXPECT_EQ(std::memcmp(static_cast<const char *>(record) + 8, &value, sizeof value), 0);
        record = qal_list_next(record);
      }
      EXPECT_EQ(record, nullptr);
    }
  }

 private:
  std::optional<int32_t> first(int32_t a, int32_t b, bool removes) {
    const std::pair<int32_t, int32_t> key = std::minmax(a, b);
    const auto at = std::find_if(model_.begin(), model_.end(),
                                 [&](const auto &entry) { return entry.first == key; });
    if (at == model_.end()) return {};
    const int32_t value = at->second;
    if (removes) model_.erase(at);
    return value;
  }

  std::mt19937 random_;
  Pairs pairs_;
  std::vector<std::pair<std::pair<int32_t, int32_t>, int32_t>> model_;
  int32_t next_value_ = 1;
};

TEST_F(HashPairs, BehavesAsItsModelOverRandomSequences) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    PairsModel model(seed);
    for (int step = 0; step < 500 && !HasFailure(); ++step) {
      model.step();
      model.expect_equal();
    }
  }
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/hash.h>
#include <qal/startup.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/child.hpp"
#include "support/guarded_room.hpp"
#include "support/log_capture.hpp"
#include "support/pool_model.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::GuardedRoom;
using qal::test::in_child;
using qal::test::in_use;
using qal::test::LogCapture;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::Watchdog;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct DestroyTable {
  void operator()(QalHash *table) const { qal_hash_destroy(&table); }
};
using Table = std::unique_ptr<QalHash, DestroyTable>;

using Record = std::pair<std::string, std::string>;  // key and data
using Records = std::vector<Record>;

// Ten slots of records with keys of 3 bytes and data of 5 by default.
Table new_table(int32_t num_slots = 10, int32_t key_size = 3, int32_t data_size = 5,
                uint32_t remove_on_find = 0, int32_t chunk_count = 4) {
  return Table(qal_hash_create(num_slots, chunk_count, key_size, data_size, remove_on_find));
}

Record record_at(const QalHash &table, const void *payload) {
  const auto *const bytes = static_cast<const char *>(payload);
  const auto key_size = static_cast<std::size_t>(table.key_size);
  return {std::string(bytes, key_size),
          std::string(bytes + key_size, static_cast<std::size_t>(table.data_size))};
}

Records records_in(const Table &table, int32_t slot) {
  Records records;
  for (void *at = qal_list_first(table->slots[slot]); at; at = qal_list_next(at)) {
    records.push_back(record_at(*table, at));
  }
  return records;
}

int add(const Table &table, int32_t slot, const char *key, const char *data) {
  return qal_hash_add(table.get(), slot, key, data);
}

// The data that a call with `data_out` gave, or nothing when the call returned something else.
using Call = int (*)(QalHash *, int32_t, const void *, void *);
std::optional<std::string> data_of(Call call, int wanted, const Table &table, int32_t slot,
                                   const char *key) {
  GuardedRoom data(table->data_size, "");
  const int answer = call(table.get(), slot, key, data.data());
  EXPECT_TRUE(data.guards_are_intact());
  if (answer != wanted) return {};
  return std::string(data.data(), static_cast<std::size_t>(table->data_size));
}

std::optional<std::string> found(const Table &table, int32_t slot, const char *key) {
  return data_of(&qal_hash_find, 1, table, slot, key);
}

std::optional<std::string> removed(const Table &table, int32_t slot, const char *key) {
  return data_of(&qal_hash_remove, 0, table, slot, key);
}

// Sizes that are copied and compared in one step, and others beside them.
constexpr std::array<int32_t, 9> key_sizes{0, 1, 3, 4, 7, 8, 9, 16, 17};
constexpr std::array<int32_t, 6> data_sizes{0, 1, 4, 8, 16, 17};

void for_each_size(const std::function<void(int32_t key_size, int32_t data_size)> &visit) {
  for (const int32_t key_size : key_sizes) {
    for (const int32_t data_size : data_sizes) visit(key_size, data_size);
  }
}

// So many different bytes, counted up from `first`.
std::string bytes_from(char first, int32_t size) {
  std::string bytes;
  for (int32_t i = 0; i < size; ++i) bytes += static_cast<char>(first + i);
  return bytes;
}

class Hash : public testing::Test {
 protected:
  Hash() { qal_utils_init(); }
  ~Hash() override { qal_utils_done(); }
};
using HashCreate = Hash;
using HashDestroy = Hash;
using HashReinit = Hash;
using HashAdd = Hash;
using HashFind = Hash;
using HashRemove = Hash;
using HashMerge = Hash;
using HashSlotTraverse = Hash;
using HashOperations = Hash;
using HashThreads = Hash;

TEST_F(HashCreate, MakesEmptySlotsAndAPoolForTheRecords) {
  const Table table(qal_hash_create(7, 9, 11, 13, 42));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->num_slots, 7);
  EXPECT_EQ(table->chunk_count, 9);
  EXPECT_EQ(table->key_size, 11);
  EXPECT_EQ(table->data_size, 13);
  EXPECT_EQ(table->remove_on_find, 42U);
  for (int slot = 0; slot < 7; ++slot) EXPECT_EQ(table->slots[slot], nullptr);
  ASSERT_NE(table->pool, nullptr);
  EXPECT_EQ(table->pool->element_size, 24U);
  EXPECT_EQ(table->pool->chunk_count, 9U);
  EXPECT_NE(table->pool->use_header_pool, 0);
}

TEST_F(HashCreate, TakesTheSmallestArguments) {
  EXPECT_NE(Table(qal_hash_create(1, 1, 0, 0, 0)), nullptr);
}

TEST_F(HashCreate, RefusesArgumentsOutOfRange) {
  const LogCapture log;
  for (const int32_t bad : {0, -1, INT_MIN}) {
    EXPECT_EQ(qal_hash_create(bad, 1, 8, 8, 0), nullptr);
    EXPECT_EQ(qal_hash_create(1, bad, 8, 8, 0), nullptr);
  }
  for (const int32_t bad : {-1, INT_MIN}) {
    EXPECT_EQ(qal_hash_create(1, 1, bad, 8, 0), nullptr);
    EXPECT_EQ(qal_hash_create(1, 1, 8, bad, 0), nullptr);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(HashCreate, RefusesRecordsThatLeave32Bits) {
  constexpr int32_t largest = 0x7FFFFFE9;  // with a key of 2^31 - 1 bytes and two links
  const Table table(qal_hash_create(1, 1, INT_MAX, largest, 0));
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->pool->element_size, 0xFFFFFFE8U);
  EXPECT_EQ(qal_hash_create(1, 1, INT_MAX, largest + 1, 0), nullptr);
  EXPECT_EQ(qal_hash_create(1, 1, INT_MAX, INT_MAX, 0), nullptr);
}

TEST_F(HashDestroy, ClearsTheHandle) {
  QalHash *table = new_table().release();
  for (int32_t slot = 0; slot < 10; ++slot) qal_hash_add(table, slot, "key", "data");
  qal_hash_destroy(&table);
  EXPECT_EQ(table, nullptr);
  qal_hash_destroy(&table);
  EXPECT_EQ(table, nullptr);
  qal_hash_destroy(nullptr);
}

TEST_F(HashReinit, EmptiesEverySlotAndKeepsTheMemory) {
  const Table table = new_table();
  for (int32_t slot = 0; slot < 10; ++slot) {
    for (int i = 0; i < 3; ++i) add(table, slot, "key", "data");
  }
  void *const chunks = table->pool->element_pool->chunks;
  qal_hash_reinit(table.get());
  for (int32_t slot = 0; slot < 10; ++slot) EXPECT_EQ(table->slots[slot], nullptr);
  EXPECT_EQ(in_use(table->pool->element_pool), 0U);
  EXPECT_EQ(in_use(table->pool->header_pool), 0U);
  for (int i = 0; i < 28; ++i) EXPECT_EQ(add(table, 3, "abc", "data"), 0);
  EXPECT_EQ(table->pool->element_pool->chunks, chunks);
  EXPECT_EQ(records_in(table, 3).size(), 28U);
}

TEST_F(HashReinit, EmptiesTheOnlySlot) {
  const Table table = new_table(1);
  add(table, 0, "key", "data");
  qal_hash_reinit(table.get());
  EXPECT_EQ(table->slots[0], nullptr);
}

TEST_F(HashReinit, LeavesATableOfNothingAlone) {
  qal_hash_reinit(nullptr);
  const Table table = new_table();
  add(table, 0, "key", "data");
  for (const int32_t num_slots : {0, -1, INT_MIN}) {
    table->num_slots = num_slots;
    qal_hash_reinit(table.get());
  }
  table->num_slots = 10;
  EXPECT_EQ(records_in(table, 0).size(), 1U);
}

TEST_F(HashAdd, PutsTheDataRightBehindTheKeyAndTheRecordAtTheEnd) {
  const Table table = new_table();
  EXPECT_EQ(add(table, 2, "abc", "hello"), 0);
  EXPECT_EQ(add(table, 2, "xyz", "world"), 0);
  EXPECT_EQ(std::memcmp(qal_list_first(table->slots[2]), "abchello", 8), 0);
  EXPECT_THAT(records_in(table, 2), ElementsAre(Pair("abc", "hello"), Pair("xyz", "world")));
}

TEST_F(HashAdd, MakesAListOnlyForItsOwnSlot) {
  const Table table = new_table(3);
  add(table, 1, "abc", "hello");
  EXPECT_EQ(table->slots[0], nullptr);
  ASSERT_NE(table->slots[1], nullptr);
  EXPECT_EQ(table->slots[1]->pool, table->pool);
  EXPECT_EQ(table->slots[2], nullptr);
}

TEST_F(HashAdd, KeepsEqualKeysBesideEachOther) {
  const Table table = new_table();
  add(table, 0, "abc", "first");
  add(table, 0, "abc", "secnd");
  EXPECT_EQ(found(table, 0, "abc"), "first");
  EXPECT_EQ(removed(table, 0, "abc"), "first");
  EXPECT_EQ(found(table, 0, "abc"), "secnd");
  EXPECT_EQ(removed(table, 0, "abc"), "secnd");
  EXPECT_EQ(qal_hash_remove(table.get(), 0, "abc", nullptr), 6);
}

TEST_F(HashAdd, TakesEverySlotOfTheTableAndNoOther) {
  const Table table = new_table(4);
  EXPECT_EQ(add(table, 0, "abc", "hello"), 0);
  EXPECT_EQ(add(table, 3, "abc", "hello"), 0);
  for (const int32_t slot : {-1, 4, 5, INT_MIN, INT_MAX}) {
    EXPECT_EQ(add(table, slot, "abc", "hello"), 6) << slot;
  }
  EXPECT_EQ(in_use(table->pool->element_pool), 2U);
}

TEST_F(HashAdd, RefusesMissingBytes) {
  const Table table = new_table();
  EXPECT_EQ(add(table, 0, nullptr, "hello"), 6);
  EXPECT_EQ(add(table, 0, "abc", nullptr), 6);
  EXPECT_EQ(table->slots[0], nullptr);
}

TEST_F(HashAdd, NeedsNoBytesOfSizeZero) {
  const Table table = new_table(1, 0, 0);
  EXPECT_EQ(add(table, 0, nullptr, nullptr), 0);
  EXPECT_EQ(found(table, 0, nullptr), "");
}

TEST_F(HashAdd, FindsNoMemoryForChunksThatLeave32Bits) {
  const LogCapture log;
  Table table = new_table(1, 8, 8, 0, INT_MAX);
  ASSERT_NE(table, nullptr);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(add(table, 0, "the key.", "the data"), 2);
  EXPECT_NE(table->slots[0], nullptr);
  table.reset();
  EXPECT_THAT(log.lines(), IsEmpty());
}

// Deliberate: adding to no table is a success.
TEST_F(HashAdd, SucceedsWithoutATable) {
  EXPECT_EQ(qal_hash_add(nullptr, 0, "abc", "hello"), 0);
  EXPECT_EQ(qal_hash_add(nullptr, -1, nullptr, nullptr), 0);
}

TEST_F(HashFind, ComparesAllBytesOfTheKey) {
  const Table table = new_table();
  qal_hash_add(table.get(), 0, "a\0b", "first");
  qal_hash_add(table.get(), 0, "a\0c", "secnd");
  qal_hash_add(table.get(), 0, "A\0b", "third");
  EXPECT_EQ(found(table, 0, "a\0b"), "first");
  EXPECT_EQ(found(table, 0, "a\0c"), "secnd");
  EXPECT_EQ(found(table, 0, "A\0b"), "third");
  EXPECT_EQ(found(table, 0, "a\0d"), std::nullopt);
  EXPECT_EQ(found(table, 0, "A\0c"), std::nullopt);
}

TEST_F(HashFind, TellsKeysOfEverySizeApartByEachByte) {
  for_each_size([](int32_t key_size, int32_t data_size) {
    const Table table = new_table(1, key_size, data_size);
    const std::string key = bytes_from('a', key_size);
    const std::string data = bytes_from('A', data_size);
    add(table, 0, key.c_str(), data.c_str());
    for (std::size_t place = 0; place < key.size(); ++place) {
      std::string other = key;
      other[place] = '\xff';
      EXPECT_EQ(found(table, 0, other.c_str()), std::nullopt) << key << " at " << place;
      EXPECT_EQ(removed(table, 0, other.c_str()), std::nullopt) << key << " at " << place;
    }
    EXPECT_EQ(found(table, 0, key.c_str()), data);
    EXPECT_EQ(qal_hash_find(table.get(), 0, nullptr, nullptr), key_size == 0 ? 1 : 0) << key_size;
  });
}

TEST_F(HashFind, GivesDataOfEverySizeAsRemoveDoes) {
  for_each_size([](int32_t key_size, int32_t data_size) {
    const std::string key = bytes_from('a', key_size);
    const std::string data = bytes_from('A', data_size);
    for (const uint32_t remove_on_find : {0U, 1U}) {
      const Table table = new_table(1, key_size, data_size, remove_on_find);
      add(table, 0, key.c_str(), data.c_str());
      EXPECT_EQ(found(table, 0, key.c_str()), data);
      EXPECT_EQ(records_in(table, 0).size(), 1U - remove_on_find);
    }
    const Table table = new_table(1, key_size, data_size);
    add(table, 0, key.c_str(), data.c_str());
    EXPECT_EQ(removed(table, 0, key.c_str()), data);
    EXPECT_THAT(records_in(table, 0), IsEmpty());
  });
}

TEST_F(HashFind, LooksIntoItsSlotOnly) {
  const Table table = new_table();
  add(table, 0, "abc", "first");
  add(table, 1, "abc", "secnd");
  EXPECT_EQ(found(table, 0, "abc"), "first");
  EXPECT_EQ(found(table, 1, "abc"), "secnd");
  EXPECT_EQ(found(table, 2, "abc"), std::nullopt);
}

TEST_F(HashFind, WritesNothingUnlessItFinds) {
  const Table table = new_table();
  add(table, 0, "abc", "hello");
  char data[] = "?????";
  EXPECT_EQ(qal_hash_find(table.get(), 0, "xyz", data), 0);
  EXPECT_STREQ(data, "?????");
  removed(table, 0, "abc");
  EXPECT_EQ(qal_hash_find(table.get(), 0, "abc", data), 0);  // an empty list
  EXPECT_STREQ(data, "?????");
}

TEST_F(HashFind, RemovesTheRecordOfATableThatIsSoMade) {
  const Table table = new_table(10, 3, 5, 0x80000000U);
  add(table, 0, "abc", "first");
  add(table, 0, "xyz", "other");
  add(table, 0, "abc", "secnd");
  EXPECT_EQ(found(table, 0, "abc"), "first");
  EXPECT_THAT(records_in(table, 0), ElementsAre(Pair("xyz", "other"), Pair("abc", "secnd")));
  EXPECT_EQ(in_use(table->pool->element_pool), 2U);
  EXPECT_EQ(found(table, 0, "abc"), "secnd");
  EXPECT_EQ(found(table, 0, "abc"), std::nullopt);
  EXPECT_EQ(found(table, 0, "xyz"), "other");
  EXPECT_NE(table->slots[0], nullptr);
}

TEST_F(HashFind, MatchesEveryRecordWithKeysOfNoBytes) {
  const Table table = new_table(1, 0, 5);
  add(table, 0, "", "first");
  add(table, 0, "", "secnd");
  EXPECT_EQ(found(table, 0, "whatever"), "first");
  EXPECT_EQ(removed(table, 0, nullptr), "first");
  EXPECT_EQ(found(table, 0, nullptr), "secnd");
}

TEST_F(HashFind, GivesNoDataOfNoBytes) {
  const Table table = new_table(1, 3, 0);
  add(table, 0, "abc", nullptr);
  char data = '?';
  EXPECT_EQ(qal_hash_find(table.get(), 0, "abc", &data), 1);
  EXPECT_EQ(qal_hash_find(table.get(), 0, "xyz", &data), 0);
  EXPECT_EQ(qal_hash_remove(table.get(), 0, "abc", &data), 0);
  EXPECT_EQ(data, '?');
}

TEST_F(HashFind, TakesNullForDataThatIsNotWanted) {
  const Table table = new_table();
  add(table, 0, "abc", "hello");
  EXPECT_EQ(qal_hash_find(table.get(), 0, "abc", nullptr), 1);
  EXPECT_EQ(qal_hash_find(table.get(), 0, nullptr, nullptr), 0);
}

TEST_F(HashFind, FindsNothingOutsideTheTable) {
  const Table table = new_table(4);
  for (const int32_t slot : {-1, 4, INT_MIN, INT_MAX}) {
    EXPECT_EQ(found(table, slot, "abc"), std::nullopt);
  }
  EXPECT_EQ(qal_hash_find(nullptr, 0, "abc", nullptr), 0);
}

TEST_F(HashFind, TakesUnalignedBytes) {
  const Table table = new_table(1, 7, 8);
  alignas(8) const char bytes[] = ".the keythe data";
  EXPECT_EQ(add(table, 0, bytes + 1, bytes + 8), 0);
  alignas(8) char data[16] = {};
  EXPECT_EQ(qal_hash_find(table.get(), 0, bytes + 1, data + 3), 1);
  EXPECT_EQ(std::string_view(data + 3), "the data");
}

TEST_F(HashRemove, KeepsTheEmptyList) {
  const Table table = new_table();
  add(table, 0, "abc", "hello");
  QalList *const list = table->slots[0];
  removed(table, 0, "abc");
  EXPECT_EQ(table->slots[0], list);
  EXPECT_EQ(qal_list_length(list), 0U);
}

TEST_F(HashRemove, TakesTheFirstOfItsKeyFromBetweenOthers) {
  const Table table = new_table();
  for (const auto &[key, data] : Records{{"a__", "1____"}, {"b__", "2____"}, {"b__", "3____"}}) {
    add(table, 0, key.c_str(), data.c_str());
  }
  EXPECT_EQ(qal_hash_remove(table.get(), 0, "b__", nullptr), 0);
  EXPECT_THAT(records_in(table, 0), ElementsAre(Pair("a__", "1____"), Pair("b__", "3____")));
}

TEST_F(HashRemove, AnswersWhatWasNotThere) {
  const Table table = new_table(4);
  char data[] = "?????";
  for (const int32_t slot : {-1, 4, INT_MIN, INT_MAX, 1}) {  // 1 has no list
    EXPECT_EQ(qal_hash_remove(table.get(), slot, "abc", data), 6) << slot;
  }
  add(table, 1, "abc", "hello");
  EXPECT_EQ(qal_hash_remove(table.get(), 1, "xyz", data), 6);
  EXPECT_EQ(qal_hash_remove(table.get(), 1, nullptr, data), 6);
  EXPECT_EQ(qal_hash_remove(table.get(), 1, "abc", nullptr), 0);
  EXPECT_EQ(qal_hash_remove(table.get(), 1, "abc", data), 6);  // an empty list
  EXPECT_STREQ(data, "?????");
}

// Deliberate: removing from no table is a success.
TEST_F(HashRemove, SucceedsWithoutATable) {
  EXPECT_EQ(qal_hash_remove(nullptr, -1, "abc", nullptr), 0);
}

// What a merge asked its callback, and what that returns.
struct Arguments {
  const void *dst_key;
  void *dst_data;
  void *src_data;
  void *user;
};

struct Verdicts {
  std::vector<Arguments> asked;
  std::function<int(const Arguments &)> answer;
};

int decide(const void *dst_key, void *dst_data, void *src_data, void *user) {
  auto &verdicts = *static_cast<Verdicts *>(user);
  verdicts.asked.push_back({dst_key, dst_data, src_data, user});
  return verdicts.answer(verdicts.asked.back());
}

int merge(const Table &dst, const Table &src, int verdict) {
  Verdicts verdicts{{}, [verdict](const Arguments &) { return verdict; }};
  return qal_hash_merge(dst.get(), src.get(), &decide, &verdicts);
}

void expect_empty(const Table &table) {
  for (int32_t slot = 0; slot < table->num_slots; ++slot) {
    EXPECT_EQ(table->slots[slot], nullptr);
  }
  EXPECT_EQ(in_use(table->pool->element_pool), 0U);
  EXPECT_EQ(in_use(table->pool->header_pool), 0U);
}

// What a slot of the destination holds after a merge with this verdict. The source is empty then.
Records merged(const Records &dst_records, const Records &src_records, int verdict) {
  const Table dst = new_table();
  const Table src = new_table();
  for (const auto &[key, data] : dst_records) add(dst, 0, key.c_str(), data.c_str());
  for (const auto &[key, data] : src_records) add(src, 0, key.c_str(), data.c_str());
  EXPECT_EQ(merge(dst, src, verdict), 0);
  expect_empty(src);
  auto left = records_in(dst, 0);
  EXPECT_EQ(in_use(dst->pool->element_pool), left.size());
  return left;
}

TEST_F(HashMerge, MovesRecordsSlotBySlot) {
  const Table dst = new_table();
  const Table src = new_table();
  add(dst, 0, "abc", "dst_1");
  add(src, 0, "xyz", "src_1");
  add(src, 0, "uvw", "src_2");
  add(src, 9, "abc", "src_3");
  EXPECT_EQ(qal_hash_merge(dst.get(), src.get(), nullptr, nullptr), 0);
  EXPECT_THAT(records_in(dst, 0),
              ElementsAre(Pair("abc", "dst_1"), Pair("xyz", "src_1"), Pair("uvw", "src_2")));
  EXPECT_THAT(records_in(dst, 9), ElementsAre(Pair("abc", "src_3")));
  for (int32_t slot = 1; slot < 9; ++slot) EXPECT_EQ(dst->slots[slot], nullptr);
  expect_empty(src);
  EXPECT_EQ(found(src, 0, "xyz"), std::nullopt);
}

TEST_F(HashMerge, LeavesTheSourceUsable) {
  const Table dst = new_table();
  const Table src = new_table();
  add(src, 1, "abc", "hello");
  merge(dst, src, 1);
  EXPECT_EQ(add(src, 1, "abc", "again"), 0);
  EXPECT_EQ(found(src, 1, "abc"), "again");
  EXPECT_EQ(found(dst, 1, "abc"), "hello");
}

// Deliberate: a slot without a list takes equal keys as they come.
TEST_F(HashMerge, PutsEqualKeysIntoASlotWithoutAList) {
  for (const int verdict : {0, 1, 2}) {
    const Table dst = new_table();
    const Table src = new_table();
    add(src, 0, "abc", "first");
    add(src, 0, "abc", "secnd");
    Verdicts verdicts{{}, [=](const Arguments &) { return verdict; }};
    EXPECT_EQ(qal_hash_merge(dst.get(), src.get(), &decide, &verdicts), 0);
    EXPECT_THAT(records_in(dst, 0), ElementsAre(Pair("abc", "first"), Pair("abc", "secnd")));
    EXPECT_THAT(verdicts.asked, IsEmpty());
  }
}

TEST_F(HashMerge, JudgesEqualKeysOfTheSourceInAnyOtherSlot) {
  const Records dst{{"xyz", "other"}};
  const Records src{{"abc", "first"}, {"abc", "secnd"}};
  EXPECT_EQ(merged(dst, src, 0), dst);
  EXPECT_EQ(merged(dst, src, 1), (Records{{"xyz", "other"}, {"abc", "first"}}));
  EXPECT_EQ(merged(dst, src, 2), (Records{{"xyz", "other"}, {"abc", "secnd"}}));
}

// Deliberate: a list that is only empty is a list.
TEST_F(HashMerge, JudgesEqualKeysInASlotWithAnEmptyList) {
  const Table dst = new_table();
  const Table src = new_table();
  add(dst, 0, "abc", "hello");
  removed(dst, 0, "abc");
  add(src, 0, "abc", "first");
  add(src, 0, "abc", "secnd");
  EXPECT_EQ(merge(dst, src, 1), 0);
  EXPECT_THAT(records_in(dst, 0), ElementsAre(Pair("abc", "first")));
}

TEST_F(HashMerge, KeepsTheDestinationsRecordWithoutACallback) {
  const Table dst = new_table();
  const Table src = new_table();
  add(dst, 0, "abc", "dst_1");
  add(src, 0, "abc", "src_1");
  add(src, 0, "xyz", "src_2");
  add(src, 0, "xyz", "src_3");
  EXPECT_EQ(qal_hash_merge(dst.get(), src.get(), nullptr, nullptr), 0);
  EXPECT_THAT(records_in(dst, 0), ElementsAre(Pair("abc", "dst_1"), Pair("xyz", "src_2")));
}

TEST_F(HashMerge, ShowsTheCallbackBothRecordsInPlace) {
  const Table dst = new_table();
  const Table src = new_table();
  add(dst, 4, "abc", "dst_1");
  add(src, 4, "abc", "src_1");
  auto *const dst_record = static_cast<char *>(qal_list_first(dst->slots[4]));
  auto *const src_record = static_cast<char *>(qal_list_first(src->slots[4]));
  Verdicts verdicts{{}, [](const Arguments &) { return 1; }};
  qal_hash_merge(dst.get(), src.get(), &decide, &verdicts);
  ASSERT_EQ(verdicts.asked.size(), 1U);
  EXPECT_EQ(verdicts.asked[0].dst_key, dst_record);
  EXPECT_EQ(verdicts.asked[0].dst_data, dst_record + 3);
  EXPECT_EQ(verdicts.asked[0].src_data, src_record + 3);
  EXPECT_EQ(verdicts.asked[0].user, &verdicts);
}

TEST_F(HashMerge, AsksSlotBySlotInTheOrderOfTheSource) {
  const Table dst = new_table(3);
  const Table src = new_table(3);
  const Records keys{{"2_b", "fifth"}, {"2_a", "sixth"}, {"1_a", "fourt"},
                     {"0_c", "first"}, {"0_a", "secnd"}, {"0_b", "third"}};
  for (const auto &[key, data] : keys) add(src, key[0] - '0', key.c_str(), data.c_str());
  for (const char *const key : {"0_a", "0_b", "0_c", "1_a", "2_a", "2_b"}) {
    add(dst, key[0] - '0', key, "dst_1");
  }
  std::vector<std::string> asked;
  Verdicts verdicts{{}, [&asked](const Arguments &arguments) {
                      asked.emplace_back(static_cast<const char *>(arguments.src_data), 5);
                      return 1;
                    }};
  EXPECT_EQ(qal_hash_merge(dst.get(), src.get(), &decide, &verdicts), 0);
  EXPECT_THAT(asked, ElementsAre("first", "secnd", "third", "fourt", "fifth", "sixth"));
}

TEST_F(HashMerge, AsksAboutTheFirstRecordOfTheKey) {
  EXPECT_EQ(merged({{"abc", "first"}, {"abc", "secnd"}}, {{"abc", "src_1"}}, 2),
            (Records{{"abc", "src_1"}, {"abc", "secnd"}}));
}

TEST_F(HashMerge, KeepsTheDestinationsRecordForOtherVerdicts) {
  const Records dst{{"abc", "dst_1"}};
  for (const int verdict : {1, 3, -1, -2, INT_MIN, INT_MAX}) {
    EXPECT_EQ(merged(dst, {{"abc", "src_1"}}, verdict), dst) << verdict;
  }
}

TEST_F(HashMerge, LetsTheCallbackChangeTheData) {
  for (const int verdict : {1, 2}) {
    const Table dst = new_table();
    const Table src = new_table();
    add(dst, 0, "abc", "dst_1");
    add(src, 0, "abc", "src_1");
    Verdicts verdicts{{}, [verdict](const Arguments &arguments) {
                        std::memcpy(arguments.dst_data, "dst_2", 5);
                        std::memcpy(arguments.src_data, "src_2", 5);
                        return verdict;
                      }};
    qal_hash_merge(dst.get(), src.get(), &decide, &verdicts);
    EXPECT_THAT(records_in(dst, 0), ElementsAre(Pair("abc", verdict == 2 ? "src_2" : "dst_2")));
  }
}

TEST_F(HashMerge, RemovesTheKeyForVerdict0AndHandsItsDataToTheSource) {
  const Table dst = new_table();
  const Table src = new_table();
  add(dst, 0, "abc", "dst_1");
  add(src, 0, "abc", "src_1");
  Verdicts verdicts{{}, [](const Arguments &) { return 0; }};
  qal_hash_merge(dst.get(), src.get(), &decide, &verdicts);
  EXPECT_THAT(records_in(dst, 0), IsEmpty());
  EXPECT_NE(dst->slots[0], nullptr);
  EXPECT_EQ(in_use(dst->pool->element_pool), 0U);
  // The source's element is free by now, but its payload stands as it was left.
  ASSERT_EQ(verdicts.asked.size(), 1U);
  EXPECT_EQ(std::memcmp(verdicts.asked[0].src_data, "dst_1", 5), 0);
}

TEST_F(HashMerge, SettlesRecordsOfEverySize) {
  for_each_size([](int32_t key_size, int32_t data_size) {
    const std::string key = bytes_from('a', key_size);
    const std::string dst_data = bytes_from('A', data_size);
    const std::string src_data = bytes_from('0', data_size);
    for (const int verdict : {0, 2}) {
      const Table dst = new_table(1, key_size, data_size);
      const Table src = new_table(1, key_size, data_size);
      add(dst, 0, key.c_str(), dst_data.c_str());
      add(dst, 0, key.c_str(), dst_data.c_str());
      add(src, 0, key.c_str(), src_data.c_str());
      const void *const left = qal_list_first(src->slots[0]);
      EXPECT_EQ(merge(dst, src, verdict), 0);
      Records expected{{key, dst_data}};
      if (verdict == 2) expected.insert(expected.begin(), {key, src_data});
      EXPECT_EQ(records_in(dst, 0), expected);
      EXPECT_EQ(record_at(*src, left), Record(key, verdict == 2 ? src_data : dst_data));
    }
  });
}

TEST_F(HashMerge, AddsAKeyAgainThatAnEarlierRecordTookAway) {
  EXPECT_EQ(merged({{"abc", "dst_1"}}, {{"abc", "src_1"}, {"abc", "src_2"}}, 0),
            (Records{{"abc", "src_2"}}));
}

TEST_F(HashMerge, RefusesTablesThatDiffer) {
  const Table dst = new_table(10, 3, 5);
  add(dst, 0, "abc", "dst_1");
  const struct {
    int32_t num_slots, key_size, data_size;
  } others[] = {{9, 3, 5}, {11, 3, 5}, {10, 2, 5}, {10, 4, 5}, {10, 3, 4}, {10, 3, 6}};
  for (const auto &[num_slots, key_size, data_size] : others) {
    const Table src = new_table(num_slots, key_size, data_size);
    add(src, 0, "xyz_", "src_11");
    const Records before = records_in(src, 0);
    EXPECT_EQ(qal_hash_merge(dst.get(), src.get(), nullptr, nullptr), 6);
    EXPECT_EQ(records_in(src, 0), before);
    EXPECT_THAT(records_in(dst, 0), ElementsAre(Pair("abc", "dst_1")));
  }
}

TEST_F(HashMerge, RefusesNone) {
  const Table table = new_table();
  add(table, 0, "abc", "hello");
  EXPECT_EQ(qal_hash_merge(nullptr, table.get(), nullptr, nullptr), 6);
  EXPECT_EQ(qal_hash_merge(table.get(), nullptr, nullptr, nullptr), 6);
  EXPECT_EQ(qal_hash_merge(nullptr, nullptr, nullptr, nullptr), 6);
  EXPECT_EQ(records_in(table, 0).size(), 1U);
}

TEST_F(HashMerge, TakesTablesOfOtherChunksAndOtherFinding) {
  const Table dst = new_table(10, 3, 5, 1, 2);
  const Table src = new_table(10, 3, 5, 0, 7);
  add(dst, 0, "abc", "dst_1");
  add(src, 0, "abc", "src_1");
  add(src, 0, "xyz", "src_2");
  EXPECT_EQ(merge(dst, src, 1), 0);
  EXPECT_THAT(records_in(dst, 0), ElementsAre(Pair("abc", "dst_1"), Pair("xyz", "src_2")));
}

TEST_F(HashMerge, ChangesNothingInATableMergedWithItself) {
  const Table table = new_table();
  add(table, 0, "abc", "first");
  add(table, 0, "abc", "secnd");
  EXPECT_EQ(merge(table, table, 0), 0);
  EXPECT_THAT(records_in(table, 0), ElementsAre(Pair("abc", "first"), Pair("abc", "secnd")));
}

std::string traversed(const Table &table, int32_t slot) {
  const auto result = in_child([&] { qal_hash_slot_traverse(table.get(), slot); });
  EXPECT_EQ(result.out, "");
  return result.err;
}

std::string bucket_line(const Table &table, int32_t slot) {
  char line[100];
  std::snprintf(line, sizeof line, "HashBucket[%d] list=%p\n", slot,
                static_cast<void *>(table->slots[slot]));
  return line;
}

TEST_F(HashSlotTraverse, PrintsTheKeysOfASlot) {
  const Table table = new_table(10, 2, 5);
  qal_hash_add(table.get(), 7, "\x01\xab", "hello");
  qal_hash_add(table.get(), 7, "\xff\x00", "world");
  qal_hash_add(table.get(), 6, "\x11\x22", "other");
  EXPECT_EQ(traversed(table, 7), bucket_line(table, 7) + "   id=0x01ab\n   id=0xff00\n");
}

TEST_F(HashSlotTraverse, PrintsOneLineForASlotWithoutRecords) {
  const Table table = new_table();
  EXPECT_EQ(traversed(table, 9), bucket_line(table, 9));
  add(table, 9, "abc", "hello");
  removed(table, 9, "abc");
  EXPECT_EQ(traversed(table, 9), bucket_line(table, 9));
}

TEST_F(HashSlotTraverse, PrintsKeysOfNoBytesAsNone) {
  const Table table = new_table(1, 0, 5);
  add(table, 0, nullptr, "hello");
  EXPECT_EQ(traversed(table, 0), bucket_line(table, 0) + "   id=0x\n");
}

TEST_F(HashSlotTraverse, PrintsNothingOutsideTheTable) {
  const Table table = new_table(4);
  for (const int32_t slot : {-1, 4, INT_MIN, INT_MAX}) EXPECT_EQ(traversed(table, slot), "");
  EXPECT_EQ(traversed(nullptr, 0), "");
}

// Two tables beside vectors of their records.
class HashModel {
 public:
  explicit HashModel(unsigned seed) : random_(seed) {
    const int32_t key_size = key_sizes[seed % key_sizes.size()];
    const int32_t data_size = data_sizes[seed / key_sizes.size() % data_sizes.size()];
    for (std::size_t i = 0; i < 2; ++i) {
      tables_[i] = new_table(slot_count, key_size, data_size, static_cast<uint32_t>(i),
                             static_cast<int32_t>(seed % 5 + i + 1));
    }
  }

  void step() {
    const std::size_t at = random_() % 2;
    const auto slot = static_cast<std::size_t>(random_() % slot_count);
    const auto choice = static_cast<unsigned>(random_() % 64);
    if (choice == 0) return reinit(at);
    if (choice < 4) return merge_into(at);
    if (choice < 36) return add_one(at, slot);
    if (choice < 50) return find(at, slot);
    return remove(at, slot);
  }

  void expect_equal() const {
    for (std::size_t at = 0; at < 2; ++at) {
      std::size_t records = 0;
      std::size_t lists = 0;
      for (std::size_t slot = 0; slot < slot_count; ++slot) {
        const auto &expected = model_[at][slot];
        EXPECT_EQ(records_in(tables_[at], static_cast<int32_t>(slot)),
                  expected.value_or(Records{}));
        EXPECT_EQ(tables_[at]->slots[slot] != nullptr, expected.has_value());
        records += expected.value_or(Records{}).size();
        lists += expected.has_value() ? 1 : 0;
      }
      EXPECT_EQ(in_use(tables_[at]->pool->element_pool), records);
      EXPECT_EQ(in_use(tables_[at]->pool->header_pool), lists);
    }
  }

 private:
  static constexpr std::size_t slot_count = 5;
  using Slots = std::array<std::optional<Records>, slot_count>;

  // Few texts, so that equal keys meet, which differ in the first byte or in the last.
  std::string text(int32_t size) {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    if (bytes.empty()) return bytes;
    (random_() % 2 ? bytes.front() : bytes.back()) = static_cast<char>(random_() % 3);
    return bytes;
  }

  static Records::iterator with_key(Records &records, const std::string &key) {
    return std::find_if(records.begin(), records.end(),
                        [&](const Record &record) { return record.first == key; });
  }

  void add_one(std::size_t at, std::size_t slot) {
    const Record record{text(tables_[at]->key_size), text(tables_[at]->data_size)};
    EXPECT_EQ(qal_hash_add(tables_[at].get(), static_cast<int32_t>(slot), record.first.data(),
                           record.second.data()),
              0);
    if (!model_[at][slot]) model_[at][slot].emplace();
    model_[at][slot]->push_back(record);
  }

  // Calls find or remove, and returns what the model has for the key.
  void look_up(std::size_t at, std::size_t slot, Call call, int hit, int miss, bool removes) {
    const std::string key = text(tables_[at]->key_size);
    std::string data(static_cast<std::size_t>(tables_[at]->data_size), '?');
    std::string expected = data;
    int wanted = miss;
    if (model_[at][slot]) {
      Records &records = *model_[at][slot];
      if (const auto record = with_key(records, key); record != records.end()) {
        wanted = hit;
        expected = record->second;
        if (removes) records.erase(record);
      }
    }
    EXPECT_EQ(call(tables_[at].get(), static_cast<int32_t>(slot), key.data(), data.data()), wanted);
    EXPECT_EQ(data, expected);
  }

  void find(std::size_t at, std::size_t slot) {
    look_up(at, slot, &qal_hash_find, 1, 0, tables_[at]->remove_on_find != 0);
  }

  void remove(std::size_t at, std::size_t slot) { look_up(at, slot, &qal_hash_remove, 0, 6, true); }

  void reinit(std::size_t at) {
    qal_hash_reinit(tables_[at].get());
    model_[at] = Slots{};
  }

  // A verdict that depends on nothing but the two data parts.
  static int verdict(const Record &dst, const std::string &src_data) {
    return static_cast<int>(std::hash<std::string>{}(dst.first + dst.second + src_data) % 4);
  }

  void merge_into(std::size_t at) {
    const Table &dst = tables_[at];
    const bool asks = random_() % 4 != 0;
    Verdicts verdicts{{}, [&](const Arguments &arguments) {
                        const auto size = static_cast<std::size_t>(dst->data_size);
                        return verdict(record_at(*dst, arguments.dst_key),
                                       std::string(static_cast<char *>(arguments.src_data), size));
                      }};
    EXPECT_EQ(qal_hash_merge(dst.get(), tables_[1 - at].get(), asks ? &decide : nullptr, &verdicts),
              0);
    for (std::size_t slot = 0; slot < slot_count; ++slot) {
      if (model_[1 - at][slot]) merge_slot(model_[at][slot], *model_[1 - at][slot], asks);
    }
    model_[1 - at] = Slots{};
  }

  static void merge_slot(std::optional<Records> &dst, const Records &src, bool asks) {
    // Every list was made by adding, so even an emptied source slot leaves `dst` without a list.
    if (!dst) {
      if (!src.empty()) dst = src;
      return;
    }
    for (const Record &record : src) {
      const auto twin = with_key(*dst, record.first);
      if (twin == dst->end()) {
        dst->push_back(record);
        continue;
      }
      const int answer = asks ? verdict(*twin, record.second) : 1;
      if (answer == 2) twin->second = record.second;
      if (answer == 0) dst->erase(twin);
    }
  }

  std::mt19937 random_;
  std::array<Table, 2> tables_;
  std::array<Slots, 2> model_;
};

TEST_F(HashOperations, BehaveAsVectorsOfRecordsOverRandomSequences) {
  for (unsigned seed = 0; seed < key_sizes.size() * data_sizes.size(); ++seed) {
    HashModel model(seed);
    for (int step = 0; step < 400 && !HasFailure(); ++step) {
      model.step();
      model.expect_equal();
    }
  }
}

TEST_F(HashThreads, UseTablesOfTheirOwn) {
  const Watchdog watchdog;
  run_together(4, [](int thread) {
    const Table table = new_table(4, sizeof(int), sizeof(int));
    for (int i = 0; i < repetitions(4000); ++i) {
      const int data = i * 4 + thread;
      EXPECT_EQ(qal_hash_add(table.get(), i % 4, &i, &data), 0);
      int found_data = -1;
      EXPECT_EQ(qal_hash_find(table.get(), i % 4, &i, &found_data), 1);
      EXPECT_EQ(found_data, data);
      if (i < 20) continue;
      const int old = i - 20;
      EXPECT_EQ(qal_hash_remove(table.get(), old % 4, &old, &found_data), 0);
      EXPECT_EQ(found_data, old * 4 + thread);
    }
  });
}

}  // namespace

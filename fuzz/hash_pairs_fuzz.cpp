// Tables of pairs beside a map. An input is the shape of the table and a row of operations, each a
// byte, two integers and a value.
#include <qal/hash.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "input.hpp"
#include "require.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::require;

using Key = std::pair<int32_t, int32_t>;  // in ascending order
using Value = std::uint8_t;
using Model = std::map<Key, std::deque<Value>>;  // the values of a key in the order of their adding

// Few enough to meet again, with those whose sums wrap around; now and then any.
int32_t integer(Input &input) {
  constexpr std::array<int32_t, 12> usual{0,  1,  2,       3,       4,           -1,
                                          -2, -3, INT_MAX, INT_MIN, INT_MAX - 1, INT_MIN + 1};
  const std::size_t choice = input.below(usual.size() + 1);
  return choice < usual.size() ? usual[choice] : input.integer();
}

// Pairs with one mean share a slot.
int32_t slot_of(const Key &key, int32_t num_slots) {
  const auto sum = static_cast<int32_t>(std::int64_t{key.first} + key.second);
  const std::int64_t slot = std::int64_t{sum} / 2 % num_slots;
  return static_cast<int32_t>(slot < 0 ? -slot : slot);
}

// The first value of a key, taken out if it is to be removed.
std::optional<Value> first(Model &model, const Key &key, bool removes) {
  auto &values = model[key];
  if (values.empty()) return {};
  const Value value = values.front();
  if (removes) values.pop_front();
  return value;
}

void look_up(QalHashPairs *pairs, Model &model, int32_t a, int32_t b, bool removes) {
  Value value = 0;
  const auto call = removes ? &qal_hash_pairs_remove : &qal_hash_pairs_find;
  const int status = call(pairs, a, b, &value);
  const auto expected = first(model, std::minmax(a, b), removes || pairs->remove_on_find);
  const int miss = removes ? 6 : 0;
  require(status == (expected ? 1 - removes : miss), "a pair is found as in the model");
  require(value == expected.value_or(0), "its first value is handed over");
}

void perform(QalHashPairs *pairs, Model &model, Input &input) {
  const std::size_t operation = input.below(6);
  const int32_t a = integer(input);
  const int32_t b = integer(input);
  const Value value = input.byte();
  switch (operation) {
    case 0:
      qal_hash_pairs_reinit(pairs);
      return model.clear();
    case 1:
      return look_up(pairs, model, a, b, false);
    case 2:
      return look_up(pairs, model, a, b, true);
    default:
      require(qal_hash_pairs_add(pairs, a, b, &value) == 0, "a pair is added");
      model[std::minmax(a, b)].push_back(value);
  }
}

// Every record of the table in the slot of its key.
Model records_of(const QalHash &table) {
  Model records;
  for (int32_t slot = 0; slot < table.num_slots; ++slot) {
    for (void *at = qal_list_first(table.slots[slot]); at; at = qal_list_next(at)) {
      std::array<int32_t, 2> key{};
      std::memcpy(key.data(), at, sizeof key);
      require(slot_of({key[0], key[1]}, table.num_slots) == slot, "a pair lies in its slot");
      records[{key[0], key[1]}].push_back(static_cast<Value *>(at)[sizeof key]);
    }
  }
  return records;
}

void compare(const QalHashPairs &pairs, Model &model) {
  std::erase_if(model, [](const auto &entry) { return entry.second.empty(); });
  require(records_of(*pairs.table) == model, "the table holds the model's pairs");
}

void use_no_table(int32_t a, int32_t b) {
  Value value = 7;
  qal_hash_pairs_reinit(nullptr);
  require(qal_hash_pairs_add(nullptr, a, b, &value) == 0, "adding to no table is no failure");
  require(qal_hash_pairs_find(nullptr, a, b, &value) == 0, "nothing is found in no table");
  require(qal_hash_pairs_remove(nullptr, a, b, &value) == 0, "nothing is to be removed from it");
  require(value == 7, "no table hands nothing over");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  const auto num_slots = static_cast<int32_t>(input.byte()) - 4;
  const auto chunk_count = static_cast<int32_t>(input.below(8));
  QalHashPairs *pairs = qal_hash_pairs_create(num_slots, chunk_count, sizeof(Value), input.flag());
  require((pairs != nullptr) == (num_slots >= 1 && chunk_count >= 1), "a table has a shape");
  if (!pairs) {
    use_no_table(input.integer(), input.integer());
    return 0;
  }
  Model model;
  while (input.left()) {
    perform(pairs, model, input);
    compare(*pairs, model);
  }
  qal_hash_pairs_destroy(&pairs);
  require(!pairs, "the handle of a table that ended is none");
  return 0;
}

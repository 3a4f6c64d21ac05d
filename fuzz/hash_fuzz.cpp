// Tables beside vectors of their records. An input is the shape of the tables and a row of
// operations, each a byte and its arguments.
#include <qal/hash.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "error_text.hpp"
#include "input.hpp"
#include "require.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::printed_by;
using qal::fuzz::require;

// Either may be a null pointer.
struct Argument {
  std::optional<std::string> key, data;
};

struct Record {
  std::string key, data;
  bool operator==(const Record &) const = default;
};
using Records = std::vector<Record>;
using Slots = std::vector<std::optional<Records>>;  // each none until its first record

const char *bytes_of(const std::optional<std::string> &text) {
  return text ? text->data() : nullptr;
}

// A merge's answers, given in turns, and what it asked.
struct Verdicts {
  std::array<int, 4> answers{};
  std::vector<std::array<std::string, 3>> asked;

  int next(const std::string &key, const std::string &dst_data, const std::string &src_data) {
    asked.push_back({key, dst_data, src_data});
    return answers[(asked.size() - 1) % answers.size()];
  }
};

// A table and its model. A null table is an argument, too.
class Tested {
 public:
  Tested() = default;
  Tested(int32_t slots, int32_t key_size, int32_t data_size, bool remove_on_find,
         int32_t chunk_count)
      : table_(qal_hash_create(slots, chunk_count, key_size, data_size, remove_on_find)),
        model_(static_cast<std::size_t>(slots)) {
    require(table_, "a table can be made");
  }
  Tested(Tested &&other) noexcept
      : table_(std::exchange(other.table_, nullptr)), model_(std::move(other.model_)) {}
  Tested &operator=(Tested &&) = delete;
  ~Tested() {
    if (table_) check_pools();
    qal_hash_destroy(&table_);
    require(!table_, "the handle of a table that ended is none");
  }

  Argument argument(Input &input) const {
    return {text(input, table_ ? table_->key_size : 0),
            text(input, table_ ? table_->data_size : 0)};
  }
  // One too small and one too large among them.
  int32_t slot(Input &input) const {
    return static_cast<int32_t>(input.below(model_.size() + 2)) - 1;
  }

  void add(int32_t slot, const Argument &with) {
    const int status = qal_hash_add(table_, slot, bytes_of(with.key), bytes_of(with.data));
    if (!table_) return require(status == 0, "adding to no table is no failure");
    const bool complete =
        (with.key || table_->key_size == 0) && (with.data || table_->data_size == 0);
    if (!has(slot) || !complete) return require(status == 6, "adding refuses bad arguments");
    require(status == 0, "a record is added");
    auto &records = model_[static_cast<std::size_t>(slot)];
    if (!records) records.emplace();
    records->push_back({with.key.value_or(""), with.data.value_or("")});
  }

  void find(int32_t slot, const Argument &with) {
    look_up(qal_hash_find, slot, with, {1, 0, 0}, table_ && table_->remove_on_find);
  }
  void remove(int32_t slot, const Argument &with) {
    look_up(qal_hash_remove, slot, with, {0, 6, 0}, true);
  }

  void reinit() {
    qal_hash_reinit(table_);
    model_ = Slots(model_.size());
  }

  void merge(Tested &src, Verdicts verdicts, bool asks) {
    Verdicts expected = verdicts;
    current_ = table_;
    const int status = qal_hash_merge(table_, src.table_, asks ? &decide : nullptr, &verdicts);
    if (!alike(src)) return require(status == 6, "unlike tables are not merged");
    require(status == 0, "tables of one shape are merged");
    if (&src != this) merge_model(src, expected, asks);
    require(verdicts.asked == expected.asked, "a merge asks about every equal key, in order");
  }

  void traverse(int32_t slot) const {
    const std::string text = printed_by([&] { qal_hash_slot_traverse(table_, slot); });
    if (!table_ || !has(slot)) return require(text.empty(), "nothing is printed of no slot");
    const std::string expected = printed_by([&] { print_slot(slot); });
    require(text == expected, "the keys of a slot are printed");
  }

  void compare() const {
    for (std::size_t slot = 0; slot < model_.size(); ++slot) {
      const QalList *const list = table_->slots[slot];
      require((list != nullptr) == model_[slot].has_value(),
              "a slot has a list from its first add");
      Records records;
      for (void *at = qal_list_first(list); at; at = qal_list_next(at)) {
        records.push_back(record_at(*table_, at));
      }
      require(records == model_[slot].value_or(Records{}), "a slot holds the model's records");
    }
  }

 private:
  struct Answers {
    int hit, miss, no_table;
  };
  using Call = int (*)(QalHash *, int32_t, const void *, void *);

  // Few texts, so that equal keys meet; they differ in the first byte, in the last or in both.
  static std::optional<std::string> text(Input &input, int32_t size) {
    const std::size_t letter = input.below(9);
    if (letter == 8) return {};
    std::string bytes(static_cast<std::size_t>(size), 'k');
    if (bytes.empty()) return bytes;
    bytes.back() = static_cast<char>(letter / 4);
    bytes.front() = static_cast<char>(bytes.front() ^ static_cast<char>(letter % 4));
    return bytes;
  }

  static Record record_at(const QalHash &table, const void *at) {
    const auto *const key = static_cast<const char *>(at);
    const char *const data = key + table.key_size;
    return {{key, data}, {data, data + table.data_size}};
  }

  void print_slot(int32_t slot) const {
    void *const list = table_->slots[slot];
    std::fprintf(stderr, "HashBucket[%d] list=%p\n", slot, list);
    for (const Record &record : model_[static_cast<std::size_t>(slot)].value_or(Records{})) {
      std::fputs("   id=0x", stderr);
      for (const char byte : record.key) std::fprintf(stderr, "%02x", byte & 0xFF);
      std::fputc('\n', stderr);
    }
  }

  static std::string data_at(const void *data) {
    return {static_cast<const char *>(data), static_cast<std::size_t>(current_->data_size)};
  }
  static int decide(const void *dst_key, void *dst_data, void *src_data, void *user) {
    return static_cast<Verdicts *>(user)->next(record_at(*current_, dst_key).key, data_at(dst_data),
                                               data_at(src_data));
  }

  bool has(int32_t slot) const {
    return slot >= 0 && static_cast<std::size_t>(slot) < model_.size();
  }

  bool alike(const Tested &other) const {
    return table_ && other.table_ && table_->num_slots == other.table_->num_slots &&
           table_->key_size == other.table_->key_size &&
           table_->data_size == other.table_->data_size;
  }

  static Records::iterator with_key(Records &records, const std::string &key) {
    return std::ranges::find(records, key, &Record::key);
  }

  // What the model has first for a key, and takes out if it is to be removed.
  std::optional<Record> model_look_up(int32_t slot, const std::optional<std::string> &key,
                                      bool removes) {
    if (!has(slot) || (!key && table_->key_size > 0)) return {};
    auto &records = model_[static_cast<std::size_t>(slot)];
    if (!records) return {};
    const auto at = with_key(*records, key.value_or(""));
    if (at == records->end()) return {};
    const Record record = *at;
    if (removes) records->erase(at);
    return record;
  }

  // A data argument of none stands for a caller that does not want the data.
  void look_up(Call call, int32_t slot, const Argument &with, Answers answers, bool removes) {
    std::optional<std::string> out = with.data;
    const int status = call(table_, slot, bytes_of(with.key), out ? out->data() : nullptr);
    if (!table_) return require(status == answers.no_table, "no table has its own answer");
    const std::optional<Record> record = model_look_up(slot, with.key, removes);
    require(status == (record ? answers.hit : answers.miss), "a key is found as in the model");
    require(out == (record && out ? std::optional(record->data) : with.data),
            "data is handed over if there is a record");
  }

  void merge_model(Tested &src, Verdicts &verdicts, bool asks) {
    for (std::size_t slot = 0; slot < model_.size(); ++slot) {
      const Records from = src.model_[slot].value_or(Records{});
      if (model_[slot]) {
        for (const Record &record : from) settle(*model_[slot], record, verdicts, asks);
      } else if (!from.empty()) {
        model_[slot] = from;
      }
    }
    src.model_ = Slots(model_.size());
  }

  static void settle(Records &records, const Record &record, Verdicts &verdicts, bool asks) {
    const auto twin = with_key(records, record.key);
    if (twin == records.end()) return records.push_back(record);
    const int answer = asks ? verdicts.next(twin->key, twin->data, record.data) : 1;
    if (answer == 2) twin->data = record.data;
    if (answer == 0) records.erase(twin);
  }

  void check_pools() const {
    std::size_t lists = 0;
    std::size_t records = 0;
    for (const auto &slot : model_) {
      lists += slot.has_value();
      records += slot.value_or(Records{}).size();
    }
    require(in_use(table_->pool->element_pool) == records, "no record is lost");
    require(in_use(table_->pool->header_pool) == lists, "no list is lost");
  }

  static std::size_t in_use(QalMpool *pool) {
    uint32_t total = 0;
    const uint32_t free_count = qal_mpool_status(pool, &total, nullptr);
    return total - free_count;
  }

  static inline const QalHash *current_ = nullptr;  // whose merge asks

  QalHash *table_ = nullptr;
  Slots model_;
};

// Among them the sizes whose copies and comparisons the library compiles inline.
constexpr std::array<int32_t, 12> key_sizes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 17};
constexpr std::array<int32_t, 6> data_sizes = {0, 1, 3, 4, 8, 16};

// Two tables alike, one that differs, and none.
std::vector<Tested> tables_of(Input &input) {
  const auto slots = static_cast<int32_t>(input.below(4) + 1);
  const int32_t key_size = key_sizes[input.below(key_sizes.size())];
  const int32_t data_size = data_sizes[input.below(data_sizes.size())];
  const auto chunk_count = static_cast<int32_t>(input.below(5) + 1);
  std::vector<Tested> tables;
  tables.emplace_back(slots, key_size, data_size, false, chunk_count);
  tables.emplace_back(slots, key_size, data_size, true, chunk_count);
  tables.emplace_back(slots, key_size, data_size + 1, false, chunk_count);
  tables.emplace_back();
  return tables;
}

void perform(std::vector<Tested> &tables, Input &input) {
  const std::size_t operation = input.below(8);
  Tested &table = tables[input.below(tables.size())];
  switch (operation) {
    case 0:
      return table.reinit();
    case 1: {
      Tested &src = tables[input.below(tables.size())];
      Verdicts verdicts;
      for (int &answer : verdicts.answers) answer = static_cast<int>(input.below(4));
      return table.merge(src, verdicts, input.flag());
    }
    case 2:
      return table.traverse(table.slot(input));
    default:
      break;
  }
  const int32_t slot = table.slot(input);
  const Argument argument = table.argument(input);
  if (operation == 3) return table.find(slot, argument);
  if (operation == 4) return table.remove(slot, argument);
  table.add(slot, argument);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  std::vector<Tested> tables = tables_of(input);
  while (input.left()) {
    perform(tables, input);
    for (const Tested &table : tables) table.compare();
  }
  return 0;
}

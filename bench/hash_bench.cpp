// The tables beside those of C++, Boost, Abseil and GLib: records of eight bytes of key and eight
// of data, as many slots as records.
#include <absl/container/node_hash_map.h>
#include <glib.h>
#include <qal/hash.h>
#include <qal/startup.h>

#include <algorithm>
#include <boost/unordered_map.hpp>
#include <cstddef>
#include <cstdint>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

#include "rows.hpp"

namespace {

using benchmark::State;
using qal::bench::curve;
using qal::bench::row;
using Key = std::uint64_t;
using Keys = std::vector<Key>;
using Pair = std::pair<std::int32_t, std::int32_t>;
using Pairs = std::vector<Pair>;

constexpr std::size_t record_count = 1024;
constexpr std::int32_t records_per_chunk = 1000;

class Table {
 public:
  explicit Table(std::size_t count) : slots_(static_cast<std::int32_t>(count)) {
    qal_utils_init();
    table_ = qal_hash_create(slots_, records_per_chunk, sizeof(Key), sizeof(Key), 0);
  }
  ~Table() { qal_hash_destroy(&table_); }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  void add(Key key) { qal_hash_add(table_, slot_of(key), &key, &key); }
  bool find(Key key) {
    Key data = 0;
    const bool found = qal_hash_find(table_, slot_of(key), &key, &data) == 1;
    benchmark::DoNotOptimize(data);
    return found;
  }
  void remove(Key key) {
    Key data = 0;
    qal_hash_remove(table_, slot_of(key), &key, &data);
  }

 private:
  // The keys are random and the number of slots a power of two.
  std::int32_t slot_of(Key key) const {
    return static_cast<std::int32_t>(key & (static_cast<Key>(slots_) - 1));
  }

  std::int32_t slots_;
  QalHash *table_;
};

template <typename Map>
class Peer {
 public:
  explicit Peer(std::size_t count) { map_.reserve(count); }
  void add(const typename Map::key_type &key) { map_.emplace(key, Key{1}); }
  bool find(const typename Map::key_type &key) {
    const auto found = map_.find(key);
    if (found == map_.end()) return false;
    benchmark::DoNotOptimize(found->second);
    return true;
  }
  void remove(const typename Map::key_type &key) { map_.erase(key); }

 private:
  Map map_;
};

class Glib {
 public:
  explicit Glib(std::size_t) {}
  ~Glib() { g_hash_table_destroy(table_); }
  Glib(const Glib &) = delete;
  Glib &operator=(const Glib &) = delete;

  void add(Key key) { g_hash_table_insert(table_, GSIZE_TO_POINTER(key), GSIZE_TO_POINTER(key)); }
  bool find(Key key) {
    void *data = nullptr;
    const bool found =
        g_hash_table_lookup_extended(table_, GSIZE_TO_POINTER(key), nullptr, &data) != 0;
    benchmark::DoNotOptimize(data);
    return found;
  }
  void remove(Key key) { g_hash_table_remove(table_, GSIZE_TO_POINTER(key)); }

 private:
  GHashTable *table_ = g_hash_table_new(g_direct_hash, g_direct_equal);
};

// The floor: the slot of a key is its record.
class Direct {
 public:
  explicit Direct(std::size_t count) : records_(count) {}
  void add(Key key) { record_of(key) = {key, key}; }
  bool find(Key key) {
    const auto [held, data] = record_of(key);
    benchmark::DoNotOptimize(data);
    return held == key;
  }
  void remove(Key key) { record_of(key) = {}; }

 private:
  // The number of records is a power of two.
  std::pair<Key, Key> &record_of(Key key) { return records_[key & (records_.size() - 1)]; }

  std::vector<std::pair<Key, Key>> records_;
};

using Standard = Peer<std::unordered_map<Key, Key>>;
using Boost = Peer<boost::unordered_map<Key, Key>>;
using Abseil = Peer<absl::node_hash_map<Key, Key>>;

Keys random_keys(std::size_t count, unsigned seed) {
  std::mt19937_64 random(seed);
  Keys keys(count);
  std::generate(keys.begin(), keys.end(), random);
  return keys;
}

template <typename Map, typename AllKeys>
void fill(Map &map, const AllKeys &keys) {
  for (const auto &key : keys) map.add(key);
}

template <typename Map, typename AllKeys>
void clear(Map &map, const AllKeys &keys) {
  for (const auto &key : keys) map.remove(key);
}

// A table that has been in use: what it needs is there.
template <typename Map, typename AllKeys>
void add_all(State &state, const AllKeys &keys) {
  Map map(keys.size());
  fill(map, keys);
  for (auto _ : state) {
    state.PauseTiming();
    clear(map, keys);
    state.ResumeTiming();
    fill(map, keys);
  }
}

template <typename Map>
void add(State &state) {
  add_all<Map>(state, random_keys(record_count, 1));
}

template <typename Map>
void remove(State &state) {
  const Keys keys = random_keys(record_count, 1);
  Map map(keys.size());
  for (auto _ : state) {
    state.PauseTiming();
    fill(map, keys);
    state.ResumeTiming();
    clear(map, keys);
  }
}

template <typename Map, typename AllKeys>
void look_up(State &state, Map &map, const AllKeys &keys) {
  std::size_t found = 0;
  for (auto _ : state) {
    for (const auto &key : keys) found += map.find(key) ? 1 : 0;
  }
  benchmark::DoNotOptimize(found);
}

template <typename Map, typename AllKeys>
void find_all(State &state, AllKeys keys) {
  Map map(keys.size());
  fill(map, keys);
  std::shuffle(keys.begin(), keys.end(), std::mt19937_64(2));
  look_up(state, map, keys);
}

template <typename Map>
void find(State &state) {
  find_all<Map>(state, random_keys(record_count, 1));
}

template <typename Map>
void find_growing(State &state) {
  find_all<Map>(state, random_keys(static_cast<std::size_t>(state.range(0)), 1));
}

template <typename Map>
void miss(State &state) {
  Map map(record_count);
  fill(map, random_keys(record_count, 1));
  look_up(state, map, random_keys(record_count, 3));
}

class PairTable {
 public:
  explicit PairTable(std::size_t count) {
    qal_utils_init();
    pairs_ =
        qal_hash_pairs_create(static_cast<std::int32_t>(count), records_per_chunk, sizeof(Key), 0);
  }
  ~PairTable() { qal_hash_pairs_destroy(&pairs_); }
  PairTable(const PairTable &) = delete;
  PairTable &operator=(const PairTable &) = delete;

  void add(const Pair &pair) {
    const Key data = 1;
    qal_hash_pairs_add(pairs_, pair.first, pair.second, &data);
  }
  bool find(const Pair &pair) {
    Key data = 0;
    const bool found = qal_hash_pairs_find(pairs_, pair.first, pair.second, &data) == 1;
    benchmark::DoNotOptimize(data);
    return found;
  }
  void remove(const Pair &pair) {
    Key data = 0;
    qal_hash_pairs_remove(pairs_, pair.first, pair.second, &data);
  }

 private:
  QalHashPairs *pairs_ = nullptr;
};

// Pairs without an order, as the key of a general map.
Key word_of(const Pair &pair) {
  const auto [smaller, larger] = std::minmax(pair.first, pair.second);
  return Key{static_cast<std::uint32_t>(smaller)} << 32U | static_cast<std::uint32_t>(larger);
}

template <typename Map>
class PairPeer : Peer<Map> {
 public:
  using Peer<Map>::Peer;
  void add(const Pair &pair) { Peer<Map>::add(word_of(pair)); }
  bool find(const Pair &pair) { return Peer<Map>::find(word_of(pair)); }
  void remove(const Pair &pair) { Peer<Map>::remove(word_of(pair)); }
};

struct Mix {
  std::size_t operator()(Key key) const { return (key ^ key >> 32U) * 0x9E3779B97F4A7C15U >> 16U; }
};
using StandardPairs = PairPeer<std::unordered_map<Key, Key, Mix>>;
using BoostPairs = PairPeer<boost::unordered_map<Key, Key, Mix>>;
using AbseilPairs = PairPeer<absl::node_hash_map<Key, Key>>;

class DirectPairs : Direct {
 public:
  using Direct::Direct;
  void add(const Pair &pair) { Direct::add(key_of(pair)); }
  bool find(const Pair &pair) { return Direct::find(key_of(pair)); }
  void remove(const Pair &pair) { Direct::remove(key_of(pair)); }

 private:
  static Key key_of(const Pair &pair) { return Mix{}(word_of(pair)); }
};

// The edges of a mesh: each joins two of its points.
Pairs random_pairs() {
  std::mt19937 random(1);
  std::uniform_int_distribution<std::int32_t> point(0, record_count - 1);
  Pairs pairs(record_count);
  for (Pair &pair : pairs) pair = {point(random), point(random)};
  return pairs;
}

template <typename Map>
void add_pairs(State &state) {
  add_all<Map>(state, random_pairs());
}

template <typename Map>
void find_pairs(State &state) {
  find_all<Map>(state, random_pairs());
}

void register_keys() {
  row("hash, add", {{"qal", add<Table>},
                    {"std::unordered_map", add<Standard>},
                    {"Boost", add<Boost>},
                    {"Abseil", add<Abseil>},
                    {"GLib", add<Glib>}});
  row("hash, remove", {{"qal", remove<Table>},
                       {"std::unordered_map", remove<Standard>},
                       {"Boost", remove<Boost>},
                       {"Abseil", remove<Abseil>},
                       {"GLib", remove<Glib>}});
  row("hash, find", {{"qal", find<Table>},
                     {"std::unordered_map", find<Standard>},
                     {"Boost", find<Boost>},
                     {"Abseil", find<Abseil>},
                     {"GLib", find<Glib>}});
  row("hash, miss", {{"qal", miss<Table>},
                     {"std::unordered_map", miss<Standard>},
                     {"Boost", miss<Boost>},
                     {"Abseil", miss<Abseil>},
                     {"GLib", miss<Glib>}});
  curve("hash, find all", {128, 1024, 8192, 65'536, 1'048'576, 8'388'608},
        {{"qal", find_growing<Table>}, {"std::unordered_map", find_growing<Standard>}});
}

void register_pairs() {
  row("pair hash, add", {{"qal", add_pairs<PairTable>},
                         {"std::unordered_map", add_pairs<StandardPairs>},
                         {"Boost", add_pairs<BoostPairs>},
                         {"Abseil", add_pairs<AbseilPairs>}});
  row("pair hash, find", {{"qal", find_pairs<PairTable>},
                          {"std::unordered_map", find_pairs<StandardPairs>},
                          {"Boost", find_pairs<BoostPairs>},
                          {"Abseil", find_pairs<AbseilPairs>}});
}

void register_floors() {
  constexpr char floor[] = "floor: one record at a known place";
  row("hash, add", {{floor, add<Direct>}});
  row("hash, remove", {{floor, remove<Direct>}});
  row("hash, find", {{floor, find<Direct>}});
  row("hash, miss", {{floor, miss<Direct>}});
  row("pair hash, add", {{floor, add_pairs<DirectPairs>}});
  row("pair hash, find", {{floor, find_pairs<DirectPairs>}});
}

const bool registered = (register_keys(), register_pairs(), register_floors(), true);

}  // namespace

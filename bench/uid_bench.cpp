// The registry of unique ids beside a map under a lock.
#include <qal/startup.h>
#include <qal/uid.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

#include "rows.hpp"

namespace {

using benchmark::State;
using qal::bench::curve;
using qal::bench::is_variant;
using qal::bench::row;
using Id = std::uint64_t;

struct Registry {
  Registry() { qal_utils_init(); }
  Id add() { return qal_uid_new(1, 2); }
  void remove(Id id) { qal_uid_destroy(id); }
  Id find(Id id) {
    Id first = 0;
    Id second = 0;
    qal_uid_find(id, &first, &second);
    return first + second;
  }
};

template <typename Map>
class Locked {
 public:
  Id add() {
    const std::lock_guard lock(mutex_);
    map_.emplace(next_, std::pair<Id, Id>(1, 2));
    return next_++;
  }
  void remove(Id id) {
    const std::lock_guard lock(mutex_);
    map_.erase(id);
  }
  Id find(Id id) {
    const std::lock_guard lock(mutex_);
    const auto found = map_.find(id);
    return found == map_.end() ? 0 : found->second.first + found->second.second;
  }

 private:
  std::mutex mutex_;
  Map map_;
  Id next_ = 1;
};

using Tree = Locked<std::map<Id, std::pair<Id, Id>>>;
using Hash = Locked<std::unordered_map<Id, std::pair<Id, Id>>>;

// The floor of finding: an id is the place of its record.
class Direct {
 public:
  Id add() {
    records_.emplace_back(1, 2);
    return records_.size() - 1;
  }
  void remove(Id) {}
  Id find(Id id) { return records_[id].first + records_[id].second; }

 private:
  std::vector<std::pair<Id, Id>> records_;
};

// Ids that live as long as the benchmark.
template <typename Ids>
class Live {
 public:
  explicit Live(std::int64_t count) : live_(static_cast<std::size_t>(count)) {
    for (Id &id : live_) id = ids_.add();
  }
  ~Live() {
    for (const Id id : live_) ids_.remove(id);
  }
  Live(const Live &) = delete;
  Live &operator=(const Live &) = delete;

  Ids &ids() { return ids_; }
  // The same ids in random order, some more than once.
  std::vector<Id> drawn() const {
    std::mt19937_64 random(1);
    std::vector<Id> drawn(1024);
    for (Id &id : drawn) id = live_[random() % live_.size()];
    return drawn;
  }

 private:
  Ids ids_;
  std::vector<Id> live_;
};

template <typename Ids>
void find_among(State &state, std::int64_t count) {
  Live<Ids> live(count);
  const std::vector<Id> drawn = live.drawn();
  std::size_t at = 0;
  for (auto _ : state) benchmark::DoNotOptimize(live.ids().find(drawn[at++ % drawn.size()]));
}

template <typename Ids, std::int64_t count>
void find_among(State &state) {
  find_among<Ids>(state, count);
}

template <typename Ids>
void find_growing(State &state) {
  find_among<Ids>(state, state.range(0));
}

template <typename Ids>
void newest(State &state, std::int64_t count) {
  Live<Ids> live(count);
  for (auto _ : state) live.ids().remove(live.ids().add());
}

template <typename Ids>
void newest_among_1e3(State &state) {
  newest<Ids>(state, 1000);
}

template <typename Ids>
void newest_growing(State &state) {
  newest<Ids>(state, state.range(0));
}

template <std::int64_t count>
void find_row(const char *capability) {
  row(capability, {{"qal", find_among<Registry, count>},
                   {"locked std::map", find_among<Tree, count>},
                   {"locked std::unordered_map", find_among<Hash, count>},
                   {"floor: one record at a known place", find_among<Direct, count>}});
}

const bool registered = [] {
  find_row<1000>("unique id, find among 1e3" VARIANT);
  row("unique id, new and destroy the newest" VARIANT,
      {{"qal", newest_among_1e3<Registry>},
       {"locked std::map", newest_among_1e3<Tree>},
       {"locked std::unordered_map", newest_among_1e3<Hash>}});
  if (is_variant) return true;
  find_row<100'000>("unique id, find among 1e5");
  row("unique id, find among 1e7",
      {{"qal", find_among<Registry, 10'000'000>},
       {"locked std::unordered_map", find_among<Hash, 10'000'000>},
       {"floor: one record at a known place", find_among<Direct, 10'000'000>}});
  curve("unique id, find", {100, 1000, 10'000, 100'000, 1'000'000, 10'000'000},
        {{"qal", find_growing<Registry>}, {"locked std::map", find_growing<Tree>}});
  curve("unique id, new and destroy the newest, growing", {100, 1000, 10'000, 100'000, 1'000'000},
        {{"qal", newest_growing<Registry>}, {"locked std::map", newest_growing<Tree>}});
  return true;
}();

}  // namespace

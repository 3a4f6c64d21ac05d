// A slow model of the sort of both list kinds, over a vector: level by level, runs of 1, 2, 4 and
// so on are merged in pairs, until a level has no more than one pair.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <random>
#include <utility>
#include <vector>

namespace qal::test {

// An element to sort: the key decides, the identity tells equal keys apart.
struct Item {
  int key;
  int identity;

  bool operator==(const Item &) const = default;
};

using Items = std::vector<Item>;
using ItemOrder = std::function<int(const Item &, const Item &)>;  // above 0: the first goes later

// Every comparison in its order, as identities.
using Comparisons = std::vector<std::pair<int, int>>;

inline int compare_keys(const Item &a, const Item &b) { return (a.key > b.key) - (a.key < b.key); }

// An order that contradicts itself, but does so the same way every time.
inline int compare_without_reason(const Item &a, const Item &b) {
  const unsigned mixed =
      static_cast<unsigned>(a.identity) * 2654435761U ^ static_cast<unsigned>(b.identity) * 40503U;
  return static_cast<int>(mixed >> 7 & 3) - 1;
}

inline Items merged(const Items &a, const Items &b, const ItemOrder &order, Comparisons &seen) {
  Items result;
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    seen.emplace_back(a[i].identity, b[j].identity);
    result.push_back(order(a[i], b[j]) > 0 ? b[j++] : a[i++]);
  }
  for (; i < a.size(); ++i) result.push_back(a[i]);
  for (; j < b.size(); ++j) result.push_back(b[j]);
  return result;
}

inline Items sorted_by_levels(Items items, const ItemOrder &order, Comparisons &seen) {
  const auto run = [&items](std::size_t from, std::size_t length) {
    const auto at = [&](std::size_t i) {
      return items.begin() + static_cast<std::ptrdiff_t>(std::min(i, items.size()));
    };
    return Items(at(from), at(from + length));
  };
  for (std::size_t length = 1, pairs = 2; pairs > 1; length *= 2) {
    Items level;
    pairs = 0;
    for (std::size_t start = 0; start < items.size(); start += 2 * length, ++pairs) {
      const Items both = merged(run(start, length), run(start + length, length), order, seen);
      level.insert(level.end(), both.begin(), both.end());
    }
    items = level;
  }
  return items;
}

inline Items items_of(const std::vector<int> &keys) {
  Items items;
  for (const int key : keys) items.push_back({key, static_cast<int>(items.size())});
  return items;
}

// Calls `visit` with every sequence of the given length over the keys 0 to `key_count` - 1.
inline void for_each_sequence(std::size_t length, int key_count,
                              const std::function<void(const Items &)> &visit) {
  std::vector<int> keys(length, 0);
  for (bool more = true; more;) {
    visit(items_of(keys));
    more = false;
    for (int &key : keys) {
      more = ++key < key_count;
      if (more) break;
      key = 0;
    }
  }
}

inline Items random_items(std::size_t length, int key_count, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<int> keys(length);
  for (int &key : keys) key = static_cast<int>(random() % static_cast<unsigned>(key_count));
  return items_of(keys);
}

// The most comparisons that the sort may make: n for each level.
inline std::size_t comparison_limit(std::size_t length) {
  std::size_t levels = 0;
  while ((std::size_t{1} << levels) < length) ++levels;
  return length * levels;
}

}  // namespace qal::test

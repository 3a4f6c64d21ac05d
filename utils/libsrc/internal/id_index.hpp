// An index that leads from an id straight to its record, beside the table that holds the record.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace qal::internal {

// A tree over the digits of ids to base 256. Ids are handed out in order, so its nodes are filled
// one after the other; one that is empty is kept for other ids. It lasts as long as the process.
// Its nodes are not allocated with qal_malloc, which reports a failure: without the index ids are
// found more slowly, and nothing has failed.
template <typename Record>
class IdIndex {
 public:
  // The record of an id, or null if none is set.
  Record *find(std::uint64_t id) const {
    void *at = reaches(id) ? root_ : nullptr;
    for (unsigned shift = digit_bits * levels_; at && shift > 0;) {
      shift -= digit_bits;
      at = static_cast<Node *>(at)->below[(id >> shift) % fan_out];
    }
    return static_cast<Record *>(at);
  }

  // Null takes the id out. Returns false without memory, and then the record is not set.
  bool set(std::uint64_t id, Record *record) {
    while (!reaches(id)) {
      if (levels_ == most_levels || !grow()) return false;
    }
    return set_below(root_, levels_, id, record);
  }

 private:
  static constexpr unsigned digit_bits = 8;
  static constexpr unsigned most_levels = 7;  // enough for 10^16 ids
  static constexpr std::size_t fan_out = std::size_t{1} << digit_bits;

  struct Node {
    std::array<void *, fan_out> below;  // nodes or, at level 0, records
    std::size_t used;                   // how many are not null
  };

  static std::size_t digit(std::uint64_t id, unsigned level) {
    return (id >> digit_bits * level) % fan_out;
  }

  bool reaches(std::uint64_t id) const { return id >> digit_bits * levels_ == 0; }

  // An empty node holds nothing but nulls. Those that are kept hang below each other.
  Node *new_node() {
    Node *const node = spare_;
    if (!node) return static_cast<Node *>(std::calloc(1, sizeof(Node)));
    spare_ = static_cast<Node *>(std::exchange(node->below[0], nullptr));
    return node;
  }

  void keep(Node *node) { node->below[0] = std::exchange(spare_, node); }

  // Adds a level on top.
  bool grow() {
    Node *const top = new_node();
    if (!top) return false;
    top->below[0] = root_;
    top->used = root_ ? 1 : 0;
    root_ = top;
    ++levels_;
    return true;
  }

  // `place` is where a tree of that many levels hangs.
  bool set_below(void *&place, unsigned levels, std::uint64_t id, Record *record) {
    if (levels == 0) {
      place = record;
      return true;
    }
    if (!place) place = new_node();
    auto *const node = static_cast<Node *>(place);
    if (!node) return false;
    void *&below = node->below[digit(id, levels - 1)];
    const bool was_used = below != nullptr;
    const bool is_set = set_below(below, levels - 1, id, record);
    node->used = node->used + (below ? 1U : 0U) - (was_used ? 1U : 0U);
    if (node->used == 0) {
      keep(node);
      place = nullptr;
    }
    return is_set;
  }

  void *root_ = nullptr;
  unsigned levels_ = 0;
  Node *spare_ = nullptr;
};

}  // namespace qal::internal

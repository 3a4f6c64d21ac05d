// An index that leads from an id straight to its record, beside the table that holds the record.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace qal::internal {

// A tree over the digits of ids to base 256. Ids are handed out in order, so its nodes are filled
// one after the other; one that is empty goes. It lasts as long as the process.
template <typename Record>
class IdIndex {
 public:
  // The record of an id, or null if none is set.
  Record *find(std::uint64_t id) const {
    void *at = reaches(id) ? root_ : nullptr;
    for (unsigned level = levels_; at && level-- > 0;) {
      at = static_cast<Node *>(at)->below[digit(id, level)];
    }
    return static_cast<Record *>(at);
  }

  // Null takes the id out. Returns false without memory, and then the record is not set.
  bool set(std::uint64_t id, Record *record) {
    if (newest_ && id >> digit_bits == newest_prefix_) {
      newest_->put(digit(id, 0), record);
      return true;
    }
    if (record && newest_) forget_newest();
    while (!reaches(id)) {
      if (!grow()) return false;
    }
    return set_below(root_, levels_, id, record);
  }

 private:
  static constexpr unsigned digit_bits = 8;
  static constexpr unsigned most_levels = 64 / digit_bits;
  static constexpr std::size_t fan_out = std::size_t{1} << digit_bits;

  struct Node {
    std::array<void *, fan_out> below;  // nodes or, at level 0, records
    std::size_t used;                   // how many are not null

    void put(std::size_t at, void *what) {
      used -= below[at] ? 1 : 0;
      used += what ? 1 : 0;
      below[at] = what;
    }
  };

  static std::size_t digit(std::uint64_t id, unsigned level) {
    return (id >> digit_bits * level) % fan_out;
  }

  static Node *new_node() { return static_cast<Node *>(std::calloc(1, sizeof(Node))); }

  bool reaches(std::uint64_t id) const {
    return levels_ == most_levels || id >> digit_bits * levels_ == 0;
  }

  // Adds a level on top.
  bool grow() {
    Node *const top = new_node();
    if (!top) return false;
    top->put(0, root_);
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
    void *next = node->below[digit(id, levels - 1)];
    const bool is_set = set_below(next, levels - 1, id, record);
    node->put(digit(id, levels - 1), next);
    if (levels == 1 && record) {
      newest_ = node;
      newest_prefix_ = id >> digit_bits;
    }
    if (node->used == 0) {
      std::free(node);
      place = nullptr;
    }
    return is_set;
  }

  // That node stayed even while it was empty: the newest id may come and go.
  void forget_newest() {
    const bool is_empty = newest_->used == 0;
    newest_ = nullptr;
    if (is_empty) set_below(root_, levels_, newest_prefix_ << digit_bits, nullptr);
  }

  void *root_ = nullptr;
  unsigned levels_ = 0;
  Node *newest_ = nullptr;  // the node in which a record was set last
  std::uint64_t newest_prefix_ = 0;
};

}  // namespace qal::internal

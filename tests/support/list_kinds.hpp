// Both kinds of lists under the same names, for what holds for both. A kind has
//   List, Element            the types, each handled by address
//   has_lists, has_elements  whether its pools can give any
//   holds(lists, elements)   whether its pools count so many in use, where they can be seen
//   fill and check           content for an element, and whether it is still there
//   put(element, item)       an item as the content; `key` is the address that comparisons get
//   set_links                the links of an element that is in no list
#pragma once

#include <qal/list.h>
#include <qal/plist.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "support/merge_model.hpp"
#include "support/pool_model.hpp"

namespace qal::test {

// Lists with inline payloads.
class InlineLists {
 public:
  using List = QalList;
  using Element = void;

  // Large enough for an item.
  InlineLists() : InlineLists(sizeof(Item) + 4, 16, 1) {}
  InlineLists(std::uint32_t size, std::uint32_t chunk_count, int use_header_pool)
      : pool_(qal_list_pool_create(size, chunk_count, use_header_pool)) {}
  template <typename Input>
  explicit InlineLists(Input &input)
      : InlineLists{static_cast<std::uint32_t>(input.below(48)),
                    static_cast<std::uint32_t>(input.below(6)), input.flag()} {}
  ~InlineLists() { qal_list_pool_destroy(&pool_); }
  InlineLists(const InlineLists &) = delete;
  InlineLists &operator=(const InlineLists &) = delete;

  static bool has_lists() { return true; }
  bool has_elements() const { return pool_->chunk_count > 0; }
  bool holds(std::size_t lists, std::size_t elements) const {
    return in_use(pool_->element_pool) == elements &&
           (!pool_->use_header_pool || in_use(pool_->header_pool) == lists);
  }

  List *create() { return newest_ = qal_list_create(pool_); }
  // Whether the list kept the handle of a pooled header, or cleared any other.
  bool destroy(List *&list) {
    const List *const expected = pool_->use_header_pool ? list : nullptr;
    if (list == newest_) newest_ = nullptr;
    qal_list_destroy(&list);
    return std::exchange(list, nullptr) == expected;
  }
  // Takes turns between the two ways to allocate and to free an element.
  void *alloc() {
    return other_way() && newest_ ? qal_list_alloc(newest_) : qal_list_alloc2(pool_);
  }
  bool free(void *payload) {
    if (other_way() && newest_) {
      qal_list_free(newest_, payload);
    } else {
      qal_list_free2(pool_, payload);
    }
    return true;
  }
  void fill(void *payload, int number) const { std::memset(payload, number, pool_->element_size); }
  bool check(const void *payload, int number) const {
    const auto *const bytes = static_cast<const unsigned char *>(payload);
    return std::all_of(bytes, bytes + pool_->element_size,
                       [=](unsigned char byte) { return byte == (number & 0xFF); });
  }
  static void put(void *payload, const Item &item) { std::memcpy(payload, &item, sizeof item); }
  static const void *key(const void *payload) { return payload; }
  static void set_links(void *payload, void *before, void *behind) {
    const void *const links[] = {start_of(before), start_of(behind)};
    std::memcpy(start_of(payload), links, sizeof links);
  }
  // Where the element of a payload starts, with its two links.
  static void *start_of(void *payload) {
    return payload ? static_cast<std::byte *>(payload) - links_size : nullptr;
  }

  static constexpr auto first = &qal_list_first;
  static constexpr auto last = &qal_list_last;
  static constexpr auto next = &qal_list_next;
  static constexpr auto prev = &qal_list_prev;
  static constexpr auto length = &qal_list_length;
  static constexpr auto prepend = &qal_list_prepend;
  static constexpr auto append = &qal_list_append;
  static constexpr auto insert_after = &qal_list_insert_after;
  static constexpr auto insert_before = &qal_list_insert_before;
  static constexpr auto remove = &qal_list_remove;
  static constexpr auto pop = &qal_list_pop;
  static constexpr auto concat = &qal_list_concat;
  static constexpr auto sort = &qal_list_sort;

  static constexpr std::size_t links_size = 16;

 private:
  bool other_way() { return turn_ = !turn_; }

  QalListPool *pool_;
  List *newest_ = nullptr;
  bool turn_ = false;
};

// Lists of pointers.
class PointerLists {
 public:
  using List = QalPlist;
  using Element = QalPlistNode;

  PointerLists() : PointerLists(32, 256) {}
  PointerLists(std::uint32_t header_chunk, std::uint32_t node_chunk)
      : header_chunk_(header_chunk), node_chunk_(node_chunk) {
    qal_plist_pool_create(header_chunk, node_chunk);
  }
  template <typename Input>
  explicit PointerLists(Input &input)
      : PointerLists{static_cast<std::uint32_t>(input.below(5)),
                     static_cast<std::uint32_t>(input.below(6))} {}
  ~PointerLists() { qal_plist_pool_destroy(); }
  PointerLists(const PointerLists &) = delete;
  PointerLists &operator=(const PointerLists &) = delete;

  bool has_lists() const { return header_chunk_ > 0; }
  bool has_elements() const { return node_chunk_ > 0; }
  static bool holds(std::size_t, std::size_t) { return true; }

  static List *create() { return qal_plist_create(); }
  static bool destroy(List *&list) {
    qal_plist_destroy(&list);
    return !list;
  }
  static Element *alloc() { return qal_plist_alloc(); }
  static bool free(Element *node) {
    qal_plist_free(&node);
    return !node;
  }
  static void fill(Element *node, int /*number*/) { node->data = node; }
  static bool check(const Element *node, int /*number*/) { return node->data == node; }
  static void put(Element *node, Item &item) { node->data = &item; }
  static const void *key(const Element *node) { return node->data; }
  static void set_links(Element *node, Element *before, Element *behind) {
    node->prev = before;
    node->next = behind;
  }

  static constexpr auto first = &qal_plist_first;
  static constexpr auto last = &qal_plist_last;
  static constexpr auto next = &qal_plist_next;
  static constexpr auto prev = &qal_plist_prev;
  static constexpr auto length = &qal_plist_length;
  static constexpr auto prepend = &qal_plist_prepend;
  static constexpr auto append = &qal_plist_append;
  static constexpr auto insert_after = &qal_plist_insert_after;
  static constexpr auto insert_before = &qal_plist_insert_before;
  static constexpr auto remove = &qal_plist_remove;
  static constexpr auto pop = &qal_plist_pop;
  static constexpr auto concat = &qal_plist_concat;
  static constexpr auto sort = &qal_plist_sort;

 private:
  std::uint32_t header_chunk_;
  std::uint32_t node_chunk_;
};

}  // namespace qal::test

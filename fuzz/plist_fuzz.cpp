// Lists of pointers. An input is the shape of their pools and a row of operations, each a byte and
// its arguments.
#include <qal/plist.h>

#include <cstddef>
#include <cstdint>

#include "choices.hpp"
#include "linked_lists.hpp"
#include "require.hpp"

namespace {

using qal::fuzz::Choices;
using qal::fuzz::LinkedLists;
using qal::fuzz::require;

// Every node points to itself.
class PointerLists {
 public:
  using List = QalPlist;
  using Element = QalPlistNode;

  explicit PointerLists(Choices &choices)
      : header_chunk_(static_cast<uint32_t>(choices.below(5))),
        node_chunk_(static_cast<uint32_t>(choices.below(6))) {
    require(qal_plist_pool_create(header_chunk_, node_chunk_) == 0, "pools can be made");
  }
  ~PointerLists() { qal_plist_pool_destroy(); }
  PointerLists(const PointerLists &) = delete;
  PointerLists &operator=(const PointerLists &) = delete;

  bool has_lists() const { return header_chunk_ > 0; }
  bool has_elements() const { return node_chunk_ > 0; }

  static List *create() { return qal_plist_create(); }
  static void destroy(List *&list) {
    qal_plist_destroy(&list);
    require(!list, "the handle of a list that ended is none");
  }
  static Element *alloc() { return qal_plist_alloc(); }
  static void free(Element *node) {
    qal_plist_free(&node);
    require(!node, "the handle of a node given back is none");
  }
  static void fill(Element *node, int /*number*/) { node->data = node; }
  static bool check(const Element *node, int /*number*/) { return node->data == node; }

  static const void *key(const Element *node) { return node; }
  static Element *first(const List *list) { return qal_plist_first(list); }
  static Element *last(const List *list) { return qal_plist_last(list); }
  static Element *next(const Element *node) { return qal_plist_next(node); }
  static Element *prev(const Element *node) { return qal_plist_prev(node); }
  static uint32_t length(const List *list) { return qal_plist_length(list); }
  void prepend(List *list, Element *node) { qal_plist_prepend(list, node); }
  void append(List *list, Element *node) { qal_plist_append(list, node); }
  void insert_after(List *list, Element *at, Element *node) {
    qal_plist_insert_after(list, at, node);
  }
  void insert_before(List *list, Element *at, Element *node) {
    qal_plist_insert_before(list, at, node);
  }
  static void remove(List *list, Element *node) { qal_plist_remove(list, node); }
  static Element *pop(List *list) { return qal_plist_pop(list); }
  static void concat(List *dst, List *src) { qal_plist_concat(dst, src); }
  static void sort(List *list, QalPlistCompare compare) { qal_plist_sort(list, compare); }

 private:
  uint32_t header_chunk_;
  uint32_t node_chunk_;
};

// What is asked for without pools is none, and what was left goes quietly.
void use_no_pools() {
  QalPlist *list = qal_plist_create();
  QalPlistNode *node = qal_plist_alloc();
  require(!list && !node, "without pools there is nothing to be had");
  QalPlist gone_list{};
  QalPlistNode gone_node{};
  list = &gone_list;
  node = &gone_node;
  qal_plist_destroy(&list);
  qal_plist_free(&node);
  require(!list && !node, "without pools handles are cleared");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Choices choices(data, size);
  {
    PointerLists kind(choices);
    LinkedLists<PointerLists> lists(kind);
    while (choices.left()) {
      lists.perform(choices);
      lists.compare();
    }
  }
  use_no_pools();
  return 0;
}

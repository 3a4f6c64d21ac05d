// Lists with inline payloads. An input is the shape of their pool and a row of operations, each a
// byte and its arguments.
#include <qal/list.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "choices.hpp"
#include "linked_lists.hpp"
#include "require.hpp"

namespace {

using qal::fuzz::Choices;
using qal::fuzz::LinkedLists;
using qal::fuzz::require;

class InlineLists {
 public:
  using List = QalList;
  using Element = void;

  explicit InlineLists(Choices &choices)
      : pool_(qal_list_pool_create(static_cast<uint32_t>(choices.below(48)),
                                   static_cast<uint32_t>(choices.below(6)), choices.flag())) {
    require(pool_, "a pool can be made");
  }
  ~InlineLists() { qal_list_pool_destroy(&pool_); }
  InlineLists(const InlineLists &) = delete;
  InlineLists &operator=(const InlineLists &) = delete;

  static bool has_lists() { return true; }
  bool has_elements() const { return pool_->chunk_count > 0; }

  List *create() { return lists_made_here(qal_list_create(pool_)); }
  void destroy(List *&list) {
    const List *const before = list;
    qal_list_destroy(&list);
    require(list == (pool_->use_header_pool ? before : nullptr), "a pooled header's handle stays");
    list = nullptr;
  }
  // Of the two ways to have and to give back an element, one and then the other.
  void *alloc() { return turn() ? qal_list_alloc2(pool_) : qal_list_alloc(a_list_); }
  void free(void *payload) {
    if (turn()) {
      qal_list_free2(pool_, payload);
    } else {
      qal_list_free(a_list_, payload);
    }
  }
  void fill(void *payload, int number) const { std::memset(payload, number, pool_->element_size); }
  bool check(const void *payload, int number) const {
    const auto *const bytes = static_cast<const unsigned char *>(payload);
    return std::all_of(bytes, bytes + pool_->element_size,
                       [=](unsigned char byte) { return byte == (number & 0xFF); });
  }

  static const void *key(const void *payload) { return payload; }
  static void *first(const List *list) { return qal_list_first(list); }
  static void *last(const List *list) { return qal_list_last(list); }
  static void *next(const void *payload) { return qal_list_next(payload); }
  static void *prev(const void *payload) { return qal_list_prev(payload); }
  static uint32_t length(const List *list) { return qal_list_length(list); }
  void prepend(List *list, void *payload) { qal_list_prepend(list, payload); }
  void append(List *list, void *payload) { qal_list_append(list, payload); }
  void insert_after(List *list, void *at, void *payload) {
    qal_list_insert_after(list, at, payload);
  }
  void insert_before(List *list, void *at, void *payload) {
    qal_list_insert_before(list, at, payload);
  }
  static void remove(List *list, void *payload) { qal_list_remove(list, payload); }
  static void *pop(List *list) { return qal_list_pop(list); }
  static void concat(List *dst, List *src) { qal_list_concat(dst, src); }
  static void sort(List *list, QalListCompare compare) { qal_list_sort(list, compare); }

 private:
  bool turn() { return turn_ = !turn_; }
  List *lists_made_here(List *list) { return a_list_ = list; }

  QalListPool *pool_;
  List *a_list_ = nullptr;  // the list made last; the three are renewed in place, so it exists
  bool turn_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Choices choices(data, size);
  InlineLists kind(choices);
  LinkedLists<InlineLists> lists(kind);
  while (choices.left()) {
    lists.perform(choices);
    lists.compare();
  }
  return 0;
}

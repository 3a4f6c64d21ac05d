// The elements of lists with inline data, inline for the tables, whose records are such elements.
#pragma once

#include <qal/list.h>

#include <cstddef>
#include <new>

#include "internal/chain.hpp"
#include "internal/pool_fast_path.hpp"

namespace qal::internal {

// The links in front of a payload.
struct ListElement {
  ListElement *prev, *next;
};
static_assert(offsetof(ListElement, prev) == 0);
static_assert(offsetof(ListElement, next) == 8);
static_assert(sizeof(ListElement) == 16);

using ElementChain = Chain<ListElement>;

inline ListElement *element_of(void *payload) {
  return payload ? static_cast<ListElement *>(payload) - 1 : nullptr;
}

inline void *payload_of(ListElement *element) { return element ? element + 1 : nullptr; }

inline ElementChain chain_of(const QalList &list) {
  return {element_of(list.first), element_of(list.last)};
}

inline void store(QalList &list, const ElementChain &chain) {
  list.first = payload_of(chain.first);
  list.last = payload_of(chain.last);
}

// Reads the ends of a list once and stores them in the list when it is destroyed.
class ListLinks : public ElementChain {
 public:
  explicit ListLinks(QalList &list) : ElementChain(chain_of(list)), list_(list) {}
  ~ListLinks() { store(list_, *this); }
  ListLinks(const ListLinks &) = delete;
  ListLinks &operator=(const ListLinks &) = delete;

 private:
  QalList &list_;
};

// As qal_list_alloc2 and qal_list_free2.
inline void *list_alloc(const QalListPool *pool) {
  if (!pool) return nullptr;
  void *const room = pool_alloc(pool->element_pool);
  if (!room) return nullptr;
  return payload_of(::new (room) ListElement{});
}

inline void list_free(const QalListPool *pool, void *payload) {
  if (!pool || !payload) return;
  pool_free(pool->element_pool, ::new (element_of(payload)) ListElement{});
}

}  // namespace qal::internal

// Lists whose elements come from a pool and hold the caller's data inline.
#include <qal/alloc.h>
#include <qal/list.h>
#include <qal/mpool.h>

#include <cstdint>
#include <limits>
#include <new>

#include "internal/list_elements.hpp"
#include "internal/merge_sort.hpp"
#include "internal/pool_fast_path.hpp"

namespace {

constexpr const char *source = "utils/libsrc/qal_list";
constexpr std::uint32_t headers_per_chunk = 20;

using qal::internal::element_of;
using qal::internal::ElementChain;
using qal::internal::payload_of;
using qal::internal::pool_alloc;
using qal::internal::pool_free;
using Element = qal::internal::ListElement;
using Links = qal::internal::ListLinks;

void *room_for_header(const QalListPool &pool) {
  if (pool.use_header_pool) return pool_alloc(pool.header_pool);
  void *room = nullptr;
  qal_malloc("qal_list_create", &room, sizeof(QalList), 139, source);
  return room;
}

}  // namespace

QalListPool *qal_list_pool_create(uint32_t element_size, uint32_t chunk_count,
                                  int32_t use_header_pool) {
  if (element_size > std::numeric_limits<std::uint32_t>::max() - sizeof(Element)) return nullptr;
  const auto linked_size = static_cast<std::uint32_t>(element_size + sizeof(Element));
  QalMpool *elements = qal_mpool_create(linked_size, chunk_count);
  if (!elements) return nullptr;
  QalListPool *pool = nullptr;
  qal_malloc("qal_list_pool_create", &pool, sizeof *pool, 83, source);
  if (!pool) {
    qal_mpool_destroy(&elements);
    return nullptr;
  }
  *pool = QalListPool{element_size, chunk_count, elements, use_header_pool, nullptr};
  if (!use_header_pool) return pool;
  pool->header_pool = qal_mpool_create(sizeof(QalList), headers_per_chunk);
  if (pool->header_pool) return pool;
  qal_mpool_destroy(&elements);
  qal_free(pool, 100, source);
  return nullptr;
}

void qal_list_pool_destroy(QalListPool **pool_address) {
  if (!pool_address || !*pool_address) return;
  QalListPool *const pool = *pool_address;
  qal_mpool_destroy(&pool->element_pool);
  if (pool->use_header_pool) qal_mpool_destroy(&pool->header_pool);
  qal_free(pool, 123, source);
  *pool_address = nullptr;
}

QalList *qal_list_create(QalListPool *pool) {
  if (!pool) return nullptr;
  void *const room = room_for_header(*pool);
  if (!room) return nullptr;
  return ::new (room) QalList{pool, nullptr, nullptr};
}

void qal_list_destroy(QalList **list_address) {
  if (!list_address || !*list_address) return;
  QalList *const list = *list_address;
  while (void *const payload = qal_list_pop(list)) qal_list_free(list, payload);
  if (list->pool->use_header_pool) {
    // Deliberate: the caller's handle keeps the old address of a pooled header.
    pool_free(list->pool->header_pool, list);
    return;
  }
  qal_free(list, 175, source);
  *list_address = nullptr;
}

void *qal_list_alloc(QalList *list) { return list ? qal_list_alloc2(list->pool) : nullptr; }

void *qal_list_alloc2(QalListPool *pool) { return qal::internal::list_alloc(pool); }

void qal_list_free(QalList *list, void *payload) {
  if (list) qal_list_free2(list->pool, payload);
}

void qal_list_free2(QalListPool *pool, void *payload) { qal::internal::list_free(pool, payload); }

void qal_list_prepend(QalList *list, void *payload) {
  if (!list || !payload) return;
  Links{*list}.prepend(element_of(payload));
}

void qal_list_append(QalList *list, void *payload) {
  if (!list || !payload) return;
  Links{*list}.append(element_of(payload));
}

void qal_list_insert_after(QalList *list, void *at, void *payload) {
  if (!list || !at || !payload) return;
  Links{*list}.insert_after(element_of(at), element_of(payload));
}

void qal_list_insert_before(QalList *list, void *at, void *payload) {
  if (!list || !at || !payload) return;
  Links{*list}.insert_before(element_of(at), element_of(payload));
}

void qal_list_remove(QalList *list, void *payload) {
  if (!list || !payload) return;
  Links{*list}.remove(element_of(payload));
}

void *qal_list_pop(QalList *list) {
  if (!list) return nullptr;
  return payload_of(Links{*list}.pop());
}

void qal_list_concat(QalList *dst, QalList *src) {
  if (!dst || !src || dst == src) return;
  Links moved{*src};
  Links{*dst}.concat(moved);
}

uint32_t qal_list_length(const QalList *list) {
  return list ? qal::internal::chain_of(*list).length() : 0;
}

void qal_list_sort(QalList *list, QalListCompare compare) {
  if (!list || !compare) return;
  // Not Links, whose destructor would also run when a comparison throws, which costs registers.
  ElementChain chain = qal::internal::chain_of(*list);
  qal::internal::merge_sort(
      chain, [=](const Element *p, const Element *q) { return compare(p + 1, q + 1) > 0; });
  qal::internal::store(*list, chain);
}

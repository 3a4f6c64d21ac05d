// The fast path into and out of a memory pool, inline for the lists, whose elements all take it.
#pragma once

#include <qal/mpool.h>

#include <iterator>
#include <new>

#include "internal/locks_needed.hpp"
#include "internal/thread_index.hpp"

namespace qal::internal {

// A free element, linked through its first word.
struct FreeElement {
  FreeElement *next;
};

inline FreeElement *link_free(void *element, void *next) {
  return ::new (element) FreeElement{static_cast<FreeElement *>(next)};
}

// The slow path: refills the calling thread's list, or reports an index that has none.
void *pool_alloc_refilled(QalMpool &pool, unsigned index);

inline void *pool_alloc(QalMpool *pool) {
  if (!pool) return nullptr;
  const auto index = static_cast<unsigned>(thread_index());
  if (index >= std::size(pool->thread_free) || !pool->thread_free[index]) {
    return pool_alloc_refilled(*pool, index);
  }
  auto *const head = static_cast<FreeElement *>(pool->thread_free[index]);
  pool->thread_free[index] = head->next;
  return head;
}

inline void add_shared(QalMpool &pool, void *element) {
  pool.shared_free = link_free(element, pool.shared_free);
  ++pool.shared_count;
}

// Like pool_free where a lock is needed. Not inline: the fast path would have to save registers.
[[gnu::noinline]] int pool_free_locked(QalMpool &pool, void *element);

inline int pool_free(QalMpool *pool, void *element) {
  if (!pool || !element) return QAL_MPOOL_FAILED;
  if (locks_needed()) return pool_free_locked(*pool, element);
  add_shared(*pool, element);
  return QAL_MPOOL_OK;
}

}  // namespace qal::internal

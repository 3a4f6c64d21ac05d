// Pools of elements of one size, with a free list for each thread.
#include <qal/alloc.h>
#include <qal/logger.h>
#include <qal/mpool.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <new>

#include "internal/no_cancellation.hpp"
#include "internal/pool_fast_path.hpp"
#include "internal/status_with_breakpoint.hpp"

namespace {

using qal::internal::FreeElement;
using qal::internal::link_free;
using qal::internal::locks_in_use;

constexpr const char *source = "utils/libsrc/qal_mpool";
constexpr std::uint64_t smallest_element = 16;
constexpr std::uint64_t alignment = 8;

// What a chunk begins with; its elements follow.
struct Chunk {
  Chunk *next;
};
static_assert(sizeof(FreeElement) == 8 && sizeof(Chunk) == 8);

std::uint64_t rounded_size(std::uint32_t requested) {
  const std::uint64_t size = std::max<std::uint64_t>(requested, smallest_element);
  return (size + alignment - 1) / alignment * alignment;
}

std::uint64_t payload_size(const QalMpool &pool) {
  return std::uint64_t{pool.chunk_count} * pool.element_size;
}

bool can_have_chunks(const QalMpool &pool) {
  return pool.chunk_count > 0 && payload_size(pool) <= std::numeric_limits<std::uint32_t>::max();
}

bool has_shared_batch(const QalMpool &pool) {
  return pool.shared_free && pool.shared_count >= static_cast<std::int32_t>(pool.chunk_count);
}

void *detach_batch(QalMpool &pool) {
  auto *const first = static_cast<FreeElement *>(pool.shared_free);
  FreeElement *last = first;
  for (std::uint32_t i = 1; i < pool.chunk_count; ++i) last = last->next;
  pool.shared_free = last->next;
  last->next = nullptr;
  pool.shared_count -= static_cast<std::int32_t>(pool.chunk_count);
  return first;
}

// Reporting a failure may reach a cancellation point, and a thread that is cancelled here would
// leave the pool locked.
void *allocate_chunk(const QalMpool &pool) {
  const qal::internal::NoCancellation until_return;
  void *block = nullptr;
  qal_malloc("qal_mpool_alloc", &block, payload_size(pool) + sizeof(Chunk), 168, source);
  return block;
}

Chunk *new_chunk(QalMpool &pool) {
  void *const block = allocate_chunk(pool);
  if (!block) return nullptr;
  auto *const chunk = ::new (block) Chunk{static_cast<Chunk *>(pool.chunks)};
  pool.chunks = chunk;
  return chunk;
}

// Links the elements in the order of their addresses.
void *carve(const QalMpool &pool, Chunk *chunk) {
  auto *const elements = reinterpret_cast<std::byte *>(chunk + 1);
  void *next = nullptr;
  for (std::size_t count = pool.chunk_count; count > 0; --count) {
    next = link_free(elements + (count - 1) * pool.element_size, next);
  }
  return next;
}

// Locks the pool's mutex even where no lock is needed: a refill that fails leaves it locked.
class RefillLock {
 public:
  explicit RefillLock(QalMpool &pool) : mutex_(pool.lock) {
    locks_in_use = true;
    qal_thread_mutex_lock(&mutex_);
  }
  void unlock() {
    qal_thread_mutex_unlock(&mutex_);
    locks_in_use = needed_otherwise_;
  }

 private:
  const bool needed_otherwise_ = qal::internal::locks_needed();
  QalThreadMutex &mutex_;
};

// A chunk's worth of elements for the calling thread's empty list, or null.
void *refill(QalMpool &pool) {
  RefillLock lock(pool);
  if (has_shared_batch(pool)) {
    void *const batch = detach_batch(pool);
    lock.unlock();
    return batch;
  }
  Chunk *const chunk = new_chunk(pool);
  // Deliberate: without memory the lock stays held, and whoever needs the shared list waits.
  if (!chunk) return nullptr;
  lock.unlock();
  return carve(pool, chunk);
}

template <typename Linked>
std::uint32_t count(const void *list) {
  std::uint32_t number = 0;
  for (auto *at = static_cast<const Linked *>(list); at; at = at->next) ++number;
  return number;
}

std::uint32_t total_elements(const QalMpool &pool) {
  return count<Chunk>(pool.chunks) * pool.chunk_count;
}

std::uint32_t free_elements(const QalMpool &pool) {
  auto elements = static_cast<std::uint32_t>(pool.shared_count);
  for (const void *list : pool.thread_free) elements += count<FreeElement>(list);
  return elements;
}

}  // namespace

constinit std::atomic<bool> qal::internal::locks_in_use = false;

void *qal::internal::pool_alloc_refilled(QalMpool &pool, unsigned index) {
  if (index >= std::size(pool.thread_free)) {
    qal_error("Bad thread index in qal_mpool_alloc\n");
    return nullptr;
  }
  if (!can_have_chunks(pool)) return nullptr;
  auto *const batch = static_cast<FreeElement *>(refill(pool));
  if (!batch) return nullptr;
  pool.thread_free[index] = batch->next;
  return batch;
}

int qal::internal::pool_free_locked(QalMpool &pool, void *element) {
  start_locking();
  status_with_breakpoint(pthread_mutex_lock(&pool.lock));
  add_shared(pool, element);
  return status_with_breakpoint(pthread_mutex_unlock(&pool.lock));
}

QalMpool *qal_mpool_create(uint32_t element_size, uint32_t chunk_count) {
  const std::uint64_t rounded = rounded_size(element_size);
  if (rounded > std::numeric_limits<std::uint32_t>::max()) return nullptr;
  QalMpool *pool = nullptr;
  qal_malloc("qal_mpool_create", &pool, sizeof *pool, 65, source);
  if (!pool) return nullptr;
  std::memset(pool, 0, sizeof *pool);
  pool->element_size = static_cast<std::uint32_t>(rounded);
  pool->chunk_count = chunk_count;
  qal_thread_mutex_init(&pool->lock);
  return pool;
}

void qal_mpool_destroy(QalMpool **pool_address) {
  if (!pool_address || !*pool_address) return;
  QalMpool *const pool = *pool_address;
  for (auto *at = static_cast<Chunk *>(pool->chunks); at;) {
    Chunk *const next = at->next;
    qal_free(at, 115, source);
    at = next;
  }
  qal_thread_mutex_destroy(&pool->lock);
  qal_free(pool, 123, source);
  *pool_address = nullptr;
}

void *qal_mpool_alloc(QalMpool *pool) { return qal::internal::pool_alloc(pool); }

int qal_mpool_free(QalMpool *pool, void *element) {
  return qal::internal::pool_free(pool, element);
}

int qal_mpool_verify_ptr(QalMpool *pool, const void *address) {
  if (!pool) return 0;
  const auto wanted = reinterpret_cast<std::uintptr_t>(address);
  const std::uint64_t size = sizeof(Chunk) + payload_size(*pool);
  for (auto *at = static_cast<const Chunk *>(pool->chunks); at; at = at->next) {
    const auto start = reinterpret_cast<std::uintptr_t>(at);
    if (wanted >= start && wanted - start < size) return 1;
  }
  return 0;
}

uint32_t qal_mpool_status(QalMpool *pool, uint32_t *total_out, uint32_t *free_out) {
  const std::uint32_t total = pool ? total_elements(*pool) : 0;
  const std::uint32_t free_count = pool ? free_elements(*pool) : 0;
  if (total_out) *total_out = total;
  if (free_out) *free_out = free_count;
  return free_count;
}

void qal_mpool_check_corruption() {}

void qal_mpool_debug() {}

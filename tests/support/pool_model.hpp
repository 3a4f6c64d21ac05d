// A model of a memory pool, over the addresses that the real one hands out.
#pragma once

#include <qal/mpool.h>
#include <qal/thread.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <vector>

namespace qal::test {

// Makes the calling thread one with that index.
inline void become_index(std::intptr_t index) {
  qal_thread_start_void(reinterpret_cast<void *>(index));
}

inline std::uint32_t in_use(QalMpool *pool) {
  std::uint32_t total = 0;
  std::uint32_t free = 0;
  qal_mpool_status(pool, &total, &free);
  return total - free;
}

inline bool is_locked(QalMpool *pool) {
  const int status = qal_thread_mutex_trylock(&pool->lock);
  if (status == 0) qal_thread_mutex_unlock(&pool->lock);
  return status != 0;
}

// A free element and a chunk both begin with the address of the next.
inline void *next_of(const void *block) {
  void *next = nullptr;
  std::memcpy(&next, block, sizeof next);
  return next;
}

inline std::vector<void *> chain_from(void *head) {
  std::vector<void *> all;
  for (; head; head = next_of(head)) all.push_back(head);
  return all;
}

// The elements of a chunk, in the order of their addresses.
inline std::vector<void *> elements_of(const QalMpool &pool, void *chunk) {
  std::vector<void *> all;
  for (std::size_t i = 0; i < pool.chunk_count; ++i) {
    all.push_back(static_cast<std::byte *>(chunk) + 8 + i * pool.element_size);
  }
  return all;
}

class PoolModel {
 public:
  explicit PoolModel(QalMpool &pool) : pool_(pool) {}

  // What the next allocation of a thread must give. `newest` is the pool's newest chunk after it.
  void *alloc(int index, void *newest) {
    std::deque<void *> &own = own_[index];
    if (own.empty() && shared_.size() >= pool_.chunk_count) {
      const auto end = shared_.begin() + pool_.chunk_count;
      own.assign(shared_.begin(), end);
      shared_.erase(shared_.begin(), end);
    } else if (own.empty()) {
      chunks_.push_front(newest);
      const std::vector<void *> elements = elements_of(pool_, newest);
      own.assign(elements.begin(), elements.end());
    }
    void *const element = own.front();
    own.pop_front();
    return element;
  }

  void free(void *element) { shared_.push_front(element); }

  std::uint32_t total() const {
    return static_cast<std::uint32_t>(chunks_.size()) * pool_.chunk_count;
  }

  // Whether the pool's lists are these.
  bool holds() const {
    bool same = equal(pool_.chunks, chunks_) && equal(pool_.shared_free, shared_) &&
                pool_.shared_count == static_cast<std::int32_t>(shared_.size());
    for (const auto &[index, own] : own_) same = same && equal(pool_.thread_free[index], own);
    return same;
  }

  // Whether the pool counts the same elements, and so has none in the list of another thread.
  bool is_counted() const {
    std::size_t free_count = shared_.size();
    for (const auto &[index, own] : own_) free_count += own.size();
    std::uint32_t counted = 0;
    return qal_mpool_status(&pool_, &counted, nullptr) == free_count && counted == total();
  }

 private:
  static bool equal(void *head, const std::deque<void *> &expected) {
    return chain_from(head) == std::vector<void *>(expected.begin(), expected.end());
  }

  QalMpool &pool_;
  std::map<int, std::deque<void *>> own_;
  std::deque<void *> shared_;
  std::deque<void *> chunks_;
};

}  // namespace qal::test

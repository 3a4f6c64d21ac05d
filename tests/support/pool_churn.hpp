// Threads that use one memory pool at once and free each other's elements.
#pragma once

#include <qal/mpool.h>
#include <qal/thread.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

namespace qal::test {

// Where threads leave elements for each other.
class Exchange {
 public:
  // Leaves an element and returns one that was left before, or null while there are few.
  std::uint64_t *swap(std::uint64_t *element, std::size_t at) {
    const std::lock_guard lock(mutex_);
    if (elements_.size() < 64) {
      elements_.push_back(element);
      return nullptr;
    }
    std::swap(element, elements_[at % elements_.size()]);
    return element;
  }

  const std::vector<std::uint64_t *> &rest() const { return elements_; }

 private:
  std::mutex mutex_;
  std::vector<std::uint64_t *> elements_;
};

inline std::uint64_t mark_of(const std::uint64_t *element) {
  return ~reinterpret_cast<std::uintptr_t>(element);
}

// Allocates, marks, exchanges and gives back; returns how often something was wrong.
inline int churn(QalMpool *pool, Exchange &exchange, int rounds) {
  std::mt19937 random(static_cast<unsigned>(qal_thread_index()));
  int wrong = 0;
  for (int i = 0; i < rounds; ++i) {
    auto *const element = static_cast<std::uint64_t *>(qal_mpool_alloc(pool));
    element[0] = element[1] = mark_of(element);
    std::uint64_t *const other = exchange.swap(element, random());
    if (!other) continue;
    if (other[0] != mark_of(other) || other[1] != mark_of(other)) ++wrong;
    if (qal_mpool_free(pool, other) != 0) ++wrong;
  }
  return wrong;
}

}  // namespace qal::test

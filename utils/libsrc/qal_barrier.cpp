// The public barrier.
#include <qal/barrier.h>

#include <cstdint>
#include <limits>

#include "internal/barrier.hpp"

namespace {

using qal::internal::barrier_valid;
using qal::internal::store_relaxed;

constexpr std::uint32_t barrier_destroyed = std::numeric_limits<std::uint32_t>::max();

}  // namespace

int qal_thread_barrier_init(QalThreadBarrier *b) {
  if (!b) return QAL_THREAD_BARRIER_FAILED;
  b->count = b->remaining = b->phase = b->magic = 0;
  if (pthread_mutex_init(&b->mutex, nullptr) != 0) return QAL_THREAD_BARRIER_FAILED;
  if (pthread_cond_init(&b->condition, nullptr) != 0) {
    pthread_mutex_destroy(&b->mutex);
    return QAL_THREAD_BARRIER_FAILED;
  }
  b->magic = barrier_valid;
  return QAL_THREAD_BARRIER_OK;
}

void qal_thread_barrier_reinit(QalThreadBarrier *b) {
  if (b) b->count = 0;
}

int qal_thread_barrier_destroy(QalThreadBarrier *b) {
  if (!b || b->magic != barrier_valid) return QAL_THREAD_BARRIER_FAILED;
  b->magic = barrier_destroyed;
  pthread_mutex_destroy(&b->mutex);
  pthread_cond_destroy(&b->condition);
  return QAL_THREAD_BARRIER_OK;
}

int qal_thread_barrier(QalThreadBarrier *b, unsigned n) {
  if (!b) return QAL_THREAD_BARRIER_FAILED;
  // The phase changes with every cycle, so a thread that races ahead into the next cycle cannot
  // keep the stragglers of this one waiting.
  return qal::internal::arrive(*b, n, b->phase, [b] { store_relaxed(b->phase, b->phase ^ 1U); });
}

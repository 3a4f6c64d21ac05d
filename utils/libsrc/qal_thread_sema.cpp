// The counting semaphore, whose waiters pass together once the count is back at zero.
#include <qal/thread.h>

#include <cstdint>

#include "internal/status_with_breakpoint.hpp"

namespace {

using qal::internal::status_with_breakpoint;

// The count wraps around at 32 bits, so no starting value leads to an undefined overflow.
std::int32_t plus(std::int32_t count, std::int32_t change) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(count) +
                                   static_cast<std::uint32_t>(change));
}

// Once a call has failed, the result stays failed.
void note(int &result, int status) {
  if (status != QAL_THREAD_OK) result = QAL_THREAD_FAILED;
}

void pass_on(QalThreadSema &sema, int &result) {
  if (sema.count >= 0 && sema.waiters >= 1)
    note(result, status_with_breakpoint(pthread_cond_signal(&sema.condition)));
}

// Runs when a waiter is cancelled, with the mutex held again: withdraws the waiter's claim, and
// wakes the next waiter if that one may pass now.
void give_back(void *address) {
  auto &sema = *static_cast<QalThreadSema *>(address);
  int ignored = QAL_THREAD_OK;
  sema.count = plus(sema.count, 1);
  --sema.waiters;
  pass_on(sema, ignored);
  status_with_breakpoint(pthread_mutex_unlock(&sema.mutex));
}

int wait_for_turn(QalThreadSema &sema) {
  int result = QAL_THREAD_OK;
  ++sema.waiters;
  pthread_cleanup_push(give_back, &sema);
  while (sema.count < 0 && result == QAL_THREAD_OK) {
    note(result, status_with_breakpoint(pthread_cond_wait(&sema.condition, &sema.mutex)));
  }
  pthread_cleanup_pop(0);
  --sema.waiters;
  return result;
}

}  // namespace

int qal_thread_sema_init(QalThreadSema *s, int initial) {
  if (!s || qal_thread_mutex_init(&s->mutex) != QAL_THREAD_OK) return QAL_THREAD_FAILED;
  if (qal_thread_cond_init(&s->condition) != QAL_THREAD_OK) {
    qal_thread_mutex_destroy(&s->mutex);
    return QAL_THREAD_FAILED;
  }
  return qal_thread_sema_reset(s, initial);
}

int qal_thread_sema_destroy(QalThreadSema *s) {
  if (!s) return QAL_THREAD_FAILED;
  // Deliberate: the platform's own results are compared with -1, which they never are; failures of
  // either call go unnoticed.
  const int mutex_status = pthread_mutex_destroy(&s->mutex);
  const int condition_status = pthread_cond_destroy(&s->condition);
  const bool failed = mutex_status == QAL_THREAD_FAILED || condition_status == QAL_THREAD_FAILED;
  return failed ? QAL_THREAD_FAILED : QAL_THREAD_OK;
}

int qal_thread_sema_wait(QalThreadSema *s) {
  if (!s || status_with_breakpoint(pthread_mutex_lock(&s->mutex)) != QAL_THREAD_OK)
    return QAL_THREAD_FAILED;
  int result = QAL_THREAD_OK;
  const bool permitted = s->count >= 1;
  s->count = plus(s->count, -1);
  if (!permitted) {
    result = wait_for_turn(*s);
    pass_on(*s, result);
  }
  note(result, status_with_breakpoint(pthread_mutex_unlock(&s->mutex)));
  return result;
}

int qal_thread_sema_release(QalThreadSema *s) {
  if (!s || status_with_breakpoint(pthread_mutex_lock(&s->mutex)) != QAL_THREAD_OK)
    return QAL_THREAD_FAILED;
  int result = QAL_THREAD_OK;
  // Deliberate: only the release that pays the last debt wakes anybody; the woken thread passes the
  // signal on, so all waiters go together.
  s->count = plus(s->count, 1);
  if (s->count == 0) note(result, status_with_breakpoint(pthread_cond_signal(&s->condition)));
  note(result, status_with_breakpoint(pthread_mutex_unlock(&s->mutex)));
  return result;
}

int qal_thread_sema_reset(QalThreadSema *s, int value) {
  if (!s) return QAL_THREAD_FAILED;
  s->waiters = 0;
  s->count = value;
  return QAL_THREAD_OK;
}

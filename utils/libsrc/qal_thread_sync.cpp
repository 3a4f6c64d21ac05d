// The platform's threads, keys, mutexes and condition variables as the library's.
#include <qal/clock.h>
#include <qal/thread.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>

#include "internal/status_with_breakpoint.hpp"

namespace {

using qal::internal::status_with_breakpoint;

constexpr std::size_t stack_size_bytes = std::size_t{2} * 1024 * 1024;
constexpr std::int32_t nanoseconds_per_second = 1'000'000'000;
constexpr std::int32_t nanoseconds_per_microsecond = 1000;

int status_of(int platform_result) {
  return platform_result == 0 ? QAL_THREAD_OK : QAL_THREAD_FAILED;
}

struct Span {
  std::int32_t seconds;
  std::int32_t nanoseconds;
};

Span split(float seconds) {
  constexpr float limit = 2147483648.0F;
  if (std::isnan(seconds)) return {0, 0};
  if (seconds >= limit) return {std::numeric_limits<std::int32_t>::max(), 0};
  if (seconds < -limit) return {std::numeric_limits<std::int32_t>::min(), 0};
  const auto whole = static_cast<std::int32_t>(seconds);
  const float fraction = seconds - static_cast<float>(whole);
  return {whole, static_cast<std::int32_t>(static_cast<double>(fraction) * nanoseconds_per_second)};
}

timespec deadline_after(float seconds) {
  QalTime now;
  qal_time_get(&now);
  const Span span = split(seconds);
  std::int64_t whole = std::int64_t{now.seconds} + span.seconds;
  std::int32_t nanoseconds = now.microseconds * nanoseconds_per_microsecond + span.nanoseconds;
  // Deliberate: exactly 10^9 is not carried; the wait then fails.
  if (nanoseconds > nanoseconds_per_second) {
    ++whole;
    nanoseconds -= nanoseconds_per_second;
  }
  timespec deadline{};
  deadline.tv_sec = static_cast<std::time_t>(whole);
  deadline.tv_nsec = nanoseconds;
  return deadline;
}

}  // namespace

int qal_thread_create_sys(QalThreadHandle *handle_out, int index) {
  pthread_attr_t attributes;
  if (!handle_out || pthread_attr_init(&attributes) != 0) return QAL_THREAD_FAILED;
  void *const argument = reinterpret_cast<void *>(static_cast<std::intptr_t>(index));
  // A start that fails may overwrite the handle it is given, and the caller's may be that of a
  // thread still to be joined.
  QalThreadHandle handle;
  int status = pthread_attr_setstacksize(&attributes, stack_size_bytes);
  if (status == 0) {
    status = pthread_create(&handle, &attributes, qal_thread_start_void, argument);
  }
  pthread_attr_destroy(&attributes);
  if (status == 0) *handle_out = handle;
  return status_of(status);
}

int qal_thread_join_sys(QalThreadHandle handle) { return status_of(pthread_join(handle, nullptr)); }

int qal_thread_cancel_sys(QalThreadHandle handle) { return status_of(pthread_cancel(handle)); }

int qal_thread_key_create(QalThreadKey *key_out) {
  return key_out ? status_of(pthread_key_create(key_out, nullptr)) : QAL_THREAD_FAILED;
}

int qal_thread_setspecific(QalThreadKey key, const void *value) {
  return pthread_setspecific(key, value);
}

void *qal_thread_getspecific(QalThreadKey key) { return pthread_getspecific(key); }

int qal_thread_mutex_init(QalThreadMutex *m) {
  return m ? status_of(pthread_mutex_init(m, nullptr)) : QAL_THREAD_FAILED;
}

int qal_thread_mutex_destroy(QalThreadMutex *m) {
  return m ? status_of(pthread_mutex_destroy(m)) : QAL_THREAD_FAILED;
}

int qal_thread_mutex_lock(QalThreadMutex *m) {
  return m ? status_with_breakpoint(pthread_mutex_lock(m)) : QAL_THREAD_FAILED;
}

int qal_thread_mutex_trylock(QalThreadMutex *m) {
  if (!m) return QAL_THREAD_FAILED;
  const int status = pthread_mutex_trylock(m);
  return status == EBUSY ? QAL_THREAD_BUSY : status_with_breakpoint(status);
}

int qal_thread_mutex_unlock(QalThreadMutex *m) {
  return m ? status_with_breakpoint(pthread_mutex_unlock(m)) : QAL_THREAD_FAILED;
}

int qal_thread_cond_init(QalThreadCond *c) {
  return c ? status_of(pthread_cond_init(c, nullptr)) : QAL_THREAD_FAILED;
}

int qal_thread_cond_destroy(QalThreadCond *c) {
  return c ? status_of(pthread_cond_destroy(c)) : QAL_THREAD_FAILED;
}

int qal_thread_cond_broadcast(QalThreadCond *c) {
  return c ? status_with_breakpoint(pthread_cond_broadcast(c)) : QAL_THREAD_FAILED;
}

int qal_thread_cond_signal(QalThreadCond *c) {
  return c ? status_with_breakpoint(pthread_cond_signal(c)) : QAL_THREAD_FAILED;
}

int qal_thread_cond_wait(QalThreadCond *c, QalThreadMutex *m) {
  return c && m ? status_with_breakpoint(pthread_cond_wait(c, m)) : QAL_THREAD_FAILED;
}

int qal_thread_cond_timedwait(QalThreadCond *c, QalThreadMutex *m, float seconds) {
  if (!c || !m) return QAL_THREAD_FAILED;
  const timespec deadline = deadline_after(seconds);
  const int status = pthread_cond_timedwait(c, m, &deadline);
  return status == ETIMEDOUT ? QAL_THREAD_TIMED_OUT : status_with_breakpoint(status);
}

// The platform's thread calls and the breakpoint function, replaced at link time: each counts its
// calls and can be made to fail, and some let a case see their arguments or act in between.
// Included by one file of a program.
#pragma once

#include <qal/thread.h>
#include <sys/time.h>

#include <atomic>
#include <cstddef>
#include <ctime>
#include <functional>
#include <optional>
#include <string>

namespace qal::test {

class Call {
 public:
  // For the replacement: the error to return, or 0 to call the platform.
  int enter() {
    ++count_;
    const int next = next_error_.exchange(0);
    return next != 0 ? next : error_.load();
  }
  int count() const { return count_; }
  void refuse(int error) { error_ = error; }
  void refuse_next(int error) { next_error_ = error; }
  void allow() { error_ = 0; }

 private:
  std::atomic<int> error_{0};
  std::atomic<int> next_error_{0};
  std::atomic<int> count_{0};
};

struct PthreadCalls {
  Call attr_init, attr_setstacksize, create, join, cancel, key_create;
  Call mutex_init, mutex_destroy, mutex_lock, mutex_trylock, mutex_unlock;
  Call cond_init, cond_destroy, cond_signal, cond_broadcast, cond_wait, cond_timedwait;
  Call stop_here;

  // The initialisations, creations and destructions of the process so far, such as "+mutex -cond ".
  std::string order;

  // Each is called if it is set: before a creation, before a mutex is destroyed, instead of a wait,
  // after a wait, after an unlocking. To be set while the threads concerned do not run.
  std::function<void(QalThreadHandle *, const pthread_attr_t *)> before_create;
  std::function<void()> before_destroy;
  std::function<int(QalThreadCond *, QalThreadMutex *)> instead_of_wait;
  std::function<void(QalThreadCond *, QalThreadMutex *)> behind_wait;
  std::function<void(QalThreadMutex *)> behind_unlock;

  bool key_has_destructor = false;         // the key created last
  bool has_attributes = false;             // the mutex or condition initialised last
  std::optional<timeval> clock;            // while it is empty, the real one is read
  timespec deadline{};                     // of the last timed wait
  std::optional<int> answer_of_timedwait;  // while it is empty, the platform's own
};

inline PthreadCalls calls;

// Runs `step` while `call` fails with `error`.
template <typename Step>
auto refused(Call &call, int error, const Step &step) {
  call.refuse(error);
  const auto result = step();
  call.allow();
  return result;
}

}  // namespace qal::test

extern "C" {

using qal::test::calls;

int __real_pthread_attr_init(pthread_attr_t *attributes);
int __wrap_pthread_attr_init(pthread_attr_t *attributes) {
  if (const int error = calls.attr_init.enter()) return error;
  calls.order += "+attr ";
  return __real_pthread_attr_init(attributes);
}

int __real_pthread_attr_setstacksize(pthread_attr_t *attributes, std::size_t size);
int __wrap_pthread_attr_setstacksize(pthread_attr_t *attributes, std::size_t size) {
  if (const int error = calls.attr_setstacksize.enter()) return error;
  return __real_pthread_attr_setstacksize(attributes, size);
}

int __real_pthread_attr_destroy(pthread_attr_t *attributes);
int __wrap_pthread_attr_destroy(pthread_attr_t *attributes) {
  calls.order += "-attr ";
  return __real_pthread_attr_destroy(attributes);
}

int __real_pthread_create(pthread_t *handle, const pthread_attr_t *attributes,
                          void *(*routine)(void *), void *argument);
int __wrap_pthread_create(pthread_t *handle, const pthread_attr_t *attributes,
                          void *(*routine)(void *), void *argument) {
  if (calls.before_create) calls.before_create(handle, attributes);
  if (const int error = calls.create.enter()) return error;
  calls.order += "create ";
  return __real_pthread_create(handle, attributes, routine, argument);
}

int __real_pthread_join(pthread_t handle, void **value);
int __wrap_pthread_join(pthread_t handle, void **value) {
  if (const int error = calls.join.enter()) return error;
  return __real_pthread_join(handle, value);
}

int __real_pthread_cancel(pthread_t handle);
int __wrap_pthread_cancel(pthread_t handle) {
  if (const int error = calls.cancel.enter()) return error;
  return __real_pthread_cancel(handle);
}

int __real_pthread_key_create(pthread_key_t *key, void (*destructor)(void *));
int __wrap_pthread_key_create(pthread_key_t *key, void (*destructor)(void *)) {
  calls.key_has_destructor = destructor != nullptr;
  if (const int error = calls.key_create.enter()) return error;
  calls.order += "+key ";
  return __real_pthread_key_create(key, destructor);
}

int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes) {
  calls.has_attributes = attributes != nullptr;
  if (const int error = calls.mutex_init.enter()) return error;
  calls.order += "+mutex ";
  return __real_pthread_mutex_init(mutex, attributes);
}

int __real_pthread_mutex_destroy(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex) {
  if (calls.before_destroy) calls.before_destroy();
  calls.order += "-mutex ";
  if (const int error = calls.mutex_destroy.enter()) return error;
  return __real_pthread_mutex_destroy(mutex);
}

int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  if (const int error = calls.mutex_lock.enter()) return error;
  return __real_pthread_mutex_lock(mutex);
}

int __real_pthread_mutex_trylock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_trylock(pthread_mutex_t *mutex) {
  if (const int error = calls.mutex_trylock.enter()) return error;
  return __real_pthread_mutex_trylock(mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  const int error = calls.mutex_unlock.enter();
  const int status = error != 0 ? error : __real_pthread_mutex_unlock(mutex);
  if (calls.behind_unlock) calls.behind_unlock(mutex);
  return status;
}

int __real_pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes);
int __wrap_pthread_cond_init(pthread_cond_t *condition, const pthread_condattr_t *attributes) {
  calls.has_attributes = attributes != nullptr;
  if (const int error = calls.cond_init.enter()) return error;
  calls.order += "+cond ";
  return __real_pthread_cond_init(condition, attributes);
}

int __real_pthread_cond_destroy(pthread_cond_t *condition);
int __wrap_pthread_cond_destroy(pthread_cond_t *condition) {
  calls.order += "-cond ";
  if (const int error = calls.cond_destroy.enter()) return error;
  return __real_pthread_cond_destroy(condition);
}

int __real_pthread_cond_signal(pthread_cond_t *condition);
int __wrap_pthread_cond_signal(pthread_cond_t *condition) {
  if (const int error = calls.cond_signal.enter()) return error;
  return __real_pthread_cond_signal(condition);
}

int __real_pthread_cond_broadcast(pthread_cond_t *condition);
int __wrap_pthread_cond_broadcast(pthread_cond_t *condition) {
  if (const int error = calls.cond_broadcast.enter()) return error;
  return __real_pthread_cond_broadcast(condition);
}

int __real_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex);
int __wrap_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex) {
  if (const int error = calls.cond_wait.enter()) return error;
  // A copy, since it may replace itself.
  if (const auto step = calls.instead_of_wait) return step(condition, mutex);
  const int status = __real_pthread_cond_wait(condition, mutex);
  if (calls.behind_wait) calls.behind_wait(condition, mutex);
  return status;
}

int __real_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                  const timespec *deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t *condition, pthread_mutex_t *mutex,
                                  const timespec *deadline) {
  calls.deadline = *deadline;
  if (const int error = calls.cond_timedwait.enter()) return error;
  if (calls.answer_of_timedwait) return *calls.answer_of_timedwait;
  return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __real_gettimeofday(timeval *now, void *zone);
int __wrap_gettimeofday(timeval *now, void *zone) {
  if (!calls.clock) return __real_gettimeofday(now, zone);
  *now = *calls.clock;
  return 0;
}

void __real_qal_stop_here();
void __wrap_qal_stop_here() {
  calls.stop_here.enter();
  __real_qal_stop_here();
}
}

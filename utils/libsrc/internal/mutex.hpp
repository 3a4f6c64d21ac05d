// The library's mutex with its scope guard, and the annotations from which clang's thread-safety
// analysis checks what each mutex guards.
#pragma once

#include <qal/thread.h>

#include "internal/locks_needed.hpp"

#ifdef __clang__
#define QAL_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define QAL_THREAD_ANNOTATION(annotation)
#endif
#define QAL_GUARDED_BY(mutex) QAL_THREAD_ANNOTATION(guarded_by(mutex))
#define QAL_REQUIRES(mutex) QAL_THREAD_ANNOTATION(requires_capability(mutex))
// For functions that lock the mutex, directly or through a call. Public functions have it on their
// definition, because their headers are C; calls above the definition are not checked.
#define QAL_EXCLUDES(mutex) QAL_REQUIRES(!(mutex))

namespace qal::internal {

// A process-wide mutex that can be locked without a start-up. `platform()` is for start-up, which
// sets it up anew.
class QAL_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  // Returns 0 with the mutex held, or the platform's error number.
  int lock() QAL_THREAD_ANNOTATION(try_acquire_capability(0)) {
    return pthread_mutex_lock(&mutex_);
  }
  int unlock() QAL_THREAD_ANNOTATION(release_capability()) { return pthread_mutex_unlock(&mutex_); }
  QalThreadMutex &platform() { return mutex_; }
  const Mutex &operator!() const;  // for annotations alone

 private:
  QalThreadMutex mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

class QAL_THREAD_ANNOTATION(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex &mutex) QAL_THREAD_ANNOTATION(acquire_capability(mutex))
      QAL_THREAD_ANNOTATION(no_thread_safety_analysis)
      : mutex_(mutex) {
    mutex_.lock();
  }
  ~Lock() QAL_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;

 private:
  Mutex &mutex_;
};

// Locks only where a lock is needed; see locks_needed().
class QAL_THREAD_ANNOTATION(scoped_lockable) LockIfNeeded {
 public:
  explicit LockIfNeeded(Mutex &mutex) QAL_THREAD_ANNOTATION(acquire_capability(mutex))
      QAL_THREAD_ANNOTATION(no_thread_safety_analysis)
      : locked_(locks_needed() ? &mutex : nullptr) {
    if (!locked_) return;
    start_locking();
    locked_->lock();
  }
  ~LockIfNeeded() QAL_THREAD_ANNOTATION(release_capability()) {
    if (locked_) locked_->unlock();
  }
  LockIfNeeded(const LockIfNeeded &) = delete;
  LockIfNeeded &operator=(const LockIfNeeded &) = delete;

 private:
  Mutex *const locked_;
};

}  // namespace qal::internal

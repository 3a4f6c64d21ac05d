// The six reductions: one protocol, with the function that combines two numbers as its parameter.
#include <qal/barrier.h>
#include <qal/logger.h>

#include <cstdint>

#include "internal/barrier.hpp"
#include "internal/mutex.hpp"

namespace {

// A barrier whose waiters watch a count of cycles that nobody outside sees. The public barrier's
// phase is one bit and would hang a group that is followed at once by a smaller one: the smaller
// group can flip it twice before a straggler looks.
struct GroupBarrier {
  QalThreadBarrier barrier;
  std::uint64_t generation = 0;

  template <typename EndCycle>
  void meet(int nthreads, const EndCycle &end_cycle) {
    const unsigned n = nthreads < 1 ? 1U : static_cast<unsigned>(nthreads);
    qal::internal::arrive(barrier, n, generation, [this, &end_cycle] {
      qal::internal::store_relaxed(generation, generation + 1);
      barrier.phase ^= 1U;
      end_cycle();
    });
  }
};

// One operation with its process-wide state. Every thread contributes, meets the others, reads the
// result and meets them again.
template <typename Number, Number (*combine)(Number x, Number so_far)>
class Reduction {
 public:
  constexpr Reduction(const char *operation, const char *mutex_name) noexcept
      : operation_(operation), mutex_name_(mutex_name) {}

  Number reduce(Number x, int nthreads) QAL_EXCLUDES(mutex_) {
    if (!contribute(&x, &value_, 1)) return 0;
    meet_after_contributing(nthreads);
    const Number result = value_;
    meet_after_reading(nthreads);
    return result;
  }

  // The callers read the result in `out`, which all threads share.
  void reduce_arrays(const Number *in, Number *out, int count, int nthreads) QAL_EXCLUDES(mutex_) {
    if (!contribute(in, out, count)) return;
    meet_after_contributing(nthreads);
    meet_after_reading(nthreads);
  }

 private:
  // Returns false when the mutex cannot be locked: the thread has contributed nothing then, and
  // does not meet the others.
  bool contribute(const Number *in, Number *out, int count) QAL_EXCLUDES(mutex_) {
    if (const int error = mutex_.lock(); error != 0) {
      qal_error("%s: error from locking %s %d\n", operation_, mutex_name_, error);
      return false;
    }
    if (first_time_) {
      for (int i = 0; i < count; ++i) out[i] = combine(in[i], out[i]);
    } else {
      make_barriers();
      first_time_ = true;
      for (int i = 0; i < count; ++i) out[i] = in[i];
    }
    mutex_.unlock();
    return true;
  }

  // A failure is not reported: meeting at a barrier that was not made returns at once.
  void make_barriers() QAL_REQUIRES(mutex_) {
    if (very_first_time_) return;
    qal_thread_barrier_init(&barrier1_.barrier);
    qal_thread_barrier_init(&barrier2_.barrier);
    very_first_time_ = true;
  }

  // Between the two meetings every thread has contributed and none can have begun the next cycle.
  // The last arrival puts the state back inside each meeting, before any thread is released: done
  // later, it would undo the first arrivals of a group that follows at once.
  void meet_after_contributing(int nthreads) {
    barrier1_.meet(nthreads, [this] { first_time_ = false; });
  }
  void meet_after_reading(int nthreads) {
    barrier2_.meet(nthreads, [this] { barrier1_.barrier.count = barrier2_.barrier.count = 0; });
  }

  const char *operation_;
  const char *mutex_name_;
  qal::internal::Mutex mutex_;
  bool first_time_ = false;       // somebody has contributed to this cycle
  bool very_first_time_ = false;  // the barriers have been made
  GroupBarrier barrier1_{};
  GroupBarrier barrier2_{};
  Number value_{};
};

double larger(double x, double so_far) { return x > so_far ? x : so_far; }

double smaller(double x, double so_far) { return x < so_far ? x : so_far; }

double sum(double x, double so_far) { return x + so_far; }

int sum(int x, int so_far) {
  return static_cast<int>(static_cast<unsigned>(x) + static_cast<unsigned>(so_far));
}

constinit Reduction<double, larger> dmax{"qal_thread_reduce_dmax", "dmax_mutex"};
constinit Reduction<double, smaller> dmin{"qal_thread_reduce_dmin", "dmin_mutex"};
constinit Reduction<double, sum> dsum{"qal_thread_global_dsum", "dsum_mutex"};
constinit Reduction<double, sum> dsums{"qal_thread_global_dsums", "dsums_mutex"};
constinit Reduction<int, sum> isum{"qal_thread_global_isum", "isum_mutex"};
constinit Reduction<int, sum> isums{"qal_thread_global_isums", "isums_mutex"};

}  // namespace

double qal_thread_reduce_dmax(double x, int nthreads) { return dmax.reduce(x, nthreads); }

double qal_thread_reduce_dmin(double x, int nthreads) { return dmin.reduce(x, nthreads); }

double qal_thread_global_dsum(double x, int nthreads) { return dsum.reduce(x, nthreads); }

int qal_thread_global_isum(int x, int nthreads) { return isum.reduce(x, nthreads); }

void qal_thread_global_dsums(const double *in, double *out, int count, int nthreads) {
  dsums.reduce_arrays(in, out, count, nthreads);
}

void qal_thread_global_isums(const int *in, int *out, int count, int nthreads) {
  isums.reduce_arrays(in, out, count, nthreads);
}

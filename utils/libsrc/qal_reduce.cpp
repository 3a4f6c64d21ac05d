// The six reductions: one protocol, written once, with what differs handed in.
#include <qal/barrier.h>
#include <qal/logger.h>

#include <cstdint>
#include <span>

#include "internal/barrier.hpp"
#include "internal/mutex.hpp"

namespace {

using qal::internal::arrive;
using qal::internal::store_relaxed;

// A barrier whose waiters watch a count of cycles that nobody outside sees. The public one-bit
// phase would hang a group that is followed by a smaller one: the smaller group can flip it twice
// before a straggler looks.
struct GroupBarrier {
  QalThreadBarrier record;
  std::uint64_t generation = 0;

  template <typename Finish>
  int meet(unsigned n, const Finish &finish) {
    return arrive(record, n, generation, [this, &finish] {
      store_relaxed(generation, generation + 1);
      record.phase ^= 1U;
      finish();
    });
  }
};

// One operation's process-wide state. Value is what its threads combine into: a number, or nothing
// for the vectors, which combine into the caller's array.
template <typename Value>
class Reduction {
 public:
  constexpr Reduction(const char *operation, const char *mutex_name) noexcept
      : operation_(operation), mutex_name_(mutex_name) {}

  // Lets the calling thread contribute: `seed` for the cycle's first, `combine` for the others.
  // Answers the combined value, or a zero when the mutex is refused: that thread then takes no
  // part in the meeting.
  template <typename Seed, typename Combine>
  Value run(int nthreads, const Seed &seed, const Combine &combine) {
    if (const int error = mutex_.lock(); error != 0) {
      qal_error("%s: error from locking %s %d\n", operation_, mutex_name_, error);
      return Value{};
    }
    contribute(seed, combine);
    mutex_.unlock();
    return meet(nthreads < 1 ? 1U : static_cast<unsigned>(nthreads));
  }

 private:
  template <typename Seed, typename Combine>
  void contribute(const Seed &seed, const Combine &combine) QAL_REQUIRES(mutex_) {
    if (first_time_) {
      combine(value_);
      return;
    }
    make_barriers();
    first_time_ = true;
    seed(value_);
  }

  // Failures are not reported: the barriers then answer -1 and nobody waits for anybody.
  void make_barriers() QAL_REQUIRES(mutex_) {
    if (very_first_time_) return;
    qal_thread_barrier_init(&barrier1_.record);
    qal_thread_barrier_init(&barrier2_.record);
    very_first_time_ = true;
  }

  // Between the two barriers every thread has contributed and none can have begun the next cycle.
  // The last arrival closes the cycle inside each barrier, before anybody is released: done
  // afterwards, it would undo the first arrivals of a group that goes on at once.
  Value meet(unsigned n) {
    barrier1_.meet(n, [this] { first_time_ = false; });
    const Value result = value_;
    barrier2_.meet(n, [this] { barrier1_.record.count = barrier2_.record.count = 0; });
    return result;
  }

  const char *operation_;
  const char *mutex_name_;
  qal::internal::Mutex mutex_;
  bool first_time_ = false;
  bool very_first_time_ = false;
  GroupBarrier barrier1_{};
  GroupBarrier barrier2_{};
  Value value_{};
};

struct Nothing {};

constinit Reduction<double> dmax{"qal_thread_reduce_dmax", "dmax_mutex"};
constinit Reduction<double> dmin{"qal_thread_reduce_dmin", "dmin_mutex"};
constinit Reduction<double> dsum{"qal_thread_global_dsum", "dsum_mutex"};
constinit Reduction<Nothing> dsums{"qal_thread_global_dsums", "dsums_mutex"};
constinit Reduction<int> isum{"qal_thread_global_isum", "isum_mutex"};
constinit Reduction<Nothing> isums{"qal_thread_global_isums", "isums_mutex"};

double sum(double a, double b) { return a + b; }

int sum(int a, int b) {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

template <typename Value, typename Combine>
Value reduce(Reduction<Value> &reduction, Value x, int nthreads, const Combine &combine) {
  return reduction.run(
      nthreads, [x](Value &value) { value = x; },
      [x, &combine](Value &value) { value = combine(x, value); });
}

template <typename Number>
void sum_arrays(Reduction<Nothing> &reduction, const Number *in, Number *out, int count,
                int nthreads) {
  reduction.run(
      nthreads,
      [=](Nothing &) {
        for (int i = 0; i < count; ++i) out[i] = in[i];
      },
      [=](Nothing &) {
        for (int i = 0; i < count; ++i) out[i] = sum(in[i], out[i]);
      });
}

}  // namespace

double qal_thread_reduce_dmax(double x, int nthreads) {
  return reduce(dmax, x, nthreads, [](double a, double b) { return a > b ? a : b; });
}

double qal_thread_reduce_dmin(double x, int nthreads) {
  return reduce(dmin, x, nthreads, [](double a, double b) { return a < b ? a : b; });
}

double qal_thread_global_dsum(double x, int nthreads) {
  return reduce(dsum, x, nthreads, [](double a, double b) { return sum(a, b); });
}

int qal_thread_global_isum(int x, int nthreads) {
  return reduce(isum, x, nthreads, [](int a, int b) { return sum(a, b); });
}

void qal_thread_global_dsums(const double *in, double *out, int count, int nthreads) {
  sum_arrays(dsums, in, out, count, nthreads);
}

void qal_thread_global_isums(const int *in, int *out, int count, int nthreads) {
  sum_arrays(isums, in, out, count, nthreads);
}

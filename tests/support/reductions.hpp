// The reductions as groups of threads use them.
#pragma once

#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <array>

#include "support/workers.hpp"

namespace qal::test {

// Thread `i` of `threads` contributes to an operation and checks the outcome.
using Contribution = void (*)(int i, int threads, int round);

inline void contribute_to_maximum(int i, int threads, int round) {
  EXPECT_EQ(qal_thread_reduce_dmax(round + i, threads), round + threads - 1);
}

inline void contribute_to_minimum(int i, int threads, int round) {
  EXPECT_EQ(qal_thread_reduce_dmin(round + i, threads), round);
}

inline void contribute_to_sum(int i, int threads, int round) {
  const int expected = threads * round + threads * (threads - 1) / 2;
  EXPECT_EQ(qal_thread_global_dsum(round + i, threads), expected);
}

inline void contribute_to_integer_sum(int i, int threads, int round) {
  const int expected = threads * round + threads * (threads - 1) / 2;
  EXPECT_EQ(qal_thread_global_isum(round + i, threads), expected);
}

template <typename Number>
using ArraySum = void (*)(const Number *, Number *, int, int);

// The second operation lets no thread reuse the array before all have read it.
template <typename Number, ArraySum<Number> operation>
void contribute_to_array(int i, int threads, int round) {
  static std::array<Number, 2> sums;
  const std::array<Number, 2> in{static_cast<Number>(i), static_cast<Number>(round)};
  operation(in.data(), sums.data(), 2, threads);
  EXPECT_EQ(sums[0], static_cast<Number>(threads * (threads - 1) / 2));
  EXPECT_EQ(sums[1], static_cast<Number>(threads * round));
  operation(nullptr, nullptr, 0, threads);
}

// One for each operation.
inline constexpr Contribution contributions[] = {
    &contribute_to_maximum,
    &contribute_to_minimum,
    &contribute_to_sum,
    &contribute_to_integer_sum,
    &contribute_to_array<double, &qal_thread_global_dsums>,
    &contribute_to_array<int, &qal_thread_global_isums>,
};

// The group stays as it is and goes on without a pause.
inline void same_group(int threads, int rounds, Contribution contribute) {
  run_together(threads, [=](int i) {
    for (int round = 0; round < rounds; ++round) contribute(i, threads, round);
  });
}

// Four threads, then at once two of them, over and over. The barrier keeps the next four from
// joining the two.
inline void four_then_two(int rounds, Contribution contribute) {
  QalThreadBarrier between;
  ASSERT_EQ(qal_thread_barrier_init(&between), 0);
  run_together(4, [&](int i) {
    for (int round = 0; round < rounds; ++round) {
      contribute(i, 4, round);
      if (i < 2) contribute(i, 2, round);
      qal_thread_barrier(&between, 4);
    }
  });
  EXPECT_EQ(qal_thread_barrier_destroy(&between), 0);
}

}  // namespace qal::test

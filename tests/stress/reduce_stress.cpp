#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <array>

#include "stress.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::run_together;
using qal::test::sized;
using qal::test::Stress;

using ReduceStress = Stress;

constexpr int most_threads = 16;

// Thread `i` of `threads` contributes to one of the operations and checks what it gets.
void contribute(int i, int threads, int round) {
  const int sum = threads * round + threads * (threads - 1) / 2;
  switch (round % 6) {
    case 0:
      EXPECT_EQ(qal_thread_reduce_dmax(round + i, threads), round + threads - 1);
      break;
    case 1:
      EXPECT_EQ(qal_thread_reduce_dmin(round + i, threads), round);
      break;
    case 2:
      EXPECT_EQ(qal_thread_global_dsum(round + i, threads), sum);
      break;
    default:
      EXPECT_EQ(qal_thread_global_isum(round + i, threads), sum);
  }
}

// The threads take part in groups that shrink one by one down to two, each following the one before
// at once and with the same operation; then all begin again. Returns the number of cycles.
int shrink_over_and_over(int threads, int cycles) {
  const int groups = threads - 1;
  const int rounds = (cycles + groups - 1) / groups;
  QalThreadBarrier between;
  EXPECT_EQ(qal_thread_barrier_init(&between), 0);
  run_together(threads, [&](int i) {
    for (int round = 0; round < rounds; ++round) {
      for (int size = threads; size >= 2 && size > i; --size) contribute(i, size, round);
      qal_thread_barrier(&between, static_cast<unsigned>(threads));
    }
  });
  qal_thread_barrier_destroy(&between);
  return rounds * groups;
}

TEST_F(ReduceStress, GoesOnWhileGroupsOfTwoToSixteenThreadsShrink) {
  const int wanted = sized(6'000, 1'000'000);
  int cycles = 0;
  for (int threads = 2; threads <= most_threads; ++threads) {
    cycles += shrink_over_and_over(threads, (wanted - cycles) / (most_threads + 1 - threads));
  }
  record_count(cycles);
}

template <typename Number>
void sum_arrays(void (*operation)(const Number *, Number *, int, int), int threads, int cycles) {
  std::array<Number, 2> sums{};
  run_together(threads, [&](int i) {
    for (int round = 0; round < cycles; ++round) {
      const std::array<Number, 2> in{static_cast<Number>(i), static_cast<Number>(round)};
      operation(in.data(), sums.data(), 2, threads);
      EXPECT_EQ(sums[0], static_cast<Number>(threads * (threads - 1) / 2));
      EXPECT_EQ(sums[1], static_cast<Number>(threads * round));
      operation(nullptr, nullptr, 0, threads);  // all have read the sums
    }
  });
}

TEST_F(ReduceStress, SumsArraysOverAndOver) {
  const int cycles = sized(200, 20'000);
  for (const int threads : {2, 3, most_threads}) {
    sum_arrays<double>(&qal_thread_global_dsums, threads, cycles);
    sum_arrays<int>(&qal_thread_global_isums, threads, cycles);
  }
  record_count(6 * 2 * cycles);
}

}  // namespace

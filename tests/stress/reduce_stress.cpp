#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <cstddef>
#include <iterator>

#include "stress.hpp"
#include "support/reductions.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::contribute_to_array;
using qal::test::contributions;
using qal::test::four_then_two;
using qal::test::run_together;
using qal::test::same_group;
using qal::test::sized;
using qal::test::Stress;

using ReduceStress = Stress;

constexpr int most_threads = 16;

// The threads take part in groups that shrink one by one down to two, each following the one before
// at once and with the same operation; then all begin again. Returns the number of cycles.
int shrink_over_and_over(int threads, int cycles) {
  const int groups = threads - 1;
  const int rounds = (cycles + groups - 1) / groups;
  QalThreadBarrier between;
  EXPECT_EQ(qal_thread_barrier_init(&between), 0);
  run_together(threads, [&](int i) {
    for (int round = 0; round < rounds; ++round) {
      const auto contribute =
          contributions[static_cast<std::size_t>(round) % std::size(contributions)];
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

TEST_F(ReduceStress, FollowsFourThreadsByTwoOfThem) {
  const int rounds = sized(2'000, 100'000);
  for (const auto contribute : contributions) four_then_two(rounds, contribute);
  record_count(static_cast<int>(std::size(contributions)) * 2 * rounds);
}

TEST_F(ReduceStress, SumsArraysOverAndOver) {
  const int cycles = sized(200, 20'000);
  for (const int threads : {2, 3, most_threads}) {
    same_group(threads, cycles, &contribute_to_array<double, &qal_thread_global_dsums>);
    same_group(threads, cycles, &contribute_to_array<int, &qal_thread_global_isums>);
  }
  record_count(6 * 2 * cycles);
}

}  // namespace

#include <gtest/gtest.h>
#include <qal/barrier.h>

#include <array>
#include <atomic>
#include <climits>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <numeric>
#include <vector>

#include "support/reductions.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::ArraySum;
using qal::test::contribute_to_maximum;
using qal::test::contributions;
using qal::test::four_then_two;
using qal::test::repetitions;
using qal::test::run_together;
using qal::test::same_group;
using qal::test::Threads;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

using Reduce = Threads;
using ReduceRepeated = Threads;

// The result that each thread got.
template <typename Value>
std::vector<Value> all_got(Value (*operation)(Value, int), const std::vector<Value> &values) {
  const int threads = static_cast<int>(values.size());
  std::vector<Value> got(values.size());
  run_together(threads, [&](int i) {
    const auto at = static_cast<std::size_t>(i);
    got[at] = operation(values[at], threads);
  });
  return got;
}

template <typename Value>
void everybody_gets(Value expected, Value (*operation)(Value, int),
                    const std::vector<Value> &values) {
  for (const Value value : all_got(operation, values)) EXPECT_EQ(value, expected);
}

TEST_F(Reduce, GivesEveryThreadTheLargest) {
  everybody_gets(7.5, &qal_thread_reduce_dmax, {3.0, 7.5, -1.0, 7.5});
  everybody_gets(-1.0, &qal_thread_reduce_dmax, {-3.0, -1.0});
  everybody_gets(infinity, &qal_thread_reduce_dmax, {-infinity, infinity, 0.0});
}

TEST_F(Reduce, GivesEveryThreadTheSmallest) {
  everybody_gets(-1.0, &qal_thread_reduce_dmin, {3.0, 7.5, -1.0, 7.5});
  everybody_gets(1.0, &qal_thread_reduce_dmin, {3.0, 1.0});
  everybody_gets(-infinity, &qal_thread_reduce_dmin, {-infinity, infinity, 0.0});
}

TEST_F(Reduce, GivesEveryThreadTheSum) {
  everybody_gets(17.0, &qal_thread_global_dsum, {3.0, 7.5, -1.0, 7.5});
  everybody_gets(17, &qal_thread_global_isum, {3, 8, -1, 7});
}

TEST_F(Reduce, WrapsIntegerSumsAround) {
  everybody_gets(INT_MIN, &qal_thread_global_isum, {INT_MAX, 1});
  everybody_gets(INT_MAX, &qal_thread_global_isum, {INT_MIN, -1});
  everybody_gets(-2, &qal_thread_global_isum, {INT_MAX, INT_MAX});
}

TEST_F(Reduce, GivesALoneThreadItsOwnValue) {
  for (const int nthreads : {1, 0, -1, INT_MIN}) {
    EXPECT_EQ(qal_thread_reduce_dmax(-2.5, nthreads), -2.5);
    EXPECT_EQ(qal_thread_reduce_dmin(2.5, nthreads), 2.5);
    EXPECT_EQ(qal_thread_global_dsum(0.1, nthreads), 0.1);
    EXPECT_EQ(qal_thread_global_isum(-7, nthreads), -7);
    const double number = 1.5;
    double number_sum = 99;
    qal_thread_global_dsums(&number, &number_sum, 1, nthreads);
    EXPECT_EQ(number_sum, 1.5);
    const int integer = 3;
    int integer_sum = 99;
    qal_thread_global_isums(&integer, &integer_sum, 1, nthreads);
    EXPECT_EQ(integer_sum, 3);
  }
}

TEST_F(Reduce, BeginsEveryCycleAfresh) {
  EXPECT_EQ(qal_thread_reduce_dmax(9.0, 1), 9.0);
  EXPECT_EQ(qal_thread_reduce_dmax(-9.0, 1), -9.0);
  EXPECT_EQ(qal_thread_reduce_dmin(-9.0, 1), -9.0);
  EXPECT_EQ(qal_thread_reduce_dmin(9.0, 1), 9.0);
  EXPECT_EQ(qal_thread_global_dsum(9.0, 1), 9.0);
  EXPECT_EQ(qal_thread_global_dsum(1.0, 1), 1.0);
}

TEST_F(Reduce, WorksForGroupsOfOneToSixteenThreads) {
  for (int threads = 1; threads <= 16; ++threads) {
    std::vector<double> numbers(static_cast<std::size_t>(threads));
    std::iota(numbers.begin(), numbers.end(), 1.0);
    const std::vector<int> integers(numbers.begin(), numbers.end());
    const int sum = threads * (threads + 1) / 2;
    everybody_gets(static_cast<double>(threads), &qal_thread_reduce_dmax, numbers);
    everybody_gets(1.0, &qal_thread_reduce_dmin, numbers);
    everybody_gets(static_cast<double>(sum), &qal_thread_global_dsum, numbers);
    everybody_gets(sum, &qal_thread_global_isum, integers);
  }
}

TEST_F(Reduce, SumsNotANumberToNotANumber) {
  for (const double value : all_got(&qal_thread_global_dsum, {1.0, not_a_number, 2.0})) {
    EXPECT_TRUE(std::isnan(value));
  }
  for (const double value : all_got(&qal_thread_global_dsum, {infinity, -infinity})) {
    EXPECT_TRUE(std::isnan(value));
  }
}

TEST_F(Reduce, GivesNotANumberWhenThereIsNothingElse) {
  EXPECT_TRUE(std::isnan(qal_thread_reduce_dmax(not_a_number, 1)));
  for (const double value : all_got(&qal_thread_reduce_dmin, {not_a_number, not_a_number})) {
    EXPECT_TRUE(std::isnan(value));
  }
}

// Thread i contributes i + 1, 10 (i + 1) and 100 (i + 1); only the first two are summed.
template <typename Number>
void sum_two_of_three(ArraySum<Number> operation) {
  for (int threads = 1; threads <= 16; ++threads) {
    std::array<Number, 3> sums{-1, -2, -3};
    const auto sum = static_cast<Number>(threads * (threads + 1) / 2);
    run_together(threads, [&](int i) {
      const auto own = static_cast<Number>(i + 1);
      const std::array<Number, 3> in{own, 10 * own, 100 * own};
      operation(in.data(), sums.data(), 2, threads);
      EXPECT_EQ(sums[0], sum);
      EXPECT_EQ(sums[1], 10 * sum);
    });
    EXPECT_EQ(sums[2], static_cast<Number>(-3));
  }
}

TEST_F(Reduce, SumsArraysElementByElement) {
  sum_two_of_three<double>(&qal_thread_global_dsums);
  sum_two_of_three<int>(&qal_thread_global_isums);
}

TEST_F(Reduce, WrapsTheSumsOfIntegerArraysAround) {
  std::array<int, 2> sums{};
  run_together(2, [&](int i) {
    const std::array<int, 2> in = i == 0 ? std::array{INT_MAX, INT_MIN} : std::array{1, -1};
    qal_thread_global_isums(in.data(), sums.data(), 2, 2);
  });
  EXPECT_EQ(sums, (std::array{INT_MIN, INT_MAX}));
}

TEST_F(Reduce, LeavesTheSumsThereAfterTheCall) {
  const std::array<double, 1> in{2.0};
  std::array<double, 1> sums{};
  qal_thread_global_dsums(in.data(), sums.data(), 1, 1);
  qal_thread_global_dsums(in.data(), sums.data(), 1, 1);
  EXPECT_EQ(sums[0], 2.0);
}

// Expects that no thread passes before all have arrived.
void expect_meeting(const std::function<void(int)> &operation) {
  for (const int threads : {2, 5}) {
    std::atomic<int> arrived{0};
    run_together(threads, [&](int) {
      ++arrived;
      operation(threads);
      EXPECT_EQ(arrived, threads);
    });
  }
}

TEST_F(Reduce, MakesTheThreadsMeet) {
  expect_meeting([](int threads) { qal_thread_reduce_dmax(1, threads); });
  expect_meeting([](int threads) { qal_thread_reduce_dmin(1, threads); });
  expect_meeting([](int threads) { qal_thread_global_dsum(1, threads); });
  expect_meeting([](int threads) { qal_thread_global_isum(1, threads); });
}

TEST_F(Reduce, OfNoElementsChangesNothingAndMakesTheThreadsMeet) {
  for (const int count : {0, -1, INT_MIN}) {
    double number = 4.5;
    int integer = 45;
    expect_meeting([&](int threads) { qal_thread_global_dsums(&number, &number, count, threads); });
    expect_meeting(
        [&](int threads) { qal_thread_global_isums(&integer, &integer, count, threads); });
    expect_meeting([=](int threads) { qal_thread_global_dsums(nullptr, nullptr, count, threads); });
    expect_meeting([=](int threads) { qal_thread_global_isums(nullptr, nullptr, count, threads); });
    EXPECT_EQ(number, 4.5);
    EXPECT_EQ(integer, 45);
  }
}

// Two threads take part in each operation.
TEST_F(Reduce, LetsAllOperationsRunAtOnce) {
  constexpr int rounds = repetitions(2'000);
  run_together(2 * static_cast<int>(std::size(contributions)), [](int i) {
    for (int round = 0; round < rounds; ++round) contributions[i / 2](i % 2, 2, round);
  });
}

TEST_F(ReduceRepeated, FollowsFourThreadsByTwoOfThem) {
  four_then_two(20'000, &contribute_to_maximum);
  for (const auto contribute : contributions) four_then_two(2'000, contribute);
}

TEST_F(ReduceRepeated, GoesOnWithoutAPauseInGroupsOfManySizes) {
  for (const int threads : {2, 16, 3, 1, 7}) {
    for (const auto contribute : contributions) same_group(threads, 500, contribute);
  }
}

}  // namespace

// Reductions of changing groups. An input is a row of groups: the operation, the size, the values
// and the pauses. A group that is not larger than the one before follows it without a pause.
#include <qal/barrier.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "input.hpp"
#include "require.hpp"
#include "team.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::pause;
using qal::fuzz::require;
using qal::fuzz::team_of;
using qal::fuzz::Watchdog;

constexpr int most_threads = 4;
constexpr int most_elements = 3;

template <typename Number>
using Elements = std::array<Number, most_elements>;

struct Group {
  explicit Group(Input &input)
      : operation(input.below(6)),
        threads(static_cast<int>(input.below(most_threads)) + 1),
        elements(static_cast<int>(input.below(most_elements + 2)) - 1) {
    for (int &value : values) value = value_of(input);
    for (std::uint8_t &length : pauses) length = input.byte();
  }

  // Small, or such that sums wrap around.
  static int value_of(Input &input) {
    const std::uint8_t byte = input.byte();
    if (byte == 255) return INT_MAX;
    return byte == 254 ? INT_MIN : byte - 127;
  }

  // What a thread brings for an element.
  int value(int thread, int element) const {
    return values[static_cast<std::size_t>(thread + element) % values.size()];
  }
  // A lone thread may say so in any way.
  int said_threads() const { return threads == 1 ? std::min(values[0], 1) : threads; }

  std::size_t operation;
  int threads;
  int elements;
  std::array<int, most_threads> values{};
  std::array<std::uint8_t, most_threads> pauses{};
  // The group's own arrays.
  mutable Elements<double> number_sums{};
  mutable Elements<int> integer_sums{};
};

// The values of one element, combined one after the other.
template <typename Value, typename Combine>
Value combined(const Group &group, int element, const Combine &combine) {
  Value result = group.value(0, element);
  for (int thread = 1; thread < group.threads; ++thread) {
    result = combine(result, static_cast<Value>(group.value(thread, element)));
  }
  return result;
}

double number_sum(const Group &group, int element) {
  return combined<double>(group, element, [](double a, double b) { return a + b; });
}

int integer_sum(const Group &group, int element) {
  return combined<int>(group, element, [](int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
  });
}

template <typename Number, typename Operation, typename Sum>
void sum_arrays(const Group &group, int thread, Elements<Number> &sums, Operation operation,
                const Sum &sum) {
  Elements<Number> in{};
  for (int i = 0; i < most_elements; ++i) {
    in[static_cast<std::size_t>(i)] = group.value(thread, i);
  }
  operation(in.data(), sums.data(), group.elements, group.said_threads());
  for (int i = 0; i < most_elements; ++i) {
    require(sums[static_cast<std::size_t>(i)] == (i < group.elements ? sum(group, i) : 0),
            "arrays are summed element by element");
  }
}

void contribute(const Group &group, int thread) {
  const int threads = group.said_threads();
  const int value = group.value(thread, 0);
  switch (group.operation) {
    case 0:
      return require(qal_thread_reduce_dmax(value, threads) ==
                         combined<int>(group, 0, [](int a, int b) { return std::max(a, b); }),
                     "everybody gets the largest");
    case 1:
      return require(qal_thread_reduce_dmin(value, threads) ==
                         combined<int>(group, 0, [](int a, int b) { return std::min(a, b); }),
                     "everybody gets the smallest");
    case 2:
      return require(qal_thread_global_dsum(value, threads) == number_sum(group, 0),
                     "everybody gets the sum");
    case 3:
      return require(qal_thread_global_isum(value, threads) == integer_sum(group, 0),
                     "everybody gets the sum of integers");
    case 4:
      return sum_arrays(group, thread, group.number_sums, &qal_thread_global_dsums, &number_sum);
    default:
      return sum_arrays(group, thread, group.integer_sums, &qal_thread_global_isums, &integer_sum);
  }
}

// Thread i takes part in every group of more than i threads. Before a group grows all of them meet,
// since its new threads could otherwise arrive among the group before.
void play(const std::vector<Group> &groups, QalThreadBarrier &between, int thread) {
  int threads_before = most_threads;
  for (const Group &group : groups) {
    if (group.threads > threads_before) qal_thread_barrier(&between, most_threads);
    threads_before = group.threads;
    if (thread >= group.threads) continue;
    pause(group.pauses[static_cast<std::size_t>(thread)]);
    contribute(group, thread);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Watchdog watchdog;
  Input input(data, size);
  std::vector<Group> groups;
  while (input.left() && groups.size() < 24) groups.emplace_back(input);
  QalThreadBarrier between;
  require(qal_thread_barrier_init(&between) == 0, "a barrier can be made");
  const std::function<void(int)> task = [&](int i) { play(groups, between, i); };
  team_of(most_threads, task).clear();
  qal_thread_barrier_destroy(&between);
  return 0;
}

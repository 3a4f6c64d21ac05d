// Threads that meet at a barrier over and over. An input is a row of groups: their size, the number
// of cycles, who is asked to be cancelled meanwhile, and the pauses.
#include <qal/barrier.h>

#include <array>
#include <atomic>
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
using qal::test::Team;

constexpr int most_threads = 4;

struct Group {
  explicit Group(Input &input)
      : threads(static_cast<int>(input.below(most_threads)) + 1),
        cycles(static_cast<int>(input.below(12)) + 1),
        later_size(input.byte()),
        cancelled(input.byte()) {
    for (std::uint8_t &length : pauses) length = input.byte();
  }

  int threads;
  int cycles;
  unsigned later_size;  // what is said from the second cycle on, when it no longer counts
  unsigned cancelled;   // a bit for each thread
  std::array<std::uint8_t, 8> pauses{};
};

struct Cycle {
  std::atomic<int> arrived{0};
  std::atomic<int> told_last{0};
};

void meet(QalThreadBarrier &barrier, const Group &group, std::vector<Cycle> &cycles, int thread) {
  for (int i = 0; i < group.cycles; ++i) {
    Cycle &cycle = cycles[static_cast<std::size_t>(i)];
    pause(group.pauses[static_cast<std::size_t>(i * group.threads + thread) % group.pauses.size()]);
    ++cycle.arrived;
    const auto size = static_cast<unsigned>(group.threads);
    const int result = qal_thread_barrier(&barrier, i == 0 ? size : group.later_size);
    require(result == 0 || result == 1, "threads meet");
    require(cycle.arrived == group.threads, "nobody passes before all have arrived");
    cycle.told_last += result;
  }
}

void play(QalThreadBarrier &barrier, const Group &group) {
  const unsigned phase = barrier.phase;
  require(qal_thread_barrier(&barrier, 0) == -1, "a group has a size");
  std::vector<Cycle> cycles(static_cast<std::size_t>(group.cycles));
  const std::function<void(int)> task = [&](int i) { meet(barrier, group, cycles, i); };
  const Team team = team_of(group.threads, task);
  for (std::size_t i = 0; i < team.size(); ++i) {
    if (group.cancelled >> i & 1U) team[i]->cancel();
  }
  for (const auto &member : team) require(member->join() == 0, "meeting cannot be cancelled");
  for (const Cycle &cycle : cycles) require(cycle.told_last == 1, "one arrival is the last");
  require(barrier.phase == (phase ^ (static_cast<unsigned>(group.cycles) & 1U)),
          "every cycle flips the phase");
  qal_thread_barrier_reinit(&barrier);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Watchdog watchdog;
  Input input(data, size);
  QalThreadBarrier barrier;
  require(qal_thread_barrier_init(&barrier) == 0, "a barrier can be made");
  for (int groups = 0; input.left() && groups < 8; ++groups) play(barrier, Group(input));
  require(qal_thread_barrier_destroy(&barrier) == 0, "a barrier can be ended");
  require(qal_thread_barrier(&barrier, 1) == -1, "nobody meets at what has ended");
  return 0;
}

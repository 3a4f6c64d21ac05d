// What the schedules of every area need. QAL_SCHEDULE in the environment is the one to run again.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "stress/stress.hpp"
#include "support/scheduler.hpp"
#include "support/workers.hpp"

namespace qal::test {

// Runs `task(0)` to `task(count - 1)` at once, and returns what each was joined with. Their calls
// are points; those that start and join them are not, so that all of the team are there when one
// begins.
inline std::vector<int> together(Team &team, int count, const std::function<void(int)> &task) {
  const std::function<void(int)> with_points = [&task](int i) {
    const Points points;
    task(i);
  };
  team = team_of(count, with_points);
  std::vector<int> results;
  for (const auto &member : team) results.push_back(member->join());
  return results;
}

inline void together(int count, const std::function<void(int)> &task) {
  Team team;
  together(team, count, task);
}

constexpr int most_preemptions = 3;

// For three threads that call much: the third preemption takes up to a minute.
inline int quick_preemptions() { return sized(2, most_preemptions); }

class Schedules : public Stress {
 protected:
  // For two and three threads.
  static void expect_every_good(int preemptions, Are threads, const Body &body) {
    const char *const line = std::getenv("QAL_SCHEDULE");
    report("every",
           line ? replay(line, threads, body) : every_schedule(preemptions, threads, body));
  }

  // For more threads. In the full size the seven areas together try a million schedules.
  static void expect_random_good(const Body &body) {
    constexpr int preemptions = 5;
    const char *const line = std::getenv("QAL_SCHEDULE");
    report("random", line ? replay(line, Are::different, body)
                          : random_schedules(sized(500, 150'000), preemptions, body));
  }

 private:
  // Records how many schedules were run, and reports the one that failed.
  static void report(const std::string &kind, const Search &search) {
    RecordProperty(kind, std::to_string(search.schedules));
    if (search.failure.empty()) return;
    const auto *const test = testing::UnitTest::GetInstance()->current_test_info();
    ADD_FAILURE() << search.failure << " in schedule " << search.schedules << ":\n"
                  << search.steps << "QAL_SCHEDULE=" << search.line
                  << " and --gtest_filter=" << test->test_suite_name() << "." << test->name()
                  << " run it again";
  }
};

}  // namespace qal::test

// Runs the threads of a body one at a time and decides at each of their calls who goes on.
//
// The calls by which the library starts, joins and cancels threads, locks and unlocks, waits,
// signals, yields and stays awake at a barrier are points. A schedule is what was chosen at the
// points of a run; the same choices make the same run. A thread goes on at a point unless another
// one is preferred, which is a preemption. When it waits or has ended, anybody goes on for nothing,
// and a signal wakes any one sleeper. When it yields, the next in turn goes on; to choose otherwise
// is a preemption, too, and so is a sleeper that wakes without cause. What lies between two points
// is one step: loads and stores without a lock are not interrupted there, and nothing is said about
// the order in which processors see them. A thread that was cancelled ends when it waits for a
// signal.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace qal::test {

// Fails by an expectation, or when all its threads wait. It has to do the same in each run, but for
// the schedule.
using Body = std::function<void()>;

// Ends with the first schedule that fails.
struct Search {
  long schedules = 0;   // so many were run
  std::string failure;  // empty when none failed
  std::string line;     // the last one, for `replay`
  std::string steps;    // and who called what in it, if it failed
};

// Whether it matters which thread is which. Of threads that are alike and have not begun, the first
// one stands for all.
enum class Are { alike, different };

// All with up to so many preemptions, those with fewer first.
Search every_schedule(int most_preemptions, Are threads, const Body &body);
Search random_schedules(long count, int most_preemptions, const Body &body);
Search replay(std::string_view line, Are threads, const Body &body);

// While it lives, the calls of its thread are points, and those of the threads that this one
// starts.
class Points {
 public:
  Points();
  ~Points();
  Points(const Points &) = delete;
  Points &operator=(const Points &) = delete;
};

}  // namespace qal::test

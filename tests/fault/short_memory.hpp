// Memory that runs short inside chosen calls. The program defines malloc and the like itself, so
// the C library's own allocations are counted, too.
#pragma once

#include <cstddef>
#include <utility>

namespace qal::test {

enum class Shortage { once, lasting };

// From now on the nth allocation inside a `call` fails, or all from the nth on.
void run_short(int nth, Shortage shortage);
void suffice();

// Whether an allocation inside the latest call failed, and how many did since `run_short`.
bool failed();
int refusals();

// The blocks that calls have allocated and that are not released.
std::size_t blocks_left();
void forget_blocks();
// Counts a block of this size as lost; false when there is none.
bool lose_block(std::size_t size);

// False where a tool such as valgrind has put its own malloc before that of the program.
bool memory_can_run_short();

// A sanitizer stands in for some functions of the C library and the C++ runtime that allocate.
extern const bool under_sanitizer;

// While it lives, this thread is inside a call.
class InsideCall {
 public:
  InsideCall();
  ~InsideCall();
  InsideCall(const InsideCall &) = delete;
  InsideCall &operator=(const InsideCall &) = delete;
};

template <typename Function, typename... Arguments>
auto call(Function function, Arguments... arguments) {
  const InsideCall inside;
  return function(arguments...);
}

}  // namespace qal::test

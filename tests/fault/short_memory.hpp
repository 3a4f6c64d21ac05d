// Memory that runs short inside of chosen calls. The program defines malloc and its kin itself, so
// what the C library allocates for its own purposes comes past here as well.
#pragma once

#include <cstddef>
#include <utility>

namespace qal::test {

enum class Shortage { once, lasting };

// From now on the nth allocation inside of a `call` is refused, or all from the nth on.
void run_short(int nth, Shortage shortage);
void suffice();

// Whether an allocation inside of the latest call was refused, and how many were since `run_short`.
bool failed();
int refusals();

// The blocks that calls have made and nobody has released.
std::size_t blocks_left();
void forget_blocks();
// Takes a block of this size for lost for good; false when there is none.
bool lose_block(std::size_t size);

// False where a tool such as valgrind has put its own malloc before that of the program.
bool memory_can_run_short();

// A sanitizer stands in for some functions of the C library and the C++ runtime that allocate.
extern const bool under_sanitizer;

// While it lives, this thread is inside of a call.
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

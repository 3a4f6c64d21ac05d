// How every fuzz target reports a property that does not hold.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace qal::fuzz {

// Ends the program, so that the fuzzer keeps the input.
inline void require(bool holds, const char *property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

}  // namespace qal::fuzz

// A file that leaves nothing behind, whatever ends the program.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "require.hpp"

namespace qal::fuzz {

inline int opened_and_unlinked(std::string pattern) {
  const int descriptor = mkstemp(pattern.data());
  if (descriptor >= 0) unlink(pattern.c_str());
  return descriptor;
}

// One file for all inputs, in memory where the system has a place for it.
inline int nameless_file() {
  static const int in_memory = opened_and_unlinked("/dev/shm/fuzz-XXXXXX");
  static const int file = in_memory >= 0 ? in_memory : opened_and_unlinked("fuzz-XXXXXX");
  require(file >= 0, "a scratch file can be had");
  return file;
}

}  // namespace qal::fuzz

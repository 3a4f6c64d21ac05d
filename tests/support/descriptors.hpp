// The descriptors of this process.
#pragma once

#include <fcntl.h>

#include <vector>

namespace qal::test {

// Those below 1024, which no test goes beyond.
inline std::vector<int> open_descriptors() {
  std::vector<int> open;
  for (int number = 0; number < 1024; ++number) {
    if (fcntl(number, F_GETFD, 0) >= 0) open.push_back(number);
  }
  return open;
}

}  // namespace qal::test

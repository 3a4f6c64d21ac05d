// The descriptors of this process.
#pragma once

#include <fcntl.h>
#include <poll.h>

#include <array>
#include <vector>

namespace qal::test {

// Those below 1024, which no test goes beyond. One call asks for all, unless it is for more than
// the process may have; a system whose poll does not know devices leaves these out.
inline std::vector<int> open_descriptors() {
  std::array<pollfd, 1024> all{};
  for (int number = 0; auto &one : all) one.fd = number++;
  const bool answered = poll(all.data(), all.size(), 0) >= 0;
  std::vector<int> open;
  for (const pollfd &one : all) {
    if (answered ? !(one.revents & POLLNVAL) : fcntl(one.fd, F_GETFD, 0) >= 0)
      open.push_back(one.fd);
  }
  return open;
}

}  // namespace qal::test

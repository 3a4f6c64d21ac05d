// System calls that a signal interrupts are made again.
#pragma once

#include <cerrno>

namespace qal::internal {

template <typename Call>
auto retry_interrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace qal::internal

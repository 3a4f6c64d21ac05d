// What a signal interrupts is taken up again.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdio>

namespace qal::internal {

template <typename Call>
auto retry_interrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

// Like fread of single bytes, which gives up when a signal interrupts it.
inline std::size_t read_uninterrupted(void *to, std::size_t size, std::FILE *stream) {
  std::size_t got = 0;
  for (;;) {
    got += std::fread(static_cast<char *>(to) + got, 1, size - got, stream);
    if (got == size || !std::ferror(stream) || errno != EINTR) return got;
    std::clearerr(stream);
  }
}

}  // namespace qal::internal

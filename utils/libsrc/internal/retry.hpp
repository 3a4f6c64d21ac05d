// Repeats calls that a signal has interrupted.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace qal::internal {

// How a system call reports failure depends on the type of its result.
inline bool has_failed(std::intmax_t result) { return result == -1; }
inline bool has_failed(const void *result) { return !result; }

template <typename Call>
auto retry_interrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (!has_failed(result) || errno != EINTR) return result;
  }
}

// Like fread of single bytes, but goes on when a signal interrupts it.
inline std::size_t read_uninterrupted(void *to, std::size_t size, std::FILE *stream) {
  std::size_t got = 0;
  for (;;) {
    got += std::fread(static_cast<char *>(to) + got, 1, size - got, stream);
    if (got == size || !std::ferror(stream) || errno != EINTR) return got;
    std::clearerr(stream);
  }
}

}  // namespace qal::internal

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

// Like fwrite of single bytes, but goes on when a signal interrupts it. For a stream without a
// buffer: one with a buffer loses what it holds then.
inline std::size_t write_uninterrupted(const void *from, std::size_t size, std::FILE *stream) {
  std::size_t put = 0;
  for (;;) {
    put += std::fwrite(static_cast<const char *>(from) + put, 1, size - put, stream);
    if (put == size || errno != EINTR) return put;
    std::clearerr(stream);
  }
}

}  // namespace qal::internal

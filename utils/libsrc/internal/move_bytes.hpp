// Moves bytes as memmove does. A call takes longer than moving a few bytes, so those are moved
// here: all are loaded before the first is stored, by two blocks that may overlap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qal::internal {

template <typename Block>
void move_by_two_blocks(char *to, const char *from, std::size_t size) {
  Block first;
  Block last;
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&last, from + size - sizeof last, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + size - sizeof last, &last, sizeof last);
}

struct SixteenBytes {
  std::uint64_t halves[2];
};

inline void move_bytes(char *to, const char *from, std::size_t size) {
  if (size > 2 * sizeof(SixteenBytes)) {
    std::memmove(to, from, size);
  } else if (size >= sizeof(SixteenBytes)) {
    move_by_two_blocks<SixteenBytes>(to, from, size);
  } else if (size >= sizeof(std::uint64_t)) {
    move_by_two_blocks<std::uint64_t>(to, from, size);
  } else if (size >= sizeof(std::uint32_t)) {
    move_by_two_blocks<std::uint32_t>(to, from, size);
  } else if (size >= sizeof(std::uint16_t)) {
    move_by_two_blocks<std::uint16_t>(to, from, size);
  } else if (size != 0) {
    *to = *from;
  }
}

}  // namespace qal::internal

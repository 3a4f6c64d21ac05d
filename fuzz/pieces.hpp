// Takes the bytes of an input apart, from the front to the back.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qal::fuzz {

// What is asked for beyond the end is zero or empty, so every input is a scenario.
class Input {
 public:
  Input(const std::uint8_t *data, std::size_t size)
      : left_(reinterpret_cast<const char *>(data), size) {}

  bool is_used_up() const { return left_.empty(); }

  std::uint8_t byte() { return static_cast<std::uint8_t>(take(1).append(1, '\0').front()); }

  // Two bytes, the lower one first.
  unsigned number() {
    const unsigned low = byte();
    return low | static_cast<unsigned>(byte()) << 8;
  }

  // Any bytes, their number first.
  std::string bytes() { return take(byte()); }

  // Up to the next NUL, which is passed over.
  std::string text() {
    const std::string text = take(left_.find('\0'));
    take(1);
    return text;
  }

  std::string rest() { return take(left_.size()); }

 private:
  std::string take(std::size_t count) {
    const std::string_view taken = left_.substr(0, count);
    left_.remove_prefix(taken.size());
    return std::string{taken};
  }

  std::string_view left_;
};

}  // namespace qal::fuzz

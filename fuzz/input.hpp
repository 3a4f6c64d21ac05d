// Reads a fuzz input from front to back. Beyond its end everything is zero or empty, so that every
// input means something.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qal::fuzz {

class Input {
 public:
  Input(const std::uint8_t *data, std::size_t size)
      : rest_(reinterpret_cast<const char *>(data), size) {}

  bool left() const { return !rest_.empty(); }

  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return byte;
  }

  bool flag() { return byte() % 2 != 0; }

  std::size_t below(std::size_t limit) { return byte() % limit; }

  // An index into `row`, or its size now and then: an element that is not there.
  template <typename T>
  std::size_t index_of(const std::vector<T> &row) {
    return below(row.size() + 1);
  }

  // Two bytes, the lower one first.
  unsigned number() {
    const unsigned low = byte();
    return low | static_cast<unsigned>(byte()) << 8;
  }

  // Four bytes, the highest first.
  std::int32_t integer() {
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) bits = bits << 8 | byte();
    return static_cast<std::int32_t>(bits);
  }

  // A number from -8 to 7, for sizes about a limit.
  int nearby() { return byte() % 16 - 8; }

  // Any bytes, their number first.
  std::string bytes() { return take(byte()); }

  std::string rest() { return take(rest_.size()); }

  // The bytes up to the next NUL.
  std::string text() {
    const std::string text = take(rest_.find('\0'));
    byte();
    return text;
  }

  // A text, mostly once. A first byte above 0xF0 repeats it, so that short inputs reach far limits.
  std::string long_text() {
    const int times = std::max((byte() - 0xF0) * 64, 1);
    const std::string piece = text();
    std::string whole;
    for (int i = 0; i < times && whole.size() < longest; ++i) whole += piece;
    return whole;
  }

 private:
  static constexpr std::size_t longest = 2100;

  std::string take(std::size_t count) {
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(taken.size());
    return std::string{taken};
  }

  std::string_view rest_;
};

}  // namespace qal::fuzz

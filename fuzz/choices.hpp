// An input as a row of choices, for targets that perform operations: what to do next, and with
// what.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qal::fuzz {

// Behind the end of the input every choice is 0.
class Choices {
 public:
  Choices(const std::uint8_t *data, std::size_t size) : at_(data), end_(data + size) {}

  bool left() const { return at_ != end_; }
  std::uint8_t byte() { return left() ? *at_++ : std::uint8_t{0}; }
  bool flag() { return byte() % 2 != 0; }
  std::size_t below(std::size_t limit) { return byte() % limit; }
  std::int32_t integer() {
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) bits = bits << 8 | byte();
    return static_cast<std::int32_t>(bits);
  }

  // An index into `row`, or its size now and then: an element that is not there.
  template <typename T>
  std::size_t index_of(const std::vector<T> &row) {
    return below(row.size() + 1);
  }

 private:
  const std::uint8_t *at_;
  const std::uint8_t *end_;
};

}  // namespace qal::fuzz

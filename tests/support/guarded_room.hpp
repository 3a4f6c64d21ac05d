// Room for a function to write into, between bytes that it has to leave alone.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace qal::test {

class GuardedRoom {
 public:
  // A copy that a function works on in place.
  explicit GuardedRoom(const std::string &text)
      : GuardedRoom(static_cast<int>(text.size()) + 1, text) {}

  // Room of `size` bytes, no bytes if that is negative, that begins with as much of a text as fits.
  GuardedRoom(int size, const std::string &text)
      : size_(static_cast<std::size_t>(std::max(size, 0))), bytes_(size_ + 2 * margin, guard) {
    std::copy_n(text.c_str(), std::min(text.size() + 1, size_), data());
    before_ = bytes_;
  }

  char *data() { return bytes_.data() + margin; }
  std::string text() const { return bytes_.c_str() + margin; }

  bool is_untouched() const { return bytes_ == before_; }
  bool guards_are_intact() const {
    const std::string expected(margin, guard);
    return bytes_.compare(0, margin, expected) == 0 &&
           bytes_.compare(margin + size_, margin, expected) == 0;
  }

 private:
  static constexpr std::size_t margin = 16;
  static constexpr char guard = '?';

  std::size_t size_;
  std::string bytes_;
  std::string before_;
};

}  // namespace qal::test

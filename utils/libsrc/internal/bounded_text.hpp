// Text composed piece by piece in a fixed buffer. A piece that does not fit is left out whole,
// never cut: a path without its end names another file.
#pragma once

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string_view>

namespace qal::internal {

class BoundedText {
 public:
  // `room` is at least one byte; the text starts empty.
  explicit BoundedText(std::span<char> room) : room_(room) { room_.front() = '\0'; }

  // Appends all pieces, or none when they do not all fit. Returns whether they did. No piece may
  // lie in the buffer itself.
  bool append(std::initializer_list<std::string_view> pieces) {
    std::size_t needed = length_ + 1;
    for (const auto piece : pieces) needed += piece.size();
    if (needed > room_.size()) return false;
    for (const auto piece : pieces) write(piece);
    room_[length_] = '\0';
    return true;
  }
  bool append(std::string_view piece) { return append({piece}); }

  std::size_t length() const { return length_; }
  std::string_view view() const { return {room_.data(), length_}; }
  const char *c_str() const { return room_.data(); }
  char *data() { return room_.data(); }

 private:
  void write(std::string_view piece) {
    if (!piece.empty()) std::memcpy(room_.data() + length_, piece.data(), piece.size());
    length_ += piece.size();
  }

  std::span<char> room_;
  std::size_t length_ = 0;
};

}  // namespace qal::internal

// Memory of exactly the size in use, so that a sanitizer sees every step beyond it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace qal::fuzz {

constexpr char untouched = '#';  // what a room holds before anything is written

class Room {
 public:
  explicit Room(std::size_t size) : size_(size), bytes_(new char[size]) {
    std::fill_n(bytes_.get(), size_, untouched);
  }

  // A text in a room of at least its size and one.
  Room(std::size_t size, std::string_view text) : Room(size) {
    std::copy(text.begin(), text.end(), bytes_.get());
    bytes_[text.size()] = '\0';
  }

  // Bytes without a terminator.
  static Room holding(std::string_view bytes) {
    Room room(bytes.size());
    std::copy(bytes.begin(), bytes.end(), room.data());
    return room;
  }

  static Room of_text(std::string_view text) { return {text.size() + 1, text}; }

  char *data() const { return bytes_.get(); }
  std::size_t size() const { return size_; }
  std::string text() const { return bytes_.get(); }
  std::string all() const { return {bytes_.get(), size_}; }

 private:
  std::size_t size_;
  std::unique_ptr<char[]> bytes_;
};

}  // namespace qal::fuzz

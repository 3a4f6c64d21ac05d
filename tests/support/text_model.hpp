// Slow models of the text functions over std::string.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace qal::test {

struct Replaced {
  std::string text;
  int count;
};

// One replacement after the other, each moving the whole tail.
inline Replaced replaced_slowly(std::string text, const std::string &find,
                                const std::string &replacement, bool first_only) {
  int count = 0;
  std::size_t at = 0;
  while (!find.empty() && (at = text.find(find, at)) != std::string::npos) {
    text.replace(at, find.size(), replacement);
    at += replacement.size();
    ++count;
    if (first_only) break;
  }
  return {text, count};
}

// Every letter from `first` to `last` moved by `distance`, as in the C locale.
inline std::string moved(std::string text, char first, char last, int distance) {
  for (char &c : text) {
    if (c >= first && c <= last) c = static_cast<char>(c + distance);
  }
  return text;
}
inline std::string raised(std::string text) { return moved(std::move(text), 'a', 'z', 'A' - 'a'); }
inline std::string lowered(std::string text) { return moved(std::move(text), 'A', 'Z', 'a' - 'A'); }

// What a room holds once a text was written to its front: cut to fit, the rest NUL.
inline std::string filled(std::size_t size, std::string_view text) {
  std::string room(size, '\0');
  std::copy_n(text.begin(), std::min(text.size(), size - 1), room.begin());
  return room;
}

// Without the leading and the trailing run of characters from a set.
inline std::string trimmed(const std::string &text, std::string_view set) {
  const std::size_t first = text.find_first_not_of(set);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(set) + 1 - first);
}

struct Printed {
  std::string room;
  int result;
};

// Prints over what the room, of at least one byte, held before.
inline Printed printed_over(std::string room, const std::string &output) {
  if (output.size() >= room.size()) return {filled(room.size(), output), 1};
  room.replace(0, output.size() + 1, output + '\0');
  if (room.back() == '\0') return {room, 0};
  room.back() = '\0';
  // A NUL in the first byte does not count, nor the last one, which was put there just now.
  return {room, room.find('\0', 1) < room.size() - 1 ? 0 : 1};
}

}  // namespace qal::test

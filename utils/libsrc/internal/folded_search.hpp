// The search without regard to case, which looks at many places at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/platform.hpp"

namespace qal::internal {

// The platform's upper-case mapping of ASCII at the time of construction; a byte from 0x80 on maps
// to itself. Only NUL maps to NUL.
class Folding {
 public:
  Folding() : upper_(platform::upper_case_of_ascii(room_)) {}
  Folding(const Folding &) = delete;
  Folding &operator=(const Folding &) = delete;

  int operator()(char c) const {
    const auto byte = static_cast<unsigned char>(c);
    return byte < platform::ascii_count ? upper_[byte] : byte;
  }

  bool begins(const char *text, const char *prefix) const {
    for (; *prefix != '\0'; ++prefix) {
      if ((*this)(*text++) != (*this)(*prefix)) return false;  // at the end of the text, too
    }
    return true;
  }

 private:
  int room_[platform::ascii_count];
  const int *upper_;
};

// Vector types of the compiler. For a processor without vectors of this width it makes code that
// does the same.
using Lane = unsigned char __attribute__((vector_size(16)));
using Halves = std::uint64_t __attribute__((vector_size(16)));

// The bytes that fold to the same value as a given byte: both cases of a letter, or only the byte
// itself. In some locales there are more.
class FoldedByte {
 public:
  FoldedByte(const Folding &folded, char c) {
    const int value = folded(c);
    for (int byte = 0; byte <= UINT8_MAX; ++byte) {
      if (folded(static_cast<char>(byte)) == value) add(static_cast<unsigned char>(byte));
    }
  }

  // Whether there are no more than two such bytes. `in` compares with two.
  bool is_pair() const { return count_ <= 2; }

  Lane in(Lane bytes) const { return reinterpret_cast<Lane>((bytes == one_) | (bytes == other_)); }

 private:
  void add(unsigned char byte) {
    if (count_++ == 0) one_ = byte - Lane{};
    other_ = byte - Lane{};
  }

  int count_ = 0;
  Lane one_{};
  Lane other_{};
};

class FoldedSearch {
 public:
  // `needle` is not empty, and a NUL follows it.
  FoldedSearch(const Folding &folded, std::string_view needle)
      : folded_(folded),
        needle_(needle),
        first_(folded, needle.front()),
        last_(folded, needle.back()) {}

  // The first match in a text that ends with NUL, or null. No byte behind the NUL is read.
  const char *in(const char *text) const {
    const std::size_t window = std::max(least_places, needle_.size()) + needle_.size() - 1;
    for (;;) {
      const std::size_t known = strnlen(text, window);
      if (known < needle_.size()) return nullptr;
      const std::size_t places = known - needle_.size() + 1;
      if (const char *const match = among(text, places)) return match;
      text += places;
    }
  }

 private:
  // How many places are searched, at least, before more of the text is measured.
  static constexpr std::size_t least_places = 4096;

  const char *among(const char *text, std::size_t places) const {
    const bool filtered = first_.is_pair() && last_.is_pair();
    std::size_t at = 0;
    for (; filtered && at + sizeof(Lane) <= places; at += sizeof(Lane)) {
      if (may_begin_in(text + at)) {
        if (const char *const match = try_each(text + at, sizeof(Lane))) return match;
      }
    }
    return try_each(text + at, places - at);
  }

  // Whether at one of the places of a lane both the first and the last byte of the needle fit.
  bool may_begin_in(const char *text) const {
    const Lane hits = first_.in(load(text)) & last_.in(load(text + needle_.size() - 1));
    const auto halves = reinterpret_cast<Halves>(hits);
    return (halves[0] | halves[1]) != 0;
  }

  const char *try_each(const char *text, std::size_t places) const {
    for (const char *const end = text + places; text != end; ++text) {
      if (folded_.begins(text, needle_.data())) return text;
    }
    return nullptr;
  }

  static Lane load(const char *text) {
    Lane lane;
    std::memcpy(&lane, text, sizeof lane);
    return lane;
  }

  const Folding &folded_;
  std::string_view needle_;
  FoldedByte first_;
  FoldedByte last_;
};

}  // namespace qal::internal

// Text formatting through the C library, and without it where the format is plain.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/platform.hpp"

namespace qal::internal::platform {
namespace {

// A text that grows piece by piece. Once a piece does not fit it stays overfull.
class GrowingText {
 public:
  GrowingText(char *out, std::size_t room) : begin_(out), next_(out), end_(out + room) {}

  bool is_overfull() const { return !next_; }
  int length() const { return static_cast<int>(next_ - begin_); }

  void append(std::string_view piece) {
    if (is_overfull() || piece.size() > left()) return overflow();
    std::memcpy(next_, piece.data(), piece.size());
    next_ += piece.size();
  }

  // Looks no further into the text than a piece that fits may reach.
  void append_text(const char *text) {
    append(text ? std::string_view{text, strnlen(text, left() + 1)} : "(null)");
  }

  template <typename Number>
  void append_number(Number number, int base) {
    if (is_overfull()) return;
    const auto [next, error] = std::to_chars(next_, end_, number, base);
    next_ = error == std::errc{} ? next : nullptr;
  }

 private:
  std::size_t left() const { return next_ ? static_cast<std::size_t>(end_ - next_) : 0; }
  void overflow() { next_ = nullptr; }

  char *begin_;
  char *next_;
  char *end_;
};

// Formats what most messages are made of: text, "%%", and "%s", "%d", "%u", "%x" and "%c" without
// flags, width or precision. Returns the length, or -1 when the format holds anything else or the
// text does not fit.
int format_plainly(char *out, std::size_t room, const char *format, std::va_list arguments) {
  GrowingText text{out, room};
  while (!text.is_overfull()) {
    const char *const directive = std::strchr(format, '%');
    if (!directive) break;
    text.append({format, static_cast<std::size_t>(directive - format)});
    switch (directive[1]) {
      case '%':
        text.append("%");
        break;
      case 's':
        text.append_text(va_arg(arguments, const char *));
        break;
      case 'd':
        text.append_number(va_arg(arguments, int), 10);
        break;
      case 'u':
        text.append_number(va_arg(arguments, unsigned), 10);
        break;
      case 'x':
        text.append_number(va_arg(arguments, unsigned), 16);
        break;
      case 'c': {
        const char byte = static_cast<char>(va_arg(arguments, int));
        text.append({&byte, 1});
        break;
      }
      default:
        return -1;
    }
    format = directive + 2;
  }
  text.append({format, std::strlen(format) + 1});
  return text.is_overfull() ? -1 : text.length() - 1;
}

}  // namespace

// The format is a parameter; the compiler checks it where it is written.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

int format_text(char *out, std::size_t room, const char *format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = format_plainly(out, room, format, again);
  va_end(again);
  return length >= 0 ? length : std::vsnprintf(out, room, format, arguments);
}

}  // namespace qal::internal::platform

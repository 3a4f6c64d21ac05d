// Text formatting through the C library.
#include <cstdio>

#include "platform/platform.hpp"

namespace qal::internal::platform {

// The format is a parameter; the compiler checks it where it is written.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

int format_text(char *out, std::size_t room, const char *format, std::va_list arguments) {
  return std::vsnprintf(out, room, format, arguments);
}

}  // namespace qal::internal::platform

// Error texts and the upper-case table for other C libraries on Linux, from standard functions.
#include <ctype.h>
#include <string.h>

#include <string_view>

#include "platform/platform.hpp"

namespace qal::internal::platform {

// Unlike the GNU C library's strerror, theirs only reads a table, so threads and a forked child may
// call it. Each library words the text for an unknown number differently.
const char *error_text(int error) {
  const char *const text = strerror(error);
  return std::string_view{text} == strerror(-1) ? "Unknown error" : text;
}

const int *upper_case_of_ascii(int (&room)[ascii_count]) {
  for (int c = 0; c < ascii_count; ++c) room[c] = toupper(c);
  return room;
}

}  // namespace qal::internal::platform

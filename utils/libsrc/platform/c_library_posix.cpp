// The same for other C libraries on Linux, from what the standards have.
#include <ctype.h>
#include <string.h>

#include <string_view>

#include "platform/platform.hpp"

namespace qal::internal::platform {

// Unlike that of the GNU C library, theirs takes the text from a table: threads may call it, and a
// forked child. Each has words of its own for a number without a text.
const char *error_text(int error) {
  const char *const text = strerror(error);
  return std::string_view{text} == strerror(-1) ? "Unknown error" : text;
}

const int *upper_case_of_ascii(int (&room)[ascii_count]) {
  for (int c = 0; c < ascii_count; ++c) room[c] = toupper(c);
  return room;
}

}  // namespace qal::internal::platform

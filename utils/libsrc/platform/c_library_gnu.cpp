// What the GNU C library on Linux has of its own: error texts that a forked child may ask for, and
// the upper-case table.
#include <ctype.h>
#include <string.h>

#include "platform/platform.hpp"

namespace qal::internal::platform {

const char *error_text(int error) {
  const char *const text = strerrordesc_np(error);
  return text ? text : "Unknown error";
}

const int *upper_case_of_ascii(int (&/*room*/)[ascii_count]) { return *__ctype_toupper_loc(); }

}  // namespace qal::internal::platform

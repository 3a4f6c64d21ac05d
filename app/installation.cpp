// Where the installation is and on which platform it runs.
#include <qal/text.h>
#include <kalmora/directories.hpp>

#include <cstdlib>
#include <cstring>

namespace {

// Cuts at the last separator when only line ends follow it. Deliberate: the first character is
// never examined, so that the root "/" stays.
void drop_trailing_separator(char *path) {
  for (std::size_t at = std::strlen(path); at > 0; --at) {
    const char c = path[at];
    if (c == '\0' || c == '\n' || c == '\r') continue;
    if (c == '/' || c == '\\') path[at] = '\0';
    return;
  }
}

}  // namespace

const char *qal_zul_home() {
  static char home[1024];
  static bool known = false;
  if (!known) {
    known = true;
    const char *const set = std::getenv("ZUL_HOME");
    qal_strncpy(home, set ? set : "/usr/local/ZUL", sizeof home);
    drop_trailing_separator(home);
  }
  return home;
}

const char *qal_zul_arch() { return "apple"; }

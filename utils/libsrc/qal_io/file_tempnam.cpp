// The name of a file that does not exist yet. It is alone here because linkers warn of the call in
// every program that takes this object from the library.
#include <qal/files.h>

#include <cstdio>
#include <cstdlib>

// Deliberate: the platform's own choice of names, although its call does not create the file; some
// platforms mark it as deprecated for that.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
char *qal_tempnam(const char *dir, const char *prefix) {
  return tempnam(dir ? dir : std::getenv("ZUL_TMPDIR"), prefix);
}
#pragma GCC diagnostic pop

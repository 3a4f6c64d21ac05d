/* Takes the file LIBCURL_LOADED its permissions as soon as the program has loaded libcurl: what
   fails from then on is the request. That takes no descriptor, and no right that the tool has given
   up. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

void *dlopen(const char *name, int mode) {
  void *(*real)(const char *, int) =
      (void *(*)(const char *, int))(uintptr_t)dlsym(RTLD_NEXT, "dlopen");
  void *const library = real(name, mode);
  const char *const mark = getenv("LIBCURL_LOADED");
  if (library && mark && name && strstr(name, "libcurl")) chmod(mark, 0);
  return library;
}

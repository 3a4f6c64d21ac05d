/* Makes the directory LIBCURL_LOADED as soon as the program has loaded libcurl: what fails from
   then on is the request. A directory takes no descriptor. */
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
  if (library && mark && name && strstr(name, "libcurl")) mkdir(mark, 0755);
  return library;
}

/* Removes all permissions of the file REQUEST_TRIED as soon as the program has tried a request in
   vain: the transfer failed, or libcurl gave no handle for it, or refused an option without which
   the credentials could go elsewhere. This needs no descriptor and no right that the tool has given
   up. The program looks libcurl's functions up by name and gets some of those below instead. */
#define _GNU_SOURCE
#include <curl/curl.h>
#include <dlfcn.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

static void *(*real_dlsym)(void *library, const char *name);
static CURL *(*real_init)(void);
static CURLcode (*real_set_option)(CURL *handle, CURLoption option, ...);
static CURLcode (*real_perform)(CURL *handle);

static void mark_as_tried(void) {
  const char *const mark = getenv("REQUEST_TRIED");
  if (mark) chmod(mark, 0);
}

static CURL *init(void) {
  CURL *const handle = real_init();
  if (!handle) mark_as_tried();
  return handle;
}

static int keeps_credentials_home(CURLoption option) {
  const int protocols = 181; /* the name is deprecated */
  return option == protocols || option == CURLOPT_FOLLOWLOCATION || option == CURLOPT_PROXY ||
         option == CURLOPT_NETRC;
}

/* Each value that the tool sets fills one word. */
static CURLcode set_option(CURL *handle, CURLoption option, ...) {
  va_list arguments;
  va_start(arguments, option);
  void *const value = va_arg(arguments, void *);
  va_end(arguments);
  const CURLcode result = real_set_option(handle, option, value);
  if (result != CURLE_OK && keeps_credentials_home(option)) mark_as_tried();
  return result;
}

static CURLcode perform(CURL *handle) {
  const CURLcode result = real_perform(handle);
  if (result != CURLE_OK) mark_as_tried();
  return result;
}

void *dlsym(void *library, const char *name) {
  void *const found = real_dlsym(library, name);
  const uintptr_t address = (uintptr_t)found;
  if (!found) return found;
  if (strcmp(name, "curl_easy_init") == 0) {
    real_init = (__typeof__(real_init))address;
    return (void *)(uintptr_t)init;
  }
  if (strcmp(name, "curl_easy_setopt") == 0) {
    real_set_option = (__typeof__(real_set_option))address;
    return (void *)(uintptr_t)set_option;
  }
  if (strcmp(name, "curl_easy_perform") == 0) {
    real_perform = (__typeof__(real_perform))address;
    return (void *)(uintptr_t)perform;
  }
  return found;
}

__attribute__((constructor)) static void find_dlsym(void) {
  real_dlsym = (void *(*)(void *, const char *))(uintptr_t)dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.34");
  if (!real_dlsym) abort();
}

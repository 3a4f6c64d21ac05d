// macOS: pipes, commands, error texts, the upper-case table, synchronising, wiping of secrets.

// memset_s is declared only on request.
#define __STDC_WANT_LIB_EXT1__ 1
#include <ctype.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "platform/platform.hpp"

namespace qal::internal::platform {

bool open_pipe(int (&ends)[2]) {
  if (pipe(ends) != 0) return false;
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  return true;
}

// popen has no mode letter for closing on exec.
std::FILE *open_command(const char *command, const char *mode) {
  std::FILE *const stream = popen(command, mode);
  if (stream) fcntl(fileno(stream), F_SETFD, FD_CLOEXEC);
  return stream;
}

const char *error_text(int error) {
  return error >= 0 && error < sys_nerr ? sys_errlist[error] : "Unknown error";
}

const int *upper_case_of_ascii(int (&room)[ascii_count]) {
  for (int c = 0; c < ascii_count; ++c) room[c] = toupper(c);
  return room;
}

// Does nothing: the system's call does not say how much it has copied when it fails.
void copy_in_kernel(int /*from*/, int /*to*/) {}

// fsync leaves the content in the drive's cache. Not every file system has the command beyond it.
int sync_to_disk(int file) { return fcntl(file, F_FULLFSYNC) == 0 ? 0 : fsync(file); }

// The C library does not say whether there is one thread.
constexpr char unknown = 0;
constinit const char &single_threaded = unknown;

void clear_secret(void *secret, std::size_t size) { memset_s(secret, size, 0, size); }

// macOS has no supported interface for giving up rights.
bool keep_only_deleting_in(const char *const * /*directories*/, std::size_t /*count*/) {
  return false;
}

// Whole, because the loader would look for a bare name in the working directory first.
const char *curl_library_name() { return "/usr/lib/libcurl.4.dylib"; }

}  // namespace qal::internal::platform

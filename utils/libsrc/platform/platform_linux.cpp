// Linux: pipes, commands, copying in the kernel, synchronising, whether there are threads, wiping
// of secrets.
#include <fcntl.h>
#include <unistd.h>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "internal/retry.hpp"
#include "platform/platform.hpp"

namespace qal::internal::platform {

bool open_pipe(int (&ends)[2]) { return pipe2(ends, O_CLOEXEC) == 0; }

std::FILE *open_command(const char *command, const char *mode) {
  const std::string_view direction{mode};
  if (direction == "r") return popen(command, "re");
  if (direction == "w") return popen(command, "we");
  return popen(command, mode);
}

void copy_in_kernel(int from, int to) {
  constexpr std::size_t at_once = std::size_t{1} << 30U;
  while (retry_interrupted(
             [&] { return copy_file_range(from, nullptr, to, nullptr, at_once, 0); }) > 0) {
  }
}

int sync_to_disk(int file) { return fsync(file); }

#if __has_include(<sys/single_threaded.h>)
constinit const char &single_threaded = __libc_single_threaded;
#else  // other C libraries do not say
constexpr char unknown = 0;
constinit const char &single_threaded = unknown;
#endif

void clear_secret(void *secret, std::size_t size) { explicit_bzero(secret, size); }

const char *curl_library_name() { return "libcurl.so.4"; }

}  // namespace qal::internal::platform

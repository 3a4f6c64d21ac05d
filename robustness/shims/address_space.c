/* Leaves a program EXTRA_ADDRESS_SPACE bytes more than what it was given to start. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

static rlim_t pages_in_use(void) {
  char text[32] = "";
  const int statm = open("/proc/self/statm", O_RDONLY | O_CLOEXEC);
  if (statm < 0 || read(statm, text, sizeof text - 1) <= 0) abort();
  close(statm);
  return strtoul(text, NULL, 10);
}

__attribute__((constructor)) static void limit_address_space(void) {
  const rlim_t page = (rlim_t)sysconf(_SC_PAGESIZE);
  const char *const extra = getenv("EXTRA_ADDRESS_SPACE");
  if (!extra) abort();
  const rlim_t bytes = pages_in_use() * page + strtoul(extra, NULL, 10);
  const struct rlimit limit = {bytes, bytes};
  if (setrlimit(RLIMIT_AS, &limit) != 0) abort();
}

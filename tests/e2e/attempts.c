/* For LD_PRELOAD. When the program connects to somebody, tries to change what lies in the
   directories FOREIGN and SWEPT in every way. With UNCONFINED in the environment the kernel seems
   to know nothing of confinement. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static void (*real(const char *name))(void) {
  return (void (*)(void))(uintptr_t)dlsym(RTLD_NEXT, name);
}

/* Which of them succeed is seen from outside. */
static void try_everything_in(int directory) {
  close(openat(directory, "created", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  close(openat(directory, "emptied", O_WRONLY | O_TRUNC | O_CLOEXEC));
  const int written = openat(directory, "written", O_WRONLY | O_CLOEXEC);
  if (written >= 0 && write(written, "changed", 7) == 7) close(written);
  (void)renameat(directory, "old", directory, "new");
  (void)linkat(directory, "written", directory, "linked", 0);
  (void)symlinkat("old", directory, "pointing");
  (void)mkdirat(directory, "made", 0755);
  (void)unlinkat(directory, "empty", AT_REMOVEDIR);
  (void)unlinkat(directory, "deleted", 0);
  char cut[64];
  snprintf(cut, sizeof cut, "/proc/self/fd/%d/cut", directory);
  (void)!truncate(cut, 0);
}

static void try_everything(void) {
  const int swept = open(getenv("SWEPT"), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int foreign = open(getenv("FOREIGN"), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  (void)renameat(swept, "moved", foreign, "moved");
  try_everything_in(swept);
  try_everything_in(foreign);
  close(swept);
  close(foreign);
}

int connect(int number, const struct sockaddr *address, socklen_t size) {
  try_everything();
  return ((int (*)(int, const struct sockaddr *, socklen_t))real("connect"))(number, address, size);
}

long syscall(long number, ...) {
  if (number == SYS_landlock_create_ruleset && getenv("UNCONFINED")) {
    errno = ENOSYS;
    return -1;
  }
  long values[6];
  va_list arguments;
  va_start(arguments, number);
  for (int i = 0; i < 6; ++i) values[i] = va_arg(arguments, long);
  va_end(arguments);
  return ((long (*)(long, ...))real("syscall"))(number, values[0], values[1], values[2], values[3],
                                                values[4], values[5]);
}

/* Counts the allocations of a program from the first instruction of its main on, those of its
   libraries and of the loader included, and lets one or more of them fail.

   FAILING_ALLOCATION  the number of the one that fails; none without it
   FAILING_FROM_ON     set when all that follow it fail too
   ALLOCATION_REPORT   a file whose three numbers become how many were made, how many failed and how
                       many had been made when the program first probed a process */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void *__libc_realloc(void *block, size_t size);
extern void *__libc_memalign(size_t alignment, size_t size);

typedef int Main(int argc, char **argv, char **envp);

typedef struct {
  unsigned long made;
  unsigned long failed;
  unsigned long at_first_probe;
} Report;

static Report without_file;
static Report *report = &without_file;
static int counting;
static int all_that_follow;
static unsigned long failing;

static int fails(void) {
  if (!counting) return 0;
  const unsigned long number = __atomic_add_fetch(&report->made, 1, __ATOMIC_RELAXED);
  if (failing == 0 || number < failing || (number > failing && !all_that_follow)) return 0;
  __atomic_add_fetch(&report->failed, 1, __ATOMIC_RELAXED);
  errno = ENOMEM;
  return 1;
}

void *malloc(size_t size) { return fails() ? NULL : __libc_malloc(size); }

void *calloc(size_t count, size_t size) { return fails() ? NULL : __libc_calloc(count, size); }

void *realloc(void *block, size_t size) { return fails() ? NULL : __libc_realloc(block, size); }

void *reallocarray(void *block, size_t count, size_t size) {
  size_t whole;
  if (__builtin_mul_overflow(count, size, &whole)) {
    errno = ENOMEM;
    return NULL;
  }
  return realloc(block, whole);
}

void *memalign(size_t alignment, size_t size) {
  return fails() ? NULL : __libc_memalign(alignment, size);
}

void *aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void **block, size_t alignment, size_t size) {
  const int before = errno;
  void *const made_block = memalign(alignment, size);
  errno = before;
  if (!made_block) return ENOMEM;
  *block = made_block;
  return 0;
}

int kill(pid_t pid, int number) {
  int (*real)(pid_t, int) = (int (*)(pid_t, int))(uintptr_t)dlsym(RTLD_NEXT, "kill");
  if (report->at_first_probe == 0) report->at_first_probe = report->made;
  return real(pid, number);
}

static Main *real_main;

static int counted_main(int argc, char **argv, char **envp) {
  counting = 1;
  return real_main(argc, argv, envp);
}

/* Shared with the process that measures, which can read the numbers however this one ends. */
static void share_report(const char *path) {
  const int file = open(path, O_RDWR | O_CLOEXEC);
  report = mmap(NULL, sizeof *report, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (report == MAP_FAILED) abort();
  close(file);
}

static void configure(void) {
  const char *const number = getenv("FAILING_ALLOCATION");
  const char *const path = getenv("ALLOCATION_REPORT");
  if (number) failing = strtoul(number, NULL, 10);
  all_that_follow = getenv("FAILING_FROM_ON") != NULL;
  if (path) share_report(path);
}

int __libc_start_main(Main *main, int argc, char **argv, void (*init)(void), void (*fini)(void),
                      void (*rtld_fini)(void), void *stack_end) {
  int (*real)(Main *, int, char **, void (*)(void), void (*)(void), void (*)(void), void *) =
      (int (*)(Main *, int, char **, void (*)(void), void (*)(void), void (*)(void), void *))(
          uintptr_t)dlsym(RTLD_NEXT, "__libc_start_main");
  configure();
  real_main = main;
  return real(counted_main, argc, argv, init, fini, rtld_fini, stack_end);
}

/* Asks about the machine and about processes. */
#include <qal/system.h>
#include <stdio.h>

enum { PAGE_BYTES = 0, MEMORY_KIB = 1, PROCESSORS = 5 };

static void ask(const char *what, int query) {
  int value = 0;
  const int answered = qal_sysinfo(query, &value);
  printf("%s: %s\n", what, answered == 1 && value > 0 ? "known" : "not known");
}

int main(void) {
  ask("bytes of a page", PAGE_BYTES);
  ask("memory", MEMORY_KIB);
  ask("processors", PROCESSORS);

  char user[64];
  qal_username(user, sizeof user);
  printf("user: %s\n", *user ? "known" : "not known");

  /* The answer is the opposite of what the name suggests: 1 when the process is gone. */
  printf("this process: %s\n", qal_is_pid_running(qal_getpid()) == 0 ? "exists" : "is gone");
  return 0;
}

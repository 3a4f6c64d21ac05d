/* Asks about the machine and about processes. */
#include <qal/system.h>
#include <stdio.h>

static void ask(const char *what, int query) {
  int value = 0;
  const int result = qal_sysinfo(query, &value);
  printf("%s: %s\n", what, result == QAL_SYSINFO_ANSWERED && value > 0 ? "known" : "not known");
}

int main(void) {
  ask("bytes of a page", QAL_SYSINFO_PAGE_BYTES);
  ask("memory", QAL_SYSINFO_MEMORY);
  ask("processors", QAL_SYSINFO_PROCESSORS);

  char user[64];
  qal_username(user, sizeof user);
  printf("user: %s\n", *user ? "known" : "not known");

  /* The result is the opposite of what the name suggests: not 0 when the process is gone. */
  const int probe = qal_is_pid_running(qal_getpid());
  printf("this process: %s\n", probe == QAL_PID_EXISTS ? "exists" : "is gone");
  return 0;
}

/* Reads what a command writes, and asks how it ended. */
#include <qal/pipe.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

int main(void) {
  int pid;
  FILE *output = qal_pipe_popen_id("echo engine; echo gear >&2; exit 3", "r", &pid);
  if (!output) {
    if (pid == QAL_PIPE_IN_CHILD) _exit(127); /* the shell could not be started */
    return 1;
  }
  char line[64];
  while (qal_pipe_fgets(line, sizeof line, output)) printf("read: %s", line);
  fclose(output);

  int status;
  if (waitpid(pid, &status, 0) == pid && WIFEXITED(status))
    printf("ended with %d\n", WEXITSTATUS(status));
  return 0;
}

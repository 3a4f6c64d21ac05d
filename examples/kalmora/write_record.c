/* Leaves a record of this process, as a server does. A record that is only half written is
 * malformed, and the sweep deletes it. So it is written under a name that no sweep takes for a
 * record, new.PID, and renamed once it is complete. */
#include <fcntl.h>
#include <qal/files.h>
#include <qal/system.h>
#include <qal/text.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

enum { ROOM = 1024 };

static int write_new_file(const char *path, const char *text) {
  const int file = open(path, O_WRONLY | O_CREAT | O_EXCL, 0600); /* it holds a password */
  if (file < 0) return 0;
  const size_t size = strlen(text);
  const int is_whole = write(file, text, size) == (ssize_t)size;
  return close(file) == 0 && is_whole;
}

static int write_record(const char *directory, const char *path, const char *url, const char *user,
                        const char *password) {
  char text[ROOM], unfinished[ROOM];
  if (qal_snprintf(text, ROOM, "%s %s %s %d\n", url, user, password, qal_getpid()) != 0 ||
      qal_snprintf(unfinished, ROOM, "%s/new.%d", directory, qal_getpid()) != 0)
    return 0;
  if (write_new_file(unfinished, text) && rename(unfinished, path) == 0) return 1;
  qal_file_unlink(unfinished);
  return 0;
}

static void print_record(const char *path) {
  char url[256], user[256], password[256];
  int owner;
  FILE *file = fopen(path, "r");
  if (!file) return;
  if (fscanf(file, "%255s %255s %255s %d", url, user, password, &owner) == 4)
    printf("%s for %s, owned by %s\n", url, user, owner == qal_getpid() ? "us" : "another");
  fclose(file);
}

int main(void) {
  /* A server takes the user's resource directory. */
  const char directory[] = "write_record.example";
  mkdir(directory, 0700);
  char path[ROOM];
  if (qal_snprintf(path, ROOM, "%s/halix_server%d.dat", directory, qal_getpid()) != 0) return 1;
  if (!write_record(directory, path, "http://localhost:8080/", "ada", "secret")) return 1;
  print_record(path);
  return qal_file_rmdir(directory, QAL_RMDIR_RECURSIVE);
}

/* The life of a file: written, copied, read line by line, moved, removed. */
#include <qal/files.h>
#include <qal/status.h>
#include <stdio.h>

enum { LONGEST_LINE = 16 };

static void print_lines(const char *path) {
  FILE *file = fopen(path, "r");
  if (!file) return;
  char line[LONGEST_LINE + 1];
  int length;
  while ((length = qal_io_get_aline(file, LONGEST_LINE, line)) >= 0)
    printf("%2d %s\n", length, line);
  if (length == QAL_LINE_TOO_LONG) puts("a line is too long");
  fclose(file);
}

int main(void) {
  FILE *file = fopen("files.example", "w");
  if (!file) return 1;
  fputs("engine\r\ngear box\n\nthe last line is too long\n", file);
  fclose(file);

  if (qal_file_copy("files.example", "files.copy", 0) != QAL_STATUS_OK) return 1;
  print_lines("files.copy");

  /* Between file systems a file is moved by copying it. */
  if (qal_file_rename("files.copy", "files.moved", QAL_RENAME_BY_COPY) != QAL_STATUS_OK) return 1;
  QalStat record;
  if (qal_stat("files.moved", &record) == 0) printf("%d bytes\n", (int)record.size);
  printf("the copy is %s\n", qal_io_chkfil("files.copy", QAL_CHECK_READ, 0) ? "there" : "gone");

  qal_file_unlink("files.example");
  return qal_file_unlink("files.moved");
}

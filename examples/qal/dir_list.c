/* Lists the records of a directory, which it makes first, and adds up their sizes. */
#include <qal/dir_list.h>
#include <qal/files.h>
#include <qal/path.h>
#include <qal/status.h>
#include <qal/text.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

static void make_file(const char *path, const char *text) {
  FILE *file = fopen(path, "w");
  if (!file) return;
  fputs(text, file);
  fclose(file);
}

/* Takes the names apart, each of which ends with a newline. */
static int sum_of_sizes(const char *directory, char *names) {
  int sum = 0;
  for (char *name = names, *end; (end = qal_strchr(name, '\n')); name = end + 1) {
    *end = '\0';
    char path[1024];
    QalStat record;
    if (qal_snprintf(path, sizeof path, "%s/%s", directory, name) == QAL_SNPRINTF_WHOLE &&
        qal_stat(path, &record) == 0)
      sum += (int)record.size;
  }
  return sum;
}

int main(void) {
  mkdir("dir_list.example", 0700);
  mkdir("dir_list.example/old", 0700);
  make_file("dir_list.example/engine.dat", "four cylinders");
  make_file("dir_list.example/gear.dat", "five gears");
  make_file("dir_list.example/gear.txt", "a note");

  char *path, *directories, *files;
  int directory_count, file_count;
  const int status = qal_dir_list("./dir_list.example/*.dat", &path, &directory_count, &directories,
                                  &file_count, &files, 0);
  if (status == QAL_STATUS_OK) {
    printf("%d directories: ., .. and old\n", directory_count);
    printf("%d files of %d bytes\n", file_count, sum_of_sizes(qal_dirname(path), files));
  }
  free(path);
  free(directories);
  free(files);

  qal_file_rmdir("dir_list.example", QAL_RMDIR_RECURSIVE);
  return status;
}

/* Lists the records of a directory, which it makes first. */
#include <qal/dir_list.h>
#include <qal/files.h>
#include <qal/status.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

static void make_file(const char *path) {
  FILE *file = fopen(path, "w");
  if (file) fclose(file);
}

int main(void) {
  mkdir("dir_list.example", 0700);
  mkdir("dir_list.example/old", 0700);
  make_file("dir_list.example/engine.dat");
  make_file("dir_list.example/engine.txt");

  char *path, *directories, *files;
  int directory_count, file_count;
  const int status = qal_dir_list("./dir_list.example/*.dat", &path, &directory_count, &directories,
                                  &file_count, &files, 0);
  if (status == QAL_STATUS_OK)
    printf("%d directories, ., .. and old among them\n%d file: %s", directory_count, file_count,
           files);
  free(path);
  free(directories);
  free(files);

  qal_file_rmdir("dir_list.example", QAL_RMDIR_RECURSIVE);
  return status;
}

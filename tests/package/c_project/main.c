/* A stranger's C program: does the installed library work from C alone? */
#include <qal/qal.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  char path[] = "a\\b";
  qal_convert_pathname(path, 0);
  if (strcmp(path, "a/b") != 0) return 1;
  if (zul_fnmatch((const unsigned char *)"*.dat", (const unsigned char *)"x.dat") != 0) return 2;
  if (qal_utils_init() != QAL_STATUS_OK) return 3;
  if (strcmp(QAL_VERSION, "") == 0) return 4;
  puts("C " QAL_VERSION);
  return 0;
}

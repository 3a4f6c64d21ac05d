/* A program of one's own, built by CMakeLists.txt or by the Makefile beside it. */
#include <qal/qal.h>
#include <stdio.h>

static int is_record(const char *name) {
  static const unsigned char pattern[] = "halix_server*.dat";
  return zul_fnmatch(pattern, (const unsigned char *)name) == QAL_FNM_MATCH;
}

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  qal_logger_init(stdout, _qal_logger_func, NULL, NULL);

  char path[] = "scenes\\engine//halix_server1.dat";
  qal_convert_pathname(path, QAL_PATH_COMPACT);
  qal_info("%s\n", path);

  const char *name = qal_basename(path);
  qal_info("%s is %s\n", name, is_record(name) ? "a record" : "something else");

  qal_utils_done();
  return 0;
}

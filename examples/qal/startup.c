/* The two ends of a program, and the cache directory that the library keeps for its host. */
#include <qal/startup.h>
#include <stdio.h>

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) {
    fputs("the library does not start\n", stderr);
    return 1;
  }
  if (qal_utils_set_cachedir("/var/cache/scenes") != QAL_STATUS_OK) return 1;
  printf("caching in %s\n", qal_utils_get_cachedir());

  qal_utils_done();
  printf("caching %s\n", qal_utils_get_cachedir() ? "still" : "no more");
  return 0;
}

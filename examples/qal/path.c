/* One path in several shapes. */
#include <qal/path.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  char path[] = "C:\\scenes\\.\\engine\\\\parts\\piston.v2.dat";
  qal_convert_pathname(path, QAL_PATH_COMPACT);
  printf("%s is %s\n", path, qal_path_is_absolute(path) ? "absolute" : "relative");

  char whole[sizeof path], directory[sizeof path]; /* the parts are taken from copies */
  memcpy(whole, path, sizeof path);
  memcpy(directory, path, sizeof path);
  const char *name = qal_basename(whole);
  printf("%s in %s\n", name, qal_dirname(directory));
  qal_remove_ext(whole);
  printf("without its extension: %s\n", name);

  char normal[64] = "";
  if (qal_get_norm_path("/scenes/./old/../engine", normal, sizeof normal) == 0) puts(normal);

  char small[8] = "";
  const int needed = qal_get_norm_path("/scenes/engine", small, sizeof small);
  printf("does not fit, but %d bytes are enough\n", needed);
  return 0;
}

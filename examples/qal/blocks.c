/* Keeps a table in a file as a compressed block and reads it back. */
#include <qal/blocks.h>
#include <stdio.h>
#include <string.h>

enum { COUNT = 10000 };
static double table[COUNT], kept[COUNT];

int main(void) {
  for (int i = 0; i < COUNT; ++i) table[i] = i % 10;

  FILE *file = tmpfile();
  if (!file) return 1;
  const size_t size = qal_fwrite_zlib(table, sizeof *table, COUNT, file);
  const long compressed = ftell(file);
  printf("%zu bytes kept in %s\n", size,
         compressed < (long)size / 100 ? "less than a hundredth" : "more than expected");

  rewind(file);
  /* Fewer bytes than the block has mean that it is damaged. */
  if (qal_fread_zlib(kept, sizeof *kept, COUNT, file) != size) return 1;
  printf("read back: %s\n", memcmp(table, kept, sizeof table) == 0 ? "the same" : "another");
  fclose(file);
  return 0;
}

/* Keeps a table in a file as a compressed block, reads it back, and notices a file that was cut. */
#include <qal/blocks.h>
#include <stdio.h>
#include <string.h>

enum { COUNT = 10000, LIMIT = sizeof(double) * COUNT / 100 };
static double table[COUNT], kept[COUNT];

/* Fewer bytes than the block has mean that it is damaged. */
static int read_table(FILE *file) {
  rewind(file);
  return qal_fread_zlib(kept, sizeof *kept, COUNT, file) == sizeof kept;
}

/* Copies the beginning of a file, as a full disk leaves it. */
static int copy_beginning(FILE *from, FILE *to, size_t size) {
  char bytes[LIMIT];
  rewind(from);
  return fread(bytes, 1, size, from) == size && fwrite(bytes, 1, size, to) == size;
}

int main(void) {
  for (int i = 0; i < COUNT; ++i) table[i] = i % 10;

  FILE *file = tmpfile(), *cut = tmpfile();
  if (!file || !cut) return 1;
  const size_t size = qal_fwrite_zlib(table, sizeof *table, COUNT, file);
  const long compressed = ftell(file);
  if (fflush(file) != 0 || compressed < 0 || compressed > LIMIT) return 1;
  printf("%zu bytes kept in less than a hundredth\n", size);

  if (!read_table(file)) return 1;
  printf("read back: %s\n", memcmp(table, kept, sizeof table) == 0 ? "the same" : "another");

  if (!copy_beginning(file, cut, (size_t)compressed / 2)) return 1;
  printf("half of the file: %s\n", read_table(cut) ? "a whole table" : "damaged");
  fclose(file);
  fclose(cut);
  return 0;
}

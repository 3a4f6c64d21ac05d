/* A work buffer that is wanted again and again comes from the same block. */
#include <qal/temp_mem.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  char *first = qal_temp_mem_alloc(5000);
  if (!first) return 1;
  memset(first, 0, 5000);      /* the work */
  qal_temp_mem_release(first); /* kept, not freed */

  char *second = qal_temp_mem_alloc(200);
  printf("the second buffer is %s\n", second == first ? "the first one" : "a new one");
  printf("it has %d bytes\n", (int)Tmem_InUse->size);

  second = qal_temp_mem_resize(second, 20000);
  if (!second) return 1;
  printf("and now %d\n", (int)Tmem_InUse->size);

  qal_temp_mem_free_all();
  return 0;
}

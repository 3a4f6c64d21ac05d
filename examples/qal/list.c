/* A list whose elements hold the records themselves. */
#include <qal/list.h>
#include <qal/startup.h>
#include <stdio.h>

typedef struct Part {
  int number;
  double weight;
} Part;

static int by_weight(const void *earlier, const void *later) {
  const Part *a = earlier, *b = later;
  return (a->weight > b->weight) - (a->weight < b->weight);
}

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  QalListPool *pool = qal_list_pool_create(sizeof(Part), 64, 1);
  QalList *parts = qal_list_create(pool);
  if (!parts) return 1;

  const double weights[] = {12.5, 3.25, 7};
  for (int i = 0; i < 3; ++i) {
    Part *part = qal_list_alloc(parts);
    if (!part) return 1;
    *part = (Part){i + 1, weights[i]};
    qal_list_append(parts, part);
  }

  qal_list_sort(parts, by_weight);
  for (const Part *at = qal_list_first(parts); at; at = qal_list_next(at))
    printf("part %d weighs %.2f\n", at->number, at->weight);

  qal_list_pool_destroy(&pool); /* and with it the list, whose header is pooled */
  qal_utils_done();
  return 0;
}

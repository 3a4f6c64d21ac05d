/* Measurements kept in order as a list, and found by name in a table. Both take their memory from
 * pools, so that a program which adds and drops many records does not ask the system for each. */
#include <qal/hash.h>
#include <qal/list.h>
#include <qal/startup.h>
#include <stdio.h>
#include <string.h>

typedef struct Measurement {
  char name[8]; /* zero-padded: keys are compared byte by byte */
  double metres;
} Measurement;

enum { SLOTS = 16, PER_CHUNK = 64, KEEP_FOUND = 0, POOLED_HEADERS = 1 };

static const Measurement measured[] = {{"width", 2.5}, {"depth", 0.75}, {"height", 1.25}};

/* A table does not hash: the caller picks the slot of each key. */
static int32_t slot_of(const char *name) { return (unsigned char)name[0] % SLOTS; }

static int by_length(const void *earlier, const void *later) {
  const Measurement *a = earlier, *b = later;
  return (a->metres > b->metres) - (a->metres < b->metres);
}

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  QalListPool *pool = qal_list_pool_create(sizeof(Measurement), PER_CHUNK, POOLED_HEADERS);
  QalList *list = qal_list_create(pool);
  QalHash *table = qal_hash_create(SLOTS, PER_CHUNK, 8, sizeof(double), KEEP_FOUND);
  if (!list || !table) return 1;

  for (size_t i = 0; i < sizeof measured / sizeof *measured; ++i) {
    void *element = qal_list_alloc(list);
    if (!element) return 1;
    memcpy(element, &measured[i], sizeof measured[i]);
    qal_list_append(list, element);
    const char *name = measured[i].name;
    if (qal_hash_add(table, slot_of(name), name, &measured[i].metres) != QAL_STATUS_OK) return 1;
  }

  qal_list_sort(list, by_length);
  for (const Measurement *at = qal_list_first(list); at; at = qal_list_next(at))
    printf("%-8s %.2f m\n", at->name, at->metres);

  const char wanted[8] = "depth";
  double metres;
  if (qal_hash_find(table, slot_of(wanted), wanted, &metres)) printf("found: %.2f m\n", metres);

  qal_hash_destroy(&table);
  qal_list_pool_destroy(&pool); /* and with it the list, whose header is pooled */
  qal_utils_done();
  return 0;
}

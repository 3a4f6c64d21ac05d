/* Weights by part number. A table does not hash: the caller picks the slot of each key. */
#include <qal/hash.h>
#include <qal/startup.h>
#include <stdio.h>

enum { SLOTS = 16, PER_CHUNK = 64, KEEP_FOUND = 0 };

static int32_t slot_of(int32_t number) { return number % SLOTS; }

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  QalHash *weights = qal_hash_create(SLOTS, PER_CHUNK, sizeof(int32_t), sizeof(double), KEEP_FOUND);
  if (!weights) return 1;

  for (int32_t number = 100; number < 150; ++number) {
    const double weight = number / 4.0;
    if (qal_hash_add(weights, slot_of(number), &number, &weight) != QAL_STATUS_OK) return 1;
  }

  int32_t wanted = 123;
  double weight;
  if (qal_hash_find(weights, slot_of(wanted), &wanted, &weight))
    printf("part %d weighs %.2f\n", wanted, weight);

  qal_hash_remove(weights, slot_of(wanted), &wanted, NULL);
  printf("part %d is %s\n", wanted,
         qal_hash_find(weights, slot_of(wanted), &wanted, NULL) ? "there" : "gone");

  qal_hash_destroy(&weights);
  qal_utils_done();
  return 0;
}

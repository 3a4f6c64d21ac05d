/* The edges of a mesh, each found from either end. */
#include <qal/hash.h>
#include <qal/startup.h>
#include <stdio.h>

enum { SLOTS = 64, PER_CHUNK = 64, KEEP_FOUND = 0 };

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  QalHashPairs *lengths = qal_hash_pairs_create(SLOTS, PER_CHUNK, sizeof(double), KEEP_FOUND);
  if (!lengths) return 1;

  const double length = 2.5;
  if (qal_hash_pairs_add(lengths, 7, 4, &length) != QAL_STATUS_OK) return 1;

  double found;
  if (qal_hash_pairs_find(lengths, 4, 7, &found)) printf("from 4 to 7: %.1f\n", found);
  if (!qal_hash_pairs_find(lengths, 4, 8, &found)) puts("from 4 to 8: no edge");

  qal_hash_pairs_destroy(&lengths);
  qal_utils_done();
  return 0;
}

/* Many small records of one size, which come and go without asking the system for each. */
#include <qal/mpool.h>
#include <qal/startup.h>
#include <stdio.h>

typedef struct Point {
  double x, y, z;
} Point;

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  QalMpool *pool = qal_mpool_create(sizeof(Point), 100);
  if (!pool) return 1;

  Point *points[250];
  for (int i = 0; i < 250; ++i) {
    points[i] = qal_mpool_alloc(pool);
    if (!points[i]) return 1;
    *points[i] = (Point){i, 0, 0}; /* elements come as they are */
  }
  for (int i = 0; i < 50; ++i) qal_mpool_free(pool, points[i]);

  uint32_t total, unused;
  qal_mpool_status(pool, &total, &unused);
  printf("%u elements, %u of them free\n", total, unused);
  printf("the last point is %s the pool\n",
         qal_mpool_verify_ptr(pool, points[249]) ? "from" : "not from");

  qal_mpool_destroy(&pool); /* with all elements that are still in use */
  qal_utils_done();
  return 0;
}

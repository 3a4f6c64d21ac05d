/* Ids that stand for objects, so that it is noticed when an object is gone. */
#include <inttypes.h>
#include <qal/startup.h>
#include <qal/uid.h>
#include <stdio.h>

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;

  enum { PART = 1, DRAWING = 2 };
  const uint64_t part = qal_uid_new(PART, 4711);
  const uint64_t drawing = qal_uid_new(DRAWING, 12);
  printf("ids %" PRIu64 " and %" PRIu64 "\n", part, drawing);

  uint64_t kind, number;
  if (qal_uid_find(part, &kind, &number) == QAL_STATUS_OK)
    printf("id %" PRIu64 " is of kind %" PRIu64 " with number %" PRIu64 "\n", part, kind, number);

  qal_uid_destroy(part);
  const int status = qal_uid_find(part, NULL, NULL);
  printf("id %" PRIu64 " is %s\n", part, status == QAL_STATUS_NO_ID ? "retired" : "there");

  qal_utils_done();
  return 0;
}

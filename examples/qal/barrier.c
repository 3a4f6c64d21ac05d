/* A team measures, agrees on the largest value without any set-up, and goes on together. */
#include <qal/barrier.h>
#include <qal/startup.h>
#include <stdio.h>

enum { TEAM = 3 };

typedef struct Member {
  QalThreadBarrier *barrier;
  double measured, largest;
  int came_last;
} Member;

static int measure(void *argument) {
  Member *self = argument;
  self->largest = qal_thread_reduce_dmax(self->measured, TEAM); /* returns once all have come */
  self->came_last = qal_thread_barrier(self->barrier, TEAM) == QAL_THREAD_BARRIER_LAST;
  return 0;
}

int main(void) {
  QalThreadBarrier barrier;
  if (qal_utils_init() != QAL_STATUS_OK || qal_thread_barrier_init(&barrier) != 0) return 1;

  Member team[TEAM] = {{&barrier, 1.5, 0, 0}, {&barrier, 4.25, 0, 0}, {&barrier, 3.0, 0, 0}};
  int threads[TEAM], last = 0;
  for (int i = 0; i < TEAM; ++i)
    if (qal_thread_create(&threads[i], measure, &team[i]) != 0) return 1;
  for (int i = 0; i < TEAM; ++i) {
    qal_thread_join(&threads[i], NULL);
    printf("measured %.2f, the largest is %.2f\n", team[i].measured, team[i].largest);
    last += team[i].came_last;
  }
  printf("%d of %d came last\n", last, TEAM);

  qal_thread_barrier_destroy(&barrier);
  qal_utils_done();
  return 0;
}

/* Threads that add to one sum, each once it has its turn. */
#include <qal/startup.h>
#include <qal/thread.h>
#include <stdio.h>

enum { THREADS = 4, ROUNDS = 1000 };

typedef struct Sum {
  QalThreadMutex mutex;
  int value;
} Sum;

static int add(void *argument) {
  Sum *sum = argument;
  for (int round = 0; round < ROUNDS; ++round) {
    if (qal_thread_mutex_lock(&sum->mutex) != 0) return 1;
    ++sum->value;
    qal_thread_mutex_unlock(&sum->mutex);
  }
  return 0;
}

int main(void) {
  Sum sum = {.value = 0};
  if (qal_utils_init() != QAL_STATUS_OK || qal_thread_mutex_init(&sum.mutex) != 0) return 1;

  int threads[THREADS];
  for (int i = 0; i < THREADS; ++i)
    if (qal_thread_create(&threads[i], add, &sum) != 0) return 1;
  for (int i = 0; i < THREADS; ++i) {
    int result;
    qal_thread_join(&threads[i], &result);
    printf("thread %d ended with %d\n", threads[i], result);
  }
  printf("the sum is %d\n", sum.value);

  qal_thread_mutex_destroy(&sum.mutex);
  qal_utils_done();
  return 0;
}

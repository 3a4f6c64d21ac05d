/* An array that grows. The macros pass the place of their call on, so that a failure is found. */
#include <qal/alloc.h>
#include <qal/logger.h>
#include <stdio.h>

int main(void) {
  /* Without a logger a failure is silent, and only the pointer shows it. */
  qal_logger_init(stderr, _qal_logger_func, NULL, NULL);

  int *squares = NULL;
  int room = 0;
  for (int i = 0; i < 10; ++i) {
    if (i == room) {
      room += 4;
      QAL_REALLOC("squares", squares, (size_t)room * sizeof *squares);
      if (!squares) return 1;
    }
    squares[i] = i * i;
  }
  printf("room for %d, the last one is %d\n", room, squares[9]);
  QAL_FREE(squares);
  return 0;
}

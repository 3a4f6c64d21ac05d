/* Adds up the time of one phase of a program with a stopwatch. */
#include <qal/clock.h>
#include <qal/system.h>
#include <stdio.h>

int main(void) {
  int phase;
  qal_timer_new(&phase);
  for (int round = 0; round < 3; ++round) {
    qal_timer_start(&phase);
    qal_usleep(2000); /* the work */
    qal_timer_stop(&phase);
  }
  const float seconds = qal_timer_elapsed(&phase);
  printf("the work took %s\n", seconds > 0 && seconds < 60 ? "less than a minute" : "too long");

  char now[9];
  const int length = qal_date_get_string(now, QAL_DATE_SHORT);
  printf("the time of day has %d characters, two of them %c\n", length, now[2]);
  return 0;
}

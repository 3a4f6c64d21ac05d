/*
 * Two threads that take turns with one permit and never pause can block each other: one comes back
 * before the other has passed, joins it, and nobody is left to release. This is the price of
 * letting waiters pass together; the run must be found.
 */
#include "sema.pml"

proctype worker(byte me) {
  do
  :: sema_wait(me); sema_release()
  od;
cancelled:
  give_back()
}

init {
  atomic {
    count = 1;
    permits = 1;
    run worker(0);
    run worker(1)
  }
}

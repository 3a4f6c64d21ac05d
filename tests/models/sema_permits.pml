/*
 * Threads that wait and release for ever, a few of them cancelled, beside a releaser of their own:
 * nobody passes without a permit. Whether anybody is left waiting is not asked here.
 */
#include "sema.pml"

proctype worker(byte me) {
  do
  :: sema_wait(me); sema_release()
  od;
cancelled:
  give_back()
}

proctype releaser() {
  sema_release();
  sema_release()
}

proctype idle_wakes() { wake_without_cause(SEMA) }

init {
  byte threads, ready, cancelled, i;
  atomic {
    select(threads : 2 .. THREADS);
    select(ready : 0 .. 2);
    count = ready;
    permits = ready;
    select(cancelled : 0 .. 2);
    for (i : 0 .. threads - 1) {
      may_be_cancelled[i] = i < cancelled;
      run worker(i)
    };
    run releaser();
    run idle_wakes()
  }
}

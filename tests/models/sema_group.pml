/*
 * One to four threads wait once each, and there is a permit for each of them, from the start or by
 * a release, unless MISSING says how many lack one. However these interleave and whoever is
 * cancelled, all others pass. The threads are alike: it does not matter which are cancelled.
 */
#include "sema.pml"

#ifndef MISSING
#define MISSING 0
#endif

proctype waiter(byte me) {
  sema_wait(me);
  goto done;
cancelled:
  give_back();
done:
  skip
}

proctype releaser(byte releases) {
  do
  :: releases > 0 -> sema_release(); releases--
  :: else -> break
  od
}

proctype idle_wakes() { wake_without_cause(SEMA) }

init {
  byte threads, ready, cancelled, i;
  atomic {
    select(threads : 1 .. THREADS);
    select(ready : 0 .. threads - MISSING);
    count = ready;
    permits = ready;
    select(cancelled : 0 .. threads);
    for (i : 0 .. threads - 1) {
      may_be_cancelled[i] = i < cancelled;
      run waiter(i)
    };
    run releaser(threads - MISSING - ready);
    run idle_wakes()
  };
  _nr_pr == 1;
  assert(waiters == 0 && count == permits)
}

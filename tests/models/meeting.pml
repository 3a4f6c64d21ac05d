/*
 * One arrival at a barrier, as in utils/libsrc/internal/barrier.hpp. A model that includes this
 * says what a waiter watches, watched(b), and what the last arrival does before anybody is
 * released, flip(b). Barrier number b has monitor number b.
 */
#include "pthread.pml"

typedef Barrier {
  bool valid;
  byte count;
  byte remaining;
  bool phase;
  byte generation
}

Barrier barriers[BARRIERS];

/*
 * A waiter first spins without the mutex. What it reads meanwhile only decides when it locks again.
 */
inline wait_for_change(b, me) {
  cancellable[me] = false;
  unlock(b);
  lock(b);
  do
  :: watched(b) == entered -> wait(b, me)
  :: else -> break
  od;
  cancellable[me] = true
}

/*
 * Sets `last` of the process if this arrival was the last, and uses its `entered`. What only the
 * mutex's holder touches is done in one step.
 */
inline arrive(b, n, me) {
  assert(barriers[b].valid);
  lock(b);
  if
  :: d_step { barriers[b].count == 0 -> barriers[b].count = n; barriers[b].remaining = n }
  :: else
  fi;
  d_step { entered = watched(b); barriers[b].remaining-- };
  if
  :: d_step { barriers[b].remaining == 0 -> barriers[b].remaining = barriers[b].count };
     flip(b);
     broadcast(b);
     last = true
  :: else -> wait_for_change(b, me)
  fi;
  d_step { entered = 0; unlock(b) }
}

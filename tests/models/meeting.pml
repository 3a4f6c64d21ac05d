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
 * A waiter first stays awake for a while, without the mutex; what it glances at then changes nothing
 * but the moment at which it comes back.
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
 * Uses `entered` and `last` of the process, which says whether this arrival was the last. What only
 * the holder of the barrier's mutex touches is one step together.
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

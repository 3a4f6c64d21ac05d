/*
 * One to four threads meet at the public barrier for ever, and each may be cancelled at any time:
 * no cycle ends before everybody has come, exactly one thread is its last, and nobody is left
 * behind.
 */
#define MONITORS 1
#define BARRIERS 1
#define watched(b) barriers[b].phase
#include "meeting.pml"

inline flip(b) { barriers[b].phase = !barriers[b].phase }

#define AHEAD(one, other) (one == other || one == (other + 1) % 4)

byte group;

/* The cycles that threads have begun, and those that have had their last arrival, modulo four. */
byte begun[THREADS];
bool closed[4];

inline note_last(cycle) {
  assert(!closed[cycle]);
  closed[cycle] = true;
  closed[(cycle + 2) % 4] = false
}

inline nobody_is_behind(me) {
  for (other : 0 .. group - 1) { assert(AHEAD(begun[other], begun[me])) }
}

proctype member(byte me) {
  bool entered, last;
  byte other;
  do
  :: begun[me] = (begun[me] + 1) % 4;
     arrive(0, group, me);
     d_step {
       nobody_is_behind(me);
       if
       :: last -> note_last(begun[me])
       :: else
       fi;
       other = 0;
       last = false
     }
  od;
cancelled:
  skip
}

proctype idle_wakes() { wake_without_cause(0) }

init {
  byte i;
  atomic {
    select(group : 1 .. THREADS);
    barriers[0].valid = true;
    for (i : 0 .. group - 1) {
      may_be_cancelled[i] = true;
      run member(i)
    };
    run idle_wakes()
  }
}

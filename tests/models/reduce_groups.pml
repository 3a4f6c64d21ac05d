/*
 * CYCLES cycles of one reduction, as in utils/libsrc/qal_reduce.cpp, the first by a group of FIRST
 * to MEMBERS threads, the others by one to MEMBERS. A thread that takes part again goes on without
 * a pause; one that joins later waits until somebody has left the cycle before. Each gets the
 * complete value of its own cycle, and nobody is left behind. The threads are alike, so the first
 * ones always take part.
 */
#define MONITORS 3
#define BARRIERS 2
#define VALUE 2
#define watched(b) barriers[b].generation
#include "meeting.pml"

bool first_time;
bool very_first_time;

/* The shared value: whose contributions it holds, a bit for each, and of which cycle. */
byte contributors;
byte value_cycle;

byte group[CYCLES];
bool over[CYCLES];

inline flip(b) {
  d_step { barriers[b].generation++; barriers[b].phase = !barriers[b].phase };
  if
  :: b == 0 -> first_time = false
  :: else -> barriers[0].count = 0; barriers[1].count = 0
  fi
}

inline make_barriers() {
  if
  :: !very_first_time ->
     d_step { barriers[0].valid = true; barriers[1].valid = true; very_first_time = true }
  :: else
  fi
}

inline contribute(me, cycle) {
  if
  :: first_time ->
     assert(value_cycle == cycle);
     contributors = contributors | (1 << me)
  :: else ->
     make_barriers();
     first_time = true;
     d_step { contributors = 1 << me; value_cycle = cycle }
  fi
}

inline reduce(me, cycle) {
  lock(VALUE);
  contribute(me, cycle);
  unlock(VALUE);
  arrive(0, group[cycle], me);
  assert(value_cycle == cycle && contributors == (1 << group[cycle]) - 1);
  last = false;
  arrive(1, group[cycle], me);
  last = false
}

proctype member(byte me) {
  byte cycle, entered;
  bool last;
  for (cycle : 0 .. CYCLES - 1) {
    if
    :: me < group[cycle] -> reduce(me, cycle); over[cycle] = true
    :: else -> over[cycle]
    fi
  };
  goto done;
cancelled:
  assert(false);
done:
  skip
}

proctype idle_wakes() {
  wake_without_cause(0);
  wake_without_cause(1)
}

init {
  byte size, i;
  atomic {
    for (i : 0 .. CYCLES - 1) {
      select(size : (i == 0 -> FIRST : 1) .. MEMBERS);
      group[i] = size
    };
    for (i : 0 .. MEMBERS - 1) { run member(i) };
#ifndef NO_IDLE_WAKES
    run idle_wakes()
#endif
  };
  _nr_pr == 1
}

/*
 * Mutexes, condition variables and cancellation as POSIX lets them behave: anybody may get a free
 * mutex, any one sleeper hears a signal, and a sleeper may wake without cause. A model that
 * includes this defines MONITORS and has a label `cancelled` in each process that waits; it is
 * reached, with the mutex held, where the thread would run its clean-up handlers.
 */
#define THREADS 4

/* A mutex and the condition variable that goes with it; operations take its number. */
typedef Monitor {
  bool held;
  bool asleep[THREADS]
}

Monitor monitors[MONITORS];

bool cancellable[THREADS] = true;

/* Which threads may be cancelled, at whatever time they can be. */
bool may_be_cancelled[THREADS];

inline lock(m) { atomic { !monitors[m].held -> monitors[m].held = true } }

inline unlock(m) {
  assert(monitors[m].held);
  monitors[m].held = false
}

inline signal(m) {
  atomic {
    if
    :: monitors[m].asleep[0] -> monitors[m].asleep[0] = false
    :: monitors[m].asleep[1] -> monitors[m].asleep[1] = false
    :: monitors[m].asleep[2] -> monitors[m].asleep[2] = false
    :: monitors[m].asleep[3] -> monitors[m].asleep[3] = false
    :: else
    fi
  }
}

inline broadcast(m) {
  d_step {
    monitors[m].asleep[0] = false;
    monitors[m].asleep[1] = false;
    monitors[m].asleep[2] = false;
    monitors[m].asleep[3] = false
  }
}

/* A thread that has heard a signal may still find itself cancelled; the signal is then lost. */
inline wait(m, me) {
  d_step {
    assert(monitors[m].held);
    monitors[m].asleep[me] = true;
    monitors[m].held = false
  };
  if
  :: atomic { !monitors[m].held && !monitors[m].asleep[me] -> monitors[m].held = true }
  :: atomic {
       !monitors[m].held && cancellable[me] && may_be_cancelled[me] ->
       monitors[m].held = true;
       monitors[m].asleep[me] = false;
       goto cancelled
     }
  fi
}

/* Wakes sleepers without cause, any number of times or never: nothing may depend on it. */
inline wake_without_cause(m) {
  do
  :: monitors[m].asleep[0] -> monitors[m].asleep[0] = false
  :: monitors[m].asleep[1] -> monitors[m].asleep[1] = false
  :: monitors[m].asleep[2] -> monitors[m].asleep[2] = false
  :: monitors[m].asleep[3] -> monitors[m].asleep[3] = false
  :: break
  od
}

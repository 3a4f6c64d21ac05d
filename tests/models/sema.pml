/* The counting semaphore of utils/libsrc/qal_thread_sema.cpp. */
#define MONITORS 1
#define SEMA 0
#include "pthread.pml"

short count;
byte waiters;

/* What the semaphore has been given and nobody has taken. */
short permits;

inline pass_on() {
  if
  :: count >= 0 && waiters >= 1 -> signal(SEMA)
  :: else
  fi
}

inline take_permit() {
  permits--;
  assert(permits >= 0)
}

inline sema_wait(me) {
  lock(SEMA);
  if
  :: count >= 1 -> count--
  :: else ->
     count--;
     waiters++;
     do
     :: count < 0 -> wait(SEMA, me)
     :: else -> break
     od;
     waiters--;
     pass_on()
  fi;
  take_permit();
  unlock(SEMA)
}

inline give_back() {
  count++;
  waiters--;
  pass_on();
  unlock(SEMA)
}

inline sema_release() {
  lock(SEMA);
  permits++;
  count++;
  if
  :: count == 0 -> signal(SEMA)
  :: else
  fi;
  unlock(SEMA)
}

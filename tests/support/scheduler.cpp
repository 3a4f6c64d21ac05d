#include "support/scheduler.hpp"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "internal/patience.hpp"
#include "support/choices.hpp"

using qal::internal::Patience;

extern "C" {
int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
int __real_pthread_join(pthread_t, void **);
int __real_pthread_cancel(pthread_t);
int __real_pthread_mutex_lock(pthread_mutex_t *);
int __real_pthread_mutex_trylock(pthread_mutex_t *);
int __real_pthread_mutex_unlock(pthread_mutex_t *);
int __real_pthread_cond_wait(pthread_cond_t *, pthread_mutex_t *);
int __real_pthread_cond_signal(pthread_cond_t *);
int __real_pthread_cond_broadcast(pthread_cond_t *);
int __real_sched_yield();
}
bool real_lasts(Patience &) __asm__("__real__ZN3qal8internal8Patience5lastsEv");
bool wrapped_lasts(Patience &) __asm__("__wrap__ZN3qal8internal8Patience5lastsEv");

namespace qal::test {

namespace {

constexpr std::size_t most_threads = 32;    // of one run: more do not start
constexpr std::size_t most_steps = 20'000;  // of one run: it would not end otherwise
constexpr int most_looks = 2;               // of a thread before it sleeps at a barrier

struct Thread;

// What a thread does, and what it waits for: null when it does not.
struct State {
  void *(*routine)(void *) = nullptr;
  void *argument = nullptr;
  pthread_mutex_t *mutex = nullptr;
  pthread_cond_t *condition = nullptr;
  const Thread *joined = nullptr;
  bool has_points = false;
  bool has_begun = false;
  bool has_ended = false;
  bool can_be_cancelled = false;  // as it waits for a signal
  bool is_cancelled = false;
  bool is_to_unwind = false;
  int looks = 0;
};

// Unwinds a thread that was cancelled, in place of what would end the platform thread.
struct Cancellation {};

// A platform thread, which serves one run after the other as long as the process lives.
struct Thread {
  explicit Thread(std::size_t place) : number(place) { sem_init(&turn, 0, 0); }

  const std::size_t number;
  sem_t turn;
  pthread_t handle{};
  State state;
};
using Ways = std::vector<Thread *>;

struct Run {
  Run() { sem_init(&over, 0, 0); }
  std::span<Thread *> started() { return std::span(threads).first(count); }

  std::vector<Thread *> threads;  // in the order of their starts; spare ones follow
  std::size_t count = 0;
  Are threads_are = Are::different;
  Choices *choices = nullptr;
  std::vector<std::pair<std::size_t, const char *>> steps;
  const char *failure = "";
  sem_t over;
} run;

thread_local Thread *self = nullptr;  // null in a thread that no schedule is about

void await(sem_t &semaphore) {
  while (sem_wait(&semaphore) != 0) continue;
}

bool is_free(pthread_mutex_t *mutex) {
  return __real_pthread_mutex_trylock(mutex) == 0 && __real_pthread_mutex_unlock(mutex) == 0;
}

bool all_have_ended_but(const State &state) {
  return std::ranges::all_of(run.started(), [&](const Thread *thread) {
    return thread->state.has_ended || &thread->state == &state;
  });
}

bool could_go_on(const State &state) {
  if (state.has_ended) return false;
  if (state.mutex) return is_free(state.mutex);
  if (!state.joined) return true;
  return state.has_points ? state.joined->state.has_ended : all_have_ended_but(state);
}

bool can_go_on(const State &state) { return !state.condition && could_go_on(state); }
bool can_wake(const State &state) { return state.condition && could_go_on(state); }

bool is_to_begin(const Thread *thread) {
  return !thread->state.has_begun && !thread->state.has_points;
}

bool is_stood_for(const Thread &thread) {
  return run.threads_are == Are::alike && is_to_begin(&thread) &&
         std::ranges::any_of(run.started().first(thread.number), is_to_begin);
}

// Appends the threads in such a state in turn, beginning with that number.
template <typename Such>
void append(Ways &ways, std::size_t first, const Such &is_such) {
  for (std::size_t i = 0; i < run.count; ++i) {
    Thread &thread = *run.threads[(first + i) % run.count];
    if (is_such(thread.state) && !is_stood_for(thread)) ways.push_back(&thread);
  }
}

Thread *end_run(const char *failure) {
  run.failure = failure;
  sem_post(&run.over);
  return nullptr;
}

// The thread that goes on, or null when the run is over. Ways that cost nothing come first.
Thread *next_thread(bool yields) {
  static Ways ways;
  ways.clear();
  const bool can_stay = can_go_on(self->state);
  append(ways, self->number + (can_stay && !yields ? 0 : 1), can_go_on);
  if (ways.empty()) return end_run(all_have_ended_but(self->state) ? "" : "all threads wait");
  if (run.steps.size() > most_steps) return end_run("there is no end");
  const std::size_t free = can_stay ? 1 : ways.size();
  append(ways, self->number + 1, can_wake);
  Thread *const next = ways[run.choices->next(free, ways.size())];
  next->state.condition = nullptr;
  return next;
}

void wake(Thread *thread) {
  if (thread) sem_post(&thread->turn);
}

// Returns when the caller is to go on.
void point(const char *step, bool yields = false) {
  run.steps.emplace_back(self->number, step);
  if (!self->state.has_points && can_go_on(self->state)) return;
  Thread *const next = next_thread(yields);
  if (next == self) return;
  wake(next);
  await(self->turn);
}

void *serve(void *thread) {
  self = static_cast<Thread *>(thread);
  for (;;) {
    await(self->turn);
    self->state.has_begun = true;
    try {
      self->state.routine(self->state.argument);
    } catch (const Cancellation &) {
    }
    self->state.has_ended = true;
    run.steps.emplace_back(self->number, "ends");
    wake(next_thread(false));
  }
}

Thread *new_thread() {
  auto *const thread = new Thread(run.threads.size());
  if (__real_pthread_create(&thread->handle, nullptr, &serve, thread) != 0) std::abort();
  return thread;
}

// It begins when it gets a turn.
Thread *start(void *(*routine)(void *), void *argument, bool has_points) {
  if (run.count == most_threads) return nullptr;
  if (run.count == run.threads.size()) run.threads.push_back(new_thread());
  Thread *const thread = run.threads[run.count++];
  thread->state = {.routine = routine, .argument = argument, .has_points = has_points};
  return thread;
}

int take(pthread_mutex_t *mutex) {
  self->state.mutex = nullptr;
  return __real_pthread_mutex_lock(mutex);
}

bool may_be_cancelled() {
  int state = PTHREAD_CANCEL_DISABLE;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
  pthread_setcancelstate(state, nullptr);
  return state == PTHREAD_CANCEL_ENABLE;
}

Thread *served_by(pthread_t handle) {
  return *std::ranges::find_if(run.threads, [handle](const Thread *thread) {
    return pthread_equal(thread->handle, handle) != 0;
  });
}

void *run_body(void *body) {
  (*static_cast<const Body *>(body))();
  return nullptr;
}

// Returns what failed, or an empty text. Threads that wait for ever are left where they are.
std::string run_once(const Body &body, Choices &choices) {
  run.count = 0;
  run.steps.clear();
  run.choices = &choices;
  choices.begin_run();
  wake(start(&run_body, const_cast<Body *>(&body), false));
  await(run.over);
  const std::string failure = run.failure;
  if (!failure.empty()) run.threads.clear();
  if (!choices.fit()) return "it is another run";
  return testing::Test::HasFailure() ? "an expectation fails" : failure;
}

// Threads that share a processor pass a turn in half the time. They inherit it.
void stay_on_processor() {
  static const int processor = sched_getcpu();
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<unsigned>(processor), &set);
  sched_setaffinity(0, sizeof set, &set);
}

std::string steps_of_run() {
  std::string all;
  for (const auto &[number, step] : run.steps) all += std::to_string(number) + " " + step + "\n";
  return all;
}

// Runs the body until it fails or `change` finds no other choices.
template <typename Change>
Search search(Are threads, const Body &body, Choices &choices, const Change &change) {
  Search found;
  run.threads_are = threads;
  stay_on_processor();
  do {
    ++found.schedules;
    found.failure = run_once(body, choices);
  } while (found.failure.empty() && change());
  found.line = choices.line();
  if (!found.failure.empty()) found.steps = steps_of_run();
  return found;
}

std::size_t first_way(std::size_t, std::size_t) { return 0; }

}  // namespace

Search every_schedule(int most_preemptions, Are threads, const Body &body) {
  Search found;
  for (int most = 0; most <= most_preemptions && found.failure.empty(); ++most) {
    const long before = found.schedules;
    Choices choices(first_way);
    found = search(threads, body, choices, [&] { return choices.change(most); });
    found.schedules += before;
  }
  return found;
}

Search random_schedules(long count, int most_preemptions, const Body &body) {
  std::minstd_rand random;
  const auto most = static_cast<std::size_t>(most_preemptions);
  std::size_t left = most;
  std::size_t usual_length = most;
  Choices choices([&](std::size_t free, std::size_t all) {
    const bool preempts = free < all && left > 0 && random() % usual_length < most;
    if (!preempts) return random() % free;
    --left;
    return free + random() % (all - free);
  });
  return search(Are::different, body, choices, [&] {
    usual_length = std::max(most, choices.size());
    left = most;
    choices.forget();
    return --count > 0;
  });
}

Search replay(std::string_view line, Are threads, const Body &body) {
  Choices choices(first_way, line);
  return search(threads, body, choices, [] { return false; });
}

Points::Points() { self->state.has_points = true; }
Points::~Points() { self->state.has_points = false; }

// The linker knows these by their names alone.
extern "C" {

int __wrap_pthread_create(pthread_t *handle, const pthread_attr_t *attributes,
                          void *(*routine)(void *), void *argument) {
  if (!self) return __real_pthread_create(handle, attributes, routine, argument);
  const Thread *const thread = start(routine, argument, self->state.has_points);
  if (!thread) return EAGAIN;
  *handle = thread->handle;
  point("starts a thread");
  return 0;
}

int __wrap_pthread_join(pthread_t handle, void **value) {
  if (!self) return __real_pthread_join(handle, value);
  self->state.joined = served_by(handle);
  point("joins a thread");
  self->state.joined = nullptr;
  return 0;
}

int __wrap_pthread_cancel(pthread_t handle) {
  if (!self) return __real_pthread_cancel(handle);
  point("cancels a thread");
  State &state = served_by(handle)->state;
  state.is_cancelled = true;
  if (!state.condition || !state.can_be_cancelled) return 0;
  state.condition = nullptr;
  state.is_to_unwind = true;
  return 0;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  if (!self) return __real_pthread_mutex_lock(mutex);
  self->state.mutex = mutex;
  point("locks");
  return take(mutex);
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t *mutex) {
  if (self) point("tries to lock");
  return __real_pthread_mutex_trylock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  const int status = __real_pthread_mutex_unlock(mutex);
  if (self) point("unlocks");
  return status;
}

int __wrap_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex) {
  if (!self) return __real_pthread_cond_wait(condition, mutex);
  State &state = self->state;
  point("waits");
  state.can_be_cancelled = may_be_cancelled();
  if (state.is_cancelled && state.can_be_cancelled) throw Cancellation{};
  __real_pthread_mutex_unlock(mutex);
  state.mutex = mutex;
  state.condition = condition;
  point("sleeps");
  const int status = take(mutex);
  if (state.is_to_unwind) throw Cancellation{};
  return status;
}

int __wrap_pthread_cond_signal(pthread_cond_t *condition) {
  if (!self) return __real_pthread_cond_signal(condition);
  point("signals");
  Ways ways;
  append(ways, 0, [=](const State &state) { return state.condition == condition; });
  if (!ways.empty()) ways[run.choices->next(ways.size(), ways.size())]->state.condition = nullptr;
  return 0;
}

int __wrap_pthread_cond_broadcast(pthread_cond_t *condition) {
  if (!self) return __real_pthread_cond_broadcast(condition);
  point("broadcasts");
  for (Thread *const thread : run.started()) {
    if (thread->state.condition == condition) thread->state.condition = nullptr;
  }
  return 0;
}

int __wrap_sched_yield() {
  if (!self) return __real_sched_yield();
  point("yields", true);
  return 0;
}
}

}  // namespace qal::test

// The clock, which says how long a thread stays awake, is no part of a schedule.
bool wrapped_lasts(Patience &patience) {
  using qal::test::most_looks;
  using qal::test::point;
  using qal::test::self;
  if (!self) return real_lasts(patience);
  point("looks", true);
  self->state.looks = (self->state.looks + 1) % most_looks;
  return self->state.looks != 0;
}

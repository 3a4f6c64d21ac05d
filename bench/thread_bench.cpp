// Mutexes, semaphores, threads, barriers and reductions, each beside what a user would take
// instead. Without interruptions Boost's barrier lies in its headers alone.
#define BOOST_THREAD_VERSION 4
#define BOOST_THREAD_DONT_PROVIDE_INTERRUPTIONS
#include <glib.h>
#include <omp.h>
#include <pthread.h>
#include <qal/barrier.h>
#include <qal/startup.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <barrier>
#include <boost/thread/barrier.hpp>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "rows.hpp"

namespace {

using benchmark::State;
using qal::bench::curve;
using qal::bench::row;

void qal_mutex(State &state) {
  QalThreadMutex mutex;
  qal_thread_mutex_init(&mutex);
  for (auto _ : state) {
    qal_thread_mutex_lock(&mutex);
    qal_thread_mutex_unlock(&mutex);
  }
  qal_thread_mutex_destroy(&mutex);
}

void pthread_mutex(State &state) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    pthread_mutex_unlock(&mutex);
  }
}

void std_mutex(State &state) {
  std::mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}

void glib_mutex(State &state) {
  GMutex mutex;
  g_mutex_init(&mutex);
  for (auto _ : state) {
    g_mutex_lock(&mutex);
    g_mutex_unlock(&mutex);
  }
  g_mutex_clear(&mutex);
}

void qal_semaphore(State &state) {
  QalThreadSema semaphore;
  qal_thread_sema_init(&semaphore, 1);
  for (auto _ : state) {
    qal_thread_sema_wait(&semaphore);
    qal_thread_sema_release(&semaphore);
  }
  qal_thread_sema_destroy(&semaphore);
}

void posix_semaphore(State &state) {
  sem_t semaphore;
  sem_init(&semaphore, 0, 1);
  for (auto _ : state) {
    sem_wait(&semaphore);
    sem_post(&semaphore);
  }
  sem_destroy(&semaphore);
}

void std_semaphore(State &state) {
  std::counting_semaphore<> semaphore(1);
  for (auto _ : state) {
    semaphore.acquire();
    semaphore.release();
  }
}

// Ours waits and releases under a mutex, each time locked and unlocked once.
void two_mutex_pairs(State &state) {
  std::mutex mutex;
  for (auto _ : state) {
    for (int i = 0; i < 2; ++i) {
      mutex.lock();
      mutex.unlock();
    }
  }
}

// Threads that do nothing: all of them are started, then all are joined.
template <int count>
void qal_threads(State &state) {
  qal_utils_init();
  std::array<int, count> indices{};
  for (auto _ : state) {
    for (int &index : indices) {
      qal_thread_create(
          &index, [](void *) { return 0; }, nullptr);
    }
    for (const int &index : indices) qal_thread_join(&index, nullptr);
  }
}

template <int count>
void std_threads(State &state) {
  std::array<std::thread, count> threads;
  for (auto _ : state) {
    for (auto &one : threads) one = std::thread([] {});
    for (auto &one : threads) one.join();
  }
}

template <int count>
void glib_threads(State &state) {
  std::array<GThread *, count> threads{};
  for (auto _ : state) {
    for (auto &one : threads) {
      one = g_thread_new(
          nullptr, [](void *) -> void * { return nullptr; }, nullptr);
    }
    for (auto *one : threads) g_thread_join(one);
  }
}

// The calling thread and its helpers do `step` as often as the benchmark asks for; it makes them
// meet. The helpers are of the C++ library whoever is measured.
template <typename Step>
void together(State &state, int threads, const Step &step) {
  const auto rounds = state.max_iterations;
  std::vector<std::jthread> helpers;
  for (int i = 1; i < threads; ++i) {
    helpers.emplace_back([&step, rounds] {
      for (benchmark::IterationCount round = 0; round < rounds; ++round) step();
    });
  }
  for (auto _ : state) step();
}

// The same in a team of OpenMP's, which keeps its threads from one benchmark to the next.
template <typename Step>
void in_openmp_team(State &state, int threads, const Step &step) {
  const auto rounds = state.max_iterations;
#pragma omp parallel num_threads(threads)
  if (omp_get_thread_num() == 0) {
    for (auto _ : state) step();
  } else {
    for (benchmark::IterationCount round = 0; round < rounds; ++round) step();
  }
}

template <int threads>
void qal_barrier(State &state) {
  QalThreadBarrier barrier;
  qal_thread_barrier_init(&barrier);
  together(state, threads, [&] { qal_thread_barrier(&barrier, threads); });
  qal_thread_barrier_destroy(&barrier);
}

template <int threads>
void std_barrier(State &state) {
  std::barrier barrier(threads);
  together(state, threads, [&] { barrier.arrive_and_wait(); });
}

template <int threads>
void boost_barrier(State &state) {
  boost::barrier barrier(threads);
  together(state, threads, [&] { barrier.wait(); });
}

template <int threads>
void posix_barrier(State &state) {
  pthread_barrier_t barrier;
  pthread_barrier_init(&barrier, nullptr, threads);
  together(state, threads, [&] { pthread_barrier_wait(&barrier); });
  pthread_barrier_destroy(&barrier);
}

template <int threads>
void openmp_barrier(State &state) {
  in_openmp_team(state, threads, [] {
#pragma omp barrier
  });
}

void qal_sum(State &state, int threads) {
  together(state, threads, [=] { benchmark::DoNotOptimize(qal_thread_global_dsum(1, threads)); });
}

// The same over std::barrier: add, meet, read, meet.
class StdSum {
 public:
  explicit StdSum(int threads) : contributed_(threads, BeginAnew{&begun_}), read_(threads) {}

  double run(double x) {
    {
      const std::lock_guard lock(mutex_);
      value_ = begun_ ? value_ + x : x;
      begun_ = true;
    }
    contributed_.arrive_and_wait();
    const double result = value_;
    read_.arrive_and_wait();
    return result;
  }

 private:
  struct BeginAnew {
    bool *begun;
    void operator()() const noexcept { *begun = false; }
  };

  std::mutex mutex_;
  bool begun_ = false;
  double value_ = 0;
  std::barrier<BeginAnew> contributed_;
  std::barrier<> read_;
};

void std_sum(State &state, int threads) {
  StdSum sum(threads);
  together(state, threads, [&] { benchmark::DoNotOptimize(sum.run(1)); });
}

template <int threads>
void qal_reduction(State &state) {
  qal_sum(state, threads);
}

template <int threads>
void std_reduction(State &state) {
  std_sum(state, threads);
}

double openmp_total = 0;

void add_to_openmp_total(int threads) {
#pragma omp for schedule(static) reduction(+ : openmp_total)
  for (int i = 0; i < threads; ++i) openmp_total += 1;
}

template <int threads>
void openmp_reduction(State &state) {
  in_openmp_team(state, threads, [] { add_to_openmp_total(threads); });
}

// Another process that always wants a processor.
class BusyProcess {
 public:
  BusyProcess() {
    const pid_t parent = getpid();
    child_ = fork();
    if (child_ != 0) return;
    while (getppid() == parent) continue;
    _exit(0);
  }
  ~BusyProcess() {
    if (child_ < 0) return;
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  BusyProcess(const BusyProcess &) = delete;
  BusyProcess &operator=(const BusyProcess &) = delete;

 private:
  pid_t child_ = -1;
};

template <qal::bench::Work work>
void beside_busy_process(State &state) {
  const BusyProcess busy;
  work(state);
}

void qal_reductions(State &state) { qal_sum(state, static_cast<int>(state.range(0))); }

void std_reductions(State &state) { std_sum(state, static_cast<int>(state.range(0))); }

template <int threads>
void meeting_rows() {
  const std::string group = ", " + std::to_string(threads) + " threads";
  row("barrier" + group, {{"qal", qal_barrier<threads>},
                          {"std::barrier", std_barrier<threads>},
                          {"OpenMP", openmp_barrier<threads>},
                          {"Boost", boost_barrier<threads>},
                          {"pthread", posix_barrier<threads>}});
  row("reduction" + group, {{"qal", qal_reduction<threads>},
                            {"std::barrier", std_reduction<threads>},
                            {"OpenMP", openmp_reduction<threads>}});
  const std::string crowded = group + " beside a busy process";
  row("barrier" + crowded, {{"qal", beside_busy_process<qal_barrier<threads>>},
                            {"std::barrier", beside_busy_process<std_barrier<threads>>}});
  row("reduction" + crowded, {{"qal", beside_busy_process<qal_reduction<threads>>},
                              {"std::barrier", beside_busy_process<std_reduction<threads>>}});
}

const bool registered = [] {
  row("mutex pair", {{"qal", qal_mutex},
                     {"pthread", pthread_mutex},
                     {"std::mutex", std_mutex},
                     {"GLib", glib_mutex}});
  row("semaphore pair", {{"qal", qal_semaphore},
                         {"sem_t", posix_semaphore},
                         {"std::counting_semaphore", std_semaphore},
                         {"floor: two mutex pairs", two_mutex_pairs}});
  row("thread, create and join one",
      {{"qal", qal_threads<1>}, {"std::thread", std_threads<1>}, {"GLib", glib_threads<1>}});
  row("thread, create and join 32",
      {{"qal", qal_threads<32>}, {"std::thread", std_threads<32>}, {"GLib", glib_threads<32>}});
  meeting_rows<2>();
  meeting_rows<4>();
  meeting_rows<8>();
  curve("reduction over threads", {1, 2, 4, 8, 16},
        {{"qal", qal_reductions}, {"std::barrier", std_reductions}});
  return true;
}();

}  // namespace

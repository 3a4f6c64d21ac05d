// Elements of 64 bytes from a pool beside blocks from general allocators. The other allocators are
// loaded with symbols of their own, so that the process keeps glibc's.
#include <dlfcn.h>
#include <glib.h>
#include <pthread.h>
#include <qal/mpool.h>
#include <qal/startup.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <memory_resource>

#include "rows.hpp"

namespace {

using benchmark::State;
using qal::bench::row;

constexpr std::size_t element_size = 64;
constexpr std::size_t batch_size = 1000;

class Pool {
 public:
  Pool() { qal_utils_init(); }
  ~Pool() { qal_mpool_destroy(&pool_); }
  Pool(const Pool &) = delete;
  Pool &operator=(const Pool &) = delete;
  void *allocate() { return qal_mpool_alloc(pool_); }
  void release(void *element) { qal_mpool_free(pool_, element); }

 private:
  QalMpool *pool_ = qal_mpool_create(element_size, 256);
};

struct Malloc {
  static void *allocate() { return std::malloc(element_size); }
  static void release(void *block) { std::free(block); }
};

struct Slices {
  static void *allocate() { return g_slice_alloc(element_size); }
  static void release(void *block) { g_slice_free1(element_size, block); }
};

class PmrPool {
 public:
  void *allocate() { return pool_.allocate(element_size); }
  void release(void *block) { pool_.deallocate(block, element_size); }

 private:
  std::pmr::synchronized_pool_resource pool_;
};

struct Mimalloc {
  static constexpr const char *library = "libmimalloc.so.2";
};
struct Jemalloc {
  static constexpr const char *library = "libjemalloc.so.2";
};

template <typename Allocator>
class Loaded {
 public:
  static bool works() { return malloc_ && free_; }
  static void *allocate() { return malloc_(element_size); }
  static void release(void *block) { free_(block); }

 private:
  static void *symbol(const char *name) {
    static void *const library = dlopen(Allocator::library, RTLD_NOW | RTLD_LOCAL);
    return library ? dlsym(library, name) : nullptr;
  }
  static inline const auto malloc_ = reinterpret_cast<void *(*)(std::size_t)>(symbol("malloc"));
  static inline const auto free_ = reinterpret_cast<void (*)(void *)>(symbol("free"));
};

template <typename Memory>
void one(State &state) {
  Memory memory;
  for (auto _ : state) {
    void *block = memory.allocate();
    benchmark::DoNotOptimize(block);
    memory.release(block);
  }
}

template <typename Memory>
void batch(State &state) {
  Memory memory;
  std::array<void *, batch_size> blocks{};
  for (auto _ : state) {
    for (void *&block : blocks) block = memory.allocate();
    benchmark::DoNotOptimize(blocks.data());
    for (void *block : blocks) memory.release(block);
  }
}

// What giving back cannot do without.
void lock_pairs(State &state, std::size_t pairs) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (auto _ : state) {
    for (std::size_t i = 0; i < pairs; ++i) {
      pthread_mutex_lock(&mutex);
      pthread_mutex_unlock(&mutex);
    }
  }
}

template <typename Memory>
void add(const char *who) {
  row("pool, allocate and free one", {{who, one<Memory>}});
  row("pool, allocate and free 1000", {{who, batch<Memory>}});
}

const bool registered = [] {
  add<Pool>("qal");
  add<Malloc>("glibc malloc");
  add<Slices>("GLib slices");
  add<PmrPool>("std::pmr");
  if (Loaded<Mimalloc>::works()) add<Loaded<Mimalloc>>("mimalloc");
  if (Loaded<Jemalloc>::works()) add<Loaded<Jemalloc>>("jemalloc");
  row("pool, allocate and free one", {{"floor", [](State &state) { lock_pairs(state, 1); }}});
  row("pool, allocate and free 1000",
      {{"floor", [](State &state) { lock_pairs(state, batch_size); }}});
  return true;
}();

}  // namespace

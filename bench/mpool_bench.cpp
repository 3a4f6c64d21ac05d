// Elements of 32 bytes from a pool beside blocks from general allocators. The other allocators are
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
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "rows.hpp"

namespace {

using benchmark::State;
using qal::bench::row;

constexpr std::size_t element_size = 32;
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

// The functions of a library that is loaded with symbols of its own; null without it.
struct Functions {
  void *(*allocate)(std::size_t) = nullptr;
  void (*release)(void *) = nullptr;

  explicit Functions(const char *library) {
    void *const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (!handle) return;
    allocate = reinterpret_cast<void *(*)(std::size_t)>(dlsym(handle, "malloc"));
    release = reinterpret_cast<void (*)(void *)>(dlsym(handle, "free"));
  }
};

const Functions mimalloc("libmimalloc.so.2");
const Functions jemalloc("libjemalloc.so.2");

template <const Functions &functions>
struct Loaded {
  static void *allocate() { return functions.allocate(element_size); }
  static void release(void *block) { functions.release(block); }
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

// The floor where there is one thread: elements are there, and are linked out and in.
class FreeList {
 public:
  FreeList() {
    for (Element &element : elements_) release(&element);
  }
  void *allocate() { return std::exchange(first_, first_->next); }
  void release(void *element) { first_ = ::new (element) Element{first_}; }

 private:
  union Element {
    Element *next;
    std::byte bytes[element_size];
  };

  std::vector<Element> elements_ = std::vector<Element>(batch_size);
  Element *first_ = nullptr;
};

// The floor beside other threads: they are told apart by a key, and elements go back under a lock.
void floor(State &state, std::size_t pairs) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_key_t key = 0;
  pthread_key_create(&key, nullptr);
  for (auto _ : state) {
    for (std::size_t i = 0; i < pairs; ++i) {
      benchmark::DoNotOptimize(pthread_getspecific(key));
      pthread_mutex_lock(&mutex);
      pthread_mutex_unlock(&mutex);
    }
  }
  pthread_key_delete(key);
}

template <typename Memory>
void add(const char *who) {
  row("pool, allocate and free one" VARIANT, {{who, one<Memory>}});
  row("pool, allocate and free 1000" VARIANT, {{who, batch<Memory>}});
}

const bool registered = [] {
  add<Pool>("qal");
  add<Malloc>("glibc malloc" BESIDE);
  add<Slices>("GLib slices" BESIDE);
  add<PmrPool>("std::pmr" BESIDE);
  if (mimalloc.allocate) add<Loaded<mimalloc>>("mimalloc" BESIDE);
  if (jemalloc.allocate) add<Loaded<jemalloc>>("jemalloc" BESIDE);
  if (std::string_view{VARIANT} != ", beside a thread") {
    add<FreeList>("floor: linking");
    return true;
  }
  row("pool, allocate and free one" VARIANT,
      {{"floor: a key and a mutex", [](State &state) { floor(state, 1); }}});
  row("pool, allocate and free 1000" VARIANT,
      {{"floor: a key and a mutex", [](State &state) { floor(state, batch_size); }}});
  return true;
}();

}  // namespace

#include "fault/short_memory.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

// What the program would call without the definitions below: a sanitizer's allocator or that of the
// C library.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QAL_ALLOCATOR "__interceptor_"
const bool qal::test::under_sanitizer = true;
#else
#define QAL_ALLOCATOR "__libc_"
const bool qal::test::under_sanitizer = false;
#endif

extern "C" {
void *underlying_malloc(std::size_t size) __asm__(QAL_ALLOCATOR "malloc");
void *underlying_calloc(std::size_t count, std::size_t size) __asm__(QAL_ALLOCATOR "calloc");
void *underlying_realloc(void *block, std::size_t size) __asm__(QAL_ALLOCATOR "realloc");
void underlying_free(void *block) __asm__(QAL_ALLOCATOR "free");
}

#define QAL_UNCHECKED __attribute__((no_sanitize("address")))

namespace {

// Set by the first call. Until then everything is passed on at once and unchecked: a sanitizer
// needs memory before it can check anything.
bool in_use = false;
thread_local bool inside_call = false;
std::atomic<int> allocations_until_refusal = 0;  // 0: none fails
std::atomic<bool> refuses_from_there_on = false;
std::atomic<int> refused = 0;
std::atomic<int> refused_before_call = 0;

// Held for a few instructions at a time; a mutex of the platform might be one under test.
class SpinLock {
 public:
  void lock() {
    while (flag_.test_and_set()) {
    }
  }
  void unlock() { flag_.clear(); }

 private:
  std::atomic_flag flag_;
};

struct Block {
  void *address;
  std::size_t size;
};

// Allocates nothing itself.
class LiveBlocks {
 public:
  void add(void *address, std::size_t size) {
    const std::lock_guard lock(lock_);
    if (count_ == blocks_.size()) std::abort();
    blocks_[count_++] = {address, size};
  }
  void remove(const void *address) {
    remove_if([=](const Block &block) { return block.address == address; });
  }
  bool remove_one_of(std::size_t size) {
    return remove_if([=](const Block &block) { return block.size == size; });
  }
  void clear() {
    const std::lock_guard lock(lock_);
    count_ = 0;
  }
  std::size_t count() {
    const std::lock_guard lock(lock_);
    return count_;
  }

 private:
  template <typename Wanted>
  bool remove_if(Wanted wanted) {
    const std::lock_guard lock(lock_);
    for (std::size_t i = count_; i-- > 0;) {
      if (!wanted(blocks_[i])) continue;
      blocks_[i] = blocks_[--count_];
      return true;
    }
    return false;
  }

  SpinLock lock_;
  std::array<Block, 4096> blocks_{};
  std::size_t count_ = 0;
};

constinit LiveBlocks live;

bool is_refused() {
  if (!inside_call || allocations_until_refusal == 0) return false;
  if (allocations_until_refusal > 1) {
    --allocations_until_refusal;
    return false;
  }
  if (!refuses_from_there_on) allocations_until_refusal = 0;
  ++refused;
  errno = ENOMEM;
  return true;
}

void *noted(void *block, std::size_t size) {
  if (block && inside_call) live.add(block, size);
  return block;
}

}  // namespace

extern "C" {
QAL_UNCHECKED void *malloc(std::size_t size) noexcept {
  if (!in_use) return underlying_malloc(size);
  return is_refused() ? nullptr : noted(underlying_malloc(size), size);
}

QAL_UNCHECKED void *calloc(std::size_t count, std::size_t size) noexcept {
  if (!in_use) return underlying_calloc(count, size);
  return is_refused() ? nullptr : noted(underlying_calloc(count, size), count * size);
}

QAL_UNCHECKED void *realloc(void *block, std::size_t size) noexcept {
  if (!in_use) return underlying_realloc(block, size);
  if (is_refused()) return nullptr;
  live.remove(block);
  return noted(underlying_realloc(block, size), size);
}

QAL_UNCHECKED void free(void *block) noexcept {
  if (in_use && block) live.remove(block);
  underlying_free(block);
}
}

namespace qal::test {

void run_short(int nth, Shortage shortage) {
  refused = 0;
  refuses_from_there_on = shortage == Shortage::lasting;
  allocations_until_refusal = nth;
}

void suffice() { allocations_until_refusal = 0; }

bool failed() { return refused > refused_before_call; }

int refusals() { return refused; }

std::size_t blocks_left() { return live.count(); }

void forget_blocks() { live.clear(); }

bool lose_block(std::size_t size) { return live.remove_one_of(size); }

bool memory_can_run_short() {
  run_short(1, Shortage::once);
  void *volatile block = call([] { return std::malloc(1); });
  suffice();
  std::free(block);
  return !block;
}

InsideCall::InsideCall() {
  in_use = true;
  refused_before_call = refused.load();
  inside_call = true;
}

InsideCall::~InsideCall() { inside_call = false; }

}  // namespace qal::test

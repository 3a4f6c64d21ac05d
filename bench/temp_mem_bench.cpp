// Scratch buffers that are wanted again and again: kept blocks beside malloc and free, each touched
// at both ends as a user would.
#include <qal/temp_mem.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "rows.hpp"

namespace {

constexpr std::size_t mebibyte = std::size_t{1} << 20U;

struct Kept {
  static void *allocate(std::size_t size) {
    return qal_temp_mem_alloc(static_cast<std::int64_t>(size));
  }
  static void release(void *block) { qal_temp_mem_release(block); }
  static void end() { qal_temp_mem_free_all(); }
};

struct Malloc {
  static void *allocate(std::size_t size) { return std::malloc(size); }
  static void release(void *block) { std::free(block); }
  static void end() {}
};

// The floor: a block that is always there.
struct Fixed {
  static void *allocate(std::size_t) {
    static std::array<char, mebibyte> block;
    return block.data();
  }
  static void release(void *) {}
  static void end() {}
};

void touch(void *block, std::size_t size) {
  auto *bytes = static_cast<char *>(block);
  bytes[0] = 1;
  bytes[size - 1] = 1;
  benchmark::DoNotOptimize(bytes);
  benchmark::ClobberMemory();
}

template <typename Memory>
void reuse(benchmark::State &state) {
  for (auto _ : state) {
    void *block = Memory::allocate(mebibyte);
    touch(block, mebibyte);
    Memory::release(block);
  }
  Memory::end();
}

// Buffers of functions that call each other, 64 KiB to 512 KiB; the innermost goes first.
template <typename Memory>
void nested(benchmark::State &state) {
  std::array<void *, 8> blocks{};
  for (auto _ : state) {
    for (std::size_t i = 0; i < blocks.size(); ++i) {
      const std::size_t size = (i + 1) * mebibyte / 16;
      blocks[i] = Memory::allocate(size);
      touch(blocks[i], size);
    }
    for (std::size_t i = blocks.size(); i-- > 0;) Memory::release(blocks[i]);
  }
  Memory::end();
}

const bool registered = [] {
  using qal::bench::row;
  row("temporary memory, reuse of 1 MiB", {{"qal", reuse<Kept>},
                                           {"glibc malloc", reuse<Malloc>},
                                           {"floor: the use of the block", reuse<Fixed>}});
  row("temporary memory, eight nested", {{"qal", nested<Kept>},
                                         {"glibc malloc", nested<Malloc>},
                                         {"floor: the use of the blocks", nested<Fixed>}});
  return true;
}();

}  // namespace

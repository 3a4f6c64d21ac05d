// A scratch buffer that is wanted again and again: kept blocks against malloc and free, each
// touched at both ends as a user would.
#include <benchmark/benchmark.h>
#include <qal/alloc.h>
#include <qal/temp_mem.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void touch(void *block, std::int64_t size) {
  auto *bytes = static_cast<char *>(block);
  bytes[0] = 1;
  bytes[size - 1] = 1;
  benchmark::DoNotOptimize(bytes);
  benchmark::ClobberMemory();
}

void temp_mem_reuse(benchmark::State &state) {
  const std::int64_t size = state.range(0);
  for (auto _ : state) {
    void *block = qal_temp_mem_alloc(size);
    touch(block, size);
    qal_temp_mem_release(block);
  }
  qal_temp_mem_free_all();
  state.SetItemsProcessed(state.iterations());
}

void checked_malloc(benchmark::State &state) {
  const std::int64_t size = state.range(0);
  for (auto _ : state) {
    void *block = nullptr;
    QAL_MALLOC("bench", block, size);
    touch(block, size);
    QAL_FREE(block);
  }
  state.SetItemsProcessed(state.iterations());
}

void c_library_malloc(benchmark::State &state) {
  const std::int64_t size = state.range(0);
  for (auto _ : state) {
    void *block = std::malloc(static_cast<std::size_t>(size));
    touch(block, size);
    std::free(block);
  }
  state.SetItemsProcessed(state.iterations());
}

constexpr std::int64_t small = 256;
constexpr std::int64_t large = std::int64_t{4} << 20;

BENCHMARK(temp_mem_reuse)->Arg(small)->Arg(large);
BENCHMARK(checked_malloc)->Arg(small)->Arg(large);
BENCHMARK(c_library_malloc)->Arg(small)->Arg(large);

// The best fit stands behind the smaller blocks, all of which are looked at.
void temp_mem_reuse_behind(benchmark::State &state) {
  const std::int64_t idle_blocks = state.range(0);
  for (std::int64_t i = 0; i < idle_blocks; ++i) qal_temp_mem_alloc(100 + i);
  while (Tmem_InUse) qal_temp_mem_release(Tmem_InUse->mptr);
  for (auto _ : state) {
    void *block = qal_temp_mem_alloc(100 + idle_blocks);
    touch(block, 100 + idle_blocks);
    qal_temp_mem_release(block);
  }
  qal_temp_mem_free_all();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(temp_mem_reuse_behind)->Arg(1)->Arg(16)->Arg(256);

}  // namespace

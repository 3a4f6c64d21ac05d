// Rows of the comparison: one capability, ours and what a user would reach for instead, on the same
// work. The name of each benchmark is "capability|who"; table.py sorts them into rows again.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

// Some programs are built once more under other conditions, which their rows are called after.
#ifndef VARIANT
#define VARIANT ""
#endif
// What their peers are called after, where these are built anew as well.
#ifndef BESIDE
#define BESIDE ""
#endif

namespace qal::bench {

constexpr bool is_variant = sizeof VARIANT > 1;

using Work = void (*)(benchmark::State &);

struct Contender {
  const char *who;  // "qal" or "qal, variant" for ours, "floor: ..." for what all need
  Work work;
};

// Wall time is measured, since some capabilities sleep or use several threads.
inline benchmark::internal::Benchmark *add(const std::string &capability, const Contender &one) {
  return benchmark::RegisterBenchmark((capability + "|" + one.who).c_str(), one.work)
      ->UseRealTime();
}

// Each unit registers its rows when the program starts, from the initialiser of a constant.
inline void row(const std::string &capability, std::initializer_list<Contender> contenders) {
  for (const Contender &one : contenders) add(capability, one);
}

// The same work at growing sizes; `state.range(0)` is the size. Drawn as a curve. Each point takes
// less time than a row, because there are many and some are large.
inline void curve(const std::string &capability, const std::vector<std::int64_t> &sizes,
                  std::initializer_list<Contender> contenders) {
  for (const Contender &one : contenders) {
    for (const std::int64_t size : sizes)
      add(capability, one)->Arg(size)->MinTime(0.1)->Repetitions(3);
  }
}

}  // namespace qal::bench

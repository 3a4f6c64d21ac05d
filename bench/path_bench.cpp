// Path text in place: converting and compacting a clean and a dirty path, and normalising beside
// the C++ library's lexical normal form. Each row reports the bytes of path per second.
#include <benchmark/benchmark.h>
#include <qal/path.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

const std::string clean =
    "/usr/local/ZUL/kalmora102/site_preferences/transport/launch/settings.dat";
const std::string backslashes =
    "C:\\usr\\local\\ZUL\\kalmora102\\site_preferences\\transport\\launch\\settings.dat";
const std::string dotted =
    "/usr/./local//ZUL/vemo32/../kalmora102/./site_preferences/x/../transport/settings.dat";

void report_bytes(benchmark::State &state, const std::string &path) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(path.size()));
}

// The copy puts back what the call before changed; `copy_alone` says what it costs.
void copy_alone(benchmark::State &state, const std::string &path) {
  std::array<char, 1024> buffer{};
  for (auto _ : state) {
    std::memcpy(buffer.data(), path.c_str(), path.size() + 1);
    benchmark::DoNotOptimize(buffer);
  }
  report_bytes(state, path);
}

void convert(benchmark::State &state, const std::string &path, std::uint32_t flags) {
  std::array<char, 1024> buffer{};
  for (auto _ : state) {
    std::memcpy(buffer.data(), path.c_str(), path.size() + 1);
    qal_convert_pathname(buffer.data(), flags);
    benchmark::DoNotOptimize(buffer);
  }
  report_bytes(state, path);
}

void normalise(benchmark::State &state, const std::string &path) {
  std::array<char, 1024> out{};
  for (auto _ : state) {
    out[0] = '\0';
    qal_get_norm_path(path.c_str(), out.data(), static_cast<int>(out.size()));
    benchmark::DoNotOptimize(out);
  }
  report_bytes(state, path);
}

void normalise_with_filesystem(benchmark::State &state, const std::string &path) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::filesystem::path{path}.lexically_normal());
  }
  report_bytes(state, path);
}

BENCHMARK_CAPTURE(copy_alone, clean, clean);
BENCHMARK_CAPTURE(convert, clean, clean, 0);
BENCHMARK_CAPTURE(convert, backslashes, backslashes, 0);
BENCHMARK_CAPTURE(convert, fix_illegal, clean, QAL_PATH_FIX_ILLEGAL);
BENCHMARK_CAPTURE(convert, compact_clean, clean, QAL_PATH_COMPACT);
BENCHMARK_CAPTURE(convert, compact_dotted, dotted, QAL_PATH_COMPACT);
BENCHMARK_CAPTURE(normalise, clean, clean);
BENCHMARK_CAPTURE(normalise, dotted, dotted);
BENCHMARK_CAPTURE(normalise_with_filesystem, clean, clean);
BENCHMARK_CAPTURE(normalise_with_filesystem, dotted, dotted);

}  // namespace

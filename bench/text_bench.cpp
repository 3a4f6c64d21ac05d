// Replacement, search without case and bounded copy, each beside what a user would write instead.
#include <benchmark/benchmark.h>
#include <qal/text.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t text_size = std::size_t{64} << 10U;

// One match in each eight bytes.
std::string text_with_matches() {
  std::string text;
  while (text.size() < text_size) text += "name=%s;";
  return text;
}

void report_bytes(benchmark::State &state, std::size_t size) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void replace_in_place(benchmark::State &state, const char *replacement) {
  const std::string text = text_with_matches();
  std::vector<char> buffer(2 * text.size() + 1);
  for (auto _ : state) {
    std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
    benchmark::DoNotOptimize(qal_strrepl(buffer.data(), "%s", replacement, 0));
  }
  report_bytes(state, text.size());
}

void replace_in_std_string(benchmark::State &state, const char *replacement) {
  const std::string text = text_with_matches();
  const std::string find = "%s";
  const std::string fresh = replacement;
  for (auto _ : state) {
    std::string copy = text;
    for (auto at = copy.find(find); at != std::string::npos; at = copy.find(find, at)) {
      copy.replace(at, find.size(), fresh);
      at += fresh.size();
    }
    benchmark::DoNotOptimize(copy.data());
  }
  report_bytes(state, text.size());
}

BENCHMARK_CAPTURE(replace_in_place, shrink, "x");
BENCHMARK_CAPTURE(replace_in_std_string, shrink, "x");
BENCHMARK_CAPTURE(replace_in_place, equal, "xy");
BENCHMARK_CAPTURE(replace_in_std_string, equal, "xy");
BENCHMARK_CAPTURE(replace_in_place, grow, "a value");
BENCHMARK_CAPTURE(replace_in_std_string, grow, "a value");

using Search = char *(*)(const char *haystack, const char *needle);

char *platform_strcasestr(const char *haystack, const char *needle) {
  return const_cast<char *>(strcasestr(haystack, needle));
}

// The needle stands at the very end of the text; until then only its first letters turn up.
void search(benchmark::State &state, Search search_in, const char *filler, std::size_t size) {
  std::string text;
  while (text.size() < size) text += filler;
  text += "ProductVersion:";
  for (auto _ : state) benchmark::DoNotOptimize(search_in(text.c_str(), "productVERSION:"));
  report_bytes(state, text.size());
}

BENCHMARK_CAPTURE(search, short_text_qal, qal_strcasestr, "Build: 21G", 40);
BENCHMARK_CAPTURE(search, short_text_platform, platform_strcasestr, "Build: 21G", 40);
BENCHMARK_CAPTURE(search, prose_qal, qal_strcasestr, "the quick brown fox ", text_size);
BENCHMARK_CAPTURE(search, prose_platform, platform_strcasestr, "the quick brown fox ", text_size);
BENCHMARK_CAPTURE(search, near_misses_qal, qal_strcasestr, "Products ", text_size);
BENCHMARK_CAPTURE(search, near_misses_platform, platform_strcasestr, "Products ", text_size);

using Copy = char *(*)(char *dst, const char *src, std::size_t size);

char *bounded_copy(char *dst, const char *src, std::size_t size) {
  return qal_strncpy(dst, src, static_cast<int>(size));
}

char *platform_copy(char *dst, const char *src, std::size_t size) {
  std::strncpy(dst, src, size - 1);
  dst[size - 1] = '\0';
  return dst;
}

// The argument is the length of the text; the buffer is that of a path.
void copy_into_path_buffer(benchmark::State &state, Copy copy) {
  const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
  char buffer[1024];
  for (auto _ : state) {
    const char *source = text.c_str();
    benchmark::DoNotOptimize(source);
    benchmark::DoNotOptimize(copy(buffer, source, sizeof buffer));
    benchmark::ClobberMemory();
  }
  report_bytes(state, sizeof buffer);
}

BENCHMARK_CAPTURE(copy_into_path_buffer, qal, bounded_copy)->Arg(0)->Arg(40)->Arg(1023)->Arg(2000);
BENCHMARK_CAPTURE(copy_into_path_buffer, platform, platform_copy)
    ->Arg(0)
    ->Arg(40)
    ->Arg(1023)
    ->Arg(2000);

}  // namespace

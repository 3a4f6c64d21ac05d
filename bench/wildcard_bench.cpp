// Both matchers beside the C library's fnmatch. The first argument of the growth cases is the
// length of the name.
#include <benchmark/benchmark.h>
#include <fnmatch.h>
#include <qal/wildcard.h>

#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;
using Matcher = int (*)(const char *pattern, const char *name);

const unsigned char *bytes(const char *text) {
  return reinterpret_cast<const unsigned char *>(text);
}

int small(const char *pattern, const char *name) {
  return zul_fnmatch(bytes(pattern), bytes(name));
}

int full(const char *pattern, const char *name) { return qal_fnmatch(bytes(pattern), name, 0); }

int full_with_path_rules(const char *pattern, const char *name) {
  return qal_fnmatch(bytes(pattern), name, QAL_FNM_PATHNAME | QAL_FNM_PERIOD);
}

int platform(const char *pattern, const char *name) { return fnmatch(pattern, name, 0); }

int platform_with_path_rules(const char *pattern, const char *name) {
  return fnmatch(pattern, name, FNM_PATHNAME | FNM_PERIOD);
}

// What a temporary directory holds: one name in four is a record.
Names directory_names() {
  Names names;
  for (int i = 0; i < 250; ++i) {
    const std::string number = std::to_string(i * 37);
    names.push_back("halix_server" + number + ".dat");
    names.push_back("halix_client" + number + ".dat");
    names.push_back("systemd-private-" + number + "-service");
    names.push_back("tmp." + number);
  }
  return names;
}

void count_matches(benchmark::State &state, Matcher matcher, const char *pattern,
                   const Names &names) {
  for (auto _ : state) {
    int matches = 0;
    for (const auto &name : names) matches += matcher(pattern, name.c_str()) == 0;
    benchmark::DoNotOptimize(matches);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(names.size()));
}

void records_in_a_directory(benchmark::State &state, Matcher matcher) {
  count_matches(state, matcher, "halix_server*.dat", directory_names());
}
BENCHMARK_CAPTURE(records_in_a_directory, zul_fnmatch, small);
BENCHMARK_CAPTURE(records_in_a_directory, qal_fnmatch, full);
BENCHMARK_CAPTURE(records_in_a_directory, fnmatch, platform);

void records_only(benchmark::State &state, Matcher matcher) {
  Names names;
  for (int i = 0; i < 1000; ++i) names.push_back("halix_server" + std::to_string(i) + ".dat");
  count_matches(state, matcher, "halix_server*.dat", names);
}
BENCHMARK_CAPTURE(records_only, zul_fnmatch, small);
BENCHMARK_CAPTURE(records_only, qal_fnmatch, full);
BENCHMARK_CAPTURE(records_only, fnmatch, platform);

void sets(benchmark::State &state, Matcher matcher) {
  count_matches(state, matcher, "[a-z]*[0-9][!a-c].[dt]*", directory_names());
}
BENCHMARK_CAPTURE(sets, zul_fnmatch, small);
BENCHMARK_CAPTURE(sets, qal_fnmatch, full);
BENCHMARK_CAPTURE(sets, fnmatch, platform);

void paths(benchmark::State &state, Matcher matcher) {
  Names names;
  for (const auto &name : directory_names()) names.push_back("var/lib/records/" + name);
  count_matches(state, matcher, "var/*/records/*.dat", names);
}
BENCHMARK_CAPTURE(paths, qal_fnmatch, full_with_path_rules);
BENCHMARK_CAPTURE(paths, fnmatch, platform_with_path_rules);

void many_stars(benchmark::State &state, Matcher matcher) {
  const std::string name(static_cast<std::size_t>(state.range(0)), 'a');
  for (auto _ : state) benchmark::DoNotOptimize(matcher("a*a*a*a*b", name.c_str()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK_CAPTURE(many_stars, zul_fnmatch, small)->Range(16, 1023)->Complexity();
BENCHMARK_CAPTURE(many_stars, qal_fnmatch, full)->Range(16, 1023)->Complexity();
BENCHMARK_CAPTURE(many_stars, fnmatch, platform)->Range(16, 1023)->Complexity();

// The heaviest pattern for a matcher that revisits its last star: all but the end fits everywhere.
void worst_case(benchmark::State &state, Matcher matcher) {
  const auto length = static_cast<std::size_t>(state.range(0));
  const std::string name(length, 'a');
  const std::string pattern = "*" + std::string(length / 2, 'a') + "b";
  for (auto _ : state) benchmark::DoNotOptimize(matcher(pattern.c_str(), name.c_str()));
  state.SetComplexityN(state.range(0));
}
BENCHMARK_CAPTURE(worst_case, zul_fnmatch, small)->Range(16, 1023)->Complexity();
BENCHMARK_CAPTURE(worst_case, qal_fnmatch, full)->Range(16, 1023)->Complexity();

}  // namespace

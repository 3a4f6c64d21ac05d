// The whole tool with nobody to notify, beside what a user would start to look for records.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

// An empty directory that serves as home and as temporary directory.
std::string empty_directory() {
  std::string pattern = std::filesystem::current_path() / "tool-bench-XXXXXX";
  return mkdtemp(pattern.data()) ? pattern : std::string();
}

void run(benchmark::State &state, const char *const *arguments, const char *const *environment) {
  for (auto _ : state) {
    pid_t child = 0;
    int status = 0;
    if (posix_spawnp(&child, arguments[0], nullptr, nullptr, const_cast<char **>(arguments),
                     const_cast<char **>(environment)) != 0 ||
        waitpid(child, &status, 0) != child || status != 0) {
      state.SkipWithError("the program did not run");
    }
  }
}

void sweep_of_nothing(benchmark::State &state) {
  const std::string directory = empty_directory();
  const std::string home = "ZUL_USER_HOMEDIR=" + directory;
  const std::string temporary = "TMPDIR=" + directory;
  const char *const arguments[] = {KALMORA_SWEEP_PATH, nullptr};
  const char *const environment[] = {home.c_str(), temporary.c_str(), nullptr};
  run(state, arguments, environment);
  std::filesystem::remove_all(directory);
}
BENCHMARK(sweep_of_nothing)->UseRealTime();

void find_of_nothing(benchmark::State &state) {
  const std::string directory = empty_directory();
  const char *const arguments[] = {"find",  directory.c_str(),   "-maxdepth", "1",
                                   "-name", "halix_server*.dat", nullptr};
  const char *const environment[] = {nullptr};
  run(state, arguments, environment);
  std::filesystem::remove_all(directory);
}
BENCHMARK(find_of_nothing)->UseRealTime();

void program_that_does_nothing(benchmark::State &state) {
  const char *const arguments[] = {"true", nullptr};
  const char *const environment[] = {nullptr};
  run(state, arguments, environment);
}
BENCHMARK(program_that_does_nothing)->UseRealTime();

}  // namespace

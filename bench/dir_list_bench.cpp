// Finding the records among a directory's files, beside std::filesystem with the C library's
// fnmatch and beside glob. The argument is the number of files, one in four a record; every
// tenth entry is a directory.
#include <benchmark/benchmark.h>
#include <fnmatch.h>
#include <glob.h>
#include <qal/dir_list.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

namespace fs = std::filesystem;

// A directory below the current one, gone at the end.
class Records {
 public:
  explicit Records(long files) {
    std::string pattern = fs::current_path() / "dir_list_bench-XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
    path_ = pattern;
    for (long i = 0; i < files; ++i) {
      const auto number = std::to_string(i);
      std::ofstream(path_ / ((i % 4 == 0 ? "halix_server" : "tmp.") + number + ".dat"));
      if (i % 10 == 0) fs::create_directory(path_ / ("directory" + number));
    }
  }
  ~Records() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  Records(const Records &) = delete;
  Records &operator=(const Records &) = delete;

  const fs::path &path() const { return path_; }
  std::string pattern() const { return path_ / "halix_server*.dat"; }

 private:
  fs::path path_;
};

void count_entries(benchmark::State &state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetComplexityN(state.range(0));
}

void list_records_qal(benchmark::State &state) {
  const Records records(state.range(0));
  const auto pattern = records.pattern();
  for (auto _ : state) {
    char *path;
    char *directories;
    char *files;
    int directory_count = 0;
    int file_count = 0;
    qal_dir_list(pattern.c_str(), &path, &directory_count, &directories, &file_count, &files, 0);
    benchmark::DoNotOptimize(file_count);
    std::free(path);
    std::free(directories);
    std::free(files);
  }
  count_entries(state);
}

void list_records_filesystem(benchmark::State &state) {
  const Records records(state.range(0));
  for (auto _ : state) {
    std::string directories;
    std::string files;
    for (const auto &entry : fs::directory_iterator(records.path())) {
      const std::string name = entry.path().filename();
      if (entry.is_directory()) {
        directories += name + "\n";
      } else if (fnmatch("halix_server*.dat", name.c_str(), 0) == 0) {
        files += name + "\n";
      }
    }
    benchmark::DoNotOptimize(directories);
    benchmark::DoNotOptimize(files);
  }
  count_entries(state);
}

// Finds the records only, not the directories.
void list_records_glob(benchmark::State &state) {
  const Records records(state.range(0));
  const auto pattern = records.pattern();
  for (auto _ : state) {
    glob_t found;
    glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found);
    benchmark::DoNotOptimize(found.gl_pathc);
    globfree(&found);
  }
  count_entries(state);
}

BENCHMARK(list_records_qal)->RangeMultiplier(10)->Range(10, 10000)->Complexity();
BENCHMARK(list_records_filesystem)->RangeMultiplier(10)->Range(10, 10000)->Complexity();
BENCHMARK(list_records_glob)->RangeMultiplier(10)->Range(10, 10000)->Complexity();

}  // namespace

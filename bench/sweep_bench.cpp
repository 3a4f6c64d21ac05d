// A sweep over directories of different make, none of which leads to a request. The argument is the
// number of files. The peer row opens and closes the same records and does nothing else.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <kalmora/sweep.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;

namespace {

constexpr char record_of_a_vanished_process[] =
    "http://127.0.0.1:8080/stop halix secret 2147483647\n";

// A directory of its own below the working directory, with `count` files.
class Directory {
 public:
  Directory(const std::string &prefix, std::int64_t count, const char *content) {
    std::string pattern = fs::current_path() / "sweep-bench-XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    path_ = pattern;
    for (std::int64_t i = 0; i < count; ++i) {
      std::ofstream{path_ + "/" + prefix + std::to_string(i) + ".dat"} << content;
    }
  }
  ~Directory() { fs::remove_all(path_); }
  Directory(const Directory &) = delete;
  Directory &operator=(const Directory &) = delete;

  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

void sweep_repeatedly(benchmark::State &state, const Directory &directory) {
  for (auto _ : state) process_directory(directory.path().c_str());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void sweep_of_other_files(benchmark::State &state) {
  sweep_repeatedly(state, Directory{"other", state.range(0), ""});
}

// Kept, so that each round finds them all.
void sweep_of_vanished_owners(benchmark::State &state) {
  sweep_repeatedly(state, Directory{"halix_server", state.range(0), record_of_a_vanished_process});
}

void open_and_close_every_record(benchmark::State &state) {
  const Directory directory{"halix_server", state.range(0), record_of_a_vanished_process};
  for (auto _ : state) {
    for (const auto &entry : fs::directory_iterator(directory.path())) {
      close(open(entry.path().c_str(), O_RDONLY | O_CLOEXEC));
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void search_for_records(benchmark::State &state) {
  const Directory directory{"halix_server", state.range(0), ""};
  for (auto _ : state) {
    benchmark::DoNotOptimize(find_files(directory.path().c_str(), "halix_server*.dat"));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark *row) {
  row->Arg(100)->Arg(1'000)->Arg(10'000)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(sweep_of_other_files)->Apply(sizes);
BENCHMARK(sweep_of_vanished_owners)->Apply(sizes);
BENCHMARK(open_and_close_every_record)->Apply(sizes);
BENCHMARK(search_for_records)->Apply(sizes);

}  // namespace

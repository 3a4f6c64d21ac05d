// Copying, removing a tree and reading, each beside what the C++ or C library offers for it. The
// files lie below the working directory, so the file system is the one the bench is started in.
#include <benchmark/benchmark.h>
#include <qal/files.h>
#include <qal/status.h>
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t copied_bytes = std::size_t{64} << 20;
constexpr int tree_directories = 20;
constexpr int files_per_directory = 50;

// Removed with all it holds at the end.
class WorkDirectory {
 public:
  WorkDirectory() {
    std::string pattern = fs::current_path() / "qal-bench-XXXXXX";
    if (mkdtemp(pattern.data())) path_ = pattern;
  }
  ~WorkDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  WorkDirectory(const WorkDirectory &) = delete;
  WorkDirectory &operator=(const WorkDirectory &) = delete;

  std::string operator/(const char *name) const { return path_ / name; }

  std::string file_of(std::size_t size_bytes) const {
    std::ofstream(path_ / "from", std::ios::binary) << std::string(size_bytes, 'x');
    return path_ / "from";
  }

  std::string tree() const {
    for (int directory = 0; directory < tree_directories; ++directory) {
      const auto inside = path_ / "tree" / std::to_string(directory);
      fs::create_directories(inside);
      for (int file = 0; file < files_per_directory; ++file) {
        std::ofstream{inside / std::to_string(file)};
      }
    }
    return path_ / "tree";
  }

 private:
  fs::path path_;
};

void report_copied_bytes(benchmark::State &state) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(copied_bytes));
}

void copy_by_us(benchmark::State &state) {
  const WorkDirectory work;
  const auto from = work.file_of(copied_bytes);
  const auto to = work / "to";
  for ([[maybe_unused]] auto _ : state) {
    if (qal_file_copy(from.c_str(), to.c_str(), 0) != QAL_STATUS_OK) state.SkipWithError("copy");
  }
  report_copied_bytes(state);
}
BENCHMARK(copy_by_us)->Name("copy 64 MiB/qal_file_copy")->Unit(benchmark::kMillisecond);

void copy_by_peer(benchmark::State &state) {
  const WorkDirectory work;
  const auto from = work.file_of(copied_bytes);
  const auto to = work / "to";
  for ([[maybe_unused]] auto _ : state)
    fs::copy_file(from, to, fs::copy_options::overwrite_existing);
  report_copied_bytes(state);
}
BENCHMARK(copy_by_peer)->Name("copy 64 MiB/filesystem::copy_file")->Unit(benchmark::kMillisecond);

template <typename Remove>
void remove_tree(benchmark::State &state, Remove remove) {
  const WorkDirectory work;
  for (auto _ : state) {
    state.PauseTiming();
    const auto tree = work.tree();
    state.ResumeTiming();
    if (!remove(tree)) state.SkipWithError("remove");
  }
  state.SetItemsProcessed(state.iterations() * tree_directories * (files_per_directory + 1));
}

void remove_by_us(benchmark::State &state) {
  remove_tree(state, [](const std::string &tree) {
    return qal_file_rmdir(tree.c_str(), 1) == QAL_STATUS_OK;
  });
}
BENCHMARK(remove_by_us)->Name("remove 1000 files/qal_file_rmdir");

void remove_by_peer(benchmark::State &state) {
  remove_tree(state, [](const std::string &tree) { return fs::remove_all(tree) > 0; });
}
BENCHMARK(remove_by_peer)->Name("remove 1000 files/filesystem::remove_all");

template <typename Read>
void read_file(benchmark::State &state, Read read) {
  const WorkDirectory work;
  std::FILE *file = std::fopen(work.file_of(copied_bytes).c_str(), "rbe");
  std::string buffer(copied_bytes, '\0');
  for (auto _ : state) {
    std::rewind(file);
    benchmark::DoNotOptimize(read(buffer.data(), copied_bytes, file));
  }
  std::fclose(file);
  report_copied_bytes(state);
}

void read_by_us(benchmark::State &state) {
  read_file(state, [](char *to, std::size_t size, std::FILE *file) {
    return qal_fread(to, 1, size, file);
  });
}
BENCHMARK(read_by_us)->Name("read 64 MiB/qal_fread")->Unit(benchmark::kMillisecond);

void read_by_peer(benchmark::State &state) {
  read_file(state, [](char *to, std::size_t size, std::FILE *file) {
    return std::fread(to, 1, size, file);
  });
}
BENCHMARK(read_by_peer)->Name("read 64 MiB/fread")->Unit(benchmark::kMillisecond);

}  // namespace

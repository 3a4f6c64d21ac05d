// Copying a large file, beside what the C++ library offers for it.
#include <fcntl.h>
#include <qal/files.h>
#include <qal/status.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "rows.hpp"
#include "scratch.hpp"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t copied_bytes = std::size_t{64} << 20U;

struct Files {
  Files() { scratch.file("from", std::string(copied_bytes, 'x')); }

  const qal::bench::Scratch scratch;
  const std::string from = scratch / "from";
  const std::string to = scratch / "to";
};

const Files &files() {
  static const Files made;
  return made;
}

void copy_once(benchmark::State &state, const Files &copy) {
  if (qal_file_copy(copy.from.c_str(), copy.to.c_str(), 0) != QAL_STATUS_OK) {
    state.SkipWithError("the copy failed");
  }
}

void copy_by_us(benchmark::State &state) {
  for (auto _ : state) copy_once(state, files());
}

void copy_by_filesystem(benchmark::State &state) {
  const Files &copy = files();
  for (auto _ : state) {
    fs::copy_file(copy.from, copy.to, fs::copy_options::overwrite_existing);
  }
}

void copy_by_kernel(benchmark::State &state) {
  const Files &copy = files();
  for (auto _ : state) {
    const int from = open(copy.from.c_str(), O_RDONLY | O_CLOEXEC);
    const int to = open(copy.to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    while (copy_file_range(from, nullptr, to, nullptr, copied_bytes, 0) > 0) continue;
    close(from);
    close(to);
  }
}

// What one copies most of the time: the destination is new.
template <typename Copy>
void to_new_file(benchmark::State &state, Copy copy) {
  const Files &made = files();
  for (auto _ : state) {
    state.PauseTiming();
    fs::remove(made.to);
    state.ResumeTiming();
    copy(made);
  }
}

void copy_to_new_file_by_us(benchmark::State &state) {
  to_new_file(state, [&](const Files &copy) { copy_once(state, copy); });
}

void copy_to_new_file_by_filesystem(benchmark::State &state) {
  to_new_file(state, [](const Files &copy) { fs::copy_file(copy.from, copy.to); });
}

const bool registered = [] {
  qal::bench::row("file copy 64 MiB", {{"qal", copy_by_us},
                                       {"std::filesystem", copy_by_filesystem},
                                       {"floor: copy_file_range", copy_by_kernel}});
  qal::bench::row("file copy 64 MiB, new", {{"qal", copy_to_new_file_by_us},
                                            {"std::filesystem", copy_to_new_file_by_filesystem}});
  return true;
}();

}  // namespace

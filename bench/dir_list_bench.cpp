// Finding the records among a directory's files, beside glob, std::filesystem and a loop over the
// directory that looks at nothing.
#include <dirent.h>
#include <fnmatch.h>
#include <glob.h>
#include <qal/dir_list.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "rows.hpp"
#include "scratch.hpp"

namespace {

namespace fs = std::filesystem;
using qal::bench::Scratch;

constexpr char records[] = "halix_server*.dat";

// One file in a hundred is a record.
const Scratch &directory_of(std::int64_t files) {
  static std::map<std::int64_t, Scratch> made;
  const auto [place, is_new] = made.try_emplace(files);
  for (std::int64_t i = 0; is_new && i < files; ++i) {
    place->second.file((i % 100 == 0 ? "halix_server" : "tmp.") + std::to_string(i) + ".dat");
  }
  return place->second;
}

void list_by_us(const Scratch &directory) {
  const std::string pattern = directory / records;
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

// Finds the records only, not the directories.
void list_by_glob(const Scratch &directory) {
  glob_t found;
  glob((directory / records).c_str(), GLOB_NOSORT, nullptr, &found);
  benchmark::DoNotOptimize(found.gl_pathc);
  globfree(&found);
}

void list_by_filesystem(const Scratch &directory) {
  std::string directories;
  std::string files;
  for (const auto &entry : fs::directory_iterator(directory.path())) {
    const std::string name = entry.path().filename();
    if (entry.is_directory()) {
      directories += name + "\n";
    } else if (fnmatch(records, name.c_str(), 0) == 0) {
      files += name + "\n";
    }
  }
  benchmark::DoNotOptimize(directories.data());
  benchmark::DoNotOptimize(files.data());
}

void read_entries(const Scratch &directory) {
  DIR *const stream = opendir(directory.path().c_str());
  while (const dirent *entry = readdir(stream)) benchmark::DoNotOptimize(entry->d_name[0]);
  closedir(stream);
}

template <void (*list)(const Scratch &)>
void among_many(benchmark::State &state) {
  const Scratch &directory = directory_of(100'000);
  for (auto _ : state) list(directory);
}

template <void (*list)(const Scratch &)>
void growing(benchmark::State &state) {
  const Scratch &directory = directory_of(state.range(0));
  for (auto _ : state) list(directory);
}

const bool registered = [] {
  qal::bench::row("listing 1e5 entries, 1e3 matching",
                  {{"qal", among_many<list_by_us>},
                   {"glob", among_many<list_by_glob>},
                   {"std::filesystem", among_many<list_by_filesystem>},
                   {"floor: readdir", among_many<read_entries>}});
  qal::bench::curve("listing, by the number of entries", {100, 1'000, 10'000, 100'000, 1'000'000},
                    {{"qal", growing<list_by_us>},
                     {"glob", growing<list_by_glob>},
                     {"std::filesystem", growing<list_by_filesystem>},
                     {"readdir", growing<read_entries>}});
  return true;
}();

}  // namespace

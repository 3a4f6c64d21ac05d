// Where a fuzzed sweep takes place: directories to sweep and what lies around them.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "require.hpp"

namespace qal::fuzz {

constexpr const char *precious = "u n p 1 and more that is precious";

inline void write_file(const std::string &path, const std::string &content) {
  const int file = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
  const ssize_t written = write(file, content.data(), content.size());
  require(written == static_cast<ssize_t>(content.size()), "a file can be written");
  close(file);
}

// In the directory's own order.
inline std::vector<std::string> listed_names(const std::string &directory) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename());
  }
  return names;
}

inline std::vector<std::string> sorted_names(const std::string &directory) {
  auto names = listed_names(directory);
  std::sort(names.begin(), names.end());
  return names;
}

// One tree for all runs of a process, in memory where the system has a place for it.
class Places {
 public:
  Places() : root_(make_root()) {
    for (const auto &path : {swept(), deep(), outside(), aside()}) {
      std::filesystem::create_directories(path);
    }
    write_file(victim(), precious);
    write_file(second_victim(), precious);
  }
  ~Places() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  Places(const Places &) = delete;
  Places &operator=(const Places &) = delete;

  const std::string &root() const { return root_; }
  std::string swept() const { return root_ + "/swept"; }
  std::string outside() const { return root_ + "/outside"; }
  std::string victim() const { return outside() + "/victim"; }
  std::string aside() const { return root_ + "/aside"; }  // for what takes a record's place

  // Records with long names do not fit below this one.
  std::string deep() const {
    std::string path = root_ + "/deep";
    for (int i = 0; i < 4; ++i) path += "/" + std::string(200, 'd');
    return path;
  }

  bool are_whole() const {
    return sorted_names(root_) == std::vector<std::string>{"aside", "deep", "outside", "swept"} &&
           sorted_names(outside()) == std::vector<std::string>{"halix_server1.dat", "victim"} &&
           content_of(victim()) == precious && content_of(second_victim()) == precious;
  }

 private:
  static std::string make_root() {
    std::string in_memory = "/dev/shm/sweep-fuzz-XXXXXX";
    if (mkdtemp(in_memory.data())) return in_memory;
    std::string here = std::filesystem::current_path() / "sweep-fuzz-XXXXXX";
    require(mkdtemp(here.data()) != nullptr, "a scratch directory can be had");
    return here;
  }

  static std::string content_of(const std::string &path) {
    char bytes[64] = {};
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t got = read(file, bytes, sizeof bytes - 1);
    close(file);
    return got < 0 ? "" : bytes;
  }

  std::string second_victim() const { return outside() + "/halix_server1.dat"; }

  const std::string root_;
};

inline const Places &places() {
  static const Places all;
  return all;
}

}  // namespace qal::fuzz

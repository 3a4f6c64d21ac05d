// A directory below the working directory, so that the file system is the one in which the
// benchmark is started; gone with all it holds at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qal::bench {

class Scratch {
 public:
  Scratch() {
    std::string pattern = std::filesystem::current_path() / "bench-XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
    path_ = pattern;
  }
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Scratch(const Scratch &) = delete;
  Scratch &operator=(const Scratch &) = delete;

  const std::string &path() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

  void file(std::string_view name, std::string_view content = "") const {
    std::ofstream(*this / name, std::ios::binary) << content;
  }

 private:
  std::string path_;
};

}  // namespace qal::bench

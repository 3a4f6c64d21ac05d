// Private directories for tests: never the user's home, never the real temporary directory.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace qal::test {

// A fresh directory that every user may enter, removed with all it holds at the end.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir &) = delete;
  ScratchDir &operator=(const ScratchDir &) = delete;

  const std::string &path() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Each creates the entry below the directory and returns its full path.
  std::string file(std::string_view name, std::string_view content = "") const;
  std::string directory(std::string_view name) const;

 private:
  std::string path_;
};

// A case with such a directory of its own.
class InScratch : public testing::Test {
 protected:
  const ScratchDir scratch;
};

bool exists(const std::string &path);  // without following a link at the end
std::string read_file(const std::string &path);
void write_file(const std::string &path, std::string_view content);
std::vector<std::string> names_in(const std::string &directory);  // sorted, without "." and ".."

}  // namespace qal::test

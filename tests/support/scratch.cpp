#include "support/scratch.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace qal::test {
namespace {

// Tests give up root for some cases, so other users must be able to walk to the directory; a build
// below somebody's closed home or under a closed mask cannot serve then.
bool reachable_by_everybody(const fs::path &path) {
  for (fs::path at = path; !at.empty(); at = at.parent_path()) {
    struct stat info;
    if (stat(at.c_str(), &info) != 0 || !(info.st_mode & S_IXOTH)) return false;
    if (at == at.root_path()) break;
  }
  return true;
}

// The tool itself is started from a scratch directory.
bool runs_programs(const fs::path &directory) {
  std::string probe = directory / "qal-test-XXXXXX";
  const int file = mkstemp(probe.data());
  if (file < 0) return false;
  const bool runs = fchmod(file, 0700) == 0 && access(probe.c_str(), X_OK) == 0;
  close(file);
  unlink(probe.c_str());
  return runs;
}

fs::path scratch_base() {
  const fs::path build{QAL_TEST_SCRATCH};
  std::error_code error;
  fs::create_directories(build, error);
  const bool is_ours = access(build.c_str(), W_OK | X_OK) == 0;  // not the build of another user
  if (is_ours && (reachable_by_everybody(build) || geteuid() != 0)) return build;
  const fs::path memory{"/dev/shm"};
  return runs_programs(memory) ? memory : fs::path("/var/tmp");
}

// Even its owner cannot empty a directory that a test has closed. Each directory is opened before
// it is entered.
void open_for_owner(const fs::path &root) {
  std::error_code error;
  const auto open = [&error](const fs::path &directory) {
    fs::permissions(directory, fs::perms::owner_all, fs::perm_options::add, error);
  };
  open(root);
  for (fs::recursive_directory_iterator at{root, error}, end; at != end; at.increment(error)) {
    if (fs::is_directory(at->symlink_status(error))) open(at->path());
  }
}

}  // namespace

ScratchDir::ScratchDir() {
  std::string pattern = scratch_base() / "qal-test-XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
  fs::permissions(pattern, fs::perms(0755));
  path_ = fs::canonical(pattern);
}

ScratchDir::~ScratchDir() {
  std::error_code error;
  fs::remove_all(path_, error);
  if (!error) return;
  open_for_owner(path_);
  fs::remove_all(path_, error);
}

std::string ScratchDir::file(std::string_view name, std::string_view content) const {
  const auto path = *this / name;
  write_file(path, content);
  return path;
}

std::string ScratchDir::directory(std::string_view name) const {
  const auto path = *this / name;
  fs::create_directories(path);
  return path;
}

bool exists(const std::string &path) {
  return fs::symlink_status(path).type() != fs::file_type::not_found;
}

std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(in), {}};
}

void write_file(const std::string &path, std::string_view content) {
  std::ofstream out(path, std::ios::binary);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  ASSERT_TRUE(out) << "cannot write " << path;
}

std::vector<std::string> names_in(const std::string &directory) {
  std::vector<std::string> names;
  for (const auto &entry : fs::directory_iterator(directory))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace qal::test

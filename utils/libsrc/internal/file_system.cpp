// Joins paths, opens files and reads directories.
#include "internal/file_system.hpp"

#include <fcntl.h>
#include <qal/path.h>

#include <cerrno>

#include "internal/bounded_text.hpp"
#include "internal/retry.hpp"

namespace qal::internal {

namespace {

constexpr int any_kind = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

}  // namespace

bool join_path(std::string_view directory, std::string_view name, char (&path)[path_room]) {
  if (!BoundedText{path}.append({directory, "/", name})) return false;
  qal_convert_pathname(path, QAL_PATH_TO_SLASH);
  return true;
}

Descriptor open_any_kind(const char *path) {
  return Descriptor{retry_interrupted([path] { return open(path, any_kind); })};
}

Descriptor open_any_kind_but_link(const char *path) {
  return Descriptor{retry_interrupted([path] { return open(path, any_kind | O_NOFOLLOW); })};
}

bool is_same_file(const struct stat &one, const struct stat &other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool still_means(const char *path, const struct stat &opened) {
  struct stat now;
  return stat(path, &now) == 0 && is_same_file(now, opened);
}

bool can_be_opened(const char *path) { return static_cast<bool>(open_any_kind(path)); }

Directory open_directory(const char *path) {
  return Directory{retry_interrupted([path] { return opendir(path); })};
}

const dirent *next_entry(DIR *directory) {
  errno = 0;
  return readdir(directory);
}

}  // namespace qal::internal

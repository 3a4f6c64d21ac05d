// The conversion of a path from one system's separators to the other's.
#include <qal/path.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace {

constexpr std::uint32_t mode_mask = 0xffff00ffU;  // bits 8 to 15 hold the further settings
constexpr const char *illegal_in_names = ":*?\"<>|";

// Most paths hold nothing to replace, which one search shows. In the others the places to change
// are so close together that a loop is faster than a search for each.
void replace_all(char *path, char from, char to) {
  char *const hit = std::strchr(path, from);
  if (!hit) return;
  for (char &c : std::span{hit, std::strlen(hit)}) c = c == from ? to : c;
}

void replace_illegal_characters(char *path) {
  for (char *hit = path; (hit = std::strpbrk(hit, illegal_in_names)) != nullptr; ++hit) {
    const bool ends_drive = hit == path + 1 && *hit == ':';
    if (!ends_drive) *hit = '_';
  }
}

// Rewrites a path over itself: reading never falls behind writing. The path has been converted, so
// it holds only one kind of separator.
class Compaction {
 public:
  Compaction(char *path, char separator) : path_(path), separator_(separator) {}

  void run() {
    while (path_[read_] != '\0') {
      if (path_[read_] != separator_) {
        copy_name();
      } else if (at_dots(1)) {
        read_ += 2;
      } else if (at_dots(2) && written_separators_ > 0) {
        drop_written_piece();
      } else {
        copy_separator();
      }
    }
    path_[write_] = '\0';
  }

 private:
  // Whether the piece behind the separator at the reading position is exactly `count` dots and ends
  // in a separator.
  bool at_dots(int count) const {
    const char *piece = path_ + read_ + 1;
    for (; count > 0 && *piece == '.'; --count) ++piece;
    return count == 0 && *piece == separator_;
  }

  void copy_name() {
    char c = path_[read_];
    do {
      path_[write_++] = c;
      c = path_[++read_];
    } while (c != separator_ && c != '\0');
  }

  // Removes the last written separator and what follows it. The separators are counted because a
  // search for one that is not there would read a long first piece again for every "..".
  void drop_written_piece() {
    do {
      --write_;
    } while (path_[write_] != separator_);
    --written_separators_;
    read_ += 3;
  }

  void copy_separator() {
    const bool may_begin_network_name = read_ == 0;
    path_[write_++] = path_[read_++];
    ++written_separators_;
    // Deliberate: a separator that follows a leading one is not skipped but read like any other, so
    // "//server" keeps both, and a ".." behind the pair takes back only the second.
    if (may_begin_network_name) return;
    while (path_[read_] == separator_) ++read_;
  }

  char *path_;
  char separator_;
  std::size_t read_ = 0;
  std::size_t write_ = 0;
  std::size_t written_separators_ = 0;
};

}  // namespace

int qal_convert_pathname(char *path, std::uint32_t flags) {
  if (!path) return QAL_STATUS_OK;
  const bool to_backslash = (flags & mode_mask) == QAL_PATH_TO_BACKSLASH;
  const char separator = to_backslash ? '\\' : '/';
  replace_all(path, to_backslash ? '/' : '\\', separator);
  if (flags & QAL_PATH_FIX_ILLEGAL) replace_illegal_characters(path);
  if (flags & QAL_PATH_COMPACT) Compaction{path, separator}.run();
  return QAL_STATUS_OK;
}

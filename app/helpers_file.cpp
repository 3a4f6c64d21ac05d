// The file helpers: expanded names, temporary files, lines, directories, pieces of files.
#include <dirent.h>
#include <qal/files.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/helpers.hpp>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>

#include "internal/bounded_text.hpp"
#include "internal/file_system.hpp"
#include "internal/handles.hpp"
#include "internal/password.hpp"
#include "internal/retry.hpp"

namespace {

using qal::internal::BoundedText;
using qal::internal::Directory;
using qal::internal::File;
using qal::internal::FreeMemory;
using qal::internal::PasswordEntry;

constexpr std::size_t home_path_max = 1023;
constexpr int line_count_path_size = 499;

constexpr int mode_bits = 0xff;  // of the flags of remote_fileio

int put_expanded(std::string_view home, std::string_view rest, std::span<char> room) {
  if (room.empty()) return KALMORA_NAME_TOO_LONG;
  BoundedText path{room};
  if (!path.append({home, rest})) return KALMORA_NAME_TOO_LONG;
  std::replace(path.data(), path.data() + path.length(), '\\', '/');
  return static_cast<int>(path.length());
}

int expand_home(std::string_view name, std::span<char> room) {
  const std::size_t slash = std::min(name.find('/'), name.size());
  const PasswordEntry user{name.substr(1, slash - 1)};
  if (!user) return KALMORA_NAME_UNKNOWN;
  const std::string_view rest = name.substr(slash);
  if (user.home().size() + rest.size() > home_path_max) return KALMORA_NAME_TOO_LONG;
  return put_expanded(user.home(), rest, room);
}

const char *temporary_directory() {
  if (const char *const set = std::getenv("TMPDIR")) return set;
  for (const char *const candidate : {"/tmp", "/usr/tmp"}) {
    if (access(candidate, W_OK) == 0) return candidate;
  }
  return nullptr;
}

File open_file(const char *path, const char *mode) {
  return File{qal::internal::retry_interrupted([=] { return std::fopen(path, mode); })};
}

// Counts the runs of characters between line feeds, block by block. Deliberate: the count is 0 for
// a file that begins with a line feed, whatever follows.
std::int64_t count_lines(std::FILE *file) {
  std::int64_t count = 0;
  char before = '\n';
  char block[4096];
  while (const auto got = qal_fread(block, 1, sizeof block, file)) {
    for (const char c : std::span{block, static_cast<std::size_t>(got)}) {
      if (c == '\n' && count == 0) return 0;
      if (c != '\n' && before == '\n') ++count;
      before = c;
    }
  }
  return count;
}

struct FreeNameList {
  void operator()(void *list) const { our_freenamelist(list); }
};

using Compare = int (*)(const dirent **, const dirent **);
using Entries = std::unique_ptr<dirent *[], FreeNameList>;

dirent **zeroed_entries(std::size_t count) {
  return static_cast<dirent **>(std::calloc(count, sizeof(void *)));
}

dirent *copy_of(const dirent *entry) {
  constexpr std::size_t spare_bytes = 1049;  // more than what precedes the name in an entry
  const std::size_t length = std::strlen(entry->d_name);
  auto *const copy = static_cast<dirent *>(std::calloc(1, length + spare_bytes));
  if (!copy) return nullptr;
  copy->d_ino = entry->d_ino;
  copy->d_reclen = entry->d_reclen;
  std::memcpy(copy->d_name, entry->d_name, length);
  return copy;
}

// Merges two sorted runs, the first `middle` entries and the rest, by way of `scratch`. Whatever
// `compare` returns, no index leaves the runs.
void merge_runs(std::span<dirent *> entries, std::size_t middle, Compare compare,
                dirent **scratch) {
  std::copy_n(entries.begin(), middle, scratch);
  std::size_t left = 0;
  std::size_t right = middle;
  while (left < middle && right < entries.size()) {
    const bool right_first = compare(const_cast<const dirent **>(&scratch[left]),
                                     const_cast<const dirent **>(&entries[right])) > 0;
    dirent *const next = right_first ? entries[right] : scratch[left];
    entries[left + right - middle] = next;
    ++(right_first ? right : left);
  }
  std::copy(scratch + left, scratch + middle, entries.data() + left + right - middle);
}

// A stable merge sort of our own: comparisons such as numcompar are no consistent order over their
// whole range, and with these the C library's qsort may read and write outside the array.
bool sort_entries(std::span<dirent *> entries, Compare compare) {
  const std::unique_ptr<dirent *[], FreeMemory> scratch { zeroed_entries(entries.size()) };
  if (!scratch) return false;
  for (std::size_t run = 1; run < entries.size(); run *= 2) {
    for (std::size_t at = 0; at + run < entries.size(); at += 2 * run) {
      const std::size_t length = std::min(2 * run, entries.size() - at);
      merge_runs(entries.subspan(at, length), run, compare, scratch.get());
    }
  }
  return true;
}

// Copies of directory entries in an array that grows and always ends with null.
class EntryList {
 public:
  EntryList() : entries_(zeroed_entries(room_ + 1)) {}

  bool append(const dirent *entry) {
    if (count_ == room_ && !grow()) return false;
    entries_[count_] = copy_of(entry);
    if (!entries_[count_]) return false;
    ++count_;
    return true;
  }

  bool sort(Compare compare) {
    return count_ < 2 || !compare || sort_entries({entries_.get(), count_}, compare);
  }

  explicit operator bool() const { return entries_ != nullptr; }
  int count() const { return static_cast<int>(count_); }
  dirent **release() { return entries_.release(); }

 private:
  static constexpr std::size_t step = 256;

  bool grow() {
    dirent **const larger = zeroed_entries(room_ + step + 1);
    if (!larger) return false;
    std::copy_n(entries_.get(), count_, larger);
    std::free(entries_.release());
    entries_.reset(larger);
    room_ += step;
    return true;
  }

  std::size_t room_ = step;
  std::size_t count_ = 0;
  Entries entries_;
};

Directory open_readable(const char *path) {
  if (!path) return nullptr;
  Directory directory = qal::internal::open_directory(path);
  struct stat info;
  if (directory && fstat(dirfd(directory.get()), &info) != 0) directory.reset();
  return directory;
}

bool read_entries(DIR *directory, int (*keep)(const dirent *), EntryList &entries) {
  while (const dirent *entry = qal::internal::next_entry(directory)) {
    if (keep && keep(entry) == 0) continue;
    if (!entries.append(entry)) return false;
  }
  return errno == 0;
}

struct Piece {
  int origin;
  std::int64_t offset;
  std::int64_t count;
  void *buffer;

  bool is_sound() const {
    const bool known_origin = origin == SEEK_SET || origin == SEEK_CUR || origin == SEEK_END;
    return known_origin && count >= 0 && (buffer || count == 0);
  }
};

const char *open_mode(int mode, bool keep_file) {
  if (mode != KALMORA_FILE_WRITE) return "rbe";
  return keep_file ? "r+be" : "wbe";
}

bool transfer(int mode, const Piece &piece, std::FILE *file) {
  if (mode == KALMORA_FILE_SIZE) return fseeko(file, 0, SEEK_END) == 0;
  if (mode == KALMORA_FILE_WRITE) std::setvbuf(file, nullptr, _IONBF, 0);
  if (fseeko(file, static_cast<off_t>(piece.offset), piece.origin) != 0) return false;
  const auto wanted = static_cast<std::size_t>(piece.count);
  if (wanted == 0) return true;
  if (mode == KALMORA_FILE_READ) return qal_fread(piece.buffer, 1, wanted, file) == wanted;
  return qal::internal::write_uninterrupted(piece.buffer, wanted, file) == wanted;
}

// Returns the position after the transfer, or a number below 0. A file on a network may report only
// when it is closed that it could not be written.
std::int64_t transfer_and_close(int mode, const Piece &piece, File file) {
  const std::int64_t position = transfer(mode, piece, file.get()) ? ftello(file.get()) : -1;
  return std::fclose(file.release()) == 0 ? position : -1;
}

}  // namespace

int expfnam(const char *name, int length, char *out, int capacity) {
  std::span<char> room;
  if (out && capacity > 0) room = {out, static_cast<std::size_t>(capacity)};
  if (!room.empty()) room.front() = '\0';
  if (!name) return KALMORA_NAME_UNKNOWN;
  if (room.empty()) return KALMORA_NAME_TOO_LONG;
  if (!*name) return KALMORA_NAME_UNKNOWN;
  const std::string_view text{name, strnlen(name, static_cast<std::size_t>(std::max(length, 0)))};
  return text.starts_with('~') ? expand_home(text, room) : put_expanded({}, text, room);
}

int our_tempdir(char *out, int capacity) {
  const char *const directory = temporary_directory();
  if (!directory) return KALMORA_FAILED;
  const std::string_view name = directory;
  if (out && capacity > 0 && static_cast<std::size_t>(capacity) > name.size() + 2) {
    BoundedText{{out, static_cast<std::size_t>(capacity)}}.append({name, "/"});
  }
  return static_cast<int>(name.size()) + 1;
}

int file_getlinecount(const char *path) {
  char expanded[line_count_path_size];
  const int length = path ? static_cast<int>(strnlen(path, INT_MAX)) : 0;
  if (expfnam(path, length, expanded, sizeof expanded) < 0) return KALMORA_FAILED;
  const File file = open_file(expanded, "re");
  if (!file) return KALMORA_FAILED;
  return static_cast<int>(std::min<std::int64_t>(count_lines(file.get()), INT_MAX));
}

void our_freenamelist(void *list) {
  const auto *at = static_cast<const char *>(list);
  void *entry;
  while (at && (std::memcpy(&entry, at, sizeof entry), entry)) {
    std::free(entry);
    at += sizeof entry;
  }
  std::free(list);
}

int our_scandir(const char *directory, struct dirent ***list, int (*keep)(const struct dirent *),
                int (*compare)(const struct dirent **, const struct dirent **)) {
  if (!list) return KALMORA_FAILED;
  *list = nullptr;
  Directory stream = open_readable(directory);
  if (!stream) return KALMORA_FAILED;
  EntryList entries;
  if (!entries || !read_entries(stream.get(), keep, entries)) return KALMORA_FAILED;
  stream.reset();
  if (!entries.sort(compare)) return KALMORA_FAILED;
  *list = entries.release();
  return entries.count();
}

int remote_fileio(const char *path, int flags, int origin, int64_t offset, int64_t count,
                  void *buffer, int64_t *position) {
  if (position) *position = 0;
  const int mode = flags & mode_bits;
  const bool keep_file = (flags & KALMORA_FILE_KEEP) != 0;
  if (!path || mode > KALMORA_FILE_SIZE) return KALMORA_FILE_INVALID;
  const Piece piece{origin, offset, count, buffer};
  if (mode != KALMORA_FILE_SIZE && !piece.is_sound())
    return KALMORA_FILE_CANNOT_TRANSFER;  // before opening empties the file
  File file = open_file(path, open_mode(mode, keep_file));
  if (!file) return KALMORA_FILE_CANNOT_OPEN;
  const std::int64_t reached = transfer_and_close(mode, piece, std::move(file));
  if (reached < 0) return KALMORA_FILE_CANNOT_TRANSFER;
  if (position) *position = reached;
  return KALMORA_FILE_OK;
}

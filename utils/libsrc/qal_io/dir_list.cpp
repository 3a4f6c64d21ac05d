// The listing of one directory by a wildcard.
#include <dirent.h>
#include <qal/dir_list.h>
#include <qal/logger.h>
#include <qal/path.h>
#include <qal/status.h>
#include <qal/wildcard.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <span>
#include <string_view>

#include "internal/bounded_text.hpp"
#include "internal/file_system.hpp"
#include "internal/handles.hpp"

namespace {

using qal::internal::BoundedText;
using qal::internal::Directory;
using qal::internal::next_entry;
using qal::internal::OwnedText;
using qal::internal::path_room;

constexpr std::size_t name_text_step = 1500;
constexpr std::size_t full_path_spare = 5;

// Names one after another, each with a newline. The text is the caller's as soon as it is
// allocated.
class NameText {
 public:
  explicit NameText(char *&text) : text_(text) {}

  bool create() {
    text_ = static_cast<char *>(std::calloc(1, capacity_));
    return text_ != nullptr;
  }

  bool append(std::string_view name) {
    if (length_ + name.size() + 2 >= capacity_ && !grow()) return false;
    std::memcpy(text_ + length_, name.data(), name.size());
    length_ += name.size();
    text_[length_++] = '\n';
    text_[length_] = '\0';
    ++count_;
    return true;
  }

  int count() const { return count_; }

 private:
  bool grow() {
    auto *grown = static_cast<char *>(std::realloc(text_, capacity_ + name_text_step));
    if (!grown) return false;
    text_ = grown;
    capacity_ += name_text_step;
    return true;
  }

  char *&text_;
  std::size_t length_ = 0;
  std::size_t capacity_ = name_text_step;
  int count_ = 0;
};

// Tells directories from other entries of one directory.
class EntryKinds {
 public:
  explicit EntryKinds(std::string_view directory) : directory_(directory) {}

  std::string_view directory() const { return directory_; }

  // Without a value when the entry cannot be examined.
  std::optional<bool> is_directory(std::string_view name, unsigned char stream_kind) {
    if (!qal::internal::is_within_limits(directory_.size(), name.size())) return std::nullopt;
    if (searchable_ && stream_kind == DT_DIR) return true;
    if (searchable_ && stream_kind == DT_REG) return false;
    return examine(name);
  }

 private:
  std::optional<bool> examine(std::string_view name) {
    std::array<char, path_room> room;
    BoundedText path{room};
    path.append({directory_, "/", name});
    struct stat info;
    if (stat(path.c_str(), &info) != 0) return std::nullopt;
    searchable_ = true;
    return qal::internal::counts_as_directory(info.st_mode);
  }

  std::string_view directory_;
  // In a directory that may be read but not searched no entry can be examined. So the kinds that
  // its stream gives count only after an entry has been examined.
  bool searchable_ = false;
};

struct Listing {
  EntryKinds kinds;
  const char *wildcard;
  NameText directories;
  NameText files;
};

int out_of_memory(const char *message) {
  qal_error("%s", message);
  return QAL_STATUS_NO_MEMORY;
}

int store_full_path(std::initializer_list<std::string_view> pieces, char *&full_path) {
  std::size_t room = full_path_spare;
  for (const auto piece : pieces) room += piece.size();
  full_path = static_cast<char *>(std::calloc(1, room));
  if (!full_path) return out_of_memory("qal_dir_list: error allocating memory for full path.");
  BoundedText{std::span{full_path, room}}.append(pieces);
  return QAL_STATUS_OK;
}

int make_absolute(std::string_view pattern, char *&full_path) {
  if (pattern.starts_with('/')) return store_full_path({pattern}, full_path);
  const OwnedText working_directory{qal_getcwd(nullptr, 0)};
  if (!working_directory) return QAL_STATUS_NOT_FOUND;
  return store_full_path({working_directory.get(), "/", pattern.empty() ? "*" : pattern},
                         full_path);
}

int create_texts(Listing &listing) {
  if (!listing.directories.create()) {
    return out_of_memory("qal_dir_list: could not allocate memory for directory names.");
  }
  if (!listing.files.create()) {
    return out_of_memory("qal_dir_list: could not allocate memory for file names.");
  }
  return QAL_STATUS_OK;
}

void report_unexaminable(std::string_view directory, std::string_view name) {
  qal_error("qal_dir_list: couldn't get info on '%.*s/%.*s'", static_cast<int>(directory.size()),
            directory.data(), static_cast<int>(name.size()), name.data());
}

// Deliberate: hosts know these two messages by these words. Both name another function and speak
// of directories, and only one ends its line.
int add_directory(Listing &listing, std::string_view name) {
  if (listing.directories.append(name)) return QAL_STATUS_OK;
  return out_of_memory("qal_list_dir: reallocate of dir names failed.\n");
}

int add_file(Listing &listing, std::string_view name) {
  if (listing.files.append(name)) return QAL_STATUS_OK;
  return out_of_memory("qal_list_dir: reallocate of dir names failed.");
}

bool matches(const char *wildcard, const char *name) {
  return zul_fnmatch(reinterpret_cast<const unsigned char *>(wildcard),
                     reinterpret_cast<const unsigned char *>(name)) == QAL_FNM_MATCH;
}

int add_entry(Listing &listing, const dirent &entry) {
  const std::string_view name{entry.d_name};
  const auto is_directory = listing.kinds.is_directory(name, entry.d_type);
  if (!is_directory) {
    report_unexaminable(listing.kinds.directory(), name);
    return QAL_STATUS_OK;
  }
  if (*is_directory) return add_directory(listing, name);
  return matches(listing.wildcard, entry.d_name) ? add_file(listing, name) : QAL_STATUS_OK;
}

int read_entries(DIR *stream, Listing &listing, bool verbose) {
  const dirent *entry = next_entry(stream);
  if (!entry) {
    if (verbose) qal_error("qal_dir_list: error reading current directory.\n");
    return QAL_STATUS_NO_MEMORY;
  }
  for (; entry; entry = next_entry(stream)) {
    const int status = add_entry(listing, *entry);
    if (status != QAL_STATUS_OK) return status;
  }
  return errno == 0 ? QAL_STATUS_OK : QAL_STATUS_NO_MEMORY;
}

int list_directory(const char *path, Listing &listing, bool verbose) {
  const Directory stream = qal::internal::open_directory(path);
  if (!stream) return QAL_STATUS_NOT_FOUND;
  const int status = create_texts(listing);
  return status == QAL_STATUS_OK ? read_entries(stream.get(), listing, verbose) : status;
}

std::string_view parent_of(std::string_view path) { return path.substr(0, path.rfind('/')); }

}  // namespace

int qal_dir_list(const char *pattern, char **full_path_out, int *dir_count_out,
                 char **dir_names_out, int *file_count_out, char **file_names_out, int verbose) {
  if (!full_path_out || !dir_names_out || !file_names_out) return QAL_STATUS_INVALID;
  if (!dir_count_out || !file_count_out) return QAL_STATUS_INVALID;
  *full_path_out = *dir_names_out = *file_names_out = nullptr;

  std::array<char, path_room> expanded;
  int status = qal_expand_pathname(pattern, expanded.data(), path_room);
  if (status != QAL_STATUS_OK) return status;
  status = make_absolute(expanded.data(), *full_path_out);
  if (status != QAL_STATUS_OK) return status;

  char *const slash = std::strrchr(expanded.data(), '/');
  // Deliberate: a pattern without a directory part is not looked up in the working directory.
  if (!slash) return QAL_STATUS_NOT_FOUND;
  const char *const wildcard = slash[1] ? slash + 1 : "*";
  *slash = '\0';
  const char *const directory = slash == expanded.data() ? "/" : expanded.data();

  Listing listing{EntryKinds{parent_of(*full_path_out)}, wildcard, NameText{*dir_names_out},
                  NameText{*file_names_out}};
  status = list_directory(directory, listing, verbose != 0);
  if (status != QAL_STATUS_OK) return status;
  std::fflush(stdout);
  *dir_count_out = listing.directories.count();
  *file_count_out = listing.files.count();
  return QAL_STATUS_OK;
}

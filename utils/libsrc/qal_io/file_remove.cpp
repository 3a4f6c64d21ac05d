// The removal of a directory, alone or with everything in it.
#include <dirent.h>
#include <fcntl.h>
#include <qal/files.h>
#include <qal/status.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "internal/bounded_text.hpp"
#include "internal/file_system.hpp"
#include "internal/handles.hpp"
#include "internal/retry.hpp"

namespace {

using qal::internal::BoundedText;
using qal::internal::Descriptor;
using qal::internal::Directory;
using qal::internal::OwnedText;
using qal::internal::path_room;
using qal::internal::retry_interrupted;

// Names one after another, each with its terminator.
class NameList {
 public:
  bool append(std::string_view name) {
    if (!reserve(name.size() + 1)) return false;
    std::memcpy(text_.get() + length_, name.data(), name.size());
    length_ += name.size();
    text_.get()[length_++] = '\0';
    return true;
  }

  bool empty() const { return length_ == 0; }

  // Stops at the first name for which `use` returns false, and returns whether there was none.
  template <typename Use>
  bool all_of(Use use) const {
    const char *end = text_.get() + length_;
    for (const char *name = text_.get(); name != end; name += std::strlen(name) + 1) {
      if (!use(name)) return false;
    }
    return true;
  }

 private:
  bool reserve(std::size_t more) {
    const std::size_t needed = length_ + more;
    if (needed <= capacity_) return true;
    std::size_t capacity = 0;
    if (__builtin_mul_overflow(needed, 2, &capacity)) return false;
    auto *grown = static_cast<char *>(std::realloc(text_.get(), capacity));
    if (!grown) return false;
    static_cast<void>(text_.release());
    text_.reset(grown);
    capacity_ = capacity;
    return true;
  }

  OwnedText text_;
  std::size_t length_ = 0;
  std::size_t capacity_ = 0;
};

struct Content {
  NameList files;
  NameList directories;
};

// Never follows a link in the last component of `path`.
Directory open_directory(int parent, const char *path) {
  Descriptor opened{retry_interrupted([parent, path] {
    return openat(parent, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  })};
  if (!opened) return nullptr;
  Directory directory{fdopendir(opened.get())};
  if (directory) opened.release();
  return directory;
}

bool is_dot_entry(std::string_view name) { return name == "." || name == ".."; }

// Entries that qal_dir_list leaves out are left out here too: links that lead nowhere, and names or
// paths that are too long. They stay, and with them their directory.
bool note_entry(DIR *directory, const char *name, std::size_t path_length, Content &content) {
  if (is_dot_entry(name)) return true;
  if (!qal::internal::is_within_limits(path_length, std::strlen(name))) return true;
  struct stat info;
  if (fstatat(dirfd(directory), name, &info, 0) != 0) return true;
  const bool is_directory = qal::internal::counts_as_directory(info.st_mode);
  return (is_directory ? content.directories : content.files).append(name);
}

// Everything is read before anything is removed: some systems skip entries of a directory that
// shrinks while it is read. As in qal_dir_list, a directory without even "." counts as unreadable.
bool read_content(DIR *directory, std::size_t path_length, Content &content) {
  for (bool first = true;; first = false) {
    const dirent *entry = qal::internal::next_entry(directory);
    if (!entry) return errno == 0 && !first;
    if (!note_entry(directory, entry->d_name, path_length, content)) return false;
  }
}

// Deliberate: such a name could mean a file or a path, so it ends the removal.
bool is_ambiguous(const char *name) { return std::strchr(name, '\\') != nullptr; }

struct Identity {
  dev_t device;
  ino_t inode;
  bool operator==(const Identity &) const = default;
};

// Without a value when the directory is not open or cannot be examined.
std::optional<Identity> identity_of(DIR *directory) {
  struct stat info;
  if (!directory || fstat(dirfd(directory), &info) != 0) return std::nullopt;
  return Identity{info.st_dev, info.st_ino};
}

// Some file systems remove a file's companion together with it, so one may be gone already.
bool remove_file(int here, const char *name) {
  return !is_ambiguous(name) && (unlinkat(here, name, 0) == 0 || errno == ENOENT);
}

bool remove_files(int here, const NameList &names) {
  return names.all_of([here](const char *name) { return remove_file(here, name); });
}

bool remove_directory(Directory &parent, const char *name, std::size_t path_length);

bool remove_directories(Directory &here, const NameList &names, std::size_t path_length) {
  return names.all_of([&here, path_length](const char *name) {
    return !is_ambiguous(name) && remove_directory(here, name, path_length + 1 + std::strlen(name));
  });
}

// Closes `parent` meanwhile, so that two open directories are enough for any depth. The way back is
// ".." of `here`, which leads elsewhere when `here` has been moved. Without names `parent` stays
// open: the way back needs the permission to search `here`, which an empty directory may lack.
bool remove_directories_below(Directory &parent, Directory &here, const NameList &names,
                              std::size_t path_length) {
  if (names.empty()) return true;
  const auto left = identity_of(parent.get());
  parent.reset();
  if (!left || !remove_directories(here, names, path_length)) return false;
  parent = open_directory(dirfd(here.get()), "..");
  return identity_of(parent.get()) == left;
}

// `path_length` counts from the start of the whole tree's path. Every level adds two bytes or more,
// so the room of a path bounds the depth of the recursion too.
bool remove_directory(Directory &parent, const char *name, std::size_t path_length) {
  Directory here = open_directory(dirfd(parent.get()), name);
  Content content;
  return here && read_content(here.get(), path_length, content) &&
         remove_files(dirfd(here.get()), content.files) &&
         remove_directories_below(parent, here, content.directories, path_length) &&
         unlinkat(dirfd(parent.get()), name, AT_REMOVEDIR) == 0;
}

bool remove_tree(const char *path, std::size_t path_length) {
  Directory top = open_directory(AT_FDCWD, path);
  Content content;
  return top && read_content(top.get(), path_length, content) &&
         remove_files(dirfd(top.get()), content.files) &&
         remove_directories(top, content.directories, path_length) &&
         unlinkat(AT_FDCWD, path, AT_REMOVEDIR) == 0;
}

// A slash at the end would make the system follow a link.
std::string_view without_trailing_slashes(std::string_view path) {
  return path.substr(0, path.find_last_not_of('/') + 1);  // 0 when there are only slashes
}

// No system removes a directory by these names, so its content is not touched either; and
// "link/." would lead through a link.
bool ends_in_dot_entry(std::string_view path) {
  return is_dot_entry(path.substr(path.find_last_of('/') + 1));
}

bool remove_recursively(std::string_view path) {
  char room[path_room];
  BoundedText text{room};
  if (!text.append({path, "/"})) return false;  // what is in the directory needs the slash
  std::replace(text.data(), text.data() + text.length(), '\\', '/');
  const auto directory = without_trailing_slashes(text.view());
  if (directory.empty() || ends_in_dot_entry(directory)) return false;
  room[directory.size()] = '\0';
  return remove_tree(room, directory.size());
}

}  // namespace

int qal_file_rmdir(const char *path, int recursive) {
  if (!path) return QAL_STATUS_FAILED;
  const bool removed =
      recursive == QAL_RMDIR_RECURSIVE ? remove_recursively(path) : rmdir(path) == 0;
  return removed ? QAL_STATUS_OK : QAL_STATUS_FAILED;
}

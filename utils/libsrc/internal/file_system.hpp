// Joining paths, opening files and reading directories, with the limits that hold for both.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstddef>
#include <string_view>

#include "internal/handles.hpp"

namespace qal::internal {

constexpr std::size_t path_room = 1024;  // bytes of a path with its terminator
constexpr std::size_t longest_name = 255;

// Makes "directory/name" with slashes only. False when it does not fit.
bool join_path(std::string_view directory, std::string_view name, char (&path)[path_room]);

// Opens for reading what may be of any kind: neither waits for a FIFO's writer nor acquires a
// terminal.
Descriptor open_any_kind(const char *path);

// The same, but fails with ELOOP when the path names a link.
Descriptor open_any_kind_but_link(const char *path);

bool is_same_file(const struct stat &one, const struct stat &other);

// Whether the name means the open file, following links.
bool still_means(const char *path, const struct stat &opened);

// Tests by opening, as a reader would.
bool can_be_opened(const char *path);

Directory open_directory(const char *path);

// The next entry, or null: with errno 0 at the end, else after an error.
const dirent *next_entry(DIR *directory);

// Whether a name, and its path below a directory, are short enough to be looked at.
constexpr bool is_within_limits(std::size_t directory_length, std::size_t name_length) {
  return name_length <= longest_name && directory_length + 1 + name_length < path_room;
}

// Deliberate: one bit of the file type only. Sockets and block devices carry it too: a listing has
// them among the directories, and a removal ends at them, because they cannot be opened as such.
constexpr bool counts_as_directory(mode_t mode) {
  constexpr mode_t directory_bit = 0040000;
  return (mode & directory_bit) != 0;
}

}  // namespace qal::internal

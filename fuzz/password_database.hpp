// Replaces the password database: a target has the two home directories that its input names. To be
// linked with getpwnam_r and getpwuid_r wrapped.
#pragma once

#include <pwd.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

namespace qal::fuzz {

struct PasswordDatabase {
  std::optional<std::string> own_home;    // of the user that the process belongs to
  std::string other_name;                 // of the one user that is known by name
  std::optional<std::string> other_home;  // and where that one is at home

  // The home of the user whose name a path begins with, after its "~".
  std::optional<std::string> home_of(const std::string &name) const {
    if (name.empty()) return own_home;
    return name == other_name ? other_home : std::nullopt;
  }
};

inline PasswordDatabase password_database;

// As the C library answers: no entry is no error, and too little room is to be asked again.
inline int answer(const std::optional<std::string> &home, passwd *entry, char *room,
                  std::size_t size, passwd **found) {
  *found = nullptr;
  if (!home) return 0;
  if (home->size() >= size) return ERANGE;
  *entry = {};
  entry->pw_dir = static_cast<char *>(std::memcpy(room, home->c_str(), home->size() + 1));
  *found = entry;
  return 0;
}

}  // namespace qal::fuzz

extern "C" int __wrap_getpwuid_r(uid_t, passwd *entry, char *room, std::size_t size,
                                 passwd **found) {
  return qal::fuzz::answer(qal::fuzz::password_database.own_home, entry, room, size, found);
}

extern "C" int __wrap_getpwnam_r(const char *name, passwd *entry, char *room, std::size_t size,
                                 passwd **found) {
  // The library asks by name only for names that are there.
  return qal::fuzz::answer(qal::fuzz::password_database.home_of(name), entry, room, size, found);
}

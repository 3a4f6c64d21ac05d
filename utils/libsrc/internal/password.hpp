// The password database: who a user is and where that user's home lies.
#pragma once

#include <pwd.h>
#include <qal/alloc.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>

#include "internal/handles.hpp"

namespace qal::internal {

// One entry, together with the memory its texts lie in; they live as long as the object does.
class PasswordEntry {
 public:
  // Looks up `user` by name or, when that is empty, the owner of the process by its real user id.
  // False afterwards: no such user, or the database could not be read.
  explicit PasswordEntry(std::string_view user = {}) {
    if (user.empty()) {
      look_up(&getpwuid_r, getuid());
    } else if (const OwnedText name = terminated(user)) {
      look_up(&getpwnam_r, name.get());
    }
  }

  explicit operator bool() const { return found_; }
  std::string_view name() const { return text(entry_.pw_name); }
  std::string_view home() const { return text(entry_.pw_dir); }

 private:
  static constexpr std::size_t first_size_bytes = 1024;
  static constexpr std::size_t largest_size_bytes = 1 << 20;  // no honest entry comes near it

  static OwnedText block(std::size_t size) {
    char *room = nullptr;
    QAL_MALLOC("PasswordEntry", room, size);
    return OwnedText{room};
  }

  static OwnedText terminated(std::string_view piece) {
    OwnedText copy = block(piece.size() + 1);
    if (copy) copy.get()[piece.copy(copy.get(), piece.size())] = '\0';
    return copy;
  }

  template <typename Call, typename Key>
  void look_up(Call call, Key key) {
    int error = ERANGE;
    for (std::size_t size = first_size_bytes; error == ERANGE && size <= largest_size_bytes;
         size *= 2) {
      error = attempt(call, key, size);
    }
  }

  template <typename Call, typename Key>
  int attempt(Call call, Key key, std::size_t size) {
    store_ = block(size);
    if (!store_) return ENOMEM;
    passwd *entry = nullptr;
    int error;
    do {
      error = call(key, &entry_, store_.get(), size, &entry);
    } while (error == EINTR);
    found_ = error == 0 && entry;
    return error;
  }

  static std::string_view text(const char *value) { return value ? value : ""; }

  OwnedText store_;
  passwd entry_{};
  bool found_ = false;
};

}  // namespace qal::internal

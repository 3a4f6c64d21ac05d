// The password database: who a user is and where that user's home lies.
#pragma once

#include <pwd.h>

#include <cstddef>
#include <string_view>

#include "internal/handles.hpp"

namespace qal::internal {

// One entry, together with the memory its texts lie in; they live as long as the object does.
class PasswordEntry {
 public:
  // Looks up `user` by name or, when that is empty, the owner of the process by its real user id.
  // False afterwards: no such user, or the database could not be read.
  explicit PasswordEntry(std::string_view user = {});

  explicit operator bool() const { return found_; }
  // Both are terminated. A text that the database lacks is empty.
  std::string_view name() const { return text(entry_.pw_name); }
  std::string_view home() const { return text(entry_.pw_dir); }

 private:
  template <typename Call, typename Key>
  void look_up(Call call, Key key);
  template <typename Call, typename Key>
  int attempt(Call call, Key key, std::size_t size);

  static std::string_view text(const char *value) { return value ? value : ""; }

  CheckedText store_;
  passwd entry_{};
  bool found_ = false;
};

}  // namespace qal::internal

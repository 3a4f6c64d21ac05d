// Looks users up in the password database.
#include "internal/password.hpp"

#include <qal/alloc.h>
#include <unistd.h>

#include <cerrno>

namespace qal::internal {
namespace {

constexpr std::size_t first_size_bytes = 1024;
constexpr std::size_t largest_size_bytes = 1 << 20;  // far more than a real entry needs

CheckedText block(std::size_t size) {
  char *room = nullptr;
  QAL_MALLOC("PasswordEntry", room, size);
  return CheckedText{room};
}

CheckedText terminated(std::string_view piece) {
  CheckedText copy = block(piece.size() + 1);
  if (copy) copy.get()[piece.copy(copy.get(), piece.size())] = '\0';
  return copy;
}

}  // namespace

PasswordEntry::PasswordEntry(std::string_view user) {
  if (user.empty()) {
    look_up(&getpwuid_r, getuid());
  } else if (const CheckedText name = terminated(user)) {
    look_up(&getpwnam_r, name.get());
  }
}

template <typename Call, typename Key>
void PasswordEntry::look_up(Call call, Key key) {
  int error = ERANGE;
  for (std::size_t size = first_size_bytes; error == ERANGE && size <= largest_size_bytes;
       size *= 2) {
    error = attempt(call, key, size);
  }
}

template <typename Call, typename Key>
int PasswordEntry::attempt(Call call, Key key, std::size_t size) {
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

}  // namespace qal::internal

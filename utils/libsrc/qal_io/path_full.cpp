// What the system adds to a path: the working directory and users' homes.
#include <qal/path.h>
#include <qal/status.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <initializer_list>
#include <span>
#include <string_view>

#include "internal/bounded_text.hpp"
#include "internal/password.hpp"

namespace {

using qal::internal::BoundedText;
using qal::internal::PasswordEntry;

constexpr std::size_t directory_bytes = 1024;

std::span<char> room_in(char *out, int out_size) {
  return {out, out && out_size > 0 ? static_cast<std::size_t>(out_size) : 0};
}

// Puts the pieces together in `out`. When they do not fit it returns the size that they need and
// leaves `out` alone.
int deliver(std::initializer_list<std::string_view> pieces, std::span<char> out) {
  std::size_t needed = 1;
  for (const auto piece : pieces) needed += piece.size();
  if (needed > INT_MAX) return QAL_PATH_FAILED;
  if (needed > out.size()) return static_cast<int>(needed);
  BoundedText{out}.append(pieces);
  return QAL_STATUS_OK;
}

int below_working_directory(std::string_view path, std::span<char> out) {
  std::array<char, directory_bytes> buffer{};
  if (!getcwd(buffer.data(), buffer.size())) return QAL_PATH_FAILED;
  const std::string_view directory{buffer.data()};
  const bool has_backslash = directory.find('\\') != std::string_view::npos;
  return deliver({directory, has_backslash ? "\\" : "/", path}, out);
}

int status_of(bool fitted) { return fitted ? QAL_STATUS_OK : QAL_STATUS_INVALID; }

// `path` begins with "~": "~", "~/rest", "~name" or "~name/rest".
int expand_home(std::string_view path, BoundedText &text) {
  const std::size_t slash = path.find('/');
  const PasswordEntry user{path.substr(1, slash == std::string_view::npos ? slash : slash - 1)};
  if (!user) return QAL_STATUS_NOT_FOUND;
  const auto rest = slash == std::string_view::npos ? "" : path.substr(slash + 1);
  return status_of(text.append({user.home(), "/", rest}));
}

}  // namespace

int qal_get_full_path(const char *path, char *out, int out_size) {
  if (!path || *path == '\0') return QAL_PATH_FAILED;
  const auto room = room_in(out, out_size);
  return qal_path_is_absolute(path) ? deliver({path}, room) : below_working_directory(path, room);
}

char *qal_getcwd(char *buf, std::size_t size) { return getcwd(buf, size); }

int qal_setcwd(const char *path) {
  if (!path) {
    errno = EFAULT;
    return QAL_PATH_FAILED;
  }
  return chdir(path);
}

int qal_expand_pathname(const char *path, char *out, int out_size) {
  const auto room = room_in(out, out_size);
  if (room.empty()) return QAL_STATUS_INVALID;
  BoundedText text{room};
  if (!path) return QAL_STATUS_INVALID;
  return *path == '~' ? expand_home(path, text) : status_of(text.append(path));
}

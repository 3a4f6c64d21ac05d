// The normal form of a path.
#include <qal/alloc.h>
#include <qal/path.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "internal/handles.hpp"
#include "internal/move_bytes.hpp"

namespace {

using qal::internal::CheckedText;
using qal::internal::move_bytes;

constexpr std::size_t most_segments = 1024;
constexpr std::size_t spare_bytes = 64;
constexpr std::size_t room_for_dot = sizeof ".";

CheckedText room_as_long_as(const char *path) {
  char *room = nullptr;
  QAL_MALLOC("qal_get_norm_path", room, std::strlen(path) + spare_bytes);
  return CheckedText{room};
}

bool is_separator(char c) { return c == '/' || c == '\\'; }

// Looked up: three comparisons for each byte would take most of the time.
constexpr auto ends_segment = [] {
  std::array<bool, UCHAR_MAX + 1> ends{};
  ends['\0'] = ends['/'] = ends['\\'] = true;
  return ends;
}();

const char *behind_separators(const char *at) {
  while (is_separator(*at)) ++at;
  return at;
}

// Two slashes begin a network name; any other number means the root.
std::string_view prefix_for(std::ptrdiff_t leading_slashes) {
  return leading_slashes == 2 ? "//" : "/";
}

// Resolves the dot segments of a path without leading separators.
class Resolution {
 public:
  // The room holds what is kept, which is never longer than what was read.
  explicit Resolution(char *room) : text_(room) {}

  // The segments that are kept. Without a value when there are too many or ".." leads above the
  // first.
  std::optional<std::string_view> run(const char *path) {
    for (std::size_t index = 0; *path != '\0'; ++index) {
      if (index == most_segments || !take_segment(path, index == 0)) return std::nullopt;
      path = behind_separators(path);
    }
    return std::string_view{text_, length_};
  }

 private:
  // Leaves `at` behind the segment. Segments are short: a loop over their bytes is faster than a
  // call of the C library for each.
  bool take_segment(const char *&at, bool first) {
    if (*at != '.') return keep_segment(at, first);
    // Deliberate: every segment that begins with a dot vanishes, ".config" as well as ".".
    const bool leads_up = at[1] == '.';
    while (is_inside(*at)) ++at;
    return !leads_up || drop_last();
  }

  // Deliberate: a slash stands before every segment but the first of the path, even when all those
  // before it vanished. "./a" is "/a".
  bool keep_segment(const char *&at, bool first) {
    if (!first) text_[length_++] = '/';
    while (is_inside(*at)) text_[length_++] = *at++;
    return true;
  }

  static bool is_inside(char c) { return !ends_segment[static_cast<unsigned char>(c)]; }

  bool drop_last() {
    if (length_ == 0) return false;
    const std::size_t slash = std::string_view{text_, length_}.rfind('/');
    length_ = slash == std::string_view::npos ? 0 : slash;
    return true;
  }

  char *text_;
  std::size_t length_ = 0;
};

// Counts a slash for each kept segment, even for a first one that has none.
std::size_t room_for(std::string_view segments) {
  const bool lacks_first_slash = !segments.empty() && segments.front() != '/';
  return segments.size() + (lacks_first_slash ? 1 : 0);
}

int needed_size(std::size_t bytes) {
  return bytes > INT_MAX ? QAL_PATH_FAILED : static_cast<int>(bytes);
}

// `start` is what the result begins with: the prefix or, for a relative path, the caller's text.
int deliver(std::string_view start, std::string_view segments, std::span<char> out) {
  const std::size_t length = start.size() + room_for(segments);
  if (length >= out.size()) return needed_size(length + 1);
  if (length == 0 && out.size() < room_for_dot) return needed_size(room_for_dot);
  if (length == 0) segments = ".";
  const bool is_in_place = start.data() == out.data();
  if (is_in_place) {
    qal_convert_pathname(out.data(), QAL_PATH_TO_SLASH);
  } else {
    move_bytes(out.data(), start.data(), start.size());
  }
  std::memcpy(out.data() + start.size(), segments.data(), segments.size());
  out[start.size() + segments.size()] = '\0';
  return QAL_STATUS_OK;
}

std::string_view text_in(std::span<const char> out) {
  return {out.data(), out.empty() ? 0 : strnlen(out.data(), out.size())};
}

int normalise(const char *path, std::span<char> out) {
  const CheckedText room = room_as_long_as(path);
  if (!room) return QAL_PATH_FAILED;
  const char *const first = behind_separators(path);
  const auto segments = Resolution{room.get()}.run(first);
  if (!segments) return QAL_PATH_FAILED;
  const auto start = first == path ? text_in(out) : prefix_for(first - path);
  return deliver(start, *segments, out);
}

int deliver_dot(std::span<char> out) {
  const std::size_t length = std::min<std::size_t>(1, out.size() - 1);
  std::memcpy(out.data(), ".", length);
  out[length] = '\0';
  return QAL_STATUS_OK;
}

}  // namespace

int qal_get_norm_path(const char *path, char *out, int out_size) {
  const std::size_t room = out_size > 0 ? static_cast<std::size_t>(out_size) : 0;
  if (!path || (!out && room > 0) || std::string_view{path}.starts_with(".."))
    return QAL_PATH_FAILED;
  if (*path != '\0') return normalise(path, {out, room});
  return room > 0 ? deliver_dot({out, room}) : QAL_STATUS_OK;
}

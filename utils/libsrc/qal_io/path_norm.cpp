#include <qal/alloc.h>
#include <qal/path.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "internal/handles.hpp"

namespace {

using qal::internal::OwnedText;

constexpr int refused = -1;
constexpr std::size_t most_segments = 1024;
constexpr std::size_t spare_bytes = 64;
constexpr std::size_t room_for_dot = 2;

OwnedText slashed_copy(const char *path) {
  const std::size_t size = std::strlen(path) + spare_bytes;
  char *copy = nullptr;
  QAL_MALLOC("qal_get_norm_path", copy, size);
  if (copy) {
    std::memcpy(copy, path, size - spare_bytes + 1);
    qal_convert_pathname(copy, 0);
  }
  return OwnedText{copy};
}

// Two slashes begin a network name; any other number means the root.
std::string_view prefix_for(std::size_t leading_slashes) {
  return leading_slashes == 2 ? "//" : "/";
}

// Resolves the dot segments of a text without leading slashes, over itself: what is kept is never
// longer than what was read.
class Resolution {
 public:
  explicit Resolution(char *text) : text_(text) {}

  // The kept segments, or nothing when there are too many or ".." leads above the first.
  std::optional<std::string_view> run() {
    std::string_view rest{text_};
    for (std::size_t index = 0; !rest.empty(); ++index) {
      const std::string_view segment = rest.substr(0, rest.find('/'));
      if (index == most_segments || !take(segment, index == 0)) return std::nullopt;
      rest.remove_prefix(segment.size());
      rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
    }
    return std::string_view{text_, length_};
  }

 private:
  bool take(std::string_view segment, bool first) {
    if (segment.starts_with("..")) return drop_last();
    // Deliberate: every segment that begins with a dot vanishes, ".config" as well as ".".
    if (!segment.starts_with('.')) keep(segment, first);
    return true;
  }

  // Deliberate: a slash stands before every segment but the first of the path, even when all those
  // before it vanished. "./a" is "/a".
  void keep(std::string_view segment, bool first) {
    if (!first) text_[length_++] = '/';
    std::memmove(text_ + length_, segment.data(), segment.size());
    length_ += segment.size();
  }

  bool drop_last() {
    if (length_ == 0) return false;
    const std::size_t slash = std::string_view{text_, length_}.rfind('/');
    length_ = slash == std::string_view::npos ? 0 : slash;
    return true;
  }

  char *text_;
  std::size_t length_ = 0;
};

// One byte for the slash of each kept segment, also of the first, which may have none.
std::size_t room_for(std::string_view segments) {
  const bool lacks_first_slash = !segments.empty() && segments.front() != '/';
  return segments.size() + (lacks_first_slash ? 1 : 0);
}

int needed_size(std::size_t bytes) { return bytes > INT_MAX ? refused : static_cast<int>(bytes); }

// `start` is what the result begins with: the prefix or, for a relative path, the caller's text.
int deliver(std::string_view start, std::string_view segments, std::span<char> out) {
  const std::size_t length = start.size() + room_for(segments);
  if (length >= out.size()) return needed_size(length + 1);
  if (length == 0 && out.size() < room_for_dot) return needed_size(room_for_dot);
  if (length == 0) segments = ".";
  std::memmove(out.data(), start.data(), start.size());
  std::memcpy(out.data() + start.size(), segments.data(), segments.size());
  out[start.size() + segments.size()] = '\0';
  qal_convert_pathname(out.data(), 0);
  return 0;
}

std::string_view text_in(std::span<const char> out) {
  return {out.data(), out.empty() ? 0 : strnlen(out.data(), out.size())};
}

int normalise(const char *path, std::span<char> out) {
  const OwnedText copy = slashed_copy(path);
  if (!copy) return refused;
  const std::size_t leading_slashes = std::strspn(copy.get(), "/");
  const auto segments = Resolution{copy.get() + leading_slashes}.run();
  if (!segments) return refused;
  const auto start = leading_slashes == 0 ? text_in(out) : prefix_for(leading_slashes);
  return deliver(start, *segments, out);
}

int deliver_dot(std::span<char> out) {
  const std::size_t length = std::min<std::size_t>(1, out.size() - 1);
  std::memcpy(out.data(), ".", length);
  out[length] = '\0';
  return 0;
}

}  // namespace

int qal_get_norm_path(const char *path, char *out, int out_size) {
  const std::size_t room = out_size > 0 ? static_cast<std::size_t>(out_size) : 0;
  if (!path || (!out && room > 0) || std::string_view{path}.starts_with("..")) return refused;
  if (*path != '\0') return normalise(path, {out, room});
  return room > 0 ? deliver_dot({out, room}) : 0;
}

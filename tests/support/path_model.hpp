// Models of the path functions, step by step over std::string.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qal::test {

inline bool is_separator(char byte) { return byte == '/' || byte == '\\'; }

inline char byte_at(const std::string &text, std::size_t index) {
  return index < text.size() ? text[index] : '\0';
}

inline std::string compact_model(const std::string &in) {
  std::string out;
  std::size_t i = 0;
  while (i < in.size()) {
    if (!is_separator(in[i])) {
      out += in[i++];
      continue;
    }
    if (byte_at(in, i + 1) == '.' && is_separator(byte_at(in, i + 2))) {
      i += 2;
      continue;
    }
    const std::size_t last = out.find_last_of("/\\");
    if (in.compare(i + 1, 2, "..") == 0 && is_separator(byte_at(in, i + 3)) &&
        last != std::string::npos) {
      out.erase(last);
      i += 3;
      continue;
    }
    const std::size_t copied = i++;
    out += in[copied];
    while (copied != 0 && byte_at(in, i) == in[copied]) ++i;
  }
  return out;
}

inline std::string convert_model(std::string path, std::uint32_t flags) {
  const bool backslash = (flags & ~0xff00U) == 2;
  for (char &byte : path) {
    if (is_separator(byte)) byte = backslash ? '\\' : '/';
  }
  for (std::size_t i = 0; i < path.size() && (flags & 0x100U) != 0; ++i) {
    const bool illegal = std::string_view(":*?\"<>|").find(path[i]) != std::string_view::npos;
    if (illegal && !(i == 1 && path[i] == ':')) path[i] = '_';
  }
  return (flags & 0x200U) != 0 ? compact_model(path) : path;
}

struct Normalised {
  int result;
  std::string text;
};

inline std::vector<std::string> segments_of(const std::string &text) {
  std::vector<std::string> segments;
  std::size_t start = text.find_first_not_of('/');
  while (start != std::string::npos) {
    const std::size_t end = std::min(text.find('/', start), text.size());
    segments.push_back(text.substr(start, end - start));
    start = text.find_first_not_of('/', end);
  }
  return segments;
}

// Empties what does not stay; false when ".." finds nothing before it.
inline bool resolve_model(std::vector<std::string> &segments) {
  for (std::size_t i = 0; i < segments.size(); ++i) {
    if (segments[i].substr(0, 2) == "..") {
      segments[i].clear();
      std::size_t earlier = i;
      while (earlier > 0 && segments[earlier - 1].empty()) --earlier;
      if (earlier == 0) return false;
      segments[earlier - 1].clear();
    } else if (segments[i].substr(0, 1) == ".") {
      segments[i].clear();
    }
  }
  return true;
}

inline Normalised normalise_model(std::string path, const std::string &already, int out_size) {
  if (path.substr(0, 2) == "..") return {-1, already};
  if (path.empty()) return {0, std::string(".").substr(0, out_size > 1 ? 1 : 0)};
  for (char &byte : path) byte = byte == '\\' ? '/' : byte;
  const std::size_t slashes = std::min(path.find_first_not_of('/'), path.size());
  const std::string prefix = slashes == 0 ? "" : slashes == 2 ? "//" : "/";
  std::vector<std::string> segments = segments_of(path);
  if (segments.size() > 1024) return {-1, already};
  if (!resolve_model(segments)) return {-1, already};
  std::string text = slashes == 0 ? already : prefix;
  int length = static_cast<int>(text.size());
  for (const std::string &segment : segments) {
    length += segment.empty() ? 0 : static_cast<int>(segment.size()) + 1;
  }
  if (length >= out_size) return {length + 1, already};
  if (length == 0 && out_size == 1) return {2, already};
  for (std::size_t i = 0; i < segments.size(); ++i) {
    if (!segments[i].empty()) text += (i > 0 ? "/" : "") + segments[i];
  }
  for (char &byte : text) byte = byte == '\\' ? '/' : byte;
  return {0, text.empty() ? "." : text};
}

struct Part {
  std::string answer;
  std::string path;  // what the path was changed to
};

inline std::string strip_model(std::string path, char separator) {
  while (!path.empty() && path.back() == separator) path.pop_back();
  return path;
}

inline Part dirname_model(const std::string &path) {
  const bool backslash = path.find('\\') != std::string::npos;
  const char separator = backslash ? '\\' : '/';
  if (path == std::string(1, separator) || (backslash && path == "\\\\")) return {path, path};
  if (path.empty() || path == " ") return {".", path};
  const std::string stripped = strip_model(path, separator);
  const std::size_t last = stripped.rfind(separator);
  if (last == std::string::npos) return {".", stripped};
  if (last == 0) return {std::string(1, separator), stripped};
  if (backslash && last == 1) return {"\\\\", stripped};
  return {stripped.substr(0, last), stripped.substr(0, last)};
}

inline Part basename_model(const std::string &path) {
  const bool backslash = path.find('\\') != std::string::npos;
  const char separator = backslash ? '\\' : '/';
  if (path == std::string(1, separator) || (backslash && path == "\\\\")) return {path, path};
  if (path.empty() || path == " ") return {".", path};
  const std::string stripped = strip_model(path, separator);
  return {stripped.substr(stripped.rfind(separator) + 1), stripped};
}

inline bool absolute_model(const std::string &path) {
  if (path.empty()) return false;
  if (path[0] == '/' || path[0] == '~') return true;
  const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return byte_at(path, 1) == ':' && letters.find(path[0]) != std::string::npos;
}

// The dot that begins the extension: behind the last `first`, and from there behind the last
// `second`.
inline std::size_t extension_dot(const std::string &path, char first, char second) {
  std::size_t start = path.rfind(first);
  if (start == std::string::npos) start = 0;
  const std::size_t further = path.substr(start).rfind(second);
  if (further != std::string::npos) start += further;
  const std::size_t dot = path.substr(start).rfind('.');
  return dot == std::string::npos ? std::string::npos : start + dot;
}

inline std::string join_model(const std::string *base, const std::vector<std::string> &components) {
  std::string list = base ? *base : "";
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (i > 0) list += "/";
    if (i == 0 && base) list += ":";
    list += components[i];
  }
  return list;
}

inline const char *extension_model(const std::string &arch, unsigned kind) {
  static constexpr const char *suffixes[4][4] = {{"", ".o", ".a", ".so"},
                                                 {"", ".o", ".a", ".sl"},
                                                 {"", ".o", ".a", ".dylib"},
                                                 {".exe", ".obj", ".lib", ".dll"}};
  static const std::vector<std::string_view> words[4] = {
      {"linux", "sun", "sgi", "cpq", "ibm"}, {"hp"}, {"apple"}, {"win"}};
  for (int family = 0; family < 4 && kind < 4; ++family) {
    for (const std::string_view word : words[family]) {
      if (arch.find(word) != std::string::npos) return suffixes[family][kind];
    }
  }
  return nullptr;
}

}  // namespace qal::test

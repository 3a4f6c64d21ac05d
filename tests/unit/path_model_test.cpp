// Every short path, compared with models that follow the rules step by step on std::string.
#include <gtest/gtest.h>
#include <qal/path.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/scratch.hpp"

namespace {

using qal::test::ScratchDir;
using std::string;

constexpr char guard = '?';

bool is_separator(char byte) { return byte == '/' || byte == '\\'; }

// Calls `check` with every text over `letters` of at most `longest` bytes.
template <typename Check>
void for_all_texts(const string &letters, std::size_t longest, const Check &check) {
  string text;
  const auto extend = [&](const auto &self) -> void {
    check(text);
    if (text.size() == longest || testing::Test::HasFailure()) return;
    for (const char letter : letters) {
      text.push_back(letter);
      self(self);
      text.pop_back();
    }
  };
  extend(extend);
}

// A copy between guard bytes, for functions that work in place.
class InPlace {
 public:
  explicit InPlace(const string &text) : size_(text.size()) {
    bytes_.fill(guard);
    std::memcpy(path(), text.c_str(), size_ + 1);
  }
  char *path() { return bytes_.data() + margin; }
  bool guards_intact() const {
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
      const bool inside = i >= margin && i <= margin + size_;
      if (!inside && bytes_[i] != guard) return false;
    }
    return true;
  }

 private:
  static constexpr std::size_t margin = 8;
  std::array<char, 64> bytes_{};
  std::size_t size_;
};

// An `out` of a given size, holding a text; the bytes behind it are guarded.
class Out {
 public:
  Out(int size, const string &text) : size_(size > 0 ? static_cast<std::size_t>(size) : 0) {
    bytes_.fill(guard);
    std::memcpy(bytes_.data(), text.c_str(), std::min(text.size() + 1, size_));
    before_ = bytes_;
  }
  char *data() { return bytes_.data(); }
  string text() const { return bytes_.data(); }
  bool untouched() const { return bytes_ == before_; }
  bool guards_intact() const {
    return std::memcmp(bytes_.data() + size_, before_.data() + size_, bytes_.size() - size_) == 0;
  }

 private:
  std::size_t size_;
  std::array<char, 1200> bytes_{};
  std::array<char, 1200> before_{};
};

char byte_at(const string &text, std::size_t index) {
  return index < text.size() ? text[index] : '\0';
}

string compact_model(const string &in) {
  string out;
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
    if (in.substr(i + 1, 2) == ".." && is_separator(byte_at(in, i + 3)) && last != string::npos) {
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

string convert_model(string path, std::uint32_t flags) {
  const bool backslash = (flags & ~0xff00U) == 2;
  for (char &byte : path) {
    if (is_separator(byte)) byte = backslash ? '\\' : '/';
  }
  for (std::size_t i = 0; i < path.size() && (flags & 0x100U) != 0; ++i) {
    const bool illegal = string(":*?\"<>|").find(path[i]) != string::npos;
    if (illegal && !(i == 1 && path[i] == ':')) path[i] = '_';
  }
  return (flags & 0x200U) != 0 ? compact_model(path) : path;
}

struct Normalised {
  int result;
  string text;
};

std::vector<string> split(const string &text) {
  std::vector<string> segments;
  string segment;
  for (const char byte : text + "/") {
    if (byte != '/') {
      segment += byte;
    } else if (!segment.empty()) {
      segments.push_back(segment);
      segment.clear();
    }
  }
  return segments;
}

// Empties what does not stay; false when ".." finds nothing before it.
bool resolve_model(std::vector<string> &segments) {
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

Normalised normalise_model(string path, const string &already, int out_size) {
  if (path.substr(0, 2) == "..") return {-1, already};
  if (path.empty()) return {0, string(".").substr(0, out_size > 1 ? 1 : 0)};
  for (char &byte : path) byte = byte == '\\' ? '/' : byte;
  const std::size_t slashes = std::min(path.find_first_not_of('/'), path.size());
  const string prefix = slashes == 0 ? "" : slashes == 2 ? "//" : "/";
  std::vector<string> segments = split(path);
  if (!resolve_model(segments)) return {-1, already};
  string text = slashes == 0 ? already : prefix;
  int length = static_cast<int>(text.size());
  for (const string &segment : segments) {
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
  string answer;
  string path;  // what the path was changed to
};

string strip_model(string path, char separator) {
  while (!path.empty() && path.back() == separator) path.pop_back();
  return path;
}

Part dirname_model(const string &path) {
  const bool backslash = path.find('\\') != string::npos;
  const char separator = backslash ? '\\' : '/';
  if (path == string(1, separator) || (backslash && path == "\\\\")) return {path, path};
  if (path.empty() || path == " ") return {".", path};
  const string stripped = strip_model(path, separator);
  const std::size_t last = stripped.rfind(separator);
  if (last == string::npos) return {".", stripped};
  if (last == 0) return {string(1, separator), stripped};
  if (backslash && last == 1) return {"\\\\", stripped};
  return {stripped.substr(0, last), stripped.substr(0, last)};
}

Part basename_model(const string &path) {
  const bool backslash = path.find('\\') != string::npos;
  const char separator = backslash ? '\\' : '/';
  if (path == string(1, separator) || (backslash && path == "\\\\")) return {path, path};
  if (path.empty() || path == " ") return {".", path};
  const string stripped = strip_model(path, separator);
  return {stripped.substr(stripped.rfind(separator) + 1), stripped};
}

bool absolute_model(const string &path) {
  if (path.empty()) return false;
  if (path[0] == '/' || path[0] == '~') return true;
  const string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return byte_at(path, 1) == ':' && letters.find(path[0]) != string::npos;
}

std::size_t later_search(const string &path, char first, char second) {
  std::size_t start = path.rfind(first);
  if (start == string::npos) start = 0;
  const std::size_t further = path.substr(start).rfind(second);
  if (further != string::npos) start += further;
  const std::size_t dot = path.substr(start).rfind('.');
  return dot == string::npos ? string::npos : start + dot;
}

string join_model(const string *base, const std::vector<string> &components) {
  string list = base ? *base : "";
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (i > 0) list += "/";
    if (i == 0 && base) list += ":";
    list += components[i];
  }
  return list;
}

void check_convert(const string &path, std::uint32_t flags) {
  InPlace converted{path};
  ASSERT_EQ(0, qal_convert_pathname(converted.path(), flags));
  ASSERT_EQ(convert_model(path, flags), converted.path()) << path << " with " << flags;
  ASSERT_TRUE(converted.guards_intact()) << path << " with " << flags;
}

void check_normalise(const string &path, const string &already, int out_size) {
  const Normalised expected = normalise_model(path, already, out_size);
  Out out{out_size, already};
  const string where = path + " onto '" + already + "' of " + std::to_string(out_size);
  ASSERT_EQ(expected.result, qal_get_norm_path(path.c_str(), out.data(), out_size)) << where;
  if (expected.result != 0 || out_size < 1) {
    ASSERT_TRUE(out.untouched()) << where;
  } else {
    ASSERT_EQ(expected.text, out.text()) << where;
  }
  ASSERT_TRUE(out.guards_intact()) << where;
}

TEST(PathConvertModel, AgreesOnEveryShortPathAndSetting) {
  for_all_texts("a./\\:", 7, [](const string &path) {
    for (const std::uint32_t mode : {0U, 2U, 3U}) {
      for (const std::uint32_t settings : {0U, 0x100U, 0x200U, 0x300U}) {
        check_convert(path, mode | settings);
      }
    }
  });
}

TEST(PathConvertModel, AgreesOnLongerCompactions) {
  for_all_texts("a./", 11, [](const string &path) { check_convert(path, QAL_PATH_COMPACT); });
}

TEST(PathConvertModel, AgreesOnEveryIllegalCharacter) {
  for_all_texts("C:*?\"<>|", 4, [](const string &path) {
    check_convert(path, QAL_PATH_FIX_ILLEGAL);
    check_convert(path, QAL_PATH_FIX_ILLEGAL | QAL_PATH_TO_BACKSLASH);
  });
}

TEST(PathNormaliseModel, AgreesOnEveryShortPath) {
  for_all_texts("a./\\:", 7, [](const string &path) { check_normalise(path, "", 64); });
}

TEST(PathNormaliseModel, AgreesOnLongerPaths) {
  for_all_texts("a./", 11, [](const string &path) { check_normalise(path, "", 64); });
}

TEST(PathNormaliseModel, AgreesAtEverySize) {
  for_all_texts("a./\\", 6, [](const string &path) {
    for (int size = -1; size < 12; ++size) check_normalise(path, "", size);
  });
}

TEST(PathNormaliseModel, AgreesOnTextInTheBuffer) {
  for_all_texts("a./\\", 5, [](const string &path) {
    for (int size = 4; size < 14; ++size) check_normalise(path, "p\\q", size);
  });
}

TEST(PathDirnameModel, AgreesOnEveryShortPath) {
  for_all_texts("a /\\.", 7, [](const string &path) {
    InPlace cut{path};
    const Part expected = dirname_model(path);
    ASSERT_EQ(expected.answer, qal_dirname(cut.path())) << path;
    ASSERT_EQ(expected.path, cut.path()) << path;
    ASSERT_TRUE(cut.guards_intact()) << path;
  });
}

TEST(PathBasenameModel, AgreesOnEveryShortPath) {
  for_all_texts("a /\\.", 7, [](const string &path) {
    InPlace stripped{path};
    const Part expected = basename_model(path);
    ASSERT_EQ(expected.answer, qal_basename(stripped.path())) << path;
    ASSERT_EQ(expected.path, stripped.path()) << path;
    ASSERT_TRUE(stripped.guards_intact()) << path;
  });
}

TEST(PathAbsoluteModel, AgreesOnEveryPairOfBytes) {
  for (int first = 1; first < 256; ++first) {
    for (int second = 0; second < 256; ++second) {
      const std::array<char, 3> path{static_cast<char>(first), static_cast<char>(second), '\0'};
      const int expected = absolute_model(path.data()) ? 1 : 0;
      ASSERT_EQ(expected, qal_path_is_absolute(path.data())) << first << " " << second;
    }
  }
}

TEST(PathFullModel, AgreesAtEverySize) {
  const ScratchDir scratch;
  for (const string &directory : {scratch.directory("plain"), scratch.directory("b\\s")}) {
    ASSERT_EQ(0, qal_setcwd(directory.c_str()));
    const string joint = directory.find('\\') == string::npos ? "/" : "\\";
    for_all_texts("a./\\:~", 4, [&](const string &path) {
      const string expected = absolute_model(path) ? path : directory + joint + path;
      const int needed = path.empty() ? -1 : static_cast<int>(expected.size()) + 1;
      for (const int size : {-1, 0, needed - 1, needed, needed + 1}) {
        Out out{size, ""};
        const bool fits = !path.empty() && size >= needed;
        ASSERT_EQ(fits ? 0 : needed, qal_get_full_path(path.c_str(), out.data(), size)) << path;
        ASSERT_TRUE(fits ? out.text() == expected : out.untouched()) << path;
        ASSERT_TRUE(out.guards_intact()) << path;
      }
    });
  }
}

TEST(PathFindDotModel, AgreesOnEveryShortPath) {
  for_all_texts("a./\\:", 7, [](const string &path) {
    const std::size_t dot = later_search(path, '/', '\\');
    const char *expected = dot == string::npos ? nullptr : path.c_str() + dot;
    ASSERT_EQ(expected, qal_find_dot_in_filename(path.c_str())) << path;
  });
}

TEST(PathRemoveExtensionModel, AgreesOnEveryShortPath) {
  for_all_texts("a./\\:", 7, [](const string &path) {
    InPlace cut{path};
    const std::size_t dot = later_search(path, '\\', '/');
    ASSERT_EQ(dot == string::npos ? 0 : 1, qal_remove_ext(cut.path())) << path;
    ASSERT_EQ(path.substr(0, dot), cut.path()) << path;
    ASSERT_TRUE(cut.guards_intact()) << path;
  });
}

TEST(PathAddModel, AgreesOnEveryShortList) {
  for_all_texts("a/:", 2, [](const string &base) {
    for_all_texts("b/", 2, [&](const string &one) {
      for_all_texts("c.", 2, [&](const string &two) {
        for (const string *start : {static_cast<const string *>(nullptr), &base}) {
          const char *first = start ? start->c_str() : nullptr;
          std::array<char, 32> list{};
          qal_addpath(list.data(), first, nullptr);
          ASSERT_EQ(join_model(start, {}), list.data());
          qal_addpath(list.data(), first, one.c_str(), nullptr);
          ASSERT_EQ(join_model(start, {one}), list.data());
          qal_addpath(list.data(), first, one.c_str(), two.c_str(), nullptr);
          ASSERT_EQ(join_model(start, {one, two}), list.data());
        }
      });
    });
  });
}

TEST(PathExpandModel, CopiesEveryShortPathWithoutTildeAtEverySize) {
  for_all_texts("a~/\\.", 5, [](const string &path) {
    if (path.substr(0, 1) == "~") return;
    for (int size = 1; size < 8; ++size) {
      Out out{size, ""};
      const bool fits = static_cast<int>(path.size()) < size;
      ASSERT_EQ(fits ? 0 : 6, qal_expand_pathname(path.c_str(), out.data(), size)) << path;
      ASSERT_EQ(fits ? path : "", out.text()) << path;
      ASSERT_TRUE(out.guards_intact()) << path;
    }
  });
}

}  // namespace

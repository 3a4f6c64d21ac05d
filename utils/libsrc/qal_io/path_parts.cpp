// The parts of a path: directory, last component, extension.
#include <qal/path.h>

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace {

constexpr const char *here = ".";
constexpr const char *network_root = "\\\\";

char separator_of(const char *path) { return std::strchr(path, '\\') ? '\\' : '/'; }

bool is_bare_root(std::string_view path, char separator) {
  return path == std::string_view{&separator, 1} || path == network_root;
}

bool is_blank(std::string_view path) { return path.empty() || path == " "; }

void strip_trailing(char *path, char separator) {
  std::size_t length = std::strlen(path);
  while (length > 0 && path[length - 1] == separator) --length;
  path[length] = '\0';
}

// The text that stands for the root. Every call of qal_dirname with a path writes its separator
// here, whatever it returns.
const char *root_text(char separator) {
  thread_local std::array<char, 2> text;
  text = {separator, '\0'};
  return text.data();
}

const char *cut_at_last(char *path, const char *root) {
  const char separator = *root;
  char *last = std::strrchr(path, separator);
  if (!last) return here;
  if (last == path) return root;
  // Deliberate: any backslash in second place counts as a network root, that of "a\b" too.
  if (separator == '\\' && last == path + 1) return network_root;
  *last = '\0';
  return path;
}

// Writes a piece at the end of a text that has room for it, and returns the new end.
char *append(char *end, const char *piece) {
  const std::size_t length = std::strlen(piece);
  std::memmove(end, piece, length);
  end[length] = '\0';
  return end + length;
}

bool is_ascii_letter(char byte) {
  return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

constexpr std::size_t kind_count = QAL_FILE_SHARED_LIBRARY + 1;
using Suffixes = std::array<const char *, kind_count>;

constexpr Suffixes unix_suffixes{"", ".o", ".a", ".so"};
constexpr Suffixes hpux_suffixes{"", ".o", ".a", ".sl"};
constexpr Suffixes macos_suffixes{"", ".o", ".a", ".dylib"};
constexpr Suffixes windows_suffixes{".exe", ".obj", ".lib", ".dll"};

struct Family {
  const char *word;
  const Suffixes &suffixes;
};

// Deliberate: the first word that the text holds decides, so "darwin", which holds "win", has the
// Windows suffixes.
constexpr std::array<Family, 8> families{{{"linux", unix_suffixes},
                                          {"sun", unix_suffixes},
                                          {"sgi", unix_suffixes},
                                          {"cpq", unix_suffixes},
                                          {"ibm", unix_suffixes},
                                          {"hp", hpux_suffixes},
                                          {"apple", macos_suffixes},
                                          {"win", windows_suffixes}}};

}  // namespace

const char *qal_dirname(char *path) {
  if (!path) return here;
  const char separator = separator_of(path);
  const char *const root = root_text(separator);
  if (is_bare_root(path, separator)) return path;
  strip_trailing(path, separator);
  return cut_at_last(path, root);
}

const char *qal_basename(char *path) {
  if (!path) return here;
  const char separator = separator_of(path);
  if (is_bare_root(path, separator)) return path;
  if (is_blank(path)) return here;
  strip_trailing(path, separator);
  const char *last = std::strrchr(path, separator);
  return last ? last + 1 : path;
}

int qal_path_is_absolute(const char *path) {
  if (!path || *path == '\0') return 0;
  if (*path == '/' || *path == '~') return 1;
  return is_ascii_letter(path[0]) && path[1] == ':' ? 1 : 0;
}

int qal_addpath(char *dst, const char *base, ...) {
  if (!dst) return QAL_STATUS_OK;
  char *end = append(dst, base ? base : "");
  const char *separator = base ? ":" : "";
  va_list components;
  va_start(components, base);
  while (const char *component = va_arg(components, const char *)) {
    end = append(end, separator);
    end = append(end, component);
    separator = "/";
  }
  va_end(components);
  return QAL_STATUS_OK;
}

char *qal_find_dot_in_filename(const char *path) {
  if (!path) return nullptr;
  const std::size_t last = std::string_view{path}.find_last_of("./\\");
  if (last == std::string_view::npos || path[last] != '.') return nullptr;
  return const_cast<char *>(path + last);
}

int qal_remove_ext(char *path) {
  char *dot = qal_find_dot_in_filename(path);
  if (!dot) return 0;
  *dot = '\0';
  return 1;
}

const char *qal_file_extension(const char *arch, unsigned kind) {
  if (kind >= kind_count) return nullptr;
  for (const Family &family : families) {
    if (std::strstr(arch ? arch : "apple", family.word)) return family.suffixes[kind];
  }
  return nullptr;
}

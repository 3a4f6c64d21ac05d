// The text helpers: names, the saved shell command, version texts.
#include <qal/text.h>
#include <strings.h>
#include <kalmora/helpers.hpp>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

constexpr std::size_t part_name_max = 80;

// The process's saved command, for one thread at a time.
char shell_command[1024];

char lowered(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 128 && std::isupper(byte) ? static_cast<char>(std::tolower(byte)) : c;
}

void store_shell_command(const char *text) {
  const std::size_t length = strnlen(text, sizeof shell_command - 1);
  std::memmove(shell_command, text, length);  // `text` may be the stored text itself
  shell_command[length] = '\0';
}

void copy_part_name(char *to, const char *from) {
  const std::size_t length = strnlen(from, part_name_max);
  std::memcpy(to, from, length);
  to[length] = '\0';
}

void exchange_part_names(char *a, char *b) {
  char kept[part_name_max + 1];
  copy_part_name(kept, a);
  copy_part_name(a, b);
  copy_part_name(b, kept);
}

// One bubble pass over the first `count` names. Returns whether any moved.
bool exchange_neighbours(char **names, int count) {
  bool exchanged = false;
  for (int i = 0; i + 1 < count; ++i) {
    if (std::strcmp(names[i], names[i + 1]) <= 0) continue;
    exchange_part_names(names[i], names[i + 1]);
    exchanged = true;
  }
  return exchanged;
}

// Takes the number before `end` off `rest`, and `end` too. Returns 0 when `end` is missing.
int take_number(std::string_view &rest, char end) {
  const std::size_t length = rest.find(end);
  if (length == rest.npos) {
    rest = {};
    return 0;
  }
  const long number = std::strtol(rest.data(), nullptr, 10);  // stops at `end` at the latest
  rest.remove_prefix(length + 1);
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

char version_letter(std::string_view text) {
  const std::size_t open = text.find('(');
  if (open == text.npos) return 'a';
  const std::string_view inside = text.substr(open + 1);
  const std::size_t at = inside.size() > 1 && inside[1] == '-' ? 2 : 0;
  return at < inside.size() ? inside[at] : 'a';
}

template <typename Value>
void report(Value *out, Value value) {
  if (out) *out = value;
}

}  // namespace

int replace_illegal(char *name) {
  // Deliberate: the dot and the hyphen are replaced as well.
  constexpr std::string_view illegal = " !\"#$'()*+,-./:<>?@[\\]^|";
  int replaced = 0;
  for (char *at = name; at && *at; ++at) {
    if (illegal.find(*at) == illegal.npos) continue;
    *at = '_';
    replaced = 1;
  }
  return replaced;
}

int readercmp(const char *a, const char *b) {
  constexpr int not_comparable = 1;
  char texts[2][part_name_max + 1];
  const char *const names[2] = {a, b};
  for (int i = 0; i < 2; ++i) {
    if (!names[i] || strnlen(names[i], part_name_max + 1) > part_name_max) return not_comparable;
    copy_part_name(texts[i], names[i]);
    qal_strrepl(texts[i], " ", "", QAL_REPLACE_ALL);
  }
  return strcasecmp(texts[0], texts[1]);
}

char *lower_case(const char *text) {
  char *const copy = text ? strdup(text) : nullptr;
  for (char *at = copy; at && *at; ++at) *at = lowered(*at);
  return copy;
}

char *change_rsh(char *text, int mode) {
  if (mode == KALMORA_RSH_SET) {
    if (text) store_shell_command(text);
    return shell_command;
  }
  if (mode == KALMORA_RSH_GET && text)
    std::memmove(text, shell_command, std::strlen(shell_command) + 1);
  return text;
}

void sort_master_part_list(FILE_PART_LIST *list) {
  if (!list || !list->names) return;
  for (int count = list->count; count > 1; --count) {
    if (!exchange_neighbours(list->names, count)) return;
  }
}

void version_number_from_version_string(const char *text, int *major, int *minor, int *patch,
                                        char *letter) {
  const std::string_view version = text ? text : "";
  std::string_view rest = version;
  report(major, take_number(rest, '.'));
  report(minor, take_number(rest, '.'));
  report(patch, take_number(rest, '('));
  report(letter, version_letter(version));
}

void sub_string_in_string(const char *text, const char *part, int *first, int *last) {
  const std::string_view whole = text ? text : "";
  const std::size_t at = text && part ? whole.find(part) : whole.npos;
  const bool found = at != whole.npos;
  report(first, found ? static_cast<int>(at) : KALMORA_NO_MATCH);
  report(last, found ? static_cast<int>(at + std::strlen(part)) - 1 : KALMORA_NO_MATCH);
}

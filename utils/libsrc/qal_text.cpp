// Copying, searching, changing and printing text.
#include <qal/text.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "internal/folded_search.hpp"
#include "internal/move_bytes.hpp"

namespace {

using qal::internal::FoldedSearch;
using qal::internal::Folding;
using qal::internal::move_bytes;
namespace platform = qal::internal::platform;

// Called through volatile pointers: the optimiser assumes that toupper and tolower map ASCII to
// ASCII, and removes comparisons for that reason. Turkish locales map it elsewhere.
int (*volatile const platform_toupper)(int) = std::toupper;
int (*volatile const platform_tolower)(int) = std::tolower;

// Copies as much of `source` as fits and sets all that follows to NUL, at least one byte. The
// source may overlap the room.
void fill(std::span<char> room, const char *source) {
  const std::size_t length = strnlen(source, room.size() - 1);
  move_bytes(room.data(), source, length);
  std::ranges::fill(room.subspan(length), '\0');
}

// Moves a piece to `out` and returns the place behind it.
inline char *put(char *out, std::string_view piece) {
  if (out != piece.data()) move_bytes(out, piece.data(), piece.size());
  return out + piece.size();
}

char to_upper_ascii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

char to_lower_ascii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

char to_seven_bits(char c) { return static_cast<char>(c & 0x7f); }

void change_all(char *string, char (*changed)(char)) {
  for (; *string != '\0'; ++string) *string = changed(*string);
}

struct Replacing {
  std::string_view find;
  std::string_view replacement;
  std::size_t limit;  // most replacements to make

  bool grows() const { return replacement.size() > find.size(); }
};

// A search text is seldom longer than a word: a loop over its bytes is faster than memcmp.
inline bool begins(std::string_view text, std::size_t at, std::string_view prefix) {
  if (text.size() - at < prefix.size()) return false;
  std::size_t same = 0;
  while (same < prefix.size() && text[at + same] == prefix[same]) ++same;
  return same == prefix.size();
}

// Not string_view::find, whose work at worst is the product of both lengths, and not strstr, which
// may measure the whole rest of the text for each match.
std::size_t position_from(std::size_t at, std::string_view text, std::string_view find) {
  const void *match = memmem(text.data() + at, text.size() - at, find.data(), find.size());
  if (match == nullptr) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char *>(match) - text.data());
}

// Mostly the first occurrence of the first byte is a match already, which saves the search.
inline std::size_t position_in(std::string_view text, std::string_view find) {
  const std::size_t first = text.find(find.front());
  if (first == std::string_view::npos || begins(text, first, find)) return first;
  return position_from(first + 1, text, find);
}

std::size_t count_matches(std::string_view text, const Replacing &job) {
  std::size_t count = 0;
  for (; count < job.limit; ++count) {
    const std::size_t skipped = position_in(text, job.find);
    if (skipped == std::string_view::npos) break;
    text.remove_prefix(skipped + job.find.size());
  }
  return count;
}

// Moves a text to the end of the room that it will fill when it has grown. Rewriting it from the
// front then never overwrites what is still unread.
std::string_view moved_to_grown_end(std::string_view text, char *string, const Replacing &job) {
  const std::size_t growth = count_matches(text, job) * (job.replacement.size() - job.find.size());
  put(string + growth, text);
  return {string + growth, text.size()};
}

// Writes `unread`, which begins at `out` or behind it, to `out` with its matches replaced. Returns
// their number.
std::size_t rewrite(char *out, std::string_view unread, const Replacing &job) {
  std::size_t count = 0;
  for (; count < job.limit; ++count) {
    const std::size_t kept = position_in(unread, job.find);
    if (kept == std::string_view::npos) break;
    out = put(out, unread.substr(0, kept));
    out = put(out, job.replacement);
    unread.remove_prefix(kept + job.find.size());
  }
  if (count > 0) *put(out, unread) = '\0';
  return count;
}

// Copies what lies between the leading and the trailing run of unwanted characters.
template <typename Unwanted>
int strip_both_ends(const char *src, char *dst, Unwanted unwanted) {
  const char *last = src + std::strlen(src);
  const char *first = std::find_if_not(src, last, unwanted);
  while (last != first && unwanted(last[-1])) --last;
  const auto length = static_cast<std::size_t>(last - first);
  *put(dst, {first, length}) = '\0';
  return static_cast<int>(length);
}

// Sets the last byte to NUL. Returns whether it was NUL already or a NUL behind the first byte ends
// the text earlier: when the output is shorter, the last byte may hold anything. Deliberate: the
// first byte is not searched, so the NUL of an empty output is not found.
bool ensure_terminated(std::span<char> buffer) {
  if (buffer.back() == '\0') return true;
  buffer.back() = '\0';
  const auto inner = buffer.subspan(1, buffer.size() - 2);
  return std::ranges::find(inner, '\0') != inner.end();
}

}  // namespace

char *qal_strncpy(char *dst, const char *src, int size) {
  if (size >= 1) fill({dst, static_cast<std::size_t>(size)}, src);
  return dst;
}

char *qal_strncat(char *dst, const char *src, unsigned size) {
  const std::size_t length = std::strlen(dst);
  if (length < size) fill({dst + length, size - length}, src);
  // Deliberate: not `dst`; callers continue at the part that was appended.
  return dst + length;
}

char *qal_strchr(const char *string, int character) {
  return const_cast<char *>(std::strchr(string, character));
}

char *qal_strrchr(const char *string, int character) {
  return const_cast<char *>(std::strrchr(string, character));
}

unsigned qal_toupper(unsigned character) {
  if (character >= platform::ascii_count) return character;
  return static_cast<unsigned>(platform_toupper(static_cast<int>(character)));
}

unsigned qal_tolower(unsigned character) {
  if (character >= platform::ascii_count) return character;
  return static_cast<unsigned>(platform_tolower(static_cast<int>(character)));
}

char *qal_strcasestr(const char *haystack, const char *needle) {
  // Deliberate: an empty needle is found nowhere. strstr finds it at the beginning.
  if (*needle == '\0') return nullptr;
  const Folding folded;
  const int first = folded(*needle);
  // Most texts end soon; preparing the wide search would take longer than this loop does.
  constexpr int simple_places = 128;
  for (int place = 0; place < simple_places; ++place, ++haystack) {
    if (*haystack == '\0') return nullptr;
    if (folded(*haystack) != first) continue;
    if (folded.begins(haystack, needle)) return const_cast<char *>(haystack);
  }
  return const_cast<char *>(FoldedSearch{folded, needle}.in(haystack));
}

void qal_changecase(char *string, int mode) {
  if (mode == QAL_CASE_UPPER) change_all(string, to_upper_ascii);
  if (mode == QAL_CASE_LOWER) change_all(string, to_lower_ascii);
  if (mode == QAL_CASE_SEVEN_BITS) change_all(string, to_seven_bits);
}

int qal_strrepl(char *string, const char *find, const char *replacement, int flags) {
  if (find == nullptr || *find == '\0') return 0;
  const Replacing job{.find = find,
                      .replacement = replacement != nullptr ? replacement : "",
                      .limit = (flags & QAL_REPLACE_FIRST) != 0 ? 1 : SIZE_MAX};
  std::string_view unread{string};
  if (job.grows()) unread = moved_to_grown_end(unread, string, job);
  return static_cast<int>(rewrite(string, unread, job));
}

int qal_strip_at_the_chars(char *string, const char *set) {
  const std::size_t kept = std::strcspn(string, set);
  std::memset(string + kept, '\0', std::strlen(string + kept));
  return static_cast<int>(kept);
}

int qal_strip_pre_post_chars(const char *src, char *dst, int character) {
  const auto unwanted_byte = static_cast<unsigned char>(character);
  return strip_both_ends(src, dst,
                         [=](char c) { return static_cast<unsigned char>(c) == unwanted_byte; });
}

int qal_strip_pre_post_spaces(const char *src, char *dst) {
  return strip_both_ends(src, dst,
                         [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
}

int qal_snprintf(char *buffer, size_t size, const char *format, ...) {
  if (buffer == nullptr || size == 0) return QAL_SNPRINTF_NOT_WHOLE;
  va_list arguments;
  va_start(arguments, format);
  const int printed = std::vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  if (printed < 0 || static_cast<std::size_t>(printed) >= size) {
    buffer[size - 1] = '\0';
    return QAL_SNPRINTF_NOT_WHOLE;
  }
  return ensure_terminated({buffer, size}) ? QAL_SNPRINTF_WHOLE : QAL_SNPRINTF_NOT_WHOLE;
}

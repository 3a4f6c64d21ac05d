// Two wildcard matchers that never recurse. The tokens between two stars are matched at the first
// place where they fit and stay there: from there the second star can reach every place that it
// could reach from a later match.
#include <qal/wildcard.h>

#include <array>
#include <cctype>
#include <climits>
#include <cstddef>
#include <cstring>

namespace {

using Byte = unsigned char;

constexpr std::size_t name_limit = 1024;  // names of this length and more match nothing

// A member of a bracket expression: the ends of a range, equal for a single byte.
struct Member {
  Byte low;
  Byte high;
};

const Byte *read_set_byte(const Byte *at, bool escapes, Byte &byte) {
  if (escapes && *at == '\\') ++at;
  byte = *at;
  return byte ? at + 1 : nullptr;
}

const Byte *read_member(const Byte *at, bool escapes, Member &member) {
  at = read_set_byte(at, escapes, member.low);
  member.high = member.low;
  if (!at || at[0] != '-' || at[1] == ']') return at;
  return read_set_byte(at + 1, escapes, member.high);
}

// Reads a set from the position after its bracket. Returns the position after the set, or null when
// it does not match or is never closed.
template <typename Contains>
const Byte *match_set(const Byte *at, bool escapes, bool first_is_member, Contains contains) {
  const bool negated = *at == '!' || *at == '^';
  if (negated) ++at;
  bool found = false;
  for (bool forced = first_is_member; forced || *at != ']'; forced = false) {
    Member member;
    at = read_member(at, escapes, member);
    if (!at) return nullptr;
    found = found || contains(member);
  }
  return found != negated ? at + 1 : nullptr;
}

struct SignedRange {
  signed char byte;
  bool operator()(const Member &member) const {
    // Deliberate: bytes above 0x7F are negative here, so [a-\xFF] holds nothing.
    return static_cast<signed char>(member.low) <= byte &&
           byte <= static_cast<signed char>(member.high);
  }
};

bool is_literal(Byte token) { return token != '?' && token != '[' && token != '\\'; }

const Byte *match_literal(const Byte *pattern, Byte byte) {
  return *pattern == byte ? pattern + 1 : nullptr;
}

// Not inlined: most of a pattern is letters, and they are compared faster without this code.
__attribute__((noinline)) const Byte *match_special(const Byte *pattern, Byte byte) {
  if (*pattern == '?') return pattern + 1;
  if (*pattern == '\\') return match_literal(pattern + 1, byte);
  return match_set(pattern + 1, true, true, SignedRange{static_cast<signed char>(byte)});
}

// Matches one token that is no star with one byte of the name. Returns the position after the
// token, or null.
const Byte *match_token(const Byte *pattern, Byte byte) {
  return is_literal(*pattern) ? match_literal(pattern, byte) : match_special(pattern, byte);
}

// A table, because the rest of the pattern is measured at every star and is mostly such bytes.
constexpr auto is_one_byte_wide = [] {
  std::array<bool, UCHAR_MAX + 1> is{};
  is.fill(true);
  is['\0'] = is['*'] = is['['] = is['\\'] = false;
  return is;
}();

// Returns the position after a set whose members begin at `at`, or null when it is never closed.
const Byte *behind_set(const Byte *at) {
  if (*at == '!' || *at == '^') ++at;
  Member ignored;
  do {
    at = read_member(at, true, ignored);
  } while (at && *at != ']');
  return at ? at + 1 : nullptr;
}

// Returns the position after a token that is no star, or null when the token is never complete.
const Byte *behind_token(const Byte *pattern) {
  if (*pattern == '[') return behind_set(pattern + 1);
  if (*pattern != '\\') return pattern + 1;
  return pattern[1] ? pattern + 2 : nullptr;
}

constexpr std::ptrdiff_t open_width = -1;

// The number of bytes that the pattern matches, or open_width if it holds a star or a token that is
// never complete. A star counts even where it is literal: finding that out would take longer.
__attribute__((noinline)) std::ptrdiff_t width_of_tokens(const Byte *pattern) {
  if (std::strchr(reinterpret_cast<const char *>(pattern), '*')) return open_width;
  std::ptrdiff_t width = 0;
  for (; pattern && *pattern; ++width) pattern = behind_token(pattern);
  return pattern ? width : open_width;
}

// As width_of_tokens; a pattern without sets and escapes takes the fast path.
std::ptrdiff_t width_of(const Byte *pattern) {
  const Byte *at = pattern;
  while (is_one_byte_wide[*at]) ++at;
  if (!*at) return at - pattern;
  return *at == '*' ? open_width : width_of_tokens(pattern);
}

class NameMatcher {
 public:
  NameMatcher(const Byte *pattern, const Byte *name) : pattern_(pattern), name_(name) {}

  // Up to the first star each token matches one byte. Most names differ there, so the name is
  // measured only afterwards.
  bool matches() {
    std::size_t room = name_limit;
    for (; *pattern_ != '*'; ++name_, --room) {
      if (room == 0) return false;
      if (!*name_) return !*pattern_;
      pattern_ = match_token(pattern_, *name_);
      if (!pattern_) return false;
    }
    const std::size_t length = strnlen(reinterpret_cast<const char *>(name_), room);
    end_ = name_ + length;
    return length != room && matches_from_star();
  }

 private:
  bool matches_from_star() {
    for (;;) {
      if (*pattern_ == '*') {
        if (!enter_star()) return false;
        const std::ptrdiff_t width = width_of(pattern_);
        if (width != open_width) return ends_in(width);
        behind_star_ = pattern_;
        if (!retry_from(name_)) return false;
      }
      // The name has ended; a later start behind the star would leave even less of it.
      if (name_ == end_) return !*pattern_;
      if (const Byte *next = match_token(pattern_, *name_)) {
        pattern_ = next;
        ++name_;
      } else if (!retry_from(tried_ + 1)) {
        return false;
      }
    }
  }

  // Takes a run of stars and question marks. False when the name is too short for it.
  bool enter_star() {
    for (; *pattern_ == '*' || *pattern_ == '?'; ++pattern_) {
      if (*pattern_ == '?' && name_++ == end_) return false;
    }
    return true;
  }

  // Whether the rest of the pattern matches the last bytes of the name.
  bool ends_in(std::ptrdiff_t width) {
    if (end_ - name_ < width) return false;
    for (name_ = end_ - width; pattern_ && name_ != end_; ++name_) {
      pattern_ = match_token(pattern_, *name_);
    }
    return pattern_ != nullptr;
  }

  // Goes to the first place from `from` on where the token behind the star can match.
  bool retry_from(const Byte *from) {
    pattern_ = behind_star_;
    tried_ = name_ =
        *pattern_ == '[' ? from : find(*pattern_ == '\\' ? pattern_[1] : *pattern_, from);
    return name_ != nullptr;
  }

  const Byte *find(Byte anchor, const Byte *from) const {
    return static_cast<const Byte *>(
        std::memchr(from, anchor, static_cast<std::size_t>(end_ - from)));
  }

  const Byte *pattern_;
  const Byte *name_;
  const Byte *end_ = nullptr;
  const Byte *behind_star_ = nullptr;  // the pattern behind the last star
  const Byte *tried_ = nullptr;        // the place in the name where it was tried last
};

Byte ascii_upper(Byte byte) {
  return byte >= 'a' && byte <= 'z' ? static_cast<Byte>(byte - 'a' + 'A') : byte;
}

struct UnsignedRange {
  Byte byte;
  bool operator()(const Member &member) const { return member.low <= byte && byte <= member.high; }
};

struct FoldedRange {
  Byte byte;
  bool operator()(const Member &member) const {
    return UnsignedRange{ascii_upper(byte)}({ascii_upper(member.low), ascii_upper(member.high)});
  }
};

enum class Outcome { match, mismatch, star, passed };

struct Cursor {
  const Byte *pattern;
  const Byte *string;
  bool decided = false;  // no later attempt behind the same star can end otherwise
};

class PathMatcher {
 public:
  PathMatcher(const Byte *string, unsigned flags) : string_(string), flags_(flags) {}

  bool matches(const Byte *pattern) {
    Cursor cursor{pattern, string_};
    Outcome outcome = walk(cursor);
    // Deliberate: behind a star that has to search, a leading period is an ordinary byte.
    flags_ &= ~static_cast<unsigned>(QAL_FNM_PERIOD);
    while (outcome == Outcome::star) outcome = search(cursor);
    return outcome == Outcome::match;
  }

 private:
  // Tries what follows a star at each place that the star allows. When nothing matches but the next
  // star is reached, the cursor is left there.
  //
  // With QAL_FNM_TRAILING_SLASH later places are tried even after one has reached the next star: an
  // attempt from there may run into the end of the string and match.
  Outcome search(Cursor &cursor) const {
    const Byte anchor = first_literal(cursor.pattern);
    Cursor leftmost{nullptr, nullptr};
    bool settled = false;
    for (const Byte *at = cursor.string; *at && !settled; ++at) {
      settled = is_separator(*at);
      if (anchor && *at != anchor) continue;
      Cursor attempt{cursor.pattern, at};
      const Outcome outcome = walk(attempt);
      if (outcome == Outcome::match) return outcome;
      if (outcome == Outcome::star && !leftmost.pattern) leftmost = attempt;
      settled = settled || attempt.decided || (leftmost.pattern && !has(QAL_FNM_TRAILING_SLASH));
    }
    if (!leftmost.pattern) return Outcome::mismatch;
    cursor = leftmost;
    return Outcome::star;
  }

  // The only byte that can match next, or 0 if there are several.
  Byte first_literal(const Byte *pattern) const {
    const bool open = *pattern == '?' || *pattern == '[' || *pattern == '\\';
    return open || has(QAL_FNM_CASEFOLD) ? Byte{0} : *pattern;
  }

  // Follows the pattern to the result, or to a star that has to search.
  Outcome walk(Cursor &cursor) const {
    const Byte *const begin = cursor.string;
    Outcome outcome;
    do {
      outcome = step(cursor, begin);
    } while (outcome == Outcome::passed);
    return outcome;
  }

  Outcome step(Cursor &cursor, const Byte *begin) const {
    switch (*cursor.pattern) {
      case '\0':
        return may_end(*cursor.string) ? Outcome::match : Outcome::mismatch;
      case '*':
        return pass_star(cursor);
      case '?':
        return pass_any(cursor);
      case '[':
        return pass_set(cursor);
      default:
        return pass_literal(cursor, begin);
    }
  }

  bool may_end(Byte next) const { return !next || (next == '/' && has(QAL_FNM_LEADING_DIR)); }

  Outcome pass_star(Cursor &cursor) const {
    if (at_hidden_period(cursor.string)) return Outcome::mismatch;
    while (*cursor.pattern == '*') ++cursor.pattern;
    if (!*cursor.pattern) return take_rest(cursor);
    if (is_separator(*cursor.pattern)) return jump_to_separator(cursor);
    return *cursor.string ? Outcome::star : Outcome::mismatch;
  }

  Outcome take_rest(Cursor &cursor) const {
    cursor.decided = true;
    if (!has(QAL_FNM_PATHNAME) || has(QAL_FNM_LEADING_DIR)) return Outcome::match;
    return next_slash(cursor.string) ? Outcome::mismatch : Outcome::match;
  }

  // A star before a separator has no choice: it takes everything up to the next one.
  Outcome jump_to_separator(Cursor &cursor) const {
    cursor.decided = true;
    cursor.string = next_slash(cursor.string);
    return cursor.string ? Outcome::passed : Outcome::mismatch;
  }

  Outcome pass_any(Cursor &cursor) const {
    const Byte byte = *cursor.string;
    if (!byte || is_separator(byte) || at_hidden_period(cursor.string)) return Outcome::mismatch;
    ++cursor.pattern;
    ++cursor.string;
    return Outcome::passed;
  }

  Outcome pass_set(Cursor &cursor) const {
    const Byte byte = *cursor.string;
    if (!byte || is_separator(byte)) return Outcome::mismatch;
    const Byte *const members = cursor.pattern + 1;
    const Byte *const after = has(QAL_FNM_CASEFOLD)
                                  ? match_set(members, escapes(), false, FoldedRange{byte})
                                  : match_set(members, escapes(), false, UnsignedRange{byte});
    if (!after) return Outcome::mismatch;
    cursor.pattern = after;
    ++cursor.string;
    return Outcome::passed;
  }

  Outcome pass_literal(Cursor &cursor, const Byte *begin) const {
    if (*cursor.pattern == '\\' && escapes() && cursor.pattern[1]) ++cursor.pattern;
    const Byte literal = *cursor.pattern;
    if (!equal(literal, *cursor.string)) {
      return tolerates(literal, begin, cursor.string) ? Outcome::match : Outcome::mismatch;
    }
    ++cursor.pattern;
    ++cursor.string;
    return Outcome::passed;
  }

  // `begin` is where the current attempt began: behind a star, the rest of the string counts as the
  // whole.
  bool tolerates(Byte literal, const Byte *begin, const Byte *string) const {
    if (!has(QAL_FNM_TRAILING_SLASH) || *string || string == begin) return false;
    // Deliberate: the slash need not be the pattern's last byte, and a lone "/" tolerates any
    // literal.
    return literal == '/' || (*begin == '/' && string == begin + 1);
  }

  bool equal(Byte literal, Byte byte) const {
    return literal == byte ||
           (has(QAL_FNM_CASEFOLD) && std::tolower(literal) == std::tolower(byte));
  }

  bool at_hidden_period(const Byte *string) const {
    if (*string != '.' || !has(QAL_FNM_PERIOD)) return false;
    return string == string_ || is_separator(string[-1]);
  }

  static const Byte *next_slash(const Byte *string) {
    return reinterpret_cast<const Byte *>(std::strchr(reinterpret_cast<const char *>(string), '/'));
  }

  bool is_separator(Byte byte) const { return byte == '/' && has(QAL_FNM_PATHNAME); }
  bool escapes() const { return !has(QAL_FNM_NOESCAPE); }
  bool has(unsigned flag) const { return (flags_ & flag) != 0; }

  const Byte *string_;
  unsigned flags_;
};

}  // namespace

int zul_fnmatch(const unsigned char *pattern, const unsigned char *name) {
  if (!pattern || !name) return QAL_FNM_NOMATCH;
  return NameMatcher(pattern, name).matches() ? QAL_FNM_MATCH : QAL_FNM_NOMATCH;
}

int qal_fnmatch(const unsigned char *pattern, const char *string, unsigned flags) {
  if (!pattern || !string) return QAL_FNM_NOMATCH;
  PathMatcher matcher(reinterpret_cast<const Byte *>(string), flags);
  return matcher.matches(pattern) ? QAL_FNM_MATCH : QAL_FNM_NOMATCH;
}

int qal_fnmatch_pathnames(const unsigned char *pattern, const char *string, unsigned flags) {
  return qal_fnmatch(pattern, string, flags);
}

// Slow reference models of the two matchers, recursive at every star. The tests and the fuzz target
// compare the library with them.
#pragma once

#include <qal/wildcard.h>

#include <cctype>

namespace qal::test {

using ModelByte = unsigned char;

inline bool model_in_signed_range(ModelByte low, ModelByte byte, ModelByte high) {
  const auto as_signed = [](ModelByte value) { return value < 128 ? int{value} : value - 256; };
  return as_signed(low) <= as_signed(byte) && as_signed(byte) <= as_signed(high);
}

// Both answers of a set: whether it is well formed and matched, and what follows it.
struct ModelSet {
  bool matched;
  const ModelByte *after;
};

inline ModelSet model_small_set(const ModelByte *pattern, ModelByte byte) {
  constexpr ModelSet failed{false, nullptr};
  ++pattern;
  bool negated = false;
  if (*pattern == '^' || *pattern == '!') {
    negated = true;
    ++pattern;
  }
  bool member_matched = false;
  bool first = true;
  while (first || *pattern != ']') {
    first = false;
    if (*pattern == '\\') ++pattern;
    if (*pattern == '\0') return failed;
    const ModelByte low = *pattern++;
    ModelByte high = low;
    if (*pattern == '-' && pattern[1] != ']') {
      ++pattern;
      if (*pattern == '\\') ++pattern;
      if (*pattern == '\0') return failed;
      high = *pattern++;
    }
    if (model_in_signed_range(low, byte, high)) {
      member_matched = true;
      // The rest only has to be closed.
      while (*pattern != ']') {
        if (*pattern == '\\') ++pattern;
        if (*pattern == '\0') return failed;
        ++pattern;
      }
    }
  }
  return {member_matched != negated, pattern + 1};
}

inline bool model_zul_fnmatch(const ModelByte *pattern, const ModelByte *name) {
  if (*pattern == '\0') return *name == '\0';
  if (*pattern == '\\') {
    if (pattern[1] == '\0' || pattern[1] != *name) return false;
    return model_zul_fnmatch(pattern + 2, name + 1);
  }
  if (*pattern == '?') return *name != '\0' && model_zul_fnmatch(pattern + 1, name + 1);
  if (*pattern == '[') {
    if (*name == '\0') return false;
    const ModelSet set = model_small_set(pattern, *name);
    return set.matched && model_zul_fnmatch(set.after, name + 1);
  }
  if (*pattern == '*') {
    while (*pattern == '*' || *pattern == '?') {
      if (*pattern == '?') {
        if (*name == '\0') return false;
        ++name;
      }
      ++pattern;
    }
    if (*pattern == '\0') return true;
    const ModelByte anchor = *pattern == '\\' ? pattern[1] : *pattern;
    const bool anywhere = *pattern == '[';
    for (; *name != '\0'; ++name) {
      if ((anywhere || *name == anchor) && model_zul_fnmatch(pattern, name)) return true;
    }
    return false;
  }
  return *pattern == *name && model_zul_fnmatch(pattern + 1, name + 1);
}

inline ModelByte model_fold(ModelByte byte, unsigned flags) {
  const bool lower = byte >= 'a' && byte <= 'z';
  return (flags & QAL_FNM_CASEFOLD) && lower ? static_cast<ModelByte>(byte - 32) : byte;
}

inline ModelSet model_full_set(const ModelByte *pattern, ModelByte byte, unsigned flags) {
  constexpr ModelSet failed{false, nullptr};
  const bool escapes = !(flags & QAL_FNM_NOESCAPE);
  ++pattern;
  bool negated = false;
  if (*pattern == '^' || *pattern == '!') {
    negated = true;
    ++pattern;
  }
  byte = model_fold(byte, flags);
  bool member_matched = false;
  while (*pattern != ']') {
    if (*pattern == '\\' && escapes) ++pattern;
    if (*pattern == '\0') return failed;
    const ModelByte low = model_fold(*pattern++, flags);
    ModelByte high = low;
    if (*pattern == '-' && pattern[1] != '\0' && pattern[1] != ']') {
      ++pattern;
      if (*pattern == '\\' && escapes) ++pattern;
      if (*pattern == '\0') return failed;
      high = model_fold(*pattern++, flags);
    }
    if (low <= byte && byte <= high) member_matched = true;
  }
  return {member_matched != negated, pattern + 1};
}

class ModelMatch {
 public:
  explicit ModelMatch(unsigned flags) : flags_(flags) {}

  bool run(const ModelByte *pattern, const ModelByte *string) const {
    const ModelByte *const start = string;
    for (;;) {
      if (*pattern == '\0') {
        return *string == '\0' || (has(QAL_FNM_LEADING_DIR) && *string == '/');
      }
      if (*pattern == '?') {
        if (*string == '\0') return false;
        if (*string == '/' && has(QAL_FNM_PATHNAME)) return false;
        if (hidden(start, string)) return false;
        ++pattern;
        ++string;
      } else if (*pattern == '*') {
        if (hidden(start, string)) return false;
        while (*pattern == '*') ++pattern;
        if (*pattern == '\0') return star_at_end(string);
        if (!(*pattern == '/' && has(QAL_FNM_PATHNAME))) return search(pattern, string);
        while (*string != '\0' && *string != '/') ++string;
        if (*string == '\0') return false;
      } else if (*pattern == '[') {
        if (*string == '\0') return false;
        if (*string == '/' && has(QAL_FNM_PATHNAME)) return false;
        const ModelSet set = model_full_set(pattern, *string, flags_);
        if (!set.matched) return false;
        pattern = set.after;
        ++string;
      } else {
        if (*pattern == '\\' && !has(QAL_FNM_NOESCAPE) && pattern[1] != '\0') ++pattern;
        if (!same(*pattern, *string)) return tolerated(*pattern, start, string);
        ++pattern;
        ++string;
      }
    }
  }

 private:
  bool has(unsigned flag) const { return (flags_ & flag) == flag; }

  bool hidden(const ModelByte *start, const ModelByte *string) const {
    if (!has(QAL_FNM_PERIOD) || *string != '.') return false;
    if (string == start) return true;
    return has(QAL_FNM_PATHNAME) && string[-1] == '/';
  }

  bool star_at_end(const ModelByte *string) const {
    if (!has(QAL_FNM_PATHNAME) || has(QAL_FNM_LEADING_DIR)) return true;
    while (*string != '\0') {
      if (*string++ == '/') return false;
    }
    return true;
  }

  bool search(const ModelByte *pattern, const ModelByte *string) const {
    const ModelMatch rest(flags_ & ~static_cast<unsigned>(QAL_FNM_PERIOD));
    for (; *string != '\0'; ++string) {
      if (rest.run(pattern, string)) return true;
      if (*string == '/' && has(QAL_FNM_PATHNAME)) return false;
    }
    return false;
  }

  bool same(ModelByte literal, ModelByte byte) const {
    return literal == byte ||
           (has(QAL_FNM_CASEFOLD) && std::tolower(literal) == std::tolower(byte));
  }

  bool tolerated(ModelByte literal, const ModelByte *start, const ModelByte *string) const {
    if (!has(QAL_FNM_TRAILING_SLASH) || *string != '\0') return false;
    if (literal == '/' && *start != '\0') return true;
    return start[0] == '/' && start[1] == '\0' && string == start + 1;
  }

  unsigned flags_;
};

inline bool model_qal_fnmatch(const ModelByte *pattern, const char *string, unsigned flags) {
  return ModelMatch(flags).run(pattern, reinterpret_cast<const ModelByte *>(string));
}

}  // namespace qal::test

// The library's character classes beside those of the C library.
#pragma once

#include <gtest/gtest.h>
#include <qal/text.h>

#include <cctype>
#include <functional>
#include <string_view>
#include <vector>

namespace qal::test {

using CharClass = int (*)(int);

struct ClassPair {
  const char *name;
  CharClass ours;
  std::function<bool(int)> expected;
};

inline std::vector<ClassPair> classes() {
  const auto digit = [](int c) { return c >= '0' && c <= '9'; };
  const auto cased = [](int c) { return std::isupper(c) || std::islower(c); };
  return {
      {"ascii", qal_isascii, [](int c) { return c < 128; }},
      {"blank", qal_isblank, [](int c) { return c == 9 || c == 32; }},
      {"digit", qal_isdigit, digit},
      {"alnum", qal_isalnum, [=](int c) { return cased(c) || digit(c); }},
      {"alpha", qal_isalpha, cased},
      {"cntrl", qal_iscntrl, [](int c) { return std::iscntrl(c) != 0; }},
      {"graph", qal_isgraph, [](int c) { return std::isgraph(c) != 0; }},
      {"lower", qal_islower, [](int c) { return std::islower(c) != 0; }},
      {"print", qal_isprint, [](int c) { return std::isprint(c) != 0; }},
      {"punct", qal_ispunct, [](int c) { return std::ispunct(c) != 0; }},
      {"space", qal_isspace, [](int c) { return std::isspace(c) != 0; }},
      {"upper", qal_isupper, [](int c) { return std::isupper(c) != 0; }},
      {"xdigit", qal_isxdigit,
       [](int c) {
         return std::string_view{"0123456789abcdefABCDEF"}.find(static_cast<char>(c)) !=
                std::string_view::npos;
       }},
  };
}

inline void expect_classes_of_the_locale() {
  for (const auto &[name, ours, expected] : classes()) {
    for (int c = 0; c < 256; ++c) {
      ASSERT_EQ(ours(c), expected(c) ? 1 : 0) << name << " of " << c;
    }
  }
}

}  // namespace qal::test

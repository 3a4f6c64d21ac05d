// Both matchers against their recursive models: exhaustively over small alphabets, and over longer
// random texts.
#include <gtest/gtest.h>
#include <qal/wildcard.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/wildcard_model.hpp"

namespace {

using qal::test::model_qal_fnmatch;
using qal::test::model_zul_fnmatch;

// Sanitizers and builds without optimisation are too slow for the last letter.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__OPTIMIZE__)
constexpr std::size_t shorter = 1;
#else
constexpr std::size_t shorter = 0;
#endif

constexpr unsigned all_flags = 0x3F;
constexpr unsigned flags_without_letters_and_escapes =
    all_flags & ~static_cast<unsigned>(QAL_FNM_CASEFOLD | QAL_FNM_NOESCAPE);

const unsigned char *bytes(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.c_str());
}

// Every text over the letters with at most `longest` of them, the empty one first.
std::vector<std::string> texts_over(std::string_view letters, std::size_t longest) {
  std::vector<std::string> texts{""};
  std::size_t begin = 0;
  for (std::size_t length = 0; length < longest; ++length) {
    const std::size_t end = texts.size();
    for (std::size_t i = begin; i < end; ++i) {
      for (const char letter : letters) texts.push_back(texts[i] + letter);
    }
    begin = end;
  }
  return texts;
}

struct Grid {
  std::string_view pattern_letters;
  std::size_t longest_pattern;
  std::string_view name_letters;
  std::size_t longest_name;
};

void expect_small_equals_model(const Grid &grid) {
  const auto names = texts_over(grid.name_letters, grid.longest_name);
  for (const auto &pattern : texts_over(grid.pattern_letters, grid.longest_pattern - shorter)) {
    for (const auto &name : names) {
      const bool expected = model_zul_fnmatch(bytes(pattern), bytes(name));
      ASSERT_EQ(zul_fnmatch(bytes(pattern), bytes(name)) == 0, expected)
          << "pattern " << pattern << " name " << name;
    }
  }
}

void expect_full_equals_model(const Grid &grid, unsigned relevant_flags) {
  const auto names = texts_over(grid.name_letters, grid.longest_name);
  for (const auto &pattern : texts_over(grid.pattern_letters, grid.longest_pattern - shorter)) {
    for (unsigned flags = 0; flags <= all_flags; ++flags) {
      if (flags & ~relevant_flags) continue;
      for (const auto &name : names) {
        const bool expected = model_qal_fnmatch(bytes(pattern), name.c_str(), flags);
        ASSERT_EQ(qal_fnmatch(bytes(pattern), name.c_str(), flags) == 0, expected)
            << "pattern " << pattern << " string " << name << " flags " << flags;
      }
    }
  }
}

class RandomTexts {
 public:
  std::string over(std::string_view letters, std::size_t longest) {
    std::string text(below(longest + 1), ' ');
    std::generate(text.begin(), text.end(), [&] { return letters[below(letters.size())]; });
    return text;
  }

  // As above, with stars set in at most four places: the models take exponential time over stars.
  std::string pattern_over(std::string_view letters, std::size_t longest) {
    std::string pattern = over(letters, longest);
    for (std::size_t stars = pattern.empty() ? 0 : below(5); stars > 0; --stars) {
      pattern[below(pattern.size())] = '*';
    }
    return pattern;
  }

  unsigned flags() { return static_cast<unsigned>(below(all_flags + 1)); }

 private:
  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>{0, limit - 1}(engine_);
  }

  std::mt19937 engine_{20240229};
};

constexpr std::string_view pattern_letters = "ab?[]-!^\\/.";
constexpr std::string_view name_letters = "ab]-\\/.";
constexpr int random_rounds = shorter ? 100000 : 1000000;

TEST(SmallMatcherModel, AgreesOnEveryPatternOfAllTokens) {
  expect_small_equals_model({"ab*?[]-!\\", 5, "ab]-", 4});
}

TEST(SmallMatcherModel, AgreesOnEveryPatternOfManyStars) {
  expect_small_equals_model({"ab*?", 7, "ab", 7});
}

TEST(SmallMatcherModel, AgreesOnEverySet) {
  for (const auto &members : texts_over("a-]^\\\xF0", 5 - shorter)) {
    for (const std::string name : {"a", "-", "]", "^", "\\", "\xF0", "\x80", "b", "ab"}) {
      const std::string pattern = "[" + members + "]b*";
      ASSERT_EQ(zul_fnmatch(bytes(pattern), bytes(name)) == 0,
                model_zul_fnmatch(bytes(pattern), bytes(name)))
          << pattern << " " << name;
    }
  }
}

TEST(SmallMatcherModel, AgreesOnRandomTexts) {
  RandomTexts random;
  for (int round = 0; round < random_rounds; ++round) {
    const auto pattern = random.pattern_over(pattern_letters, 24);
    const auto name = random.over(name_letters, 24);
    ASSERT_EQ(zul_fnmatch(bytes(pattern), bytes(name)) == 0,
              model_zul_fnmatch(bytes(pattern), bytes(name)))
        << pattern << " " << name;
  }
}

TEST(FullMatcherModel, AgreesOnEveryPatternOfAllTokens) {
  expect_full_equals_model({"ab*?[]-!\\/.", 4, "a/.", 3}, all_flags);
}

TEST(FullMatcherModel, AgreesOnEveryPatternOfStarsAndSeparators) {
  expect_full_equals_model({"a*?/", 7, "a/.", 4}, flags_without_letters_and_escapes);
}

TEST(FullMatcherModel, AgreesOnEveryPatternOfStarsAndPeriods) {
  expect_full_equals_model({"a*?/.", 6, "a/.", 4}, flags_without_letters_and_escapes);
}

TEST(FullMatcherModel, AgreesOnEveryPatternOfStarsAndEscapes) {
  expect_full_equals_model({"a*\\/", 6, "a/\\", 4},
                           all_flags & ~static_cast<unsigned>(QAL_FNM_CASEFOLD));
}

TEST(FullMatcherModel, AgreesOnEveryPatternOfBothCases) {
  expect_full_equals_model({"aA*[-_]", 5, "aA_", 4}, QAL_FNM_PATHNAME | QAL_FNM_CASEFOLD);
}

TEST(FullMatcherModel, AgreesOnRandomTexts) {
  RandomTexts random;
  for (int round = 0; round < random_rounds; ++round) {
    const auto pattern = random.pattern_over(pattern_letters, 24);
    const auto name = random.over(name_letters, 24);
    const auto flags = random.flags();
    ASSERT_EQ(qal_fnmatch(bytes(pattern), name.c_str(), flags) == 0,
              model_qal_fnmatch(bytes(pattern), name.c_str(), flags))
        << pattern << " " << name << " flags " << flags;
  }
}

// Random texts seldom match over their whole length; these are made from the name.
TEST(FullMatcherModel, AgreesOnPatternsThatNearlyFit) {
  RandomTexts random;
  for (int round = 0; round < random_rounds; ++round) {
    const auto name = random.over("aaab/.", 16);
    auto pattern = random.pattern_over("a", name.size());
    for (std::size_t i = 0; i < pattern.size(); ++i) {
      if (pattern[i] != '*') pattern[i] = i % 5 == 4 ? '?' : name[i];
    }
    const auto flags = random.flags();
    ASSERT_EQ(qal_fnmatch(bytes(pattern), name.c_str(), flags) == 0,
              model_qal_fnmatch(bytes(pattern), name.c_str(), flags))
        << pattern << " " << name << " flags " << flags;
  }
}

// A matcher that tried every place of every star again would not finish these.
TEST(BothMatchers, EndOnManyStars) {
  const std::string name(1023, 'a');
  std::string pattern;
  for (int star = 0; star < 500; ++star) pattern += "*a";
  pattern += "*?[a]*[!b]*\\a*/b";
  EXPECT_EQ(zul_fnmatch(bytes(pattern), bytes(name)), 1);
  for (unsigned flags = 0; flags <= all_flags; ++flags) {
    EXPECT_EQ(qal_fnmatch(bytes(pattern), name.c_str(), flags), 1) << flags;
    EXPECT_EQ(qal_fnmatch(bytes("*" + pattern.substr(0, 1000)), name.c_str(), flags), 0) << flags;
  }
}

TEST(BothMatchers, EndOnStarsBetweenSeparators) {
  std::string name;
  std::string pattern;
  for (int piece = 0; piece < 340; ++piece) {
    name += "aa/";
    pattern += "*a*/";
  }
  for (unsigned flags = 0; flags <= all_flags; ++flags) {
    EXPECT_EQ(qal_fnmatch(bytes(pattern + "b"), name.c_str(), flags),
              flags & QAL_FNM_TRAILING_SLASH && !(flags & QAL_FNM_PATHNAME) ? 0 : 1)
        << flags;
    EXPECT_EQ(qal_fnmatch(bytes(pattern), name.c_str(), flags), 0) << flags;
  }
}

// A matcher that looked for the separator again from each place would take minutes.
TEST(FullMatcherModel, EndsOnLongStringsBeforeASeparator) {
  const std::string name = std::string(8 << 20, 'a') + "/c";
  EXPECT_EQ(qal_fnmatch(bytes("*[a]*/b"), name.c_str(), QAL_FNM_PATHNAME), 1);
  EXPECT_EQ(qal_fnmatch(bytes("*[a]*/c"), name.c_str(), QAL_FNM_PATHNAME), 0);
  EXPECT_EQ(qal_fnmatch(bytes("*[a]*"), name.c_str(), QAL_FNM_PATHNAME), 1);
}

}  // namespace

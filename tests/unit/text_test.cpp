#include <gtest/gtest.h>
#include <qal/text.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/char_classes.hpp"
#include "support/guarded_text.hpp"
#include "support/text_model.hpp"

namespace {

using qal::test::classes;
using qal::test::expect_classes_of_the_locale;
using qal::test::GuardedText;
using qal::test::raised;
using qal::test::replaced_slowly;

// A buffer of exactly this many bytes on the heap, so that a step past its end is noticed.
class Buffer {
 public:
  explicit Buffer(std::size_t size, char fill = '#') : bytes_(size, fill) {}
  Buffer(std::size_t size, std::string_view text) : Buffer(size) {
    std::ranges::copy(text, bytes_.begin());
    bytes_.at(text.size()) = '\0';
  }

  char *data() { return bytes_.data(); }
  int size() const { return static_cast<int>(bytes_.size()); }
  std::string text() const { return {bytes_.data()}; }
  std::string all() const { return {bytes_.begin(), bytes_.end()}; }

 private:
  std::vector<char> bytes_;
};

// Every text of up to `longest` characters of the alphabet.
std::vector<std::string> texts_of(std::string_view alphabet, std::size_t longest) {
  std::vector<std::string> texts{""};
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (texts[i].size() == longest) continue;
    for (const char c : alphabet) texts.push_back(texts[i] + c);
  }
  return texts;
}

TEST(TextClass, AnswersOneOrZeroForEveryByte) { expect_classes_of_the_locale(); }

TEST(TextClass, KnowsTheOrdinaryMembers) {
  EXPECT_EQ(qal_isalpha('q'), 1);
  EXPECT_EQ(qal_isalpha('5'), 0);
  EXPECT_EQ(qal_isalnum('5'), 1);
  EXPECT_EQ(qal_isalnum('_'), 0);
  EXPECT_EQ(qal_isspace('\n'), 1);
  EXPECT_EQ(qal_isblank('\n'), 0);
  EXPECT_EQ(qal_isblank('\t'), 1);
  EXPECT_EQ(qal_iscntrl(0x1f), 1);
  EXPECT_EQ(qal_iscntrl(' '), 0);
  EXPECT_EQ(qal_isgraph(' '), 0);
  EXPECT_EQ(qal_isprint(' '), 1);
  EXPECT_EQ(qal_ispunct('%'), 1);
  EXPECT_EQ(qal_islower('A'), 0);
  EXPECT_EQ(qal_isupper('A'), 1);
  EXPECT_EQ(qal_isxdigit('f'), 1);
  EXPECT_EQ(qal_isxdigit('g'), 0);
  EXPECT_EQ(qal_isascii(0x7f), 1);
  EXPECT_EQ(qal_isascii(0x80), 0);
}

TEST(TextClass, LooksOnlyAtTheLowByte) {
  for (const auto &[name, ours, expected] : classes()) {
    for (int c = 0; c < 256; ++c) {
      for (const int high : {0x100, 0x4100, 0x7fffff00, -0x100, -0x8000}) {
        ASSERT_EQ(ours(high + c), expected(c) ? 1 : 0) << name << " of " << c << " with " << high;
      }
    }
  }
}

TEST(TextCase, ConvertsCharactersBelow128) {
  for (unsigned c = 0; c < 128; ++c) {
    ASSERT_EQ(qal_toupper(c), static_cast<unsigned>(std::toupper(static_cast<int>(c))));
    ASSERT_EQ(qal_tolower(c), static_cast<unsigned>(std::tolower(static_cast<int>(c))));
  }
  EXPECT_EQ(qal_toupper('z'), unsigned{'Z'});
  EXPECT_EQ(qal_tolower('Z'), unsigned{'z'});
}

TEST(TextChangecase, RaisesAndLowersAsciiLettersOnly) {
  std::string every_byte;
  for (int c = 1; c < 256; ++c) every_byte += static_cast<char>(c);
  for (const int mode : {0, 1}) {
    Buffer text(256, every_byte);
    qal_changecase(text.data(), mode);
    for (int c = 1; c < 256; ++c) {
      int expected = c;
      if (mode == 0 && c >= 'a' && c <= 'z') expected = c - 32;
      if (mode == 1 && c >= 'A' && c <= 'Z') expected = c + 32;
      ASSERT_EQ(static_cast<unsigned char>(text.data()[c - 1]), expected) << "mode " << mode;
    }
  }
}

TEST(TextChangecase, ForcesSevenBitsInModeTwo) {
  Buffer text(6, "A\xc1z\xfa\x7f");
  qal_changecase(text.data(), 2);
  EXPECT_EQ(text.text(), "AAzz\x7f");
}

TEST(TextChangecase, ClearsBitSevenBehindAByteThatBecomesNul) {
  Buffer text(5, "a\x80\xe2\xe3");
  qal_changecase(text.data(), 2);
  EXPECT_EQ(text.all(), std::string("a\0bc\0", 5));
}

TEST(TextChangecase, DoesNothingInOtherModes) {
  for (const int mode : {-1, 3, 4, 256, 258}) {
    Buffer text(5, "aB\xc1z");
    qal_changecase(text.data(), mode);
    EXPECT_EQ(text.text(), "aB\xc1z");
  }
}

TEST(TextChangecase, AcceptsAnEmptyText) {
  for (const int mode : {0, 1, 2}) {
    Buffer text(1, "");
    qal_changecase(text.data(), mode);
    EXPECT_EQ(text.text(), "");
  }
}

TEST(TextStrncpy, CopiesAndFillsTheRestWithNul) {
  Buffer dst(8);
  EXPECT_EQ(qal_strncpy(dst.data(), "abc", 6), dst.data());
  EXPECT_EQ(dst.all(), std::string("abc\0\0\0##", 8));
}

TEST(TextStrncpy, CutsATextThatDoesNotFit) {
  Buffer dst(4);
  EXPECT_EQ(qal_strncpy(dst.data(), "abcdef", 4), dst.data());
  EXPECT_EQ(dst.text(), "abc");
}

TEST(TextStrncpy, TakesALengthThatJustFits) {
  Buffer dst(4);
  qal_strncpy(dst.data(), "abc", 4);
  EXPECT_EQ(dst.text(), "abc");
}

TEST(TextStrncpy, LeavesOnlyTheTerminatorInOneByte) {
  Buffer dst(2);
  qal_strncpy(dst.data(), "abc", 1);
  EXPECT_EQ(dst.all(), std::string("\0#", 2));
}

TEST(TextStrncpy, WritesNothingForASizeBelowOne) {
  for (const int size : {0, -1, -1024}) {
    Buffer dst(4);
    EXPECT_EQ(qal_strncpy(dst.data(), "abc", size), dst.data());
    EXPECT_EQ(dst.all(), "####");
  }
}

TEST(TextStrncpy, LooksNoFurtherThanItCopies) {
  Buffer src(3, 'x');  // no terminator
  Buffer dst(4);
  qal_strncpy(dst.data(), src.data(), 4);
  EXPECT_EQ(dst.text(), "xxx");
}

TEST(TextStrncpy, CopiesWithinOneBuffer) {
  Buffer forward(8, "abcdefg");
  qal_strncpy(forward.data(), forward.data() + 2, 8);
  EXPECT_EQ(forward.all(), std::string("cdefg\0\0\0", 8));
  Buffer backward(10, "abcdefg");
  qal_strncpy(backward.data() + 2, backward.data(), 8);
  EXPECT_EQ(backward.text(), "ababcdefg");
  Buffer same(4, "abc");
  qal_strncpy(same.data(), same.data(), 4);
  EXPECT_EQ(same.text(), "abc");
}

TEST(TextStrncpy, MayOverlapItsSourceAtEveryLengthAndDistance) {
  constexpr std::size_t longest = 40;
  for (std::size_t length = 0; length <= longest; ++length) {
    const std::string text =
        std::string("abcdefghijklmnopqrstuvwxyz0123456789ABCD").substr(0, length);
    for (std::size_t to = 0; to <= 2 * longest; ++to) {
      Buffer room(3 * longest + 1, std::string(longest, '#') + text);
      qal_strncpy(room.data() + to, room.data() + longest, static_cast<int>(length) + 1);
      ASSERT_STREQ(room.data() + to, text.c_str()) << "to " << to;
    }
  }
}

TEST(TextStrncat, AnswersWhereTheAppendedPartBegins) {
  Buffer dst(5, "ab");
  const char *appended = qal_strncat(dst.data(), "cdef", 5);
  EXPECT_EQ(dst.text(), "abcd");
  EXPECT_EQ(appended, dst.data() + 2);
  EXPECT_STREQ(appended, "cd");
}

TEST(TextStrncat, FillsTheRestOfTheBufferWithNul) {
  Buffer dst(9, "ab");
  qal_strncat(dst.data(), "c", 8);
  EXPECT_EQ(dst.all(), std::string("abc\0\0\0\0\0#", 9));
}

TEST(TextStrncat, TakesALengthThatJustFits) {
  Buffer dst(5, "ab");
  qal_strncat(dst.data(), "cd", 5);
  EXPECT_EQ(dst.text(), "abcd");
}

TEST(TextStrncat, AppendsNothingInTheLastByte) {
  Buffer dst(5, "abcd");
  EXPECT_EQ(qal_strncat(dst.data(), "e", 5), dst.data() + 4);
  EXPECT_EQ(dst.text(), "abcd");
}

TEST(TextStrncat, WritesNothingToAFullBuffer) {
  for (const unsigned size : {0U, 1U, 3U, 4U}) {
    Buffer dst(8, "abcd");
    const std::string before = dst.all();
    EXPECT_EQ(qal_strncat(dst.data(), "xyz", size), dst.data() + 4);
    EXPECT_EQ(dst.all(), before) << "size " << size;
  }
}

TEST(TextStrncat, AppendsATextToItself) {
  Buffer dst(6, "ab");
  qal_strncat(dst.data(), dst.data(), 6);
  EXPECT_EQ(dst.text(), "abab");
}

TEST(TextStrchr, FindsTheFirstAndTheLast) {
  const char *text = "abcabc";
  EXPECT_EQ(qal_strchr(text, 'b'), text + 1);
  EXPECT_EQ(qal_strrchr(text, 'b'), text + 4);
}

TEST(TextStrchr, AnswersNullForAMissingCharacter) {
  EXPECT_EQ(qal_strchr("abc", 'x'), nullptr);
  EXPECT_EQ(qal_strrchr("abc", 'x'), nullptr);
}

TEST(TextStrchr, FindsTheTerminator) {
  const char *text = "abc";
  EXPECT_EQ(qal_strchr(text, '\0'), text + 3);
  EXPECT_EQ(qal_strrchr(text, '\0'), text + 3);
}

TEST(TextStrchr, TakesTheCharacterAsAChar) {
  const char *text = "a\xe4";
  EXPECT_EQ(qal_strchr(text, 0xe4), text + 1);
  EXPECT_EQ(qal_strrchr(text, 0x100 + 'a'), text);
}

TEST(TextStrcasestr, FindsTheFirstMatchWithoutRegardToCase) {
  const char *text = "Hello, hELLO";
  EXPECT_EQ(qal_strcasestr(text, "LL"), text + 2);
  EXPECT_EQ(qal_strcasestr(text, "hello"), text);
  EXPECT_EQ(qal_strcasestr(text, " HELLO"), text + 6);
}

TEST(TextStrcasestr, AnswersNullWithoutAMatch) {
  EXPECT_EQ(qal_strcasestr("hello", "world"), nullptr);
  EXPECT_EQ(qal_strcasestr("hello", "hello!"), nullptr);
  EXPECT_EQ(qal_strcasestr("hello", "elo"), nullptr);
}

TEST(TextStrcasestr, FindsNothingInAnEmptyText) {
  EXPECT_EQ(qal_strcasestr("", "x"), nullptr);
  EXPECT_EQ(qal_strcasestr("", ""), nullptr);
}

TEST(TextStrcasestr, FindsNoEmptyNeedleUnlikeStrstr) {
  EXPECT_EQ(qal_strcasestr("x", ""), nullptr);
  EXPECT_EQ(qal_strcasestr(std::string(5000, 'x').c_str(), ""), nullptr);
}

TEST(TextStrcasestr, FoldsOnlyLettersBelow128) {
  for (int a = 1; a < 256; ++a) {
    for (int b = 1; b < 256; ++b) {
      const char text[] = {static_cast<char>(a), '\0'};
      const char needle[] = {static_cast<char>(b), '\0'};
      const bool same = a == b || (a < 128 && b < 128 && std::toupper(a) == std::toupper(b));
      ASSERT_EQ(qal_strcasestr(text, needle), same ? text : nullptr) << a << ", " << b;
    }
  }
}

TEST(TextStrcasestr, AgreesWithTryingEveryPlace) {
  for (const auto &text : texts_of("aAb\xc1", 5)) {
    for (const auto &needle : texts_of("aAb\xc1", 3)) {
      const auto at = raised(text).find(raised(needle));
      const bool found = !needle.empty() && at != std::string::npos;
      Buffer exact(text.size() + 1, text);
      ASSERT_EQ(qal_strcasestr(exact.data(), needle.c_str()), found ? exact.data() + at : nullptr)
          << text << ", " << needle;
    }
  }
}

// Letters between the two given bytes.
std::string long_needle(std::size_t size, char first, char last) {
  std::string needle;
  for (std::size_t i = 0; i < size; ++i) needle += static_cast<char>('a' + i % 23);
  needle.back() = last;
  needle.front() = first;
  return needle;
}

// Nothing but near misses, most of which share the needle's first and last byte.
std::string text_without(const std::string &needle, std::size_t length) {
  std::string miss = needle;
  miss[miss.size() / 2] = '#';
  std::string text;
  while (text.size() < length) text += miss;
  return text.substr(0, length);
}

// The lengths where a search goes from one step to the next, each from both sides.
std::vector<std::size_t> lengths_to_search(std::size_t needle_size) {
  std::vector<std::size_t> lengths{9000};
  for (std::size_t length = 127; length <= 146; ++length) lengths.push_back(length);
  for (std::size_t length = 4090; length <= 4260; length += 10) lengths.push_back(length);
  const std::size_t window = std::max<std::size_t>(4096, needle_size) + needle_size - 1;
  for (std::size_t behind = 126; behind <= 146; ++behind) lengths.push_back(window + behind);
  return lengths;
}

void expect_found_as_by_trying(GuardedText &room, const std::string &text,
                               const std::string &needle) {
  const auto at = raised(text).find(raised(needle));
  const char *const begin = room.put(text);
  ASSERT_EQ(qal_strcasestr(begin, needle.c_str()), at == text.npos ? nullptr : begin + at)
      << text.size() << " bytes, " << needle.size() << " from " << at;
}

void search_at_many_places(const std::string &needle) {
  GuardedText room(4);
  for (const std::size_t length : lengths_to_search(needle.size())) {
    const std::string text = text_without(needle, length);
    expect_found_as_by_trying(room, text, needle);
    if (needle.size() > length) continue;
    const std::size_t last = length - needle.size();
    for (const std::size_t place :
         {std::size_t{127}, std::size_t{128}, std::size_t{143}, std::size_t{144}, std::size_t{4223},
          std::size_t{4224}, last - std::min<std::size_t>(last, 16), last}) {
      if (place > last) continue;
      std::string with_match = text;
      with_match.replace(place, needle.size(), raised(needle));
      expect_found_as_by_trying(room, with_match, needle);
    }
  }
}

TEST(TextStrcasestr, AgreesWithTryingEveryPlaceOfLongTexts) {
  for (const std::size_t size : {1U, 2U, 15U, 16U, 17U, 40U, 5000U}) {
    for (const auto &[first, last] :
         {std::pair{'k', 'q'}, {'k', 'k'}, {'k', '\xe4'}, {'\xe4', '\xff'}}) {
      search_at_many_places(long_needle(size, first, last));
    }
  }
}

// The letter stands twice in a row at one place; everywhere else a dot follows it.
TEST(TextStrcasestr, FindsTwoOfALetterAmongSingleOnes) {
  for (const std::string single : {"k.", "K."}) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += i == 150 ? single.substr(0, 1) : single;
    EXPECT_EQ(qal_strcasestr(text.c_str(), "kk"), text.c_str() + 300);
  }
}

using Result = std::pair<std::string, int>;  // the text and the count

Result replaced(std::size_t room, std::string_view text, const char *find, const char *replacement,
                int flags = 0) {
  Buffer buffer(room, text);
  const int count = qal_strrepl(buffer.data(), find, replacement, flags);
  return {buffer.text(), count};
}

TEST(TextStrrepl, ReplacesEveryMatchFromTheLeft) {
  EXPECT_EQ(replaced(5, "aaaa", "aa", "a"), Result("aa", 2));
  EXPECT_EQ(replaced(16, " a b  c ", " ", ""), Result("abc", 5));
}

TEST(TextStrrepl, StopsAfterTheFirstWhenAsked) {
  EXPECT_EQ(replaced(5, "aaaa", "aa", "a", 0x1), Result("aaa", 1));
  EXPECT_EQ(replaced(6, "abab", "a", "xy", 0x1), Result("xybab", 1));
}

TEST(TextStrrepl, HeedsNoOtherFlag) {
  EXPECT_EQ(replaced(3, "aa", "a", "b", ~0x1), Result("bb", 2));
  EXPECT_EQ(replaced(3, "aa", "a", "b", -1), Result("ba", 1));
}

TEST(TextStrrepl, DoesNotSearchWhatItPutIn) {
  EXPECT_EQ(replaced(5, "aa", "a", "ab"), Result("abab", 2));
  EXPECT_EQ(replaced(5, "aabb", "ab", ""), Result("ab", 1));
}

TEST(TextStrrepl, TakesANullReplacementAsEmpty) {
  EXPECT_EQ(replaced(4, "abc", "b", nullptr), Result("ac", 1));
}

TEST(TextStrrepl, FindsNothingForANullOrEmptyFind) {
  EXPECT_EQ(replaced(4, "abc", nullptr, "x"), Result("abc", 0));
  EXPECT_EQ(replaced(4, "abc", "", "x"), Result("abc", 0));
}

TEST(TextStrrepl, LeavesATextWithoutAMatch) {
  EXPECT_EQ(replaced(4, "abc", "x", "longer than the text"), Result("abc", 0));
  EXPECT_EQ(replaced(4, "abc", "abcd", ""), Result("abc", 0));
  EXPECT_EQ(replaced(1, "", "x", "yy"), Result("", 0));
}

TEST(TextStrrepl, WritesNothingWithoutAMatch) {
  static const char constant[] = "abc";  // in memory that cannot be written
  EXPECT_EQ(qal_strrepl(const_cast<char *>(constant), "x", "y", 0), 0);
  EXPECT_EQ(qal_strrepl(const_cast<char *>(constant), "x", "yy", 0), 0);
}

TEST(TextStrrepl, ReplacesAnyBytes) {
  EXPECT_EQ(replaced(16, "\xff\x80%\xff\x80", "\xff\x80", "\x01%s"), Result("\x01%s%\x01%s", 2));
}

TEST(TextStrrepl, WritesNothingBehindTheLongerOfBothTexts) {
  Buffer shrunk(12, "a--b");
  EXPECT_EQ(qal_strrepl(shrunk.data(), "--", "+", 0), 1);
  EXPECT_EQ(shrunk.all().substr(5), "#######");
  Buffer grown(12, "a-b");
  EXPECT_EQ(qal_strrepl(grown.data(), "-", "++", 0), 1);
  EXPECT_EQ(grown.all().substr(0, 5), std::string("a++b\0", 5));
  EXPECT_EQ(grown.all().substr(5), "#######");
  Buffer grown_once(12, "a-b-");
  EXPECT_EQ(qal_strrepl(grown_once.data(), "-", "++++", QAL_REPLACE_FIRST), 1);
  EXPECT_EQ(grown_once.all().substr(0, 8), std::string("a++++b-\0", 8));
  EXPECT_EQ(grown_once.all().substr(8), "####");
}

// A text that grows is moved to the end of its room first. What follows it there is no NUL, but
// "#".
TEST(TextStrrepl, FindsNoMatchThatReachesBehindTheText) {
  EXPECT_EQ(replaced(6, "a#ba", "a#", "xyz"), Result("xyzba", 1));
}

TEST(TextStrrepl, AgreesWithReplacingOneAfterTheOther) {
  const auto texts = texts_of("ab", 8);
  const auto finds = texts_of("ab", 3);
  const auto replacements = texts_of("ab", 4);
  for (const auto &text : texts) {
    for (const auto &find : finds) {
      for (const auto &replacement : replacements) {
        for (const int flags : {0, 1}) {
          const auto [expected, count] = replaced_slowly(text, find, replacement, flags == 1);
          const auto room = std::max(text.size(), expected.size()) + 1;
          ASSERT_EQ(replaced(room, text, find.c_str(), replacement.c_str(), flags),
                    Result(expected, count))
              << text << ", " << find << ", " << replacement;
        }
      }
    }
  }
}

TEST(TextStrrepl, ReplacesEveryByteOfALargeText) {
  constexpr std::size_t size = 512U << 10U;
  Buffer text(2 * size + 1, std::string(size, 'a'));
  EXPECT_EQ(qal_strrepl(text.data(), "a", "bc", 0), static_cast<int>(size));
  EXPECT_EQ(std::strlen(text.data()), 2 * size);
  EXPECT_EQ(qal_strrepl(text.data(), "bc", "d", 0), static_cast<int>(size));
  EXPECT_TRUE(text.text() == std::string(size, 'd'));
}

TEST(TextStripAtTheChars, CutsAtTheFirstOfTheSet) {
  Buffer text(12, "name=va;lue");
  EXPECT_EQ(qal_strip_at_the_chars(text.data(), ";="), 4);
  EXPECT_EQ(text.all(), "name" + std::string(8, '\0'));
}

TEST(TextStripAtTheChars, KeepsATextWithoutAnyOfTheSet) {
  Buffer text(8, "name");
  EXPECT_EQ(qal_strip_at_the_chars(text.data(), ";="), 4);
  EXPECT_EQ(qal_strip_at_the_chars(text.data(), ""), 4);
  EXPECT_EQ(text.all(), std::string("name\0###", 8));
}

TEST(TextStripAtTheChars, CanLeaveNothing) {
  Buffer text(4, "abc");
  EXPECT_EQ(qal_strip_at_the_chars(text.data(), "cba"), 0);
  EXPECT_EQ(text.all(), std::string(4, '\0'));
  EXPECT_EQ(qal_strip_at_the_chars(text.data(), "a"), 0);
}

TEST(TextStripPrePostChars, DropsBothRuns) {
  Buffer dst(8);
  EXPECT_EQ(qal_strip_pre_post_chars("--a-b--", dst.data(), '-'), 3);
  EXPECT_EQ(dst.all(), std::string("a-b\0####", 8));
}

TEST(TextStripPrePostChars, WritesAnEmptyTextWhenNothingIsLeft) {
  for (const char *src : {"", "-", "----"}) {
    Buffer dst(5);
    EXPECT_EQ(qal_strip_pre_post_chars(src, dst.data(), '-'), 0);
    EXPECT_EQ(dst.text(), "");
  }
}

TEST(TextStripPrePostChars, KeepsATextWithoutSuchRuns) {
  Buffer dst(4);
  EXPECT_EQ(qal_strip_pre_post_chars("a-b", dst.data(), '-'), 3);
  EXPECT_EQ(dst.text(), "a-b");
  EXPECT_EQ(qal_strip_pre_post_chars("abc", dst.data(), '\0'), 3);
  EXPECT_EQ(dst.text(), "abc");
}

TEST(TextStripPrePostChars, LooksOnlyAtTheLowByteOfTheCharacter) {
  Buffer dst(4);
  EXPECT_EQ(qal_strip_pre_post_chars("-a-", dst.data(), 0x1200 + '-'), 1);
  EXPECT_EQ(dst.text(), "a");
  EXPECT_EQ(qal_strip_pre_post_chars("\xe4z\xe4", dst.data(), 0xe4), 1);
  EXPECT_EQ(dst.text(), "z");
  EXPECT_EQ(qal_strip_pre_post_chars("\xe4z\xe4", dst.data(), 0xe4 - 0x100), 1);
  EXPECT_EQ(dst.text(), "z");
}

TEST(TextStripPrePostChars, WorksInPlace) {
  Buffer text(8, "--a-b--");
  EXPECT_EQ(qal_strip_pre_post_chars(text.data(), text.data(), '-'), 3);
  EXPECT_EQ(text.text(), "a-b");
}

TEST(TextStripPrePostSpaces, DropsEveryKindOfSpace) {
  Buffer dst(16);
  EXPECT_EQ(qal_strip_pre_post_spaces(" \t\n\v\f\ra b\r \n", dst.data()), 3);
  EXPECT_EQ(dst.text(), "a b");
}

TEST(TextStripPrePostSpaces, WritesAnEmptyTextWhenNothingIsLeft) {
  for (const char *src : {"", " ", " \t\n"}) {
    Buffer dst(4);
    EXPECT_EQ(qal_strip_pre_post_spaces(src, dst.data()), 0);
    EXPECT_EQ(dst.text(), "");
  }
}

TEST(TextStripPrePostSpaces, KeepsHighBytesThatAreNoSpaces) {
  Buffer dst(6);
  EXPECT_EQ(qal_strip_pre_post_spaces(" \xe4\xa0 ", dst.data()), 2);
  EXPECT_EQ(dst.text(), "\xe4\xa0");
}

TEST(TextStripPrePostSpaces, WorksInPlace) {
  Buffer text(8, "  a b  ");
  EXPECT_EQ(qal_strip_pre_post_spaces(text.data(), text.data()), 3);
  EXPECT_EQ(text.text(), "a b");
}

TEST(TextSnprintf, PrintsWhatFits) {
  Buffer buffer(10);
  EXPECT_EQ(qal_snprintf(buffer.data(), 10, "%s-%d", "ab", 42), 0);
  EXPECT_EQ(buffer.text(), "ab-42");
}

TEST(TextSnprintf, KeepsNineOfTenCharactersInTenBytes) {
  Buffer buffer(10);
  EXPECT_EQ(qal_snprintf(buffer.data(), 10, "%s", "0123456789"), 1);
  EXPECT_EQ(buffer.text(), "012345678");
  EXPECT_EQ(qal_snprintf(buffer.data(), 10, "%s", "much longer than the buffer is"), 1);
  EXPECT_EQ(buffer.text(), "much long");
}

TEST(TextSnprintf, TakesALengthThatJustFits) {
  Buffer buffer(10);
  EXPECT_EQ(qal_snprintf(buffer.data(), 10, "%s", "012345678"), 0);
  EXPECT_EQ(buffer.text(), "012345678");
}

TEST(TextSnprintf, RefusesANullBuffer) {
  EXPECT_EQ(qal_snprintf(nullptr, 10, "%s", "a"), 1);
  EXPECT_EQ(qal_snprintf(nullptr, 0, "%s", ""), 1);
}

TEST(TextSnprintf, WritesNothingForSizeZero) {
  Buffer buffer(2);
  EXPECT_EQ(qal_snprintf(buffer.data(), 0, "%s", ""), 1);
  EXPECT_EQ(qal_snprintf(buffer.data(), 0, "%s", "a"), 1);
  EXPECT_EQ(buffer.all(), "##");
}

TEST(TextSnprintf, FitsOnlyEmptyOutputInOneByte) {
  Buffer buffer(2);
  EXPECT_EQ(qal_snprintf(buffer.data(), 1, "%s", ""), 0);
  EXPECT_EQ(buffer.all(), std::string("\0#", 2));
  EXPECT_EQ(qal_snprintf(buffer.data(), 1, "%s", "a"), 1);
  EXPECT_EQ(buffer.all(), std::string("\0#", 2));
}

TEST(TextSnprintf, EndsTheBufferWhenFormattingFails) {
  Buffer buffer(8);
  EXPECT_EQ(qal_snprintf(buffer.data(), 8, "%ls", L"\x20ac"), 1);  // not in the C locale
  EXPECT_EQ(buffer.data()[7], '\0');
}

TEST(TextSnprintf, AlwaysEndsTheBuffer) {
  Buffer stale(6, '#');
  EXPECT_EQ(qal_snprintf(stale.data(), 6, "%s", "ab"), 0);
  EXPECT_EQ(stale.all(), std::string("ab\0##\0", 6));
  Buffer clean(6, '\0');
  EXPECT_EQ(qal_snprintf(clean.data(), 6, "%s", "ab"), 0);
  EXPECT_EQ(clean.all(), std::string("ab\0\0\0\0", 6));
}

TEST(TextSnprintf, TakesOneCharacterOverStaleBytes) {
  Buffer buffer(6, '#');
  EXPECT_EQ(qal_snprintf(buffer.data(), 6, "%s", "a"), 0);
  Buffer three(3, '#');
  EXPECT_EQ(qal_snprintf(three.data(), 3, "%s", "a"), 0);
  Buffer two(2, '#');
  EXPECT_EQ(qal_snprintf(two.data(), 2, "%s", "a"), 0);
}

TEST(TextSnprintf, CountsEmptyOutputOverStaleBytesAsFailed) {
  for (const std::size_t size : {2U, 3U, 6U}) {
    Buffer buffer(size, '#');
    EXPECT_EQ(qal_snprintf(buffer.data(), size, "%s", ""), 1) << size;
    EXPECT_EQ(buffer.data()[0], '\0');
    EXPECT_EQ(buffer.data()[size - 1], '\0');
  }
}

TEST(TextSnprintf, FitsEmptyOutputWhenSomeLaterByteIsNul) {
  for (const std::size_t nul : {1U, 3U, 4U, 5U}) {
    Buffer buffer(6, '#');
    buffer.data()[nul] = '\0';
    EXPECT_EQ(qal_snprintf(buffer.data(), 6, "%s", ""), 0) << nul;
    EXPECT_EQ(buffer.data()[5], '\0');
  }
}

}  // namespace

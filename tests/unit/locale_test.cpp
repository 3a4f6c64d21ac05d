// The library sets no locale, but a host may. ASCII text gives the same results in every locale,
// except for case conversion and search without case, which follow the platform.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/qal.h>
#include <sys/stat.h>
#include <kalmora/helpers.hpp>
#include <qal/identity.hpp>

#include <cctype>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "internal/handles.hpp"
#include "record.hpp"
#include "support/char_classes.hpp"
#include "support/scratch.hpp"
#include "support/test_locale.hpp"

namespace {

using qal::internal::Descriptor;
using qal::internal::OwnedText;
using qal::internal::read_record;
using qal::internal::Record;
using qal::internal::RecordStatus;
using qal::test::expect_classes_of_the_locale;
using qal::test::ScratchDir;
using qal::test::TestLocale;

constexpr int ascii_end = 128;

using Observations = std::vector<std::string>;

// All ASCII characters but NUL, 'i' and 'I', whose other case may lie outside ASCII.
std::string ascii_text() {
  std::string text;
  for (int c = 1; c < ascii_end; ++c) {
    if (c != 'i' && c != 'I') text += static_cast<char>(c);
  }
  return text;
}

void observe_classes(Observations &seen) {
  using CharClass = int (*)(int);
  for (const CharClass holds :
       {qal_isascii, qal_isblank, qal_isdigit, qal_isxdigit, qal_isalpha, qal_isalnum, qal_iscntrl,
        qal_isgraph, qal_islower, qal_isprint, qal_ispunct, qal_isspace, qal_isupper}) {
    std::string answers;
    for (int c = 0; c < ascii_end; ++c) answers += holds(c) ? '1' : '0';
    seen.push_back(answers);
  }
}

// The text after a function has changed it in place.
std::string changed(std::string text, const std::function<void(char *)> &change) {
  text.resize(2048);
  change(text.data());
  return text.c_str();
}

void observe_texts(Observations &seen) {
  const std::string text = "IiI ;" + ascii_text();
  seen.push_back(changed(text, [](char *at) { qal_changecase(at, 0); }));
  seen.push_back(changed(text, [](char *at) { qal_changecase(at, 1); }));
  seen.push_back(changed(text, [](char *at) { qal_strrepl(at, ";", "ii", 0); }));
  seen.push_back(changed(text, [](char *at) { qal_strip_at_the_chars(at, "~"); }));
  seen.push_back(changed(" \v\tIi \r\n", [](char *at) { qal_strip_pre_post_spaces(at, at); }));
  seen.push_back(changed(text, [](char *at) { replace_illegal(at); }));
  seen.push_back(changed("/a/./I/../" + text, [](char *at) { qal_convert_pathname(at, 0x700); }));
  const OwnedText copy{qal_string_native_to_utf8(text.c_str())};
  seen.emplace_back(copy.get());
  char printed[64] = {};  // whose old bytes count
  qal_snprintf(printed, sizeof printed, "%d %s %x", 1234567, "Ii", 255U);
  seen.emplace_back(printed);
}

void observe_matches(Observations &seen) {
  const auto bytes = [](const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.c_str());
  };
  std::string answers;
  for (int c = 1; c < ascii_end; ++c) {
    const std::string name(1, static_cast<char>(c));
    for (const std::string pattern : {"[a-z]", "[!A-Z]", "?", "I", "i"}) {
      answers += zul_fnmatch(bytes(pattern), bytes(name)) == 0 ? '1' : '0';
      answers += qal_fnmatch(bytes(pattern), name.c_str(), 0) == 0 ? '1' : '0';
    }
    for (const std::string pattern : {"[a-z]", "x", "X", "ä"}) {
      answers += qal_fnmatch(bytes(pattern), name.c_str(), QAL_FNM_CASEFOLD) == 0 ? '1' : '0';
    }
  }
  seen.push_back(answers);
}

void observe_names(Observations &seen) {
  QalIdentity identity("/bin/demo");
  identity.setProduct(1);
  identity.setComponent(1);
  identity.setVersion(10, 2, 3, 'b');
  seen.emplace_back(identity.getIdentityString());
  seen.emplace_back(identity.getProductName(true));
  int numbers[3] = {};
  char letter = '\0';
  version_number_from_version_string(" 10.02.3(-i)", &numbers[0], &numbers[1], &numbers[2],
                                     &letter);
  for (const int number : numbers) seen.push_back(std::to_string(number));
  seen.emplace_back(1, letter);
  const OwnedText lower{lower_case(ascii_text().c_str())};
  seen.emplace_back(lower.get());
}

Observations observations() {
  Observations seen;
  observe_classes(seen);
  observe_texts(seen);
  observe_matches(seen);
  observe_names(seen);
  return seen;
}

// volatile, because the optimiser assumes that ASCII maps to ASCII.
int (*volatile const platform_toupper)(int) = std::toupper;
int (*volatile const platform_tolower)(int) = std::tolower;

void expect_case_of_the_platform() {
  for (int c = 0; c < ascii_end; ++c) {
    const auto byte = static_cast<unsigned>(c);
    EXPECT_EQ(qal_toupper(byte), static_cast<unsigned>(platform_toupper(c)));
    EXPECT_EQ(qal_tolower(byte), static_cast<unsigned>(platform_tolower(c)));
  }
  const bool alike = platform_toupper('i') == platform_toupper('I');
  EXPECT_EQ(qal_strcasestr("FILE", "file") != nullptr, alike);
  EXPECT_EQ(readercmp("FILE", "file") == 0, strcasecmp("FILE", "file") == 0);
}

class Locales : public testing::Test {
 protected:
  ~Locales() override { std::setlocale(LC_ALL, "C"); }

  // In the locale that is set now.
  void expect_as_in_c() const {
    EXPECT_EQ(observations(), in_c_);
    expect_case_of_the_platform();
  }

 private:
  const Observations in_c_ = observations();
};

TEST_F(Locales, LeaveAsciiAloneInTheCLocale) { expect_as_in_c(); }

TEST_F(Locales, LeaveAsciiAloneInUtf8) {
  ASSERT_TRUE(std::setlocale(LC_ALL, "C.UTF-8"));
  expect_as_in_c();
}

TEST_F(Locales, LeaveAsciiAloneInTurkish) {
  for (const char *charmap : {"UTF-8", "ISO-8859-9"}) {
    const TestLocale locale("tr_TR", charmap, LC_ALL);
    expect_as_in_c();
  }
}

TEST_F(Locales, AreNeverSetByTheLibrary) {
  ASSERT_EQ(setenv("LC_ALL", "C.UTF-8", 1), 0);
  qal_utils_init();
  observations();
  expect_case_of_the_platform();
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
}

// The source of a locale that has only `rules` about its characters.
std::string locale_source(const ScratchDir &scratch, const std::string &rules) {
  return scratch.file("rules",
                      "comment_char %\nescape_char /\nLC_CTYPE\n" + rules + "END LC_CTYPE\n");
}

TEST(TextClassInLocales, FollowsTheLocaleAboveSevenBits) {
  const TestLocale locale{"de_DE", "ISO-8859-1"};
  expect_classes_of_the_locale();
  constexpr int small_a_umlaut = 0xe4;
  EXPECT_EQ(qal_islower(small_a_umlaut), 1);
  EXPECT_EQ(qal_isalpha(small_a_umlaut), 1);
  EXPECT_EQ(qal_isalnum(small_a_umlaut), 1);
  EXPECT_EQ(qal_isascii(small_a_umlaut), 0);
}

TEST(TextClassInLocales, CountsNoLetterWithoutACaseAsAlphabetic) {
  const TestLocale locale{"th_TH", "TIS-620"};
  constexpr int ko_kai = 0xa1;
  ASSERT_TRUE(std::isalpha(ko_kai));
  EXPECT_EQ(qal_isalpha(ko_kai), 0);
  EXPECT_EQ(qal_isalnum(ko_kai), 0);
}

TEST(TextClassInLocales, KnowsBlanksOfItsOwn) {
  const ScratchDir scratch;
  const TestLocale locale{locale_source(scratch,
                                        "space <U0020>;<U0009>;<U00A0>\n"
                                        "blank <U0020>;<U0009>;<U00A0>\n"),
                          "ISO-8859-2"};
  constexpr int no_break_space = 0xa0;
  ASSERT_TRUE(std::isblank(no_break_space));
  EXPECT_EQ(qal_isblank(no_break_space), 0);
  expect_classes_of_the_locale();
}

TEST(TextClassInLocales, KnowsHexadecimalDigitsOfItsOwn) {
  const ScratchDir scratch;
  const TestLocale locale{locale_source(scratch, "xdigit <U0030>;<U00B2>\n"), "ISO-8859-7"};
  constexpr int superscript_two = 0xb2;
  ASSERT_TRUE(std::isxdigit(superscript_two));
  EXPECT_EQ(qal_isxdigit(superscript_two), 0);
  expect_classes_of_the_locale();
}

TEST(TextCaseInLocales, KeepsCharactersFrom128On) {
  const TestLocale locale{"de_DE", "ISO-8859-1"};
  for (const unsigned c : {128U, 0xc4U, 0xe4U, 255U, 256U, 256U + 'a', 0x80000061U, 0xffffffffU}) {
    EXPECT_EQ(qal_toupper(c), c);
    EXPECT_EQ(qal_tolower(c), c);
  }
}

TEST(TextCaseInLocales, KeepsCharacter128EvenWhereItIsALetter) {
  const ScratchDir scratch;
  const TestLocale locale{
      locale_source(scratch, "toupper (<U0452>,<U0402>)\ntolower (<U0452>,<U0402>)\n"), "IBM855"};
  ASSERT_NE(std::toupper(128), 128);
  ASSERT_NE(std::tolower(128), 128);
  EXPECT_EQ(qal_toupper(128), 128U);
  EXPECT_EQ(qal_tolower(128), 128U);
  const char other_case[] = {static_cast<char>(std::toupper(128)), '\0'};
  EXPECT_EQ(qal_strcasestr("\x80", other_case), nullptr);
}

TEST(TextCaseInLocales, FollowsTheMappingOfTheLocale) {
  const TestLocale locale{"tr_TR", "ISO-8859-9"};
  constexpr unsigned capital_i_with_dot = 0xdd;
  constexpr unsigned small_i_without_dot = 0xfd;
  EXPECT_EQ(qal_toupper('i'), capital_i_with_dot);
  EXPECT_EQ(qal_tolower('I'), small_i_without_dot);
  EXPECT_EQ(qal_strcasestr("FILE", "file"), nullptr);
  EXPECT_STREQ(qal_strcasestr("a\xdd", "Ai"), "a\xdd");
  // The case of a whole text is ASCII's in every locale.
  char text[] = "fiLI";
  qal_changecase(text, 0);
  EXPECT_STREQ(text, "FILI");
  qal_changecase(text, 1);
  EXPECT_STREQ(text, "fili");
}

TEST(Utf8StringsInLocales, AreCopiedAsTheyAre) {
  const TestLocale locale{"de_DE", "ISO-8859-1"};
  for (const auto convert : {qal_string_native_to_utf8, qal_string_utf8_to_native}) {
    for (const char *const text : {"\xe4", "\xc3\xa4"}) {
      EXPECT_STREQ(OwnedText{convert(text)}.get(), text);
    }
  }
  EXPECT_EQ(qal_get_current_code_page(), 65001);
}

TEST(LowerCaseInLocales, FollowsTheLocaleBelow128Alone) {
  const auto lowered = [](const char *text) {
    const OwnedText copy{lower_case(text)};
    return std::string(copy.get());
  };
  {
    const TestLocale locale{"ru_RU", "CP1251"};
    constexpr int capital_dje = 0x80;
    ASSERT_TRUE(std::isupper(capital_dje));
    EXPECT_EQ(lowered("A\x80\xc4"), "a\x80\xc4");
  }
  const TestLocale locale{"tr_TR", "ISO-8859-9"};
  EXPECT_EQ(lowered("I"), "\xfd");
}

bool matches(const char *pattern, const char *string, unsigned flags = QAL_FNM_CASEFOLD) {
  const auto *const bytes = reinterpret_cast<const unsigned char *>(pattern);
  return qal_fnmatch(bytes, string, flags) == QAL_FNM_MATCH;
}

TEST(WildcardInLocales, FoldsTheLettersOfTheLocale) {
  {
    const TestLocale locale{"de_DE", "ISO-8859-1"};
    EXPECT_TRUE(matches("\xc4", "\xe4"));
    EXPECT_FALSE(matches("\xc4", "\xe4", 0));
  }
  const TestLocale locale{"tr_TR", "ISO-8859-9"};
  EXPECT_TRUE(matches("I", "\xfd"));
  EXPECT_TRUE(matches("\xfd", "I"));
  EXPECT_FALSE(matches("I", "i"));
}

TEST(WildcardInLocales, FoldsAsciiAloneInSets) {
  {
    const TestLocale locale{"de_DE", "ISO-8859-1"};
    EXPECT_FALSE(matches("[\xc4]", "\xe4"));
    EXPECT_FALSE(matches("[\xc0-\xd0]", "\xe4"));
  }
  const TestLocale locale{"tr_TR", "ISO-8859-9"};
  EXPECT_TRUE(matches("[I]", "i"));
}

TEST(TextStrcasestrInLocales, ComparesHighBytesExactlyWhateverTheLocale) {
  const TestLocale locale{"de_DE", "ISO-8859-1"};
  EXPECT_EQ(qal_strcasestr("\xe4", "\xc4"), nullptr);
  EXPECT_STREQ(qal_strcasestr("x\xe4y", "\xe4Y"), "\xe4y");
}

TEST(TextStrcasestrInLocales, FindsInLongTextsWhatALocaleFoldsIntoOne) {
  const ScratchDir scratch;
  const TestLocale locale{
      locale_source(scratch, "toupper (<U0061>,<U0058>);(<U0062>,<U0058>);(<U0078>,<U0058>)\n"),
      "ISO-8859-3"};
  const auto expect_found = [](const char *needle, const char *match) {
    const std::string dots(300, '.');
    const std::string text = dots + match + dots;
    EXPECT_EQ(qal_strcasestr(text.c_str(), needle), text.c_str() + 300) << needle << match;
  };
  for (const char *const needle : {"a.a", "b.b", "x.x", "X.X"}) {
    for (const char *const match : {"a.b", "b.x", "x.X", "X.a"}) expect_found(needle, match);
  }
  expect_found("a.q", "b.q");
  expect_found("q.a", "q.b");
}

TEST(RecordReadInLocales, TakesTheSameWhiteSpace) {
  const ScratchDir scratch;
  const TestLocale locale{locale_source(scratch, "space <U0020>;<U00A0>\n"), "ISO-8859-10"};
  ASSERT_TRUE(std::isspace(0xa0));
  const Descriptor file{
      open(scratch.file("record", "u\xa0x n p 42").c_str(), O_RDONLY | O_CLOEXEC)};
  struct stat info;
  ASSERT_EQ(fstat(file.get(), &info), 0);
  Record record;
  EXPECT_EQ(read_record(file.get(), info, record), RecordStatus::whole);
  EXPECT_STREQ(record.url, "u\xa0x");
}

TEST(TextStripPrePostSpacesInLocales, FollowsTheLocaleAboveSevenBits) {
  const ScratchDir scratch;
  const TestLocale locale{locale_source(scratch, "space <U0020>;<U00A0>\n"), "ISO-8859-15"};
  char dst[6];
  EXPECT_EQ(qal_strip_pre_post_spaces("\xa0 a\xa0", dst), 1);
  EXPECT_STREQ(dst, "a");
  EXPECT_EQ(qal_isspace(0xa0), 1);
}

}  // namespace

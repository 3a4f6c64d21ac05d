#include <gtest/gtest.h>
#include <pthread.h>
#include <qal/wildcard.h>

#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

#include "support/guarded_text.hpp"

namespace {

using qal::test::GuardedText;

const unsigned char *bytes(const std::string &text) {
  return reinterpret_cast<const unsigned char *>(text.c_str());
}

// Both return 0 or 1 and nothing else, which a comparison with 0 alone would not check.
bool small(const std::string &pattern, const std::string &name) {
  const int answer = zul_fnmatch(bytes(pattern), bytes(name));
  EXPECT_TRUE(answer == 0 || answer == 1);
  return answer == 0;
}

bool full(const std::string &pattern, const std::string &string, unsigned flags = 0) {
  const int answer = qal_fnmatch(bytes(pattern), string.c_str(), flags);
  EXPECT_TRUE(answer == 0 || answer == 1);
  return answer == 0;
}

constexpr unsigned pathname = QAL_FNM_PATHNAME;
constexpr unsigned noescape = QAL_FNM_NOESCAPE;
constexpr unsigned period = QAL_FNM_PERIOD;
constexpr unsigned leading_dir = QAL_FNM_LEADING_DIR;
constexpr unsigned casefold = QAL_FNM_CASEFOLD;
constexpr unsigned trailing_slash = QAL_FNM_TRAILING_SLASH;

TEST(SmallMatcher, FindsServerRecords) {
  EXPECT_TRUE(small("halix_server*.dat", "halix_server12.dat"));
  EXPECT_TRUE(small("halix_server*.dat", "halix_server.dat"));
  EXPECT_TRUE(small("halix_server*.dat", "halix_server.dat.dat"));
  EXPECT_FALSE(small("halix_server*.dat", "halix_server12.dat.bak"));
  EXPECT_FALSE(small("halix_server*.dat", "Halix_server1.dat"));
  EXPECT_FALSE(small("halix_server*.dat", "halix_server12.DAT"));
  EXPECT_FALSE(small("halix_server*.dat", "xhalix_server12.dat"));
  EXPECT_FALSE(small("halix_server*.dat", "halix_serve.dat"));
}

TEST(SmallMatcher, MatchesOnlyTheEmptyNameWithTheEmptyPattern) {
  EXPECT_TRUE(small("", ""));
  EXPECT_FALSE(small("", "a"));
  EXPECT_FALSE(small("a", ""));
}

TEST(SmallMatcher, ComparesOrdinaryBytesExactly) {
  EXPECT_TRUE(small("abc", "abc"));
  EXPECT_FALSE(small("abc", "ab"));
  EXPECT_FALSE(small("ab", "abc"));
  EXPECT_FALSE(small("abc", "abC"));
  EXPECT_TRUE(small("]-!^", "]-!^"));
  EXPECT_TRUE(small("\xC3\xA4", "\xC3\xA4"));
}

TEST(SmallMatcher, TakesEscapedBytesLiterally) {
  EXPECT_TRUE(small("\\*", "*"));
  EXPECT_FALSE(small("\\*", "a"));
  EXPECT_TRUE(small("\\a\\?\\[\\\\", "a?[\\"));
  EXPECT_FALSE(small("\\?", ""));
}

TEST(SmallMatcher, FailsOnAnEscapeAtTheEndOfThePattern) {
  EXPECT_FALSE(small("\\", ""));
  EXPECT_FALSE(small("\\", "\\"));
  EXPECT_FALSE(small("a\\", "a"));
  EXPECT_FALSE(small("a\\", "a\\"));
  EXPECT_FALSE(small("*\\", "a\\"));
  EXPECT_FALSE(small("*\\", ""));
}

TEST(SmallMatcher, TakesAnyByteForAQuestionMark) {
  EXPECT_TRUE(small("?", "a"));
  EXPECT_TRUE(small("?", "/"));
  EXPECT_TRUE(small("?x", ".x"));
  EXPECT_TRUE(small("?", "\xFF"));
  EXPECT_FALSE(small("?", ""));
  EXPECT_FALSE(small("a?", "a"));
  EXPECT_FALSE(small("?", "ab"));
}

TEST(SmallMatcher, KnowsSetsAndRanges) {
  EXPECT_TRUE(small("[abc]", "b"));
  EXPECT_FALSE(small("[abc]", "d"));
  EXPECT_TRUE(small("[a-c]", "a"));
  EXPECT_TRUE(small("[a-c]", "c"));
  EXPECT_FALSE(small("[b-c]", "a"));
  EXPECT_FALSE(small("[b-c]", "d"));
  EXPECT_FALSE(small("[c-a]", "b"));
  EXPECT_TRUE(small("x[a-cx-z]y", "xzy"));
  EXPECT_FALSE(small("[a]", ""));
  EXPECT_FALSE(small("[a]", "aa"));
  EXPECT_TRUE(small("[/]", "/"));
  EXPECT_TRUE(small("[.]x", ".x"));
}

TEST(SmallMatcher, NegatesSetsWithEitherMark) {
  EXPECT_TRUE(small("[!a-c]", "d"));
  EXPECT_FALSE(small("[!a-c]", "b"));
  EXPECT_TRUE(small("[^a-c]", "d"));
  EXPECT_FALSE(small("[^a-c]", "b"));
  EXPECT_TRUE(small("[!!]", "^"));
  EXPECT_FALSE(small("[!!]", "!"));
  EXPECT_TRUE(small("[a!]", "!"));
  EXPECT_FALSE(small("[!a]", ""));
}

TEST(SmallMatcher, TakesTheFirstMemberOfASetEvenIfItCloses) {
  EXPECT_TRUE(small("[]]", "]"));
  EXPECT_TRUE(small("[]a]x", "]x"));
  EXPECT_TRUE(small("[]a]x", "ax"));
  EXPECT_FALSE(small("[!]]", "]"));
  EXPECT_TRUE(small("[!]]", "a"));
  EXPECT_TRUE(small("[]-a]", "^"));
  EXPECT_FALSE(small("[]", "]"));
  EXPECT_FALSE(small("[!]", "a"));
}

TEST(SmallMatcher, TakesADashBeforeTheEndOfASetLiterally) {
  EXPECT_TRUE(small("[a-]", "-"));
  EXPECT_TRUE(small("[a-]", "a"));
  EXPECT_FALSE(small("[a-]", "b"));
  EXPECT_TRUE(small("[-a]", "-"));
  EXPECT_TRUE(small("[+--]", ","));
  EXPECT_TRUE(small("[a-c-e]", "-"));
  EXPECT_FALSE(small("[a-c-e]", "d"));
}

TEST(SmallMatcher, KnowsEscapesInSets) {
  EXPECT_TRUE(small("[\\]]", "]"));
  EXPECT_FALSE(small("[\\]]", "\\"));
  EXPECT_TRUE(small("[a\\]b]", "b"));
  EXPECT_TRUE(small("[Z-\\]]", "["));
  EXPECT_TRUE(small("[\\!a]", "!"));
  EXPECT_TRUE(small("[a\\-c]", "-"));
  EXPECT_FALSE(small("[a\\-c]", "b"));
  // What follows the member that matched is still read for escapes.
  EXPECT_TRUE(small("[a\\]]x", "ax"));
}

TEST(SmallMatcher, FailsOnASetThatIsNeverClosed) {
  for (const char *const pattern : {"[", "[a", "[!", "[!b", "[a-", "[a-z", "[]", "[a\\", "[a-\\",
                                    "[\\]", "[ab\\]", "[^", "*[a", "*[", "[b-"}) {
    EXPECT_FALSE(small(pattern, "a")) << pattern;
  }
}

TEST(SmallMatcher, ComparesRangesAsSignedBytes) {
  // Deliberate: bytes above 0x7F are negative.
  EXPECT_TRUE(small("[\x80-\xFF]", "\x90"));
  EXPECT_FALSE(small("[a-\xFF]", "b"));
  EXPECT_FALSE(small("[a-\xFF]", "\xF0"));
  EXPECT_TRUE(small("[\x80-z]", "a"));
  EXPECT_TRUE(small("[\xF0-\x7F]", "\xF5"));
  EXPECT_FALSE(small("[\xF0-\x7F]", "\xEF"));
  EXPECT_TRUE(small("[\xFF]", "\xFF"));
  EXPECT_TRUE(small("[!\xFF]", "\x7F"));
}

TEST(SmallMatcher, MatchesEverythingWithAStar) {
  EXPECT_TRUE(small("*", ""));
  EXPECT_TRUE(small("*", ".hidden"));
  EXPECT_TRUE(small("a*", "a/b"));
  EXPECT_TRUE(small("a*", "a"));
  EXPECT_FALSE(small("a*", "b"));
  EXPECT_TRUE(small("a*b", "a/x/b"));
  EXPECT_TRUE(small("***", "abc"));
}

TEST(SmallMatcher, LooksForTheRestBehindAStar) {
  EXPECT_TRUE(small("*b", "aab"));
  EXPECT_TRUE(small("*ab", "aaab"));
  EXPECT_TRUE(small("*ab*ab", "abxabab"));
  EXPECT_FALSE(small("*ab*ab", "abxba"));
  EXPECT_FALSE(small("*b", "abc"));
  EXPECT_FALSE(small("*a", ""));
  EXPECT_TRUE(small("*a*b*c", "xxaxxbxxc"));
  EXPECT_FALSE(small("*a*b*c", "xxbxxaxxc"));
}

TEST(SmallMatcher, LooksForSetsAndEscapesBehindAStar) {
  EXPECT_TRUE(small("*[0-9]x", "a1b2x"));
  EXPECT_FALSE(small("*[0-9]x", "a1b2"));
  EXPECT_FALSE(small("*[0-9]", ""));
  EXPECT_TRUE(small("*[!a]", "aab"));
  EXPECT_TRUE(small("*\\*", "ab*"));
  EXPECT_FALSE(small("*\\*", "abc"));
  EXPECT_TRUE(small("*\\[x", "a[x"));
  EXPECT_FALSE(small("*\\[x", "ax"));
}

TEST(SmallMatcher, CountsQuestionMarksAmongStars) {
  EXPECT_TRUE(small("*?", "a"));
  EXPECT_FALSE(small("*?", ""));
  EXPECT_TRUE(small("*??*", "ab"));
  EXPECT_FALSE(small("*??*", "a"));
  EXPECT_FALSE(small("*?*?*?", "ab"));
  EXPECT_TRUE(small("a*?b", "axb"));
  EXPECT_FALSE(small("a*?b", "ab"));
  EXPECT_TRUE(small("*?a", "aa"));
  EXPECT_FALSE(small("*?a", "a"));
}

TEST(SmallMatcher, TakesNamesOfUpTo1023Bytes) {
  EXPECT_TRUE(small("*", std::string(1023, 'a')));
  EXPECT_TRUE(small(std::string(1023, '?'), std::string(1023, 'a')));
  EXPECT_TRUE(small("*b", std::string(1022, 'a') + "b"));
  EXPECT_FALSE(small("*", std::string(1024, 'a')));
  EXPECT_FALSE(small(std::string(1024, 'a'), std::string(1024, 'a')));
  EXPECT_FALSE(small("*b", std::string(1023, 'a') + "b"));
  EXPECT_FALSE(small("*", std::string(100000, 'a')));
}

TEST(SmallMatcher, CountsWhatStandsBeforeAStarToo) {
  const std::string longest(1023, 'a');
  EXPECT_TRUE(small("a*", longest));
  EXPECT_FALSE(small("a*", longest + "a"));
  EXPECT_FALSE(small("a*", longest + "aa"));
  EXPECT_FALSE(small("a*", std::string(100000, 'a')));
  GuardedText guarded;
  const auto at_the_page = [&](const std::string &pattern, const std::string &name) {
    return zul_fnmatch(bytes(pattern), reinterpret_cast<const unsigned char *>(guarded.put(name)));
  };
  EXPECT_EQ(at_the_page(longest + "*", longest), 0);
  EXPECT_EQ(at_the_page(longest + "*", longest + "a"), 1);
  EXPECT_EQ(at_the_page(longest + "a*", longest + "a"), 1);
}

TEST(SmallMatcher, TakesPatternsOfAnyLength) {
  EXPECT_TRUE(small(std::string(100000, '*') + "a", "aa"));
  EXPECT_FALSE(small(std::string(100000, '?'), "aa"));
  EXPECT_TRUE(small("[" + std::string(100000, 'x') + "a]", "a"));
}

TEST(SmallMatcher, MatchesNothingWithoutAPatternOrName) {
  EXPECT_EQ(zul_fnmatch(nullptr, bytes("a")), 1);
  EXPECT_EQ(zul_fnmatch(bytes("*"), nullptr), 1);
  EXPECT_EQ(zul_fnmatch(nullptr, nullptr), 1);
}

TEST(FullMatcher, NumbersItsFlagsInItsOwnWay) {
  EXPECT_EQ(QAL_FNM_PATHNAME, 0x01);
  EXPECT_EQ(QAL_FNM_NOESCAPE, 0x02);
  EXPECT_EQ(QAL_FNM_PERIOD, 0x04);
  EXPECT_EQ(QAL_FNM_LEADING_DIR, 0x08);
  EXPECT_EQ(QAL_FNM_CASEFOLD, 0x10);
  EXPECT_EQ(QAL_FNM_TRAILING_SLASH, 0x20);
}

TEST(FullMatcher, ComparesOrdinaryBytesExactly) {
  EXPECT_TRUE(full("", ""));
  EXPECT_FALSE(full("", "a"));
  EXPECT_FALSE(full("a", ""));
  EXPECT_TRUE(full("abc", "abc"));
  EXPECT_FALSE(full("abc", "ab"));
  EXPECT_FALSE(full("ab", "abc"));
  EXPECT_FALSE(full("ABC", "abc"));
}

TEST(FullMatcher, TakesAnyByteForAQuestionMark) {
  EXPECT_TRUE(full("?", "a"));
  EXPECT_TRUE(full("?", "/"));
  EXPECT_TRUE(full("?", "."));
  EXPECT_FALSE(full("?", ""));
  EXPECT_FALSE(full("?", "ab"));
}

TEST(FullMatcher, KeepsSeparatorsForLiteralsUnderPathRules) {
  EXPECT_TRUE(full("a/b", "a/b", pathname));
  EXPECT_TRUE(full("a\\/b", "a/b", pathname));
  EXPECT_FALSE(full("a?b", "a/b", pathname));
  EXPECT_TRUE(full("a?b", "a/b"));
  EXPECT_FALSE(full("a[/]b", "a/b", pathname));
  EXPECT_FALSE(full("a[!x]b", "a/b", pathname));
  EXPECT_TRUE(full("a[/]b", "a/b"));
  EXPECT_FALSE(full("a*b", "a/b", pathname));
  EXPECT_TRUE(full("a*b", "a/b"));
  EXPECT_FALSE(full("*.c", "dir/x.c", pathname));
  EXPECT_TRUE(full("*.c", "dir/x.c"));
}

TEST(FullMatcher, EndsAStarAtASeparatorUnderPathRules) {
  EXPECT_TRUE(full("*", "abc", pathname));
  EXPECT_TRUE(full("*", "", pathname));
  EXPECT_FALSE(full("*", "a/b", pathname));
  EXPECT_FALSE(full("a*", "ab/", pathname));
  EXPECT_TRUE(full("*", "a/b", pathname | leading_dir));
  EXPECT_TRUE(full("*", "a/b"));
  EXPECT_TRUE(full("*", ""));
}

TEST(FullMatcher, JumpsToTheNextSeparatorUnderPathRules) {
  EXPECT_TRUE(full("*/b", "a/b", pathname));
  EXPECT_TRUE(full("*/b", "/b", pathname));
  EXPECT_FALSE(full("*/b", "a/c/b", pathname));
  EXPECT_TRUE(full("*/b", "a/c/b"));
  EXPECT_FALSE(full("*/b", "b", pathname));
  EXPECT_TRUE(full("*/*/c", "a/b/c", pathname));
  EXPECT_FALSE(full("*/*/c", "a/c", pathname));
  EXPECT_TRUE(full("*a*/b", "xax/b", pathname));
  EXPECT_FALSE(full("*a*/b", "xax/c/b", pathname));
}

TEST(FullMatcher, TriesTheFirstSeparatorButNothingBehindItUnderPathRules) {
  EXPECT_TRUE(full("*\\/b", "a/b", pathname));
  EXPECT_FALSE(full("*\\/b", "a/c/b", pathname));
  EXPECT_FALSE(full("*b", "a/b", pathname));
  EXPECT_TRUE(full("*b/c", "ab/c", pathname));
  EXPECT_FALSE(full("*b/c", "a/b/c", pathname));
}

TEST(FullMatcher, KnowsEscapesUnlessSwitchedOff) {
  EXPECT_TRUE(full("\\*", "*"));
  EXPECT_FALSE(full("\\*", "a"));
  EXPECT_TRUE(full("\\a", "a"));
  EXPECT_FALSE(full("\\a", "\\a"));
  EXPECT_TRUE(full("\\*", "\\abc", noescape));
  EXPECT_TRUE(full("\\a", "\\a", noescape));
  EXPECT_FALSE(full("\\a", "a", noescape));
}

TEST(FullMatcher, TakesAnEscapeAtTheEndForItself) {
  EXPECT_TRUE(full("a\\", "a\\"));
  EXPECT_TRUE(full("\\", "\\"));
  EXPECT_FALSE(full("\\", ""));
  EXPECT_FALSE(full("a\\", "a"));
  EXPECT_TRUE(full("*\\", "ab\\"));
  EXPECT_TRUE(full("a\\", "a\\", noescape));
}

TEST(FullMatcher, KeepsLeadingPeriodsForLiterals) {
  EXPECT_FALSE(full("*", ".x", period));
  EXPECT_FALSE(full("?x", ".x", period));
  EXPECT_FALSE(full("*.x", ".x", period));
  EXPECT_TRUE(full(".x", ".x", period));
  EXPECT_TRUE(full(".*", ".x", period));
  EXPECT_TRUE(full("\\.x", ".x", period));
  EXPECT_TRUE(full("*", ".x"));
  EXPECT_TRUE(full("*", "a.x", period));
  EXPECT_TRUE(full("a?x", "a.x", period));
  EXPECT_FALSE(full("*", ".", period));
}

TEST(FullMatcher, KnowsLeadingPeriodsBehindSeparatorsOnlyUnderPathRules) {
  EXPECT_FALSE(full("a/*", "a/.x", period | pathname));
  EXPECT_FALSE(full("a/?x", "a/.x", period | pathname));
  EXPECT_TRUE(full("a/.x", "a/.x", period | pathname));
  EXPECT_TRUE(full("a/*", "a/.x", period));
  EXPECT_TRUE(full("a/?x", "a/.x", period));
  EXPECT_TRUE(full("a/*", "a/.x", pathname));
}

TEST(FullMatcher, LetsASetTakeALeadingPeriod) {
  // Deliberate: the rule names the question mark and the star.
  EXPECT_TRUE(full("[.]x", ".x", period));
  EXPECT_TRUE(full("[!a]x", ".x", period));
  EXPECT_TRUE(full("a/[.]x", "a/.x", period | pathname));
}

TEST(FullMatcher, ForgetsLeadingPeriodsBehindAStarThatSearches) {
  // Deliberate: the attempts behind such a star run without the flag.
  EXPECT_TRUE(full("*b/?x", "ab/.x", period | pathname));
  EXPECT_TRUE(full("*b/*", "ab/.x", period | pathname));
  EXPECT_TRUE(full("*\\/?x", "a/.x", period | pathname));
  // One that jumps to the next separator has made no attempt.
  EXPECT_FALSE(full("*/?x", "a/.x", period | pathname));
  EXPECT_FALSE(full("*/*", "a/.x", period | pathname));
}

TEST(FullMatcher, EndsThePatternAtASeparatorUnderTheLeadingDirectoryRule) {
  EXPECT_TRUE(full("a", "a/b", leading_dir));
  EXPECT_TRUE(full("a", "a/", leading_dir));
  EXPECT_TRUE(full("a", "a", leading_dir));
  EXPECT_FALSE(full("a", "ab", leading_dir));
  EXPECT_FALSE(full("a", "a/b"));
  EXPECT_TRUE(full("", "/a", leading_dir));
  EXPECT_TRUE(full("*b", "ab/c", leading_dir));
  EXPECT_TRUE(full("*c", "ac/bc/d", leading_dir));
  EXPECT_TRUE(full("*c", "ac/bc/d", leading_dir | pathname));
}

TEST(FullMatcher, KnowsSetsAndRanges) {
  EXPECT_TRUE(full("[abc]", "b"));
  EXPECT_FALSE(full("[abc]", "d"));
  EXPECT_TRUE(full("[a-c]", "a"));
  EXPECT_TRUE(full("[a-c]", "c"));
  EXPECT_FALSE(full("[b-c]", "a"));
  EXPECT_FALSE(full("[b-c]", "d"));
  EXPECT_TRUE(full("[!a-c]", "d"));
  EXPECT_TRUE(full("[^a-c]", "d"));
  EXPECT_FALSE(full("[!a-c]", "b"));
  EXPECT_FALSE(full("[a]", ""));
  EXPECT_FALSE(full("[a]", "aa"));
  EXPECT_TRUE(full("[a-]", "-"));
  EXPECT_TRUE(full("[-a]", "-"));
  EXPECT_TRUE(full("[+--]", ","));
}

TEST(FullMatcher, ClosesASetAtOnce) {
  // Deliberate: the small matcher takes the bracket as a member.
  EXPECT_FALSE(full("[]a]", "a"));
  EXPECT_FALSE(full("[]a]", "]"));
  EXPECT_FALSE(full("[]a]", "]a]"));
  EXPECT_TRUE(full("[!]a]", "xa]"));
  EXPECT_TRUE(full("[^]", "x"));
  EXPECT_FALSE(full("[!]", ""));
}

TEST(FullMatcher, KnowsEscapesInSetsUnlessSwitchedOff) {
  EXPECT_TRUE(full("[\\]]", "]"));
  EXPECT_FALSE(full("[\\]]", "\\"));
  EXPECT_TRUE(full("[Z-\\]]", "["));
  EXPECT_FALSE(full("[a\\-c]", "b"));
  EXPECT_TRUE(full("[\\]]", "\\]", noescape));
  EXPECT_TRUE(full("[Z-\\]", "[", noescape));
  EXPECT_FALSE(full("[Z-\\]", "["));
}

TEST(FullMatcher, FailsOnASetThatIsNeverClosed) {
  for (const char *const pattern :
       {"[", "[a", "[!", "[!b", "[a-", "[a-z", "[a\\", "[a-\\", "[\\]", "*[a", "*["}) {
    EXPECT_FALSE(full(pattern, "a")) << pattern;
  }
}

TEST(FullMatcher, ComparesRangesAsUnsignedBytes) {
  EXPECT_TRUE(full("[a-\xFF]", "b"));
  EXPECT_TRUE(full("[a-\xFF]", "\xF0"));
  EXPECT_FALSE(full("[\x80-z]", "a"));
  EXPECT_TRUE(full("[\x80-\xFF]", "\x90"));
}

TEST(FullMatcher, FoldsCaseOutsideSets) {
  EXPECT_TRUE(full("ABC", "abc", casefold));
  EXPECT_TRUE(full("abc", "ABC", casefold));
  EXPECT_TRUE(full("\\A", "a", casefold));
  EXPECT_TRUE(full("*B", "ab", casefold));
  EXPECT_FALSE(full("a", "b", casefold));
  EXPECT_FALSE(full("@", "`", casefold));
  EXPECT_FALSE(full("A", "", casefold));
}

TEST(FullMatcher, FoldsAsciiLettersInSets) {
  EXPECT_TRUE(full("[a]", "A", casefold));
  EXPECT_TRUE(full("[A]", "a", casefold));
  EXPECT_FALSE(full("[a]", "A"));
  EXPECT_TRUE(full("[a-c]", "B", casefold));
  EXPECT_TRUE(full("[A-C]", "b", casefold));
  EXPECT_FALSE(full("[!a-c]", "B", casefold));
  EXPECT_TRUE(full("[!a-c]", "B"));
  // Deliberate: the ends of a range fold as well, which turns this one round.
  EXPECT_FALSE(full("[_-b]", "a", casefold));
  EXPECT_TRUE(full("[_-b]", "a"));
  EXPECT_TRUE(full("[A-_]", "z", casefold));
  EXPECT_FALSE(full("[{]", "[", casefold));
}

TEST(FullMatcher, EndsTheStringWhereThePatternHasASlashUnderTheTolerance) {
  EXPECT_TRUE(full("a/", "a", trailing_slash));
  EXPECT_TRUE(full("a\\/", "a", trailing_slash));
  EXPECT_FALSE(full("a/", "a"));
  EXPECT_TRUE(full("a/", "a/", trailing_slash));
  EXPECT_FALSE(full("/", "", trailing_slash));
  EXPECT_FALSE(full("ab", "a", trailing_slash));
  EXPECT_FALSE(full("a/", "b", trailing_slash));
  EXPECT_TRUE(full("?/", "a", trailing_slash));
  EXPECT_TRUE(full("a/", "A", trailing_slash | casefold));
}

TEST(FullMatcher, ToleratesASlashThatIsNotThePatternsLast) {
  // Deliberate: the rule looks at the byte where the string ended and at nothing behind it.
  EXPECT_TRUE(full("a/b", "a", trailing_slash));
  EXPECT_TRUE(full("a/[", "a", trailing_slash));
  EXPECT_FALSE(full("a/b", "a/", trailing_slash));
}

TEST(FullMatcher, ToleratesAnyLiteralBehindALoneSlash) {
  EXPECT_TRUE(full("/a", "/", trailing_slash));
  EXPECT_TRUE(full("?a", "/", trailing_slash));
  EXPECT_TRUE(full("//", "/", trailing_slash));
  EXPECT_FALSE(full("/a", "/"));
  EXPECT_FALSE(full("/?", "/", trailing_slash));
  EXPECT_FALSE(full("/[a]", "/", trailing_slash));
  EXPECT_FALSE(full("/*a", "/", trailing_slash));
  EXPECT_FALSE(full("x/a", "x/", trailing_slash));
  EXPECT_FALSE(full("a", "/", trailing_slash));
}

TEST(FullMatcher, TakesWhatFollowsAStarAsTheStringOfTheTolerance) {
  // Behind the star the string of the last attempt is "/", so any literal may follow it.
  EXPECT_TRUE(full("*/a", "x/", trailing_slash));
  EXPECT_TRUE(full("*?a", "x/", trailing_slash));
  EXPECT_TRUE(full("*b/", "ab", trailing_slash));
  // A star makes no attempt at the end of the string, where its own would be empty.
  EXPECT_FALSE(full("*/", "a", trailing_slash));
  EXPECT_FALSE(full("a*/", "a", trailing_slash));
  EXPECT_FALSE(full("*/", "a", trailing_slash | pathname));
}

TEST(FullMatcher, LooksForAToleratedEndBehindEarlierStars) {
  EXPECT_TRUE(full("*?a*a", ".a/a/", trailing_slash));
  EXPECT_FALSE(full("*?a*a", ".a/a/"));
  EXPECT_TRUE(full("*?/*b", "a/", trailing_slash));
  EXPECT_FALSE(full("*?/*b", "a/"));
}

TEST(FullMatcher, IgnoresOtherFlags) {
  EXPECT_TRUE(full("A*", "Ab", 0xFFFFFFC0U));
  EXPECT_FALSE(full("a*", "Ab", 0xFFFFFFC0U));
}

TEST(FullMatcher, TakesStringsOfAnyLength) {
  EXPECT_TRUE(full("*b", std::string(100000, 'a') + "b"));
  EXPECT_TRUE(full(std::string(100000, '*'), "abc"));
}

// The stack is far too small for a call for each star.
TEST(FullMatcher, DoesNotRecurseForStars) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{256} << 10), 0);
  pthread_t thread;
  const auto match = [](void *) -> void * {
    std::string pattern;
    for (int star = 0; star < 300'000; ++star) pattern += "*a";
    EXPECT_TRUE(full(pattern, std::string(300'000, 'a')));
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, match, nullptr), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST(BothMatchers, NeverReadBeyondAnEnd) {
  GuardedText pattern_text;
  GuardedText name_text;
  const std::string_view pattern = "a*[!b-\\]^-]?\\[*[]-z]x*/[a-\\";
  const std::string_view name = "a/.b]cd[ex/yz";
  for (std::size_t begin = 0; begin < pattern.size(); ++begin) {
    for (std::size_t length = 0; begin + length <= pattern.size(); ++length) {
      const char *const cut_pattern = pattern_text.put(pattern.substr(begin, length));
      const auto *const cut_bytes = reinterpret_cast<const unsigned char *>(cut_pattern);
      for (std::size_t rest = 0; rest <= name.size(); ++rest) {
        const char *const cut_name = name_text.put(name.substr(rest));
        zul_fnmatch(cut_bytes, reinterpret_cast<const unsigned char *>(cut_name));
        for (unsigned flags = 0; flags < 64; ++flags) qal_fnmatch(cut_bytes, cut_name, flags);
      }
    }
  }
}

TEST(FullMatcher, MatchesNothingWithoutAPatternOrString) {
  EXPECT_EQ(qal_fnmatch(nullptr, "a", 0), 1);
  EXPECT_EQ(qal_fnmatch(bytes("*"), nullptr, 0), 1);
}

TEST(FullMatcher, AddsNoFlagUnderItsOtherName) {
  EXPECT_EQ(qal_fnmatch_pathnames(bytes("*.c"), "dir/x.c", 0), 0);
  EXPECT_EQ(qal_fnmatch_pathnames(bytes("*.c"), "dir/x.c", QAL_FNM_PATHNAME), 1);
  EXPECT_EQ(qal_fnmatch_pathnames(bytes("A"), "a", QAL_FNM_CASEFOLD), 0);
  EXPECT_EQ(qal_fnmatch_pathnames(bytes("A"), "a", 0), 1);
}

}  // namespace

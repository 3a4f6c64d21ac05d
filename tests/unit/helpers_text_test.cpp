// Names, part lists, version texts and the saved shell command.
#include <gtest/gtest.h>
#include <kalmora/helpers.hpp>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "internal/handles.hpp"
#include "support/child.hpp"

namespace {

using qal::internal::OwnedText;
using qal::test::in_new_process;

TEST(NameSanitise, ReplacesEveryCharacterOfTheSetAndNoOther) {
  const std::string set = " !\"#$'()*+,-./:<>?@[\\]^|";
  for (int byte = 1; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    char name[] = {'a', c, 'b', '\0'};
    const bool illegal = set.find(c) != set.npos;
    EXPECT_EQ(replace_illegal(name), illegal ? 1 : 0) << byte;
    EXPECT_EQ(name[0], 'a');
    EXPECT_EQ(name[1], illegal ? '_' : c) << byte;
    EXPECT_EQ(name[2], 'b');
  }
}

TEST(NameSanitise, ReplacesAtTheStartAndAtTheEnd) {
  char name[] = ".part-1.";
  EXPECT_EQ(replace_illegal(name), 1);
  EXPECT_STREQ(name, "_part_1_");
}

TEST(NameSanitise, LeavesACleanNameAlone) {
  char name[] = "Part%&;=`{}~_1";
  EXPECT_EQ(replace_illegal(name), 0);
  EXPECT_STREQ(name, "Part%&;=`{}~_1");
}

TEST(NameSanitise, TakesEmptyAndNullNames) {
  char empty[] = "";
  EXPECT_EQ(replace_illegal(empty), 0);
  EXPECT_EQ(replace_illegal(nullptr), 0);
}

TEST(NameCompare, IgnoresBlanksAndLetterCase) {
  EXPECT_EQ(readercmp("Left Wing 12", " leftWING12 "), 0);
  EXPECT_EQ(readercmp("", "   "), 0);
}

TEST(NameCompare, OrdersByTheRestIgnoringCase) {
  EXPECT_LT(readercmp("a b", "AC"), 0);
  EXPECT_GT(readercmp("A C", "ab"), 0);
  EXPECT_LT(readercmp("ab", "abc"), 0);
}

TEST(NameCompare, SeesEveryOtherWhiteSpace) { EXPECT_NE(readercmp("a\tb", "ab"), 0); }

TEST(NameCompare, TakesNamesOfEightyBytesAndRefusesLongerOnes) {
  const std::string longest(80, 'x');
  const std::string upper(80, 'X');
  const std::string longer(81, 'x');
  EXPECT_EQ(readercmp(longest.c_str(), upper.c_str()), 0);
  EXPECT_EQ(readercmp(longer.c_str(), longer.c_str()), 1);
  EXPECT_EQ(readercmp("a", longer.c_str()), 1);
  EXPECT_EQ(readercmp(longer.c_str(), "a"), 1);
}

TEST(NameCompare, CountsBlanksTowardTheLength) {
  EXPECT_EQ(readercmp((std::string(80, ' ') + "a").c_str(), "a"), 1);
  EXPECT_EQ(readercmp((std::string(79, ' ') + "a").c_str(), "a"), 0);
}

TEST(NameCompare, LeavesItsArgumentsAlone) {
  const std::string a = "A b";
  EXPECT_EQ(readercmp(a.c_str(), "a B"), 0);
  EXPECT_EQ(a, "A b");
}

TEST(NameCompare, AnswersOneForANullName) {
  EXPECT_EQ(readercmp(nullptr, "a"), 1);
  EXPECT_EQ(readercmp("a", nullptr), 1);
}

TEST(LowerCase, CopiesAndLowersLetters) {
  const char text[] = "Kalmora 102-ABCXYZ";
  const OwnedText copy{lower_case(text)};
  ASSERT_TRUE(copy);
  EXPECT_STREQ(copy.get(), "kalmora 102-abcxyz");
  EXPECT_STREQ(text, "Kalmora 102-ABCXYZ");
}

TEST(LowerCase, KeepsBytesFrom128On) {
  std::string text;
  for (int byte = 128; byte < 256; ++byte) text += static_cast<char>(byte);
  const OwnedText copy{lower_case(text.c_str())};
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy.get(), text);
}

TEST(LowerCase, TakesEmptyAndNullTexts) {
  const OwnedText copy{lower_case("")};
  ASSERT_TRUE(copy);
  EXPECT_STREQ(copy.get(), "");
  EXPECT_EQ(lower_case(nullptr), nullptr);
}

std::string stored_command() { return change_rsh(nullptr, 1); }

TEST(SavedCommand, IsEmptyAtFirst) {
  in_new_process([] {
    char text[1024] = "as it was";
    EXPECT_EQ(change_rsh(text, 0), text);
    EXPECT_STREQ(text, "");
  });
}

TEST(SavedCommand, IsStoredByModeOneAndRetrievedByModeZero) {
  char command[] = "ssh -q";
  const char *const stored = change_rsh(command, 1);
  EXPECT_NE(stored, command);
  EXPECT_STREQ(stored, "ssh -q");
  char text[1024] = "";
  EXPECT_EQ(change_rsh(text, 0), text);
  EXPECT_STREQ(text, "ssh -q");
}

TEST(SavedCommand, IsACopyAndOneForTheProcess) {
  char command[] = "first";
  const char *const stored = change_rsh(command, 1);
  command[0] = 'F';
  EXPECT_STREQ(stored, "first");
  char other[] = "second";
  EXPECT_EQ(change_rsh(other, 1), stored);
  EXPECT_STREQ(stored, "second");
}

TEST(SavedCommand, WritesNoMoreThanItsText) {
  char command[] = "rsh";
  change_rsh(command, 1);
  char text[8] = "#######";
  change_rsh(text, 0);
  EXPECT_EQ(std::string(text, 7), std::string("rsh\0###", 7));
}

TEST(SavedCommand, HoldsAtMost1023Bytes) {
  for (const std::size_t length : {1022u, 1023u, 1024u, 5000u}) {
    std::string command(length, 'c');
    change_rsh(command.data(), 1);
    EXPECT_EQ(stored_command(), std::string(std::min<std::size_t>(length, 1023), 'c'));
  }
}

TEST(SavedCommand, MayBeStoredFromItself) {
  char command[] = "remote shell";
  char *const stored = change_rsh(command, 1);
  EXPECT_STREQ(change_rsh(stored, 1), "remote shell");
  EXPECT_STREQ(change_rsh(stored + 7, 1), "shell");
  EXPECT_STREQ(change_rsh(stored, 0), "shell");
}

TEST(SavedCommand, IsLeftAloneByOtherModesAndNull) {
  char command[] = "kept";
  change_rsh(command, 1);
  char text[] = "other";
  for (const int mode : {2, -1, 257}) {
    EXPECT_EQ(change_rsh(text, mode), text);
    EXPECT_STREQ(text, "other");
  }
  EXPECT_EQ(change_rsh(nullptr, 0), nullptr);
  EXPECT_EQ(stored_command(), "kept");
}

// A list of names in buffers of exactly the promised 81 bytes, each followed by a guard byte.
class PartList {
 public:
  explicit PartList(const std::vector<std::string> &names) : buffers_(names.size()) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      buffers_[i].fill('#');
      names[i].copy(buffers_[i].data(), 81);
      buffers_[i][std::min<std::size_t>(names[i].size(), 80)] = '\0';
      pointers_.push_back(buffers_[i].data());
    }
    list_ = {static_cast<int>(names.size()), pointers_.data()};
  }

  std::vector<std::string> sorted() {
    const auto before = pointers_;
    sort_master_part_list(&list_);
    EXPECT_EQ(pointers_, before);
    std::vector<std::string> names;
    for (const auto &buffer : buffers_) {
      EXPECT_EQ(buffer[81], '#');
      names.emplace_back(buffer.data());
    }
    return names;
  }

 private:
  std::vector<std::array<char, 82>> buffers_;
  std::vector<char *> pointers_;
  FILE_PART_LIST list_{};
};

using Names = std::vector<std::string>;

TEST(PartListSort, SortsAscending) {
  EXPECT_EQ(PartList({"wing", "beam", "rib", "axle"}).sorted(),
            (Names{"axle", "beam", "rib", "wing"}));
  EXPECT_EQ(PartList({"b", "a"}).sorted(), (Names{"a", "b"}));
}

TEST(PartListSort, ComparesBytes) {
  EXPECT_EQ(PartList({"\xe9", "b", "B", "a10", "a9", ""}).sorted(),
            (Names{"", "B", "a10", "a9", "b", "\xe9"}));
}

TEST(PartListSort, SortsAnyOrderAndKeepsEqualNames) {
  std::int64_t seed = 7;
  const auto below = [&seed](int limit) {
    return static_cast<int>(erand0(&seed) * static_cast<float>(limit));
  };
  for (int round = 0; round < 50; ++round) {
    Names names(static_cast<std::size_t>(below(40)));
    for (auto &name : names) {
      name.assign(static_cast<std::size_t>(below(4)), static_cast<char>('a' + below(3)));
    }
    Names expected = names;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(PartList(names).sorted(), expected);
  }
}

TEST(PartListSort, MovesNamesOfEightyBytesWhole) {
  const std::string b(80, 'b');
  const std::string a(80, 'a');
  EXPECT_EQ(PartList({b, a}).sorted(), (Names{a, b}));
}

TEST(PartListSort, CutsALongerNameThatMovesToEightyBytes) {
  std::string b(150, 'b');
  std::string a(150, 'a');
  char *names[] = {b.data(), a.data()};
  FILE_PART_LIST list{2, names};
  sort_master_part_list(&list);
  EXPECT_EQ(b.c_str(), std::string(80, 'a'));
  EXPECT_EQ(a.c_str(), std::string(80, 'b'));
}

TEST(PartListSort, KeepsALongerNameThatStaysWhole) {
  std::string a(150, 'a');
  std::string b(150, 'b');
  std::string equal = b;
  char *names[] = {a.data(), b.data(), equal.data()};
  FILE_PART_LIST list{3, names};
  sort_master_part_list(&list);
  EXPECT_EQ(a.c_str(), std::string(150, 'a'));
  EXPECT_EQ(b.c_str(), std::string(150, 'b'));
  EXPECT_EQ(equal.c_str(), std::string(150, 'b'));
}

TEST(PartListSort, LeavesListsOfFewerThanTwoAlone) {
  EXPECT_EQ(PartList({}).sorted(), Names{});
  EXPECT_EQ(PartList({"z"}).sorted(), Names{"z"});
  FILE_PART_LIST negative{-3, nullptr};
  sort_master_part_list(&negative);
  FILE_PART_LIST nameless{5, nullptr};
  sort_master_part_list(&nameless);
  sort_master_part_list(nullptr);
}

struct Version {
  int major = -9;
  int minor = -9;
  int patch = -9;
  char letter = '?';
  bool operator==(const Version &) const = default;
};

void PrintTo(const Version &version, std::ostream *out) {
  *out << version.major << '.' << version.minor << '.' << version.patch << '(' << version.letter
       << ')';
}

Version parsed(const char *text) {
  Version version;
  version_number_from_version_string(text, &version.major, &version.minor, &version.patch,
                                     &version.letter);
  return version;
}

TEST(VersionParse, TakesTheFourPartsApart) {
  EXPECT_EQ(parsed("10.2.34(c)"), (Version{10, 2, 34, 'c'}));
}

TEST(VersionParse, TakesTheLetterBehindAMark) {
  EXPECT_EQ(parsed("10.2.3(1-d)"), (Version{10, 2, 3, 'd'}));
  EXPECT_EQ(parsed("1.2.3(a--)"), (Version{1, 2, 3, '-'}));
}

TEST(VersionParse, TakesWhateverFollowsTheParenthesis) {
  EXPECT_EQ(parsed("1.2.3()"), (Version{1, 2, 3, ')'}));
  EXPECT_EQ(parsed("1.2.3(-x)"), (Version{1, 2, 3, '-'}));
  EXPECT_EQ(parsed("(q"), (Version{0, 0, 0, 'q'}));
}

TEST(VersionParse, SetsANumberOnlyWhenItsEndIsThere) {
  EXPECT_EQ(parsed("7"), (Version{0, 0, 0, 'a'}));
  EXPECT_EQ(parsed("7."), (Version{7, 0, 0, 'a'}));
  EXPECT_EQ(parsed("7.8"), (Version{7, 0, 0, 'a'}));
  EXPECT_EQ(parsed("7.8."), (Version{7, 8, 0, 'a'}));
  EXPECT_EQ(parsed("7.8.9"), (Version{7, 8, 0, 'a'}));
  EXPECT_EQ(parsed("7.8.9("), (Version{7, 8, 9, 'a'}));
  EXPECT_EQ(parsed("7(b)"), (Version{0, 0, 0, 'b'}));
}

TEST(VersionParse, LooksForThePatchBehindTheSecondDot) {
  EXPECT_EQ(parsed("7.8(b)"), (Version{7, 0, 0, 'b'}));
  EXPECT_EQ(parsed("7(b).8.9"), (Version{7, 8, 0, 'b'}));
  EXPECT_EQ(parsed("7(b).8.9(c)"), (Version{7, 8, 9, 'b'}));
}

TEST(VersionParse, KeepsTheStartValueWhereNoNumberStands) {
  EXPECT_EQ(parsed("x.y.z(b)"), (Version{0, 0, 0, 'b'}));
  EXPECT_EQ(parsed("...(b)"), (Version{0, 0, 0, 'b'}));
  EXPECT_EQ(parsed("1. .3(b)"), (Version{1, 0, 3, 'b'}));
  EXPECT_EQ(parsed("1.2.(b)"), (Version{1, 2, 0, 'b'}));
}

TEST(VersionParse, ReadsNumbersAsAFormattedScanDoes) {
  EXPECT_EQ(parsed(" +1.-2.3rc(b)"), (Version{1, -2, 3, 'b'}));
  EXPECT_EQ(parsed("007.0x1.3 (b)"), (Version{7, 0, 3, 'b'}));
  EXPECT_EQ(parsed("1\n.\t2.3(b)"), (Version{1, 2, 3, 'b'}));
}

TEST(VersionParse, HoldsNumbersWithinTheirType) {
  EXPECT_EQ(parsed("2147483647.2147483648.-99999999999999999999(b)"),
            (Version{INT_MAX, INT_MAX, INT_MIN, 'b'}));
}

TEST(VersionParse, NeverLooksBeyondTheEnd) {
  // Exactly sized, so that a checked build would notice.
  for (const std::string text : {"1.2.3(", "1.2.3(1", "1.2.3(1-", "(", ""}) {
    const std::unique_ptr<char[]> exact{new char[text.size() + 1]};
    std::memcpy(exact.get(), text.c_str(), text.size() + 1);
    const char expected = text == "1.2.3(1" ? '1' : 'a';
    EXPECT_EQ(parsed(exact.get()).letter, expected) << text;
  }
}

TEST(VersionParse, TakesNullForTextAndResults) {
  EXPECT_EQ(parsed(nullptr), (Version{0, 0, 0, 'a'}));
  version_number_from_version_string("1.2.3(b)", nullptr, nullptr, nullptr, nullptr);
}

struct Match {
  int first = -9;
  int last = -9;
  bool operator==(const Match &) const = default;
};

void PrintTo(const Match &match, std::ostream *out) { *out << match.first << " to " << match.last; }

Match found(const char *text, const char *part) {
  Match match;
  sub_string_in_string(text, part, &match.first, &match.last);
  return match;
}

TEST(SubstringSearch, ReportsTheFirstMatch) {
  EXPECT_EQ(found("wing beam wing", "beam"), (Match{5, 8}));
  EXPECT_EQ(found("wing beam wing", "wing"), (Match{0, 3}));
  EXPECT_EQ(found("aab", "ab"), (Match{1, 2}));
}

TEST(SubstringSearch, MatchesAtTheVeryEndAndTheWholeText) {
  EXPECT_EQ(found("abc", "c"), (Match{2, 2}));
  EXPECT_EQ(found("abc", "abc"), (Match{0, 2}));
}

TEST(SubstringSearch, ReportsNothingWithoutAMatch) {
  EXPECT_EQ(found("abc", "d"), (Match{-1, -1}));
  EXPECT_EQ(found("abc", "bcd"), (Match{-1, -1}));
  EXPECT_EQ(found("abc", "abcd"), (Match{-1, -1}));
  EXPECT_EQ(found("abc", "B"), (Match{-1, -1}));
  EXPECT_EQ(found("", "a"), (Match{-1, -1}));
}

TEST(SubstringSearch, FindsTheEmptyPartAtOnce) {
  EXPECT_EQ(found("abc", ""), (Match{0, -1}));
  EXPECT_EQ(found("", ""), (Match{0, -1}));
}

TEST(SubstringSearch, TakesNullTextsAsNoMatch) {
  EXPECT_EQ(found(nullptr, "a"), (Match{-1, -1}));
  EXPECT_EQ(found("a", nullptr), (Match{-1, -1}));
  EXPECT_EQ(found(nullptr, nullptr), (Match{-1, -1}));
  sub_string_in_string("a", "a", nullptr, nullptr);
}

}  // namespace

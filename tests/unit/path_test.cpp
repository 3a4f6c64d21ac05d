#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <qal/path.h>
#include <qal/status.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "internal/handles.hpp"
#include "support/child.hpp"
#include "support/home.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"

namespace {

using qal::internal::OwnedText;
using qal::test::below_own_home;
using qal::test::in_child;
using qal::test::in_unprivileged_child;
using qal::test::InScratch;
using qal::test::LogCapture;
using qal::test::ScratchDir;
using ::testing::IsNull;

using PathFull = InScratch;
using PathWorkingDirectory = InScratch;
using PathRange = InScratch;

constexpr char untouched = '?';

// A caller's buffer whose bytes behind the size it is passed with must never change.
class Buffer {
 public:
  explicit Buffer(const char *text = nullptr) {
    bytes_.fill(untouched);
    if (text) std::memcpy(bytes_.data(), text, std::strlen(text) + 1);
  }
  char *data() { return bytes_.data(); }
  std::string text() const { return bytes_.data(); }
  bool untouched_from(std::size_t position) const {
    for (std::size_t i = position; i < bytes_.size(); ++i) {
      if (bytes_[i] != untouched) return false;
    }
    return true;
  }

 private:
  std::array<char, 5000> bytes_{};
};

std::string convert(std::string path, std::uint32_t flags) {
  EXPECT_EQ(0, qal_convert_pathname(path.data(), flags));
  return path.c_str();
}
std::string compact(const std::string &path) { return convert(path, QAL_PATH_COMPACT); }

std::string normalise(const std::string &path) {
  Buffer out{""};
  const int result = qal_get_norm_path(path.c_str(), out.data(), 4096);
  return result == 0 ? out.text() : "result " + std::to_string(result);
}

std::string dirname_of(std::string path) { return qal_dirname(path.data()); }
std::string basename_of(std::string path) { return qal_basename(path.data()); }

std::string without_extension(std::string path, int expected) {
  EXPECT_EQ(expected, qal_remove_ext(path.data()));
  return path.c_str();
}

std::string expand(const std::string &path) {
  Buffer out;
  const int status = qal_expand_pathname(path.c_str(), out.data(), 1024);
  return status == 0 ? out.text() : "status " + std::to_string(status);
}

// What expand() gives for "~" and the rest.
std::string expanded_own_home(const std::string &rest) {
  const std::string not_found = "status " + std::to_string(QAL_STATUS_NOT_FOUND);
  return below_own_home(rest).value_or(not_found);
}

// The homes that there are for sure, by what leads to them.
std::map<std::string, std::string> known_homes() {
  std::map<std::string, std::string> homes{{"~daemon", getpwnam("daemon")->pw_dir}};
  if (const auto own = below_own_home("")) homes["~"] = *own;
  return homes;
}

struct Range {
  int status;
  std::int32_t first;
  std::int32_t last;
  bool operator==(const Range &) const = default;
};
std::ostream &operator<<(std::ostream &stream, const Range &range) {
  return stream << "status " << range.status << ", " << range.first << " to " << range.last;
}

Range find_range(const std::string &path, std::int32_t first = -1, std::int32_t last = -1) {
  const int status = qal_valid_pathname_range(path.c_str(), &first, &last);
  return {status, first, last};
}
constexpr Range no_range{QAL_STATUS_INVALID, -1, -1};

void make_numbered(const ScratchDir &scratch, const std::vector<std::string> &names) {
  for (const auto &name : names) scratch.file(name);
}

TEST(PathConvert, TurnsBackslashesIntoSlashes) { EXPECT_EQ("a/b/c", convert("a\\b\\c", 0)); }

TEST(PathConvert, ChangesNothingElseWithoutFlags) {
  EXPECT_EQ("C:*?\"<>|//a/./b/../c/", convert("C:*?\"<>|\\/a/./b\\../c\\", 0));
}

TEST(PathConvert, TurnsSlashesIntoBackslashes) {
  EXPECT_EQ("a\\b\\c\\", convert("a/b\\c/", QAL_PATH_TO_BACKSLASH));
}

TEST(PathConvert, AsksForBackslashesWithExactlyTwo) {
  for (const std::uint32_t flags : {1U, 3U, 4U, 0x10002U, 0x80000002U}) {
    EXPECT_EQ("a/b/c", convert("a/b\\c", flags)) << flags;
  }
}

TEST(PathConvert, LooksPastTheSettingsForTheMode) {
  for (const std::uint32_t flags : {0x102U, 0x202U, 0xff02U}) {
    EXPECT_EQ("a\\b", convert("a/b", flags)) << flags;
  }
}

TEST(PathConvert, ReplacesIllegalCharacters) {
  EXPECT_EQ("a______b", convert("a*?\"<>|b", QAL_PATH_FIX_ILLEGAL));
  EXPECT_EQ("C:x_y_", convert("C:x:y?", QAL_PATH_FIX_ILLEGAL));
}

TEST(PathConvert, KeepsOnlyAColonInSecondPlace) {
  EXPECT_EQ("_:_", convert(":::", QAL_PATH_FIX_ILLEGAL));
  EXPECT_EQ("a_b", convert("a*b", QAL_PATH_FIX_ILLEGAL));
  EXPECT_EQ("ab_", convert("ab:", QAL_PATH_FIX_ILLEGAL));
  EXPECT_EQ("_", convert(":", QAL_PATH_FIX_ILLEGAL));
}

TEST(PathConvert, LeavesOtherSettingsOfTheSameByteAlone) {
  EXPECT_EQ("a*/./b", convert("a*/./b", 0xfc00));
}

TEST(PathConvert, Compacts) {
  EXPECT_EQ("a/b/d", compact("a//b/./c/../d"));
  EXPECT_EQ("x/b", compact("x/a/../b"));
}

TEST(PathConvert, DropsSingleDotPieces) {
  EXPECT_EQ("a/b", compact("a/./b"));
  EXPECT_EQ("a/b", compact("a/././b"));
  EXPECT_EQ("/b", compact("/./b"));
  EXPECT_EQ("./b", compact("./b"));
}

TEST(PathConvert, KeepsALeadingRelativeSegment) {
  EXPECT_EQ("a/../b", compact("a/../b"));
  EXPECT_EQ("/../b", compact("/../b"));
  EXPECT_EQ("../b", compact("../b"));
}

TEST(PathConvert, KeepsDotsThatNoSeparatorFollows) {
  EXPECT_EQ("a/..", compact("a/.."));
  EXPECT_EQ("x/a/..", compact("x/a/.."));
  EXPECT_EQ("a/.", compact("a/."));
  EXPECT_EQ("a/.hidden/b", compact("a/.hidden/b"));
  EXPECT_EQ("x/a/..x/b", compact("x/a/..x/b"));
  EXPECT_EQ("x/a/.../b", compact("x/a/.../b"));
}

TEST(PathConvert, CollapsesRepeatedSlashes) {
  EXPECT_EQ("a/b/c/", compact("a//b///c////"));
  EXPECT_EQ("a/b/", compact("a\\/b/\\"));
}

TEST(PathConvert, KeepsTwoLeadingSeparators) {
  EXPECT_EQ("//srv/x", compact("//srv//x"));
  EXPECT_EQ("//srv", compact("///srv"));
  EXPECT_EQ("//srv", compact("/////srv"));
  EXPECT_EQ("\\\\srv\\x", convert("//srv\\\\x", QAL_PATH_TO_BACKSLASH | QAL_PATH_COMPACT));
}

TEST(PathConvert, CompactsWithBackslashes) {
  EXPECT_EQ("x\\b\\c", convert("x/a\\..\\./b\\/c", QAL_PATH_TO_BACKSLASH | QAL_PATH_COMPACT));
}

TEST(PathConvert, DoesAllThreePassesInTurn) {
  EXPECT_EQ("C:/a_b", convert("C:\\\\x\\..\\a?b", QAL_PATH_FIX_ILLEGAL | QAL_PATH_COMPACT));
}

TEST(PathConvert, LeavesAnEmptyPathEmpty) {
  EXPECT_EQ("", convert("", QAL_PATH_FIX_ILLEGAL | QAL_PATH_COMPACT));
}

TEST(PathConvert, IgnoresANullPath) { EXPECT_EQ(0, qal_convert_pathname(nullptr, 0x302)); }

TEST(PathConvert, DoesNotWriteToACleanPath) {
  EXPECT_EQ(0, qal_convert_pathname(const_cast<char *>("/read/only.txt"), 0));
}

TEST(PathConvert, ExaminesTheSecondOfTwoLeadingSeparators) {
  EXPECT_EQ("/x", compact("//../x"));
  EXPECT_EQ("//x", compact("//./x"));
}

TEST(PathConvert, IsOnePassAndNotIdempotent) {
  EXPECT_EQ("a/x/../b", compact("a/x//../b"));
  EXPECT_EQ("a/b", compact("a/x/../b"));
}

TEST(PathNormalise, DropsDotSegmentsAndRepeatedSlashes) {
  EXPECT_EQ("a/b", normalise("a/./b"));
  EXPECT_EQ("/a/c", normalise("/a/b/../c"));
  EXPECT_EQ("a/b", normalise("a//b///"));
  EXPECT_EQ("a", normalise("a/b/.."));
}

TEST(PathNormalise, TurnsBackslashesIntoSlashes) { EXPECT_EQ("a/c", normalise("a\\b\\..\\c")); }

TEST(PathNormalise, KeepsEveryOtherByte) {
  std::string path;
  for (int byte = 1; byte <= UCHAR_MAX; ++byte) {
    if (byte != '.' && byte != '/' && byte != '\\') path += static_cast<char>(byte);
  }
  EXPECT_EQ(path, normalise(path));
}

TEST(PathNormalise, KeepsOneOrExactlyTwoLeadingSlashes) {
  EXPECT_EQ("/a", normalise("/a"));
  EXPECT_EQ("//a/b", normalise("//a//b"));
  EXPECT_EQ("//a/b", normalise("\\\\a\\b"));
  EXPECT_EQ("/a", normalise("///a"));
  EXPECT_EQ("/a", normalise("/////a"));
  EXPECT_EQ("/", normalise("/"));
  EXPECT_EQ("//", normalise("//"));
  EXPECT_EQ("/", normalise("///"));
}

TEST(PathNormalise, AnswersADotWhenNothingIsLeft) {
  EXPECT_EQ(".", normalise(""));
  EXPECT_EQ(".", normalise("."));
  EXPECT_EQ(".", normalise("a/.."));
  EXPECT_EQ("/", normalise("/a/.."));
}

TEST(PathNormalise, RefusesWhatLeadsAboveTheFirstSegment) {
  EXPECT_EQ("result -1", normalise("/.."));
  EXPECT_EQ("result -1", normalise("a/../.."));
  EXPECT_EQ("result -1", normalise("./.."));
  EXPECT_EQ("result -1", normalise("a/b/../../../c"));
}

TEST(PathNormalise, RefusesAPathThatBeginsWithTwoDots) {
  EXPECT_EQ("result -1", normalise(".."));
  EXPECT_EQ("result -1", normalise("..x"));
  EXPECT_EQ("result -1", normalise("..foo/x"));
}

TEST(PathNormalise, SkipsEmptiedSegmentsForATwoDotSegment) {
  EXPECT_EQ("a/d", normalise("a/b/c/../../d"));
  EXPECT_EQ("a/d", normalise("a/b/./.c/../d"));
}

TEST(PathNormalise, KeepsUpTo1024Segments) {
  std::string path = "a";
  for (int segment = 1; segment < 1024; ++segment) path += "/a";
  EXPECT_EQ(path, normalise(path));
  EXPECT_EQ(path, normalise(path + "/"));
  EXPECT_EQ("result -1", normalise(path + "/a"));
  EXPECT_EQ("result -1", normalise(path + "/."));
}

TEST(PathNormalise, CountsDotSegmentsToo) {
  std::string path = "a";
  for (int segment = 1; segment < 1024; ++segment) path += "/.";
  EXPECT_EQ("a", normalise(path));
  EXPECT_EQ("result -1", normalise(path + "/."));
}

TEST(PathNormalise, AnswersTheNeededSizeAndLeavesTheBufferAlone) {
  // The prefix, and one more than its length for each segment, and the terminator.
  for (const int size : {INT_MIN, -1, 0, 1, 7}) {
    Buffer out{""};
    EXPECT_EQ(8, qal_get_norm_path("/ab/./cd/x/..", out.data(), size)) << size;
    EXPECT_TRUE(out.text().empty() && out.untouched_from(1));
  }
}

TEST(PathNormalise, FillsABufferOfTheNeededSize) {
  Buffer out{""};
  EXPECT_EQ(8, qal_get_norm_path("/ab/cd", out.data(), 7));
  EXPECT_EQ(0, qal_get_norm_path("/ab/cd", out.data(), 8));
  EXPECT_EQ("/ab/cd", out.text());
  EXPECT_TRUE(out.untouched_from(8));
}

TEST(PathNormalise, RefusesNull) {
  Buffer out{""};
  EXPECT_EQ(-1, qal_get_norm_path(nullptr, out.data(), 10));
  EXPECT_EQ(-1, qal_get_norm_path("a", nullptr, 10));
  EXPECT_EQ(-1, qal_get_norm_path("", nullptr, 10));
}

TEST(PathNormalise, AnswersTheNeededSizeWithoutABuffer) {
  EXPECT_EQ(3, qal_get_norm_path("a", nullptr, 0));
  EXPECT_EQ(3, qal_get_norm_path("a", nullptr, -5));
}

TEST(PathNormalise, LeavesTheBufferAloneWhenItRefuses) {
  Buffer out{"kept"};
  EXPECT_EQ(-1, qal_get_norm_path("a/../..", out.data(), 100));
  EXPECT_EQ("kept", out.text());
}

TEST(PathNormalise, CopiesTheDotOfAnEmptyPathBounded) {
  Buffer out;
  EXPECT_EQ(0, qal_get_norm_path("", out.data(), -1));
  EXPECT_EQ(0, qal_get_norm_path("", out.data(), 0));
  EXPECT_TRUE(out.untouched_from(0));
  EXPECT_EQ(0, qal_get_norm_path("", out.data(), 1));
  EXPECT_EQ("", out.text());
  EXPECT_TRUE(out.untouched_from(1));
  EXPECT_EQ(0, qal_get_norm_path("", out.data(), 2));
  EXPECT_EQ(".", out.text());
}

TEST(PathNormalise, NeedsRoomForADotWhenNothingIsLeft) {
  Buffer out{""};
  EXPECT_EQ(1, qal_get_norm_path("./.", out.data(), 0));
  EXPECT_EQ(2, qal_get_norm_path("./.", out.data(), 1));
  EXPECT_TRUE(out.text().empty() && out.untouched_from(1));
  EXPECT_EQ(0, qal_get_norm_path("./.", out.data(), 2));
  EXPECT_EQ(".", out.text());
}

TEST(PathNormalise, AppendsARelativeResultToTheTextInTheBuffer) {
  Buffer out{"pre\\fix"};
  EXPECT_EQ(0, qal_get_norm_path("a/b", out.data(), 12));
  EXPECT_EQ("pre/fixa/b", out.text());
  EXPECT_TRUE(out.untouched_from(12));
}

TEST(PathNormalise, CountsTheTextInTheBuffer) {
  Buffer out{"prefix"};
  EXPECT_EQ(9, qal_get_norm_path("a", out.data(), 8));
  EXPECT_EQ("prefix", out.text());
  EXPECT_EQ(0, qal_get_norm_path("a", out.data(), 9));
  EXPECT_EQ("prefixa", out.text());
}

TEST(PathNormalise, DoesNotReadBeyondABufferWithoutATerminator) {
  Buffer out;
  EXPECT_EQ(7, qal_get_norm_path("a", out.data(), 4));
  EXPECT_TRUE(out.untouched_from(0));
}

TEST(PathNormalise, ReplacesTheTextInTheBufferByAnAbsoluteResult) {
  Buffer out{"a long text"};
  EXPECT_EQ(0, qal_get_norm_path("/a", out.data(), 12));
  EXPECT_EQ("/a", out.text());
}

TEST(PathNormalise, LeavesTextInTheBufferWhenNothingIsAppended) {
  Buffer out{"pre"};
  EXPECT_EQ(0, qal_get_norm_path(".", out.data(), 8));
  EXPECT_EQ("pre", out.text());
}

TEST(PathNormalise, DropsHiddenNames) {
  EXPECT_EQ("a/b", normalise("a/.x/b"));
  EXPECT_EQ("home", normalise("home/.config"));
}

TEST(PathNormalise, TakesALongerNameWithTwoDotsForTwoDots) {
  EXPECT_EQ("a/c", normalise("a/b/..x/c"));
  EXPECT_EQ("a/c", normalise("a/b/.../c"));
}

TEST(PathNormalise, PutsASlashBeforeEverySegmentButTheFirst) {
  EXPECT_EQ("/a", normalise("./a"));
  EXPECT_EQ("/y", normalise("x/../y"));
  EXPECT_EQ("//a", normalise("/./a"));
  EXPECT_EQ("///y", normalise("//x/../y"));
}

TEST(PathDirname, AnswersTheDirectoryPart) {
  EXPECT_EQ("/usr", dirname_of("/usr/lib"));
  EXPECT_EQ("a", dirname_of("a/b/"));
  EXPECT_EQ("a/b", dirname_of("a/b/c///"));
  EXPECT_EQ("a/", dirname_of("a//b"));
}

TEST(PathDirname, AnswersTheRoot) {
  EXPECT_EQ("/", dirname_of("/"));
  EXPECT_EQ("/", dirname_of("/usr/"));
  EXPECT_EQ("/", dirname_of("/usr"));
  EXPECT_EQ("\\", dirname_of("\\"));
  EXPECT_EQ("\\", dirname_of("\\usr\\"));
}

TEST(PathDirname, AnswersADotWithoutASeparator) {
  EXPECT_EQ(".", dirname_of("usr"));
  EXPECT_EQ(".", dirname_of("usr/"));
  EXPECT_EQ(".", dirname_of(""));
  EXPECT_EQ(".", dirname_of(" "));
  EXPECT_EQ(".", dirname_of("  "));
  EXPECT_EQ(".", dirname_of("//"));
  EXPECT_EQ(".", dirname_of("\\\\\\"));
}

TEST(PathDirname, UsesBackslashesWhereThereAreAny) {
  EXPECT_EQ("C:\\a", dirname_of("C:\\a\\b\\\\"));
  EXPECT_EQ("a/b", dirname_of("a/b\\c/d"));
  EXPECT_EQ("ab", dirname_of("ab\\c/"));
}

TEST(PathDirname, AnswersANetworkRoot) {
  EXPECT_EQ("\\\\", dirname_of("\\\\"));
  EXPECT_EQ("\\\\", dirname_of("\\\\server"));
  EXPECT_EQ("\\\\server", dirname_of("\\\\server\\share"));
}

TEST(PathDirname, CutsThePathInPlace) {
  std::string path = "a/b/";
  const char *directory = qal_dirname(path.data());
  EXPECT_EQ(path.data(), directory);
  EXPECT_EQ('\0', path[1]);
  EXPECT_EQ('\0', path[3]);
}

TEST(PathDirname, ReturnsABareRootAsItIs) {
  for (std::string path : {"/", "\\", "\\\\"}) EXPECT_EQ(path.data(), qal_dirname(path.data()));
}

TEST(PathDirname, StripsThePathEvenWhenItAnswersAnotherText) {
  std::string path = "/usr//";
  EXPECT_STREQ("/", qal_dirname(path.data()));
  EXPECT_STREQ("/usr", path.c_str());
}

TEST(PathDirname, StripsNothingBeforeThePath) {
  std::string text = "////";
  EXPECT_STREQ(".", qal_dirname(text.data() + 1));
  EXPECT_EQ("/", text.substr(0, 1));
}

TEST(PathDirname, AnswersADotForNull) { EXPECT_STREQ(".", qal_dirname(nullptr)); }

TEST(PathDirname, RewritesTheTextOfTheCallBefore) {
  std::string slash = "/a";
  std::string backslash = "\\a";
  const char *text = qal_dirname(slash.data());
  EXPECT_STREQ("/", text);
  EXPECT_EQ(text, qal_dirname(backslash.data()));
  EXPECT_STREQ("\\", text);
}

TEST(PathDirname, RewritesItsTextWhateverItReturns) {
  const auto text_after = [](std::initializer_list<std::string> paths) {
    std::string slash = "/a";
    const char *const text = qal_dirname(slash.data());
    for (std::string path : paths) qal_dirname(path.data());
    return std::string{text};
  };
  EXPECT_EQ(text_after({}), "/");
  EXPECT_EQ(text_after({"x\\y\\z"}), "\\");
  EXPECT_EQ(text_after({"b\\"}), "\\");
  EXPECT_EQ(text_after({"\\"}), "\\");
  EXPECT_EQ(text_after({"x\\y\\z", "usr"}), "/");
  EXPECT_EQ(text_after({"x\\y\\z", ""}), "/");
}

TEST(PathDirname, KeepsItsTextBesideBasename) {
  std::string slash = "/a";
  std::string backslash = "\\a\\b";
  const char *const text = qal_dirname(slash.data());
  qal_basename(backslash.data());
  EXPECT_STREQ(text, "/");
}

TEST(PathDirname, KeepsItsTextPerThread) {
  std::string path = "/a";
  const char *text = qal_dirname(path.data());
  std::thread([] {
    std::string other = "\\a";
    EXPECT_STREQ("\\", qal_dirname(other.data()));
  }).join();
  EXPECT_STREQ("/", text);
}

TEST(PathDirname, TakesAnyBackslashInSecondPlaceForANetworkRoot) {
  EXPECT_EQ("\\\\", dirname_of("a\\b"));
}

TEST(PathBasename, AnswersTheLastPart) {
  EXPECT_EQ("b", basename_of("a/b/"));
  EXPECT_EQ("c.d", basename_of("/a/b/c.d"));
  EXPECT_EQ("usr", basename_of("usr"));
  EXPECT_EQ("usr", basename_of("/usr//"));
}

TEST(PathBasename, UsesBackslashesWhereThereAreAny) {
  EXPECT_EQ("b", basename_of("C:\\a\\b\\"));
  EXPECT_EQ("c/d/", basename_of("a\\c/d/"));
}

TEST(PathBasename, AnswersABareRootAsItIs) {
  for (std::string path : {"/", "\\", "\\\\"}) EXPECT_EQ(path.data(), qal_basename(path.data()));
}

TEST(PathBasename, AnswersADotForABlankPath) {
  EXPECT_EQ(".", basename_of(""));
  EXPECT_EQ(".", basename_of(" "));
  EXPECT_EQ("  ", basename_of("  "));
}

TEST(PathBasename, PointsIntoThePathAndStripsIt) {
  std::string path = "a/b//";
  EXPECT_EQ(path.data() + 2, qal_basename(path.data()));
  EXPECT_STREQ("a/b", path.c_str());
}

TEST(PathBasename, AnswersADotForNull) { EXPECT_STREQ(".", qal_basename(nullptr)); }

TEST(PathBasename, AnswersAnEmptyTextForTwoSlashes) { EXPECT_EQ("", basename_of("//")); }

TEST(PathAbsolute, TakesARootAHomeOrADrive) {
  for (const char *path : {"/", "/a", "~", "~me/a", "C:", "z:a", "A:/", "Z:", "a:"}) {
    EXPECT_EQ(1, qal_path_is_absolute(path)) << path;
  }
}

TEST(PathAbsolute, TakesNothingElse) {
  for (const char *path : {"", "a", "a/b", "\\a", "\\\\srv",
                           "1:", "@:", "[:", "`:", "{:", "::", "\xe4:", "ab:", " /"}) {
    EXPECT_EQ(0, qal_path_is_absolute(path)) << path;
  }
  EXPECT_EQ(0, qal_path_is_absolute(nullptr));
}

TEST_F(PathFull, CopiesAnAbsolutePath) {
  for (const char *path : {"/a//./b", "~/x", "C:\\x"}) {
    Buffer out;
    EXPECT_EQ(0, qal_get_full_path(path, out.data(), 100));
    EXPECT_EQ(path, out.text());
  }
}

TEST_F(PathFull, PutsTheWorkingDirectoryBeforeARelativePath) {
  ASSERT_EQ(0, qal_setcwd(scratch.path().c_str()));
  Buffer out;
  EXPECT_EQ(0, qal_get_full_path("a/../b", out.data(), 1024));
  EXPECT_EQ(scratch / "a/../b", out.text());
}

TEST_F(PathFull, AnswersTheNeededSizeOfAnAbsolutePath) {
  Buffer out;
  for (const int size : {INT_MIN, 0, 4}) EXPECT_EQ(5, qal_get_full_path("/abc", out.data(), size));
  EXPECT_TRUE(out.untouched_from(0));
  EXPECT_EQ(0, qal_get_full_path("/abc", out.data(), 5));
  EXPECT_TRUE(out.untouched_from(5));
}

TEST_F(PathFull, AnswersTheNeededSizeOfARelativePath) {
  ASSERT_EQ(0, qal_setcwd(scratch.path().c_str()));
  const int needed = static_cast<int>(scratch.path().size()) + 3 + 2;
  Buffer out;
  for (const int size : {-1, 0, needed - 1}) {
    EXPECT_EQ(needed, qal_get_full_path("abc", out.data(), size));
  }
  EXPECT_TRUE(out.untouched_from(0));
  EXPECT_EQ(0, qal_get_full_path("abc", out.data(), needed));
  EXPECT_EQ(scratch / "abc", out.text());
  EXPECT_TRUE(out.untouched_from(static_cast<std::size_t>(needed)));
}

TEST_F(PathFull, RefusesANullOrEmptyPath) {
  Buffer out;
  EXPECT_EQ(-1, qal_get_full_path(nullptr, out.data(), 100));
  EXPECT_EQ(-1, qal_get_full_path("", out.data(), 100));
  EXPECT_TRUE(out.untouched_from(0));
}

TEST_F(PathFull, TakesANullBufferForNoRoom) { EXPECT_EQ(3, qal_get_full_path("/a", nullptr, 100)); }

TEST_F(PathFull, RefusesWhenThereIsNoWorkingDirectory) {
  const std::string gone = scratch.directory("gone");
  ASSERT_EQ(0, qal_setcwd(gone.c_str()));
  ASSERT_EQ(0, rmdir(gone.c_str()));
  Buffer out;
  EXPECT_EQ(-1, qal_get_full_path("name", out.data(), 1024));
  EXPECT_EQ(-1, qal_get_full_path("name", out.data(), 0));
  EXPECT_TRUE(out.untouched_from(0));
  EXPECT_EQ(0, qal_get_full_path("/name", out.data(), 1024));
}

TEST_F(PathFull, RefusesAWorkingDirectoryOfMoreThan1023Bytes) {
  ASSERT_EQ(0, qal_setcwd(scratch.path().c_str()));
  std::size_t length = scratch.path().size();
  const auto descend = [&length](std::size_t bytes) {
    const std::string name(bytes - 1, 'd');
    length += bytes;
    return mkdir(name.c_str(), 0755) == 0 && qal_setcwd(name.c_str()) == 0;
  };
  while (1023 - length > 250) ASSERT_TRUE(descend(200));
  ASSERT_TRUE(descend(1023 - length));
  Buffer out;
  EXPECT_EQ(0, qal_get_full_path("n", out.data(), 2000));
  EXPECT_EQ(1025U, out.text().size());
  ASSERT_TRUE(descend(2));
  EXPECT_EQ(-1, qal_get_full_path("n", out.data(), 2000));
}

TEST_F(PathFull, UsesABackslashBelowADirectoryThatHoldsOne) {
  ASSERT_EQ(0, qal_setcwd(scratch.directory("a\\b").c_str()));
  Buffer out;
  EXPECT_EQ(0, qal_get_full_path("c", out.data(), 1024));
  EXPECT_EQ(scratch / "a\\b\\c", out.text());
}

TEST_F(PathFull, DoublesTheSlashBelowTheRoot) {
  ASSERT_EQ(0, qal_setcwd("/"));
  Buffer out;
  EXPECT_EQ(0, qal_get_full_path("a", out.data(), 1024));
  EXPECT_EQ("//a", out.text());
}

TEST_F(PathFull, TakesALeadingBackslashForRelative) {
  ASSERT_EQ(0, qal_setcwd("/"));
  Buffer out;
  EXPECT_EQ(0, qal_get_full_path("\\a", out.data(), 1024));
  EXPECT_EQ("//\\a", out.text());
}

TEST_F(PathWorkingDirectory, IsReadBackAsItWasSet) {
  EXPECT_EQ(0, qal_setcwd(scratch.path().c_str()));
  Buffer buffer;
  EXPECT_EQ(buffer.data(), qal_getcwd(buffer.data(), 1024));
  EXPECT_EQ(scratch.path(), buffer.text());
}

TEST_F(PathWorkingDirectory, IsAllocatedWithoutABuffer) {
  ASSERT_EQ(0, qal_setcwd(scratch.path().c_str()));
  const OwnedText directory{qal_getcwd(nullptr, 0)};
  EXPECT_STREQ(scratch.path().c_str(), directory.get());
}

TEST_F(PathWorkingDirectory, AnswersNullWhenTheBufferIsTooSmall) {
  ASSERT_EQ(0, qal_setcwd("/"));
  Buffer buffer;
  EXPECT_THAT(qal_getcwd(buffer.data(), 1), IsNull());
  EXPECT_EQ(ERANGE, errno);
}

TEST_F(PathWorkingDirectory, AnswersMinusOneWhenItCannotBeSet) {
  EXPECT_EQ(-1, qal_setcwd((scratch / "absent").c_str()));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(-1, qal_setcwd(nullptr));
  EXPECT_EQ(EFAULT, errno);
}

TEST(PathAdd, AppendsComponentsToTheList) {
  Buffer list;
  EXPECT_EQ(0, qal_addpath(list.data(), "/opt/a:/opt/b", "home", "lib", nullptr));
  EXPECT_EQ("/opt/a:/opt/b:home/lib", list.text());
}

TEST(PathAdd, WritesNoColonWithoutABase) {
  Buffer list;
  EXPECT_EQ(0, qal_addpath(list.data(), nullptr, "a", "b", "c", nullptr));
  EXPECT_EQ("a/b/c", list.text());
}

TEST(PathAdd, CopiesTheBaseWithoutComponents) {
  Buffer list;
  EXPECT_EQ(0, qal_addpath(list.data(), "/opt", nullptr));
  EXPECT_EQ("/opt", list.text());
  EXPECT_EQ(0, qal_addpath(list.data(), nullptr, nullptr));
  EXPECT_EQ("", list.text());
}

TEST(PathAdd, WritesAColonBehindAnEmptyBase) {
  Buffer list;
  EXPECT_EQ(0, qal_addpath(list.data(), "", "a", nullptr));
  EXPECT_EQ(":a", list.text());
}

TEST(PathAdd, KeepsEmptyComponents) {
  Buffer list;
  EXPECT_EQ(0, qal_addpath(list.data(), "b", "", "x", "", nullptr));
  EXPECT_EQ("b:/x/", list.text());
}

TEST(PathAdd, GrowsAListInItsOwnBuffer) {
  Buffer list{"/opt"};
  EXPECT_EQ(0, qal_addpath(list.data(), list.data(), "a", "b", nullptr));
  EXPECT_EQ("/opt:a/b", list.text());
}

TEST(PathAdd, WritesNothingBehindTheTerminator) {
  Buffer list;
  qal_addpath(list.data(), "ab", "c", nullptr);
  EXPECT_TRUE(list.untouched_from(5));
}

TEST(PathAdd, IgnoresANullDestination) { EXPECT_EQ(0, qal_addpath(nullptr, "a", "b", nullptr)); }

TEST(PathFindDot, FindsTheLastDotOfTheLastPart) {
  const char *path = "a.b/c\\d.e.f";
  EXPECT_EQ(path + 9, qal_find_dot_in_filename(path));
  const char *mixed = "a.b\\c/d.e";
  EXPECT_EQ(mixed + 7, qal_find_dot_in_filename(mixed));
  const char *hidden = ".profile";
  EXPECT_EQ(hidden, qal_find_dot_in_filename(hidden));
  const char *last = "a/b.";
  EXPECT_EQ(last + 3, qal_find_dot_in_filename(last));
}

TEST(PathFindDot, LooksOnlyAtTheLastPart) {
  for (const char *path : {"a.b/c", "a.b\\c", "a.b/", "abc", "a.x\\b/c", "a.x/b\\c", ""}) {
    EXPECT_THAT(qal_find_dot_in_filename(path), IsNull()) << path;
  }
}

TEST(PathFindDot, AnswersNullForNull) { EXPECT_THAT(qal_find_dot_in_filename(nullptr), IsNull()); }

TEST(PathRemoveExtension, CutsAtTheLastDot) {
  EXPECT_EQ("a.b/c.d", without_extension("a.b/c.d.e", 1));
  EXPECT_EQ("a/c", without_extension("a/c.", 1));
  EXPECT_EQ("a\\b/c", without_extension("a\\b/c.d", 1));
  EXPECT_EQ("a/b\\c", without_extension("a/b\\c.d", 1));
}

TEST(PathRemoveExtension, LeavesAPathWithoutExtension) {
  for (const char *path : {"a.b/c", "a.b\\c", "abc", ""}) {
    EXPECT_EQ(path, without_extension(path, 0));
  }
}

TEST(PathRemoveExtension, AnswersZeroForNull) { EXPECT_EQ(0, qal_remove_ext(nullptr)); }

TEST(PathRemoveExtension, CutsAHiddenNameWhole) {
  EXPECT_EQ("", without_extension(".profile", 1));
  EXPECT_EQ("a/", without_extension("a/.profile", 1));
}

TEST_F(PathRange, FindsTheFirstAndTheLastNumber) {
  make_numbered(scratch, {"img.0.dat", "img.1.dat", "img.2.dat", "img.3.dat", "img.4.dat"});
  EXPECT_EQ((Range{0, 0, 4}), find_range(scratch / "img.#.dat"));
}

TEST_F(PathRange, FillsTheFieldWithZeros) {
  make_numbered(scratch, {"f.0008.img", "f.0009.img", "f.0010.img", "f.7.img", "f.11.img"});
  EXPECT_EQ((Range{0, 8, 10}), find_range(scratch / "f.####.img"));
}

TEST_F(PathRange, StartsAtTheGivenNumber) {
  make_numbered(scratch, {"f00", "f01", "f02", "f03", "f05"});
  EXPECT_EQ((Range{0, 1, 3}), find_range(scratch / "f##", 1));
}

TEST_F(PathRange, ProbesTheLimitItself) {
  make_numbered(scratch, {"f0", "f1", "f2", "f3"});
  EXPECT_EQ((Range{0, 0, 2}), find_range(scratch / "f#", 0, 2));
  EXPECT_EQ((Range{0, 0, 3}), find_range(scratch / "f#", 0, 3));
  EXPECT_EQ((Range{0, 0, 3}), find_range(scratch / "f#", 0, 4));
  EXPECT_EQ((Range{0, 0, 0}), find_range(scratch / "f#", -1, 0));
}

TEST_F(PathRange, EndsBeforeAMissingFirstFile) {
  make_numbered(scratch, {"f1"});
  EXPECT_EQ((Range{0, 3, 2}), find_range(scratch / "f#", 3));
  EXPECT_EQ((Range{0, 0, -1}), find_range(scratch / "f#", 0, 7));
}

TEST_F(PathRange, FailsWhenNoNumberHasAFile) {
  make_numbered(scratch, {"f", "f00", "fx", "g0", "xf0", "f0x"});
  EXPECT_EQ(no_range, find_range(scratch / "f#"));
  EXPECT_EQ((Range{6, -1, 5}), find_range(scratch / "f#", -1, 5));
}

TEST_F(PathRange, FailsWhenTheDirectoryIsAbsent) {
  scratch.file("plain");
  EXPECT_EQ(no_range, find_range(scratch / "absent/f#########"));
  EXPECT_EQ(no_range, find_range(scratch / "plain/f#########"));
}

TEST_F(PathRange, FindsNumbersInTheWorkingDirectory) {
  make_numbered(scratch, {"7", "8"});
  ASSERT_EQ(0, qal_setcwd(scratch.path().c_str()));
  EXPECT_EQ((Range{0, 7, 8}), find_range("#"));
}

TEST_F(PathRange, FindsNumbersInAnEarlierComponent) {
  for (const std::string name : {"d03", "d04", "d06"}) {
    scratch.directory(name);
    scratch.file(name + "/x");
  }
  EXPECT_EQ((Range{0, 3, 4}), find_range(scratch / "d##/x"));
}

TEST_F(PathRange, TakesTheFieldFromTheFirstToTheLastMark) {
  make_numbered(scratch, {"f012.x", "f013.x", "f1-4.x"});
  EXPECT_EQ((Range{0, 12, 13}), find_range(scratch / "f#-#.x"));
}

TEST_F(PathRange, OverwritesASeparatorWithinTheField) {
  make_numbered(scratch, {"f004", "f005"});
  EXPECT_EQ((Range{0, 4, 5}), find_range(scratch / "f#/#"));
}

TEST_F(PathRange, AcceptsFieldsOfUpToNineDigits) {
  make_numbered(scratch, {"f999999998", "f999999999", "f0000000000"});
  EXPECT_EQ((Range{0, 999999998, 1000000000}), find_range(scratch / "f#########"));
  EXPECT_EQ(no_range, find_range(scratch / "f##########"));
  EXPECT_EQ(no_range, find_range(scratch / "f#abcdefgh#"));
}

TEST_F(PathRange, NeedsAMarkInTheTemplate) {
  EXPECT_EQ(no_range, find_range("plain"));
  EXPECT_EQ(no_range, find_range(""));
}

TEST_F(PathRange, AcceptsTemplatesOfUpTo1023Bytes) {
  make_numbered(scratch, {"f5"});
  std::string path = scratch.path();
  path.append(1023 - path.size() - 2, '/');
  EXPECT_EQ((Range{0, 5, 5}), find_range(path + "f#"));
  EXPECT_EQ((Range{6, 5, -1}), find_range(path + "/f#", 5));
}

TEST_F(PathRange, RefusesATemplateWithoutAField) {
  make_numbered(scratch, {"f", "0"});
  EXPECT_EQ(no_range, find_range(scratch / "f"));
  EXPECT_EQ(no_range, find_range(scratch / ""));
}

TEST_F(PathRange, RefusesNull) {
  std::int32_t number = 3;
  EXPECT_EQ(QAL_STATUS_INVALID, qal_valid_pathname_range(nullptr, &number, &number));
  EXPECT_EQ(QAL_STATUS_INVALID, qal_valid_pathname_range("#", nullptr, &number));
  EXPECT_EQ(QAL_STATUS_INVALID, qal_valid_pathname_range("#", &number, nullptr));
  EXPECT_EQ(3, number);
}

TEST_F(PathRange, HasNoFilesForNegativeNumbers) {
  make_numbered(scratch, {"f-5", "f-4", "f00"});
  EXPECT_EQ((Range{0, -5, -6}), find_range(scratch / "f##", -5));
  EXPECT_EQ((Range{6, INT32_MIN, 9}), find_range(scratch / "f##", INT32_MIN, 9));
}

TEST_F(PathRange, HasNoFilesForNumbersWiderThanTheField) {
  make_numbered(scratch, {"f8", "f9", "f10", "f11"});
  EXPECT_EQ((Range{0, 8, 9}), find_range(scratch / "f#", 8, 11));
  EXPECT_EQ((Range{0, 10, 9}), find_range(scratch / "f#", 10));
  EXPECT_EQ((Range{0, INT32_MAX, INT32_MAX - 1}), find_range(scratch / "f#", INT32_MAX));
}

TEST_F(PathRange, ProbesTheFirstFileEvenBeyondTheLimit) {
  make_numbered(scratch, {"f5", "f6"});
  EXPECT_EQ((Range{0, 5, 3}), find_range(scratch / "f#", 5, 3));
  EXPECT_EQ((Range{0, 5, -2}), find_range(scratch / "f#", 5, -2));
  EXPECT_EQ((Range{0, 7, 6}), find_range(scratch / "f#", 7, 3));
}

TEST_F(PathRange, FindsTheFirstFileEvenBeyondTheLimit) {
  make_numbered(scratch, {"f5", "f6"});
  EXPECT_EQ((Range{0, 5, 3}), find_range(scratch / "f#", -1, 3));
  EXPECT_EQ((Range{0, 5, 6}), find_range(scratch / "f#", -1, 6));
}

TEST_F(PathRange, ConfirmsWhatTheDirectoryListsByOpening) {
  make_numbered(scratch, {"F3", "f5", "f6"});
  ASSERT_EQ(0, symlink("absent", (scratch / "f4").c_str()));
  EXPECT_EQ((Range{0, 5, 6}), find_range(scratch / "f#"));
}

TEST_F(PathRange, PassesOverFilesThatCannotBeRead) {
  for (int number = 0; number < 90; ++number) {
    const auto path =
        scratch.file(number < 10 ? "f0" + std::to_string(number) : "f" + std::to_string(number));
    chmod(path.c_str(), number < 80 ? 0 : 0644);
  }
  in_unprivileged_child([&] { EXPECT_EQ((Range{0, 80, 89}), find_range(scratch / "f##")); });
}

TEST_F(PathRange, ProbesADirectoryThatCannotBeListed) {
  const auto directory = scratch.directory("closed");
  make_numbered(scratch, {"closed/f42", "closed/f43"});
  chmod(directory.c_str(), 0311);
  in_unprivileged_child([&] { EXPECT_EQ((Range{0, 42, 43}), find_range(directory + "/f##")); });
}

TEST_F(PathRange, DoesNotWaitForAWriterOfAFifo) {
  ASSERT_EQ(0, mkfifo((scratch / "f2").c_str(), 0644));
  EXPECT_EQ((Range{0, 2, 2}), find_range(scratch / "f#"));
}

TEST_F(PathRange, CountsDirectoriesToo) {
  scratch.directory("f2");
  EXPECT_EQ((Range{0, 2, 2}), find_range(scratch / "f#"));
}

TEST_F(PathRange, ReadsTheLastAtSignAsTheLetterL) {
  make_numbered(scratch, {"a@fi1e0", "a@file1", "a@file2"});
  EXPECT_EQ((Range{0, 1, 2}), find_range(scratch / "a@fi@e#"));
  EXPECT_EQ((Range{0, 1, 2}), find_range(scratch / "a@fi@e#", 1));
  make_numbered(scratch, {"x3l"});
  EXPECT_EQ((Range{0, 3, 3}), find_range(scratch / "x#@"));
}

TEST_F(PathRange, TakesAPercentSignForItself) {
  make_numbered(scratch, {"g%d3", "g%d4", "g%s%n1"});
  EXPECT_EQ((Range{0, 3, 4}), find_range(scratch / "g%d#"));
  EXPECT_EQ((Range{0, 1, 1}), find_range(scratch / "g%s%n#", 1));
}

TEST_F(PathRange, AnswersTheNumberBehindTheFieldWhenAllArePresent) {
  for (char digit = '0'; digit <= '9'; ++digit) scratch.file(std::string("f") + digit);
  EXPECT_EQ((Range{0, 0, 10}), find_range(scratch / "f#"));
  EXPECT_EQ((Range{0, 0, 9}), find_range(scratch / "f#", 0, 10));
  EXPECT_EQ((Range{0, 4, 10}), find_range(scratch / "f#", 4));
}

TEST(PathExpand, CopiesAPathWithoutTilde) {
  EXPECT_EQ("/a/~b", expand("/a/~b"));
  EXPECT_EQ("a b", expand("a b"));
  EXPECT_EQ("", expand(""));
}

TEST(PathExpand, PutsInTheHomeOfTheCurrentUser) {
  EXPECT_EQ(expanded_own_home("/"), expand("~"));
  EXPECT_EQ(expanded_own_home("/"), expand("~/"));
  EXPECT_EQ(expanded_own_home("/a/~b"), expand("~/a/~b"));
  EXPECT_EQ(expanded_own_home("//a"), expand("~//a"));
}

TEST(PathExpand, PutsInTheHomeOfANamedUser) {
  const std::string home = getpwnam("daemon")->pw_dir;
  EXPECT_EQ(home + "/", expand("~daemon"));
  EXPECT_EQ(home + "/", expand("~daemon/"));
  EXPECT_EQ(home + "/a/b", expand("~daemon/a/b"));
}

TEST(PathExpand, AsksTheDatabaseNotTheEnvironment) {
  ASSERT_EQ(0, setenv("HOME", "/elsewhere", 1));
  EXPECT_EQ(expanded_own_home("/"), expand("~"));
}

TEST(PathExpand, TakesTheRealUserForTheCurrentOne) {
  in_child([] {
    if (getuid() == 0) {
      ASSERT_EQ(0, seteuid(getpwnam("daemon")->pw_uid));
    }
    EXPECT_EQ(expanded_own_home("/x"), expand("~/x"));
  });
}

TEST(PathExpand, DoesNotFindAnUnknownUser) {
  Buffer out;
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, qal_expand_pathname("~no-such-user/x", out.data(), 100));
  EXPECT_EQ("", out.text());
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, qal_expand_pathname("~daemo", out.data(), 100));
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, qal_expand_pathname("~daemon\\x", out.data(), 100));
}

TEST(PathExpand, RefusesACopyThatDoesNotFit) {
  Buffer out;
  EXPECT_EQ(QAL_STATUS_INVALID, qal_expand_pathname("abc", out.data(), 3));
  EXPECT_TRUE(out.text().empty() && out.untouched_from(1));
  EXPECT_EQ(QAL_STATUS_OK, qal_expand_pathname("abc", out.data(), 4));
  EXPECT_EQ("abc", out.text());
  EXPECT_TRUE(out.untouched_from(4));
}

void expect_to_fit_exactly(const std::string &path, const std::string &expected) {
  const int needed = static_cast<int>(expected.size()) + 1;
  Buffer out;
  EXPECT_EQ(QAL_STATUS_INVALID, qal_expand_pathname(path.c_str(), out.data(), needed - 1));
  EXPECT_TRUE(out.text().empty() && out.untouched_from(1));
  EXPECT_EQ(QAL_STATUS_OK, qal_expand_pathname(path.c_str(), out.data(), needed));
  EXPECT_EQ(expected, out.text());
  EXPECT_TRUE(out.untouched_from(static_cast<std::size_t>(needed)));
}

TEST(PathExpand, RefusesAPathBelowAHomeThatDoesNotFit) {
  for (const auto &[path, home] : known_homes())
    expect_to_fit_exactly(path + "/abc", home + "/abc");
}

TEST(PathExpand, NeedsRoomForTheSlashBehindAHome) {
  for (const auto &[path, home] : known_homes()) expect_to_fit_exactly(path, home + "/");
}

TEST(PathExpand, EmptiesTheBufferFirst) {
  Buffer out{"left over"};
  EXPECT_EQ(QAL_STATUS_OK, qal_expand_pathname("", out.data(), 10));
  EXPECT_EQ("", out.text());
}

TEST(PathExpand, RefusesNullAndNoRoom) {
  Buffer out;
  EXPECT_EQ(QAL_STATUS_INVALID, qal_expand_pathname("", out.data(), 0));
  EXPECT_EQ(QAL_STATUS_INVALID, qal_expand_pathname("a", out.data(), -1));
  EXPECT_TRUE(out.untouched_from(0));
  EXPECT_EQ(QAL_STATUS_INVALID, qal_expand_pathname("a", nullptr, 10));
  EXPECT_EQ(QAL_STATUS_INVALID, qal_expand_pathname(nullptr, out.data(), 10));
  EXPECT_EQ("", out.text());
}

TEST(PathFailures, AreNotReported) {
  const LogCapture log;
  Buffer out;
  EXPECT_EQ(QAL_STATUS_NOT_FOUND, qal_expand_pathname("~no-such-user", out.data(), 100));
  EXPECT_EQ(-1, qal_get_norm_path("a/../..", out.data(), 100));
  EXPECT_EQ(-1, qal_get_full_path("", out.data(), 100));
  EXPECT_EQ(no_range, find_range("x"));
  EXPECT_EQ(log.text(), "");
}

TEST(PathFileExtension, AnswersTheSuffixOfEachKindAndFamily) {
  const std::vector<std::pair<std::vector<const char *>, std::array<const char *, 4>>> table{
      {{"linux_2.6_64", "sun", "sgi", "cpq", "ibm", "xlinuxx"}, {"", ".o", ".a", ".so"}},
      {{"hp", "hpux_11"}, {"", ".o", ".a", ".sl"}},
      {{"apple", "apple_64"}, {"", ".o", ".a", ".dylib"}},
      {{"win", "windows_64"}, {".exe", ".obj", ".lib", ".dll"}}};
  for (const auto &[words, suffixes] : table) {
    for (const char *word : words) {
      for (unsigned kind = 0; kind < 4; ++kind) {
        EXPECT_STREQ(suffixes[kind], qal_file_extension(word, kind)) << word;
      }
    }
  }
}

TEST(PathFileExtension, TakesNullForApple) {
  EXPECT_STREQ(".dylib", qal_file_extension(nullptr, 3));
  EXPECT_STREQ("", qal_file_extension(nullptr, 0));
}

TEST(PathFileExtension, AnswersNullForOtherKinds) {
  EXPECT_THAT(qal_file_extension("linux", 4), IsNull());
  EXPECT_THAT(qal_file_extension(nullptr, UINT_MAX), IsNull());
}

TEST(PathFileExtension, AnswersNullForOtherWords) {
  for (const char *arch : {"", "amiga", "LINUX", "wi"}) {
    EXPECT_THAT(qal_file_extension(arch, 1), IsNull()) << arch;
  }
}

TEST(PathFileExtension, TakesTheFirstWordInOrder) {
  for (const std::string later : {"hp_", "apple_", "win_"}) {
    for (const std::string word : {"linux", "sun", "sgi", "cpq", "ibm"}) {
      EXPECT_STREQ(".so", qal_file_extension((later + word).c_str(), 3)) << later << word;
    }
  }
  EXPECT_STREQ(".sl", qal_file_extension("apple_hp", 3));
  EXPECT_STREQ(".sl", qal_file_extension("win_apple_hp", 3));
  EXPECT_STREQ(".dylib", qal_file_extension("win_apple", 3));
}

TEST(PathFileExtension, TakesDarwinForWindows) {
  EXPECT_STREQ(".dll", qal_file_extension("darwin", 3));
}

}  // namespace

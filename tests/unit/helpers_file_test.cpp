// Tilde expansion, temporary directory, line counts, directory scans and access by path.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/helpers.hpp>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/child.hpp"
#include "support/descriptors.hpp"
#include "support/home.hpp"
#include "support/scratch.hpp"

namespace {

using qal::test::below_own_home;
using qal::test::clear_environment;
using qal::test::exists;
using qal::test::home_of;
using qal::test::in_child;
using qal::test::in_unprivileged_child;
using qal::test::InScratch;
using qal::test::open_descriptors;
using qal::test::read_file;
using qal::test::ScratchDir;

using LineCount = InScratch;
using DirectoryScan = InScratch;

// Expands into a buffer whose bytes beyond the capacity must stay as they were.
struct Expanded {
  int result;
  std::string text;
};

Expanded expanded_part(const std::string &name, int length, int capacity = 1024) {
  std::vector<char> room(static_cast<std::size_t>(std::max(capacity, 0)) + 16, '#');
  const int result = expfnam(name.c_str(), length, room.data(), capacity);
  const auto guard = room.begin() + std::max(capacity, 0);
  EXPECT_EQ(std::count(guard, room.end(), '#'), 16);
  return {result, capacity > 0 ? room.data() : ""};
}

Expanded expanded(const std::string &name, int capacity = 1024) {
  return expanded_part(name, static_cast<int>(name.size()), capacity);
}

void expect_failure(const Expanded &got, int code) {
  EXPECT_EQ(got.result, code);
  EXPECT_EQ(got.text, "");
}

void expect_expansion(const Expanded &got, const std::string &text) {
  EXPECT_EQ(got.result, static_cast<int>(text.size()));
  EXPECT_EQ(got.text, text);
}

void expect_below_own_home(const Expanded &got, const std::string &rest) {
  if (const auto place = below_own_home(rest)) return expect_expansion(got, *place);
  expect_failure(got, -1);
}

// Every system has this user.
std::string home_of_root() { return home_of(0).value_or("nowhere"); }

TEST(TildeExpand, CopiesANameWithoutTilde) {
  expect_expansion(expanded("/opt/parts/wing.dat"), "/opt/parts/wing.dat");
  expect_expansion(expanded("parts~/x"), "parts~/x");
}

TEST(TildeExpand, PutsTheHomeOfTheCurrentUser) {
  expect_below_own_home(expanded("~"), "");
  expect_below_own_home(expanded("~/"), "/");
  expect_below_own_home(expanded("~/a/~b"), "/a/~b");
  expect_below_own_home(expanded_part("~/x", 1), "");
}

TEST(TildeExpand, AsksThePasswordDatabaseNotTheEnvironment) {
  in_child([] {
    setenv("HOME", "/somewhere/else", 1);
    expect_below_own_home(expanded("~"), "");
  });
}

TEST(TildeExpand, PutsTheHomeOfANamedUser) {
  const auto home = home_of_root();
  expect_expansion(expanded("~root"), home);
  expect_expansion(expanded("~root/x"), home + "/x");
}

TEST(TildeExpand, RefusesAnUnknownUser) {
  expect_failure(expanded("~no-such-user-here"), -1);
  expect_failure(expanded("~no-such-user-here/x"), -1);
}

TEST(TildeExpand, EndsTheUserAtASlashOnly) { expect_failure(expanded("~root\\x"), -1); }

TEST(TildeExpand, TurnsEveryBackslashIntoASlash) {
  expect_expansion(expanded("\\a\\b/c\\"), "/a/b/c/");
  expect_expansion(expanded("~root/a\\b"), home_of_root() + "/a/b");
}

TEST(TildeExpand, TakesOnlyTheGivenLength) {
  expect_expansion(expanded_part("/opt/parts", 4), "/opt");
  expect_expansion(expanded_part("~root-and-more", 5), home_of_root());
}

TEST(TildeExpand, ReadsNoFurtherThanTheGivenLength) {
  const char name[] = {'/', 'o', 'p', 't'};  // no terminator
  char out[16];
  EXPECT_EQ(expfnam(name, 4, out, sizeof out), 4);
  EXPECT_STREQ(out, "/opt");
}

TEST(TildeExpand, HoldsTheLengthWithinTheName) {
  expect_expansion(expanded_part("/opt", 5), "/opt");
  expect_expansion(expanded_part("/opt", INT_MAX), "/opt");
  expect_expansion(expanded_part("/opt", 0), "");
  expect_expansion(expanded_part("/opt", -1), "");
  expect_expansion(expanded_part("~no-such-user-here", INT_MIN), "");
}

TEST(TildeExpand, NeedsRoomForTheTerminator) {
  expect_expansion(expanded("/opt", 5), "/opt");
  expect_failure(expanded("/opt", 4), -2);
  expect_failure(expanded("/opt", 1), -2);
  const auto home = home_of_root();
  expect_expansion(expanded("~root", static_cast<int>(home.size()) + 1), home);
  expect_failure(expanded("~root", static_cast<int>(home.size())), -2);
}

TEST(TildeExpand, TakesLongNamesThatHaveNoTilde) {
  const std::string name(5000, 'n');
  expect_expansion(expanded(name, 5001), name);
  expect_failure(expanded(name, 5000), -2);
}

TEST(TildeExpand, HoldsHomeAndRestWithin1023Bytes) {
  const auto home = home_of_root();
  const std::string rest = "/" + std::string(1022 - home.size(), 'r');
  ASSERT_EQ(home.size() + rest.size(), 1023u);
  expect_expansion(expanded("~root" + rest, 5000), home + rest);
  expect_failure(expanded("~root" + rest + "r", 5000), -2);
}

TEST(TildeExpand, RefusesAnEmptyOrNullName) {
  expect_failure(expanded(""), -1);
  expect_failure(expanded_part("", 3), -1);
  char out[8] = "before";
  EXPECT_EQ(expfnam(nullptr, 3, out, sizeof out), -1);
  EXPECT_STREQ(out, "");
}

TEST(TildeExpand, FitsTheEmptyTextIntoOneByte) {
  expect_expansion(expanded_part("/opt", 0, 1), "");
  expect_failure(expanded("", 1), -1);
}

TEST(TildeExpand, WritesNothingWithoutRoom) {
  char out[8] = "before";
  EXPECT_EQ(expfnam("/opt", 4, out, 0), -2);
  EXPECT_EQ(expfnam("/opt", 4, out, -1), -2);
  EXPECT_EQ(expfnam("~", 1, out, 0), -2);
  EXPECT_EQ(expfnam("~no-such-user-here", 18, out, -1), -2);
  EXPECT_EQ(expfnam("", 0, out, 0), -2);
  EXPECT_EQ(expfnam(nullptr, 0, out, 0), -1);
  EXPECT_STREQ(out, "before");
  for (const char *const name : {"/opt", "", "~no-such-user-here"}) {
    EXPECT_EQ(expfnam(name, 18, nullptr, 100), -2);
  }
}

// Runs in a child whose only setting is TMPDIR.
void with_tmpdir(const char *value, const std::function<void()> &body) {
  in_child([&] {
    clear_environment();
    setenv("TMPDIR", value, 1);
    body();
  });
}

void expect_tempdir(const char *value, const std::string &expected) {
  with_tmpdir(value, [&] {
    char out[64];
    EXPECT_EQ(our_tempdir(out, sizeof out), static_cast<int>(expected.size()));
    EXPECT_EQ(out, expected);
  });
}

TEST(TemporaryDirectory, IsTheOneInTheEnvironment) {
  expect_tempdir("/var/scratch", "/var/scratch/");
}

TEST(TemporaryDirectory, NeedNotExistWhenItIsSet) {
  expect_tempdir("/no/such/place/", "/no/such/place//");
}

TEST(TemporaryDirectory, TakesAnEmptySettingAsSet) { expect_tempdir("", "/"); }

TEST(TemporaryDirectory, IsWrittenOnlyWithMoreThanTwoBytesToSpare) {
  with_tmpdir("/tmp", [] {
    char out[8] = "#######";
    EXPECT_EQ(our_tempdir(out, 6), 5);
    EXPECT_STREQ(out, "#######");
    EXPECT_EQ(our_tempdir(out, 7), 5);
    EXPECT_EQ(std::string(out, sizeof out), std::string("/tmp/\0#\0", 8));
  });
}

TEST(TemporaryDirectory, IsOnlyMeasuredWithoutABuffer) {
  with_tmpdir("/tmp", [] {
    EXPECT_EQ(our_tempdir(nullptr, 100), 5);
    char out[8] = "#######";
    EXPECT_EQ(our_tempdir(out, 0), 5);
    EXPECT_EQ(our_tempdir(out, INT_MIN), 5);
    EXPECT_STREQ(out, "#######");
  });
}

TEST(TemporaryDirectory, KeepsWithinItsBufferForLongSettings) {
  for (const std::size_t length : {1000u, 1008u, 1023u, 1024u, 5000u}) {
    const std::string value(length, 'd');
    with_tmpdir(value.c_str(), [&] {
      std::vector<char> out(1024 + 16, '#');
      EXPECT_EQ(our_tempdir(out.data(), 1024), static_cast<int>(length) + 1);
      if (length + 2 < 1024) {
        EXPECT_EQ(out.data(), value + "/");
      } else {
        EXPECT_EQ(std::count(out.begin(), out.end(), '#'), 1024 + 16);
      }
    });
  }
}

int lines_of(std::string_view content) {
  const ScratchDir scratch;
  return file_getlinecount(scratch.file("lines.txt", content).c_str());
}

TEST_F(LineCount, CountsLines) {
  EXPECT_EQ(lines_of("one\ntwo\nthree\n"), 3);
  EXPECT_EQ(lines_of("one"), 1);
  EXPECT_EQ(lines_of("one\ntwo"), 2);
  EXPECT_EQ(lines_of(""), 0);
}

TEST_F(LineCount, LeavesBlankLinesOut) {
  EXPECT_EQ(lines_of("one\n\n\ntwo\n\n"), 2);
  EXPECT_EQ(lines_of("one\n \n\r\ntwo"), 4);
}

TEST_F(LineCount, TakesAFileThatBeginsWithALineFeedAsEmpty) {
  EXPECT_EQ(lines_of("\none\ntwo\n"), 0);
  EXPECT_EQ(lines_of("\n"), 0);
  EXPECT_EQ(lines_of("\n\n\none"), 0);
}

TEST_F(LineCount, TakesAnyByteForText) {
  EXPECT_EQ(lines_of(std::string_view("\0\n\xff\xfe\n\0\0", 7)), 3);
}

TEST_F(LineCount, TakesLinesOfAnyLength) {
  EXPECT_EQ(lines_of(std::string(1 << 20, 'x') + "\n" + std::string(4096, 'y')), 2);
}

TEST_F(LineCount, DoesNotDependOnWhereTheReadingIsSplit) {
  for (const std::size_t length : {4094u, 4095u, 4096u, 4097u, 8191u, 8192u}) {
    const std::string line(length, 'x');
    EXPECT_EQ(lines_of(line + "\nend\n"), 2) << length;
    EXPECT_EQ(lines_of(line + "\n\nend"), 2) << length;
    EXPECT_EQ(lines_of(line + "\n"), 1) << length;
  }
}

TEST_F(LineCount, RefusesWhatCannotBeOpened) {
  EXPECT_EQ(file_getlinecount((scratch / "missing").c_str()), -1);
  EXPECT_EQ(file_getlinecount(""), -1);
  EXPECT_EQ(file_getlinecount(nullptr), -1);
  EXPECT_EQ(file_getlinecount("~no-such-user-here/x"), -1);
}

TEST_F(LineCount, RefusesAFileThatMayNotBeRead) {
  const auto path = scratch.file("closed.txt", "one\n");
  chmod(path.c_str(), 0);
  in_unprivileged_child([&] { EXPECT_EQ(file_getlinecount(path.c_str()), -1); });
}

TEST_F(LineCount, FindsNoLinesInADirectory) {
  EXPECT_EQ(file_getlinecount(scratch.path().c_str()), 0);
}

TEST_F(LineCount, TakesBackslashesForSlashes) {
  scratch.directory("sub");
  scratch.file("sub/lines.txt", "one\ntwo\n");
  EXPECT_EQ(file_getlinecount((scratch / "sub\\lines.txt").c_str()), 2);
}

TEST_F(LineCount, TakesPathsBelow499Bytes) {
  scratch.file("f", "one\n");
  std::string path = scratch.path();
  while (path.size() < 496) path += "/";
  path.resize(496);
  EXPECT_EQ(file_getlinecount((path + "/f").c_str()), 1);
  EXPECT_EQ(file_getlinecount((path + "//f").c_str()), -1);
}

// Owns what a scan returns.
class Scan {
 public:
  explicit Scan(const std::string &path, int (*keep)(const dirent *) = nullptr,
                int (*compare)(const dirent **, const dirent **) = nullptr)
      : count_(our_scandir(path.c_str(), &list_, keep, compare)) {}
  ~Scan() { our_freenamelist(list_); }
  Scan(const Scan &) = delete;
  Scan &operator=(const Scan &) = delete;

  int count() const { return count_; }
  dirent **list() const { return list_; }
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (auto **at = list_; at && *at; ++at) names.emplace_back((*at)->d_name);
    return names;
  }

 private:
  dirent **list_ = nullptr;
  int count_;
};

int is_visible(const dirent *entry) { return entry->d_name[0] != '.'; }
int is_never(const dirent *) { return 0; }
int by_name(const dirent **a, const dirent **b) { return std::strcmp((*a)->d_name, (*b)->d_name); }
int by_length(const dirent **a, const dirent **b) {
  return static_cast<int>(std::strlen((*a)->d_name)) - static_cast<int>(std::strlen((*b)->d_name));
}
int by_name_backwards(const dirent **a, const dirent **b) { return by_name(b, a); }
int always_greater(const dirent **, const dirent **) { return 1; }
int at_random(const dirent **, const dirent **) {
  static std::int64_t seed = 11;
  return static_cast<int>(erand0(&seed) * 3.0f) - 1;
}

std::vector<std::string> system_order(const std::string &path) {
  std::vector<std::string> names;
  DIR *const directory = opendir(path.c_str());
  while (const dirent *const entry = readdir(directory)) names.emplace_back(entry->d_name);
  closedir(directory);
  return names;
}

void fill(const ScratchDir &scratch, int count, int from = 0) {
  for (int i = from; i < count; ++i) scratch.file("f" + std::to_string(i));
}

TEST_F(DirectoryScan, ReturnsEveryEntryInTheSystemsOrder) {
  fill(scratch, 20);
  scratch.directory("sub");
  const Scan scan{scratch.path()};
  EXPECT_EQ(scan.count(), 23);  // with "." and ".."
  EXPECT_EQ(scan.names(), system_order(scratch.path()));
}

TEST_F(DirectoryScan, SkipsWhatTheSelectionRefuses) {
  fill(scratch, 3);
  const Scan scan{scratch.path(), is_visible, by_name};
  EXPECT_EQ(scan.count(), 3);
  EXPECT_EQ(scan.names(), (std::vector<std::string>{"f0", "f1", "f2"}));
}

TEST_F(DirectoryScan, GivesAnEmptyListWhenNothingIsSelected) {
  const Scan scan{scratch.path(), is_never, always_greater};
  EXPECT_EQ(scan.count(), 0);
  ASSERT_NE(scan.list(), nullptr);
  EXPECT_EQ(scan.list()[0], nullptr);
}

TEST_F(DirectoryScan, SortsStably) {
  fill(scratch, 60);
  const auto names = system_order(scratch.path());
  std::list<std::string> expected(names.begin(), names.end());
  expected.sort([](const auto &a, const auto &b) { return a.size() < b.size(); });  // stable
  const Scan scan{scratch.path(), nullptr, by_length};
  EXPECT_EQ(scan.names(), std::vector<std::string>(expected.begin(), expected.end()));
}

TEST_F(DirectoryScan, SortsTwoEntriesEitherWay) {
  fill(scratch, 2);
  EXPECT_EQ(Scan(scratch.path(), is_visible, by_name).names(),
            (std::vector<std::string>{"f0", "f1"}));
  EXPECT_EQ(Scan(scratch.path(), is_visible, by_name_backwards).names(),
            (std::vector<std::string>{"f1", "f0"}));
}

TEST_F(DirectoryScan, GrowsBy256Entries) {
  int made = 0;
  for (const int count : {255, 256, 257, 512, 513}) {
    fill(scratch, count, std::exchange(made, count));
    const Scan scan{scratch.path(), is_visible, by_name};
    EXPECT_EQ(scan.count(), count);
    const auto names = scan.names();
    EXPECT_EQ(names.size(), static_cast<std::size_t>(count));
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
  }
}

TEST_F(DirectoryScan, KeepsInodeRecordLengthAndNameOnly) {
  const auto path = scratch.file("entry.dat");
  struct stat info;
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  const Scan scan{scratch.path(), is_visible};
  ASSERT_EQ(scan.count(), 1);
  const dirent *const entry = scan.list()[0];
  EXPECT_EQ(entry->d_ino, info.st_ino);
  EXPECT_GT(entry->d_reclen, std::strlen("entry.dat"));

  // Everything else is zero, over the promised size of the allocation.
  const std::size_t size = std::strlen("entry.dat") + 1049;
  std::vector<char> expected(size, '\0');
  const auto put = [&](std::size_t offset, const void *value, std::size_t length) {
    std::memcpy(expected.data() + offset, value, length);
  };
  put(offsetof(dirent, d_ino), &entry->d_ino, sizeof entry->d_ino);
  put(offsetof(dirent, d_reclen), &entry->d_reclen, sizeof entry->d_reclen);
  put(offsetof(dirent, d_name), "entry.dat", 9);
  const auto *const bytes = reinterpret_cast<const char *>(entry);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), bytes));
}

TEST_F(DirectoryScan, TakesNamesOf255Bytes) {
  const std::string name(255, 'n');
  scratch.file(name);
  EXPECT_EQ(Scan(scratch.path(), is_visible).names(), std::vector<std::string>{name});
}

TEST_F(DirectoryScan, LosesNothingUnderAComparisonThatIsNoOrder) {
  fill(scratch, 300);
  auto expected = system_order(scratch.path());
  std::sort(expected.begin(), expected.end());
  for (auto *const compare : {always_greater, at_random}) {
    const Scan scan{scratch.path(), nullptr, compare};
    auto names = scan.names();
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, expected);
  }
}

TEST_F(DirectoryScan, RefusesWhatIsNoReadableDirectory) {
  for (const auto &path : {scratch / "missing", scratch.file("file"), std::string()}) {
    const Scan scan{path};
    EXPECT_EQ(scan.count(), -1);
    EXPECT_EQ(scan.list(), nullptr);
  }
  dirent **list = nullptr;
  EXPECT_EQ(our_scandir(nullptr, &list, nullptr, nullptr), -1);
  EXPECT_EQ(our_scandir(scratch.path().c_str(), nullptr, nullptr, nullptr), -1);
}

TEST_F(DirectoryScan, ClearsTheListOnFailure) {
  auto *list = reinterpret_cast<dirent **>(8);
  EXPECT_EQ(our_scandir("/no/such/directory", &list, nullptr, nullptr), -1);
  EXPECT_EQ(list, nullptr);
}

TEST_F(DirectoryScan, ClosesTheDirectory) {
  const auto before = open_descriptors();
  { const Scan scan{scratch.path()}; }
  { const Scan scan{scratch / "missing"}; }
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(DirectoryScan, ClosesTheDirectoryBeforeItSorts) {
  static std::vector<int> while_sorting;
  while_sorting.clear();
  const auto before = open_descriptors();
  const Scan scan{scratch.path(), nullptr, [](const dirent **, const dirent **) {
                    while_sorting = open_descriptors();
                    return 0;
                  }};
  EXPECT_EQ(while_sorting, before);
}

TEST(NameListFree, TakesNullAndListsOfAnyTexts) {
  our_freenamelist(nullptr);
  auto **const texts = static_cast<char **>(std::calloc(3, sizeof(char *)));
  texts[0] = strdup("first");
  texts[1] = strdup("second");
  our_freenamelist(texts);
  our_freenamelist(std::calloc(1, sizeof(char *)));
}

constexpr int mode_read = 0;
constexpr int mode_write = 1;
constexpr int mode_size = 2;
constexpr int keep_file = 256;

struct Access {
  int result;
  std::int64_t position;
};

bool operator==(const Access &a, const Access &b) {
  return a.result == b.result && a.position == b.position;
}

void PrintTo(const Access &access, std::ostream *out) {
  *out << access.result << " at " << access.position;
}

Access access_file(const std::string &path, int flags, int origin, std::int64_t offset,
                   std::int64_t count, void *buffer) {
  Access access{99, 99};
  access.result =
      remote_fileio(path.c_str(), flags, origin, offset, count, buffer, &access.position);
  return access;
}

Access write_text(const std::string &path, int flags, int origin, std::int64_t offset,
                  std::string text) {
  return access_file(path, flags, origin, offset, static_cast<std::int64_t>(text.size()),
                     text.data());
}

class FileAccess : public InScratch {
 protected:
  const std::string data = scratch.file("data", "0123456789");
};

TEST_F(FileAccess, ReadsAPiece) {
  char piece[5] = "####";
  EXPECT_EQ(access_file(data, mode_read, SEEK_SET, 3, 4, piece), (Access{0, 7}));
  EXPECT_STREQ(piece, "3456");
  EXPECT_EQ(access_file(data, mode_read, SEEK_CUR, 2, 4, piece), (Access{0, 6}));
  EXPECT_STREQ(piece, "2345");
  EXPECT_EQ(access_file(data, mode_read, SEEK_END, -4, 4, piece), (Access{0, 10}));
  EXPECT_STREQ(piece, "6789");
}

TEST_F(FileAccess, OnlyPositionsForACountOfZero) {
  EXPECT_EQ(access_file(data, mode_read, SEEK_SET, 4, 0, nullptr), (Access{0, 4}));
  EXPECT_EQ(access_file(data, mode_read, SEEK_SET, 400, 0, nullptr), (Access{0, 400}));
  EXPECT_EQ(access_file(data, mode_write | keep_file, SEEK_END, 0, 0, nullptr), (Access{0, 10}));
  EXPECT_EQ(read_file(data), "0123456789");
}

TEST_F(FileAccess, ReadsAFileThatMayNotBeWritten) {
  const auto path = scratch.file("data", "0123456789");
  chmod(path.c_str(), 0444);
  in_unprivileged_child([&] {
    char piece[5] = "####";
    EXPECT_EQ(access_file(path, mode_read | keep_file, SEEK_SET, 3, 4, piece), (Access{0, 7}));
    EXPECT_STREQ(piece, "3456");
    EXPECT_EQ(access_file(path, mode_size | keep_file, SEEK_SET, 0, 0, nullptr), (Access{0, 10}));
  });
}

TEST_F(FileAccess, FailsOnAShortRead) {
  char piece[16];
  EXPECT_EQ(access_file(data, mode_read, SEEK_SET, 7, 3, piece), (Access{0, 10}));
  EXPECT_EQ(access_file(data, mode_read, SEEK_SET, 7, 4, piece), (Access{-3, 0}));
  EXPECT_EQ(access_file(data, mode_read, SEEK_SET, 10, 1, piece), (Access{-3, 0}));
}

TEST_F(FileAccess, EmptiesTheFileBeforeWriting) {
  EXPECT_EQ(write_text(data, mode_write, SEEK_SET, 0, "abc"), (Access{0, 3}));
  EXPECT_EQ(read_file(data), "abc");
}

TEST_F(FileAccess, EmptiesOrCreatesTheFileEvenForACountOfZero) {
  for (const std::int64_t offset : {0, 4}) {
    const auto path = scratch.file("data", "0123456789");
    EXPECT_EQ(access_file(path, mode_write, SEEK_SET, offset, 0, nullptr), (Access{0, offset}));
    EXPECT_EQ(read_file(path), "");
  }
  EXPECT_EQ(access_file(scratch / "new", mode_write, SEEK_SET, 0, 0, nullptr), (Access{0, 0}));
  EXPECT_TRUE(qal::test::exists(scratch / "new"));
}

TEST_F(FileAccess, CreatesTheFileForWriting) {
  EXPECT_EQ(write_text(scratch / "new", mode_write, SEEK_SET, 2, "abc"), (Access{0, 5}));
  EXPECT_EQ(read_file(scratch / "new"), std::string("\0\0abc", 5));
}

TEST_F(FileAccess, WritesIntoTheFileThatIsKept) {
  EXPECT_EQ(write_text(data, mode_write | keep_file, SEEK_SET, 2, "ab"), (Access{0, 4}));
  EXPECT_EQ(write_text(data, mode_write | keep_file, SEEK_END, 0, "cd"), (Access{0, 12}));
  EXPECT_EQ(write_text(data, mode_write | keep_file, SEEK_END, -12, "e"), (Access{0, 1}));
  EXPECT_EQ(read_file(data), "e1ab456789cd");
}

TEST_F(FileAccess, KeepsNoFileThatIsNotThere) {
  const auto path = scratch / "missing";
  EXPECT_EQ(write_text(path, mode_write | keep_file, SEEK_SET, 0, "a"), (Access{-2, 0}));
  EXPECT_FALSE(exists(path));
}

TEST_F(FileAccess, TellsTheSize) {
  EXPECT_EQ(access_file(data, mode_size, SEEK_SET, 0, 0, nullptr), (Access{0, 10}));
  EXPECT_EQ(access_file(scratch.file("empty"), mode_size, 0, 0, 0, nullptr), (Access{0, 0}));
}

TEST_F(FileAccess, TellsTheSizeWhateverTheOtherArgumentsAre) {
  EXPECT_EQ(access_file(data, mode_size, 77, -5, -1, nullptr), (Access{0, 10}));
  EXPECT_EQ(access_file(data, mode_size | keep_file, 77, 5, 3, nullptr), (Access{0, 10}));
}

TEST_F(FileAccess, GoesBeyondFourGigabytes) {
  const auto path = scratch.file("data");
  const std::int64_t far = (std::int64_t{1} << 32) + 5;
  EXPECT_EQ(write_text(path, mode_write, SEEK_SET, far, "end"), (Access{0, far + 3}));
  EXPECT_EQ(access_file(path, mode_size, SEEK_SET, 0, 0, nullptr), (Access{0, far + 3}));
  char piece[4] = "###";
  EXPECT_EQ(access_file(path, mode_read, SEEK_SET, far, 3, piece), (Access{0, far + 3}));
  EXPECT_STREQ(piece, "end");
}

TEST_F(FileAccess, TakesTheModeFromTheLowEightBits) {
  char piece[2] = "#";
  EXPECT_EQ(access_file(data, 0x7ffffe00 | mode_read, SEEK_SET, 1, 1, piece), (Access{0, 2}));
  EXPECT_STREQ(piece, "1");
  EXPECT_EQ(write_text(data, 0x200 | mode_write, SEEK_SET, 0, "x"), (Access{0, 1}));
  EXPECT_EQ(read_file(data), "x");
}

TEST_F(FileAccess, RefusesOtherModesAndANullPath) {
  char piece[2];
  for (const int mode : {3, 255, -1, keep_file | 3}) {
    EXPECT_EQ(access_file(data, mode, SEEK_SET, 0, 1, piece), (Access{-1, 0})) << mode;
  }
  std::int64_t position = 99;
  EXPECT_EQ(remote_fileio(nullptr, mode_read, SEEK_SET, 0, 0, nullptr, &position), -1);
  EXPECT_EQ(position, 0);
  EXPECT_EQ(read_file(data), "0123456789");
}

TEST_F(FileAccess, RefusesWhatCannotBeOpened) {
  char piece[2];
  EXPECT_EQ(access_file(scratch / "missing", mode_read, SEEK_SET, 0, 1, piece), (Access{-2, 0}));
  EXPECT_EQ(access_file(scratch / "missing", mode_size, SEEK_SET, 0, 0, piece), (Access{-2, 0}));
  EXPECT_EQ(access_file(scratch.path(), mode_write, SEEK_SET, 0, 1, piece), (Access{-2, 0}));
  EXPECT_EQ(access_file("", mode_read, SEEK_SET, 0, 1, piece), (Access{-2, 0}));
}

TEST_F(FileAccess, FailsWhereThePositionCannotBeReached) {
  char piece[2];
  EXPECT_EQ(access_file(data, mode_read, SEEK_SET, -1, 1, piece), (Access{-3, 0}));
  EXPECT_EQ(access_file(data, mode_read, SEEK_END, -11, 0, piece), (Access{-3, 0}));
  EXPECT_EQ(write_text(data, mode_write | keep_file, SEEK_CUR, -1, "x"), (Access{-3, 0}));
  EXPECT_EQ(read_file(data), "0123456789");
  EXPECT_EQ(write_text(data, mode_write, SEEK_SET, -1, "x"), (Access{-3, 0}));
  EXPECT_EQ(read_file(data), "");  // emptied before the position is tried
}

TEST_F(FileAccess, FailsToTellTheSizeOfAStreamWithoutPositions) {
  const auto path = scratch / "fifo";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int held = open(path.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_EQ(access_file(path, mode_size, SEEK_SET, 0, 0, nullptr), (Access{-3, 0}));
  close(held);
}

TEST_F(FileAccess, LeavesTheFileAloneWhenArgumentsMakeNoSense) {
  char piece[2] = "x";
  for (const int mode : {mode_read, mode_write, mode_write | keep_file}) {
    EXPECT_EQ(access_file(data, mode, SEEK_SET, 0, -1, piece), (Access{-3, 0}));
    EXPECT_EQ(access_file(data, mode, SEEK_SET, 0, INT64_MIN, piece), (Access{-3, 0}));
    EXPECT_EQ(access_file(data, mode, -1, 0, 1, piece), (Access{-3, 0}));
    EXPECT_EQ(access_file(data, mode, 3, 0, 1, piece), (Access{-3, 0}));
    EXPECT_EQ(access_file(data, mode, SEEK_SET, 0, 1, nullptr), (Access{-3, 0}));
  }
  EXPECT_EQ(read_file(data), "0123456789");
}

TEST_F(FileAccess, FailsToReadADirectory) {
  char piece[2];
  EXPECT_EQ(access_file(scratch.path(), mode_read, SEEK_SET, 0, 1, piece), (Access{-3, 0}));
}

TEST_F(FileAccess, NeedsNoPlaceForThePosition) {
  char piece[2] = "#";
  EXPECT_EQ(remote_fileio(data.c_str(), mode_read, SEEK_SET, 9, 1, piece, nullptr), 0);
  EXPECT_STREQ(piece, "9");
  EXPECT_EQ(remote_fileio(data.c_str(), 7, SEEK_SET, 9, 1, piece, nullptr), -1);
}

TEST_F(FileAccess, FailsWhenTheDiskTakesNoMore) {
  in_child([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit none{};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    const auto before = open_descriptors();
    // Small enough to stay in the stream's buffer until it is closed, and far too large for that.
    for (const std::size_t size : {std::size_t{1}, std::size_t{1} << 20}) {
      EXPECT_EQ(write_text(scratch / "new", mode_write, SEEK_SET, 0, std::string(size, 'x')),
                (Access{-3, 0}));
    }
    EXPECT_EQ(open_descriptors(), before);
  });
}

TEST_F(FileAccess, ClosesTheFileOnEveryPath) {
  char piece[16];
  const auto before = open_descriptors();
  access_file(data, mode_read, SEEK_SET, 0, 10, piece);
  access_file(data, mode_read, SEEK_SET, 0, 11, piece);
  access_file(data, mode_read, SEEK_SET, -1, 1, piece);
  access_file(data, mode_size, SEEK_SET, 0, 0, piece);
  write_text(data, mode_write, SEEK_SET, 0, "x");
  EXPECT_EQ(open_descriptors(), before);
}

}  // namespace

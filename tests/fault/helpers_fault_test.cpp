// The program helpers when memory is short, the password database fails or a stream breaks.
#include <dirent.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/helpers.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/child.hpp"
#include "support/fault.hpp"
#include "support/scratch.hpp"

namespace {

using qal::test::clear_environment;
using qal::test::fail_nth;
using qal::test::Fault;
using qal::test::in_child;
using qal::test::InScratch;
using qal::test::ScratchDir;

using LineCount = InScratch;
using DirectoryScan = InScratch;
using FileAccess = InScratch;

struct Faults {
  Fault calloc, strdup, fopen, opendir, readdir, fstat, ftello;
};
Faults faults;

std::vector<std::size_t> allocated;  // bytes of every calloc

// What the replaced password database returns, and for whom it was asked.
struct Database {
  bool replaced = false;
  bool known = true;
  int error = 0;  // returned `error_times` times, then the entry
  int error_times = 1000;
  std::size_t needed = 0;  // smaller buffers fail with ERANGE
  std::string home;
  uid_t real_id = 4711;  // different from the effective one
  uid_t asked_id = 0;
  std::string asked_name;
};
Database database;

// A file that takes three bytes at a time, each time interrupted before.
class InterruptedFile {
 public:
  FILE *open(const char *mode) {
    return fopencookie(this, mode,
                       {.read = nullptr, .write = &write, .seek = &seek, .close = nullptr});
  }
  const std::string &content() const { return content_; }

 private:
  static ssize_t write(void *cookie, const char *from, std::size_t size) {
    auto &file = *static_cast<InterruptedFile *>(cookie);
    file.is_ready_ = !file.is_ready_;
    errno = EINTR;
    if (file.is_ready_) return 0;
    const std::size_t taken = std::min<std::size_t>(size, 3);
    file.content_.append(from, taken);
    return static_cast<ssize_t>(taken);
  }
  static int seek(void *cookie, off64_t *offset, int origin) {
    const auto &file = *static_cast<const InterruptedFile *>(cookie);
    if (origin == SEEK_CUR) *offset += static_cast<off64_t>(file.content_.size());
    return 0;
  }

  std::string content_;
  bool is_ready_ = false;
};
InterruptedFile *interrupted = nullptr;  // opened instead of any other

std::map<std::string, bool> writable;  // results of access; for other paths it is called

int answer(passwd *entry, char *store, std::size_t size, passwd **found) {
  *found = nullptr;
  if (database.error != 0 && database.error_times-- > 0) return database.error;
  if (size < database.needed || size <= database.home.size()) return ERANGE;
  if (!database.known) return 0;
  *entry = {};
  entry->pw_dir = store;
  std::memcpy(store, database.home.c_str(), database.home.size() + 1);
  *found = entry;
  return 0;
}

}  // namespace

extern "C" {
void *__real_calloc(std::size_t count, std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size) {
  allocated.push_back(count * size);
  return faults.calloc.strikes() ? nullptr : __real_calloc(count, size);
}

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text) {
  return faults.strdup.strikes() ? nullptr : __real_strdup(text);
}

FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
  EXPECT_NE(std::strchr(mode, 'e'), nullptr) << "a started program must not inherit the file";
  if (faults.fopen.strikes()) return nullptr;
  return interrupted ? interrupted->open(mode) : __real_fopen(path, mode);
}

DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path) {
  return faults.opendir.strikes() ? nullptr : __real_opendir(path);
}

dirent *__real_readdir(DIR *directory);
dirent *__wrap_readdir(DIR *directory) {
  return faults.readdir.strikes() ? nullptr : __real_readdir(directory);
}

int __real_fstat(int file, struct stat *info);
int __wrap_fstat(int file, struct stat *info) {
  return faults.fstat.strikes() ? -1 : __real_fstat(file, info);
}

off_t __real_ftello(FILE *file);
off_t __wrap_ftello(FILE *file) { return faults.ftello.strikes() ? -1 : __real_ftello(file); }

int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode) {
  const auto answer = writable.find(path);
  if (answer == writable.end()) return __real_access(path, mode);
  EXPECT_EQ(mode, W_OK);
  return answer->second ? 0 : -1;
}

uid_t __real_getuid();
uid_t __wrap_getuid() { return database.replaced ? database.real_id : __real_getuid(); }

int __real_getpwuid_r(uid_t id, passwd *entry, char *store, std::size_t size, passwd **found);
int __wrap_getpwuid_r(uid_t id, passwd *entry, char *store, std::size_t size, passwd **found) {
  if (!database.replaced) return __real_getpwuid_r(id, entry, store, size, found);
  database.asked_id = id;
  return answer(entry, store, size, found);
}

int __real_getpwnam_r(const char *name, passwd *entry, char *store, std::size_t size,
                      passwd **found);
int __wrap_getpwnam_r(const char *name, passwd *entry, char *store, std::size_t size,
                      passwd **found) {
  if (!database.replaced) return __real_getpwnam_r(name, entry, store, size, found);
  database.asked_name = name;
  return answer(entry, store, size, found);
}
}

namespace {

struct Expanded {
  int result;
  std::string text;
};

Expanded expanded(const std::string &name, int capacity = 1024) {
  database.replaced = true;
  std::vector<char> room(static_cast<std::size_t>(capacity), '#');
  const int result = expfnam(name.c_str(), static_cast<int>(name.size()), room.data(), capacity);
  return {result, room.data()};
}

class TildeExpand : public testing::Test {
 protected:
  ~TildeExpand() override { database = Database{}; }
};

TEST_F(TildeExpand, AsksForTheRealUserAndForTheNamedOne) {
  database.home = "/home/mira";
  EXPECT_EQ(expanded("~/x").text, "/home/mira/x");
  EXPECT_EQ(database.asked_id, database.real_id);
  EXPECT_EQ(expanded("~mira\\x/y").text, "/home/mira/y");
  EXPECT_EQ(database.asked_name, "mira\\x");
}

TEST_F(TildeExpand, TurnsTheBackslashesOfTheHomeToo) {
  database.home = "\\home\\mira";
  EXPECT_EQ(expanded("~\\").result, 10);
  EXPECT_EQ(expanded("~/x").text, "/home/mira/x");
}

TEST_F(TildeExpand, GivesNothingForAnEmptyHome) {
  database.home = "";
  const auto got = expanded("~");
  EXPECT_EQ(got.result, 0);
  EXPECT_EQ(got.text, "");
}

TEST_F(TildeExpand, TakesAHomeOf1023BytesAndNoLongerOne) {
  for (const std::size_t length : {1000u, 1008u, 1023u}) {
    database.home = std::string(length, 'h');
    EXPECT_EQ(expanded("~").text, database.home);
  }
  for (const std::size_t length : {1024u, 5000u}) {
    database.home = std::string(length, 'h');
    const auto got = expanded("~", 8000);
    EXPECT_EQ(got.result, -2);
    EXPECT_EQ(got.text, "");
  }
}

TEST_F(TildeExpand, GrowsTheBufferOfTheDatabase) {
  database.home = "/home/mira";
  database.needed = 100000;
  EXPECT_EQ(expanded("~").text, "/home/mira");
  EXPECT_EQ(expanded("~mira").text, "/home/mira");
}

TEST_F(TildeExpand, RefusesAUserThatTheDatabaseDoesNotKnowOrCannotFind) {
  database.home = "/home/mira";
  for (const int error : {0, EIO, ENOENT}) {
    database.known = error != 0;
    database.error = error;
    database.error_times = 1000;
    EXPECT_EQ(expanded("~").result, -1);
    EXPECT_EQ(expanded("~mira/x").result, -1);
    EXPECT_EQ(expanded("~mira/x").text, "");
  }
}

TEST_F(TildeExpand, AsksTheDatabaseAgainAfterASignal) {
  database.home = "/home/mira";
  database.error = EINTR;
  database.error_times = 2;
  EXPECT_EQ(expanded("~").text, "/home/mira");
}

void without_tmpdir(bool tmp, bool usr_tmp, const std::function<void()> &body) {
  in_child([&] {
    clear_environment();
    writable = {{"/tmp", tmp}, {"/usr/tmp", usr_tmp}};
    body();
  });
}

TEST(TemporaryDirectory, PrefersTmp) {
  without_tmpdir(true, true, [] {
    char out[64];
    EXPECT_EQ(our_tempdir(out, sizeof out), 5);
    EXPECT_STREQ(out, "/tmp/");
  });
}

TEST(TemporaryDirectory, IsUsrTmpWhenTmpIsNotWritable) {
  without_tmpdir(false, true, [] {
    char out[64];
    EXPECT_EQ(our_tempdir(out, sizeof out), 9);
    EXPECT_STREQ(out, "/usr/tmp/");
  });
}

TEST(TemporaryDirectory, IsNoneWhenNeitherIsWritable) {
  without_tmpdir(false, false, [] {
    char out[8] = "#######";
    EXPECT_EQ(our_tempdir(out, sizeof out), -1);
    EXPECT_STREQ(out, "#######");
  });
}

TEST(LowerCase, AnswersNullWhenMemoryIsShort) {
  faults.strdup = fail_nth(1, ENOMEM);
  EXPECT_EQ(lower_case("Text"), nullptr);
}

TEST_F(LineCount, ExpandsTheTilde) {
  scratch.file("lines.txt", "one\ntwo\n");
  database.replaced = true;
  database.home = scratch.path();
  EXPECT_EQ(file_getlinecount("~/lines.txt"), 2);
}

TEST_F(LineCount, OpensAgainAfterASignal) {
  const auto path = scratch.file("lines.txt", "one\ntwo\n");
  faults.fopen = fail_nth(1, EINTR);
  EXPECT_EQ(file_getlinecount(path.c_str()), 2);
  faults.fopen = fail_nth(1, EMFILE);
  EXPECT_EQ(file_getlinecount(path.c_str()), -1);
}

int by_name(const dirent **a, const dirent **b) { return std::strcmp((*a)->d_name, (*b)->d_name); }

int scan(const ScratchDir &scratch, dirent ***list) {
  return our_scandir(scratch.path().c_str(), list, nullptr, by_name);
}

void expect_failed_scan(const ScratchDir &scratch) {
  auto *list = reinterpret_cast<dirent **>(8);
  EXPECT_EQ(scan(scratch, &list), -1);
  EXPECT_EQ(list, nullptr);
}

int is_visible(const dirent *entry) { return entry->d_name[0] != '.'; }

TEST_F(DirectoryScan, AllocatesRoomFor256EntriesAndSpareBytesBehindEachName) {
  scratch.file("wing.dat");
  allocated.clear();
  dirent **list = nullptr;
  EXPECT_EQ(our_scandir(scratch.path().c_str(), &list, is_visible, by_name), 1);
  EXPECT_EQ(allocated, (std::vector<std::size_t>{257 * sizeof(void *), 8 + 1049}));
  our_freenamelist(list);
}

TEST_F(DirectoryScan, GrowsItsArrayBy256Entries) {
  using Sizes = std::vector<std::size_t>;
  constexpr std::size_t largest_entry = 255 + 1049;
  int made = 0;
  for (const auto &[count, rooms] : std::map<int, Sizes>{
           {256, {257}}, {257, {257, 513}}, {512, {257, 513}}, {513, {257, 513, 769}}}) {
    for (; made < count; ++made) scratch.file(std::to_string(made));
    allocated.clear();
    dirent **list = nullptr;
    EXPECT_EQ(our_scandir(scratch.path().c_str(), &list, is_visible, nullptr), count);
    our_freenamelist(list);
    std::erase_if(allocated, [](std::size_t size) { return size <= largest_entry; });
    for (std::size_t &size : allocated) size /= sizeof(void *);
    EXPECT_EQ(allocated, rooms);
  }
}

TEST_F(DirectoryScan, FailsWhenTheStatusCannotBeAsked) {
  faults.fstat = fail_nth(1, EIO);
  expect_failed_scan(scratch);
}

TEST_F(DirectoryScan, FailsWhenReadingBreaksOff) {
  scratch.file("f");
  for (const int call : {1, 2, 4}) {
    faults.readdir = fail_nth(call, EIO);
    expect_failed_scan(scratch);
  }
}

TEST_F(DirectoryScan, FailsWithoutRoomToSort) {
  faults.calloc = fail_nth(4, ENOMEM);  // behind the list and its two entries
  expect_failed_scan(scratch);
}

TEST_F(DirectoryScan, FailsWithoutRoomToGrow) {
  constexpr int at_first = 256;
  for (int i = 0; i <= at_first; ++i) scratch.file(std::to_string(i));
  faults.calloc = fail_nth(at_first + 2, ENOMEM);  // behind the list and its first entries
  expect_failed_scan(scratch);
}

TEST_F(DirectoryScan, OpensAgainAfterASignal) {
  faults.opendir = fail_nth(1, EINTR);
  dirent **list = nullptr;
  EXPECT_EQ(scan(scratch, &list), 2);
  our_freenamelist(list);
}

int spoil_errno(const dirent *) {
  errno = EACCES;
  return 1;
}

TEST_F(DirectoryScan, IsNotMisledByWhatTheSelectionLeavesBehind) {
  dirent **list = nullptr;
  EXPECT_EQ(our_scandir(scratch.path().c_str(), &list, spoil_errno, nullptr), 2);
  our_freenamelist(list);
}

TEST_F(FileAccess, OpensAgainAfterASignal) {
  const auto path = scratch.file("data", "0123456789");
  std::int64_t position = 99;
  faults.fopen = fail_nth(1, EINTR);
  EXPECT_EQ(remote_fileio(path.c_str(), 2, SEEK_SET, 0, 0, nullptr, &position), 0);
  EXPECT_EQ(position, 10);
}

TEST_F(FileAccess, WritesOnAfterASignal) {
  InterruptedFile file;
  interrupted = &file;
  char bytes[] = "0123456789";
  std::int64_t position = 99;
  EXPECT_EQ(remote_fileio("any", 1, SEEK_SET, 0, 10, bytes, &position), 0);
  EXPECT_EQ(position, 10);
  EXPECT_EQ(file.content(), "0123456789");
  interrupted = nullptr;
}

TEST_F(FileAccess, FailsWhenThePositionCannotBeAsked) {
  const auto path = scratch.file("data", "0123456789");
  std::int64_t position = 99;
  faults.ftello = fail_nth(1, EIO);
  EXPECT_EQ(remote_fileio(path.c_str(), 2, SEEK_SET, 0, 0, nullptr, &position), -3);
  EXPECT_EQ(position, 0);
}

}  // namespace

// The directory listing when memory, the directory's stream or the system calls around it fail.
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <qal/dir_list.h>
#include <qal/status.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/fake_entry.hpp"
#include "support/fault.hpp"
#include "support/listing.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"

namespace {

using qal::test::fail_nth;
using qal::test::FakeEntry;
using qal::test::Fault;
using qal::test::LogCapture;
using qal::test::Names;
using qal::test::ScratchDir;

struct World {
  Fault callocs, reallocs, opendirs, readdirs, getcwds, stats;
  std::vector<std::size_t> calloc_sizes;
  std::vector<std::size_t> realloc_sizes;
  int open_streams = 0;
  bool fake_stream = false;
  std::deque<FakeEntry> fake_entries;        // what a fake stream delivers, taken from the front
  std::map<std::string, mode_t> fake_modes;  // what stat returns for these paths
  std::string home;                          // of everybody, when not empty
  bool listing = false;                      // faults strike only inside the call under test
};

World world;

}  // namespace

extern "C" {
void *__real_calloc(std::size_t count, std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size) {
  if (!world.listing) return __real_calloc(count, size);
  world.calloc_sizes.push_back(count * size);
  return world.callocs.strikes() ? nullptr : __real_calloc(count, size);
}

void *__real_realloc(void *block, std::size_t size);
void *__wrap_realloc(void *block, std::size_t size) {
  if (!world.listing) return __real_realloc(block, size);
  world.realloc_sizes.push_back(size);
  return world.reallocs.strikes() ? nullptr : __real_realloc(block, size);
}

DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path) {
  if (world.listing && world.opendirs.strikes()) return nullptr;
  DIR *const stream = __real_opendir(path);
  if (stream) ++world.open_streams;
  return stream;
}

int __real_closedir(DIR *stream);
int __wrap_closedir(DIR *stream) {
  --world.open_streams;
  return __real_closedir(stream);
}

dirent *__real_readdir(DIR *stream);
dirent *__wrap_readdir(DIR *stream) {
  if (world.listing && world.readdirs.strikes()) return nullptr;
  if (!world.fake_stream) return __real_readdir(stream);
  static FakeEntry delivered{"", DT_UNKNOWN};
  if (world.fake_entries.empty()) return nullptr;
  delivered = world.fake_entries.front();
  world.fake_entries.pop_front();
  return delivered.entry();
}

char *__real_getcwd(char *out, std::size_t size);
char *__wrap_getcwd(char *out, std::size_t size) {
  return world.listing && world.getcwds.strikes() ? nullptr : __real_getcwd(out, size);
}

int __real_stat(const char *path, struct stat *info);
int __wrap_stat(const char *path, struct stat *info) {
  if (world.listing && world.stats.strikes()) return -1;
  const auto fake = world.fake_modes.find(path);
  if (fake == world.fake_modes.end()) return __real_stat(path, info);
  *info = {};
  info->st_mode = fake->second;
  return 0;
}

int __real_getpwuid_r(uid_t user, passwd *entry, char *room, std::size_t size, passwd **found);
int __wrap_getpwuid_r(uid_t user, passwd *entry, char *room, std::size_t size, passwd **found) {
  if (world.home.empty()) return __real_getpwuid_r(user, entry, room, size, found);
  if (world.home.size() >= size) return ERANGE;
  *entry = {};
  *std::copy(world.home.begin(), world.home.end(), room) = '\0';
  entry->pw_dir = room;
  *found = entry;
  return 0;
}
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr auto *growth_failed_for_directories =
    "ERROR: qal_list_dir: reallocate of dir names failed.\n";
constexpr auto *growth_failed_for_files = "ERROR: qal_list_dir: reallocate of dir names failed.";

// Faults strike in the call that the constructor makes, and nowhere else.
struct Armed {
  Armed() { world.listing = true; }
};
struct Listing : Armed, qal::test::Listing {
  explicit Listing(const std::string &pattern, int verbose = 0)
      : qal::test::Listing(pattern, verbose) {
    world.listing = false;
  }
};

class DirListFault : public testing::Test {
 protected:
  DirListFault() { world = World{}; }
  ~DirListFault() override {
    EXPECT_EQ(world.open_streams, 0);
    world = World{};
  }

  std::string pattern() const { return scratch_ / "*"; }

  // Replaces the stream of the scratch directory. Its first entry, ".", really exists.
  static void deliver(const Names &names, unsigned char kind) {
    world.fake_stream = true;
    world.fake_entries.emplace_back(".", static_cast<unsigned char>(DT_DIR));
    for (const auto &name : names) world.fake_entries.emplace_back(name, kind);
  }

  std::string couldnt_get_info(const std::string &name) const {
    return "ERROR: qal_dir_list: couldn't get info on '" + (scratch_ / name) + "'";
  }

  ScratchDir scratch_;
  LogCapture log_;
};

TEST_F(DirListFault, LeavesFiveZeroBytesBehindTheFullPath) {
  const std::string working_directory = fs::current_path();
  const std::map<std::string, std::string> full_paths{
      {pattern(), pattern()}, {"./*", working_directory + "/./*"}, {"", working_directory + "/*"}};
  for (const auto &[given, full_path] : full_paths) {
    world.calloc_sizes.clear();
    const Listing listing(given);
    ASSERT_FALSE(world.calloc_sizes.empty());
    EXPECT_EQ(world.calloc_sizes.front(), full_path.size() + 5);
    EXPECT_EQ(std::string(listing.full_path, full_path.size() + 5),
              full_path + std::string(5, '\0'));
  }
}

TEST_F(DirListFault, ReportsAFullPathThatCannotBeAllocated) {
  for (const auto &given : {pattern(), std::string("./*")}) {
    log_.clear();
    world.callocs = fail_nth(1, ENOMEM);
    const Listing listing(given);
    EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
    EXPECT_TRUE(listing.gave_nothing());
    EXPECT_THAT(log_.lines(),
                ElementsAre("ERROR: qal_dir_list: error allocating memory for full path."));
  }
}

TEST_F(DirListFault, ReportsDirectoryNamesThatCannotBeAllocated) {
  world.callocs = fail_nth(2, ENOMEM);
  const Listing listing(pattern());
  EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(listing.full_path, pattern());
  EXPECT_TRUE(listing.gave_no_names());
  EXPECT_THAT(log_.lines(),
              ElementsAre("ERROR: qal_dir_list: could not allocate memory for directory names."));
}

TEST_F(DirListFault, ReportsFileNamesThatCannotBeAllocated) {
  world.callocs = fail_nth(3, ENOMEM);
  const Listing listing(pattern());
  EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(listing.full_path, pattern());
  EXPECT_STREQ(listing.directory_text, "");
  EXPECT_EQ(listing.file_text, nullptr);
  EXPECT_TRUE(listing.counts_are_unset());
  EXPECT_THAT(log_.lines(),
              ElementsAre("ERROR: qal_dir_list: could not allocate memory for file names."));
}

TEST_F(DirListFault, AllocatesNothingForADirectoryThatCannotBeOpened) {
  world.opendirs = fail_nth(1, EMFILE);
  const Listing listing(pattern(), 1);
  EXPECT_EQ(listing.status, QAL_STATUS_NOT_FOUND);
  EXPECT_EQ(listing.full_path, pattern());
  EXPECT_TRUE(listing.gave_no_names());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DirListFault, OpensTheDirectoryAgainAfterASignal) {
  scratch_.file("a");
  world.opendirs = fail_nth(1, EINTR);
  EXPECT_THAT(Listing(pattern()).files(), ElementsAre("a"));
  EXPECT_EQ(world.opendirs.calls, 2);
}

TEST_F(DirListFault, GrowsWhenANameWithItsNewlineAndEndReachesTheCapacity) {
  Names names(5, std::string(249, 'n'));  // 1250 bytes with their newlines
  names.emplace_back(247, 'x');           // 1250 + 247 + 2 is one less than 1500
  deliver(names, DT_REG);
  EXPECT_EQ(Listing(pattern()).file_count, 6);
  EXPECT_THAT(world.realloc_sizes, IsEmpty());
  EXPECT_THAT(std::vector(world.calloc_sizes.end() - 2, world.calloc_sizes.end()),
              ElementsAre(1500, 1500));

  names.back() += 'x';
  deliver(names, DT_REG);
  EXPECT_EQ(Listing(pattern()).file_count, 6);
  EXPECT_THAT(world.realloc_sizes, ElementsAre(3000));
}

TEST_F(DirListFault, GrowsInSteps) {
  const Names names(30, std::string(199, 'n'));  // 6000 bytes with their newlines
  deliver(names, DT_REG);
  const Listing files(pattern());
  EXPECT_EQ(files.files(), names);
  EXPECT_THAT(world.realloc_sizes, ElementsAre(3000, 4500, 6000, 7500));

  world.realloc_sizes.clear();
  deliver(names, DT_DIR);
  EXPECT_EQ(Listing(pattern()).directory_count, 31);
  EXPECT_THAT(world.realloc_sizes, ElementsAre(3000, 4500, 6000, 7500));
}

TEST_F(DirListFault, ReportsDirectoryNamesThatCannotGrow) {
  deliver(Names(10, std::string(199, 'd')), DT_DIR);
  world.reallocs = fail_nth(1, ENOMEM);
  const Listing listing(pattern());
  EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(listing.directories().size(), 8U);  // "." and the seven that fit
  EXPECT_STREQ(listing.file_text, "");
  EXPECT_TRUE(listing.counts_are_unset());
  EXPECT_THAT(log_.lines(), ElementsAre(growth_failed_for_directories));
}

TEST_F(DirListFault, ReportsFileNamesThatCannotGrowInTheSameWordsWithoutANewline) {
  // Deliberate: the text speaks of directories, and of another function, in both cases.
  deliver(Names(10, std::string(199, 'f')), DT_REG);
  world.reallocs = fail_nth(1, ENOMEM);
  const Listing listing(pattern());
  EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
  EXPECT_THAT(listing.directories(), ElementsAre("."));
  EXPECT_EQ(listing.files().size(), 7U);
  EXPECT_TRUE(listing.counts_are_unset());
  EXPECT_THAT(log_.lines(), ElementsAre(growth_failed_for_files));
}

TEST_F(DirListFault, KeepsWhatItFoundWhenALaterGrowthFails) {
  deliver(Names(30, std::string(199, 'f')), DT_REG);
  world.reallocs = fail_nth(3, ENOMEM);
  const Listing listing(pattern());
  EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(listing.files().size(), 22U);
  EXPECT_THAT(log_.lines(), ElementsAre(growth_failed_for_files));
}

TEST_F(DirListFault, SpeaksOfAStreamThatCannotBeReadOnlyWhenVerbose) {
  for (const int verbose : {0, 1, 2, -1, 0x100}) {
    world.readdirs = fail_nth(1, EIO);
    log_.clear();
    const Listing listing(pattern(), verbose);
    EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
    EXPECT_STREQ(listing.directory_text, "");
    EXPECT_STREQ(listing.file_text, "");
    EXPECT_TRUE(listing.counts_are_unset());
    EXPECT_EQ(log_.text(),
              verbose ? "ERROR: qal_dir_list: error reading current directory.\n" : "");
  }
}

TEST_F(DirListFault, TakesAStreamWithoutAnyEntryForUnreadable) {
  for (const int verbose : {0, 1, 2, -1, 0x100}) {
    world.fake_stream = true;
    log_.clear();
    const Listing listing(pattern(), verbose);
    EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
    EXPECT_TRUE(listing.counts_are_unset());
    EXPECT_EQ(log_.text(),
              verbose ? "ERROR: qal_dir_list: error reading current directory.\n" : "");
  }
}

TEST_F(DirListFault, TellsAReadErrorFromTheEndInSilence) {
  deliver({"a", "b", "c"}, DT_REG);
  world.readdirs = fail_nth(4, EIO);
  const Listing listing(pattern(), 1);
  EXPECT_EQ(listing.status, QAL_STATUS_NO_MEMORY);
  EXPECT_THAT(listing.directories(), ElementsAre("."));
  EXPECT_THAT(listing.files(), ElementsAre("a", "b"));
  EXPECT_TRUE(listing.counts_are_unset());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DirListFault, DoesNotTakeAnEarlierErrorForAReadError) {
  fs::create_symlink("missing", scratch_ / "dangling");
  errno = EIO;
  EXPECT_EQ(Listing(pattern()).status, QAL_STATUS_OK);
}

TEST_F(DirListFault, IsSilentWithoutAWorkingDirectory) {
  world.getcwds = fail_nth(1, ENOENT);
  const Listing listing("./*", 1);
  EXPECT_EQ(listing.status, QAL_STATUS_NOT_FOUND);
  EXPECT_EQ(listing.full_path, nullptr);
  EXPECT_TRUE(listing.counts_are_unset());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DirListFault, ExaminesOneEntryWhereTheStreamTellsTheKinds) {
  Names names(50, "file");
  deliver(names, DT_REG);
  EXPECT_EQ(Listing(pattern()).file_count, 50);
  EXPECT_EQ(world.stats.calls, 1);
}

TEST_F(DirListFault, ExaminesEveryEntryOfAnotherKind) {
  scratch_.file("file");
  for (const unsigned char kind : {DT_UNKNOWN, DT_LNK, DT_FIFO, DT_CHR, DT_BLK, DT_SOCK}) {
    world.stats = {};
    deliver(Names(5, "file"), kind);
    EXPECT_EQ(Listing(pattern()).file_count, 5);
    EXPECT_EQ(world.stats.calls, 6);
  }
}

TEST_F(DirListFault, ExaminesEntriesUntilOneCouldBeExamined) {
  deliver({"a", "b"}, DT_REG);
  scratch_.file("a");
  world.stats = fail_nth(1, EACCES);
  const Listing listing(pattern());
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_THAT(listing.files(), ElementsAre("a", "b"));
  EXPECT_EQ(listing.directory_count, 0);
  EXPECT_EQ(world.stats.calls, 2);
  EXPECT_THAT(log_.lines(), ElementsAre(couldnt_get_info(".")));
}

TEST_F(DirListFault, NamesEntriesOfTheRootWithOneSlash) {
  deliver({"name"}, DT_UNKNOWN);
  world.stats = fail_nth(1, EACCES);
  world.fake_modes["/name"] = S_IFDIR;
  EXPECT_THAT(Listing("/*").directories(), ElementsAre("name"));
  EXPECT_THAT(log_.lines(), ElementsAre("ERROR: qal_dir_list: couldn't get info on '/.'"));
}

TEST_F(DirListFault, TellsDirectoriesByOneBit) {
  const std::map<std::string, mode_t> modes{
      {"block", S_IFBLK}, {"socket", S_IFSOCK},      {"dir", S_IFDIR}, {"char", S_IFCHR},
      {"pipe", S_IFIFO},  {"file", S_IFREG | 07777}, {"link", S_IFLNK}};
  Names names;
  for (const auto &[name, mode] : modes) {
    names.push_back(name);
    world.fake_modes[scratch_ / name] = mode;
  }
  deliver(names, DT_UNKNOWN);
  const Listing listing(pattern());
  EXPECT_THAT(listing.directories(), UnorderedElementsAre(".", "block", "socket", "dir"));
  EXPECT_THAT(listing.files(), UnorderedElementsAre("char", "pipe", "file", "link"));
}

TEST_F(DirListFault, ReportsAndSkipsNamesOfMoreThan255Bytes) {
  deliver({std::string(255, 'n'), std::string(256, 'n'), std::string(400, 'n')}, DT_REG);
  const Listing listing(pattern());
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_THAT(listing.files(), ElementsAre(std::string(255, 'n')));
  EXPECT_THAT(log_.lines(), ElementsAre(couldnt_get_info(std::string(256, 'n')),
                                        couldnt_get_info(std::string(400, 'n'))));
  EXPECT_EQ(world.stats.calls, 1);
}

TEST_F(DirListFault, ExpandsTheHomeDirectory) {
  scratch_.file("a.dat");
  scratch_.file("b.txt");
  world.home = scratch_.path();
  const Listing records("~/*.dat");
  EXPECT_EQ(records.status, QAL_STATUS_OK);
  EXPECT_EQ(records.full_path, scratch_ / "*.dat");
  EXPECT_THAT(records.files(), ElementsAre("a.dat"));
  const Listing all("~");
  EXPECT_EQ(all.full_path, scratch_.path() + "/");
  EXPECT_THAT(all.files(), UnorderedElementsAre("a.dat", "b.txt"));
}

TEST_F(DirListFault, RefusesAHomeDirectoryThatDoesNotFit) {
  world.home = "/" + std::string(1018, 'h');
  EXPECT_EQ(Listing("~/ab*").status, QAL_STATUS_NOT_FOUND);
  const Listing listing("~/abc*");
  EXPECT_EQ(listing.status, QAL_STATUS_INVALID);
  EXPECT_EQ(listing.full_path, nullptr);
}

}  // namespace

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qal/dir_list.h>
#include <qal/files.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/sweep.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "internal/handles.hpp"
#include "platform/platform.hpp"
#include "support/bad_servers.hpp"
#include "support/child.hpp"
#include "support/log_capture.hpp"
#include "support/sweep_world.hpp"

namespace {

using std::string_literals::operator""s;
using qal::test::exists;
using qal::test::in_child;
using qal::test::in_new_process;
using qal::test::in_unprivileged_child;
using qal::test::LogCapture;
using qal::test::names_in;
using qal::test::read_file;
using qal::test::record_text;
using qal::test::ScratchDir;
using qal::test::SweepWorld;
using qal::test::vanished_pid;

constexpr char pattern[] = "halix_server*.dat";
constexpr char malformed[] = "not a record";

// Names as the directory listing gives them, in its order.
std::vector<std::string> listed(const std::string &dir, const std::string &wildcard) {
  char *full_path = nullptr;
  char *directories = nullptr;
  char *files = nullptr;
  int directory_count = 0;
  int file_count = 0;
  qal_dir_list((dir + "/" + wildcard).c_str(), &full_path, &directory_count, &directories,
               &file_count, &files, 0);
  const qal::internal::OwnedText owned[] = {qal::internal::OwnedText{full_path},
                                            qal::internal::OwnedText{directories},
                                            qal::internal::OwnedText{files}};
  std::vector<std::string> names;
  std::istringstream lines{files ? files : ""};
  for (std::string name; std::getline(lines, name);) names.push_back(name);
  return names;
}

// A directory below `base` whose own path has exactly `length` bytes.
std::string directory_of_length(const std::string &base, std::size_t length) {
  std::string path = base;
  while (path.size() + 202 < length) path += "/" + std::string(200, 'd');
  path += "/" + std::string(length - path.size() - 1, 'e');
  std::filesystem::create_directories(path);
  return path;
}

TEST(FindFiles, GivesTheMatchingFilesInTheListingsOrderAndOneEntryMore) {
  const ScratchDir dir;
  for (const auto name :
       {"halix_server1.dat", "halix_server.dat", "halix_server22.dat", "other.dat",
        "halix_server3.dat.old", "Halix_server4.dat", "halix_serve.dat"}) {
    dir.file(name);
  }
  std::vector<std::string> expected;
  for (const auto &name : listed(dir.path(), pattern)) expected.push_back(dir / name);
  ASSERT_EQ(expected.size(), 3u);
  expected.push_back(dir / "");
  EXPECT_EQ(find_files(dir.path().c_str(), pattern), expected);
}

TEST(FindFiles, GivesTheTrailingEntryAloneWhenNothingMatches) {
  const ScratchDir dir;
  EXPECT_EQ(find_files(dir.path().c_str(), pattern), std::vector{dir / ""});
}

TEST(FindFiles, NeverGivesDirectories) {
  const ScratchDir dir;
  dir.directory("halix_server1.dat");
  EXPECT_EQ(find_files(dir.path().c_str(), pattern), std::vector{dir / ""});
}

TEST(FindFiles, TakesAnyPattern) {
  const ScratchDir dir;
  dir.file("a.txt");
  dir.file("b.dat");
  EXPECT_EQ(find_files(dir.path().c_str(), "?.txt"), (std::vector{dir / "a.txt", dir / ""}));
}

TEST(FindFiles, TurnsBackslashesIntoSlashes) {
  const ScratchDir dir;
  dir.directory("a");
  dir.file("a/halix_server1.dat");
  dir.file("halix_server\\b.dat");
  EXPECT_EQ(find_files((dir.path() + "\\a").c_str(), pattern),
            (std::vector{dir / "a/halix_server1.dat", dir / "a/"}));
  EXPECT_EQ(find_files(dir.path().c_str(), pattern),
            (std::vector{dir / "halix_server/b.dat", dir / ""}));
}

TEST(FindFiles, SplitsNamesAtTheirNewlines) {
  const ScratchDir dir;
  dir.file("halix_server\n\nx.dat");
  EXPECT_EQ(find_files(dir.path().c_str(), pattern),
            (std::vector{dir / "halix_server", dir / "", dir / "x.dat", dir / ""}));
}

TEST(FindFiles, KeepsTheDirectoryAsItWasGiven) {
  const ScratchDir dir;
  dir.file("halix_server1.dat");
  EXPECT_EQ(find_files((dir / "").c_str(), pattern),
            (std::vector{dir / "/halix_server1.dat", dir / "/"}));
}

TEST(FindFiles, SearchesTheRootForAnEmptyDirectory) {
  const auto files = find_files("", pattern);
  ASSERT_FALSE(files.empty());
  EXPECT_EQ(files.back(), "/");
}

TEST(FindFiles, GivesNothingWhenTheDirectoryCannotBeListed) {
  const ScratchDir dir;
  EXPECT_TRUE(find_files((dir / "missing").c_str(), pattern).empty());
  EXPECT_TRUE(find_files(dir.file("file").c_str(), pattern).empty());
  EXPECT_TRUE(find_files("~no-such-user-anywhere", pattern).empty());
}

TEST(FindFiles, GivesNothingForNull) {
  EXPECT_TRUE(find_files(nullptr, pattern).empty());
  EXPECT_TRUE(find_files("/", nullptr).empty());
}

TEST(FindFiles, GivesNothingWhenTheWildcardPathDoesNotFit) {
  const ScratchDir dir;
  const std::size_t longest = 1023 - 1 - (sizeof pattern - 1);
  const auto fitting = directory_of_length(dir.path(), longest);
  EXPECT_EQ(find_files(fitting.c_str(), pattern), std::vector{fitting + "/"});
  const auto over = directory_of_length(dir / "over", longest + 1);
  EXPECT_TRUE(find_files(over.c_str(), pattern).empty());
}

TEST(FindFiles, LeavesOutPathsThatDoNotFit) {
  const ScratchDir dir;
  const auto deep = directory_of_length(dir.path(), 1000);
  const int here = open(deep.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const qal::internal::Descriptor directory{here};
  const auto fitting = "halix_server12345.dat"s;  // 1022 bytes in all
  const auto longest = "halix_server123456.dat"s;
  const auto over = "halix_server1234567.dat"s;
  for (const auto &name : {fitting, longest, over}) {
    close(openat(here, name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  }
  auto files = find_files(deep.c_str(), pattern);
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector{deep + "/", deep + "/" + fitting, deep + "/" + longest}));
}

TEST(FindFiles, FindsThousandsOfFiles) {
  const ScratchDir dir;
  for (int i = 0; i < 2000; ++i) dir.file("halix_server" + std::to_string(i) + ".dat");
  EXPECT_EQ(find_files(dir.path().c_str(), pattern).size(), 2001u);
}

// Sweeps in this process; the records of these cases lead to no request.
class SweepRecords : public testing::Test {
 protected:
  void sweep() const { process_directory(world_.temporary().c_str()); }
  std::string record(std::string_view content) const {
    return world_.record("halix_server1.dat", content);
  }
  bool is_kept(std::string_view content) const {
    const auto path = record(content);
    sweep();
    return exists(path);
  }

  SweepWorld world_;
  const qal::test::RefusingPort nobody_;
  const int alive_ = getpid();
};

bool curl_is_loaded() {
  return dlopen(qal::internal::platform::curl_library_name(), RTLD_NOW | RTLD_NOLOAD) != nullptr;
}

TEST_F(SweepRecords, DeletesWhatHoldsFewerThanFourFields) {
  EXPECT_FALSE(is_kept(""));
  EXPECT_FALSE(is_kept("\n"));
  EXPECT_FALSE(is_kept("http://127.0.0.1/ halix " + std::to_string(alive_)));
  EXPECT_FALSE(is_kept("http://127.0.0.1/ halix " + std::to_string(vanished_pid())));
  EXPECT_FALSE(is_kept("http://127.0.0.1/ halix secret pid"));
}

TEST_F(SweepRecords, DeletesWhatDoesNotFitItsFields) {
  const std::string over(256, 'x');
  EXPECT_FALSE(is_kept(record_text(over, "n", "p", vanished_pid())));
  EXPECT_FALSE(is_kept(record_text("u", over, "p", vanished_pid())));
  EXPECT_FALSE(is_kept(record_text("u", "n", over, vanished_pid())));
  EXPECT_FALSE(is_kept(record_text("u", "n", "p", 2147483648)));
  EXPECT_FALSE(is_kept(record_text("u", "n", "p", -2147483649)));
}

// Deliberate: the sweep follows the probe's answer, and that is 1 for a process that is gone.
TEST_F(SweepRecords, KeepsTheRecordOfAVanishedProcess) {
  EXPECT_TRUE(is_kept(record_text(nobody_.url(), "halix", "secret", vanished_pid())));
  EXPECT_TRUE(is_kept(record_text(nobody_.url(), "halix", "secret", 2147483647)));
}

TEST_F(SweepRecords, KeepsAVanishedProcesssRecordWithAnEmptyTextToo) {
  const auto pid = std::to_string(vanished_pid());
  EXPECT_TRUE(is_kept("\0 halix secret "s + pid));
  EXPECT_TRUE(is_kept(nobody_.url() + " \0x secret "s + pid));
}

TEST_F(SweepRecords, DeletesALiveProcesssRecordWithAnEmptyTextWithoutARequest) {
  in_new_process([this] {
    const auto pid = std::to_string(alive_);
    EXPECT_FALSE(is_kept("\0"s + nobody_.url() + " halix secret "s + pid));
    EXPECT_FALSE(is_kept(nobody_.url() + " \0 secret "s + pid));
    EXPECT_FALSE(is_kept(nobody_.url() + " halix \0 "s + pid));
    EXPECT_FALSE(curl_is_loaded());
  });
}

TEST_F(SweepRecords, LoadsCurlOnlyWhenSomebodyIsToBeNotified) {
  in_new_process([this] {
    is_kept(malformed);
    is_kept(record_text(nobody_.url(), "halix", "secret", vanished_pid()));
    EXPECT_FALSE(curl_is_loaded());
    EXPECT_FALSE(is_kept(record_text(nobody_.url(), "halix", "secret", alive_)));
    EXPECT_TRUE(curl_is_loaded());
  });
}

TEST_F(SweepRecords, GivesIdsThatNameNoSingleProcessToTheProbeAsTheyAre) {
  // 0 means the sweeping process's own group, which exists; the empty text prevents a request.
  EXPECT_FALSE(is_kept("\0 halix secret 0"s));
  EXPECT_FALSE(is_kept("\0 halix secret -0"s));
  EXPECT_FALSE(is_kept("\0 halix secret 0x10"s));
  // No such group.
  EXPECT_TRUE(is_kept("\0 halix secret -2147483647"s));
}

TEST_F(SweepRecords, KeepsWhatItCannotOpen) {
  const auto path = record(malformed);
  chmod(path.c_str(), 0);
  in_unprivileged_child([this] { sweep(); });
  EXPECT_TRUE(exists(path));
}

TEST_F(SweepRecords, IgnoresAFailedDeletion) {
  const auto first = record(malformed);
  const auto second = world_.record("halix_server2.dat", malformed);
  chmod(world_.temporary().c_str(), 0555);
  in_unprivileged_child([this] { sweep(); });
  EXPECT_TRUE(exists(first));
  EXPECT_TRUE(exists(second));
  chmod(world_.temporary().c_str(), 0755);
  sweep();
  EXPECT_EQ(names_in(world_.temporary()), std::vector<std::string>{});
}

TEST_F(SweepRecords, TouchesNothingButRecords) {
  const std::vector<std::string> others = {".halix_server1.dat", "halix_server1.dat.bak",
                                           "halix_server1.DAT", "notes.txt", "xhalix_server1.dat"};
  for (const auto &name : others) world_.record(name, malformed);
  world_.directory("tmp/halix_server_dir.dat");
  const auto before = world_.contents();
  sweep();
  EXPECT_EQ(world_.contents(), before);
}

TEST_F(SweepRecords, DeletesAFifoAndALinkToADeviceWithoutReadingThem) {
  const auto fifo = world_.temporary() + "/halix_server_fifo.dat";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  ASSERT_EQ(symlink("/dev/zero", (world_.temporary() + "/halix_server_zero.dat").c_str()), 0);
  sweep();
  EXPECT_EQ(names_in(world_.temporary()), std::vector<std::string>{});
}

TEST_F(SweepRecords, FollowsALinkToReadAndDeletesTheLink) {
  const auto target = world_.file(world_.home() + "/elsewhere", malformed);
  ASSERT_EQ(symlink(target.c_str(), (world_.temporary() + "/halix_server1.dat").c_str()), 0);
  sweep();
  EXPECT_EQ(names_in(world_.temporary()), std::vector<std::string>{});
  EXPECT_EQ(read_file(target), malformed);
}

TEST_F(SweepRecords, LeavesALinkToADirectoryAlone) {
  const auto path = world_.temporary() + "/halix_server1.dat";
  ASSERT_EQ(symlink(world_.home().c_str(), path.c_str()), 0);
  sweep();
  EXPECT_EQ(names_in(world_.temporary()), std::vector{"halix_server1.dat"s});
}

// The sweep itself reports nothing; the listing has a message for such an entry.
TEST_F(SweepRecords, LeavesALinkToNothingAloneAndOnlyTheListingSpeaksOfIt) {
  const auto path = world_.temporary() + "/halix_server1.dat";
  ASSERT_EQ(symlink((world_.root() + "/missing").c_str(), path.c_str()), 0);
  const LogCapture log;
  sweep();
  EXPECT_EQ(names_in(world_.temporary()), std::vector{"halix_server1.dat"s});
  EXPECT_EQ(log.text(), "ERROR: qal_dir_list: couldn't get info on '" + path + "'");
}

TEST_F(SweepRecords, PassesOverNamesThatLeadElsewhere) {
  world_.directory("tmp/halix_server");
  world_.directory("victim");
  world_.file(world_.root() + "/victim/precious.dat", malformed);
  world_.file(world_.root() + "/victim/halix_server1.dat", malformed);
  world_.record("notes.txt", malformed);
  world_.record("halix_server\\..\\..\\victim\\precious.dat", malformed);
  world_.record("halix_server\\..\\..\\victim\\halix_server1.dat", malformed);
  world_.record("halix_server\nnotes.txt\n.dat", malformed);
  world_.record("halix_server\n\\..\\..\\victim\\halix_server1.dat", malformed);
  world_.record("halix_server\n..\\victim\\halix_server1.dat\n.dat", malformed);
  world_.record("halix_server\n.dat", malformed);
  world_.record("halix_server\\.dat", malformed);
  const auto before = world_.contents();
  sweep();
  EXPECT_EQ(world_.contents(), before);
}

TEST_F(SweepRecords, SettlesNamesWithAnyOtherByte) {
  for (int byte = 1; byte < 256; ++byte) {
    if (std::string_view("/\\\n").find(static_cast<char>(byte)) != std::string_view::npos) continue;
    world_.record("halix_server"s + static_cast<char>(byte) + ".dat", malformed);
  }
  world_.record("halix_server%s%n%s%n.dat", malformed);
  world_.record("halix_server" + std::string(239, 'x') + ".dat", malformed);
  sweep();
  EXPECT_EQ(names_in(world_.temporary()), std::vector<std::string>{});
}

TEST_F(SweepRecords, SettlesADirectoryGivenWithBackslashes) {
  record(malformed);
  process_directory((world_.root() + "\\tmp\\").c_str());
  EXPECT_EQ(names_in(world_.temporary()), std::vector<std::string>{});
}

TEST_F(SweepRecords, SettlesADirectoryBelowTheWorkingDirectory) {
  const auto path = record(malformed);
  in_child([this] {
    ASSERT_EQ(chdir(world_.root().c_str()), 0);
    process_directory("tmp");
  });
  EXPECT_FALSE(exists(path));
}

TEST_F(SweepRecords, CannotOpenRecordsOfADirectoryThatTheListingAloneExpands) {
  const auto path = world_.file(world_.home() + "/halix_server1.dat", malformed);
  in_child([this] {
    setenv("HOME", world_.home().c_str(), 1);
    process_directory("~");
  });
  EXPECT_TRUE(exists(path));
}

TEST_F(SweepRecords, DoesNothingWithoutADirectory) {
  process_directory((world_.root() + "/missing").c_str());
  process_directory(std::string(2000, 'x').c_str());
  process_directory(nullptr);
}

TEST_F(SweepRecords, ReportsNothing) {
  const LogCapture log;
  record(malformed);
  world_.record("halix_server2.dat", record_text(nobody_.url(), "halix", "secret", alive_));
  world_.record("halix_server3.dat", record_text(nobody_.url(), "halix", "secret", vanished_pid()));
  sweep();
  process_directory((world_.root() + "/missing").c_str());
  EXPECT_EQ(log.text(), "");
}

TEST_F(SweepRecords, LeavesNoDescriptorOpen) {
  const auto lowest_free = [] {
    const int number = dup(STDERR_FILENO);
    close(number);
    return number;
  };
  sweep();
  const int before = lowest_free();
  for (int i = 0; i < 50; ++i)
    world_.record("halix_server" + std::to_string(i) + ".dat", malformed);
  world_.record("halix_server_kept.dat", record_text("u", "n", "p", vanished_pid()));
  sweep();
  EXPECT_EQ(lowest_free(), before);
}

}  // namespace

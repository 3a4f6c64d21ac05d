#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/dir_list.h>
#include <qal/logger.h>
#include <qal/status.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/child.hpp"
#include "support/listing.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"
#include "support/threads.hpp"

namespace {

namespace fs = std::filesystem;
using qal::test::exists;
using qal::test::in_child;
using qal::test::in_unprivileged_child;
using qal::test::InScratch;
using qal::test::Listing;
using qal::test::LogCapture;
using qal::test::Names;
using qal::test::run_in_child;
using qal::test::run_together;
using qal::test::ScratchDir;
using qal::test::unset_count;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

using DirList = InScratch;

Names stream_order(const std::string &directory) {
  Names names;
  const std::unique_ptr<DIR, int (*)(DIR *)> stream{opendir(directory.c_str()), closedir};
  while (const dirent *entry = readdir(stream.get())) names.push_back(entry->d_name);
  return names;
}

std::string couldnt_get_info(const std::string &path) {
  return "ERROR: qal_dir_list: couldn't get info on '" + path + "'";
}

TEST_F(DirList, ListsMatchingFilesAndEveryDirectory) {
  scratch.file("a.dat");
  scratch.file("b.txt");
  scratch.directory("sub");
  const Listing listing(scratch / "*.dat");
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_STREQ(listing.file_text, "a.dat\n");
  EXPECT_EQ(listing.file_count, 1);
  EXPECT_THAT(listing.directories(), UnorderedElementsAre(".", "..", "sub"));
  EXPECT_EQ(listing.directories(), [&] {
    Names order = stream_order(scratch.path());
    std::erase_if(order, [](const auto &name) { return name == "a.dat" || name == "b.txt"; });
    return order;
  }());
  EXPECT_EQ(listing.directory_count, 3);
  EXPECT_EQ(listing.full_path, scratch / "*.dat");
}

TEST_F(DirList, KeepsTheOrderOfTheStream) {
  for (int i = 0; i < 100; ++i) {
    scratch.file("file" + std::to_string(i * 7919 % 100));
    scratch.directory("directory" + std::to_string(i * 7919 % 100));
  }
  const Listing listing(scratch / "*");
  Names files;
  Names directories;
  for (const auto &name : stream_order(scratch.path())) {
    (name.starts_with("file") ? files : directories).push_back(name);
  }
  EXPECT_EQ(listing.files(), files);
  EXPECT_EQ(listing.directories(), directories);
}

TEST_F(DirList, FindsServerRecords) {
  for (const auto *name : {"halix_server1.dat", "halix_server.dat", "halix_server1.dat.bak",
                           "Halix_server2.dat", "halix_client.dat"}) {
    scratch.file(name);
  }
  const Listing listing(scratch / "halix_server*.dat");
  EXPECT_THAT(listing.files(), UnorderedElementsAre("halix_server1.dat", "halix_server.dat"));
  EXPECT_EQ(listing.file_count, 2);
}

TEST_F(DirList, ListsAllFilesForAPatternThatEndsInASlash) {
  scratch.file("a");
  scratch.file(".hidden");
  scratch.file("b.txt");
  const Listing listing(scratch.path() + "/");
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_THAT(listing.files(), UnorderedElementsAre("a", ".hidden", "b.txt"));
  EXPECT_EQ(listing.full_path, scratch.path() + "/");
}

TEST_F(DirList, MatchesHiddenFilesLikeOthers) {
  scratch.file(".hidden");
  scratch.file("a");
  EXPECT_THAT(Listing(scratch / "*").files(), UnorderedElementsAre(".hidden", "a"));
  EXPECT_THAT(Listing(scratch / "?hidden").files(), ElementsAre(".hidden"));
}

TEST_F(DirList, KnowsSetsAndEscapesInThePattern) {
  for (const auto *name : {"a1", "b1", "c1", "*", "A1"}) scratch.file(name);
  EXPECT_THAT(Listing(scratch / "[ab]1").files(), UnorderedElementsAre("a1", "b1"));
  EXPECT_THAT(Listing(scratch / "\\*").files(), ElementsAre("*"));
}

TEST_F(DirList, GivesEmptyTextsWhenNothingMatches) {
  scratch.file("a");
  const Listing listing(scratch / "*.dat");
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_STREQ(listing.file_text, "");
  EXPECT_EQ(listing.file_count, 0);
}

TEST_F(DirList, GrowsItsTextsForManyLongNames) {
  for (int i = 0; i < 300; ++i) {
    const std::string number = std::to_string(1000 + i);
    scratch.file(std::string(200, 'f') + number);
    scratch.directory(std::string(200, 'd') + number);
  }
  const Listing listing(scratch / "f*");
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_EQ(listing.file_count, 300);
  EXPECT_EQ(listing.directory_count, 302);
  const std::string file_text = listing.file_text;
  const std::string directory_text = listing.directory_text;
  EXPECT_EQ(std::count(file_text.begin(), file_text.end(), '\n'), 300);
  EXPECT_EQ(std::count(directory_text.begin(), directory_text.end(), '\n'), 302);
  EXPECT_EQ(file_text.size(), 300U * 205);
  EXPECT_THAT(listing.directories(),
              IsSupersetOf({".", "..", (std::string(200, 'd') + "1299").c_str()}));
}

TEST_F(DirList, DoesNotFilterDirectories) {
  scratch.directory("one");
  scratch.directory("two.dat");
  EXPECT_THAT(Listing(scratch / "*.dat").directories(),
              UnorderedElementsAre(".", "..", "one", "two.dat"));
}

TEST_F(DirList, FollowsLinks) {
  fs::create_symlink(scratch.directory("sub"), scratch / "to_directory");
  fs::create_symlink(scratch.file("file"), scratch / "to_file");
  const LogCapture log;
  const Listing listing(scratch / "*");
  EXPECT_THAT(listing.files(), UnorderedElementsAre("file", "to_file"));
  EXPECT_THAT(listing.directories(), UnorderedElementsAre(".", "..", "sub", "to_directory"));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DirList, ReportsAndSkipsLinksThatLeadNowhere) {
  scratch.file("file");
  fs::create_symlink(scratch / "missing", scratch / "dangling");
  fs::create_symlink(scratch / "loop", scratch / "loop");
  const LogCapture log;
  const Listing listing(scratch / "*");
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_THAT(listing.files(), ElementsAre("file"));
  EXPECT_THAT(listing.directories(), UnorderedElementsAre(".", ".."));
  EXPECT_THAT(log.lines(), UnorderedElementsAre(couldnt_get_info(scratch / "dangling"),
                                                couldnt_get_info(scratch / "loop")));
}

TEST_F(DirList, ListsSocketsAsDirectories) {
  // Deliberate: a socket's type shares the bit that directories are told by.
  run_in_child([&] {
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);  // a socket's path has only about 100 bytes
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    const int socket_end = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(bind(socket_end, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  });
  ASSERT_TRUE(exists(scratch / "socket"));
  const Listing listing(scratch / "*");
  EXPECT_THAT(listing.directories(), Contains("socket"));
  EXPECT_THAT(listing.files(), IsEmpty());
}

TEST_F(DirList, ListsPipesAsFiles) {
  ASSERT_EQ(mkfifo((scratch / "pipe").c_str(), 0600), 0);
  EXPECT_THAT(Listing(scratch / "p*").files(), ElementsAre("pipe"));
  EXPECT_THAT(Listing(scratch / "x*").files(), IsEmpty());
}

TEST_F(DirList, ListsTheRootDirectory) {
  const Listing listing("/*");
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_STREQ(listing.full_path, "/*");
  Names directories;
  for (const auto &name : stream_order("/")) {
    if (fs::is_directory("/" + name)) directories.push_back(name);
  }
  EXPECT_EQ(listing.directories(), directories);
}

TEST_F(DirList, KeepsTheFullPathAsItWasGiven) {
  scratch.file("a");
  const auto pattern = scratch.path() + "//./*";
  const Listing listing(pattern);
  EXPECT_EQ(listing.full_path, pattern);
  EXPECT_THAT(listing.files(), ElementsAre("a"));
}

TEST_F(DirList, ResolvesARelativePatternAgainstTheWorkingDirectory) {
  scratch.directory("sub/inner");
  scratch.file("sub/a.dat");
  in_child([&] {
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);
    const Listing listing("sub/*.dat");
    EXPECT_EQ(listing.status, QAL_STATUS_OK);
    EXPECT_EQ(listing.full_path, scratch / "sub/*.dat");
    EXPECT_THAT(listing.files(), ElementsAre("a.dat"));
    EXPECT_THAT(listing.directories(), UnorderedElementsAre(".", "..", "inner"));
    EXPECT_THAT(Listing("./*").directories(), UnorderedElementsAre(".", "..", "sub"));
  });
}

TEST_F(DirList, NamesEntriesOfARelativePatternByTheirFullPath) {
  scratch.directory("sub");
  fs::create_symlink("missing", scratch / "sub/dangling");
  in_child([&] {
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);
    const LogCapture log;
    const Listing listing("sub/*");
    EXPECT_THAT(log.lines(), ElementsAre(couldnt_get_info(scratch / "sub/dangling")));
  });
}

TEST_F(DirList, CountsTheWorkingDirectoryInTheEntriesPaths) {
  fs::path deep = scratch.path();
  while (deep.native().size() < 800) deep /= std::string(199, 'd');
  fs::create_directories(deep);
  in_child([&deep] {
    fs::current_path(deep);
    const std::string directory = deep / ".";
    const std::string fits(1023 - directory.size() - 1, 'f');
    for (const auto &name : {fits, fits + "f"}) qal::test::write_file(name, "");
    const LogCapture log;
    const Listing listing("./*");
    EXPECT_EQ(listing.status, QAL_STATUS_OK);
    EXPECT_THAT(listing.files(), ElementsAre(fits));
    EXPECT_EQ(listing.file_count, 1);
    EXPECT_THAT(log.lines(), ElementsAre(couldnt_get_info(directory + "/" + fits + "f")));
  });
}

// Deliberate: a slash stands between the working directory and the pattern, whatever the directory.
TEST_F(DirList, DoublesTheSlashBelowTheRootDirectory) {
  in_child([] {
    fs::current_path("/");
    const Listing listing("usr/*");
    EXPECT_EQ(listing.status, QAL_STATUS_OK);
    EXPECT_STREQ(listing.full_path, "//usr/*");
    const Listing empty("");
    EXPECT_EQ(empty.status, QAL_STATUS_NOT_FOUND);
    EXPECT_STREQ(empty.full_path, "//*");
  });
}

TEST_F(DirList, DoesNotFindABareName) {
  // Deliberate: without a directory part there is no directory to open.
  scratch.file("a.dat");
  in_child([&] {
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);
    const LogCapture log;
    const Listing listing("*.dat", true);
    EXPECT_EQ(listing.status, QAL_STATUS_NOT_FOUND);
    EXPECT_EQ(listing.full_path, scratch / "*.dat");
    EXPECT_EQ(listing.directory_text, nullptr);
    EXPECT_EQ(listing.file_text, nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
  });
}

TEST_F(DirList, DoesNotFindTheEmptyPattern) {
  in_child([&] {
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);
    const Listing listing("");
    EXPECT_EQ(listing.status, QAL_STATUS_NOT_FOUND);
    EXPECT_EQ(listing.full_path, scratch / "*");
    EXPECT_EQ(listing.file_count, unset_count);
  });
}

TEST_F(DirList, NeedsAWorkingDirectoryForARelativePattern) {
  const auto gone = scratch.directory("gone");
  in_child([&] {
    ASSERT_EQ(chdir(gone.c_str()), 0);
    ASSERT_EQ(rmdir(gone.c_str()), 0);
    const LogCapture log;
    const Listing listing("./*", true);
    EXPECT_EQ(listing.status, QAL_STATUS_NOT_FOUND);
    EXPECT_TRUE(listing.gave_nothing());
    EXPECT_THAT(log.lines(), IsEmpty());
  });
}

TEST_F(DirList, DoesNotFindAnUnknownUsersHome) {
  const Listing listing("~no-such-user-here/*");
  EXPECT_EQ(listing.status, QAL_STATUS_NOT_FOUND);
  EXPECT_TRUE(listing.gave_nothing());
}

TEST_F(DirList, DoesNotFindAMissingDirectory) {
  const LogCapture log;
  const Listing listing(scratch / "missing/*", true);
  EXPECT_EQ(listing.status, QAL_STATUS_NOT_FOUND);
  EXPECT_EQ(listing.full_path, scratch / "missing/*");
  EXPECT_TRUE(listing.gave_no_names());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(DirList, DoesNotFindAFileInPlaceOfADirectory) {
  EXPECT_EQ(Listing(scratch.file("file") + "/*").status, QAL_STATUS_NOT_FOUND);
}

TEST_F(DirList, DoesNotFindADirectoryThatMayNotBeRead) {
  fs::permissions(scratch.directory("closed"), fs::perms(0311));
  in_unprivileged_child([&] {
    const LogCapture log;
    EXPECT_EQ(Listing(scratch / "closed/*", true).status, QAL_STATUS_NOT_FOUND);
    EXPECT_THAT(log.lines(), IsEmpty());
  });
}

TEST_F(DirList, SkipsEveryEntryOfADirectoryThatMayNotBeSearched) {
  scratch.directory("list");
  scratch.file("list/file");
  scratch.directory("list/sub");
  fs::permissions(scratch / "list", fs::perms(0444));
  in_unprivileged_child([&] {
    const LogCapture log;
    const Listing listing(scratch / "list/*");
    EXPECT_EQ(listing.status, QAL_STATUS_OK);
    EXPECT_EQ(listing.file_count, 0);
    EXPECT_EQ(listing.directory_count, 0);
    EXPECT_STREQ(listing.file_text, "");
    EXPECT_STREQ(listing.directory_text, "");
    EXPECT_THAT(log.lines(), UnorderedElementsAre(couldnt_get_info(scratch / "list/."),
                                                  couldnt_get_info(scratch / "list/.."),
                                                  couldnt_get_info(scratch / "list/file"),
                                                  couldnt_get_info(scratch / "list/sub")));
  });
  fs::permissions(scratch / "list", fs::perms(0755));
}

TEST_F(DirList, TakesAnExpandedPatternOf1023Bytes) {
  scratch.file("a");
  // Repeated slashes make any length; the wildcard is the last byte.
  const auto pattern_of = [&](std::size_t length) {
    return scratch.path() + std::string(length - scratch.path().size() - 1, '/') + "a";
  };
  const LogCapture log;
  const Listing fits(pattern_of(1023));
  EXPECT_EQ(fits.status, QAL_STATUS_OK);
  EXPECT_EQ(fits.full_path, pattern_of(1023));
  EXPECT_THAT(fits.files(), ElementsAre("a"));
  const Listing too_long(pattern_of(1024));
  EXPECT_EQ(too_long.status, QAL_STATUS_INVALID);
  EXPECT_TRUE(too_long.gave_nothing());
}

TEST_F(DirList, SkipsEntriesWhosePathsHave1024BytesOrMore) {
  scratch.file("aa");
  scratch.file("aaa");
  scratch.directory("ddd");
  const std::string directory =
      scratch.path() + std::string(1020 - scratch.path().size(), '/');  // "…/aa" has 1023 bytes
  const LogCapture log;
  const Listing listing(directory + "/*");
  EXPECT_EQ(listing.status, QAL_STATUS_OK);
  EXPECT_THAT(listing.files(), ElementsAre("aa"));
  EXPECT_THAT(listing.directories(), UnorderedElementsAre(".", ".."));
  EXPECT_THAT(log.lines(), UnorderedElementsAre(couldnt_get_info(directory + "/aaa"),
                                                couldnt_get_info(directory + "/ddd")));
}

TEST_F(DirList, ListsNamesOf255Bytes) {
  const std::string name(255, 'n');
  scratch.file(name);
  EXPECT_THAT(Listing(scratch / "*").files(), ElementsAre(name));
}

TEST_F(DirList, TakesStrangeNamesAsTheyAre) {
  scratch.file("50%s.dat");
  scratch.file("back\\slash.dat");
  scratch.file("\xFF\x01 .dat");
  EXPECT_THAT(Listing(scratch / "*.dat").files(),
              UnorderedElementsAre("50%s.dat", "back\\slash.dat", "\xFF\x01 .dat"));
}

TEST_F(DirList, ReportsStrangeNamesAsTheyAre) {
  fs::create_symlink("missing", scratch / "%s%n");
  const LogCapture log;
  const Listing listing(scratch / "*");
  EXPECT_THAT(log.lines(), ElementsAre(couldnt_get_info(scratch / "%s%n")));
}

TEST_F(DirList, CountsANameWithANewlineOnce) {
  // Deliberate: the text cannot tell such a name from two, only the count does.
  scratch.file("one\ntwo.dat");
  const Listing listing(scratch / "*.dat");
  EXPECT_STREQ(listing.file_text, "one\ntwo.dat\n");
  EXPECT_EQ(listing.file_count, 1);
}

TEST_F(DirList, FlushesStandardOutput) {
  const auto result = in_child([&] {
    static char buffer[256];
    std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    std::fputs("pending", stdout);
    const Listing listing(scratch / "*");
    _exit(listing.status);  // without the flush that an ordinary exit makes
  });
  EXPECT_EQ(result.out, "pending");
}

using DirListThreads = qal::test::Threads;

void count_line(void *count, const char *, ...) { ++*static_cast<std::atomic<int> *>(count); }

TEST_F(DirListThreads, ListAtOnceEachItsOwnDirectory) {
  constexpr int threads = 4;
  constexpr int rounds = 200;
  const ScratchDir scratch;
  for (int thread = 0; thread < threads; ++thread) {
    const auto number = std::to_string(thread);
    scratch.directory(number + "/directory" + number);
    scratch.file(number + "/file" + number);
    fs::create_symlink("missing", scratch / (number + "/dangling"));
  }
  std::atomic<int> reports = 0;
  qal_logger_init(&reports, &count_line, nullptr, nullptr);
  run_together(threads, [&scratch](int thread) {
    const auto number = std::to_string(thread);
    for (int round = 0; round < rounds; ++round) {
      const Listing listing(scratch / (number + "/*"));
      ASSERT_EQ(listing.status, QAL_STATUS_OK);
      ASSERT_THAT(listing.files(), ElementsAre("file" + number));
      ASSERT_THAT(listing.directories(), UnorderedElementsAre(".", "..", "directory" + number));
      ASSERT_EQ(listing.file_count, 1);
      ASSERT_EQ(listing.directory_count, 3);
    }
  });
  qal_logger_done();
  EXPECT_EQ(reports, threads * rounds);
}

TEST_F(DirList, LeavesNoDescriptorOpen) {
  const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(before);
  EXPECT_EQ(Listing(scratch / "*").status, QAL_STATUS_OK);
  EXPECT_EQ(Listing(scratch / "missing/*").status, QAL_STATUS_NOT_FOUND);
  const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(after);
  EXPECT_EQ(after, before);
}

TEST_F(DirList, RefusesNullArguments) {
  char *path = nullptr;
  char *directories = nullptr;
  char *files = nullptr;
  int directory_count = unset_count;
  int file_count = unset_count;
  const auto refused = [](int status) { return status == QAL_STATUS_INVALID; };
  EXPECT_TRUE(
      refused(qal_dir_list("/*", nullptr, &directory_count, &directories, &file_count, &files, 0)));
  EXPECT_TRUE(refused(qal_dir_list("/*", &path, nullptr, &directories, &file_count, &files, 0)));
  EXPECT_TRUE(
      refused(qal_dir_list("/*", &path, &directory_count, nullptr, &file_count, &files, 0)));
  EXPECT_TRUE(
      refused(qal_dir_list("/*", &path, &directory_count, &directories, nullptr, &files, 0)));
  EXPECT_TRUE(
      refused(qal_dir_list("/*", &path, &directory_count, &directories, &file_count, nullptr, 0)));
  EXPECT_EQ(path, nullptr);
  EXPECT_EQ(directories, nullptr);
  EXPECT_EQ(files, nullptr);
  EXPECT_EQ(directory_count, unset_count);
  EXPECT_EQ(file_count, unset_count);
}

TEST_F(DirList, RefusesANullPatternAndClearsItsTexts) {
  char nothing[1];
  char *path = nothing;
  char *directories = nothing;
  char *files = nothing;
  int directory_count = unset_count;
  int file_count = unset_count;
  EXPECT_EQ(qal_dir_list(nullptr, &path, &directory_count, &directories, &file_count, &files, 0),
            QAL_STATUS_INVALID);
  EXPECT_EQ(path, nullptr);
  EXPECT_EQ(directories, nullptr);
  EXPECT_EQ(files, nullptr);
  EXPECT_EQ(directory_count, unset_count);
  EXPECT_EQ(file_count, unset_count);
}

}  // namespace

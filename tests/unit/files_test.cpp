#include <fcntl.h>
#include <gtest/gtest.h>
#include <qal/files.h>
#include <qal/status.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "internal/handles.hpp"
#include "support/child.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"

namespace fs = std::filesystem;

namespace {

using qal::internal::Descriptor;
using qal::internal::File;
using qal::internal::OwnedText;
using qal::test::exists;
using qal::test::in_child;
using qal::test::in_unprivileged_child;
using qal::test::InScratch;
using qal::test::LogCapture;
using qal::test::names_in;
using qal::test::read_file;
using qal::test::ScratchDir;
using qal::test::write_file;

using FilesCheck = InScratch;
using FilesStat = InScratch;
using FilesIsDirectory = InScratch;
using FilesCopy = InScratch;
using FilesUnlink = InScratch;
using FilesRemoveDirectory = InScratch;
using FilesRename = InScratch;
using FilesRead = InScratch;
using FilesTempName = InScratch;

using Lines = std::vector<std::string>;

unsigned permissions_of(const std::string &path) {
  struct stat info {};
  EXPECT_EQ(stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

// Bound from inside its directory: the address of a socket is shorter than many a path.
void make_socket(const fs::path &path) {
  const auto name = path.filename().string();
  const auto working_directory = fs::current_path();
  const int handle = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(handle, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(name.size(), sizeof address.sun_path);
  name.copy(address.sun_path, name.size());
  fs::current_path(path.parent_path());
  EXPECT_EQ(bind(handle, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  fs::current_path(working_directory);
  close(handle);
}

using Check = std::pair<int, Lines>;  // the result and what is logged

Check check(const std::string &path, unsigned mode, int verbose = 1) {
  const LogCapture log;
  const int result = qal_io_chkfil(path.c_str(), mode, verbose);
  return {result, log.lines()};
}

const Check usable{1, {}};

Check refused(const std::string &path, const std::string &why) {
  return {0, {"ERROR: File '" + path + "' " + why}};
}

Check usable_with_the_question(const std::string &path) {
  return {1, {"ERROR: File '" + path + "' already exists.\n Okaying will overwrite it."}};
}

constexpr unsigned for_reading = 0;
constexpr unsigned for_writing = 1;
constexpr unsigned refuse_directory = 0x100;
constexpr unsigned refuse_irregular = 0x200;

TEST_F(FilesCheck, AFileThatCanBeReadIsUsableInSilence) {
  EXPECT_EQ(check(scratch.file("a"), for_reading), usable);
}

TEST_F(FilesCheck, AMissingFileCannotBeRead) {
  const auto path = scratch / "absent";
  EXPECT_EQ(check(path, for_reading), refused(path, "cannot be read."));
}

TEST_F(FilesCheck, AFileWithoutReadPermissionCannotBeRead) {
  const auto path = scratch.file("closed");
  ASSERT_EQ(chmod(path.c_str(), 0200), 0);
  in_unprivileged_child(
      [&path] { EXPECT_EQ(check(path, for_reading), refused(path, "cannot be read.")); });
}

TEST_F(FilesCheck, ADirectoryIsRefusedWithItsBit) {
  for (const unsigned access_kind : {for_reading, for_writing}) {
    EXPECT_EQ(check(scratch.path(), access_kind | refuse_directory),
              refused(scratch.path(), "is a directory."));
  }
}

TEST_F(FilesCheck, ADirectoryIsReadableWithoutTheBit) {
  EXPECT_EQ(check(scratch.path(), for_reading), usable);
}

TEST_F(FilesCheck, ADirectoryIsNoRegularFile) {
  EXPECT_EQ(check(scratch.path(), refuse_irregular),
            refused(scratch.path(), "is not a regular file."));
}

TEST_F(FilesCheck, TheDirectoryBitIsLookedAtFirst) {
  EXPECT_EQ(check(scratch.path(), refuse_directory | refuse_irregular),
            refused(scratch.path(), "is a directory."));
}

TEST_F(FilesCheck, ADeviceIsNoRegularFileButNoDirectoryEither) {
  EXPECT_EQ(check("/dev/null", refuse_irregular), refused("/dev/null", "is not a regular file."));
  EXPECT_EQ(check("/dev/null", refuse_directory), usable);
}

TEST_F(FilesCheck, BothBitsLetARegularFilePassAlsoBehindALink) {
  const auto link = scratch / "link";
  ASSERT_EQ(symlink(scratch.file("a").c_str(), link.c_str()), 0);
  EXPECT_EQ(check(link, refuse_directory | refuse_irregular), usable);
}

TEST_F(FilesCheck, TheBitsSayNothingAboutAMissingFile) {
  const auto path = scratch / "absent";
  EXPECT_EQ(check(path, refuse_directory | refuse_irregular), refused(path, "cannot be read."));
}

TEST_F(FilesCheck, AMissingFileThatCanBeCreatedIsUsableAndLeavesNothing) {
  EXPECT_EQ(check(scratch / "new", for_writing), usable);
  EXPECT_EQ(names_in(scratch.path()), Lines{});
}

TEST_F(FilesCheck, AnExistingFileIsUsableWithTheQuestionAndStaysAsItIs) {
  const auto path = scratch.file("old", "content");
  EXPECT_EQ(check(path, for_writing), usable_with_the_question(path));
  EXPECT_EQ(read_file(path), "content");
}

// Deliberate: only the bits refuse a directory; without them it can be written like a file.
TEST_F(FilesCheck, AWritableDirectoryIsUsableWithTheQuestionWithoutTheBits) {
  EXPECT_EQ(check(scratch.path(), for_writing), usable_with_the_question(scratch.path()));
}

TEST_F(FilesCheck, WhatIsNoRegularFileIsRefusedForWritingToo) {
  EXPECT_EQ(check("/dev/null", for_writing | refuse_irregular),
            refused("/dev/null", "is not a regular file."));
}

constexpr char denied[] = "cannot be created. Permission denied.";

TEST_F(FilesCheck, AFileWithoutWritePermissionCannotBeCreated) {
  const auto path = scratch.file("closed");
  ASSERT_EQ(chmod(path.c_str(), 0444), 0);
  in_unprivileged_child([&path] { EXPECT_EQ(check(path, for_writing), refused(path, denied)); });
}

TEST_F(FilesCheck, AFileInAClosedOrMissingDirectoryCannotBeCreated) {
  ASSERT_EQ(chmod(scratch.directory("closed").c_str(), 0555), 0);
  in_unprivileged_child([this] {
    for (const auto &path : {scratch / "closed/new", scratch / "absent/new"}) {
      EXPECT_EQ(check(path, for_writing), refused(path, denied));
    }
  });
}

TEST_F(FilesCheck, ALinkThatLeadsNowhereIsNeitherCreatedThroughNorRemoved) {
  const auto link = scratch / "link";
  ASSERT_EQ(symlink((scratch / "target").c_str(), link.c_str()), 0);
  EXPECT_EQ(qal_io_chkfil(link.c_str(), for_writing, 0), 0);
  EXPECT_EQ(names_in(scratch.path()), Lines{"link"});
}

TEST_F(FilesCheck, TheWordWithoutBits8To15SelectsTheCheck) {
  const auto path = scratch / "absent";
  for (const unsigned writing : {0x1U, 0x2U, 0x80U, 0xffU, 0x1fc01U, 0x10000U, 0x80000000U}) {
    EXPECT_EQ(qal_io_chkfil(path.c_str(), writing, 0), 1) << writing;
  }
  for (const unsigned reading : {0x0U, 0x100U, 0x300U, 0x400U, 0x8000U, 0xff00U}) {
    EXPECT_EQ(qal_io_chkfil(path.c_str(), reading, 0), 0) << reading;
  }
}

TEST_F(FilesCheck, OnlyExactlyOneIsVerbose) {
  for (const int verbose : {0, 2, -1, 0x101}) {
    EXPECT_EQ(check(scratch.path(), refuse_directory, verbose), Check(0, {}));
    EXPECT_EQ(check(scratch.path(), refuse_irregular, verbose), Check(0, {}));
    EXPECT_EQ(check(scratch / "absent", for_reading, verbose), Check(0, {}));
    EXPECT_EQ(check(scratch / "absent/a", for_writing, verbose), Check(0, {}));
    EXPECT_EQ(check(scratch.file("old"), for_writing, verbose), usable);
  }
}

TEST_F(FilesCheck, APathIsNeverTakenForAFormat) {
  EXPECT_EQ(check("/absent/%n%s", for_reading), refused("/absent/%n%s", "cannot be read."));
}

TEST_F(FilesCheck, ANullPathNamesNothing) {
  const LogCapture log;
  EXPECT_EQ(qal_io_chkfil(nullptr, for_reading, 1), 0);
  EXPECT_EQ(qal_io_chkfil(nullptr, for_writing, 0), 0);
  EXPECT_EQ(log.lines(), Lines{"ERROR: File '' cannot be read."});
}

void spoil_errno(void *, const char *, ...) { errno = 0; }

TEST_F(FilesCheck, ReportingKeepsTheReasonInErrno) {
  qal_logger_init(nullptr, &spoil_errno, nullptr, nullptr);
  EXPECT_EQ(qal_io_chkfil("/absent/file", for_reading, 1), 0);
  EXPECT_EQ(errno, ENOENT);
  qal_logger_done();
}

// A stream over `content`, and a buffer whose unwritten bytes are '#'.
class LineReader {
 public:
  explicit LineReader(std::string_view content)
      : stream_(std::fopen(scratch_.file("lines", content).c_str(), "rbe")) {
    std::fill(std::begin(buffer), std::end(buffer), '#');
  }
  int next(int max_chars) { return next_into(buffer, max_chars); }
  int next_into(char *out, int max_chars) {
    return qal_io_get_aline(stream_.get(), max_chars, out);
  }
  // The next line, which is as long as the call returns.
  std::string line(int max_chars) {
    const int length = next(max_chars);
    const std::string text(buffer, std::find(std::begin(buffer), std::end(buffer), '\0'));
    EXPECT_EQ(static_cast<int>(text.size()), length);
    return text;
  }
  std::string rest() {
    std::string text;
    for (int c = std::fgetc(stream_.get()); c != EOF; c = std::fgetc(stream_.get())) {
      text += static_cast<char>(c);
    }
    return text;
  }
  std::string written(std::size_t bytes) const { return {buffer, bytes}; }

  char buffer[32];

 private:
  ScratchDir scratch_;
  File stream_;
};

TEST(FilesGetLine, LinesComeOneAfterAnotherWithoutTheirNewline) {
  LineReader lines("ab\n\nc\n");
  EXPECT_EQ(lines.line(10), "ab");
  EXPECT_EQ(lines.line(10), "");
  EXPECT_EQ(lines.line(10), "c");
  EXPECT_EQ(lines.next(10), -1);
}

TEST(FilesGetLine, TheEndOfTheFileEndsTheLastLine) {
  LineReader lines("ab");
  EXPECT_EQ(lines.line(10), "ab");
  EXPECT_EQ(lines.next(10), -1);
}

TEST(FilesGetLine, OneCarriageReturnAtTheEndIsDropped) {
  LineReader lines("ab\r\na\rb\nc\r\r\n\r\n\r");
  EXPECT_EQ(lines.line(10), "ab");
  EXPECT_EQ(lines.line(10), "a\rb");
  EXPECT_EQ(lines.line(10), "c\r");
  EXPECT_EQ(lines.line(10), "");
  EXPECT_EQ(lines.line(10), "");
  EXPECT_EQ(lines.next(10), -1);
}

TEST(FilesGetLine, ALineOfExactlyTheMaximumFits) {
  LineReader lines("abcd\nabc\r\n");
  EXPECT_EQ(lines.next(4), 4);
  EXPECT_EQ(lines.written(6), std::string("abcd\0#", 6));
  EXPECT_EQ(lines.line(4), "abc");
}

TEST(FilesGetLine, TheCarriageReturnGoesFromATerminatedLine) {
  LineReader lines("abc\r\n");
  EXPECT_EQ(lines.next(4), 3);
  EXPECT_EQ(lines.written(6), std::string("abc\0\0#", 6));
}

TEST(FilesGetLine, ALongerLineIsRefusedUnterminatedAndLosesOneCharacter) {
  LineReader lines("abcdefg\n");
  EXPECT_EQ(lines.next(4), -2);
  EXPECT_EQ(lines.written(6), "abcd##");
  EXPECT_EQ(lines.rest(), "fg\n");
}

TEST(FilesGetLine, ALineOneTooLongLeavesItsNewlineForTheNextCall) {
  LineReader lines("abcde\nx\n");
  EXPECT_EQ(lines.next(4), -2);
  EXPECT_EQ(lines.next(4), 0);
  EXPECT_EQ(lines.line(4), "x");
}

TEST(FilesGetLine, TheCarriageReturnCountsTowardTheMaximum) {
  LineReader lines("abcd\r\n");
  EXPECT_EQ(lines.next(4), -2);
  EXPECT_EQ(lines.rest(), "\n");
}

TEST(FilesGetLine, BytesAbove127AndZeroBytesAreCharactersLikeOthers) {
  LineReader lines(std::string_view("\xff\0\x80\n", 4));
  EXPECT_EQ(lines.next(4), 3);
  EXPECT_EQ(lines.written(5), std::string("\xff\0\x80\0#", 5));
}

TEST(FilesGetLine, AtTheEndOfTheFileTheBufferIsEmpty) {
  LineReader lines("");
  EXPECT_EQ(lines.next(4), -1);
  EXPECT_EQ(lines.written(2), std::string("\0#", 2));
}

TEST(FilesGetLine, AMaximumOfZeroTakesEmptyLinesOnly) {
  LineReader lines("\nab\n");
  EXPECT_EQ(lines.next(0), 0);
  EXPECT_EQ(lines.written(2), std::string("\0#", 2));
  lines.buffer[0] = '#';
  EXPECT_EQ(lines.next(0), -2);
  EXPECT_EQ(lines.rest(), "b\n");
  EXPECT_EQ(lines.next(0), -1);
  EXPECT_EQ(lines.written(2), "##");
}

TEST(FilesGetLine, ANegativeMaximumWritesNothing) {
  LineReader lines("\nab");
  EXPECT_EQ(lines.next(-1), 0);
  EXPECT_EQ(lines.next(-5), -2);
  EXPECT_EQ(lines.next(-1), -2);
  EXPECT_EQ(lines.next(-1), -1);
  EXPECT_EQ(lines.written(3), "###");
}

TEST(FilesGetLine, ACarriageReturnBeforeTheBufferIsNoneOfTheLine) {
  LineReader lines("\n");
  lines.buffer[0] = '\r';
  EXPECT_EQ(lines.next_into(lines.buffer + 1, 4), 0);
  EXPECT_EQ(lines.written(3), std::string("\r\0#", 3));
}

TEST(FilesGetLine, WithoutStreamOrBufferThereIsNoLine) {
  char buffer[4] = "abc";
  EXPECT_EQ(qal_io_get_aline(nullptr, 3, buffer), -1);
  EXPECT_STREQ(buffer, "abc");
  const File stream{std::fopen("/dev/zero", "rbe")};
  EXPECT_EQ(qal_io_get_aline(stream.get(), 3, nullptr), -1);
}

TEST_F(FilesStat, EveryFieldIsThePlatforms) {
  const auto path = scratch.file("a", "12345");
  ASSERT_EQ(link(path.c_str(), (scratch / "b").c_str()), 0);
  ASSERT_EQ(chmod(path.c_str(), 04751), 0);
  if (geteuid() == 0) {
    ASSERT_EQ(chown(path.c_str(), 1234, 5678), 0);
  }
  const timespec times[2] = {{1000000001, 0}, {1000000002, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  struct stat info {};
  ASSERT_EQ(stat(path.c_str(), &info), 0);

  QalStat record;
  ASSERT_EQ(qal_stat(path.c_str(), &record), 0);
  EXPECT_EQ(record.access_time, 1000000001);
  EXPECT_EQ(record.modification_time, 1000000002);
  EXPECT_EQ(record.change_time, info.st_ctime);
  EXPECT_EQ(record.inode, info.st_ino);
  EXPECT_EQ(record.group_id, info.st_gid);
  EXPECT_EQ(record.user_id, info.st_uid);
  EXPECT_EQ(record.device, static_cast<int32_t>(info.st_dev));
  EXPECT_EQ(record.mode, info.st_mode);
  EXPECT_EQ(record.mode & 0170000U, 0100000U);
  EXPECT_EQ(record.link_count, 2U);
  EXPECT_EQ(record.special_device, 0);
  EXPECT_EQ(record.size, 5);
}

TEST_F(FilesStat, ADeviceFileNamesItsDevice) {
  struct stat info {};
  ASSERT_EQ(stat("/dev/null", &info), 0);
  QalStat record;
  ASSERT_EQ(qal_stat("/dev/null", &record), 0);
  EXPECT_EQ(record.special_device, static_cast<int32_t>(info.st_rdev));
  EXPECT_NE(record.special_device, 0);
  EXPECT_EQ(record.mode & 0170000U, 0020000U);
}

TEST_F(FilesStat, SizesBeyond32BitsAreWhole) {
  const auto path = scratch.file("sparse");
  ASSERT_EQ(truncate(path.c_str(), 5'000'000'000), 0);
  QalStat record;
  ASSERT_EQ(qal_stat(path.c_str(), &record), 0);
  EXPECT_EQ(record.size, 5'000'000'000);
}

TEST_F(FilesStat, LinksAreFollowed) {
  ASSERT_EQ(symlink(scratch.file("a", "123").c_str(), (scratch / "link").c_str()), 0);
  QalStat record;
  ASSERT_EQ(qal_stat((scratch / "link").c_str(), &record), 0);
  EXPECT_EQ(record.size, 3);
  EXPECT_EQ(record.mode & 0170000U, 0100000U);
}

TEST_F(FilesStat, AFailureLeavesTheRecordZeroAndSaysWhy) {
  for (const char *path : {"/absent/file", "", static_cast<const char *>(nullptr)}) {
    QalStat record;
    std::fill_n(reinterpret_cast<char *>(&record), sizeof record, '\x5a');
    errno = 0;
    EXPECT_EQ(qal_stat(path, &record), -1);
    EXPECT_EQ(errno, ENOENT);
    const auto *bytes = reinterpret_cast<const char *>(&record);
    EXPECT_EQ(std::count(bytes, bytes + sizeof record, '\0'), 64);
  }
}

TEST_F(FilesIsDirectory, OnlyDirectoriesAndLinksToThemAre) {
  const auto directory = scratch.directory("d");
  const auto file = scratch.file("f");
  ASSERT_EQ(symlink(directory.c_str(), (scratch / "to_d").c_str()), 0);
  ASSERT_EQ(symlink(file.c_str(), (scratch / "to_f").c_str()), 0);
  EXPECT_EQ(qal_is_dir(directory.c_str()), 1);
  EXPECT_EQ(qal_is_dir((directory + "/").c_str()), 1);
  EXPECT_EQ(qal_is_dir((scratch / "to_d").c_str()), 1);
  EXPECT_EQ(qal_is_dir(file.c_str()), 0);
  EXPECT_EQ(qal_is_dir((scratch / "to_f").c_str()), 0);
  EXPECT_EQ(qal_is_dir((scratch / "absent").c_str()), 0);
  EXPECT_EQ(qal_is_dir("/dev/null"), 0);
  EXPECT_EQ(qal_is_dir(""), 0);
  EXPECT_EQ(qal_is_dir(nullptr), 0);
}

TEST_F(FilesIsDirectory, TheWholeTypeIsCompared) {
  const auto path = scratch / "socket";
  make_socket(path);
  EXPECT_EQ(qal_is_dir(path.c_str()), 0);
}

std::string patterned(std::size_t size_bytes) {
  std::string text(size_bytes, '\0');
  for (std::size_t i = 0; i < size_bytes; ++i) text[i] = static_cast<char>(i * 31 + i / 251);
  return text;
}

TEST_F(FilesCopy, TheContentIsEqualOnBothSidesOfEveryBlock) {
  for (const std::size_t size : {0U, 1U, 16383U, 16384U, 16385U, 32768U, 100000U}) {
    const auto content = patterned(size);
    const auto from = scratch.file("from", content);
    ASSERT_EQ(qal_file_copy(from.c_str(), (scratch / "to").c_str(), 0), QAL_STATUS_OK) << size;
    EXPECT_EQ(read_file(scratch / "to"), content);
    EXPECT_EQ(read_file(from), content);
  }
}

TEST_F(FilesCopy, AnExistingDestinationIsReplacedAndKeepsItsPermissions) {
  const auto from = scratch.file("from", "new");
  const auto to = scratch.file("to", "something longer");
  ASSERT_EQ(chmod(to.c_str(), 0640), 0);
  EXPECT_EQ(qal_file_copy(from.c_str(), to.c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(read_file(to), "new");
  EXPECT_EQ(permissions_of(to), 0640U);
}

TEST_F(FilesCopy, ANewDestinationTakesTheSourcesPermissionsLessTheMask) {
  const auto from = scratch.file("from", "x");
  const auto old_mask = umask(027);
  ASSERT_EQ(chmod(from.c_str(), 0755), 0);
  EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "program").c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(permissions_of(scratch / "program"), 0750U);
  ASSERT_EQ(chmod(from.c_str(), 0400), 0);
  EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "secret").c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(permissions_of(scratch / "secret"), 0400U);
  ASSERT_EQ(chmod(from.c_str(), 06711), 0);
  EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "plain").c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(permissions_of(scratch / "plain"), 0710U);
  umask(old_mask);
}

TEST_F(FilesCopy, AMissingSourceIsNoSourceAndTheDestinationStays) {
  const auto to = scratch.file("to", "kept");
  EXPECT_EQ(qal_file_copy((scratch / "absent").c_str(), to.c_str(), 0), QAL_STATUS_NO_SOURCE);
  EXPECT_EQ(qal_file_copy((scratch / "absent").c_str(), to.c_str(), 1), QAL_STATUS_NO_SOURCE);
  EXPECT_EQ(qal_file_copy(nullptr, to.c_str(), 0), QAL_STATUS_NO_SOURCE);
  EXPECT_EQ(read_file(to), "kept");
  EXPECT_EQ(qal_file_copy((scratch / "absent").c_str(), (scratch / "new").c_str(), 0),
            QAL_STATUS_NO_SOURCE);
  EXPECT_FALSE(exists(scratch / "new"));
}

TEST_F(FilesCopy, AnUnreadableSourceIsNoSource) {
  const auto from = scratch.file("from", "secret");
  ASSERT_EQ(chmod(from.c_str(), 0), 0);
  ASSERT_EQ(chmod(scratch.path().c_str(), 0777), 0);
  in_unprivileged_child([&] {
    EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "to").c_str(), 0), QAL_STATUS_NO_SOURCE);
    EXPECT_FALSE(exists(scratch / "to"));
  });
}

TEST_F(FilesCopy, OnRequestAnExistingDestinationIsKept) {
  const auto from = scratch.file("from", "new");
  const auto to = scratch.file("to", "old");
  EXPECT_EQ(qal_file_copy(from.c_str(), to.c_str(), 1), QAL_STATUS_EXISTS);
  EXPECT_EQ(qal_file_copy(from.c_str(), to.c_str(), 0xff), QAL_STATUS_EXISTS);
  EXPECT_EQ(read_file(to), "old");
  EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "fresh").c_str(), 1), QAL_STATUS_OK);
  EXPECT_EQ(read_file(scratch / "fresh"), "new");
}

TEST_F(FilesCopy, OtherFlagsDoNotKeepTheDestination) {
  const auto from = scratch.file("from", "new");
  const auto to = scratch.file("to", "old");
  EXPECT_EQ(qal_file_copy(from.c_str(), to.c_str(), 0xfffffffe), QAL_STATUS_OK);
  EXPECT_EQ(read_file(to), "new");
}

TEST_F(FilesCopy, AFifoWithoutAWriterIsKeptWithoutWaiting) {
  ASSERT_EQ(mkfifo((scratch / "fifo").c_str(), 0600), 0);
  EXPECT_EQ(qal_file_copy(scratch.file("from").c_str(), (scratch / "fifo").c_str(), 1),
            QAL_STATUS_EXISTS);
}

// Deliberate: what counts is whether the destination can be opened for reading, not whether it is
// there.
TEST_F(FilesCopy, AnUnreadableDestinationIsNotKept) {
  const auto from = scratch.file("from", "new");
  const auto to = scratch.file("to", "old");
  ASSERT_EQ(chmod(to.c_str(), 0222), 0);
  in_unprivileged_child(
      [&] { EXPECT_EQ(qal_file_copy(from.c_str(), to.c_str(), 1), QAL_STATUS_OK); });
  ASSERT_EQ(chmod(to.c_str(), 0444), 0);
  EXPECT_EQ(read_file(to), "new");
}

TEST_F(FilesCopy, AFileOntoItselfFailsAndStaysWhole) {
  const auto file = scratch.file("file", "content");
  ASSERT_EQ(link(file.c_str(), (scratch / "hard").c_str()), 0);
  ASSERT_EQ(symlink("file", (scratch / "soft").c_str()), 0);
  for (const char *name : {"file", "./file", "hard", "soft"}) {
    EXPECT_EQ(qal_file_copy(file.c_str(), (scratch / name).c_str(), 0), QAL_STATUS_FAILED) << name;
    EXPECT_EQ(qal_file_copy((scratch / name).c_str(), file.c_str(), 0), QAL_STATUS_FAILED) << name;
    EXPECT_EQ(qal_file_copy(file.c_str(), (scratch / name).c_str(), 1), QAL_STATUS_EXISTS) << name;
  }
  EXPECT_EQ(read_file(file), "content");
}

TEST_F(FilesCopy, ADestinationThatCannotBeOpenedFails) {
  const auto from = scratch.file("from", "x");
  const auto directory = scratch.directory("d");
  EXPECT_EQ(qal_file_copy(from.c_str(), directory.c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_copy(from.c_str(), directory.c_str(), 1), QAL_STATUS_EXISTS);
  EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "absent/to").c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_copy(from.c_str(), "", 1), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_copy(from.c_str(), nullptr, 1), QAL_STATUS_FAILED);
}

TEST_F(FilesCopy, ALinkThatLeadsNowhereGetsItsTarget) {
  ASSERT_EQ(symlink("to", (scratch / "link").c_str()), 0);
  const auto from = scratch.file("from", "x");
  EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "link").c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), (Lines{"from", "link", "to"}));
  EXPECT_EQ(read_file(scratch / "to"), "x");
}

TEST_F(FilesCopy, ADirectoryIsNoSourceAndTheDestinationStaysAsItIs) {
  const auto directory = scratch.path();
  EXPECT_EQ(qal_file_copy(directory.c_str(), (scratch / "to").c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_FALSE(exists(scratch / "to"));
  const auto to = scratch.file("to", "kept");
  EXPECT_EQ(qal_file_copy(directory.c_str(), to.c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_copy(directory.c_str(), to.c_str(), 1), QAL_STATUS_EXISTS);
  EXPECT_EQ(read_file(to), "kept");
}

TEST_F(FilesCopy, DevicesServeOnBothSides) {
  EXPECT_EQ(qal_file_copy("/dev/null", (scratch / "to").c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(read_file(scratch / "to"), "");
  EXPECT_EQ(qal_file_copy(scratch.file("from", "x").c_str(), "/dev/null", 0), QAL_STATUS_OK);
}

TEST_F(FilesCopy, TheNumberOfAClosedStandardInputServesAsAnyOther) {
  const auto from = scratch.file("from", "x");
  in_child([&] {
    close(STDIN_FILENO);
    EXPECT_EQ(qal_file_copy(from.c_str(), (scratch / "to").c_str(), 0), QAL_STATUS_OK);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
  });
  EXPECT_EQ(read_file(scratch / "to"), "x");
}

TEST_F(FilesUnlink, AFileGoes) {
  EXPECT_EQ(qal_file_unlink(scratch.file("a").c_str()), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), Lines{});
}

TEST_F(FilesUnlink, ALinkGoesAndItsTargetStays) {
  const auto target = scratch.file("target", "kept");
  ASSERT_EQ(symlink(target.c_str(), (scratch / "link").c_str()), 0);
  EXPECT_EQ(qal_file_unlink((scratch / "link").c_str()), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), Lines{"target"});
  EXPECT_EQ(read_file(target), "kept");
}

TEST_F(FilesUnlink, WhatIsNoFileFails) {
  EXPECT_EQ(qal_file_unlink((scratch / "absent").c_str()), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_unlink(scratch.directory("d").c_str()), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_unlink(""), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_unlink(nullptr), QAL_STATUS_FAILED);
  EXPECT_EQ(names_in(scratch.path()), Lines{"d"});
}

TEST_F(FilesRemoveDirectory, AnEmptyOneGoesEitherWay) {
  for (const int recursive : {0, 1, 2, -1}) {
    EXPECT_EQ(qal_file_rmdir(scratch.directory("d").c_str(), recursive), QAL_STATUS_OK);
    EXPECT_FALSE(exists(scratch / "d"));
  }
}

TEST_F(FilesRemoveDirectory, OnlyExactlyOneIsRecursive) {
  const auto directory = scratch.directory("d");
  scratch.file("d/a");
  for (const int recursive : {0, 2, -1, 0x101}) {
    EXPECT_EQ(qal_file_rmdir(directory.c_str(), recursive), QAL_STATUS_FAILED);
  }
  EXPECT_EQ(names_in(directory), Lines{"a"});
  EXPECT_EQ(qal_file_rmdir(directory.c_str(), 1), QAL_STATUS_OK);
}

TEST_F(FilesRemoveDirectory, WithoutRecursionTheBackslashIsANameLikeAnyOther) {
  EXPECT_EQ(qal_file_rmdir(scratch.directory("a\\b").c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), Lines{});
}

TEST_F(FilesRemoveDirectory, WhatIsNoDirectoryFails) {
  const auto file = scratch.file("file", "kept");
  for (const int recursive : {0, 1}) {
    EXPECT_EQ(qal_file_rmdir(file.c_str(), recursive), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rmdir((file + "/").c_str(), recursive), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rmdir((scratch / "absent").c_str(), recursive), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rmdir("", recursive), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rmdir(nullptr, recursive), QAL_STATUS_FAILED);
  }
  EXPECT_EQ(read_file(file), "kept");
}

// Below the scratch directory: what is to be removed, and what must stay beside it.
class TreeRemoval : public InScratch {
 protected:
  TreeRemoval() {
    scratch.directory("tree");
    put("outside/kept", "content");
  }
  // Like ScratchDir's own, and makes the directories on the way.
  std::string put(const fs::path &name, std::string_view content = "") const {
    scratch.directory(name.parent_path().string());
    return scratch.file(name.string(), content);
  }
  int remove() const { return qal_file_rmdir(tree.c_str(), 1); }
  void link_in_tree(const std::string &target, const char *name) const {
    ASSERT_EQ(symlink(target.c_str(), (tree + "/" + name).c_str()), 0);
  }
  void expect_outside_whole() const {
    EXPECT_EQ(names_in(outside), Lines{"kept"});
    EXPECT_EQ(read_file(outside + "/kept"), "content");
  }

  const std::string tree = scratch / "tree";
  const std::string outside = scratch / "outside";
};

TEST_F(TreeRemoval, HiddenFilesAndNestedDirectoriesGo) {
  scratch.directory("tree/e");
  for (const char *name : {"f", ".g", "...", "..h", "a/i", "a/b/.j", "a/b/c/k", ".hidden/l"}) {
    put(std::string("tree/") + name, "x");
  }
  EXPECT_EQ(remove(), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), Lines{"outside"});
}

TEST_F(TreeRemoval, OddNamesArePlainNames) {
  for (const char *name : {"new\nline", "%s%n", "*", "~", " ", "-rf", "\xff\xfe"}) {
    put(std::string("tree/") + name);
    put(std::string("tree/d") + name + "/file");
  }
  EXPECT_EQ(remove(), QAL_STATUS_OK);
  EXPECT_FALSE(exists(tree));
}

TEST_F(TreeRemoval, ThousandsOfNamesGo) {
  for (int i = 0; i < 3000; ++i) {
    const auto path = tree + "/" + std::to_string(i) + std::string(40, 'n');
    const int handle = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(handle, 0);
    close(handle);
  }
  EXPECT_EQ(remove(), QAL_STATUS_OK);
  EXPECT_FALSE(exists(tree));
}

TEST_F(TreeRemoval, ReadOnlyFilesGo) {
  ASSERT_EQ(chmod(put("tree/a").c_str(), 0), 0);
  EXPECT_EQ(remove(), QAL_STATUS_OK);
}

TEST_F(TreeRemoval, FifosAndCharacterDevicesAreFiles) {
  ASSERT_EQ(mkfifo((tree + "/fifo").c_str(), 0600), 0);
  link_in_tree("fifo", "to_fifo");
  link_in_tree("/dev/null", "to_device");
  EXPECT_EQ(remove(), QAL_STATUS_OK);
  EXPECT_TRUE(exists("/dev/null"));
}

TEST_F(TreeRemoval, ALinkToAFileGoesAndTheFileStays) {
  link_in_tree(outside + "/kept", "link");
  EXPECT_EQ(remove(), QAL_STATUS_OK);
  EXPECT_FALSE(exists(tree));
  expect_outside_whole();
}

// Deliberate: nothing is ever removed through a link.
TEST_F(TreeRemoval, ALinkToADirectoryFailsWhenMetAndItsTargetStaysWhole) {
  link_in_tree("../outside", "link");
  put("tree/file");
  EXPECT_EQ(remove(), QAL_STATUS_FAILED);
  EXPECT_EQ(names_in(tree), Lines{"link"});
  expect_outside_whole();
}

TEST_F(TreeRemoval, ALinkToADirectoryDeeperInFailsAsWell) {
  scratch.directory("tree/a/b");
  link_in_tree(outside, "a/b/link");
  EXPECT_EQ(remove(), QAL_STATUS_FAILED);
  EXPECT_TRUE(exists(tree + "/a/b/link"));
  expect_outside_whole();
}

TEST_F(TreeRemoval, APathThatIsALinkFailsAlsoWithATrailingSlashOrDot) {
  const auto link = scratch / "link";
  ASSERT_EQ(symlink("outside", link.c_str()), 0);
  for (const char *ending : {"", "/", "//", "\\", "/\\/", "/.", "/./", "\\."}) {
    EXPECT_EQ(qal_file_rmdir((link + ending).c_str(), 1), QAL_STATUS_FAILED) << ending;
    EXPECT_TRUE(exists(link));
    expect_outside_whole();
  }
}

TEST_F(TreeRemoval, ALinkOnTheWayToTheDirectoryIsThePlatformsAffair) {
  put("outside/d/e");
  ASSERT_EQ(symlink("outside", (scratch / "link").c_str()), 0);
  EXPECT_EQ(qal_file_rmdir((scratch / "link/d").c_str(), 1), QAL_STATUS_OK);
  expect_outside_whole();
}

TEST_F(TreeRemoval, ALinkThatLeadsNowhereStaysAndSoDoesItsDirectory) {
  link_in_tree("absent", "link");
  put("tree/a/file");
  EXPECT_EQ(remove(), QAL_STATUS_FAILED);
  EXPECT_EQ(names_in(tree), Lines{"link"});
}

TEST_F(TreeRemoval, ANameWithABackslashFailsWhenMetAndTouchesNothingElsewhere) {
  for (const char *name : {"..\\outside\\kept", "\\", "a\\"}) {
    const auto odd = put(std::string("tree/") + name, "odd");
    put("tree/d/file");
    EXPECT_EQ(remove(), QAL_STATUS_FAILED) << name;
    EXPECT_EQ(read_file(odd), "odd");
    EXPECT_TRUE(exists(tree + "/d/file"));
    expect_outside_whole();
    ASSERT_EQ(unlink(odd.c_str()), 0);
  }
}

TEST_F(TreeRemoval, ADirectoryWithABackslashInItsNameFailsWhenMet) {
  put("tree/..\\outside/kept", "inside");
  put("tree/file");
  EXPECT_EQ(remove(), QAL_STATUS_FAILED);
  EXPECT_EQ(names_in(tree), Lines{"..\\outside"});
  EXPECT_EQ(read_file(tree + "/..\\outside/kept"), "inside");
  expect_outside_whole();
}

TEST_F(TreeRemoval, BackslashesInThePathAreSlashesThroughout) {
  put("tree/a/b/file");
  put("tree/a\\b/file", "kept");
  EXPECT_EQ(qal_file_rmdir((tree + "\\a\\b").c_str(), 1), QAL_STATUS_OK);
  EXPECT_FALSE(exists(tree + "/a/b"));
  EXPECT_EQ(read_file(tree + "/a\\b/file"), "kept");
}

TEST_F(TreeRemoval, TrailingSlashesAreAllowed) {
  for (const char *ending : {"/", "//", "\\", "/\\"}) {
    put("tree/a/file");
    EXPECT_EQ(qal_file_rmdir((tree + ending).c_str(), 1), QAL_STATUS_OK) << ending;
    EXPECT_FALSE(exists(tree));
  }
}

TEST_F(TreeRemoval, ATildeIsAName) {
  put("~/file");
  in_child([this] {
    ASSERT_EQ(setenv("HOME", outside.c_str(), 1), 0);
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);
    EXPECT_EQ(qal_file_rmdir("~", 1), QAL_STATUS_OK);
    EXPECT_EQ(qal_file_rmdir("~", 1), QAL_STATUS_FAILED);
  });
  EXPECT_FALSE(exists(scratch / "~"));
  expect_outside_whole();
}

// Deliberate: the platform removes no directory by these names, so its content stays as well.
TEST_F(TreeRemoval, APathThatEndsInADotNameFailsWithNothingRemoved) {
  put("tree/a/file");
  for (const char *ending : {"/.", "/..", "/a/..", "/./", "/a/../"}) {
    EXPECT_EQ(qal_file_rmdir((tree + ending).c_str(), 1), QAL_STATUS_FAILED) << ending;
    EXPECT_TRUE(exists(tree + "/a/file"));
  }
  in_child([this] {
    ASSERT_EQ(chdir(tree.c_str()), 0);
    EXPECT_EQ(qal_file_rmdir(".", 1), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rmdir("..", 1), QAL_STATUS_FAILED);
  });
  EXPECT_TRUE(exists(tree + "/a/file"));
  expect_outside_whole();
}

// Deliberate: a socket has the bit in its type that tells directories, so it counts as one.
TEST_F(TreeRemoval, ASocketFailsAfterTheFiles) {
  make_socket(tree + "/socket");
  put("tree/file");
  EXPECT_EQ(remove(), QAL_STATUS_FAILED);
  EXPECT_EQ(names_in(tree), Lines{"socket"});
}

TEST_F(TreeRemoval, FilesGoBeforeSubdirectories) {
  put("tree/locked/file");
  for (const char *name : {"a", "z", "locked.file"}) put(std::string("tree/") + name);
  ASSERT_EQ(chmod((tree + "/locked").c_str(), 0555), 0);
  ASSERT_EQ(chmod(tree.c_str(), 0777), 0);
  in_unprivileged_child([this] { EXPECT_EQ(remove(), QAL_STATUS_FAILED); });
  EXPECT_EQ(names_in(tree), Lines{"locked"});
  EXPECT_EQ(names_in(tree + "/locked"), Lines{"file"});
}

TEST_F(TreeRemoval, ADirectoryThatMayNotBeReadFails) {
  scratch.directory("tree/d");
  ASSERT_EQ(chmod((tree + "/d").c_str(), 0), 0);
  ASSERT_EQ(chmod(tree.c_str(), 0777), 0);
  in_unprivileged_child([this] { EXPECT_EQ(remove(), QAL_STATUS_FAILED); });
  EXPECT_TRUE(exists(tree + "/d"));
}

TEST_F(TreeRemoval, ADirectoryThatMayNotBeSearchedKeepsItsContent) {
  put("tree/file");
  ASSERT_EQ(chmod(tree.c_str(), 0666), 0);
  in_unprivileged_child([this] { EXPECT_EQ(remove(), QAL_STATUS_FAILED); });
  EXPECT_EQ(names_in(tree), Lines{"file"});
}

TEST_F(TreeRemoval, AnEmptyDirectoryThatMayNotBeSearchedGoes) {
  ASSERT_EQ(chmod(scratch.directory("tree/d").c_str(), 0444), 0);
  ASSERT_EQ(chmod(tree.c_str(), 0777), 0);
  ASSERT_EQ(chmod(scratch.path().c_str(), 0777), 0);
  in_unprivileged_child([this] { EXPECT_EQ(remove(), QAL_STATUS_OK); });
}

// Makes `levels` directories named "d", one in the other, below the working directory.
void descend(int levels) {
  for (int level = 0; level < levels; ++level) {
    ASSERT_EQ(mkdir("d", 0755), 0);
    ASSERT_EQ(chdir("d"), 0);
  }
}

TEST_F(TreeRemoval, ATreeAsDeepAsAPathAllowsGoes) {
  in_child([this] {
    ASSERT_EQ(chdir(tree.c_str()), 0);
    ASSERT_NO_FATAL_FAILURE(descend(509));
    ASSERT_EQ(chdir(scratch.path().c_str()), 0);
    EXPECT_EQ(qal_file_rmdir("tree", 1), QAL_STATUS_OK);  // its longest path has 1022 bytes
  });
  EXPECT_FALSE(exists(tree));
}

TEST_F(TreeRemoval, AnEntryPathOf1023BytesIsTheLongestAndSparesNoOther) {
  const std::string name(199, 'd');
  const std::string longest(18, 'f');  // "tree" and five names with their slashes take 1004 bytes
  in_child([&] {
    for (const std::string &last : {longest, longest + "f"}) {
      ASSERT_EQ(chdir(scratch.path().c_str()), 0);
      ASSERT_TRUE(mkdir("tree", 0755) == 0 || errno == EEXIST);
      ASSERT_EQ(chdir("tree"), 0);
      for (int level = 0; level < 5; ++level) {
        ASSERT_EQ(mkdir(name.c_str(), 0755), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
      }
      ASSERT_NO_FATAL_FAILURE(write_file(last, "x"));
      ASSERT_NO_FATAL_FAILURE(write_file("short", "x"));
      const Descriptor deepest{open(".", O_RDONLY | O_DIRECTORY)};
      ASSERT_EQ(faccessat(deepest.get(), "short", F_OK, 0), 0);
      ASSERT_EQ(chdir(scratch.path().c_str()), 0);
      const bool fits = last == longest;
      EXPECT_EQ(qal_file_rmdir("tree", 1), fits ? QAL_STATUS_OK : QAL_STATUS_FAILED);
      EXPECT_NE(faccessat(deepest.get(), "short", F_OK, 0), 0);
      EXPECT_EQ(faccessat(deepest.get(), last.c_str(), F_OK, 0), fits ? -1 : 0);
    }
  });
  EXPECT_TRUE(exists(tree));
}

TEST_F(TreeRemoval, AMuchDeeperTreeFailsWithoutHarm) {
  in_child([this] {
    ASSERT_EQ(chdir(tree.c_str()), 0);
    ASSERT_NO_FATAL_FAILURE(descend(600));
    EXPECT_EQ(remove(), QAL_STATUS_FAILED);
  });
  EXPECT_TRUE(exists(tree));
}

TEST_F(TreeRemoval, APathOfMoreThan1022BytesFailsWithNothingRemoved) {
  const auto padded_before_the_name = [this](std::size_t length) {
    return scratch.path() + std::string(length - tree.size() + 1, '/') + "tree";
  };
  const auto padded_behind_the_name = [this](std::size_t length) {
    return tree + std::string(length - tree.size(), '/');
  };
  for (const std::size_t length : {1023U, 1024U, 6000U}) {
    EXPECT_EQ(qal_file_rmdir(padded_before_the_name(length).c_str(), 1), QAL_STATUS_FAILED);
    EXPECT_EQ(qal_file_rmdir(padded_behind_the_name(length).c_str(), 1), QAL_STATUS_FAILED);
  }
  EXPECT_EQ(qal_file_rmdir(padded_before_the_name(1022).c_str(), 1), QAL_STATUS_OK);
  put("tree/file");
  EXPECT_EQ(qal_file_rmdir(padded_behind_the_name(1023).c_str(), 1), QAL_STATUS_FAILED);
  EXPECT_TRUE(exists(tree + "/file"));
  EXPECT_EQ(qal_file_rmdir(padded_behind_the_name(1022).c_str(), 1), QAL_STATUS_OK);
}

TEST_F(TreeRemoval, NothingIsReported) {
  link_in_tree("absent", "link");
  put("tree/a/b/file");
  const LogCapture log;
  EXPECT_EQ(remove(), QAL_STATUS_FAILED);
  ASSERT_EQ(unlink((tree + "/link").c_str()), 0);
  EXPECT_EQ(remove(), QAL_STATUS_OK);
  EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FilesRename, TheFileTakesTheNewNameAndReplacesAnOldOne) {
  const auto from = scratch.file("from", "new");
  const auto to = scratch.file("to", "old");
  EXPECT_EQ(qal_file_rename(from.c_str(), to.c_str(), 0), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), Lines{"to"});
  EXPECT_EQ(read_file(to), "new");
}

TEST_F(FilesRename, DirectoriesAreRenamedToo) {
  scratch.directory("from");
  scratch.file("from/a");
  EXPECT_EQ(qal_file_rename((scratch / "from").c_str(), (scratch / "to").c_str(), 0xfffeffff),
            QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch / "to"), Lines{"a"});
}

TEST_F(FilesRename, WhatThePlatformRefusesFails) {
  const auto file = scratch.file("file", "x");
  EXPECT_EQ(qal_file_rename((scratch / "absent").c_str(), file.c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_rename(file.c_str(), (scratch / "absent/to").c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_rename(nullptr, file.c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_rename(file.c_str(), nullptr, 0), QAL_STATUS_FAILED);
  EXPECT_EQ(read_file(file), "x");
}

constexpr unsigned by_copying = 0x10000;

TEST_F(FilesRename, ByCopyingANewFileTakesThePlace) {
  const auto from = scratch.file("from", patterned(50000));
  ASSERT_EQ(link(from.c_str(), (scratch / "witness").c_str()), 0);
  EXPECT_EQ(qal_file_rename(from.c_str(), (scratch / "to").c_str(), by_copying), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), (Lines{"to", "witness"}));
  EXPECT_EQ(read_file(scratch / "to"), patterned(50000));
  EXPECT_FALSE(fs::equivalent(scratch / "to", scratch / "witness"));
}

TEST_F(FilesRename, ByCopyingALinkBecomesAFileAndItsTargetStays) {
  ASSERT_EQ(symlink(scratch.file("target", "x").c_str(), (scratch / "from").c_str()), 0);
  const auto to = scratch / "to";
  EXPECT_EQ(qal_file_rename((scratch / "from").c_str(), to.c_str(), by_copying), QAL_STATUS_OK);
  EXPECT_EQ(names_in(scratch.path()), (Lines{"target", "to"}));
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(to)));
  EXPECT_EQ(read_file(to), "x");
}

TEST_F(FilesRename, OtherFlagsChangeNothing) {
  const auto from = scratch.file("from", "new");
  const auto to = scratch.file("to", "old");
  EXPECT_EQ(qal_file_rename(from.c_str(), to.c_str(), 0xffffffff), QAL_STATUS_EXISTS);
  EXPECT_EQ(read_file(from), "new");
  EXPECT_EQ(qal_file_rename(from.c_str(), to.c_str(), 0x1), QAL_STATUS_OK);
  EXPECT_EQ(read_file(to), "new");
}

TEST_F(FilesRename, ByCopyingAnExistingNameIsKeptAndNothingChanges) {
  const auto from = scratch.file("from", "new");
  const auto to = scratch.file("to", "old");
  EXPECT_EQ(qal_file_rename(from.c_str(), to.c_str(), by_copying), QAL_STATUS_EXISTS);
  EXPECT_EQ(qal_file_rename(from.c_str(), from.c_str(), by_copying), QAL_STATUS_EXISTS);
  EXPECT_EQ(read_file(from), "new");
  EXPECT_EQ(read_file(to), "old");
}

TEST_F(FilesRename, ByCopyingTheStatusOfTheCopyIsTheResult) {
  const auto from = scratch.file("from", "x");
  const auto to = scratch / "to";
  EXPECT_EQ(qal_file_rename((scratch / "absent").c_str(), to.c_str(), by_copying),
            QAL_STATUS_NO_SOURCE);
  EXPECT_EQ(qal_file_rename(nullptr, to.c_str(), by_copying), QAL_STATUS_NO_SOURCE);
  EXPECT_EQ(qal_file_rename(from.c_str(), (scratch / "absent/to").c_str(), by_copying),
            QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_rename(from.c_str(), nullptr, by_copying), QAL_STATUS_FAILED);
  EXPECT_EQ(names_in(scratch.path()), Lines{"from"});
}

TEST_F(FilesRename, ByCopyingADirectoryFailsAndChangesNothing) {
  const auto directory = scratch.directory("directory");
  EXPECT_EQ(qal_file_rename(directory.c_str(), (scratch / "to").c_str(), by_copying),
            QAL_STATUS_FAILED);
  const auto file = scratch.file("file", "x");
  EXPECT_EQ(qal_file_rename(directory.c_str(), file.c_str(), by_copying), QAL_STATUS_EXISTS);
  EXPECT_EQ(names_in(scratch.path()), (Lines{"directory", "file"}));
  EXPECT_EQ(read_file(file), "x");
}

TEST_F(FilesRename, ByCopyingASourceThatCannotBeRemovedFailsWithBothThere) {
  scratch.directory("locked");
  const auto from = scratch.file("locked/from", "x");
  ASSERT_EQ(chmod((scratch / "locked").c_str(), 0555), 0);
  const auto target = scratch.directory("open");
  ASSERT_EQ(chmod(target.c_str(), 0777), 0);
  in_unprivileged_child([&] {
    EXPECT_EQ(qal_file_rename(from.c_str(), (target + "/to").c_str(), by_copying),
              QAL_STATUS_FAILED);
  });
  EXPECT_EQ(read_file(from), "x");
  EXPECT_EQ(read_file(target + "/to"), "x");
}

// A stream over `content`.
File stream_over(const ScratchDir &scratch, std::string_view content) {
  return File{std::fopen(scratch.file("stream", content).c_str(), "rbe")};
}

TEST_F(FilesRead, EveryItemArrives) {
  const auto content = patterned(100000);
  const File stream = stream_over(scratch, content);
  std::string buffer(100000, '#');
  EXPECT_EQ(qal_fread(buffer.data(), 8, 12500, stream.get()), 12500U);
  EXPECT_EQ(buffer, content);
}

TEST_F(FilesRead, AnEarlyEndGivesTheWholeItems) {
  const File stream = stream_over(scratch, "abcdefghijk");
  char buffer[20] = {};
  EXPECT_EQ(qal_fread(buffer, 4, 5, stream.get()), 2U);
  EXPECT_EQ(std::string(buffer, 8), "abcdefgh");
  EXPECT_NE(std::feof(stream.get()), 0);
  EXPECT_EQ(qal_fread(buffer, 4, 5, stream.get()), 0U);
}

TEST_F(FilesRead, NoMoreIsReadThanAskedFor) {
  const File stream = stream_over(scratch, "abcdef");
  char buffer[8] = "#######";
  EXPECT_EQ(qal_fread(buffer, 2, 2, stream.get()), 2U);
  EXPECT_STREQ(buffer, "abcd###");
  EXPECT_EQ(std::fgetc(stream.get()), 'e');
}

TEST_F(FilesRead, NothingAskedForIsNothingRead) {
  const File stream = stream_over(scratch, "abc");
  char buffer[4] = "###";
  EXPECT_EQ(qal_fread(buffer, 1, 0, stream.get()), 0U);
  EXPECT_EQ(qal_fread(buffer, 0, 3, stream.get()), 0U);
  EXPECT_EQ(qal_fread(nullptr, 1, 3, stream.get()), 0U);
  EXPECT_EQ(qal_fread(buffer, 1, 3, nullptr), 0U);
  EXPECT_STREQ(buffer, "###");
  EXPECT_EQ(std::fgetc(stream.get()), 'a');
}

TEST_F(FilesRead, MoreThanTheAddressSpaceHoldsIsNotRead) {
  const File stream = stream_over(scratch, "abc");
  char buffer[4] = "###";
  EXPECT_EQ(qal_fread(buffer, uint64_t{1} << 32, uint64_t{1} << 32, stream.get()), 0U);
  EXPECT_EQ(qal_fread(buffer, 3, UINT64_MAX / 3 + 1, stream.get()), 0U);
  EXPECT_STREQ(buffer, "###");
  EXPECT_EQ(std::fgetc(stream.get()), 'a');
}

TEST_F(FilesRead, AStreamThatCannotBeReadGivesNothingAndLosesItsErrorMark) {
  const File stream{std::fopen((scratch / "out").c_str(), "wbe")};
  char buffer[16];
  EXPECT_EQ(qal_fread(buffer, 1, 16, stream.get()), 0U);
  EXPECT_EQ(std::ferror(stream.get()), 0);
}

TEST(FilesReport, ComesFromTheCheckAlone) {
  const ScratchDir scratch;
  const auto absent = scratch / "absent";
  const auto file = scratch.file("file");
  const LogCapture log;
  EXPECT_EQ(qal_file_copy(absent.c_str(), file.c_str(), 0), QAL_STATUS_NO_SOURCE);
  EXPECT_EQ(qal_file_copy(file.c_str(), file.c_str(), 0x1), QAL_STATUS_EXISTS);
  EXPECT_EQ(qal_file_copy(file.c_str(), scratch.path().c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_unlink(absent.c_str()), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_rename(absent.c_str(), file.c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_rename(absent.c_str(), file.c_str(), by_copying), QAL_STATUS_NO_SOURCE);
  EXPECT_EQ(qal_file_rmdir(absent.c_str(), 0), QAL_STATUS_FAILED);
  EXPECT_EQ(qal_file_rmdir(absent.c_str(), 1), QAL_STATUS_FAILED);
  QalStat record;
  EXPECT_EQ(qal_stat(absent.c_str(), &record), -1);
  EXPECT_EQ(qal_is_dir(absent.c_str()), 0);
  EXPECT_EQ(LineReader("too long").next(4), QAL_LINE_TOO_LONG);
  char byte;
  EXPECT_EQ(qal_fread(&byte, 1, 1, File{std::fopen(file.c_str(), "wbe")}.get()), 0U);
  EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(FilesTempName, TheDirectoryAndThePrefixAreUsed) {
  unsetenv("TMPDIR");
  const OwnedText name{qal_tempnam(scratch.path().c_str(), "pre")};
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::string(name.get()).rfind(scratch / "pre", 0), 0U) << name.get();
  EXPECT_FALSE(exists(name.get()));
  const OwnedText other{qal_tempnam(scratch.path().c_str(), "pre")};
  EXPECT_STRNE(name.get(), other.get());
}

TEST_F(FilesTempName, WithoutADirectoryTheEnvironmentNamesIt) {
  unsetenv("TMPDIR");
  ASSERT_EQ(setenv("ZUL_TMPDIR", scratch.path().c_str(), 1), 0);
  const OwnedText name{qal_tempnam(nullptr, nullptr)};
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::string(name.get()).rfind(scratch.path() + "/", 0), 0U) << name.get();
}

TEST_F(FilesTempName, AGivenDirectoryGoesBeforeTheEnvironment) {
  const auto given = scratch.directory("given");
  unsetenv("TMPDIR");
  ASSERT_EQ(setenv("ZUL_TMPDIR", scratch.path().c_str(), 1), 0);
  const OwnedText name{qal_tempnam(given.c_str(), "x")};
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::string(name.get()).rfind(given + "/x", 0), 0U) << name.get();
}

TEST_F(FilesTempName, TheEnvironmentIsNotAskedInPlaceOfAGivenDirectory) {
  unsetenv("TMPDIR");
  ASSERT_EQ(setenv("ZUL_TMPDIR", scratch.path().c_str(), 1), 0);
  for (const auto &given : {scratch / "absent", std::string()}) {
    const OwnedText name{qal_tempnam(given.c_str(), "x")};
    ASSERT_NE(name, nullptr);
    EXPECT_FALSE(std::string(name.get()).starts_with(scratch / "x")) << name.get();
  }
}

TEST_F(FilesTempName, ThePlatformPutsItsOwnDirectoryBeforeAGivenOne) {
  const auto own = scratch.directory("own");
  ASSERT_EQ(setenv("TMPDIR", own.c_str(), 1), 0);
  const OwnedText name{qal_tempnam(scratch.directory("given").c_str(), "x")};
  ASSERT_NE(name, nullptr);
  EXPECT_TRUE(std::string(name.get()).starts_with(own + "/x")) << name.get();
}

TEST_F(FilesTempName, WithNeitherThePlatformChooses) {
  unsetenv("ZUL_TMPDIR");
  ASSERT_EQ(setenv("TMPDIR", scratch.path().c_str(), 1), 0);
  const OwnedText name{qal_tempnam(nullptr, "x")};
  ASSERT_NE(name, nullptr);
  EXPECT_EQ(std::string(name.get()).rfind(scratch / "x", 0), 0U) << name.get();
}

}  // namespace

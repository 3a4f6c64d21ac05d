// The system functions with calls whose results a test sets.
#include <gtest/gtest.h>
#include <pwd.h>
#include <qal/system.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "support/fault.hpp"
#include "support/log_capture.hpp"
#include "support/stderr_capture.hpp"

namespace {

using qal::test::fail_all;
using qal::test::Fault;
using qal::test::LogCapture;
using qal::test::StderrCapture;

struct VersionTool {
  bool starts = true;
  std::string output;
  std::string command;
  std::string mode;
  int opened = 0;
  int closed = 0;
  const char *last_words = "";  // on standard error, as it is closed
} version_tool;

struct Users {
  std::deque<int> errors;  // returned one by one; the last stays
  const char *name = "somebody";
  std::vector<std::size_t> rooms;
  uid_t real = 4711;  // different from the effective one
  uid_t asked = 0;
} users;

struct Calls {
  int result = 0;
  int error = 0;
  std::vector<long> arguments;
} calls;

using Handler = void (*)(int);

Fault memory;
bool play_signals = false;
Handler last_handler = nullptr;

int play(long argument) {
  calls.arguments.push_back(argument);
  errno = calls.error;
  return calls.result;
}

FILE *stream_of(const std::string &text) {
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  if (write(ends[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
  close(ends[1]);
  return fdopen(ends[0], "r");
}

int next_user_error() {
  if (users.errors.empty()) return 0;
  const int error = users.errors.front();
  if (users.errors.size() > 1) users.errors.pop_front();
  return error;
}

}  // namespace

extern "C" {

FILE *__wrap_popen(const char *command, const char *mode) {
  version_tool.command = command;
  version_tool.mode = mode;
  if (!version_tool.starts) return nullptr;
  ++version_tool.opened;
  return stream_of(version_tool.output);
}

int __wrap_pclose(FILE *stream) {
  ++version_tool.closed;
  std::fputs(version_tool.last_words, stderr);
  return std::fclose(stream);
}

uid_t __wrap_getuid() { return users.real; }

int __wrap_getpwuid_r(uid_t user, passwd *entry, char *, size_t room, passwd **found) {
  users.asked = user;
  users.rooms.push_back(room);
  *found = nullptr;
  if (const int error = next_user_error()) return error;
  if (users.name) {
    entry->pw_name = const_cast<char *>(users.name);
    *found = entry;
  }
  return 0;
}

unsigned __wrap_sleep(unsigned seconds) { return static_cast<unsigned>(play(seconds)); }

int __wrap_usleep(useconds_t microseconds) { return play(microseconds); }

int __wrap_sched_yield() { return play(0); }

int __wrap_kill(pid_t pid, int signal_number) {
  calls.arguments.push_back(signal_number);
  return play(pid);
}

Handler __real_signal(int signal_number, Handler handler);
Handler __wrap_signal(int signal_number, Handler handler) {
  if (!play_signals) return __real_signal(signal_number, handler);
  last_handler = handler;
  return play(signal_number) == 0 ? SIG_DFL : SIG_ERR;
}

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) { return memory.strikes() ? nullptr : __real_malloc(size); }
}

namespace {

class PlayedSystem : public testing::Test {
 protected:
  PlayedSystem() {
    version_tool = {};
    users = {};
    calls = {};
  }
};

using SystemVersion = PlayedSystem;
using UserName = PlayedSystem;
using Waiting = PlayedSystem;
using SignalHandler = PlayedSystem;
using ProcessProbe = PlayedSystem;

struct Version {
  int result;
  std::string name;
  int major;
  int minor;
  std::string err;
  bool operator==(const Version &) const = default;
};

void PrintTo(const Version &version, std::ostream *out) {
  *out << version.result << ", \"" << version.name << "\", " << version.major << '.'
       << version.minor << ", \"" << version.err << '"';
}

Version ask_version() {
  char name[10];
  std::memset(name, '#', sizeof name);
  Version version{0, "", 77, 77, ""};
  const StderrCapture err;
  version.result = qal_get_osx_ver(name, &version.major, &version.minor);
  version.err = err.text();
  EXPECT_EQ(name[9], '#');
  version.name.assign(name, strnlen(name, sizeof name));
  return version;
}

Version ask_version(const std::string &output) {
  version_tool.output = output;
  return ask_version();
}

Version found(int major, int minor) { return {0, "Mac OS X", major, minor, ""}; }

Version not_parsed(const std::string &output) {
  return {-1, "Mac OS X", -1, -1,
          "error: qal_get_osx_ver() can't parse OS version string: <" + output + ">\n"};
}

TEST_F(SystemVersion, IsReadFromTheVersionTool) {
  EXPECT_EQ(ask_version("ProductName:\tMac OS X\nProductVersion:\t10.15.7\nBuildVersion:\t19H2\n"),
            found(10, 15));
  EXPECT_EQ(version_tool.command, "/usr/bin/sw_vers");
  EXPECT_EQ(version_tool.mode, "re");
}

TEST_F(SystemVersion, NeedsOnlyTwoNumbers) {
  EXPECT_EQ(ask_version("ProductVersion:\t11.2\n"), found(11, 2));
  EXPECT_EQ(ask_version("ProductVersion:12.0"), found(12, 0));
  EXPECT_EQ(ask_version("ProductVersion: 13.1.\n"), found(13, 1));
  EXPECT_EQ(ask_version("ProductVersion: 13.2.x\n"), found(13, 2));
  EXPECT_EQ(ask_version("ProductVersion: 14.3beta\n"), found(14, 3));
}

TEST_F(SystemVersion, PassesOverWhiteSpaceAfterTheLabel) {
  EXPECT_EQ(ask_version("ProductVersion: \t\n\v\f\r 10.6.8"), found(10, 6));
}

TEST_F(SystemVersion, ReadsNumbersAsScanfDoes) {
  EXPECT_EQ(ask_version("ProductVersion: 010.007"), found(10, 7));
  EXPECT_EQ(ask_version("ProductVersion: +1.-2"), found(1, -2));
  EXPECT_EQ(ask_version("ProductVersion: 10. 15"), found(10, 15));
}

TEST_F(SystemVersion, KeepsNumbersWithinAnInt) {
  EXPECT_EQ(ask_version("ProductVersion: 2147483647.-2147483648"), found(INT_MAX, INT_MIN));
  EXPECT_EQ(ask_version("ProductVersion: 2147483648.-2147483649"), found(INT_MAX, INT_MIN));
  EXPECT_EQ(ask_version("ProductVersion: 4294967297.1"), found(INT_MAX, 1));
  EXPECT_EQ(ask_version("ProductVersion: 99999999999999999999.2"), found(INT_MAX, 2));
}

TEST_F(SystemVersion, IsTheFirstInTheOutput) {
  EXPECT_EQ(ask_version("ProductVersion:1.2\nProductVersion:3.4\n"), found(1, 2));
  const std::string output = "ProductVersion:none\nProductVersion:3.4\n";
  EXPECT_EQ(ask_version(output), not_parsed(output));
}

TEST_F(SystemVersion, ReportsOutputWithoutTheLabel) {
  for (const std::string output : {"", "\n", "10.15.7\n", "ProductName:\t10.15\n",
                                   "productversion: 10.15\n", "ProductVersion 10.15\n"}) {
    EXPECT_EQ(ask_version(output), not_parsed(output));
  }
}

TEST_F(SystemVersion, ReportsOutputWithoutTwoNumbersAndSetsNeither) {
  for (const std::string number : {"", " ", "x", "11", "11\n", "11.", "11.x", "10 .15", "10,15",
                                   ".15", "0x10.2", "+.1", "%s%n"}) {
    const std::string output = "ProductVersion:" + number;
    EXPECT_EQ(ask_version(output), not_parsed(output));
  }
}

TEST_F(SystemVersion, EndsAtAZeroByte) {
  using namespace std::string_literals;
  EXPECT_EQ(ask_version("Product\0ProductVersion:10.15"s), not_parsed("Product"));
}

TEST_F(SystemVersion, LooksAtNoMoreThan1024Bytes) {
  const std::string version = "ProductVersion:10.15";
  const std::string before(1024 - version.size(), '-');
  EXPECT_EQ(ask_version(before + version + "7"), found(10, 15));
  EXPECT_EQ(ask_version("-" + before + version), found(10, 1));
  EXPECT_EQ(ask_version("---" + before + version),
            not_parsed(("---" + before + version).substr(0, 1024)));
  EXPECT_EQ(ask_version(std::string(5000, '-')), not_parsed(std::string(1024, '-')));
}

TEST_F(SystemVersion, ReportsAToolThatCannotBeStarted) {
  version_tool.starts = false;
  EXPECT_EQ(ask_version(), (Version{-1, "Mac OS X", -1, -1,
                                    "error: qal_get_osx_ver() can't run command to get OS version: "
                                    "</usr/bin/sw_vers>\n"}));
  EXPECT_EQ(version_tool.closed, 0);
}

TEST_F(SystemVersion, ReportsPastTheLogger) {
  const LogCapture log;
  ask_version("nothing");
  version_tool.starts = false;
  ask_version();
  EXPECT_EQ(log.text(), "");
}

TEST_F(SystemVersion, ClosesThePipeOnceAndBeforeItReports) {
  version_tool.last_words = "closed\n";
  EXPECT_EQ(ask_version("ProductVersion:10.15").err, "closed\n");
  EXPECT_EQ(ask_version("nothing").err, "closed\n" + not_parsed("nothing").err);
  EXPECT_EQ(version_tool.opened, 2);
  EXPECT_EQ(version_tool.closed, 2);
}

std::string user_name() {
  char name[64] = "untouched";
  EXPECT_EQ(qal_username(name, sizeof name), 0);
  return name;
}

TEST_F(UserName, IsAskedForTheRealUser) {
  EXPECT_EQ(user_name(), "somebody");
  EXPECT_EQ(users.asked, users.real);
}

TEST_F(UserName, GetsMoreRoomForALongEntry) {
  users.errors = {ERANGE, ERANGE, ERANGE, 0};
  EXPECT_EQ(user_name(), "somebody");
  EXPECT_EQ(users.rooms, (std::vector<std::size_t>{1024, 2048, 4096, 8192}));
}

TEST_F(UserName, GivesUpOnAnEntryOfMoreThanAMebibyte) {
  users.errors = {ERANGE};
  EXPECT_EQ(user_name(), "notfound");
  EXPECT_EQ(users.rooms.back(), std::size_t{1} << 20);
}

TEST_F(UserName, AsksAgainWhenInterrupted) {
  users.errors = {EINTR, EINTR, 0};
  EXPECT_EQ(user_name(), "somebody");
  EXPECT_EQ(users.rooms, (std::vector<std::size_t>{1024, 1024, 1024}));
}

TEST_F(UserName, IsNotfoundWhenTheLookUpFails) {
  users.errors = {EIO};
  EXPECT_EQ(user_name(), "notfound");
  EXPECT_EQ(users.rooms.size(), 1U);
}

TEST_F(UserName, IsNotfoundWithoutAPasswordEntry) {
  users.name = nullptr;
  EXPECT_EQ(user_name(), "notfound");
}

TEST_F(UserName, IsNotfoundWithoutMemory) {
  char name[64] = "untouched";
  const LogCapture log;
  memory = fail_all(ENOMEM);
  const int result = qal_username(name, sizeof name);
  memory = {};
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(name, "notfound");
  EXPECT_TRUE(users.rooms.empty());
  EXPECT_TRUE(log.text().ends_with("ERROR: PasswordEntry: Memory allocation failed.\n"));
}

TEST_F(UserName, IsNotWrittenWithoutRoomForIt) {
  char name[] = "#";
  EXPECT_EQ(qal_username(name, 0), 0);
  EXPECT_STREQ(name, "#");
}

TEST_F(Waiting, AnswersZeroWhateverTheSystemAnswers) {
  calls.result = 3;
  EXPECT_EQ(qal_sleep(5), 0);
  calls.result = -1;
  EXPECT_EQ(qal_usleep(2'500'000), 0);
  EXPECT_EQ(calls.arguments, (std::vector<long>{5, 2'500'000}));
}

TEST_F(Waiting, YieldsWithTheSystemsResult) {
  for (const int result : {0, -1, 5}) {
    calls.result = result;
    EXPECT_EQ(qal_sched_yield(), result);
  }
}

TEST_F(SignalHandler, IsHandedToTheSystem) {
  const Handler handler = [](int) {};
  play_signals = true;
  EXPECT_EQ(qal_signal(SIGUSR2, handler), 0);
  calls.result = -1;
  EXPECT_EQ(qal_signal(12345, SIG_IGN), 0);
  play_signals = false;
  EXPECT_EQ(calls.arguments, (std::vector<long>{SIGUSR2, 12345}));
  EXPECT_EQ(last_handler, SIG_IGN);
}

TEST_F(ProcessProbe, DeliversNothingAndPassesEveryIdUnchanged) {
  for (const int pid : {1, 4711, INT_MAX, 0, -1, -4711, INT_MIN}) {
    calls.arguments.clear();
    EXPECT_EQ(qal_is_pid_running(pid), 0);
    EXPECT_EQ(calls.arguments, (std::vector<long>{0, pid}));
  }
}

TEST_F(ProcessProbe, AnswersOneOnlyWhenThereIsNoSuchProcess) {
  calls.result = -1;
  calls.error = ESRCH;
  EXPECT_EQ(qal_is_pid_running(4711), 1);
  for (const int error : {EPERM, EINVAL, EACCES, EINTR}) {
    calls.error = error;
    EXPECT_EQ(qal_is_pid_running(4711), 0) << error;
  }
}

TEST_F(ProcessProbe, DoesNotTakeAnOldErrorForAnAnswer) {
  calls.error = ESRCH;
  EXPECT_EQ(qal_is_pid_running(4711), 0);
}

}  // namespace

#include <gtest/gtest.h>
#include <pwd.h>
#include <qal/system.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <string>

#include "support/child.hpp"
#include "support/stderr_capture.hpp"

using qal::test::in_child;
using qal::test::in_unprivileged_child;
using qal::test::run_in_child;
using qal::test::StderrCapture;

namespace {

constexpr int untouched = -77;

int figure(int query) {
  int value = untouched;
  EXPECT_EQ(qal_sysinfo(query, &value), 1) << query;
  return value;
}

TEST(SystemFigures, NameThePageSize) { EXPECT_EQ(figure(0), sysconf(_SC_PAGESIZE)); }

TEST(SystemFigures, NameMoreMemoryThanThisProcessHolds) {
  EXPECT_GT(figure(7), 0);
  EXPECT_GT(figure(1), figure(7));
}

// A container may see fewer processors than its machine's cores.
TEST(SystemFigures, CountNoMorePackagesThanCores) {
  EXPECT_GE(figure(8), 1);
  EXPECT_GE(figure(9), figure(8));
  EXPECT_GE(figure(10), 1);
  EXPECT_GE(figure(5), 1);
}

TEST(SystemFigures, NameTheThreadLimit) { EXPECT_EQ(figure(6), sysconf(_SC_THREAD_THREADS_MAX)); }

TEST(SystemFigures, FollowTheResidentMemory) {
  constexpr std::size_t size = 64 << 20;
  const int before = figure(7);
  void *block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
  ASSERT_NE(block, MAP_FAILED);
  std::memset(block, 1, size);
  EXPECT_GT(figure(7), before + (32 << 10));
  munmap(block, size);
}

TEST(SystemFigures, LeaveTheAnswerAloneWhereAQueryIsNotSupported) {
  for (const int query : {2, 3, 4, 11, INT_MAX, -1, INT_MIN}) {
    int value = untouched;
    EXPECT_EQ(qal_sysinfo(query, &value), 0) << query;
    EXPECT_EQ(value, untouched) << query;
  }
}

TEST(ByteOrder, IsThatOfMemory) {
  const unsigned one = 1;
  unsigned char first = 0;
  std::memcpy(&first, &one, 1);
  EXPECT_EQ(qal_endian(), first == 1 ? 0 : 1);
}

std::string own_login_name() {
  passwd entry{};
  passwd *found = nullptr;
  char texts[16384];
  getpwuid_r(getuid(), &entry, texts, sizeof texts, &found);
  return found ? found->pw_name : "notfound";
}

TEST(UserName, IsTheLoginName) {
  char name[256];
  EXPECT_EQ(qal_username(name, sizeof name), 0);
  EXPECT_EQ(name, own_login_name());
}

TEST(UserName, IsCutToTheBuffer) {
  const std::string whole = own_login_name();
  for (std::size_t size = 1; size <= whole.size() + 1; ++size) {
    std::string name(size + 1, '#');
    EXPECT_EQ(qal_username(name.data(), static_cast<int>(size)), 0);
    EXPECT_EQ(name.c_str(), whole.substr(0, size - 1));
    EXPECT_EQ(name[size], '#') << size;
  }
}

TEST(UserName, WritesNothingWithoutRoom) {
  char name[] = "#";
  EXPECT_EQ(qal_username(name, 0), 0);
  EXPECT_EQ(qal_username(name, -1), 0);
  EXPECT_EQ(qal_username(name, INT_MIN), 0);
  EXPECT_STREQ(name, "#");
}

TEST(Waiting, AnswersZero) {
  EXPECT_EQ(qal_sleep(0), 0);
  EXPECT_EQ(qal_usleep(0), 0);
  EXPECT_EQ(qal_usleep(1), 0);
  EXPECT_EQ(qal_sched_yield(), 0);
}

volatile std::sig_atomic_t first_handler_calls = 0;
volatile std::sig_atomic_t second_handler_calls = 0;

void first_handler(int) { first_handler_calls = first_handler_calls + 1; }
void second_handler(int) { second_handler_calls = second_handler_calls + 1; }

TEST(SignalHandler, IsCalled) {
  first_handler_calls = 0;
  EXPECT_EQ(qal_signal(SIGUSR1, first_handler), 0);
  raise(SIGUSR1);
  EXPECT_EQ(first_handler_calls, 1);
}

TEST(SignalHandler, ReplacesTheOneBefore) {
  first_handler_calls = 0;
  second_handler_calls = 0;
  EXPECT_EQ(qal_signal(SIGUSR1, first_handler), 0);
  EXPECT_EQ(qal_signal(SIGUSR1, second_handler), 0);
  raise(SIGUSR1);
  EXPECT_EQ(first_handler_calls, 0);
  EXPECT_EQ(second_handler_calls, 1);
}

TEST(SignalHandler, MayBeTheSystemsOwn) {
  EXPECT_EQ(qal_signal(SIGUSR1, SIG_IGN), 0);
  raise(SIGUSR1);
  const auto child = run_in_child([] {
    EXPECT_EQ(qal_signal(SIGUSR1, SIG_DFL), 0);
    raise(SIGUSR1);
  });
  EXPECT_TRUE(child.killed_by(SIGUSR1));
}

TEST(SignalHandler, AnswersZeroEvenWhereNoneCanBeSet) {
  EXPECT_EQ(qal_signal(SIGKILL, first_handler), 0);
  EXPECT_EQ(qal_signal(-1, first_handler), 0);
}

TEST(ProcessId, IsTheCallers) {
  EXPECT_EQ(qal_getpid(), getpid());
  const int parent = getpid();
  in_child([parent] {
    EXPECT_EQ(qal_getpid(), getpid());
    EXPECT_NE(qal_getpid(), parent);
  });
}

pid_t start_and_end_child() {
  const pid_t pid = fork();
  if (pid == 0) _exit(0);
  siginfo_t ended{};
  while (waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
  }
  return pid;
}

void reap(pid_t pid) {
  while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
}

// The results are the opposite of what the name suggests, as the sweep of server records needs it.
TEST(ProcessProbe, AnswersZeroForTheCaller) { EXPECT_EQ(qal_is_pid_running(getpid()), 0); }

TEST(ProcessProbe, AnswersOneForAProcessThatIsGone) {
  const pid_t pid = start_and_end_child();
  reap(pid);
  EXPECT_EQ(qal_is_pid_running(pid), 1);
}

TEST(ProcessProbe, AnswersZeroForAZombie) {
  const pid_t pid = start_and_end_child();
  EXPECT_EQ(qal_is_pid_running(pid), 0);
  reap(pid);
}

// In a container of an ordinary user, process 1 may be the user's own and can be signalled;
// system_fault_test checks a refused signal everywhere.
TEST(ProcessProbe, AnswersZeroForAProcessOfAnotherUser) {
  const bool root = geteuid() == 0;
  const pid_t foreign = root ? getpid() : 1;
  in_unprivileged_child([=] {
    const bool refused = kill(foreign, 0) == -1 && errno == EPERM;
    EXPECT_TRUE(refused || !root);
    EXPECT_EQ(qal_is_pid_running(foreign), 0);
  });
}

TEST(ProcessProbe, TakesZeroAsTheCallersGroup) { EXPECT_EQ(qal_is_pid_running(0), 0); }

TEST(ProcessProbe, TakesNegativeIdsAsGroups) {
  const pid_t pid = start_and_end_child();
  reap(pid);
  in_child([] {
    ASSERT_EQ(setpgid(0, 0), 0);  // in a container the group of the tests may be 1: -1 is everybody
    EXPECT_EQ(qal_is_pid_running(-getpid()), 0);
  });
  EXPECT_EQ(qal_is_pid_running(-pid), 1);
}

TEST(SystemVersion, IsKnownWhereTheSystemHasAVersionTool) {
  const bool has_tool = access("/usr/bin/sw_vers", X_OK) == 0;
  char name[16];
  int major = 77;
  int minor = 77;
  const StderrCapture err;
  EXPECT_EQ(qal_get_osx_ver(name, &major, &minor), has_tool ? 0 : -1);
  EXPECT_STREQ(name, "Mac OS X");
  EXPECT_EQ(major > 0, has_tool);
  EXPECT_EQ(minor >= 0, has_tool);
  EXPECT_EQ(err.text().ends_with("error: qal_get_osx_ver() can't parse OS version string: <>\n"),
            !has_tool);
}

}  // namespace

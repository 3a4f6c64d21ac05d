// Commands that the operating system does not start as asked. Each replaced call passes through
// unless a test says which of them is to fail, in forked processes as well.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qal/logger.h>
#include <qal/pipe.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "internal/handles.hpp"
#include "support/child.hpp"
#include "support/commands.hpp"
#include "support/descriptors.hpp"
#include "support/fault.hpp"

namespace {

using qal::test::ChildResult;
using qal::test::Command;
using qal::test::exit_code;
using qal::test::expect_no_children;
using qal::test::fail_all;
using qal::test::fail_nth;
using qal::test::fail_times;
using qal::test::Fault;
using qal::test::in_child;
using qal::test::open_descriptors;
using qal::test::output_of;
using qal::test::rest_of;

std::map<std::string_view, Fault> faults;
std::size_t most_bytes = SIZE_MAX;  // that one write moves
bool tell_arguments = false;        // have execlp write them to standard error

enum class Grouping { by_both, by_parent, by_child };
Grouping grouping = Grouping::by_both;

std::vector<std::string> popen_modes;

bool refused(std::string_view call) {
  const auto fault = faults.find(call);
  return fault != faults.end() && fault->second.strikes();
}

}  // namespace

extern "C" {
int __real_pipe2(int *ends, int flags);
pid_t __real_fork();
int __real_dup(int descriptor);
std::FILE *__real_fdopen(int descriptor, const char *mode);
int __real_fcntl(int descriptor, int command, ...);
ssize_t __real_write(int descriptor, const void *bytes, std::size_t size);
int __real_setpgid(pid_t process, pid_t group);
std::FILE *__real_popen(const char *command, const char *mode);

std::FILE *__wrap_popen(const char *command, const char *mode) {
  popen_modes.emplace_back(mode);
  return __real_popen(command, mode);
}

int __wrap_pipe2(int *ends, int flags) { return refused("pipe2") ? -1 : __real_pipe2(ends, flags); }

pid_t __wrap_fork() { return refused("fork") ? -1 : __real_fork(); }

int __wrap_dup(int descriptor) { return refused("dup") ? -1 : __real_dup(descriptor); }

std::FILE *__wrap_fdopen(int descriptor, const char *mode) {
  return refused("fdopen") ? nullptr : __real_fdopen(descriptor, mode);
}

// The argument is a number or an address; both fit.
int __wrap_fcntl(int descriptor, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  void *const argument = va_arg(arguments, void *);
  va_end(arguments);
  if (command == F_DUPFD_CLOEXEC && refused("fcntl")) return -1;
  return __real_fcntl(descriptor, command, argument);
}

// Where no error is set, a write that fails takes no byte.
ssize_t __wrap_write(int descriptor, const void *bytes, std::size_t size) {
  if (refused("write")) return errno == 0 ? 0 : -1;
  return __real_write(descriptor, bytes, std::min(size, most_bytes));
}

int __wrap_setpgid(pid_t process, pid_t group) {
  if (grouping == (process == 0 ? Grouping::by_parent : Grouping::by_child)) {
    errno = EACCES;
    return -1;
  }
  return __real_setpgid(process, group);
}

int __wrap_execlp(const char *file, const char *argument, ...) {
  std::vector<char *> all;
  std::va_list arguments;
  va_start(arguments, argument);
  for (const char *next = argument; next; next = va_arg(arguments, const char *))
    all.push_back(const_cast<char *>(next));
  va_end(arguments);
  if (tell_arguments) {
    std::string text = file;
    for (const char *one : all) text.append("|").append(one);
    text += "\n";
    if (__real_write(STDERR_FILENO, text.data(), text.size()) < 0) _exit(1);
  }
  if (refused("execlp")) return -1;
  // Once a process runs a program, nobody else may change its group.
  while (grouping == Grouping::by_parent && getpgrp() != getpid()) sched_yield();
  all.push_back(nullptr);
  return execv(file, all.data());
}
}

namespace {

using qal::internal::File;

constexpr int refused_shell = 42;

// Passes in a process of its own, whose output is compared: what is logged would be in it. A
// command that could not be started ends there.
ChildResult run(const std::function<void()> &body) {
  return in_child([&] {
    alarm(60);
    qal_logger_init(stderr, &_qal_logger_func, stderr, &_qal_logger_func);
    body();
  });
}

// What the caller does in a child that could not start the command.
void end_if_child(int pid, const File &stream, const std::vector<int> &open_before) {
  if (pid != 0) return;
  _exit(!stream && open_descriptors() == open_before ? refused_shell : 1);
}

int run_with_input(const char *text) {
  Command command(text, "w");
  EXPECT_TRUE(command.stream);
  command.stream.reset();
  return exit_code(command.pid);
}

// Made so afterwards, a stream could be inherited by a command that another thread starts
// meanwhile.
TEST(PipeFault, OpensStreamsThatAreClosedOnExecFromTheStart) {
  popen_modes.clear();
  for (const char *mode : {"r", "w", "re"}) {
    std::FILE *const stream = qal_pipe_popen("cat </dev/null", mode);
    ASSERT_NE(stream, nullptr);
    EXPECT_NE(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC, 0);
    qal_pipe_pclose(stream);
  }
  EXPECT_EQ(qal_pipe_popen("cat", "x"), nullptr);
  EXPECT_EQ(popen_modes, (std::vector<std::string>{"re", "we", "re", "x"}));
}

// What a call prints that gives nothing, in either mode, and starts and leaves open nothing.
void expect_nothing_started(const char *failing, int error, const std::string &printed) {
  for (const char *mode : {"r", "w"}) {
    const auto child = run([=] {
      const auto before = open_descriptors();
      faults[failing] = fail_all(error);
      int pid = -2;
      EXPECT_EQ(qal_pipe_popen_id("echo 100% %s", mode, &pid), nullptr);
      EXPECT_EQ(pid, -1);
      EXPECT_EQ(open_descriptors(), before);
      expect_no_children();
    });
    EXPECT_EQ(child.out, "");
    EXPECT_EQ(child.err, printed);
  }
}

TEST(PipeFault, GivesNoneWithoutAWordWhenThereIsNoPipe) {
  expect_nothing_started("pipe2", EMFILE, "");
}

TEST(PipeFault, TellsThatItCannotFork) {
  expect_nothing_started("fork", EAGAIN, "qal_pipe_popen_id() fork() failed for <echo 100% %s>\n");
}

TEST(PipeFault, ClosesBothEndsWhenThereIsNoStream) {
  for (const char *mode : {"r", "w"}) {
    const auto child = run([mode] {
      const auto before = open_descriptors();
      faults["fdopen"] = fail_all(ENOMEM);
      int pid = -2;
      EXPECT_EQ(qal_pipe_popen_id("cat </dev/null", mode, &pid), nullptr);
      EXPECT_EQ(errno, ENOMEM);
      EXPECT_EQ(open_descriptors(), before);
      ASSERT_GT(pid, 0);
      EXPECT_EQ(exit_code(pid), 0);
    });
    EXPECT_EQ(child.err, "");
  }
}

TEST(PipeFault, LetsACommandWithoutAStreamSeeTheEndOfItsInput) {
  run([] {
    faults["fdopen"] = fail_all(ENOMEM);
    int pid = -2;
    EXPECT_EQ(qal_pipe_popen_id("cat", "w", &pid), nullptr);
    ASSERT_GT(pid, 0);
    EXPECT_EQ(exit_code(pid), 0);
  });
}

// The ends get low numbers when the caller has closed standard descriptors, and are moved up.
TEST(PipeFault, GivesNoneWhenAnEndCannotBeMovedOutOfTheWay) {
  for (const int failing : {1, 2}) {
    const auto child = run([failing] {
      close(STDIN_FILENO);
      close(STDOUT_FILENO);
      const auto before = open_descriptors();
      faults["fcntl"] = fail_nth(failing, EMFILE);
      int pid = -2;
      EXPECT_EQ(qal_pipe_popen_id("echo started", "r", &pid), nullptr);
      EXPECT_EQ(pid, -1);
      EXPECT_EQ(faults["fcntl"].calls, 2);
      EXPECT_EQ(open_descriptors(), before);
      expect_no_children();
    });
    EXPECT_EQ(child.err, "");
  }
}

TEST(PipeFault, MovesNoEndThatIsOutOfTheWay) {
  run([] {
    faults["fcntl"] = fail_all(EMFILE);
    EXPECT_EQ(output_of("echo started"), "started\n");
    EXPECT_EQ(faults["fcntl"].calls, 0);
  });
}

TEST(PipeFaultChild, TellsThatItsOutputCannotBeConnectedAndRunsAllTheSame) {
  const auto child = run([] {
    faults["dup"] = fail_nth(1, EMFILE);
    EXPECT_EQ(output_of("echo out 2>/dev/null; echo err >&2"), "err\n");
  });
  EXPECT_EQ(child.out, "");
  EXPECT_EQ(child.err, "dup() of write side of pipe failed\n: Too many open files\n");
}

// Deliberate: standard error is closed by then, so nobody sees this message.
TEST(PipeFaultChild, CannotTellThatItsErrorsAreNotConnected) {
  const auto child = run([] {
    faults["dup"] = fail_nth(2, EMFILE);
    EXPECT_EQ(output_of("test -e /dev/fd/2 || echo closed"), "closed\n");
  });
  EXPECT_EQ(child.err, "");
}

TEST(PipeFaultChild, TellsEachFailureOnce) {
  const auto child = run([] {
    faults["dup"] = fail_all(EBADF);
    EXPECT_EQ(output_of("exit 0"), "");
  });
  EXPECT_EQ(child.err, "dup() of write side of pipe failed\n: Bad file descriptor\n");
}

TEST(PipeFaultChild, TellsThatItsInputCannotBeConnectedAndRunsAllTheSame) {
  const auto child = run([] {
    faults["dup"] = fail_all(EMFILE);
    EXPECT_EQ(run_with_input("test -e /dev/fd/0 || echo closed"), 0);
  });
  EXPECT_EQ(child.out, "closed\n");
  EXPECT_EQ(child.err, "dup() of read side of pipe failed\n: Too many open files\n");
}

TEST(PipeFaultChild, RunsTheShellWithTheCommandAsOneArgument) {
  const auto child = run([] {
    tell_arguments = true;
    EXPECT_EQ(run_with_input("echo  'a | b' >/dev/null"), 0);
  });
  EXPECT_EQ(child.err, "/bin/sh|sh|-c|echo  'a | b' >/dev/null\n");
}

TEST(PipeFaultChild, TellsThatTheShellDidNotStartAndReturns) {
  const auto child = run([] {
    const auto before = open_descriptors();
    faults["execlp"] = fail_all(ENOENT);
    int pid = -2;
    File stream(qal_pipe_popen_id("echo 100% %s", "w", &pid));
    end_if_child(pid, stream, before);
    EXPECT_TRUE(stream);
    EXPECT_EQ(exit_code(pid), refused_shell);
  });
  EXPECT_EQ(child.out, "");
  EXPECT_EQ(child.err, "qal_pipe_popen_id() exec() failed for <echo 100% %s>\n");
}

void handle_nothing(int) {}

bool has_signals_of_the_parent() {
  struct sigaction action;
  sigset_t mask;
  return sigaction(SIGUSR1, nullptr, &action) == 0 && action.sa_handler == handle_nothing &&
         sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_DFL &&
         sigprocmask(SIG_SETMASK, nullptr, &mask) == 0 && sigismember(&mask, SIGUSR2) == 1 &&
         sigismember(&mask, SIGUSR1) == 0;
}

TEST(PipeFaultChild, ReturnsWithTheSignalHandlersAndMaskOfTheParent) {
  for (const char *mode : {"r", "w"}) {
    run([mode] {
      signal(SIGUSR1, handle_nothing);
      sigset_t mask;
      sigemptyset(&mask);
      sigaddset(&mask, SIGUSR2);
      sigprocmask(SIG_BLOCK, &mask, nullptr);
      faults["execlp"] = fail_all(ENOENT);
      int pid = -2;
      const File stream(qal_pipe_popen_id("command", mode, &pid));
      if (pid == 0) _exit(has_signals_of_the_parent() ? refused_shell : 1);
      EXPECT_TRUE(has_signals_of_the_parent());
      EXPECT_EQ(exit_code(pid), refused_shell);
    });
  }
}

TEST(PipeFaultChild, TellsTheReaderThatTheShellDidNotStart) {
  const auto child = run([] {
    const auto before = open_descriptors();
    faults["execlp"] = fail_all(ENOENT);
    int pid = -2;
    const File stream(qal_pipe_popen_id("x", "r", &pid));
    end_if_child(pid, stream, before);
    EXPECT_EQ(rest_of(stream.get()), "qal_pipe_popen_id() exec() failed for <x>\n");
    EXPECT_EQ(exit_code(pid), refused_shell);
  });
  EXPECT_EQ(child.err, "");
}

TEST(PipeFaultChild, WritesItsMessageWholeThroughShortAndInterruptedWrites) {
  const auto child = run([] {
    const auto before = open_descriptors();
    faults["execlp"] = fail_all(ENOENT);
    int pid = -2;
    most_bytes = 3;
    faults["write"] = {.error = EINTR, .first = 2, .how_many = 2};
    const File stream(qal_pipe_popen_id("command", "w", &pid));
    end_if_child(pid, stream, before);
    most_bytes = SIZE_MAX;
    faults.clear();
    EXPECT_EQ(exit_code(pid), refused_shell);
  });
  EXPECT_EQ(child.err, "qal_pipe_popen_id() exec() failed for <command>\n");
}

// The message has three parts.
TEST(PipeFaultChild, GivesUpOnAMessageThatCannotBeWritten) {
  for (const Fault &fault : {fail_all(EPIPE), fail_times(3, 0)}) {
    const auto child = run([&fault] {
      const auto before = open_descriptors();
      faults["execlp"] = fail_all(ENOENT);
      faults["write"] = fault;
      int pid = -2;
      const File stream(qal_pipe_popen_id("command", "w", &pid));
      end_if_child(pid, stream, before);
      faults.clear();
      EXPECT_EQ(exit_code(pid), refused_shell);
    });
    EXPECT_EQ(child.err, "");
  }
}

TEST(PipeFaultChild, IsMadeAGroupOfItsOwnByItselfAndByTheParent) {
  for (const auto by : {Grouping::by_parent, Grouping::by_child}) {
    run([by] {
      grouping = by;
      int pid = -2;
      File stream(qal_pipe_popen_id("exit 5", "w", &pid));
      siginfo_t info;
      EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
      EXPECT_EQ(getpgid(pid), pid);
      EXPECT_EQ(exit_code(pid), 5);
    });
  }
}

}  // namespace

#include <fcntl.h>
#include <gtest/gtest.h>
#include <qal/pipe.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "platform/platform.hpp"
#include "support/child.hpp"
#include "support/commands.hpp"
#include "support/descriptors.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"

namespace {

using qal::test::Command;
using qal::test::exists;
using qal::test::exit_code;
using qal::test::expect_no_children;
using qal::test::in_child;
using qal::test::LogCapture;
using qal::test::open_descriptors;
using qal::test::output_of;
using qal::test::read_file;
using qal::test::rest_of;
using qal::test::ScratchDir;
using qal::test::wait_for;

namespace platform = qal::internal::platform;

// Nothing here may wait forever.
class Watched : public testing::Test {
 protected:
  Watched() { alarm(120); }
  ~Watched() override { alarm(0); }
};
class PipeOpen : public Watched {};
class PipeOpenChild : public Watched {};
class PipeStreams : public Watched {};

TEST_F(PipeOpen, ReadsWhatTheCommandWrites) {
  EXPECT_EQ(output_of("printf 'one\\ntwo\\n'"), "one\ntwo\n");
  EXPECT_EQ(output_of(":"), "");
}

TEST_F(PipeOpen, ReadsOutputAndErrorsMergedInTheirOrder) {
  EXPECT_EQ(output_of("echo out; echo err >&2; echo again"), "out\nerr\nagain\n");
}

TEST_F(PipeOpen, WritesWhatTheCommandReads) {
  const ScratchDir scratch;
  Command command("cat > '" + scratch / "copy" + "'", "w");
  ASSERT_TRUE(command.stream);
  EXPECT_GE(std::fputs("one\ntwo\n", command.stream.get()), 0);
  command.stream.reset();
  EXPECT_EQ(exit_code(command.pid), 0);
  EXPECT_EQ(read_file(scratch / "copy"), "one\ntwo\n");
}

TEST_F(PipeOpen, LeavesTheOutputOfACommandThatReadsAsItIs) {
  const auto child = in_child([] {
    Command command("cat; echo trouble >&2", "w");
    std::fputs("text\n", command.stream.get());
    command.stream.reset();
    EXPECT_EQ(exit_code(command.pid), 0);
  });
  EXPECT_EQ(child.out, "text\n");
  EXPECT_EQ(child.err, "trouble\n");
}

TEST_F(PipeOpen, LeavesTheInputOfACommandThatWritesAsItIs) {
  const ScratchDir scratch;
  const auto path = scratch.file("input", "from standard input");
  in_child([&] {
    const int input = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    dup2(input, STDIN_FILENO);
    EXPECT_EQ(output_of("cat"), "from standard input");
  });
}

TEST_F(PipeOpen, MovesMoreThanAPipeHolds) {
  const std::string line(99, 'x');
  const auto output =
      output_of("i=0; while [ $i -lt 5000 ]; do echo " + line + "; i=$((i + 1)); done");
  EXPECT_EQ(output.size(), 500'000U);
}

TEST_F(PipeOpen, TellsTheProcessOfTheShell) {
  Command command("echo $$", "r");
  EXPECT_EQ(rest_of(command.stream.get()), std::to_string(command.pid) + "\n");
  EXPECT_EQ(exit_code(command.pid), 0);
}

TEST_F(PipeOpen, CallsTheShellSh) { EXPECT_EQ(output_of("echo $0"), "sh\n"); }

TEST_F(PipeOpen, LeavesTheExitStatusToTheCaller) {
  Command command("exit 7", "r");
  command.stream.reset();
  EXPECT_EQ(exit_code(command.pid), 7);
}

TEST_F(PipeOpen, PutsTheCommandIntoAGroupOfItsOwn) {
  for (const char *mode : {"r", "w"}) {
    Command command("cat", mode);
    EXPECT_EQ(getpgid(command.pid), command.pid);
    EXPECT_NE(getpgid(0), command.pid);
    EXPECT_EQ(kill(-command.pid, SIGKILL), 0);
    command.stream.reset();
    wait_for(command.pid);
  }
}

TEST_F(PipeOpen, LetsTheWholeCommandBeSignalled) {
  Command command("sleep 1000 & echo started; wait", "r");
  char line[32];
  ASSERT_TRUE(std::fgets(line, sizeof line, command.stream.get()));
  EXPECT_STREQ(line, "started\n");
  EXPECT_EQ(kill(-command.pid, SIGTERM), 0);
  EXPECT_EQ(rest_of(command.stream.get()), "");  // no process holds the other end any more
  const int status = wait_for(command.pid);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(PipeOpen, LooksAtTheFirstCharacterOfTheModeAlone) {
  Command reading("echo text", "rb");
  EXPECT_EQ(rest_of(reading.stream.get()), "text\n");
  EXPECT_EQ(exit_code(reading.pid), 0);

  Command writing("read line; test \"$line\" = text", "wb");
  std::fputs("text\n", writing.stream.get());
  writing.stream.reset();
  EXPECT_EQ(exit_code(writing.pid), 0);
}

// The platform refuses to wrap an end that can only be read as one that can be written, too.
TEST_F(PipeOpen, GivesNoneForAModeThatTheStreamCannotHaveThoughTheCommandRuns) {
  const auto before = open_descriptors();
  for (const char *mode : {"r+", "w+"}) {
    Command command("cat", mode);
    EXPECT_FALSE(command.stream);
    EXPECT_EQ(open_descriptors(), before);
    ASSERT_GT(command.pid, 0);
    kill(-command.pid, SIGKILL);
    EXPECT_NE(wait_for(command.pid), -1);
  }
}

TEST_F(PipeOpen, StartsNothingForAnyOtherMode) {
  const ScratchDir scratch;
  const LogCapture log;
  const auto before = open_descriptors();
  for (const char *mode : {"x", "", "R", "W", "a", "+r", " r", "+w"}) {
    const Command command("touch '" + scratch / "started" + "'", mode);
    EXPECT_FALSE(command.stream) << mode;
    EXPECT_EQ(command.pid, -1) << mode;
  }
  expect_no_children();
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_FALSE(exists(scratch / "started"));
  EXPECT_EQ(log.text(), "");
}

TEST_F(PipeOpen, StartsNothingForNullArguments) {
  int pid = -2;
  EXPECT_EQ(qal_pipe_popen_id(nullptr, "r", &pid), nullptr);
  EXPECT_EQ(pid, -1);
  pid = -2;
  EXPECT_EQ(qal_pipe_popen_id(":", nullptr, &pid), nullptr);
  EXPECT_EQ(pid, -1);
  EXPECT_EQ(qal_pipe_popen_id(":", "r", nullptr), nullptr);
  expect_no_children();
}

TEST_F(PipeOpen, LeavesNothingBehindOnceClosedAndWaitedFor) {
  const auto before = open_descriptors();
  for (const char *mode : {"r", "w"}) {
    Command command("cat </dev/null", mode);
    EXPECT_EQ(open_descriptors().size(), before.size() + 1);
    EXPECT_NE(fcntl(fileno(command.stream.get()), F_GETFD) & FD_CLOEXEC, 0);
    command.stream.reset();
    EXPECT_EQ(exit_code(command.pid), 0);
  }
  EXPECT_EQ(open_descriptors(), before);
  expect_no_children();
}

TEST_F(PipeOpen, ShowsNoOtherPipeToACommand) {
  const std::string alone = output_of("ls /dev/fd");
  std::vector<Command> others;
  std::vector<std::FILE *> platform_streams;
  for (const char *mode : {"r", "w", "r", "w"}) {
    others.emplace_back("cat </dev/null", mode);
    platform_streams.push_back(qal_pipe_popen("cat </dev/null", mode));
  }
  EXPECT_EQ(output_of("ls /dev/fd"), alone);
  for (auto &other : others) {
    other.stream.reset();
    EXPECT_EQ(exit_code(other.pid), 0);
  }
  for (auto *stream : platform_streams) EXPECT_EQ(qal_pipe_pclose(stream), 0);
}

// A later command that held the writing end would keep the earlier one waiting for more.
TEST_F(PipeOpen, EndsTheInputOfACommandWhileALaterOneRuns) {
  Command earlier("cat >/dev/null", "w");
  std::FILE *const platform_earlier = qal_pipe_popen("cat >/dev/null", "w");
  Command later("cat >/dev/null", "w");
  earlier.stream.reset();
  EXPECT_EQ(exit_code(earlier.pid), 0);
  EXPECT_EQ(qal_pipe_pclose(platform_earlier), 0);
  later.stream.reset();
  EXPECT_EQ(exit_code(later.pid), 0);
}

TEST_F(PipeOpen, WorksFromSeveralThreadsAtOnce) {
  std::array<std::thread, 4> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([i] {
      for (int round = 0; round < 10; ++round)
        EXPECT_EQ(output_of("echo " + std::to_string(i)), std::to_string(i) + "\n");
    });
  }
  for (auto &thread : threads) thread.join();
  expect_no_children();
}

TEST_F(PipeOpenChild, HasNoTextOfTheParentToWriteAgain) {
  for (const char *mode : {"r", "w"}) {
    const auto child = in_child([mode] {
      std::setvbuf(stdout, nullptr, _IOFBF, 4096);
      std::setvbuf(stderr, nullptr, _IOFBF, 4096);
      std::fputs("[parent's output]", stdout);
      std::fputs("[parent's errors]", stderr);
      Command command("cat </dev/null", mode);
      command.stream.reset();
      EXPECT_EQ(exit_code(command.pid), 0);
    });
    EXPECT_EQ(child.out, "[parent's output]");
    EXPECT_EQ(child.err, "[parent's errors]");
  }
}

TEST_F(PipeOpenChild, WritesAfterWhatTheParentWroteBefore) {
  const auto child = in_child([] {
    std::setvbuf(stderr, nullptr, _IOFBF, 4096);
    std::fputs("before ", stdout);
    std::fputs("trouble before ", stderr);
    Command command("echo command; echo trouble >&2", "w");
    command.stream.reset();
    EXPECT_EQ(exit_code(command.pid), 0);
  });
  EXPECT_EQ(child.out, "before command\n");
  EXPECT_EQ(child.err, "trouble before trouble\n");
}

TEST_F(PipeOpenChild, SendsNoTextOfTheParentDownThePipe) {
  const auto child = in_child([] {
    std::fputs("buffered", stdout);
    EXPECT_EQ(output_of("echo command"), "command\n");
  });
  EXPECT_EQ(child.out, "buffered");
}

// The standard descriptors are open or closed in every combination; the ends of the pipe get the
// numbers of those that are closed.
TEST_F(PipeOpenChild, IsConnectedWhateverTheParentHasClosed) {
  const std::string tell_input =
      "if [ -e /dev/fd/0 ]; then echo open; else echo closed; fi; echo trouble >&2";
  for (unsigned closed = 0; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    const ScratchDir scratch;
    const std::string copy = scratch / "copy";
    in_child([&] {
      for (int number = 0; number < 3; ++number) {
        if (closed & 1U << number) close(number);
      }
      const auto before = open_descriptors();
      const bool input_open = !(closed & 1U);
      EXPECT_EQ(output_of(tell_input), input_open ? "open\ntrouble\n" : "closed\ntrouble\n");

      Command writing("cat > '" + copy + "'", "w");
      std::fputs("text", writing.stream.get());
      writing.stream.reset();
      EXPECT_EQ(exit_code(writing.pid), 0);
      EXPECT_EQ(open_descriptors(), before);
    });
    EXPECT_EQ(read_file(copy), "text");
  }
}

TEST_F(PipeOpenChild, KeepsTheSignalsOfTheParent) {
  in_child([] {
    signal(SIGUSR1, SIG_IGN);
    EXPECT_EQ(output_of("kill -USR1 $$; echo alive"), "alive\n");
    signal(SIGUSR1, SIG_DFL);
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    EXPECT_EQ(output_of("kill -USR1 $$; echo alive"), "alive\n");
    sigprocmask(SIG_UNBLOCK, &mask, nullptr);
    Command command("kill -USR1 $$; echo alive", "r");
    EXPECT_EQ(rest_of(command.stream.get()), "");
    const int status = wait_for(command.pid);
    EXPECT_TRUE(WIFSIGNALED(status));
  });
}

// No system takes an argument of this size.
std::string too_long() { return std::string(4U << 20, 'c'); }

std::string exec_message(const std::string &command) {
  return "qal_pipe_popen_id() exec() failed for <" + command + ">\n";
}

constexpr int refused_shell = 42;

void fill_buffers() {
  std::setvbuf(stderr, nullptr, _IOFBF, 4096);
  std::fputs("buffered", stdout);
  std::fputs("buffered trouble", stderr);
}

// Ends the child, which first writes what is still in its buffers.
void end_if_child(const Command &command) {
  if (command.pid != 0) return;
  std::fflush(nullptr);
  _exit(command.stream ? 1 : refused_shell);
}

// Deliberate: the call returns twice then, and the child is the caller's to end.
TEST_F(PipeOpenChild, ReturnsNoneWhenTheShellDoesNotStart) {
  const std::string text = too_long();
  const auto child = in_child([&] {
    fill_buffers();
    const Command command(text, "r");
    end_if_child(command);
    ASSERT_TRUE(command.stream);
    EXPECT_TRUE(rest_of(command.stream.get()) == exec_message(text));
    EXPECT_EQ(exit_code(command.pid), refused_shell);
  });
  EXPECT_EQ(child.out, "buffered");
  EXPECT_EQ(child.err, "buffered trouble");
}

TEST_F(PipeOpenChild, TellsOnStandardErrorThatTheShellDidNotStart) {
  const std::string text = too_long();
  const auto child = in_child([&] {
    fill_buffers();
    const Command command(text, "w");
    end_if_child(command);
    EXPECT_EQ(exit_code(command.pid), refused_shell);
  });
  EXPECT_EQ(child.out, "buffered");
  EXPECT_TRUE(child.err == "buffered trouble" + exec_message(text));
}

TEST_F(PipeStreams, AreThePlatforms) {
  std::FILE *const reading = qal_pipe_popen("echo text; exit 3", "r");
  ASSERT_TRUE(reading);
  char line[16];
  EXPECT_EQ(qal_pipe_fgets(line, sizeof line, reading), line);
  EXPECT_STREQ(line, "text\n");
  EXPECT_EQ(qal_pipe_fgets(line, sizeof line, reading), nullptr);
  EXPECT_NE(qal_pipe_feof(reading), 0);
  const int status = qal_pipe_pclose(reading);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);

  std::FILE *const writing = qal_pipe_popen("read line; test \"$line\" = text", "w");
  ASSERT_TRUE(writing);
  EXPECT_EQ(qal_pipe_fwrite("text\n", 1, 5, writing), 5U);
  EXPECT_EQ(qal_pipe_pclose(writing), 0);
  expect_no_children();
}

TEST_F(PipeStreams, AreNoneForWhatThePlatformRefuses) {
  EXPECT_EQ(qal_pipe_popen("true", "x"), nullptr);
  EXPECT_EQ(qal_pipe_popen(nullptr, "r"), nullptr);
  EXPECT_EQ(qal_pipe_popen("true", nullptr), nullptr);
  EXPECT_EQ(qal_pipe_pclose(nullptr), -1);
  expect_no_children();
}

TEST_F(PipeStreams, AreReadInItems) {
  const Command command("printf 1234567", "r");
  char items[8] = {};
  EXPECT_EQ(qal_pipe_fread(items, 2, 2, command.stream.get()), 2U);
  EXPECT_STREQ(items, "1234");
  EXPECT_EQ(qal_pipe_feof(command.stream.get()), 0);
  EXPECT_EQ(qal_pipe_fread(items, 2, 4, command.stream.get()), 1U);
  EXPECT_NE(qal_pipe_feof(command.stream.get()), 0);
  EXPECT_EQ(exit_code(command.pid), 0);
}

TEST_F(PipeStreams, AreWrittenInItems) {
  const ScratchDir scratch;
  Command command("cat > '" + scratch / "copy" + "'", "w");
  EXPECT_EQ(qal_pipe_fwrite("1234567", 2, 3, command.stream.get()), 3U);
  EXPECT_EQ(qal_pipe_fwrite("1234567", 0, 3, command.stream.get()), 0U);
  command.stream.reset();
  EXPECT_EQ(exit_code(command.pid), 0);
  EXPECT_EQ(read_file(scratch / "copy"), "123456");
}

TEST_F(PipeStreams, GiveLinesThatFitTheBuffer) {
  const Command command("printf 'abcdef\\nrest'", "r");
  char line[16] = "untouched";
  EXPECT_EQ(qal_pipe_fgets(line, 0, command.stream.get()), nullptr);
  EXPECT_STREQ(line, "untouched");
  EXPECT_EQ(qal_pipe_fgets(line, 4, command.stream.get()), line);
  EXPECT_STREQ(line, "abc");
  EXPECT_EQ(qal_pipe_fgets(line, 5, command.stream.get()), line);
  EXPECT_STREQ(line, "def\n");
  EXPECT_EQ(qal_pipe_fgets(line, sizeof line, command.stream.get()), line);
  EXPECT_STREQ(line, "rest");
  EXPECT_EQ(exit_code(command.pid), 0);
}

// The platform counts in int: such a size would be negative, and no line would be read.
TEST_F(PipeStreams, TakeBuffersLargerThanAnIntCounts) {
  constexpr std::uint32_t largest_int = std::numeric_limits<int>::max();
  const Command command("printf 'one\\ntwo\\nthree\\n'", "r");
  char line[16];
  for (const std::uint32_t size : {largest_int, largest_int + 1, ~std::uint32_t{0}})
    EXPECT_EQ(qal_pipe_fgets(line, size, command.stream.get()), line) << size;
  EXPECT_STREQ(line, "three\n");
  EXPECT_EQ(exit_code(command.pid), 0);
}

TEST_F(PipeStreams, AreNotPassedOnToPrograms) {
  int ends[2];
  ASSERT_TRUE(platform::open_pipe(ends));
  for (const int end : ends) {
    EXPECT_NE(fcntl(end, F_GETFD) & FD_CLOEXEC, 0);
    close(end);
  }
  for (const char *mode : {"r", "w"}) {
    std::FILE *const stream = qal_pipe_popen("cat </dev/null", mode);
    EXPECT_NE(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(qal_pipe_pclose(stream), 0);
  }
}

TEST_F(PipeStreams, HaveATextForEveryError) {
  for (const int error : {EBADF, EMFILE}) {
    EXPECT_STREQ(platform::error_text(error), std::strerror(error));
  }
  EXPECT_STREQ(platform::error_text(-1), "Unknown error");
  EXPECT_STREQ(platform::error_text(1'000'000), "Unknown error");
}

}  // namespace

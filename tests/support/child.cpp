#include "support/child.hpp"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

extern char **environ;

namespace qal::test {
namespace {

constexpr uid_t unprivileged_id = 65534;

std::filesystem::path current_directory() {
  std::error_code error;
  return std::filesystem::current_path(error);
}

// As they were when the program started, before any case changed them.
const std::map<std::string, std::string> first_environment = current_environment();
const std::filesystem::path first_directory = current_directory();

struct Pipe {
  Pipe() {
    if (pipe(ends) != 0) std::abort();
  }
  int ends[2];
};

// Collects both streams until the child has closed them.
void drain(int out, int err, ChildResult &result) {
  std::array<pollfd, 2> streams{pollfd{out, POLLIN, 0}, pollfd{err, POLLIN, 0}};
  const std::array<std::string *, 2> texts{&result.out, &result.err};
  for (int open_streams = 2; open_streams > 0;) {
    if (poll(streams.data(), streams.size(), -1) < 0 && errno != EINTR) std::abort();
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (streams[i].fd < 0 || !streams[i].revents) continue;
      char block[4096];
      const auto got = read(streams[i].fd, block, sizeof block);
      if (got > 0) {
        texts[i]->append(block, static_cast<std::size_t>(got));
      } else if (got == 0) {
        close(streams[i].fd);
        streams[i].fd = -1;
        --open_streams;
      }
    }
  }
}

ChildResult fork_and_wait(const std::function<int()> &child) {
  Pipe out;
  Pipe err;
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) std::abort();
  if (pid == 0) {
    dup2(out.ends[1], STDOUT_FILENO);
    dup2(err.ends[1], STDERR_FILENO);
    for (const int end : {out.ends[0], out.ends[1], err.ends[0], err.ends[1]}) close(end);
    const int code = child();
    std::fflush(nullptr);
    _exit(code);
  }
  close(out.ends[1]);
  close(err.ends[1]);
  ChildResult result;
  drain(out.ends[0], err.ends[0], result);
  while (waitpid(pid, &result.status, 0) < 0 && errno == EINTR) {
  }
  return result;
}

int exec_program(std::vector<std::string> arguments,
                 const std::map<std::string, std::string> &environment) {
  const int null_device = open("/dev/null", O_RDONLY);
  dup2(null_device, STDIN_FILENO);
  close(null_device);
  std::vector<std::string> settings;
  for (const auto &[name, value] : environment) settings.push_back(name + "=" + value);
  std::vector<char *> argv;
  std::vector<char *> envp;
  for (auto &argument : arguments) argv.push_back(argument.data());
  for (auto &setting : settings) envp.push_back(setting.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  execve(argv[0], argv.data(), envp.data());
  return 127;
}

// Of the running case so far, including those of the parent before the fork.
int failed_expectations() {
  const auto &unit = *testing::UnitTest::GetInstance();
  const auto *const test = unit.current_test_info();
  const testing::TestResult &result = test ? *test->result() : unit.ad_hoc_test_result();
  int failed = 0;
  for (int i = 0; i < result.total_part_count(); ++i)
    failed += result.GetTestPartResult(i).failed();
  return failed;
}

ChildResult run_this_case_alone() {
  const auto &test = *testing::UnitTest::GetInstance()->current_test_info();
  const auto program = first_directory / testing::internal::GetArgvs().front();
  const auto chosen = std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name();
  auto environment = first_environment;  // without a share of the cases that this one is not in
  std::erase_if(environment, [](const auto &set) { return set.first.starts_with("GTEST_"); });
  auto result = run_program({program, chosen}, environment);
  EXPECT_NE(result.out.find("[  PASSED  ] 1 test."), std::string::npos);
  return result;
}

ChildResult passed(ChildResult result) {
  EXPECT_TRUE(result.exited_with(0)) << result.out << result.err;
  return result;
}

}  // namespace

bool ChildResult::exited_with(int code) const {
  return WIFEXITED(status) && WEXITSTATUS(status) == code;
}

bool ChildResult::killed_by(int signal) const {
  return WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

ChildResult run_in_child(const std::function<void()> &body) {
  return fork_and_wait([&body] {
    const int inherited = failed_expectations();
    body();
    return failed_expectations() > inherited ? 1 : 0;
  });
}

ChildResult in_child(const std::function<void()> &body) { return passed(run_in_child(body)); }

void in_new_process(const std::function<void()> &body) {
  const bool alone = testing::UnitTest::GetInstance()->test_to_run_count() == 1;
  passed(alone ? run_in_child(body) : run_this_case_alone());
}

void become_unprivileged() {
  if (geteuid() != 0) return;
  if (setgroups(0, nullptr) != 0 || setgid(unprivileged_id) != 0 || setuid(unprivileged_id) != 0) {
    std::perror("cannot give up root");
    std::abort();
  }
}

std::map<std::string, std::string> current_environment() {
  std::map<std::string, std::string> settings;
  for (char **setting = environ; *setting; ++setting) {
    const std::string_view text = *setting;
    const std::size_t equals = text.find('=');
    if (equals != text.npos) settings.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return settings;
}

void clear_environment() {
  static char *nothing[] = {nullptr};
  environ = nothing;
}

ChildResult run_unprivileged(const std::function<void()> &body) {
  return run_in_child([&body] {
    become_unprivileged();
    body();
  });
}

ChildResult in_unprivileged_child(const std::function<void()> &body) {
  return passed(run_unprivileged(body));
}

ChildResult run_program(const std::vector<std::string> &arguments,
                        const std::map<std::string, std::string> &environment) {
  return fork_and_wait([&] { return exec_program(arguments, environment); });
}

}  // namespace qal::test

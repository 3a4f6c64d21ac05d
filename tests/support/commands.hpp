// Commands that are started through pipes, and how they end.
#pragma once

#include <gtest/gtest.h>
#include <qal/pipe.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "internal/handles.hpp"

namespace qal::test {

inline int wait_for(int pid) {
  int status = -1;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

inline int exit_code(int pid) {
  const int status = wait_for(pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline std::string rest_of(std::FILE *stream) {
  std::string text;
  char block[4096];
  while (const auto got = std::fread(block, 1, sizeof block, stream)) text.append(block, got);
  return text;
}

struct Command {
  int pid = -2;
  internal::File stream;

  Command(const std::string &command, const char *mode)
      : stream(qal_pipe_popen_id(command.c_str(), mode, &pid)) {}
};

inline std::string output_of(const std::string &text) {
  Command command(text, "r");
  EXPECT_TRUE(command.stream);
  EXPECT_GT(command.pid, 0);
  std::string output = rest_of(command.stream.get());
  command.stream.reset();
  EXPECT_EQ(exit_code(command.pid), 0) << text;
  return output;
}

inline void expect_no_children() {
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace qal::test

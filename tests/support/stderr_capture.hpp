// Standard error, collected in a file of the test.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "support/scratch.hpp"

namespace qal::test {

// Collects what this process and its children write to standard error while it lives.
class StderrCapture {
 public:
  StderrCapture() {
    std::fflush(stderr);
    const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(file, STDERR_FILENO);
    close(file);
  }
  ~StderrCapture() {
    std::fflush(stderr);
    dup2(before_, STDERR_FILENO);
    close(before_);
  }
  StderrCapture(const StderrCapture &) = delete;
  StderrCapture &operator=(const StderrCapture &) = delete;

  std::string text() const {
    std::fflush(stderr);
    return read_file(path_);
  }

 private:
  const ScratchDir scratch_;
  const std::string path_ = scratch_ / "stderr";
  const int before_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
};

}  // namespace qal::test

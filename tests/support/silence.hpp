// Expects that nothing is said.
#pragma once

#include <gtest/gtest.h>

#include "support/log_capture.hpp"
#include "support/stderr_capture.hpp"

namespace qal::test {

// Expects the library to log nothing and nobody to write to standard error while it lives. A case
// that expects a message has a LogCapture of its own, after which nothing more is collected here.
class Silence {
 public:
  Silence() = default;
  ~Silence() {
    EXPECT_EQ(log_.text(), "");
    EXPECT_EQ(stderr_.text(), "");
  }
  Silence(const Silence &) = delete;
  Silence &operator=(const Silence &) = delete;

 private:
  const StderrCapture stderr_;
  LogCapture log_;
};

}  // namespace qal::test

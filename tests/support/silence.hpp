// Expects that nothing is said.
#pragma once

#include <gtest/gtest.h>

#include "support/log_capture.hpp"

namespace qal::test {

// Expects the library to log nothing and nobody to write to standard error while it lives. A case
// that expects a message has a LogCapture of its own, after which nothing more is collected here.
class Silence {
 public:
  Silence() { testing::internal::CaptureStderr(); }
  ~Silence() {
    EXPECT_EQ(log_.text(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  }
  Silence(const Silence &) = delete;
  Silence &operator=(const Silence &) = delete;

 private:
  LogCapture log_;
};

}  // namespace qal::test

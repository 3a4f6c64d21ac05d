// What formatting through the C library has of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/logger.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "support/log_capture.hpp"

namespace {

using qal::test::LogCapture;

QAL_PRINTF(1, 2) std::string formatted(const char *format, ...) {
  char out[64];
  std::va_list arguments;
  va_start(arguments, format);
  nsstring_vsprintf(out, format, arguments);
  va_end(arguments);
  return out;
}

// The C locale has no such character.
TEST(FormatC, AnswersAnEmptyTextWhenTheArgumentsCannotBeConverted) {
  EXPECT_EQ(formatted("before %ls", L"\x20ac"), "");
}

TEST(FormatC, LeavesOfALineTheMarkerWhenTheArgumentsCannotBeConverted) {
  const LogCapture log;
  qal_error("before %ls after\n", L"\x20ac");
  EXPECT_EQ(log.text(), "ERROR: ");
}

TEST(FormatC, ShowsTheCallersErrnoBehindATimeStamp) {
  setenv("TZ", ":/no/such/zone", 1);  // looking for it sets errno inside
  const LogCapture log;
  qal_logger_time_stamp(1);
  errno = ENOTDIR;
  char reason[100];
  std::snprintf(reason, sizeof reason, "%m\n");
  errno = ENOTDIR;
  qal_error("%m\n");
  qal_logger_time_stamp(0);
  EXPECT_THAT(log.text(), testing::EndsWith(std::string(" ERROR: ") + reason));
}

}  // namespace

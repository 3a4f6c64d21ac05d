// What holds only where the C library does the formatting.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/logger.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/platform.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::test::LogCapture;
namespace platform = qal::internal::platform;

QAL_PRINTF(1, 2) std::string formatted(const char *format, ...) {
  char out[64];
  std::va_list arguments;
  va_start(arguments, format);
  nsstring_vsprintf(out, format, arguments);
  va_end(arguments);
  return out;
}

// Compares what we and the C library write into a room of this size, and the lengths returned.
QAL_PRINTF(2, 3) void expect_equal(std::size_t room, const char *format, ...) {
  std::string ours(room + 1, '#');
  std::string theirs = ours;
  std::va_list arguments;
  std::va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int length = platform::format_text(ours.data(), room, format, arguments);
  EXPECT_EQ(length, std::vsnprintf(theirs.data(), room, format, again)) << format << room;
  va_end(again);
  va_end(arguments);
  // Behind the terminator nothing is promised, but for what lies outside the room.
  EXPECT_STREQ(ours.c_str(), theirs.c_str()) << format << room;
  EXPECT_EQ(ours.back(), '#') << format << room;
}

TEST(FormatC, EqualsTheCLibraryInEveryRoom) {
  const std::string longest(9000, 'x');
  const char *const volatile nothing = nullptr;  // which the compiler would warn of
  for (std::size_t room = 0; room < 40; ++room) {
    expect_equal(room, "plain text");
    expect_equal(room, "%s: error %d\n", "bench", -42);
    expect_equal(room, "%d %d %d", INT_MIN, 0, INT_MAX);
    expect_equal(room, "%u|%x|%x", UINT_MAX, UINT_MAX, 0U);
    expect_equal(room, "%c%c%%%s%%", 'a', '\xff', "");
    expect_equal(room, "%s%s", nothing, "\xc3\xa4");
    expect_equal(room, "%s", longest.c_str());
    expect_equal(room, "%s %5d %-3u|%04x %ld %.2s %s", "mixed", 7, 8U, 9U, 10L, "cut", "end");
    expect_equal(room, "%d%s%c%u%x", 1, "2", '3', 4U, 5U);
  }
  expect_equal(8192, "%s", longest.c_str());
  expect_equal(9001, "%s", longest.c_str());
}

TEST(FormatC, GoesOnBehindANulCharacter) {
  char out[8] = "#######";
  const auto format = [&out](const char *pattern, ...) {
    std::va_list arguments;
    va_start(arguments, pattern);
    const int length = platform::format_text(out, sizeof out, pattern, arguments);
    va_end(arguments);
    return length;
  };
  EXPECT_EQ(format("a%cb", '\0'), 3);
  EXPECT_EQ(std::string_view(out, 5), std::string_view("a\0b\0#", 5));
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

// Clocks, dates and timers under a clock that the test sets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/clock.h>
#include <qal/logger.h>
#include <sys/time.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.hpp"

namespace {

struct Moment {
  std::time_t seconds;
  suseconds_t microseconds;
};

std::optional<Moment> fixed;  // while it is empty, the real clock is read
int readings = 0;             // of the fixed clock
std::atomic<int> conversions{0};

}  // namespace

extern "C" {
int __real_gettimeofday(timeval *now, void *zone);
std::tm *__real_localtime_r(const std::time_t *second, std::tm *local);
std::time_t __real_time(std::time_t *now);

int __wrap_gettimeofday(timeval *now, void *zone) {
  if (!fixed) return __real_gettimeofday(now, zone);
  ++readings;
  now->tv_sec = fixed->seconds;
  now->tv_usec = fixed->microseconds;
  return 0;
}

std::tm *__wrap_localtime_r(const std::time_t *second, std::tm *local) {
  ++conversions;
  return __real_localtime_r(second, local);
}

std::time_t __wrap_time(std::time_t *now) {
  if (!fixed) return __real_time(now);
  if (now != nullptr) *now = fixed->seconds;
  return fixed->seconds;
}
}

namespace {

using qal::test::LogCapture;
using ::testing::ElementsAre;

constexpr std::time_t some_day = 1'700'000'000;

class FixedClock {
 public:
  explicit FixedClock(std::time_t seconds, suseconds_t microseconds = 0) {
    set(seconds, microseconds);
    readings = 0;
  }
  ~FixedClock() { fixed.reset(); }
  FixedClock(const FixedClock &) = delete;
  FixedClock &operator=(const FixedClock &) = delete;

  static void set(std::time_t seconds, suseconds_t microseconds = 0) {
    fixed = Moment{seconds, microseconds};
  }
};

// The moment of this local time in the time zone that is set now.
std::time_t local_moment(int year, int month, int day, int hour, int minute, int second) {
  std::tm local{};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;
  return std::mktime(&local);
}

void use_zone(const char *zone) {
  setenv("TZ", zone, 1);
  tzset();
}

std::string date_text(int long_form) {
  char text[15];
  const int written = qal_date_get_string(text, long_form);
  EXPECT_EQ(std::string(text).size(), static_cast<std::size_t>(written));
  return text;
}

std::vector<int> date_numbers() {
  int date[6] = {};
  EXPECT_EQ(qal_date_get(date), date[5]);
  return {date, date + 6};
}

int new_timer() {
  int id = -1;
  qal_timer_new(&id);
  return id;
}

TEST(ClockFixedTime, GivesSecondsAndMicroseconds) {
  const FixedClock clock{some_day, 250'000};
  QalTime now{};
  qal_time_get(&now);
  EXPECT_EQ(now.seconds, 1'700'000'000);
  EXPECT_EQ(now.microseconds, 250'000);
  EXPECT_EQ(qal_time_get_s(), 1'700'000'000.25);
  EXPECT_EQ(readings, 2);
}

TEST(ClockFixedTime, GivesTheLastMicrosecondOfASecond) {
  const FixedClock clock{some_day, 999'999};
  QalTime now{};
  qal_time_get(&now);
  EXPECT_EQ(now.microseconds, 999'999);
  EXPECT_DOUBLE_EQ(qal_time_get_s(), 1'700'000'000.999999);
}

TEST(ClockFixedTime, KeepsTheLow32BitsOfTheSeconds) {
  const FixedClock clock{INT32_MAX};
  QalTime now{};
  qal_time_get(&now);
  EXPECT_EQ(now.seconds, INT32_MAX);
  FixedClock::set(std::time_t{INT32_MAX} + 1, 5);
  qal_time_get(&now);
  EXPECT_EQ(now.seconds, INT32_MIN);
  EXPECT_EQ(now.microseconds, 5);
}

TEST(ClockFixedTime, DividesTheMicrosecondsByAMillion) {
  const FixedClock clock{0, 5};
  EXPECT_EQ(qal_time_get_s(), 5 / 1e6);
}

TEST(ClockFixedTime, AsDoubleGoesOnPast32Bits) {
  const FixedClock clock{std::time_t{INT32_MAX} + 1, 500'000};
  EXPECT_EQ(qal_time_get_s(), 2'147'483'648.5);
}

TEST(ClockFixedDate, GivesTheLocalDateAsNumbersAndText) {
  use_zone("UTC0");
  const FixedClock clock{local_moment(2024, 3, 5, 9, 7, 3)};
  EXPECT_THAT(date_numbers(), ElementsAre(2024, 3, 5, 9, 7, 3));
  EXPECT_EQ(date_text(1), "02:05 09:07:03");
  EXPECT_EQ(date_text(0), "09:07:03");
}

TEST(ClockFixedDate, TakesAnyOtherThanZeroAsLongForm) {
  use_zone("UTC0");
  const FixedClock clock{local_moment(2024, 3, 5, 9, 7, 3)};
  EXPECT_EQ(date_text(-1), "02:05 09:07:03");
  EXPECT_EQ(date_text(256), "02:05 09:07:03");
}

TEST(ClockFixedDate, CountsTheMonthsOfItsTextFromZero) {
  use_zone("UTC0");
  const FixedClock clock{local_moment(2023, 1, 1, 0, 0, 0)};
  EXPECT_THAT(date_numbers(), ElementsAre(2023, 1, 1, 0, 0, 0));
  EXPECT_EQ(date_text(1), "00:01 00:00:00");
  FixedClock::set(local_moment(2023, 12, 31, 23, 59, 59));
  EXPECT_THAT(date_numbers(), ElementsAre(2023, 12, 31, 23, 59, 59));
  EXPECT_EQ(date_text(1), "11:31 23:59:59");
}

TEST(ClockFixedDate, FollowsAChangeOfTheTimeZone) {
  use_zone("UTC0");
  const FixedClock clock{local_moment(2024, 3, 5, 1, 7, 3)};
  EXPECT_EQ(date_text(0), "01:07:03");
  setenv("TZ", "XXX5", 1);
  EXPECT_EQ(date_text(0), "20:07:03");
  EXPECT_THAT(date_numbers(), ElementsAre(2024, 3, 4, 20, 7, 3));
  setenv("TZ", "YYY-9:30", 1);
  EXPECT_THAT(date_numbers(), ElementsAre(2024, 3, 5, 10, 37, 3));
}

TEST(ClockFixedDate, IsConvertedOnceInASecond) {
  use_zone("UTC0");
  const FixedClock clock{some_day - 1};
  date_text(0);
  FixedClock::set(some_day);
  const int before = conversions;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(date_text(0), "22:13:20");
  EXPECT_EQ(conversions, before + 1);
  FixedClock::set(some_day + 1);
  EXPECT_EQ(date_text(0), "22:13:21");
  EXPECT_EQ(conversions, before + 2);
}

TEST(ClockFixedDate, IsConvertedOnceInTheFirstSecondOfAThread) {
  unsetenv("TZ");
  const FixedClock clock{0};  // equal to what a thread's memory begins with
  std::thread([] {
    const int before = conversions;
    for (int i = 0; i < 2; ++i) date_text(0);
    EXPECT_EQ(conversions, before + 1);
  }).join();
}

// Both may mean the same here, but another machine has another time zone of its own.
TEST(ClockFixedDate, TellsAnEmptyTimeZoneFromNone) {
  const FixedClock clock{some_day};
  setenv("TZ", "XXX5", 1);
  EXPECT_EQ(date_text(0), "17:13:20");
  for (int i = 0; i < 2; ++i) {
    int before = conversions;
    unsetenv("TZ");
    date_text(0);
    EXPECT_EQ(conversions, before + 1);
    before = conversions;
    setenv("TZ", "", 1);
    EXPECT_EQ(date_text(0), "22:13:20");
    EXPECT_EQ(conversions, before + 1);
  }
}

TEST(ClockFixedDate, FollowsTheEndOfTimeZonesOfAnyLength) {
  const FixedClock clock{some_day};
  for (const std::size_t size : {8U, 62U, 63U, 64U, 65U, 66U, 200U}) {
    const std::string zone = "<" + std::string(size - 3, 'a') + ">";
    for (int i = 0; i < 2; ++i) {
      setenv("TZ", "XXX7", 1);
      EXPECT_EQ(date_text(0), "15:13:20") << size;
      setenv("TZ", (zone + "5").c_str(), 1);
      EXPECT_EQ(date_text(0), "17:13:20") << size;
      setenv("TZ", (zone + "6").c_str(), 1);
      EXPECT_EQ(date_text(0), "16:13:20") << size;
    }
  }
}

TEST(ClockFixedDate, FollowsATimeZoneThatIsChangedInPlace) {
  const FixedClock clock{some_day};
  static char setting[] = "TZ=XXX5";
  setting[6] = '5';
  ASSERT_EQ(putenv(setting), 0);
  EXPECT_EQ(date_text(0), "17:13:20");
  setting[6] = '6';
  EXPECT_EQ(date_text(0), "16:13:20");
}

TEST(ClockFixedDate, FollowsTheTimeZoneInEveryThread) {
  const FixedClock clock{some_day};
  setenv("TZ", "XXX5", 1);
  EXPECT_EQ(date_text(0), "17:13:20");
  setenv("TZ", "XXX6", 1);
  std::thread([] { EXPECT_EQ(date_text(0), "16:13:20"); }).join();
  EXPECT_EQ(date_text(0), "16:13:20");
}

TEST(ClockFixedDate, FollowsDaylightSaving) {
  use_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  constexpr std::time_t clocks_go_forward = 1'711'846'800;  // 31 March 2024
  const FixedClock clock{clocks_go_forward - 1};
  EXPECT_EQ(date_text(0), "01:59:59");
  FixedClock::set(clocks_go_forward);
  EXPECT_EQ(date_text(0), "03:00:00");
}

TEST(ClockFixedDate, SurvivesAnUnknownTimeZone) {
  setenv("TZ", "/no/such/zone", 1);
  const FixedClock clock{some_day};
  EXPECT_EQ(date_text(0), "22:13:20");
}

TEST(ClockFixedDate, GoesOnPast2038) {
  use_zone("UTC0");
  const FixedClock clock{std::time_t{INT32_MAX} + 1};
  EXPECT_THAT(date_numbers(), ElementsAre(2038, 1, 19, 3, 14, 8));
}

// The C library's own conversions share one record, which another thread may be reading.
TEST(ClockFixedDate, KeepsOutOfTheRecordThatAllThreadsShare) {
  const FixedClock clock{some_day};
  const std::time_t epoch = 0;
  const std::tm *const shared = std::gmtime(&epoch);
  ASSERT_EQ(shared->tm_year, 70);
  date_numbers();
  date_text(0);
  date_text(1);
  EXPECT_EQ(shared->tm_year, 70);
  EXPECT_EQ(shared->tm_sec, 0);
}

TEST(ClockFixedDate, StampsLogLinesWithTheLocalTime) {
  use_zone("XXX5");
  const FixedClock clock{local_moment(2024, 3, 5, 9, 7, 3)};
  const LogCapture log;
  qal_logger_time_stamp(1);
  qal_warn("full\n");
  qal_info("message\n");
  qal_logger_time_stamp(0);
  EXPECT_THAT(log.lines(), ElementsAre("09:07:03 WARNING: full\n", "09:07:03 message\n"));
}

TEST(ClockFixedDate, StampsLogLinesWhateverTheClockDoes) {
  const LogCapture log;
  qal_logger_time_stamp(1);
  use_zone("CET-1CEST,M3.5.0,M10.5.0/3");
  constexpr std::time_t clocks_go_back = 1'729'990'800;  // 27 October 2024
  const FixedClock clock{clocks_go_back - 1};
  qal_info("a\n");
  FixedClock::set(clocks_go_back);
  qal_info("b\n");
  use_zone("UTC0");
  FixedClock::set(std::time_t{INT32_MAX} + 1);
  qal_info("c\n");
  FixedClock::set(0);
  qal_info("d\n");
  setenv("TZ", ":/no/such/zone", 1);
  qal_info("e\n");
  qal_logger_time_stamp(0);
  EXPECT_THAT(log.lines(), ElementsAre("02:59:59 a\n", "02:00:00 b\n", "03:14:08 c\n",
                                       "00:00:00 d\n", "00:00:00 e\n"));
}

void start_at(std::time_t moment, int id) {
  FixedClock::set(moment);
  qal_timer_start(&id);
}

void stop_at(std::time_t moment, int id, suseconds_t microseconds = 0) {
  FixedClock::set(moment, microseconds);
  qal_timer_stop(&id);
}

class ClockFixedTimer : public testing::Test {
 protected:
  const FixedClock clock{some_day};
  const int id = new_timer();
};

TEST_F(ClockFixedTimer, AddsUpWhatItRan) {
  const LogCapture log;
  EXPECT_EQ(qal_timer_elapsed(&id), 0.0F);
  qal_timer_start(&id);
  stop_at(some_day, id, 250'000);
  EXPECT_EQ(qal_timer_elapsed(&id), 0.25F);
  start_at(some_day + 60, id);
  stop_at(some_day + 60, id, 250'000);
  EXPECT_EQ(qal_timer_elapsed(&id), 0.5F);
  qal_timer_print(&id);
  EXPECT_THAT(log.lines(), ElementsAre("\ttime: 0.500000\n"));
}

TEST_F(ClockFixedTimer, ReadsTheClockOnceForAStartAndOnceForAStop) {
  qal_timer_start(&id);
  EXPECT_EQ(readings, 1);
  qal_timer_stop(&id);
  EXPECT_EQ(readings, 2);
}

TEST_F(ClockFixedTimer, ShowsNothingOfAPhaseThatStillRuns) {
  qal_timer_start(&id);
  FixedClock::set(some_day + 2);
  EXPECT_EQ(qal_timer_elapsed(&id), 0.0F);
  qal_timer_stop(&id);
  qal_timer_start(&id);
  FixedClock::set(some_day + 60);
  EXPECT_EQ(qal_timer_elapsed(&id), 2.0F);
}

TEST_F(ClockFixedTimer, CountsFromItsLatestStart) {
  qal_timer_start(&id);
  start_at(some_day + 10, id);
  stop_at(some_day + 13, id);
  EXPECT_EQ(qal_timer_elapsed(&id), 3.0F);
}

TEST_F(ClockFixedTimer, RunsApartFromTheOthers) {
  const int first = new_timer();
  const int second = new_timer();
  qal_timer_start(&first);
  start_at(some_day + 1, second);
  stop_at(some_day + 3, first);
  qal_timer_stop(&second);
  EXPECT_EQ(qal_timer_elapsed(&first), 3.0F);
  EXPECT_EQ(qal_timer_elapsed(&second), 2.0F);
}

TEST_F(ClockFixedTimer, AddsAgainFromTheSameStartWhenStoppedTwice) {
  qal_timer_start(&id);
  stop_at(some_day + 2, id);
  stop_at(some_day + 5, id);
  EXPECT_EQ(qal_timer_elapsed(&id), 7.0F);
}

TEST_F(ClockFixedTimer, AddsTheTimeSinceTheEpochWithoutAStart) {
  FixedClock::set(1024, 500'000);
  qal_timer_stop(&id);
  EXPECT_EQ(qal_timer_elapsed(&id), 1024.5F);
}

TEST_F(ClockFixedTimer, KeepsItsStartWhenCleared) {
  qal_timer_start(&id);
  stop_at(some_day + 2, id);
  qal_timer_clear(&id);
  EXPECT_EQ(qal_timer_elapsed(&id), 0.0F);
  stop_at(some_day + 4, id);
  EXPECT_EQ(qal_timer_elapsed(&id), 4.0F);
}

TEST_F(ClockFixedTimer, KeepsAStartMadeBeforeItWasHandedOut) {
  const int next = id + 1;
  qal_timer_start(&next);
  EXPECT_EQ(new_timer(), next);
  stop_at(some_day + 2, next);
  EXPECT_EQ(qal_timer_elapsed(&next), 2.0F);
}

TEST_F(ClockFixedTimer, LeavesTheOthersWhenCleared) {
  const int first = new_timer();
  const int second = new_timer();
  qal_timer_start(&first);
  stop_at(some_day + 2, first);
  qal_timer_clear(&second);
  EXPECT_EQ(qal_timer_elapsed(&first), 2.0F);
}

TEST_F(ClockFixedTimer, RunsBackwardsWithTheClock) {
  qal_timer_start(&id);
  stop_at(some_day - 3600, id);
  EXPECT_EQ(qal_timer_elapsed(&id), -3600.0F);
}

TEST_F(ClockFixedTimer, DoesNotWrapIn2038) {
  FixedClock::set(INT32_MAX);
  qal_timer_start(&id);
  stop_at(std::time_t{INT32_MAX} + 1, id);
  EXPECT_EQ(qal_timer_elapsed(&id), 1.0F);
}

TEST_F(ClockFixedTimer, PrintsItsSumInSinglePrecision) {
  FixedClock::set(16'777'217);  // the first whole number that single precision lacks
  const LogCapture log;
  qal_timer_stop(&id);
  EXPECT_EQ(qal_timer_elapsed(&id), 16'777'216.0F);
  qal_timer_print(&id);
  EXPECT_THAT(log.lines(), ElementsAre("\ttime: 16777216.000000\n"));
}

TEST_F(ClockFixedTimer, PrintsSixDecimals) {
  FixedClock::set(0, 123'456);
  const LogCapture log;
  qal_timer_stop(&id);
  qal_timer_print(&id);
  EXPECT_THAT(log.lines(), ElementsAre("\ttime: 0.123456\n"));
}

TEST_F(ClockFixedTimer, RefusedStopReadsNoClock) {
  const int not_handed_out = new_timer() + 1;
  qal_timer_stop(&not_handed_out);
  EXPECT_EQ(readings, 0);
  EXPECT_EQ(qal_timer_elapsed(&not_handed_out), 0.0F);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/clock.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <type_traits>

#include "support/child.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::test::in_child;
using qal::test::LogCapture;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::Ge;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::Lt;

constexpr auto stop_message = "ERROR: stop_timer: error, invalid timer number\n";
constexpr auto print_message = "ERROR: print_timer: error, invalid timer number\n";
constexpr auto full_message = "ERROR: qal_timer_start: error, exceeded QAL_MAX_TIMERS\n";

constexpr int most_timers = 1023;

int new_timer() {
  int id = -1;
  qal_timer_new(&id);
  return id;
}

void hand_out(int count) {
  for (int i = 0; i < count; ++i) new_timer();
}

// Timers are never taken back, so a case that needs an empty table runs in a child.
void with_new_table(const std::function<void()> &body) { in_child(body); }

// Not time(), which may lag behind the time of day by a tick of the clock.
std::int64_t microseconds_now() {
  using std::chrono::floor, std::chrono::microseconds;
  return floor<microseconds>(std::chrono::system_clock::now().time_since_epoch()).count();
}

TEST(ClockTime, LiesBetweenTwoReadingsOfThePlatform) {
  const std::int64_t before = microseconds_now();
  QalTime now{-1, -1};
  qal_time_get(&now);
  const double seconds = qal_time_get_s();
  const std::int64_t after = microseconds_now();
  EXPECT_THAT(now.microseconds, AllOf(Ge(0), Lt(1'000'000)));
  EXPECT_THAT(now.seconds * std::int64_t{1'000'000} + now.microseconds,
              AllOf(Ge(before), Le(after)));
  EXPECT_THAT(std::llround(seconds * 1e6), AllOf(Ge(before), Le(after)));
}

TEST(ClockTime, HoldsTwoSigned32BitFields) {
  static_assert(std::is_same_v<decltype(QalTime::seconds), int32_t>);
  static_assert(std::is_same_v<decltype(QalTime::microseconds), int32_t>);
  EXPECT_EQ(sizeof(QalTime), 8U);
}

TEST(ClockDate, WritesNoMoreThanItsRoom) {
  std::string text(16, '#');
  EXPECT_EQ(qal_date_get_string(text.data(), 0), 8);
  EXPECT_EQ(text.substr(8), std::string("\0#######", 8));
  text.assign(16, '#');
  EXPECT_EQ(qal_date_get_string(text.data(), 1), 14);
  EXPECT_EQ(text.substr(14), std::string("\0#", 2));
}

TEST(ClockTimer, CapacityIs1024) { EXPECT_EQ(QAL_MAX_TIMERS, 1024); }

TEST(ClockTimer, NumbersCountUpFromZero) {
  with_new_table([] {
    EXPECT_EQ(new_timer(), 0);
    EXPECT_EQ(new_timer(), 1);
    EXPECT_EQ(new_timer(), 2);
  });
}

TEST(ClockTimer, HandsOutAllButTheLastEntry) {
  with_new_table([] {
    const LogCapture log;
    hand_out(most_timers - 1);
    EXPECT_EQ(new_timer(), 1022);
    EXPECT_THAT(log.lines(), IsEmpty());
    int id = 77;
    qal_timer_new(&id);
    EXPECT_EQ(id, 77);
    EXPECT_THAT(log.lines(), ElementsAre(full_message));
    qal_timer_new(&id);
    EXPECT_EQ(id, 77);
    EXPECT_THAT(log.lines(), ElementsAre(full_message, full_message));
  });
}

TEST(ClockTimer, IsUsableUpToTheLastOneHandedOut) {
  with_new_table([] {
    hand_out(most_timers);
    const LogCapture log;
    const int last = most_timers - 1;
    qal_timer_start(&last);
    qal_timer_stop(&last);
    qal_timer_print(&last);
    EXPECT_THAT(log.lines(), ElementsAre(::testing::StartsWith("\ttime: ")));
  });
}

TEST(ClockTimer, RefusesToStopANumberThatWasNotHandedOut) {
  with_new_table([] {
    const LogCapture log;
    hand_out(3);
    for (const int id : {3, 5, 1023, 1024, -1}) qal_timer_stop(&id);
    EXPECT_THAT(log.lines(),
                ElementsAre(stop_message, stop_message, stop_message, stop_message, stop_message));
    const int not_handed_out = 5;
    EXPECT_EQ(qal_timer_elapsed(&not_handed_out), 0.0F);
  });
}

TEST(ClockTimer, RefusesToPrintANumberThatWasNotHandedOut) {
  with_new_table([] {
    const LogCapture log;
    hand_out(3);
    for (const int id : {3, 1023, 1024, -1}) qal_timer_print(&id);
    EXPECT_THAT(log.lines(),
                ElementsAre(print_message, print_message, print_message, print_message));
  });
}

TEST(ClockTimer, ClearsTheWholeTableWithoutAskingWhatWasHandedOut) {
  const LogCapture log;
  for (const int id : {0, 5, 1022, 1023}) qal_timer_clear(&id);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ClockTimer, ReportsAClearOutsideTheTableInTheWordsOfStop) {
  const LogCapture log;
  for (const int id : {1024, -1, INT32_MIN}) qal_timer_clear(&id);
  EXPECT_THAT(log.lines(), ElementsAre(stop_message, stop_message, stop_message));
}

TEST(ClockTimer, IgnoresAStartOutsideTheTable) {
  const LogCapture log;
  for (const int id : {1024, 1 << 20, INT32_MAX, -1, INT32_MIN}) {
    qal_timer_start(&id);
    EXPECT_EQ(qal_timer_elapsed(&id), 0.0F);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ClockTimer, StartsAndReadsAnyEntryOfTheTableInSilence) {
  const LogCapture log;
  for (const int id : {0, 5, 1023}) {
    qal_timer_start(&id);
    EXPECT_EQ(qal_timer_elapsed(&id), 0.0F);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace

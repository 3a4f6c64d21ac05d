#include <gtest/gtest.h>
#include <qal/thread.h>

#include "schedules.hpp"
#include "slots.hpp"

namespace {

using qal::test::Are;
using qal::test::leave_slots;
using qal::test::most_preemptions;
using qal::test::quick_preemptions;
using qal::test::together;

using ThreadSchedules = qal::test::Schedules;

int answer(void *number) { return *static_cast<int *>(number); }

// Starts a thread if there is a slot for it.
void start_and_join(int number) {
  int index = 0;
  if (qal_thread_create(&index, &answer, &number) != QAL_THREAD_OK) return;
  int result = 0;
  EXPECT_EQ(qal_thread_join(&index, &result), QAL_THREAD_OK);
  EXPECT_EQ(result, number);
}

// There is one slot more than there are threads, and all threads want it.
void want_one_slot(int threads) {
  together(threads, [](int i) { start_and_join(10 + i); });
}

TEST_F(ThreadSchedules, TwoThreadsWantOneSlot) {
  leave_slots(3);
  expect_every_good(most_preemptions, Are::alike, [] { want_one_slot(2); });
}

TEST_F(ThreadSchedules, ThreeThreadsWantOneSlot) {
  leave_slots(4);
  expect_every_good(quick_preemptions(), Are::alike, [] { want_one_slot(3); });
}

TEST_F(ThreadSchedules, SixThreadsWantOneSlot) {
  leave_slots(7);
  expect_random_good([] { want_one_slot(6); });
}

}  // namespace

// A table of threads that is nearly full.
#pragma once

#include <gtest/gtest.h>
#include <qal/thread.h>

#include "support/scheduler.hpp"

namespace qal::test {

// Claims all slots of the table but `count`, so that every run uses the same ones. A run can start
// few threads, but the slot of a thread that could not be started stays claimed.
inline void leave_slots(int count) {
  constexpr int slots = 2047;
  ASSERT_EQ(qal_thread_init(), 0);
  replay("", Are::different, [=] {
    int index = 0;
    for (int i = count; i < slots; ++i) qal_thread_create(&index, nullptr, nullptr);
  });
}

}  // namespace qal::test

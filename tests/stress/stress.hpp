// Stress: what the tests of an area do, so often and with so many threads that rare orders occur.
// QAL_STRESS=full takes minutes; without it a stress program is quick and shows that it works.
#pragma once

#include <gtest/gtest.h>
#include <qal/startup.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace qal::test {

inline int sized(int quick, int full) {
  const char *const size = std::getenv("QAL_STRESS");
  return size && std::string_view{size} != "quick" ? full : quick;
}

class Stress : public testing::Test {
 protected:
  // A case that hangs ends the program, but not one that is slow under valgrind on a busy machine.
  Stress() {
    alarm(3600);
    qal_utils_init();
  }
  ~Stress() override {
    qal_utils_done();
    alarm(0);
  }

  // How often the case did its work, for readers of the results.
  static void record_count(int count) { RecordProperty("count", count); }
};

}  // namespace qal::test

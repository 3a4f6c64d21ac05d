// The entry point of every test program: a test that leaves a descriptor open fails.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <vector>

#include "support/descriptors.hpp"

namespace {

using qal::test::open_descriptors;

class DescriptorCheck : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo &) override { before_ = open_descriptors(); }

  void OnTestEnd(const testing::TestInfo &) override {
    const std::vector<int> after = open_descriptors();
    std::vector<int> left;
    std::ranges::set_difference(after, before_, std::back_inserter(left));
    EXPECT_EQ(left, std::vector<int>{}) << "descriptors left open";
  }

  std::vector<int> before_;
};

// What tests are written for, whatever the user's shell hands on: the mask, signals that are
// neither ignored nor held back, and three open streams.
void use_ordinary_settings() {
  umask(022);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int signal : {SIGABRT, SIGALRM, SIGCHLD, SIGPIPE, SIGTERM, SIGUSR1}) {
    std::signal(signal, SIG_DFL);
  }
  int next = open("/dev/null", O_RDWR);
  while (next >= 0 && next <= STDERR_FILENO) next = open("/dev/null", O_RDWR);
  close(next);
}

}  // namespace

int main(int argc, char **argv) {
  use_ordinary_settings();
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new DescriptorCheck);
  return RUN_ALL_TESTS();
}

// The entry point of every test program: a test that leaves a descriptor open fails. The mask that
// tests are written for is set here, whatever the user's is.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
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

}  // namespace

int main(int argc, char **argv) {
  umask(022);
  testing::InitGoogleTest(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new DescriptorCheck);
  return RUN_ALL_TESTS();
}

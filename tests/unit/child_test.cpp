// The support for tests that fork.
#include "support/child.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using qal::test::run_in_child;

constexpr int as_expected = 42;

TEST(RunInChild, TellsAFailedExpectation) {
  EXPECT_TRUE(run_in_child([] {}).exited_with(0));
  EXPECT_TRUE(run_in_child([] { ADD_FAILURE(); }).exited_with(1));
}

TEST(RunInChild, BlamesNoChildForWhatFailedBefore) {
  const auto parent = run_in_child([] {
    ADD_FAILURE() << "in the parent";
    const bool judged =
        run_in_child([] {}).exited_with(0) && run_in_child([] { ADD_FAILURE(); }).exited_with(1);
    _exit(judged ? as_expected : 0);
  });
  EXPECT_TRUE(parent.exited_with(as_expected)) << parent.out;
}

}  // namespace

// The real tool, linked so that the library cannot start.
#include <gtest/gtest.h>

#include "support/sweep_world.hpp"

namespace {

using qal::test::SweepWorld;

TEST(SweepWithoutLibrary, EndsWithStatusOneInSilenceAndLeavesEverythingAlone) {
  const SweepWorld world{KALMORA_SWEEP_WITHOUT_THREADS_PATH};
  world.record("halix_server1.dat", "not a record");  // the tool that starts deletes it
  const auto before = world.contents();
  const auto result = world.run_tool();
  EXPECT_TRUE(result.exited_with(1));
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(world.contents(), before);
}

}  // namespace

#include <gtest/gtest.h>
#include <qal/startup.h>

#include <string>

#include "support/child.hpp"

namespace {

using qal::test::in_new_process;

// Only the first start of a process clears anything.
TEST(Startup, ClearsACacheDirectoryThatWasSetBefore) {
  in_new_process([] {
    ASSERT_EQ(qal_utils_set_cachedir("/early"), QAL_STATUS_OK);
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
  });
}

TEST(Startup, SucceedsAndLeavesNoCacheDirectory) {
  EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
}

TEST(Startup, DoesNothingTheSecondTime) {
  ASSERT_EQ(qal_utils_init(), QAL_STATUS_OK);
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
  EXPECT_STREQ(qal_utils_get_cachedir(), "/cache");
  qal_utils_done();
}

TEST(Startup, StartsNothingAgainAfterShutDown) {
  ASSERT_EQ(qal_utils_init(), QAL_STATUS_OK);
  ASSERT_EQ(qal_utils_done(), QAL_STATUS_OK);
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
  EXPECT_STREQ(qal_utils_get_cachedir(), "/cache");
  qal_utils_done();
}

TEST(ShutDown, ForgetsTheCacheDirectory) {
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_done(), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
}

TEST(ShutDown, MayComeWithoutAStartAndTwice) {
  EXPECT_EQ(qal_utils_done(), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_done(), QAL_STATUS_OK);
}

TEST(CacheDirectory, IsNoneAtFirst) { EXPECT_EQ(qal_utils_get_cachedir(), nullptr); }

TEST(CacheDirectory, IsAPrivateCopy) {
  std::string path = "/cache";
  EXPECT_EQ(qal_utils_set_cachedir(path.c_str()), QAL_STATUS_OK);
  EXPECT_NE(qal_utils_get_cachedir(), path.c_str());
  path[1] = 'X';
  EXPECT_STREQ(qal_utils_get_cachedir(), "/cache");
  qal_utils_done();
}

TEST(CacheDirectory, IsReplaced) {
  ASSERT_EQ(qal_utils_set_cachedir("/first"), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_set_cachedir("/the/second"), QAL_STATUS_OK);
  EXPECT_STREQ(qal_utils_get_cachedir(), "/the/second");
  qal_utils_done();
}

TEST(CacheDirectory, IsForgottenWhenSetToNull) {
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_set_cachedir(nullptr), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
  EXPECT_EQ(qal_utils_set_cachedir(nullptr), QAL_STATUS_OK);
}

TEST(CacheDirectory, MayBeEmptyOrLong) {
  EXPECT_EQ(qal_utils_set_cachedir(""), QAL_STATUS_OK);
  EXPECT_STREQ(qal_utils_get_cachedir(), "");
  const std::string path(100'000, 'd');
  EXPECT_EQ(qal_utils_set_cachedir(path.c_str()), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_get_cachedir(), path);
  qal_utils_done();
}

TEST(CacheDirectory, TakesItsOwnText) {
  ASSERT_EQ(qal_utils_set_cachedir("/parent/child"), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_set_cachedir(qal_utils_get_cachedir()), QAL_STATUS_OK);
  EXPECT_STREQ(qal_utils_get_cachedir(), "/parent/child");
  EXPECT_EQ(qal_utils_set_cachedir(qal_utils_get_cachedir() + 7), QAL_STATUS_OK);
  EXPECT_STREQ(qal_utils_get_cachedir(), "/child");
  qal_utils_done();
}

}  // namespace

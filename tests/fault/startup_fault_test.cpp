// Start-up when memory is short. malloc is replaced at link time.
#include <gtest/gtest.h>
#include <qal/startup.h>

#include <cerrno>
#include <cstdlib>

namespace {

bool refuse_memory = false;

}  // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
  if (!refuse_memory) return __real_malloc(size);
  errno = ENOMEM;
  return nullptr;
}
}

namespace {

int set_cachedir_without_memory(const char *path) {
  refuse_memory = true;
  const int result = qal_utils_set_cachedir(path);
  refuse_memory = false;
  return result;
}

TEST(CacheDirectory, IsNoneAfterMemoryRanOut) {
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_EQ(set_cachedir_without_memory("/other"), QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
}

TEST(CacheDirectory, IsNoneAfterMemoryRanOutForItsOwnText) {
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_EQ(set_cachedir_without_memory(qal_utils_get_cachedir()), QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
}

TEST(CacheDirectory, CanBeSetAgainAfterMemoryRanOut) {
  ASSERT_EQ(set_cachedir_without_memory("/cache"), QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_STREQ(qal_utils_get_cachedir(), "/cache");
  qal_utils_done();
}

TEST(CacheDirectory, NeedsNoMemoryToBeForgotten) {
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  EXPECT_EQ(set_cachedir_without_memory(nullptr), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
}

}  // namespace

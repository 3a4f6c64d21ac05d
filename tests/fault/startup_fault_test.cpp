// Start-up step by step, when a step fails, and when memory is short. malloc and the steps are
// replaced at link time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/startup.h>
#include <qal/thread.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "support/child.hpp"
#include "support/fault.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::test::fail_all;
using qal::test::Fault;
using qal::test::in_new_process;
using qal::test::LogCapture;

Fault memory;

std::vector<std::string> steps;      // taken so far
int answer_of_threads_part = 0;      // of the platform's part of the thread layer
int answer_of_ids_and_lists = 0;     // where it is not 0, ids and lists are not started
std::function<void()> at_ids;        // called once, when the ids are started
std::vector<std::string> cachedirs;  // what the cache directory was in the first three steps

void note_cachedir() {
  const char *const cachedir = qal_utils_get_cachedir();
  cachedirs.emplace_back(cachedir ? cachedir : "none");
}

}  // namespace

extern "C" {
int __real_qal_uid_init();
int __wrap_qal_uid_init() {
  note_cachedir();
  steps.emplace_back("ids");
  if (at_ids) std::exchange(at_ids, nullptr)();
  return answer_of_ids_and_lists != 0 ? answer_of_ids_and_lists : __real_qal_uid_init();
}

int __real_qal_plist_pool_create(std::uint32_t headers, std::uint32_t nodes);
int __wrap_qal_plist_pool_create(std::uint32_t headers, std::uint32_t nodes) {
  note_cachedir();
  steps.push_back("lists " + std::to_string(headers) + " " + std::to_string(nodes));
  return answer_of_ids_and_lists != 0 ? answer_of_ids_and_lists
                                      : __real_qal_plist_pool_create(headers, nodes);
}

int __real_qal_plist_pool_destroy();
int __wrap_qal_plist_pool_destroy() {
  steps.emplace_back("end of lists");
  return __real_qal_plist_pool_destroy();
}

int __real_qal_thread_init();
int __wrap_qal_thread_init() {
  note_cachedir();
  steps.emplace_back("threads");
  return __real_qal_thread_init();
}

int __wrap_qal_thread_init_sys() {
  steps.emplace_back("the platform's part");
  return answer_of_threads_part;
}

int __real_qal_thread_setconcurrency(int level);
int __wrap_qal_thread_setconcurrency(int level) {
  steps.push_back("concurrency " + std::to_string(level));
  return __real_qal_thread_setconcurrency(level);
}

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) { return memory.strikes() ? nullptr : __real_malloc(size); }
}

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

constexpr int threads_failed = 5;

// Only the first start of a process does anything.
void in_fresh_process(const std::function<void()> &body) {
  in_new_process([&body] {
    const LogCapture log;
    body();
    EXPECT_EQ(log.text(), "");
  });
}

TEST(StartupSteps, AreTakenInOrder) {
  in_fresh_process([] {
    EXPECT_EQ(qal_utils_set_cachedir("/early"), QAL_STATUS_OK);
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_THAT(steps, ElementsAre("ids", "lists 32 256", "threads", "the platform's part",
                                   "concurrency 256"));
    EXPECT_THAT(cachedirs, ElementsAre("/early", "/early", "none"));
  });
}

TEST(StartupSteps, AreTakenOnce) {
  in_fresh_process([] {
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    steps.clear();
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_THAT(steps, IsEmpty());
  });
}

TEST(StartupSteps, AreNotTakenAgainMeanwhile) {
  in_fresh_process([] {
    at_ids = [] {
      EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
      EXPECT_THAT(steps, ElementsAre("ids"));
    };
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_THAT(steps, ElementsAre("ids", "lists 32 256", "threads", "the platform's part",
                                   "concurrency 256"));
  });
}

TEST(StartupSteps, EndWhereTheThreadLayerDoesNotStart) {
  for (const int answer : {1, -1, 99}) {
    in_fresh_process([answer] {
      answer_of_threads_part = answer;
      EXPECT_EQ(qal_utils_init(), threads_failed);
      EXPECT_THAT(steps, ElementsAre("ids", "lists 32 256", "threads", "the platform's part"));
    });
  }
}

// Deliberate: a start that failed is never tried again, and the next call says that all is well.
TEST(StartupSteps, AreNotRepeatedAfterAFailure) {
  in_fresh_process([] {
    answer_of_threads_part = 1;
    EXPECT_EQ(qal_utils_init(), threads_failed);
    steps.clear();
    answer_of_threads_part = 0;
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_THAT(steps, IsEmpty());
  });
}

TEST(StartupSteps, GoOnWithoutIdsAndLists) {
  in_fresh_process([] {
    answer_of_ids_and_lists = 2;
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_THAT(steps, ElementsAre("ids", "lists 32 256", "threads", "the platform's part",
                                   "concurrency 256"));
  });
}

TEST(StartupSteps, AreUndoneForTheListsAlone) {
  in_fresh_process([] {
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
    steps.clear();
    EXPECT_EQ(qal_utils_done(), QAL_STATUS_OK);
    EXPECT_THAT(steps, ElementsAre("end of lists"));
    EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
    steps.clear();
    EXPECT_EQ(qal_utils_init(), QAL_STATUS_OK);
    EXPECT_THAT(steps, IsEmpty());
  });
}

TEST(ThreadLayerStart, HandsTheAnswerOfThePlatformsPartOn) {
  for (const int answer : {1, -1, 99}) {
    in_fresh_process([answer] {
      answer_of_threads_part = answer;
      EXPECT_EQ(qal_thread_init(), answer);
      EXPECT_EQ(qal_thread_index(), 0);
      const int main_thread = 0;
      int result = -2;
      EXPECT_EQ(qal_thread_join(&main_thread, &result), -1);
      EXPECT_EQ(result, 0);  // its slot is claimed only after that part
    });
  }
}

int set_cachedir_without_memory(const char *path) {
  memory = fail_all(ENOMEM);
  const int result = qal_utils_set_cachedir(path);
  memory = {};
  return result;
}

TEST(CacheDirectory, IsNoneAfterMemoryRanOut) {
  ASSERT_EQ(qal_utils_set_cachedir("/cache"), QAL_STATUS_OK);
  const LogCapture log;
  EXPECT_EQ(set_cachedir_without_memory("/other"), QAL_STATUS_NO_MEMORY);
  EXPECT_EQ(qal_utils_get_cachedir(), nullptr);
  EXPECT_THAT(log.text(), EndsWith("ERROR: qal_utils_set_cachedir: Memory allocation failed.\n"));
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

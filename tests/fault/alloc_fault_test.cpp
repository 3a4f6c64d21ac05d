// What happens when memory is short.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/alloc.h>
#include <qal/barrier.h>
#include <qal/logger.h>
#include <qal/temp_mem.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/fault.hpp"
#include "support/log_capture.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::allocation_report;
using qal::test::fail_nth;
using qal::test::Fault;
using qal::test::LogCapture;
using qal::test::run_together;
using qal::test::Watchdog;

// Each thread has its own, so that threads can fail at once.
thread_local Fault allocations;
thread_local void *last_block = nullptr;
thread_local std::size_t last_size = 0;

}  // namespace

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);

void *__wrap_malloc(std::size_t size) {
  last_size = size;
  if (allocations.strikes()) return nullptr;
  return last_block = __real_malloc(size);
}
void *__wrap_calloc(std::size_t count, std::size_t size) {
  return allocations.strikes() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *block, std::size_t size) {
  return allocations.strikes() ? nullptr : __real_realloc(block, size);
}
}

namespace {

using testing::IsEmpty;

// Logs like LogCapture but without allocating, so that nothing else is counted.
int delivered_lines = 0;
void count_line(void *, const char *, ...) { ++delivered_lines; }

// Counts as well. Its stream is the caller's variable, which must be null by then.
void expect_null(void *variable, const char *, ...) {
  ++delivered_lines;
  EXPECT_EQ(*static_cast<void **>(variable), nullptr);
}

TEST(AllocMallocFault, ReportsFourLinesAndLeavesNull) {
  const LogCapture log;
  int unrelated = 0;
  void *block = &unrelated;
  allocations = fail_nth(1, ENOMEM);
  qal_malloc("my label", static_cast<void *>(&block), 4096, 77, "some/file");
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(log.lines(), allocation_report("QAL_MALLOC", 4096, 77, "some/file", "my label"));
}

TEST(AllocMallocFault, ClearsThePointerBeforeItReports) {
  int unrelated = 0;
  void *block = &unrelated;
  delivered_lines = 0;
  qal_logger_init(&block, &expect_null, nullptr, nullptr);
  allocations = fail_nth(1, ENOMEM);
  QAL_MALLOC("label", block, 1);
  qal_logger_done();
  EXPECT_EQ(delivered_lines, 4);
}

TEST(AllocMallocFault, ShowsTheReasonThatTheSystemGives) {
  const LogCapture log;
  char *block = nullptr;
  allocations = fail_nth(1, EAGAIN);
  QAL_MALLOC("label", block, 1);
  EXPECT_EQ(errno, EAGAIN);
  ASSERT_EQ(log.lines().size(), 4U);
  EXPECT_EQ(log.lines()[0],
            "ERROR: Resource temporarily unavailable: " + std::to_string(EAGAIN) + "\n");
}

TEST(AllocMallocFault, ShowsWhatTheSystemSaysOfAnErrorThatItDoesNotKnow) {
  const LogCapture log;
  char *block = nullptr;
  allocations = fail_nth(1, 12345);
  QAL_MALLOC("label", block, 1);
  ASSERT_EQ(log.lines().size(), 4U);
  EXPECT_EQ(log.lines()[0], std::string("ERROR: ") + std::strerror(12345) + ": 12345\n");
}

TEST(AllocMallocFault, IsSilentWithoutAHost) {
  char *block = nullptr;
  allocations = fail_nth(1, ENOMEM);
  QAL_MALLOC("label", block, 1);
  EXPECT_EQ(block, nullptr);
}

// Deliberate: the size of a failed request is shown as a 32-bit int.
TEST(AllocMallocFault, ShowsSizesOf2GiBAndMoreWrapped) {
  const struct {
    uint64_t size;
    const char *shown;
  } cases[] = {{2147483647U, "2147483647"},
               {2147483648U, "-2147483648"},
               {4294967295U, "-1"},
               {4294967296U + 5, "5"}};
  for (const auto &[size, shown] : cases) {
    const LogCapture log;
    char *block = nullptr;
    allocations = fail_nth(1, ENOMEM);
    QAL_MALLOC("label", block, size);
    ASSERT_EQ(log.lines().size(), 4U);
    EXPECT_EQ(log.lines()[1],
              std::string("ERROR: QAL_MALLOC: Memory allocation (size ") + shown + ") failed:\n");
  }
}

TEST(AllocMallocFault, NamesThePlaceOfTheMacroCall) {
  const LogCapture log;
  char *block = nullptr;
  allocations = fail_nth(1, ENOMEM);
  const int line = __LINE__ + 1;
  QAL_MALLOC("label", block, 1);
  ASSERT_EQ(log.lines().size(), 4U);
  EXPECT_EQ(log.lines()[2],
            "ERROR: At line " + std::to_string(line) + " in file " + __FILE__ + "\n");
}

constexpr int threads = 4;
QalThreadBarrier all_reporting;
thread_local std::vector<std::string> own_lines;

// Holds each thread in its report until all of them have begun theirs.
void keep_own_line(void *, const char *line, ...) {
  own_lines.emplace_back(line);
  if (own_lines.size() == 1) qal_thread_barrier(&all_reporting, threads);
}

void fail_and_expect_own_report(int number) {
  const std::string label = "label " + std::to_string(number);
  const std::string file = "file " + std::to_string(number);
  void *block = nullptr;
  allocations = fail_nth(1, ENOMEM);
  qal_malloc(label.c_str(), static_cast<void *>(&block), 100U + static_cast<unsigned>(number),
             200 + number, file.c_str());
  EXPECT_EQ(own_lines, allocation_report("QAL_MALLOC", 100 + number, 200 + number, file, label));
}

TEST(AllocMallocFault, IsReportedByEachOfSeveralThreadsInItsOwnWords) {
  const Watchdog watchdog;
  qal_logger_init(nullptr, &keep_own_line, nullptr, nullptr);
  ASSERT_EQ(qal_thread_init(), 0);
  ASSERT_EQ(qal_thread_barrier_init(&all_reporting), 0);
  run_together(threads, &fail_and_expect_own_report);
  EXPECT_EQ(qal_thread_barrier_destroy(&all_reporting), 0);
  qal_logger_done();
}

TEST(AllocReallocFault, OfANullPointerReportsAsMallocDoes) {
  const LogCapture log;
  char *block = nullptr;
  allocations = fail_nth(1, ENOMEM);
  qal_realloc("my label", static_cast<void *>(&block), 12, 5, "f");
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(log.lines(), allocation_report("QAL_MALLOC", 12, 5, "f", "my label"));
}

// Deliberate: the caller's pointer becomes null although the old block still exists.
TEST(AllocReallocFault, LosesTheOldBlock) {
  const LogCapture log;
  char *block = nullptr;
  QAL_MALLOC("label", block, 6);
  std::memcpy(block, "hello", 6);
  char *const kept = block;
  allocations = fail_nth(1, ENOMEM);
  qal_realloc("my label", static_cast<void *>(&block), 24, 9, "f");
  EXPECT_EQ(block, nullptr);
  EXPECT_STREQ(kept, "hello");
  EXPECT_EQ(log.lines(), allocation_report("QAL_REALLOC", 24, 9, "f", "my label"));
  QAL_FREE(kept);
}

TEST(AllocReallocFault, ClearsThePointerBeforeItReports) {
  void *block = nullptr;
  QAL_MALLOC("label", block, 6);
  void *const kept = block;
  delivered_lines = 0;
  qal_logger_init(&block, &expect_null, nullptr, nullptr);
  allocations = fail_nth(1, ENOMEM);
  QAL_REALLOC("label", block, 24);
  qal_logger_done();
  EXPECT_EQ(delivered_lines, 4);
  QAL_FREE(kept);
}

TEST(AllocReallocFault, ShowsSizesOutsideAnIntWrapped) {
  const struct {
    int64_t size;
    const char *shown;
  } cases[] = {
      {2147483647, "2147483647"}, {2147483648, "-2147483648"}, {4294967301, "5"}, {-1, "-1"}};
  for (const auto &[size, shown] : cases) {
    const LogCapture log;
    char *block = nullptr;
    QAL_MALLOC("label", block, 6);
    char *const kept = block;
    allocations = fail_nth(1, ENOMEM);
    QAL_REALLOC("label", block, size);
    EXPECT_EQ(block, nullptr);
    ASSERT_EQ(log.lines().size(), 4U);
    EXPECT_EQ(log.lines()[1],
              std::string("ERROR: QAL_REALLOC: Memory allocation (size ") + shown + ") failed:\n");
    QAL_FREE(kept);
  }
}

TEST(AllocReallocFault, AsksForANegativeSizeAsForOneThatNoMachineHas) {
  char *block = nullptr;
  delivered_lines = 0;
  qal_logger_init(nullptr, &count_line, nullptr, nullptr);
  allocations = fail_nth(1, ENOMEM);
  QAL_REALLOC("label", block, -1);
  qal_logger_done();
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(last_size, SIZE_MAX);
  EXPECT_EQ(delivered_lines, 4);
}

TEST(AllocReallocFault, NeverAsksTheSystemToResizeToNothing) {
  char *block = nullptr;
  QAL_MALLOC("label", block, 6);
  const int before = allocations.calls;
  QAL_REALLOC("label", block, 0);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(allocations.calls, before);
}

TEST(TempMemAllocFault, NamesTheRecordThatFailed) {
  const LogCapture log;
  allocations = fail_nth(1, ENOMEM);
  EXPECT_EQ(qal_temp_mem_alloc(5000), nullptr);
  EXPECT_EQ(log.lines(), allocation_report("QAL_MALLOC", 32, 153, "utils/libsrc/qal_temp_mem",
                                           "qal tmem segment"));
  EXPECT_EQ(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_Avail, nullptr);
}

// Deliberate: the record of a block that could not be had is lost.
TEST(TempMemAllocFault, NamesTheBlockThatFailedAndLosesItsRecord) {
  const LogCapture log;
  allocations = fail_nth(2, ENOMEM);
  EXPECT_EQ(qal_temp_mem_alloc(5000), nullptr);
  void *const record = last_block;
  EXPECT_EQ(log.lines(), allocation_report("QAL_MALLOC", 5000, 160, "utils/libsrc/qal_temp_mem",
                                           "qal tmem segment mptr"));
  EXPECT_EQ(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_Avail, nullptr);
  std::free(record);  // still allocated
}

TEST(TempMemAllocFault, AsksForTheEffectiveSize) {
  const LogCapture log;
  allocations = fail_nth(2, ENOMEM);
  EXPECT_EQ(qal_temp_mem_alloc(-5), nullptr);
  void *const record = last_block;
  EXPECT_EQ(log.lines()[1], "ERROR: QAL_MALLOC: Memory allocation (size 100) failed:\n");
  std::free(record);
}

TEST(TempMemAllocFault, LeavesTheListsAsTheyWere) {
  void *available = qal_temp_mem_alloc(200);
  void *in_use = qal_temp_mem_alloc(300);
  qal_temp_mem_release(available);
  allocations = fail_nth(1, ENOMEM);
  EXPECT_EQ(qal_temp_mem_alloc(400), nullptr);
  ASSERT_NE(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_InUse->mptr, in_use);
  EXPECT_EQ(Tmem_InUse->next, nullptr);
  EXPECT_EQ(Tmem_Avail->mptr, available);
  EXPECT_EQ(Tmem_Avail->next, nullptr);
  qal_temp_mem_free_all();
}

// Deliberate: the segment stays in use without a block.
TEST(TempMemResizeFault, KeepsTheSegmentWithoutABlock) {
  const LogCapture log;
  void *const block = qal_temp_mem_alloc(200);
  allocations = fail_nth(1, ENOMEM);
  EXPECT_EQ(qal_temp_mem_resize(block, 9000), nullptr);
  EXPECT_EQ(log.lines(), allocation_report("QAL_REALLOC", 9000, 333, "utils/libsrc/qal_temp_mem",
                                           "qal tmem segment mptr"));
  ASSERT_NE(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_InUse->mptr, nullptr);
  EXPECT_EQ(Tmem_InUse->size, 200);
  EXPECT_EQ(Tmem_InUse->requested, 200);
  EXPECT_EQ(Tmem_InUse->next, nullptr);
  EXPECT_EQ(qal_temp_mem_free(nullptr), 0);
  EXPECT_EQ(Tmem_InUse, nullptr);
  EXPECT_EQ(qal_temp_mem_free(nullptr), 1);
  std::free(block);
}

TEST(TempMemResizeFault, AsksForNothingWhenTheBlockIsLargeEnough) {
  void *const block = qal_temp_mem_alloc(200);
  const int before = allocations.calls;
  EXPECT_EQ(qal_temp_mem_resize(block, 200), block);
  EXPECT_EQ(qal_temp_mem_resize(block, 199), block);
  EXPECT_EQ(allocations.calls, before);
  qal_temp_mem_free_all();
}

// Such a segment that is still in use joins the released ones first, whose smallest goes.
TEST(TempMemResizeFault, LetsTheSmallestSegmentWithoutABlockBeFreedFirst) {
  for (const bool smaller_is_released : {true, false}) {
    void *const smaller = qal_temp_mem_alloc(200);
    void *const larger = qal_temp_mem_alloc(300);
    allocations = fail_nth(1, ENOMEM);
    EXPECT_EQ(qal_temp_mem_resize(smaller_is_released ? smaller : larger, 9000), nullptr);
    EXPECT_EQ(qal_temp_mem_release(nullptr), 0);
    allocations = fail_nth(1, ENOMEM);
    EXPECT_EQ(qal_temp_mem_resize(smaller_is_released ? larger : smaller, 9000), nullptr);
    EXPECT_EQ(qal_temp_mem_free(nullptr), 0);
    EXPECT_EQ(Tmem_InUse, nullptr);
    ASSERT_NE(Tmem_Avail, nullptr);
    EXPECT_EQ(Tmem_Avail->size, 300);
    EXPECT_EQ(Tmem_Avail->mptr, nullptr);
    EXPECT_EQ(Tmem_Avail->next, nullptr);
    EXPECT_EQ(qal_temp_mem_free(nullptr), 0);
    EXPECT_EQ(qal_temp_mem_free(nullptr), 1);
    std::free(smaller);
    std::free(larger);
  }
}

TEST(TempMemResizeFault, LetsFreeAllRemoveSegmentsWithoutABlock) {
  void *const first = qal_temp_mem_alloc(200);
  void *const second = qal_temp_mem_alloc(300);
  qal_temp_mem_alloc(400);
  for (void *const block : {first, second}) {
    allocations = fail_nth(1, ENOMEM);
    EXPECT_EQ(qal_temp_mem_resize(block, 9000), nullptr);
  }
  EXPECT_EQ(qal_temp_mem_free_all(), 0);
  EXPECT_EQ(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_Avail, nullptr);
  std::free(first);
  std::free(second);
}

// Deliberate: such a segment is kept for reuse like any other, and has no block to hand out.
TEST(TempMemResizeFault, LetsASegmentWithoutABlockBeReleasedAndHandedOut) {
  void *const lost = qal_temp_mem_alloc(200);
  allocations = fail_nth(1, ENOMEM);
  qal_temp_mem_resize(lost, 9000);
  EXPECT_EQ(qal_temp_mem_release(nullptr), 0);
  const LogCapture log;
  EXPECT_EQ(qal_temp_mem_alloc(150), nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
  ASSERT_NE(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_InUse->requested, 150);
  EXPECT_EQ(Tmem_Avail, nullptr);
  qal_temp_mem_free_all();
  std::free(lost);
}

TEST(TempMemResizeFault, MakesANewBlockForTheSegmentWithoutOne) {
  void *const lost = qal_temp_mem_alloc(200);
  allocations = fail_nth(1, ENOMEM);
  qal_temp_mem_resize(lost, 9000);
  EXPECT_EQ(qal_temp_mem_resize(nullptr, 100), nullptr);  // its size is still 200
  void *const block = qal_temp_mem_resize(nullptr, 9000);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(Tmem_InUse->mptr, block);
  EXPECT_EQ(Tmem_InUse->size, 9000);
  qal_temp_mem_free_all();
  std::free(lost);
}

TEST(LoggerFault, AllocatesNothingForALine) {
  const std::string word(3000, 'w');
  delivered_lines = 0;
  qal_logger_init(nullptr, &count_line, nullptr, &count_line);
  qal_logger_time_stamp(1);
  qal_info("the time zone is read by the first stamp\n");
  const int before = allocations.calls;
  qal_error("%s %d %f\n", word.c_str(), INT_MAX, 0.125);
  qal_log("%s %d %f\n", word.c_str(), INT_MAX, 0.125);
  EXPECT_EQ(allocations.calls, before);
  EXPECT_EQ(delivered_lines, 3);
  qal_logger_time_stamp(0);
  qal_logger_done();
}

TEST(LoggerScrubFault, AnswersNullInSilence) {
  const LogCapture log;
  allocations = fail_nth(1, ENOMEM);
  EXPECT_EQ(qal_scrub_format_string("100%"), nullptr);
  EXPECT_EQ(allocations.calls, 1);
  EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/alloc.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "support/log_capture.hpp"

namespace {

using qal::test::LogCapture;
using testing::IsEmpty;

TEST(AllocMalloc, WritesTheBlockIntoTheCallersPointer) {
  const LogCapture log;
  char *block = nullptr;
  qal_malloc("label", static_cast<void *>(&block), 64, 1, "file");
  ASSERT_NE(block, nullptr);
  std::memset(block, 'x', 64);
  qal_free(block, 1, "file");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(AllocMalloc, GivesNothingForNoBytesAndPrintsNothing) {
  const LogCapture log;
  int unrelated = 0;
  void *block = &unrelated;
  qal_malloc("label", static_cast<void *>(&block), 0, 1, "file");
  EXPECT_EQ(block, nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(AllocMalloc, ServesPointersOfAnyType) {
  struct Record {
    int64_t number;
    double figure;
  };
  Record *record = nullptr;
  QAL_MALLOC("record", record, sizeof *record);
  ASSERT_NE(record, nullptr);
  *record = {7, 0.5};
  EXPECT_EQ(record->number, 7);
  QAL_FREE(record);
}

TEST(AllocMalloc, ReplacesWhatThePointerHeld) {
  char *first = nullptr;
  QAL_MALLOC("label", first, 8);
  char *variable = first;
  QAL_MALLOC("label", variable, 8);
  EXPECT_NE(variable, first);
  QAL_FREE(first);
  QAL_FREE(variable);
}

TEST(AllocRealloc, MakesABlockForANullPointer) {
  const LogCapture log;
  char *block = nullptr;
  QAL_REALLOC("label", block, 32);
  ASSERT_NE(block, nullptr);
  std::memset(block, 'x', 32);
  QAL_FREE(block);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(AllocRealloc, KeepsTheContentWhenABlockGrowsOrShrinks) {
  char *block = nullptr;
  QAL_MALLOC("label", block, 6);
  std::memcpy(block, "hello", 6);
  QAL_REALLOC("label", block, 100'000);
  ASSERT_NE(block, nullptr);
  EXPECT_STREQ(block, "hello");
  std::memset(block + 6, 'x', 100'000 - 6);
  QAL_REALLOC("label", block, 3);
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(std::memcmp(block, "hel", 3), 0);
  QAL_FREE(block);
}

TEST(AllocRealloc, FreesTheBlockForNoBytes) {
  const LogCapture log;
  char *block = nullptr;
  QAL_MALLOC("label", block, 32);
  QAL_REALLOC("label", block, 0);
  EXPECT_EQ(block, nullptr);  // the leak checker knows whether it was freed
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(AllocRealloc, DoesNothingForANullPointerAndNoBytes) {
  const LogCapture log;
  char *block = nullptr;
  QAL_REALLOC("label", block, 0);
  EXPECT_EQ(block, nullptr);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(AllocFree, LeavesTheCallersVariableAlone) {
  char *block = nullptr;
  QAL_MALLOC("label", block, 8);
  const auto before = reinterpret_cast<std::uintptr_t>(block);
  QAL_FREE(block);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block), before);
}

TEST(AllocFree, AcceptsNull) {
  qal_free(nullptr, 0, nullptr);
  QAL_FREE(nullptr);
}

TEST(AllocFree, ReleasesBlocksOfTheCLibrary) {
  QAL_FREE(std::malloc(16));
  char *block = nullptr;
  QAL_MALLOC("label", block, 16);
  std::free(block);
}

}  // namespace

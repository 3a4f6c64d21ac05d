#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/temp_mem.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/child.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::test::LogCapture;
using qal::test::run_in_child;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<void *> blocks(const QalTempSegment *segment) {
  std::vector<void *> all;
  for (; segment; segment = segment->next) all.push_back(segment->mptr);
  return all;
}

// Frees everything after each case, so that the leak checker finds what the library itself lost.
class TempMem : public testing::Test {
 protected:
  ~TempMem() override { qal_temp_mem_free_all(); }
};
using TempMemAlloc = TempMem;
using TempMemRelease = TempMem;
using TempMemResize = TempMem;
using TempMemFree = TempMem;
using TempMemDisplay = TempMem;

void *released(int64_t size) {
  void *block = qal_temp_mem_alloc(size);
  qal_temp_mem_release(block);
  return block;
}

std::string text_of(const char *list, int index, const void *block, const char *sizes) {
  char line[200];
  std::snprintf(line, sizeof line, "%s[%d] (%p) = %s\n", list, index, block, sizes);
  return line;
}

TEST_F(TempMemAlloc, StartsWithEmptyLists) {
  EXPECT_EQ(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_Avail, nullptr);
}

TEST_F(TempMemAlloc, HandsOutABlockOfTheSizeAskedFor) {
  void *block = qal_temp_mem_alloc(5000);
  ASSERT_NE(block, nullptr);
  std::memset(block, 'x', 5000);
  ASSERT_NE(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_InUse->mptr, block);
  EXPECT_EQ(Tmem_InUse->size, 5000);
  EXPECT_EQ(Tmem_InUse->requested, 5000);
  EXPECT_EQ(Tmem_InUse->next, nullptr);
}

TEST_F(TempMemAlloc, KeepsBlocksInTheOrderOfHandOut) {
  void *a = qal_temp_mem_alloc(300);
  void *b = qal_temp_mem_alloc(100);
  void *c = qal_temp_mem_alloc(200);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(a, b, c));
}

TEST_F(TempMemAlloc, GivesAtLeast100Bytes) {
  for (const int64_t size : {INT64_MIN, int64_t{-5}, int64_t{0}, int64_t{1}, int64_t{99}}) {
    void *block = qal_temp_mem_alloc(size);
    ASSERT_NE(block, nullptr);
    std::memset(block, 'x', 100);
    EXPECT_EQ(Tmem_InUse->size, 100);
    EXPECT_EQ(Tmem_InUse->requested, size);
    qal_temp_mem_free_all();
  }
}

TEST_F(TempMemAlloc, GivesWhatIsAskedForFrom100Bytes) {
  qal_temp_mem_alloc(100);
  qal_temp_mem_alloc(101);
  EXPECT_EQ(Tmem_InUse->size, 100);
  EXPECT_EQ(Tmem_InUse->next->size, 101);
}

TEST_F(TempMemAlloc, ReusesAReleasedBlockWhole) {
  void *block = released(900'000);
  EXPECT_EQ(qal_temp_mem_alloc(7), block);
  EXPECT_EQ(Tmem_InUse->size, 900'000);
  EXPECT_EQ(Tmem_InUse->requested, 7);
  EXPECT_EQ(Tmem_Avail, nullptr);
}

TEST_F(TempMemAlloc, ReusesOnlyBlocksThatAreLargeEnough) {
  void *block = released(300);
  EXPECT_NE(qal_temp_mem_alloc(301), block);
  EXPECT_EQ(qal_temp_mem_alloc(300), block);
}

TEST_F(TempMemAlloc, TakesTheBestFit) {
  void *small = qal_temp_mem_alloc(200);
  void *large = qal_temp_mem_alloc(400);
  void *middle = qal_temp_mem_alloc(300);
  for (void *block : {large, small, middle}) qal_temp_mem_release(block);
  EXPECT_EQ(qal_temp_mem_alloc(250), middle);
  EXPECT_THAT(blocks(Tmem_Avail), ElementsAre(small, large));
}

TEST_F(TempMemAlloc, TakesTheOneReleasedLastAmongEqualSizes) {
  void *a = qal_temp_mem_alloc(300);
  void *b = qal_temp_mem_alloc(300);
  qal_temp_mem_release(b);
  qal_temp_mem_release(a);
  EXPECT_EQ(qal_temp_mem_alloc(250), a);
  EXPECT_EQ(qal_temp_mem_alloc(250), b);
}

TEST_F(TempMemAlloc, AppendsAReusedBlockBehindThoseInUse) {
  void *a = qal_temp_mem_alloc(300);
  void *b = qal_temp_mem_alloc(200);
  void *c = qal_temp_mem_alloc(100);
  qal_temp_mem_release(a);
  qal_temp_mem_alloc(300);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(b, c, a));
}

TEST_F(TempMemAlloc, PassesOverALargeBlockForLessThanAQuarterOfIt) {
  void *large = released(2'000'000);
  EXPECT_NE(qal_temp_mem_alloc(499'999), large);
  EXPECT_THAT(blocks(Tmem_Avail), ElementsAre(large));
  EXPECT_EQ(Tmem_InUse->size, 499'999);
}

TEST_F(TempMemAlloc, ReusesALargeBlockForAQuarterOfIt) {
  void *large = released(2'000'000);
  EXPECT_EQ(qal_temp_mem_alloc(500'000), large);
  EXPECT_EQ(Tmem_InUse->size, 2'000'000);
}

TEST_F(TempMemAlloc, ReusesABlockOfOneMillionBytesForAnything) {
  void *block = released(1'000'000);
  EXPECT_EQ(qal_temp_mem_alloc(1), block);
}

TEST_F(TempMemAlloc, PassesOverABlockJustAboveOneMillionBytes) {
  void *block = released(1'000'001);
  EXPECT_NE(qal_temp_mem_alloc(250'000), block);  // a quarter is 250,000.25
  EXPECT_EQ(qal_temp_mem_alloc(250'001), block);
}

TEST_F(TempMemAlloc, ComparesAQuarterWithTheRoundedRequest) {
  void *block = released(1'000'004);
  EXPECT_NE(qal_temp_mem_alloc(-1), block);
  EXPECT_EQ(Tmem_InUse->size, 100);
}

TEST_F(TempMemAlloc, ComparesAQuarterInDoublePrecision) {
  // A quarter of this is one byte above the request, which double precision cannot tell apart.
  constexpr int64_t request = int64_t{1} << 60;
  int block = 0;
  QalTempSegment segment{4 * request + 4, 0, &block, nullptr};
  Tmem_Avail = &segment;
  EXPECT_EQ(qal_temp_mem_alloc(request), &block);
  EXPECT_EQ(Tmem_InUse, &segment);
  Tmem_InUse = Tmem_Avail = nullptr;
}

TEST_F(TempMemRelease, FindsOnlyBlocksInUse) {
  const LogCapture log;
  int unknown = 0;
  void *block = qal_temp_mem_alloc(200);
  EXPECT_EQ(qal_temp_mem_release(&unknown), 1);
  EXPECT_EQ(qal_temp_mem_release(nullptr), 1);
  EXPECT_EQ(qal_temp_mem_release(static_cast<char *>(block) + 1), 1);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(block));
  EXPECT_EQ(qal_temp_mem_release(block), 0);
  EXPECT_EQ(qal_temp_mem_release(block), 1);
  EXPECT_THAT(blocks(Tmem_Avail), ElementsAre(block));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TempMemRelease, KeepsTheBlockAndItsRecord) {
  void *block = qal_temp_mem_alloc(200);
  qal_temp_mem_resize(block, 150);
  std::memset(block, 'x', 200);
  qal_temp_mem_release(block);
  EXPECT_EQ(Tmem_InUse, nullptr);
  ASSERT_NE(Tmem_Avail, nullptr);
  EXPECT_EQ(Tmem_Avail->mptr, block);
  EXPECT_EQ(Tmem_Avail->size, 200);
  EXPECT_EQ(Tmem_Avail->requested, 150);
  EXPECT_EQ(Tmem_Avail->next, nullptr);
  EXPECT_EQ(static_cast<char *>(block)[199], 'x');
}

TEST_F(TempMemRelease, KeepsSizesAscendingAndTheLatestOfEqualOnesFirst) {
  void *a = qal_temp_mem_alloc(300);
  void *b = qal_temp_mem_alloc(100);
  void *c = qal_temp_mem_alloc(300);
  void *d = qal_temp_mem_alloc(200);
  void *e = qal_temp_mem_alloc(400);
  for (void *block : {a, b, c, d, e}) EXPECT_EQ(qal_temp_mem_release(block), 0);
  EXPECT_THAT(blocks(Tmem_Avail), ElementsAre(b, d, c, a, e));
}

TEST_F(TempMemRelease, OrdersAGrownBlockByWhatItHasNow) {
  void *grown = qal_temp_mem_alloc(100);
  void *other = qal_temp_mem_alloc(200);
  qal_temp_mem_release(other);
  grown = qal_temp_mem_resize(grown, 300);
  qal_temp_mem_release(grown);
  EXPECT_THAT(blocks(Tmem_Avail), ElementsAre(other, grown));
}

TEST_F(TempMemRelease, TakesBlocksFromAnyPlaceOfTheList) {
  void *a = qal_temp_mem_alloc(100);
  void *b = qal_temp_mem_alloc(200);
  void *c = qal_temp_mem_alloc(300);
  qal_temp_mem_release(b);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(a, c));
  qal_temp_mem_release(c);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(a));
  qal_temp_mem_release(a);
  EXPECT_THAT(blocks(Tmem_InUse), IsEmpty());
}

TEST_F(TempMemResize, GrowsTheBlockToExactlyTheNewSize) {
  void *block = qal_temp_mem_alloc(200);
  std::memcpy(block, "hello", 6);
  void *grown = qal_temp_mem_resize(block, 200'001);
  ASSERT_NE(grown, nullptr);
  EXPECT_STREQ(static_cast<char *>(grown), "hello");
  std::memset(grown, 'x', 200'001);
  EXPECT_EQ(Tmem_InUse->mptr, grown);
  EXPECT_EQ(Tmem_InUse->size, 200'001);
  EXPECT_EQ(Tmem_InUse->requested, 200'001);
}

TEST_F(TempMemResize, NeverShrinksTheBlock) {
  void *block = qal_temp_mem_alloc(200);
  for (const int64_t size : {int64_t{200}, int64_t{199}, int64_t{0}, int64_t{-7}}) {
    EXPECT_EQ(qal_temp_mem_resize(block, size), block);
    EXPECT_EQ(Tmem_InUse->size, 200);
    EXPECT_EQ(Tmem_InUse->requested, size);
  }
}

TEST_F(TempMemResize, KeepsTheBlocksPlaceInTheList) {
  void *a = qal_temp_mem_alloc(200);
  void *b = qal_temp_mem_alloc(200);
  void *grown = qal_temp_mem_resize(a, 300'000);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(grown, b));
}

TEST_F(TempMemResize, FindsOnlyBlocksInUse) {
  const LogCapture log;
  int unknown = 0;
  void *block = released(200);
  EXPECT_EQ(qal_temp_mem_resize(block, 100), nullptr);
  EXPECT_EQ(qal_temp_mem_resize(block, 300), nullptr);
  EXPECT_EQ(qal_temp_mem_resize(&unknown, 300), nullptr);
  EXPECT_EQ(qal_temp_mem_resize(nullptr, 300), nullptr);
  EXPECT_EQ(Tmem_Avail->size, 200);
  EXPECT_EQ(Tmem_Avail->requested, 200);
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TempMemFree, FreesABlockInUseOrReleased) {
  void *a = qal_temp_mem_alloc(100);
  void *b = qal_temp_mem_alloc(200);
  void *c = qal_temp_mem_alloc(300);
  qal_temp_mem_release(b);
  EXPECT_EQ(qal_temp_mem_free(a), 0);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(c));
  EXPECT_THAT(blocks(Tmem_Avail), ElementsAre(b));
  EXPECT_EQ(qal_temp_mem_free(b), 0);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(c));
  EXPECT_THAT(blocks(Tmem_Avail), IsEmpty());
}

TEST_F(TempMemFree, FindsNoUnknownBlock) {
  const LogCapture log;
  int unknown = 0;
  void *a = qal_temp_mem_alloc(100);
  void *b = released(200);
  EXPECT_EQ(qal_temp_mem_free(&unknown), 1);
  EXPECT_EQ(qal_temp_mem_free(nullptr), 1);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(a));
  EXPECT_THAT(blocks(Tmem_Avail), ElementsAre(b));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(TempMemFree, FindsABlockOnlyOnce) {
  void *block = qal_temp_mem_alloc(100);
  EXPECT_EQ(qal_temp_mem_free(block), 0);
  EXPECT_EQ(qal_temp_mem_free(block), 1);
}

TEST_F(TempMemFree, OfAllAvailableBlocksLeavesThoseInUse) {
  void *a = qal_temp_mem_alloc(100);
  void *b = qal_temp_mem_alloc(200);
  void *c = qal_temp_mem_alloc(300);
  qal_temp_mem_release(a);
  qal_temp_mem_release(c);
  EXPECT_EQ(qal_temp_mem_free_all_avail(), 0);
  EXPECT_EQ(Tmem_Avail, nullptr);
  EXPECT_THAT(blocks(Tmem_InUse), ElementsAre(b));
  EXPECT_EQ(qal_temp_mem_free_all_avail(), 0);
}

TEST_F(TempMemFree, OfAllBlocksEmptiesBothLists) {
  for (const int64_t size : {0, 100, 200, 300}) qal_temp_mem_alloc(size);
  released(500);
  EXPECT_EQ(qal_temp_mem_free_all(), 0);
  EXPECT_EQ(Tmem_InUse, nullptr);
  EXPECT_EQ(Tmem_Avail, nullptr);
  EXPECT_EQ(qal_temp_mem_free_all(), 0);
}

TEST_F(TempMemDisplay, OfEmptyListsShowsZeroSums) {
  const auto child = run_in_child([] { qal_temp_mem_display(); });
  EXPECT_EQ(child.out, "");
  EXPECT_EQ(child.err,
            "\n-----------------------------b----------------------------\n"
            "\n"
            "      Memory Summary:  InUse =          0 bytes\n"
            "                       Avail =          0 bytes\n"
            "                               ================\n"
            "                       Total =          0 bytes\n"
            "-----------------------------e-----------------------------\n\n");
}

TEST_F(TempMemDisplay, ShowsBothListsAndTheSumsOfTheirSizes) {
  void *a = qal_temp_mem_alloc(0);
  void *b = qal_temp_mem_alloc(2'000'000);
  void *c = qal_temp_mem_alloc(-5);
  void *d = qal_temp_mem_alloc(900'000);
  qal_temp_mem_release(d);
  qal_temp_mem_release(c);
  const auto child = run_in_child([] { qal_temp_mem_display(); });
  EXPECT_EQ(child.err, "\n-----------------------------b----------------------------\n" +
                           text_of("Avail", 0, c, "       100 bytes, (requested -5)") +
                           text_of("Avail", 1, d, "    900000 bytes, (requested 900000)") +
                           "-------\n" + text_of("InUse", 0, a, "       100 bytes, (requested 0)") +
                           text_of("InUse", 1, b, "   2000000 bytes, (requested 2000000)") +
                           "\n"
                           "      Memory Summary:  InUse =    2000100 bytes\n"
                           "                       Avail =     900100 bytes\n"
                           "                               ================\n"
                           "                       Total =    2900200 bytes\n"
                           "-----------------------------e-----------------------------\n\n");
}

TEST_F(TempMemDisplay, SeparatesTheListsOnlyAfterAvailableBlocks) {
  void *a = qal_temp_mem_alloc(900'000);
  const auto in_use_only = run_in_child([] { qal_temp_mem_display(); });
  EXPECT_THAT(in_use_only.err, testing::StartsWith("\n-----------------------------b"
                                                   "----------------------------\nInUse[0] ("));
  qal_temp_mem_release(a);
  const auto available_only = run_in_child([] { qal_temp_mem_display(); });
  EXPECT_THAT(available_only.err,
              testing::HasSubstr("bytes, (requested 900000)\n-------\n\n      Memory Summary"));
}

TEST_F(TempMemDisplay, ShowsAReusedBlockWithItsNewRequest) {
  void *block = released(900'000);
  qal_temp_mem_alloc(100);
  const auto child = run_in_child([] { qal_temp_mem_display(); });
  EXPECT_THAT(child.err,
              testing::HasSubstr(text_of("InUse", 0, block, "    900000 bytes, (requested 100)")));
}

TEST_F(TempMemDisplay, LetsLongSizesWidenTheColumn) {
  const auto child = run_in_child([] {
    QalTempSegment segment{123'456'789'012, 1, nullptr, nullptr};
    Tmem_Avail = &segment;
    qal_temp_mem_display();
    Tmem_Avail = nullptr;
  });
  EXPECT_THAT(child.err, testing::HasSubstr(") = 123456789012 bytes, (requested 1)\n"));
  EXPECT_THAT(child.err, testing::HasSubstr("Total = 123456789012 bytes\n"));
}

}  // namespace

#include <gtest/gtest.h>
#include <qal/mpool.h>

#include <cstdint>

#include "stress.hpp"
#include "support/pool_churn.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::churn;
using qal::test::Exchange;
using qal::test::run_together;
using qal::test::sized;
using qal::test::Stress;

using MpoolStress = Stress;

constexpr int threads = 8;

TEST_F(MpoolStress, SharesOnePoolWithoutSharingAnElement) {
  const int rounds = sized(10'000, 1'000'000);
  QalMpool *pool = qal_mpool_create(16, 32);
  Exchange exchange;
  run_together(threads, [&](int) { EXPECT_EQ(churn(pool, exchange, rounds), 0); });
  uint32_t total = 0;
  const uint32_t free_count = qal_mpool_status(pool, &total, nullptr);
  EXPECT_EQ(total - free_count, exchange.rest().size());
  qal_mpool_destroy(&pool);
  record_count(threads * rounds);
}

}  // namespace

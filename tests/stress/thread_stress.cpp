#include <gtest/gtest.h>
#include <qal/thread.h>

#include <cstddef>
#include <set>
#include <vector>

#include "stress.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::await;
using qal::test::Gate;
using qal::test::sized;
using qal::test::Stress;
using qal::test::Unwinding;

using ThreadStress = Stress;

constexpr std::size_t most_threads = 2047;  // beside the main one

int wait_at(void *gate) {
  static_cast<Gate *>(gate)->wait();
  return qal_thread_self();
}

// As many threads at the gate as there can be; fewer than the most where the system allows fewer.
std::vector<int> start_all(Gate &gate) {
  std::vector<int> indices;
  int index = -1;
  while (qal_thread_create(&index, &wait_at, &gate) == 0) {
    indices.push_back(index);
    index = -1;
  }
  if (index != -1)
    qal_thread_join(&index, nullptr);  // the system started no thread: the slot is to be freed
  return indices;
}

void join_all(const std::vector<int> &indices) {
  for (const int index : indices) {
    int result = -1;
    EXPECT_EQ(qal_thread_join(&index, &result), 0);
    EXPECT_EQ(result, index);
  }
}

TEST_F(ThreadStress, RunsTheMostThreadsAtOnce) {
  const int rounds = sized(1, 10);
  for (int round = 0; round < rounds; ++round) {
    Gate gate;
    const std::vector<int> indices = start_all(gate);
    await([&] { return gate.arrived() == static_cast<int>(indices.size()); });
    gate.open();
    join_all(indices);
    EXPECT_EQ(std::set<int>(indices.begin(), indices.end()).size(), indices.size());
    ASSERT_EQ(indices.size(), most_threads) << "the system allows no more";
  }
  record_count(rounds);
}

int wait_for_good(void *semaphore) {
  const Unwinding unwinding;
  return qal_thread_sema_wait(static_cast<QalThreadSema *>(semaphore));
}

// Every other thread is cancelled as soon as it is started, the others once they wait.
TEST_F(ThreadStress, CancelsAndJoinsOverAndOver) {
  const int rounds = sized(500, 20'000);
  QalThreadSema semaphore;
  ASSERT_EQ(qal_thread_sema_init(&semaphore, 0), 0);
  const auto somebody_waits = [&] {
    qal_thread_mutex_lock(&semaphore.mutex);
    const bool waits = semaphore.waiters == 1;
    qal_thread_mutex_unlock(&semaphore.mutex);
    return waits;
  };
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    int index = 0;
    int result = 0;
    ASSERT_EQ(qal_thread_create(&index, &wait_for_good, &semaphore), 0);
    if (round % 2) await(somebody_waits);
    EXPECT_EQ(qal_thread_cancel(&index), 0);
    EXPECT_EQ(qal_thread_join(&index, &result), 0);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(semaphore.count, 0);
    EXPECT_EQ(semaphore.waiters, 0);
  }
  qal_thread_sema_destroy(&semaphore);
  record_count(rounds);
}

}  // namespace

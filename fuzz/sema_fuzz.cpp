// Groups of waiters at a semaphore. An input is a starting value and a row of rounds: how many
// threads wait, which of them are cancelled, who releases how often, and with what pauses.
#include <qal/thread.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "input.hpp"
#include "require.hpp"
#include "team.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::pause;
using qal::fuzz::require;
using qal::fuzz::team_of;
using qal::fuzz::Watchdog;
using qal::test::Team;

constexpr int most_waiters = 4;

// A round is one group: nobody begins to wait once releases have begun.
struct Round {
  explicit Round(Input &input)
      : waiters(static_cast<int>(input.below(most_waiters)) + 1),
        cancelled_early(input.byte()),
        cancelled_late(input.byte()),
        spare_releases(static_cast<int>(input.below(3))),
        releasers(static_cast<int>(input.below(2)) + 1) {
    for (std::uint8_t &length : pauses) length = input.byte();
  }

  int waiters;
  unsigned cancelled_early;  // a bit for each waiter
  unsigned cancelled_late;   // while others release
  int spare_releases;
  int releasers;
  std::array<std::uint8_t, most_waiters> pauses{};
};

class SemaPlay {
 public:
  explicit SemaPlay(int permits) : permits_(permits) {
    require(qal_thread_sema_init(&sema_, permits) == 0, "a semaphore can be made");
  }
  ~SemaPlay() { require(qal_thread_sema_destroy(&sema_) == 0, "a semaphore can be ended"); }
  SemaPlay(const SemaPlay &) = delete;
  SemaPlay &operator=(const SemaPlay &) = delete;

  void play(const Round &round) {
    passed_ = 0;
    granted_ = permits_;
    const std::function<void(int)> wait = [&](int i) {
      pause(round.pauses[static_cast<std::size_t>(i)]);
      pass();
    };
    Team team = team_of(round.waiters, wait);
    while (count() != permits_ - round.waiters) sched_yield();
    cancel(team, round.cancelled_early);
    for (const auto &member : team) {
      if (round.cancelled_early >> (&member - team.data()) & 1U) member->join();
    }
    const int releases = std::max(0, -count()) + round.spare_releases;
    release_beside(round, releases, [&] { cancel(team, round.cancelled_late); });
    team.clear();
    permits_ += releases - passed_;
    require(count() == permits_, "every permit was used or is left");
    require(sema_.waiters == 0, "nobody of the group is left");
  }

 private:
  int count() {
    qal_thread_mutex_lock(&sema_.mutex);
    const int count = sema_.count;
    qal_thread_mutex_unlock(&sema_.mutex);
    return count;
  }

  void pass() {
    require(qal_thread_sema_wait(&sema_) == 0, "waiting succeeds");
    require(++passed_ <= granted_, "nobody passes without a permit");
  }

  static void cancel(const Team &team, unsigned which) {
    for (const auto &member : team) {
      if ((which >> (&member - team.data()) & 1U) && !member->is_joined()) member->cancel();
    }
  }

  // The releases, made by one or two threads, and something else meanwhile.
  template <typename Other>
  void release_beside(const Round &round, int releases, const Other &other) {
    const std::function<void(int)> release = [&](int i) {
      for (int made = i; made < releases; made += round.releasers) {
        pause(round.pauses[static_cast<std::size_t>(made % most_waiters)]);
        ++granted_;
        require(qal_thread_sema_release(&sema_) == 0, "releasing succeeds");
      }
    };
    const Team team = team_of(round.releasers, release);
    other();
  }

  QalThreadSema sema_{};
  int permits_;                 // while nobody waits; below 0 a debt
  std::atomic<int> granted_{};  // permits there were so far in this round
  std::atomic<int> passed_{};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Watchdog watchdog;
  require(qal_thread_sema_wait(nullptr) == -1, "null has nothing to wait for");
  require(qal_thread_sema_release(nullptr) == -1, "null has no permit to give");
  Input input(data, size);
  SemaPlay semaphore(static_cast<int>(input.below(9)) - 3);
  for (int rounds = 0; input.left() && rounds < 16; ++rounds) semaphore.play(Round(input));
  return 0;
}

// The semaphore's steps as a model, followed through every order in which threads can take them.
// Its mutex makes each step one piece. What the model proves of the steps, the tests of the
// semaphore itself show of the code.
#include <gtest/gtest.h>

#include <algorithm>
#include <compare>
#include <functional>
#include <set>
#include <vector>

namespace {

enum class Place { outside, blocked, woken, inside, gone };

struct Thread {
  Place place = Place::outside;
  int turns = 1;  // waits that it has still to begin
  auto operator<=>(const Thread &) const = default;
};

struct State {
  int count = 0;
  int waiters = 0;
  int releases = 0;  // still to be made by a thread that never waits
  int cancellations = 0;
  int permits = 0;  // given so far and not taken by a thread that passed
  std::vector<Thread> threads;
  auto operator<=>(const State &) const = default;
};

struct Rules {
  bool newcomers = true;   // threads may begin to wait once releases have begun
  bool gives_back = true;  // a thread that passed releases before its next turn
};

class Model {
 public:
  Model(State start, Rules rules) : rules_(rules) { visit(std::move(start)); }

  bool somebody_passed_without_permit() const { return overdrawn_; }
  bool somebody_can_be_left() const { return left_behind_; }

 private:
  void visit(State state) {
    if (!seen_.insert(state).second) return;
    overdrawn_ = overdrawn_ || state.permits < 0;
    bool over = state.releases == 0 || !may_release(state);
    if (!over) release(with(state, [](State &next) { --next.releases; }));
    for (std::size_t i = 0; i < state.threads.size(); ++i) over = step(state, i) && over;
    if (over) left_behind_ = left_behind_ || state.waiters > 0;
  }

  // Follows what thread `i` may do; whether there is nothing it has to.
  bool step(const State &state, std::size_t i) {
    switch (state.threads[i].place) {
      case Place::outside:
        if (state.threads[i].turns == 0) return true;
        begin_wait(state, i);
        return false;
      case Place::blocked:
        wake(state, i);  // without cause, which the platform may do but need not
        if (state.cancellations > 0) cancel(state, i);
        return true;
      case Place::woken:
        wake(state, i);
        return false;
      case Place::inside:
        if (!rules_.gives_back) return true;
        release(moved(state, i, Place::outside));
        return false;
      case Place::gone:
        return true;
    }
    return true;
  }

  template <typename Change>
  static State with(State state, const Change &change) {
    change(state);
    return state;
  }
  static State moved(State state, std::size_t i, Place place) {
    state.threads[i].place = place;
    return state;
  }

  bool may_release(const State &state) const {
    return rules_.newcomers || std::ranges::none_of(state.threads, [](const Thread &thread) {
             return thread.place == Place::outside && thread.turns > 0;
           });
  }

  void begin_wait(State state, std::size_t i) {
    --state.threads[i].turns;
    if (state.count-- >= 1) {
      --state.permits;
      visit(moved(std::move(state), i, Place::inside));
    } else {
      ++state.waiters;
      visit(moved(std::move(state), i, Place::blocked));
    }
  }

  void wake(State state, std::size_t i) {
    if (state.count < 0) {
      visit(moved(std::move(state), i, Place::blocked));
      return;
    }
    --state.waiters;
    --state.permits;
    pass_on(moved(std::move(state), i, Place::inside));
  }

  void cancel(State state, std::size_t i) {
    --state.cancellations;
    --state.waiters;
    ++state.count;
    pass_on(moved(std::move(state), i, Place::gone));
  }

  void release(State state) {
    ++state.permits;
    if (++state.count == 0) {
      signal(state);
    } else {
      visit(std::move(state));
    }
  }

  void pass_on(State state) {
    if (state.count >= 0 && state.waiters >= 1) {
      signal(state);
    } else {
      visit(std::move(state));
    }
  }

  // The platform picks any one of the blocked threads.
  void signal(const State &state) {
    bool heard = false;
    for (std::size_t i = 0; i < state.threads.size(); ++i) {
      if (state.threads[i].place != Place::blocked) continue;
      heard = true;
      visit(moved(state, i, Place::woken));
    }
    if (!heard) visit(state);
  }

  Rules rules_;
  std::set<State> seen_;
  bool overdrawn_ = false;
  bool left_behind_ = false;
};

State with_threads(int threads, int permits) {
  State state;
  state.count = state.permits = permits;
  state.threads.resize(static_cast<std::size_t>(threads));
  return state;
}

constexpr Rules one_group{.newcomers = false, .gives_back = false};
constexpr Rules coming_and_going{.newcomers = true, .gives_back = true};

TEST(SemaModel, LetsNobodyPassWithoutAPermit) {
  for (int threads = 1; threads <= 3; ++threads) {
    for (int permits = 0; permits <= 2; ++permits) {
      State state = with_threads(threads, permits);
      for (auto &thread : state.threads) thread.turns = 2;
      state.releases = 2;
      state.cancellations = 1;
      EXPECT_FALSE(Model(state, coming_and_going).somebody_passed_without_permit());
    }
  }
}

TEST(SemaModel, LetsEveryWaiterOfAGroupPass) {
  for (int threads = 1; threads <= 5; ++threads) {
    for (int permits = 0; permits <= threads; ++permits) {
      State state = with_threads(threads, permits);
      state.releases = threads - permits;
      EXPECT_FALSE(Model(state, one_group).somebody_can_be_left());
    }
  }
}

TEST(SemaModel, LetsTheOthersOfAGroupPassWhoeverIsCancelled) {
  for (int threads = 1; threads <= 4; ++threads) {
    for (int cancellations = 1; cancellations <= threads; ++cancellations) {
      State state = with_threads(threads, 0);
      state.releases = threads;
      state.cancellations = cancellations;
      EXPECT_FALSE(Model(state, one_group).somebody_can_be_left());
    }
  }
}

TEST(SemaModel, LeavesSomebodyWhereReleasesAreMissing) {
  State state = with_threads(3, 0);
  state.releases = 2;
  EXPECT_TRUE(Model(state, one_group).somebody_can_be_left());
}

// Deliberate: the expected counterexample. Two threads take turns with one permit; the one that
// comes back before the other has passed joins it, and nobody is left to release.
TEST(SemaModel, CanBlockTwoThreadsThatTakeTurnsWithoutAPause) {
  State state = with_threads(2, 1);
  EXPECT_FALSE(Model(state, coming_and_going).somebody_can_be_left());
  state.threads[0].turns = 2;
  EXPECT_TRUE(Model(state, coming_and_going).somebody_can_be_left());
}

}  // namespace

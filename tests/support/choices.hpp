// The choices of one run of a schedule, and those of the next.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qal::test {

// The first `free` ways to go on cost nothing, the others a preemption.
struct Choice {
  std::size_t taken;
  std::size_t free;
  std::size_t all;
  int cost() const { return taken < free ? 0 : 1; }
};

// Begins with the choices of a line and goes on by a rule.
class Choices {
 public:
  using Rule = std::function<std::size_t(std::size_t free, std::size_t all)>;

  explicit Choices(Rule rule, std::string_view line = "") : rule_(std::move(rule)) {
    for (const char digit : line) made_.push_back({digits.find(digit), 0, 0});
  }

  void begin_run() { at_ = 0; }

  std::size_t next(std::size_t free, std::size_t all) {
    if (all == 1) return 0;
    if (at_ == made_.size()) made_.push_back({rule_(free, all), free, all});
    Choice &choice = made_[at_++];
    if (choice.all == 0) choice = {choice.taken, free, all};
    fit_ = fit_ && choice.free == free && choice.all == all && choice.taken < all;
    return fit_ ? choice.taken : 0;
  }

  // Whether every choice had the same ways as the earlier run or the given line.
  bool fit() const { return fit_; }
  std::size_t size() const { return made_.size(); }
  void forget() { made_.clear(); }

  // Changes the last choice that can be another one, and forgets those after it. Returns false when
  // all have been tried.
  bool change(int most_preemptions) {
    int spent = 0;
    for (const Choice &choice : made_) spent += choice.cost();
    for (; !made_.empty(); made_.pop_back()) {
      Choice &last = made_.back();
      spent -= last.cost();
      ++last.taken;
      if (last.taken < last.all && spent + last.cost() <= most_preemptions) return true;
    }
    return false;
  }

  std::string line() const {
    std::string line;
    for (const Choice &choice : made_) line += digits[choice.taken];
    return line.substr(0, line.find_last_not_of('0') + 1);
  }

 private:
  static constexpr std::string_view digits = "0123456789abcdefghijklmnopqrstuvwxyz";

  Rule rule_;
  std::vector<Choice> made_;
  std::size_t at_ = 0;
  bool fit_ = true;
};

}  // namespace qal::test

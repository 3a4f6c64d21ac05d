// Scratch memory beside vectors of its blocks. An input is a row of operations, each a byte and its
// arguments.
#include <qal/temp_mem.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "error_text.hpp"
#include "input.hpp"
#include "require.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::printed_by;
using qal::fuzz::require;

struct Block {
  int64_t size, requested;
  void *address;
  bool operator==(const Block &) const = default;
};
using Blocks = std::vector<Block>;

// Both sides of every limit, or any small size.
int64_t any_size(Input &input) {
  constexpr std::array<int64_t, 14> limits{INT64_MIN, -1,        0,         1,        99,
                                           100,       101,       249'999,   250'000,  250'001,
                                           999'999,   1'000'000, 1'000'001, 1'000'004};
  const std::size_t which = input.below(limits.size() + 8);
  return which < limits.size() ? limits[which] : 50 + input.byte() * 4;
}

class Model {
 public:
  void alloc(int64_t size) {
    void *const address = qal_temp_mem_alloc(size);
    require(address, "memory can be had");
    const int64_t least = std::max<int64_t>(size, 100);
    const auto best = first_of_size(least);
    Block block{least, size, address};
    if (best != idle_.end() && !wasteful(*best, least)) {
      require(address == best->address, "the best fit is handed out");
      block.size = best->size;
      idle_.erase(best);
    }
    static_cast<char *>(address)[0] = static_cast<char *>(address)[block.size - 1] = 1;
    in_use_.push_back(block);
  }

  void release(void *address) {
    const auto at = std::ranges::find(in_use_, address, &Block::address);
    const bool known = at != in_use_.end();
    require(qal_temp_mem_release(address) == (known ? 0 : 1), "what is in use can be released");
    if (known) make_idle(at);
  }

  void resize(void *address, int64_t size) {
    const auto at = std::ranges::find(in_use_, address, &Block::address);
    void *const moved = qal_temp_mem_resize(address, size);
    if (at == in_use_.end()) return require(!moved, "what is not in use has no size to change");
    require(moved && (at->size < size || moved == address), "a block only moves to grow");
    *at = {std::max(at->size, size), size, moved};
    static_cast<char *>(moved)[at->size - 1] = 1;
  }

  void free(void *address) {
    const auto has = [=](const Block &block) { return block.address == address; };
    const bool known = std::erase_if(in_use_, has) + std::erase_if(idle_, has) > 0;
    require(qal_temp_mem_free(address) == (known ? 0 : 1), "what exists can be freed");
  }

  void free_idle() {
    require(qal_temp_mem_free_all_avail() == 0, "freeing all succeeds");
    idle_.clear();
  }

  void free_all() {
    require(qal_temp_mem_free_all() == 0, "freeing all succeeds");
    in_use_.clear();
    idle_.clear();
  }

  void display() const {
    require(printed_by(&qal_temp_mem_display) == printed_by([this] { print(); }),
            "both lists are displayed");
  }

  // A block in use, an idle one, or one that is no block.
  void *any_address(Input &input) {
    const std::size_t which = input.below(in_use_.size() + idle_.size() + 1);
    if (which < in_use_.size()) return in_use_[which].address;
    const std::size_t idle = which - in_use_.size();
    return idle < idle_.size() ? idle_[idle].address : this;
  }

  void compare() const {
    require(listed(Tmem_InUse) == in_use_, "in use is what was handed out, the latest last");
    require(listed(Tmem_Avail) == idle_, "idle is what was released, ascending");
  }

 private:
  static bool wasteful(const Block &block, int64_t size) {
    return block.size > 1'000'000 && block.size > 4 * size;
  }

  Blocks::iterator first_of_size(int64_t size) {
    return std::ranges::lower_bound(idle_, size, {}, &Block::size);
  }

  void make_idle(Blocks::iterator at) {
    const Block block = *at;
    in_use_.erase(at);
    idle_.insert(first_of_size(block.size), block);
  }

  static Blocks listed(const QalTempSegment *segment) {
    Blocks blocks;
    for (; segment; segment = segment->next) {
      blocks.push_back({segment->size, segment->requested, segment->mptr});
    }
    return blocks;
  }

  void print() const {
    std::fputs("\n-----------------------------b----------------------------\n", stderr);
    print("Avail", idle_);
    if (!idle_.empty()) std::fputs("-------\n", stderr);
    print("InUse", in_use_);
    const long used = sum(in_use_);
    const long idle = sum(idle_);
    std::fprintf(stderr, "\n      Memory Summary:  InUse = %10ld bytes\n", used);
    std::fprintf(stderr, "                       Avail = %10ld bytes\n", idle);
    std::fputs("                               ================\n", stderr);
    std::fprintf(stderr, "                       Total = %10ld bytes\n", used + idle);
    std::fputs("-----------------------------e-----------------------------\n\n", stderr);
  }

  static void print(const char *name, const Blocks &blocks) {
    int number = 0;
    for (const Block &block : blocks) {
      std::fprintf(stderr, "%s[%d] (%p) = %10ld bytes, (requested %ld)\n", name, number++,
                   block.address, static_cast<long>(block.size),
                   static_cast<long>(block.requested));
    }
  }

  static long sum(const Blocks &blocks) {
    long total = 0;
    for (const Block &block : blocks) total += static_cast<long>(block.size);
    return total;
  }

  Blocks in_use_;
  Blocks idle_;
};

void perform(Model &model, Input &input) {
  switch (input.below(12)) {
    case 0:
      return model.free_all();
    case 1:
      return model.free_idle();
    case 2:
      return model.display();
    case 3:
      return model.free(model.any_address(input));
    case 4:
    case 5:
      return model.resize(model.any_address(input), any_size(input));
    case 6:
    case 7:
    case 8:
      return model.release(model.any_address(input));
    default:
      return model.alloc(any_size(input));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  Model model;
  while (input.left()) {
    perform(model, input);
    model.compare();
  }
  model.free_all();
  model.compare();
  return 0;
}

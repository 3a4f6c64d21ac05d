// A pool beside its model. An input is the shape of the pool and a row of operations, each a byte
// and its arguments.
#include <qal/mpool.h>
#include <qal/thread.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "input.hpp"
#include "require.hpp"
#include "support/pool_model.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::require;
using qal::test::become_index;

// Without start-up every thread has index 0.
bool start_threads() { return qal_thread_init() == 0; }

class PoolPlay {
 public:
  explicit PoolPlay(QalMpool &pool) : pool_(pool), model_(pool) {}

  void perform(Input &input) {
    switch (input.below(8)) {
      case 0:
      case 1:
      case 2:
        return free(input.index_of(used_));
      case 3:
        return verify();
      default:
        return alloc(input.below(indices.size() + 2));
    }
  }

  void compare() const { require(model_.holds(), "the pool's lists are those of the model"); }

  // Walks the free list of every thread that there may be: for the end, not for each step.
  void count() const { require(model_.is_counted(), "the pool counts what the model has"); }

 private:
  static constexpr std::array<int, 4> indices{0, 1, 5, 2047};

  // Two more choices stand for indices beyond both ends of the table.
  void alloc(std::size_t who) {
    const bool valid = who < indices.size();
    const int index = valid ? indices[who] : who == indices.size() ? -1 : 2048;
    become_index(index);
    void *const element = qal_mpool_alloc(&pool_);
    become_index(0);
    if (!valid || pool_.chunk_count == 0) return require(!element, "there is nothing to be had");
    require(element == model_.alloc(index, pool_.chunks), "the element that is due");
    std::memset(element, 0xFF, pool_.element_size);
    used_.push_back(static_cast<std::byte *>(element));
  }

  void free(std::size_t which) {
    if (which == used_.size()) {
      require(qal_mpool_free(&pool_, nullptr) == -1, "no element is refused");
      return;
    }
    require(qal_mpool_free(&pool_, used_[which]) == 0, "an element is taken back");
    model_.free(used_[which]);
    used_.erase(used_.begin() + static_cast<std::ptrdiff_t>(which));
  }

  void verify() {
    require(qal_mpool_verify_ptr(&pool_, this) == 0, "what lies elsewhere is not the pool's");
    for (const std::byte *const element : used_) {
      require(qal_mpool_verify_ptr(&pool_, element) == 1, "its elements are the pool's");
    }
  }

  QalMpool &pool_;
  qal::test::PoolModel model_;
  std::vector<std::byte *> used_;
};

void use_no_pool() {
  uint32_t total = 9;
  qal_mpool_check_corruption();
  qal_mpool_debug();
  require(!qal_mpool_alloc(nullptr), "no pool gives nothing");
  require(qal_mpool_free(nullptr, &total) == -1, "no pool takes nothing back");
  require(qal_mpool_verify_ptr(nullptr, &total) == 0, "nothing is in no pool");
  require(qal_mpool_status(nullptr, &total, nullptr) == 0 && total == 0, "no pool has nothing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const bool started = start_threads();
  require(started, "the thread layer can be started");
  Input input(data, size);
  const auto element_size = static_cast<uint32_t>(input.below(70));
  QalMpool *pool = qal_mpool_create(element_size, static_cast<uint32_t>(input.below(10)));
  require(pool && pool->element_size >= 16 && pool->element_size >= element_size &&
              pool->element_size % 8 == 0,
          "a pool has room for its elements");
  PoolPlay play(*pool);
  while (input.left()) {
    play.perform(input);
    play.compare();
  }
  play.count();
  qal_mpool_destroy(&pool);
  require(!pool, "the handle of a pool that ended is none");
  use_no_pool();
  return 0;
}

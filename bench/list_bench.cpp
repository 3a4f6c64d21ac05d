// The lists beside those of C++ and GLib: numbers of eight bytes, held in the node where a list
// can.
#include <glib.h>
#include <qal/list.h>
#include <qal/plist.h>
#include <qal/startup.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <list>
#include <numeric>
#include <random>
#include <vector>

#include "rows.hpp"

namespace {

using benchmark::State;
using qal::bench::curve;
using qal::bench::is_variant;
using qal::bench::row;
using Number = std::uint64_t;
using Numbers = std::vector<Number>;

constexpr Number filled_count = 1000;
constexpr Number steady_count = 100;

// Where each number stood before a list was sorted.
Numbers positions;

class Pooled {
 public:
  Pooled() { qal_utils_init(); }
  ~Pooled() {
    qal_list_destroy(&list_);
    qal_list_pool_destroy(&pool_);
  }
  Pooled(const Pooled &) = delete;
  Pooled &operator=(const Pooled &) = delete;

  QalList *list() { return list_; }
  void append(Number number) {
    auto *const payload = static_cast<Number *>(qal_list_alloc(list_));
    *payload = number;
    qal_list_append(list_, payload);
  }
  Number pop() {
    auto *const payload = static_cast<Number *>(qal_list_pop(list_));
    const Number number = *payload;
    qal_list_free(list_, payload);
    return number;
  }
  void sort() { qal_list_sort(list_, compare); }
  void restore() { qal_list_sort(list_, compare_positions); }

 private:
  static Number number_at(const void *payload) { return *static_cast<const Number *>(payload); }
  static int compare(const void *earlier, const void *later) {
    return number_at(earlier) > number_at(later);
  }
  static int compare_positions(const void *earlier, const void *later) {
    return positions[number_at(earlier)] > positions[number_at(later)];
  }

  QalListPool *pool_ = qal_list_pool_create(sizeof(Number), 256, 0);
  QalList *list_ = qal_list_create(pool_);
};

class Pointers {
 public:
  Pointers() {
    qal_utils_init();
    list_ = qal_plist_create();
  }
  ~Pointers() { qal_plist_destroy(&list_); }
  Pointers(const Pointers &) = delete;
  Pointers &operator=(const Pointers &) = delete;

  void append(Number number) {
    QalPlistNode *const node = qal_plist_alloc();
    node->data = GSIZE_TO_POINTER(number);
    qal_plist_append(list_, node);
  }
  Number pop() {
    QalPlistNode *node = qal_plist_pop(list_);
    const Number number = GPOINTER_TO_SIZE(node->data);
    qal_plist_free(&node);
    return number;
  }

 private:
  QalPlist *list_ = nullptr;
};

class Standard {
 public:
  std::list<Number> &list() { return list_; }
  void append(Number number) { list_.push_back(number); }
  Number pop() {
    const Number number = list_.front();
    list_.pop_front();
    return number;
  }
  void sort() { list_.sort(); }
  void restore() {
    list_.sort([](Number a, Number b) { return positions[a] < positions[b]; });
  }

 private:
  std::list<Number> list_;
};

// With the ends kept, as in ours.
class Glib {
 public:
  ~Glib() { g_queue_clear(&queue_); }
  void append(Number number) { g_queue_push_tail(&queue_, GSIZE_TO_POINTER(number)); }
  Number pop() { return GPOINTER_TO_SIZE(g_queue_pop_head(&queue_)); }
  void sort() { queue_.head = g_list_sort(queue_.head, compare); }
  void restore() { queue_.head = g_list_sort(queue_.head, compare_positions); }

 private:
  static int compare(const void *earlier, const void *later) {
    return GPOINTER_TO_SIZE(earlier) > GPOINTER_TO_SIZE(later);
  }
  static int compare_positions(const void *earlier, const void *later) {
    return compare(GSIZE_TO_POINTER(positions[GPOINTER_TO_SIZE(earlier)]),
                   GSIZE_TO_POINTER(positions[GPOINTER_TO_SIZE(later)]));
  }

  GQueue queue_ = G_QUEUE_INIT;
};

// The floor: the elements are there, and are linked in and out.
class Linked {
 public:
  void append(Number number) {
    Node *const node = &nodes_[appended_++ % nodes_.size()];
    *node = {number, nullptr, last_};
    (last_ ? last_->next : first_) = node;
    last_ = node;
  }
  Number pop() {
    const Node *const node = first_;
    first_ = node->next;
    (first_ ? first_->previous : last_) = nullptr;
    return node->number;
  }

 private:
  struct Node {
    Number number;
    Node *next;
    Node *previous;
  };

  std::vector<Node> nodes_ = std::vector<Node>(filled_count);
  std::size_t appended_ = 0;
  Node *first_ = nullptr;
  Node *last_ = nullptr;
};

template <typename List>
void fill_and_drain(State &state) {
  List list;
  for (auto _ : state) {
    for (Number i = 0; i < filled_count; ++i) list.append(i);
    for (Number i = 0; i < filled_count; ++i) benchmark::DoNotOptimize(list.pop());
  }
}

template <typename List>
void steady(State &state) {
  List list;
  for (Number i = 0; i < steady_count; ++i) list.append(i);
  for (auto _ : state) list.append(list.pop());
}

template <typename List>
void fill(List &list, const Numbers &numbers) {
  for (const Number number : numbers) list.append(number);
}

Numbers rising(std::int64_t count) {
  Numbers numbers(static_cast<std::size_t>(count));
  std::iota(numbers.begin(), numbers.end(), Number{0});
  return numbers;
}

Numbers shuffled(std::int64_t count) {
  Numbers numbers = rising(count);
  std::shuffle(numbers.begin(), numbers.end(), std::mt19937_64(1));
  return numbers;
}

template <typename Next>
void walk(State &state, Next next) {
  Pooled pooled;
  fill(pooled, rising(filled_count));
  for (auto _ : state) {
    Number sum = 0;
    for (const void *at = qal_list_first(pooled.list()); at; at = next(at)) {
      sum += *static_cast<const Number *>(at);
    }
    benchmark::DoNotOptimize(sum);
  }
}

void walk_inline(State &state) {
  walk(state, [](const void *at) { return qal_list_next(at); });
}

// As a program that calls the library for every step.
void walk_by_calls(State &state) {
  void *(*next)(const void *) = qal_list_next;
  benchmark::DoNotOptimize(next);
  walk(state, next);
}

void walk_standard(State &state) {
  Standard standard;
  fill(standard, rising(filled_count));
  for (auto _ : state) {
    Number sum = 0;
    for (const Number number : standard.list()) sum += number;
    benchmark::DoNotOptimize(sum);
  }
}

// Every sort begins with the list as it was filled: its nodes lie in memory as they stand in it.
template <typename List>
void sort_numbers(State &state, const Numbers &numbers) {
  positions.resize(numbers.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) positions[numbers[i]] = i;
  List list;
  fill(list, numbers);
  bool is_sorted = false;
  for (auto _ : state) {
    state.PauseTiming();
    if (is_sorted) list.restore();
    is_sorted = true;
    state.ResumeTiming();
    list.sort();
  }
}

template <typename List>
void sort_random(State &state) {
  sort_numbers<List>(state, shuffled(100'000));
}

template <typename List>
void sort_sorted(State &state) {
  sort_numbers<List>(state, rising(100'000));
}

template <typename List>
void sort_growing(State &state) {
  sort_numbers<List>(state, shuffled(state.range(0)));
}

const bool registered = [] {
  row("list, fill and drain" VARIANT, {{"qal", fill_and_drain<Pooled>},
                                       {"std::list", fill_and_drain<Standard>},
                                       {"GLib", fill_and_drain<Glib>}});
  row("list, steady" VARIANT,
      {{"qal", steady<Pooled>}, {"std::list", steady<Standard>}, {"GLib", steady<Glib>}});
  row("pointer list, fill and drain" VARIANT, {{"qal", fill_and_drain<Pointers>},
                                               {"std::list", fill_and_drain<Standard>},
                                               {"GLib", fill_and_drain<Glib>}});
  row("list, fill and drain" VARIANT, {{"floor: linking", fill_and_drain<Linked>}});
  row("list, steady" VARIANT, {{"floor: linking", steady<Linked>}});
  row("pointer list, fill and drain" VARIANT, {{"floor: linking", fill_and_drain<Linked>}});
  if (is_variant) return true;
  row("list, walk", {{"qal", walk_by_calls}, {"std::list", walk_standard}});
  row("list, walk with inline accessors", {{"qal", walk_inline}, {"std::list", walk_standard}});
  row("list, sort 1e5 random", {{"qal", sort_random<Pooled>},
                                {"std::list", sort_random<Standard>},
                                {"GLib", sort_random<Glib>}});
  row("list, sort 1e5 sorted", {{"qal", sort_sorted<Pooled>},
                                {"std::list", sort_sorted<Standard>},
                                {"GLib", sort_sorted<Glib>}});
  curve("list, sort", {100, 1000, 10'000, 100'000, 1'000'000, 10'000'000},
        {{"qal", sort_growing<Pooled>},
         {"std::list", sort_growing<Standard>},
         {"GLib", sort_growing<Glib>}});
  return true;
}();

}  // namespace

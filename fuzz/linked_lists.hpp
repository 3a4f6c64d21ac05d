// A model of both kinds of lists over vectors: three lists, a null list, and loose elements that
// are in none. `Kind` is one of support/list_kinds.hpp.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <utility>
#include <vector>

#include "input.hpp"
#include "require.hpp"
#include "support/merge_model.hpp"

namespace qal::fuzz {

// The lists pass no context to the comparison, so its order and what it compared are kept here.
struct Sorting {
  static inline std::map<const void *, test::Item> items;
  static inline test::ItemOrder order;
  static inline test::Comparisons seen;

  static int compare(const void *earlier, const void *later) {
    const test::Item &a = items.at(earlier);
    const test::Item &b = items.at(later);
    seen.emplace_back(a.identity, b.identity);
    return order(a, b);
  }
};

template <typename Kind>
class LinkedLists {
 public:
  explicit LinkedLists(Kind &kind) : kind_(kind) {
    Sorting::items.clear();
    for (std::size_t i = 0; i < no_list; ++i) renew(i);
  }
  ~LinkedLists() {
    for (List *&list : lists_) kind_.destroy(list);
  }
  LinkedLists(const LinkedLists &) = delete;
  LinkedLists &operator=(const LinkedLists &) = delete;

  void perform(Input &input) {
    const std::size_t operation = input.below(12);
    const std::size_t at = input.below(lists_.size());
    switch (operation) {
      case 0:
        return free(input.index_of(loose_));
      case 1:
        return link(at, input.index_of(loose_), 0, Kind::prepend);
      case 2:
        return link(at, input.index_of(loose_), model_[at].size(), Kind::append);
      case 3:
        return insert(at, input, 1, Kind::insert_after);
      case 4:
        return insert(at, input, 0, Kind::insert_before);
      case 5:
        return remove(at, input.index_of(model_[at]));
      case 6:
        return pop(at);
      case 7:
        return concat(at, input.below(lists_.size()));
      case 8:
        return sort(at, input.flag() ? &test::compare_keys : &test::compare_without_reason);
      case 9:
        return renew_if_list(at);
      default:
        return alloc(input.below(8));
    }
  }

  void compare() const {
    for (std::size_t at = 0; at < lists_.size(); ++at) compare(lists_[at], model_[at]);
    for (Element *const element : loose_) {
      require(!Kind::next(element) && !Kind::prev(element), "a loose element has no links");
      check(element);
    }
  }

  // Walks the free list of every thread that there may be: for the end, not for each step.
  void count() const {
    std::size_t elements = loose_.size();
    for (const Elements &list : model_) elements += list.size();
    require(kind_.holds(no_list, elements), "the pools know what is in use");
  }

 private:
  using List = typename Kind::List;
  using Element = typename Kind::Element;
  using Elements = std::vector<Element *>;
  using Link = void (*)(List *, Element *);
  using Insert = void (*)(List *, Element *, Element *);
  static constexpr std::size_t no_list = 3;

  static auto place(Elements &elements, std::size_t at) {
    return elements.begin() + static_cast<std::ptrdiff_t>(at);
  }

  static Element *element_at(const Elements &elements, std::size_t at) {
    return at < elements.size() ? elements[at] : nullptr;
  }

  void check(Element *element) const {
    require(kind_.check(element, Sorting::items.at(kind_.key(element)).identity),
            "an element keeps its content");
  }

  void compare(const List *list, const Elements &expected) const {
    require(Kind::length(list) == expected.size(), "a list is as long as in the model");
    require(Kind::first(list) == (expected.empty() ? nullptr : expected.front()), "the same first");
    require(Kind::last(list) == (expected.empty() ? nullptr : expected.back()), "the same last");
    for (std::size_t i = 0; i < expected.size(); ++i) {
      require(Kind::next(expected[i]) == element_at(expected, i + 1), "the same next one");
      require(Kind::prev(expected[i]) == element_at(expected, i - 1), "the same one before");
      check(expected[i]);
    }
  }

  void alloc(std::size_t sort_key) {
    Element *const element = kind_.alloc();
    require((element != nullptr) == kind_.has_elements(), "elements come as the pool allows");
    if (!element) return;
    const int identity = next_identity_++;
    kind_.fill(element, identity);
    Sorting::items[kind_.key(element)] = {static_cast<int>(sort_key), identity};
    loose_.push_back(element);
  }

  void free(std::size_t which) {
    Element *const element = element_at(loose_, which);
    require(kind_.free(element), "the handle of an element given back is null");
    if (element) loose_.erase(place(loose_, which));
  }

  void link(std::size_t at, std::size_t which, std::size_t where, Link operation) {
    Element *const element = element_at(loose_, which);
    operation(lists_[at], element);
    if (lists_[at] && element) move_in(at, which, where);
  }

  void insert(std::size_t at, Input &input, std::size_t behind, Insert operation) {
    const std::size_t which = input.index_of(loose_);
    const std::size_t where = input.index_of(model_[at]);
    Element *const element = element_at(loose_, which);
    Element *const neighbour = element_at(model_[at], where);
    operation(lists_[at], neighbour, element);
    if (neighbour && element) move_in(at, which, where + behind);
  }

  void move_in(std::size_t at, std::size_t which, std::size_t where) {
    model_[at].insert(place(model_[at], where), loose_[which]);
    loose_.erase(place(loose_, which));
  }

  void move_out(std::size_t at, std::size_t where) {
    loose_.push_back(model_[at][where]);
    model_[at].erase(place(model_[at], where));
  }

  void remove(std::size_t at, std::size_t where) {
    Element *const element = element_at(model_[at], where);
    Kind::remove(lists_[at], element);
    if (element) move_out(at, where);
  }

  void pop(std::size_t at) {
    require(Kind::pop(lists_[at]) == element_at(model_[at], 0), "the first element is popped");
    if (!model_[at].empty()) move_out(at, 0);
  }

  void concat(std::size_t at, std::size_t other) {
    Kind::concat(lists_[at], lists_[other]);
    if (at == other || !lists_[at] || !lists_[other]) return;
    model_[at].insert(model_[at].end(), model_[other].begin(), model_[other].end());
    model_[other].clear();
  }

  void sort(std::size_t at, const test::ItemOrder &order) {
    Sorting::order = order;
    Sorting::seen.clear();
    Kind::sort(lists_[at], &Sorting::compare);
    test::Items items;
    std::map<int, Element *> elements;
    for (Element *const element : model_[at]) {
      items.push_back(Sorting::items.at(kind_.key(element)));
      elements[items.back().identity] = element;
    }
    test::Comparisons expected;
    model_[at].clear();
    for (const auto &item : test::sorted_by_levels(items, order, expected)) {
      model_[at].push_back(elements.at(item.identity));
    }
    require(Sorting::seen == expected, "sorting compares level by level");
  }

  void renew_if_list(std::size_t at) {
    require(kind_.destroy(lists_[at]), "the handle of a list that ended is as it should be");
    if (at != no_list) renew(at);
  }

  void renew(std::size_t at) {
    lists_[at] = kind_.create();
    require((lists_[at] != nullptr) == kind_.has_lists(), "lists come as the pool allows");
    model_[at].clear();
  }

  Kind &kind_;
  std::array<List *, no_list + 1> lists_{};
  std::array<Elements, no_list + 1> model_;
  Elements loose_;
  int next_identity_ = 0;
};

// Plays lists whose shape and operations the input chooses.
template <typename Kind>
void play_lists(Input &input) {
  Kind kind(input);
  LinkedLists<Kind> lists(kind);
  while (input.left()) {
    lists.perform(input);
    lists.compare();
  }
  lists.count();
}

}  // namespace qal::fuzz

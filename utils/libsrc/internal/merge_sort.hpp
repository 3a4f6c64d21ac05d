// The stable merge sort of both kinds of list: bottom up over the links, without recursion or
// memory of its own. The caller's comparison can observe the order of its calls, which is therefore
// fixed: all runs of 1 are merged first, then those of 2, of 4 and so on.
#pragma once

#include <cstddef>

#include "internal/chain.hpp"

namespace qal::internal {

// A sorted part of the list. During the sort `prev` of a run's first node points to the run's last
// node, so that the next run is found without a walk.
template <typename Node>
struct Run {
  Node *first;
  Node *last;

  explicit Run(Node *start) : first(start), last(start->prev) {}
  Node *behind() const { return last->next; }
};

template <typename Node>
void link(Node *node, Node *next) {
  node->next = next;
  next->prev = node;
}

// Merges two runs behind `tail` and returns the last node. Which run the next node comes from
// cannot be predicted, so no branch depends on it: it only selects addresses.
template <typename Node, typename BelongsAfter>
Node *merge(Node *tail, Run<Node> p, Run<Node> q, const BelongsAfter &belongs_after) {
  for (;;) {
    const bool take_q = belongs_after(p.first, q.first);
    Node *const node = take_q ? q.first : p.first;
    Node *const last = take_q ? q.last : p.last;
    Node *const next = node->next;
    __builtin_prefetch(next);
    link(tail, node);
    tail = node;
    if (node == last) {
      const Run<Node> &rest = take_q ? p : q;
      link(tail, rest.first);
      return rest.last;
    }
    p.first = take_q ? p.first : next;
    q.first = take_q ? next : q.first;
  }
}

// Merges the runs of a list in pairs and returns how many runs are left.
template <typename Node, typename BelongsAfter>
std::size_t merge_pairs(Chain<Node> &chain, const BelongsAfter &belongs_after) {
  std::size_t runs = 0;
  Node start{};
  Node *tail = &start;
  for (Node *at = chain.first; at; ++runs) {
    const Run<Node> p(at);
    Node *const before = tail;
    at = p.behind();
    if (at) {
      const Run<Node> q(at);
      at = q.behind();
      tail = merge(tail, p, q, belongs_after);
    } else {
      link(tail, p.first);
      tail = p.last;
    }
    before->next->prev = tail;
  }
  tail->next = nullptr;
  chain = {start.next, tail};
  return runs;
}

// `belongs_after(a, b)` says whether a, which stands earlier, must come after b.
template <typename Node, typename BelongsAfter>
void merge_sort(Chain<Node> &chain, const BelongsAfter &belongs_after) {
  if (!chain.first) return;
  for (Node *at = chain.first; at; at = at->next) at->prev = at;
  while (merge_pairs(chain, belongs_after) > 1) {
  }
  chain.first->prev = nullptr;
}

}  // namespace qal::internal

// The stable merge sort of both list kinds: bottom up over the links, without memory of its own and
// without recursion. The callers' comparison sees the order of comparisons, so the levels are
// walked one after the other: runs of 1, then of 2, of 4 and so on.
#pragma once

#include <cstddef>

#include "internal/chain.hpp"

namespace qal::internal {

// A sorted part of the list. While the list is sorted the first node of every run leads to the last
// through the link that has no use yet, so that the next run is found without a walk.
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

// Merges two runs behind `tail`; answers the last node. No step depends on a branch that cannot be
// foreseen: which run the next node comes from is a matter of picking addresses.
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

// Merges the runs of a list in pairs; answers how many runs there are then.
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

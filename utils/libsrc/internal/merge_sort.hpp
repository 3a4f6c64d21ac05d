// The stable merge sort of both list kinds: bottom up over the links, without memory of its own and
// without recursion. The callers' comparison sees the order of comparisons, so the levels are
// walked one after the other: runs of 1, then of 2, of 4 and so on.
#pragma once

#include <cstddef>

#include "internal/chain.hpp"

namespace qal::internal {

// Two neighbouring runs that are merged into a chain. The second may be cut short by the list's
// end, which only shows when it is reached.
template <typename Node>
struct RunPair {
  Node *p;
  std::size_t p_left = 0;
  Node *q;
  std::size_t q_left;

  RunPair(Node *start, std::size_t run_length) : p(start), q(start), q_left(run_length) {
    while (p_left < run_length && q) {
      ++p_left;
      q = q->next;
    }
  }

  bool p_done() const { return p_left == 0; }
  bool q_done() const { return q_left == 0 || !q; }

  Node *take_p() {
    Node *const node = p;
    p = p->next;
    --p_left;
    return node;
  }
  Node *take_q() {
    Node *const node = q;
    q = q->next;
    --q_left;
    return node;
  }
};

template <typename Node>
void link_behind(Chain<Node> &sorted, Node *node) {
  if (sorted.last) {
    sorted.last->next = node;
  } else {
    sorted.first = node;
  }
  node->prev = sorted.last;
  sorted.last = node;
}

// Merges one pair of runs that starts at `start`; answers where the next pair starts.
template <typename Node, typename BelongsAfter>
Node *merge_runs(Chain<Node> &sorted, Node *start, std::size_t run_length,
                 const BelongsAfter &belongs_after) {
  RunPair<Node> runs(start, run_length);
  while (!runs.p_done() && !runs.q_done()) {
    link_behind(sorted, belongs_after(runs.p, runs.q) ? runs.take_q() : runs.take_p());
  }
  while (!runs.p_done()) link_behind(sorted, runs.take_p());
  while (!runs.q_done()) link_behind(sorted, runs.take_q());
  return runs.q;
}

// `belongs_after(a, b)` says whether a, which stands earlier, must come after b.
template <typename Node, typename BelongsAfter>
void merge_sort(Chain<Node> &chain, const BelongsAfter &belongs_after) {
  if (!chain.first) return;
  for (std::size_t run_length = 1;; run_length *= 2) {
    Chain<Node> sorted;
    std::size_t merges = 0;
    for (Node *start = chain.first; start; ++merges) {
      start = merge_runs(sorted, start, run_length, belongs_after);
    }
    sorted.last->next = nullptr;
    chain = sorted;
    if (merges <= 1) return;
  }
}

}  // namespace qal::internal

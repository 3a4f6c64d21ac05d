// The linking rules of both list kinds, written once. A chain is the two ends of a doubly linked
// row of nodes; a node has `prev` and `next`. The list kinds differ only in what their headers and
// callers hold in place of a node's address.
#pragma once

#include <cstdint>

namespace qal::internal {

template <typename Node>
struct Chain {
  Node *first = nullptr;
  Node *last = nullptr;

  // A node that comes in at an end keeps its outward link: a fresh or removed node has none.
  void prepend(Node *node) {
    if (first) {
      node->next = first;
      first->prev = node;
    } else {
      last = node;
    }
    first = node;
  }

  void append(Node *node) {
    if (last) {
      node->prev = last;
      last->next = node;
    } else {
      first = node;
    }
    last = node;
  }

  void insert_after(Node *at, Node *node) {
    node->prev = at;
    node->next = at->next;
    at->next = node;
    if (node->next) node->next->prev = node;
    if (last == at) last = node;
  }

  void insert_before(Node *at, Node *node) {
    node->next = at;
    node->prev = at->prev;
    at->prev = node;
    if (node->prev) node->prev->next = node;
    if (first == at) first = node;
  }

  void remove(Node *node) {
    if (node->prev) node->prev->next = node->next;
    if (node->next) node->next->prev = node->prev;
    if (first == node) first = node->next;
    if (last == node) last = node->prev;
    node->prev = node->next = nullptr;
  }

  // The former first node, unlinked, or none.
  Node *pop() {
    Node *const node = first;
    if (!node) return nullptr;
    first = node->next;
    if (first) {
      first->prev = nullptr;
    } else {
      last = nullptr;
    }
    node->prev = node->next = nullptr;
    return node;
  }

  // Takes all nodes of another chain behind its own.
  void concat(Chain &other) {
    if (!other.first) return;
    if (last) {
      last->next = other.first;
      other.first->prev = last;
    } else {
      first = other.first;
    }
    last = other.last;
    other = Chain{};
  }

  std::uint32_t length() const {
    std::uint32_t nodes = 0;
    for (const Node *at = first; at; at = at->next) ++nodes;
    return nodes;
  }
};

}  // namespace qal::internal

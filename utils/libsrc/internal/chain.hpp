// How both kinds of list link their nodes. A chain holds the two ends of a doubly linked list; a
// node has `prev` and `next`. The kinds differ only in how their headers and callers refer to a
// node: by its own address or by its payload's.
#pragma once

#include <cstdint>

namespace qal::internal {

template <typename Node>
struct Chain {
  Node *first = nullptr;
  Node *last = nullptr;

  // Adding a node at an end leaves its outward link alone: it is null in a fresh or removed node.
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

  // Unlinks the first node and returns it, or returns null.
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

  // Moves all nodes of `other` behind its own.
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

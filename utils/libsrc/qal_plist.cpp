// Lists of pointers whose headers and nodes come from two process-wide pools.
#include <qal/mpool.h>
#include <qal/plist.h>
#include <qal/status.h>

#include <cstddef>
#include <cstdint>
#include <new>

#include "internal/chain.hpp"
#include "internal/merge_sort.hpp"
#include "internal/pool_fast_path.hpp"

namespace {

using qal::internal::pool_alloc;
using qal::internal::pool_free;
using NodeChain = qal::internal::Chain<QalPlistNode>;

struct ListPool {
  std::uint32_t header_chunk_count;
  std::uint32_t node_chunk_count;
  QalMpool *header_pool;
  QalMpool *node_pool;
};
static_assert(offsetof(ListPool, header_chunk_count) == 0);
static_assert(offsetof(ListPool, node_chunk_count) == 4);
static_assert(offsetof(ListPool, header_pool) == 8);
static_assert(offsetof(ListPool, node_pool) == 16);
static_assert(sizeof(ListPool) == 24);

ListPool PListPool{};  // changed only at start-up and shut-down

NodeChain chain_of(const QalPlist &list) { return {list.first, list.last}; }

void store(QalPlist &list, const NodeChain &chain) {
  list.first = chain.first;
  list.last = chain.last;
}

// Reads the ends of a list once and stores them in the list when it is destroyed.
class Links : public NodeChain {
 public:
  explicit Links(QalPlist &list) : NodeChain(chain_of(list)), list_(list) {}
  ~Links() { store(list_, *this); }
  Links(const Links &) = delete;
  Links &operator=(const Links &) = delete;

 private:
  QalPlist &list_;
};

}  // namespace

int qal_plist_pool_create(uint32_t header_chunk, uint32_t node_chunk) {
  PListPool = ListPool{};
  QalMpool *headers = qal_mpool_create(sizeof(QalPlist), header_chunk);
  if (!headers) return QAL_STATUS_NO_MEMORY;
  QalMpool *const nodes = qal_mpool_create(sizeof(QalPlistNode), node_chunk);
  if (!nodes) {
    qal_mpool_destroy(&headers);
    return QAL_STATUS_NO_MEMORY;
  }
  PListPool = ListPool{header_chunk, node_chunk, headers, nodes};
  return QAL_STATUS_OK;
}

int qal_plist_pool_destroy() {
  qal_mpool_destroy(&PListPool.header_pool);
  qal_mpool_destroy(&PListPool.node_pool);
  PListPool = ListPool{};
  return QAL_STATUS_OK;
}

QalPlist *qal_plist_create() {
  void *const room = pool_alloc(PListPool.header_pool);
  if (!room) return nullptr;
  return ::new (room) QalPlist{};
}

void qal_plist_destroy(QalPlist **list_address) {
  if (!list_address || !*list_address) return;
  // Without the pools there is no list either: it went with them.
  if (PListPool.header_pool) {
    while (QalPlistNode *const node = qal_plist_pop(*list_address)) {
      pool_free(PListPool.node_pool, node);
    }
    pool_free(PListPool.header_pool, *list_address);
  }
  *list_address = nullptr;
}

QalPlistNode *qal_plist_alloc() {
  void *const room = pool_alloc(PListPool.node_pool);
  if (!room) return nullptr;
  return ::new (room) QalPlistNode{};
}

void qal_plist_free(QalPlistNode **node_address) {
  if (!node_address || !*node_address) return;
  if (PListPool.node_pool) pool_free(PListPool.node_pool, ::new (*node_address) QalPlistNode{});
  *node_address = nullptr;
}

void qal_plist_prepend(QalPlist *list, QalPlistNode *node) {
  if (!list || !node) return;
  Links{*list}.prepend(node);
}

void qal_plist_append(QalPlist *list, QalPlistNode *node) {
  if (!list || !node) return;
  Links{*list}.append(node);
}

void qal_plist_insert_after(QalPlist *list, QalPlistNode *at, QalPlistNode *node) {
  if (!list || !at || !node) return;
  Links{*list}.insert_after(at, node);
}

void qal_plist_insert_before(QalPlist *list, QalPlistNode *at, QalPlistNode *node) {
  if (!list || !at || !node) return;
  Links{*list}.insert_before(at, node);
}

void qal_plist_remove(QalPlist *list, QalPlistNode *node) {
  if (!list || !node) return;
  Links{*list}.remove(node);
}

QalPlistNode *qal_plist_pop(QalPlist *list) {
  if (!list) return nullptr;
  return Links{*list}.pop();
}

void qal_plist_concat(QalPlist *dst, QalPlist *src) {
  if (!dst || !src || dst == src) return;
  Links moved{*src};
  Links{*dst}.concat(moved);
}

uint32_t qal_plist_length(const QalPlist *list) { return list ? chain_of(*list).length() : 0; }

void qal_plist_sort(QalPlist *list, QalPlistCompare compare) {
  if (!list || !compare) return;
  // Not Links, whose destructor would also run when a comparison throws, which costs registers.
  NodeChain chain = chain_of(*list);
  qal::internal::merge_sort(chain, [=](const QalPlistNode *p, const QalPlistNode *q) {
    return compare(p->data, q->data) > 0;
  });
  store(*list, chain);
}

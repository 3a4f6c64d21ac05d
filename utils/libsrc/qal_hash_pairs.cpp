// Tables of records keyed by unordered pairs of integers.
#include <qal/alloc.h>
#include <qal/hash.h>
#include <qal/status.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "internal/hash_search.hpp"

namespace {

using qal::internal::find_in;
using qal::internal::list_at;

constexpr const char *source = "utils/libsrc/qal_hash";

// The sum wrapped to 32 bits.
std::int32_t wrapped_sum(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// The pair in ascending order, as the inner table stores it.
struct Pair {
  std::int32_t smaller;
  std::int32_t larger;

  // Which of the two is smaller cannot be predicted, so no branch depends on it.
  Pair(std::int32_t a, std::int32_t b) : smaller(std::min(a, b)), larger(a ^ b ^ smaller) {}
};
static_assert(offsetof(Pair, smaller) == 0 && offsetof(Pair, larger) == 4);
static_assert(sizeof(Pair) == 8);

constexpr std::integral_constant<std::size_t, sizeof(Pair)> key_size;

// Pairs with the same mean share a slot. The sum is halved toward zero.
std::int32_t slot_of(const QalHashPairs &pairs, std::int32_t a, std::int32_t b) {
  const std::int32_t mean = std::abs(wrapped_sum(a, b) / 2);
  return mean < pairs.num_slots ? mean : mean % pairs.num_slots;
}

}  // namespace

QalHashPairs *qal_hash_pairs_create(int32_t num_slots, int32_t chunk_count, int32_t data_size,
                                    uint32_t remove_on_find) {
  if (num_slots < 1 || chunk_count < 1 || data_size < 0) return nullptr;
  QalHashPairs *pairs = nullptr;
  qal_malloc("qal_hash_pairs_create", &pairs, sizeof *pairs, 484, source);
  if (!pairs) return nullptr;
  *pairs = QalHashPairs{num_slots, chunk_count, key_size, data_size, remove_on_find, nullptr};
  pairs->table = qal_hash_create(num_slots, chunk_count, key_size, data_size, remove_on_find);
  if (pairs->table) return pairs;
  qal_free(pairs, 498, source);
  return nullptr;
}

void qal_hash_pairs_destroy(QalHashPairs **pairs_address) {
  if (!pairs_address || !*pairs_address) return;
  qal_hash_destroy(&(*pairs_address)->table);
  qal_free(*pairs_address, 545, source);
  *pairs_address = nullptr;
}

void qal_hash_pairs_reinit(QalHashPairs *pairs) {
  if (pairs) qal_hash_reinit(pairs->table);
}

int qal_hash_pairs_add(QalHashPairs *pairs, int32_t a, int32_t b, const void *data) {
  if (!pairs) return QAL_STATUS_OK;
  const Pair key(a, b);
  return qal_hash_add(pairs->table, slot_of(*pairs, a, b), &key, data);
}

int qal_hash_pairs_find(QalHashPairs *pairs, int32_t a, int32_t b, void *data_out) {
  if (!pairs) return QAL_HASH_NOT_FOUND;
  QalHash *const table = pairs->table;
  if (!table) return QAL_HASH_NOT_FOUND;
  const Pair key(a, b);
  return find_in(key_size, table, list_at(*table, slot_of(*pairs, a, b)), &key, data_out);
}

int qal_hash_pairs_remove(QalHashPairs *pairs, int32_t a, int32_t b, void *data_out) {
  if (!pairs) return QAL_STATUS_OK;
  const Pair key(a, b);
  return qal_hash_remove(pairs->table, slot_of(*pairs, a, b), &key, data_out);
}

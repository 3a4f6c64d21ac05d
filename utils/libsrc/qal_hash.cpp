// Tables of records of fixed size, in slots that the caller picks.
#include <qal/alloc.h>
#include <qal/hash.h>
#include <qal/list.h>
#include <qal/status.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "internal/hash_search.hpp"
#include "internal/list_elements.hpp"

namespace {

using qal::internal::copy_bytes;
using qal::internal::data_bytes;
using qal::internal::data_of;
using qal::internal::find_in;
using qal::internal::first_record;
using qal::internal::key_bytes;
using qal::internal::list_at;
using qal::internal::take_record;
using qal::internal::with_size;

constexpr const char *source = "utils/libsrc/qal_hash";
constexpr std::int32_t pooled_headers = 1;

bool has_slot(const QalHash &table, std::int32_t slot) {
  return slot >= 0 && slot < table.num_slots;
}

bool is_missing(const void *bytes, std::int32_t size) { return !bytes && size > 0; }

std::span<QalList *> slots_of(QalHash &table) {
  return {table.slots, static_cast<std::size_t>(table.num_slots)};
}

void *find_record(const QalHash &table, const QalList *list, const void *key) {
  constexpr auto find = [](auto size, const QalList *in, const void *wanted) {
    return first_record(size, in, wanted);
  };
  return with_size(key_bytes(table), find, list, key);
}

void empty_slots(QalHash &table) {
  for (QalList *&list : slots_of(table)) {
    qal_list_destroy(&list);
    list = nullptr;
  }
}

bool alike(const QalHash &a, const QalHash &b) {
  return a.num_slots == b.num_slots && a.key_size == b.key_size && a.data_size == b.data_size;
}

struct Merge {
  QalHash &dst;
  QalHash &src;
  QalHashMergeFunc callback;
  void *user;

  void merge_slot(std::int32_t slot) const {
    QalList *const from = list_at(src, slot);
    // Deliberate: a slot without a list takes every record, equal keys included; one with an empty
    // list follows the rule for duplicates.
    const bool takes_all = !list_at(dst, slot);
    for (void *record = qal_list_first(from); record; record = qal_list_next(record)) {
      void *const twin = takes_all ? nullptr : find_record(dst, list_at(dst, slot), record);
      if (twin) {
        settle(slot, twin, record);
      } else {
        qal_hash_add(&dst, slot, record, data_of(src, record));
      }
    }
  }

  void settle(std::int32_t slot, void *twin, void *record) const {
    if (!callback) return;
    std::byte *const dst_data = data_of(dst, twin);
    std::byte *const src_data = data_of(src, record);
    const int verdict = callback(twin, dst_data, src_data, user);
    if (verdict == QAL_HASH_REPLACE) copy_bytes(dst_data, src_data, data_bytes(dst));
    if (verdict == QAL_HASH_REMOVE) qal_hash_remove(&dst, slot, record, src_data);
  }
};

void print_key(const QalHash &table, const void *record) {
  std::fputs("   id=0x", stderr);
  for (const auto byte : std::span(static_cast<const unsigned char *>(record), key_bytes(table))) {
    std::fprintf(stderr, "%02x", byte);
  }
  std::fputc('\n', stderr);
}

}  // namespace

void qal::internal::take_record(const QalHash &table, QalList *list, void *record, void *data_out) {
  copy_data(table, data_of(table, record), data_out);
  ListLinks{*list}.remove(element_of(record));
  list_free(table.pool, record);
}

QalHash *qal_hash_create(int32_t num_slots, int32_t chunk_count, int32_t key_size,
                         int32_t data_size, uint32_t remove_on_find) {
  if (num_slots < 1 || chunk_count < 1 || key_size < 0 || data_size < 0) return nullptr;
  QalHash *table = nullptr;
  qal_malloc("qal_hash_create", &table, sizeof *table, 75, source);
  if (!table) return nullptr;
  *table = QalHash{num_slots, chunk_count, key_size, data_size, remove_on_find, nullptr, nullptr};
  qal_malloc("qal_hash_create", &table->slots, slots_of(*table).size() * sizeof(QalList *), 86,
             source);
  if (!table->slots) {
    qal_free(table, 88, source);
    return nullptr;
  }
  for (QalList *&list : slots_of(*table)) list = nullptr;
  // The sum of the two sizes fits 32 bits unsigned; with the links it may not, and then making the
  // list pool fails.
  table->pool = qal_list_pool_create(
      static_cast<std::uint32_t>(key_size) + static_cast<std::uint32_t>(data_size),
      static_cast<std::uint32_t>(chunk_count), pooled_headers);
  if (table->pool) return table;
  qal_free(table->slots, 99, source);
  qal_free(table, 100, source);
  return nullptr;
}

void qal_hash_destroy(QalHash **table_address) {
  if (!table_address || !*table_address) return;
  QalHash *const table = *table_address;
  empty_slots(*table);
  qal_list_pool_destroy(&table->pool);
  qal_free(table->slots, 129, source);
  qal_free(table, 130, source);
  *table_address = nullptr;
}

void qal_hash_reinit(QalHash *table) {
  if (table && table->num_slots >= 1) empty_slots(*table);
}

int qal_hash_add(QalHash *table, int32_t slot, const void *key, const void *data) {
  if (!table) return QAL_STATUS_OK;
  if (!has_slot(*table, slot)) return QAL_STATUS_INVALID;
  if (is_missing(key, table->key_size) || is_missing(data, table->data_size)) {
    return QAL_STATUS_INVALID;
  }
  QalList *&list = list_at(*table, slot);
  if (!list) list = qal_list_create(table->pool);
  if (!list) return QAL_STATUS_NO_MEMORY;
  void *const record = qal::internal::list_alloc(table->pool);
  if (!record) return QAL_STATUS_NO_MEMORY;
  copy_bytes(record, key, key_bytes(*table));
  copy_bytes(data_of(*table, record), data, data_bytes(*table));
  qal::internal::ListLinks{*list}.append(qal::internal::element_of(record));
  return QAL_STATUS_OK;
}

int qal_hash_find(QalHash *table, int32_t slot, const void *key, void *data_out) {
  if (!table || !has_slot(*table, slot) || is_missing(key, table->key_size))
    return QAL_HASH_NOT_FOUND;
  constexpr auto find = [](auto... arguments) { return find_in(arguments...); };
  return with_size(key_bytes(*table), find, table, list_at(*table, slot), key, data_out);
}

int qal_hash_remove(QalHash *table, int32_t slot, const void *key, void *data_out) {
  if (!table) return QAL_STATUS_OK;
  if (!has_slot(*table, slot) || is_missing(key, table->key_size)) return QAL_STATUS_INVALID;
  constexpr auto remove = [](auto size, QalHash *in, QalList *list, const void *wanted,
                             void *data) {
    std::byte *const record = first_record(size, list, wanted);
    if (!record) return int{QAL_STATUS_INVALID};
    take_record(*in, list, record, data);
    return int{QAL_STATUS_OK};
  };
  return with_size(key_bytes(*table), remove, table, list_at(*table, slot), key, data_out);
}

int qal_hash_merge(QalHash *dst, QalHash *src, QalHashMergeFunc callback, void *user) {
  if (!dst || !src || !alike(*dst, *src)) return QAL_STATUS_INVALID;
  if (dst == src) return QAL_STATUS_OK;
  const Merge merge{*dst, *src, callback, user};
  for (std::int32_t slot = 0; slot < dst->num_slots; ++slot) merge.merge_slot(slot);
  empty_slots(*src);
  return QAL_STATUS_OK;
}

void qal_hash_slot_traverse(QalHash *table, int32_t slot) {
  if (!table || !has_slot(*table, slot)) return;
  QalList *const list = list_at(*table, slot);
  std::fprintf(stderr, "HashBucket[%d] list=%p\n", slot, static_cast<void *>(list));
  for (void *record = qal_list_first(list); record; record = qal_list_next(record)) {
    print_key(*table, record);
  }
}

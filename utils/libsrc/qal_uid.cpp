// The process-wide registry of unique ids. Lock order: this mutex, then a pool's.
#include <qal/hash.h>
#include <qal/list.h>
#include <qal/status.h>
#include <qal/uid.h>

#include <cstddef>
#include <cstdint>

#include "internal/hash_search.hpp"
#include "internal/id_index.hpp"
#include "internal/mutex.hpp"

namespace {

using qal::internal::IdIndex;
using qal::internal::LockIfNeeded;
using qal::internal::Mutex;
using qal::internal::take_record;

constexpr std::uint32_t keep_on_find = 0;
constexpr std::int32_t slot_count = 1000;
constexpr std::int32_t records_per_chunk = 1000;

struct Values {
  std::uint64_t first;
  std::uint64_t second;
};
static_assert(offsetof(Values, first) == 0 && offsetof(Values, second) == 8);
static_assert(sizeof(Values) == 16);

// As the table keeps it: the key, then the data.
struct Record {
  std::uint64_t id;
  Values values;
};
static_assert(offsetof(Record, id) == 0 && offsetof(Record, values) == 8);
static_assert(sizeof(Record) == 24);

Mutex mutex;
std::uint64_t curId QAL_GUARDED_BY(mutex) = 1;
QalHash *uidhash QAL_GUARDED_BY(mutex) = nullptr;
IdIndex<Record> index_of_ids QAL_GUARDED_BY(mutex);
bool index_is_whole QAL_GUARDED_BY(mutex) = true;  // false once there was no memory for it

std::int32_t slot_of(std::uint64_t id) { return static_cast<std::int32_t>(id % slot_count); }

// Deliberate: looking up ignores the upper 16 bits of an id, registering does not.
std::uint64_t key_of(std::uint64_t id) { return id & 0xFFFF'FFFF'FFFFU; }

QalList *list_of(std::uint64_t id) QAL_REQUIRES(mutex) { return uidhash->slots[slot_of(id)]; }

// The record with that id, or null. The ids of a slot ascend and the newest are asked for most, so
// the search begins at the tail.
Record *record_in(const QalList *list, std::uint64_t id) {
  void *at = qal_list_last(list);
  while (at && static_cast<Record *>(at)->id > id) at = qal_list_prev(at);
  auto *const record = static_cast<Record *>(at);
  return record && record->id == id ? record : nullptr;
}

// The record with that id, or null.
Record *find_record(std::uint64_t id) QAL_REQUIRES(mutex) {
  Record *const record = index_of_ids.find(id);
  return record || index_is_whole ? record : record_in(list_of(id), id);
}

// False if there is a registry already.
bool make_registry() QAL_EXCLUDES(mutex) {
  const LockIfNeeded lock(mutex);
  if (uidhash) return false;
  uidhash = qal_hash_create(slot_count, records_per_chunk, sizeof(std::uint64_t), sizeof(Values),
                            keep_on_find);
  return true;
}

}  // namespace

int qal_uid_init() QAL_EXCLUDES(mutex) {
  return make_registry() ? qal_thread_mutex_init(&mutex.platform()) : QAL_STATUS_OK;
}

uint64_t qal_uid_new(uint64_t first, uint64_t second) QAL_EXCLUDES(mutex) {
  const LockIfNeeded lock(mutex);
  const std::uint64_t id = curId++;
  const Values values{first, second};
  if (!uidhash || qal_hash_add(uidhash, slot_of(id), &id, &values) != QAL_STATUS_OK) return id;
  auto *const record = static_cast<Record *>(qal_list_last(list_of(id)));
  if (!index_of_ids.set(id, record)) index_is_whole = false;
  return id;
}

uint64_t qal_uid_next() QAL_EXCLUDES(mutex) {
  const LockIfNeeded lock(mutex);
  return curId;
}

int qal_uid_find(uint64_t id, uint64_t *first_out, uint64_t *second_out) QAL_EXCLUDES(mutex) {
  const std::uint64_t key = key_of(id);
  Values values{};
  {
    const LockIfNeeded lock(mutex);
    const Record *const record = uidhash ? find_record(key) : nullptr;
    if (!record) return QAL_STATUS_NO_ID;
    values = record->values;
  }
  if (first_out) *first_out = values.first;
  if (second_out) *second_out = values.second;
  return QAL_STATUS_OK;
}

int qal_uid_destroy(uint64_t id) QAL_EXCLUDES(mutex) {
  const std::uint64_t key = key_of(id);
  const LockIfNeeded lock(mutex);
  if (!uidhash) return QAL_STATUS_OK;
  Record *const record = find_record(key);
  if (!record) return QAL_STATUS_INVALID;
  index_of_ids.set(key, nullptr);
  take_record(*uidhash, list_of(key), record, nullptr);
  return QAL_STATUS_OK;
}

// The process-wide registry of unique ids. Lock order: this mutex, then a pool's.
#include <qal/hash.h>
#include <qal/uid.h>

#include <cstddef>
#include <cstdint>

#include "internal/mutex.hpp"

namespace {

using qal::internal::Lock;
using qal::internal::Mutex;

constexpr int ok = 0;
constexpr int not_found = 4;
constexpr std::int32_t slot_count = 1000;
constexpr std::int32_t records_per_chunk = 1000;

struct Values {
  std::uint64_t first;
  std::uint64_t second;
};
static_assert(offsetof(Values, first) == 0 && offsetof(Values, second) == 8);
static_assert(sizeof(Values) == 16);

Mutex mutex;
std::uint64_t curId QAL_GUARDED_BY(mutex) = 1;
QalHash *uidhash QAL_GUARDED_BY(mutex) = nullptr;

std::int32_t slot_of(std::uint64_t id) { return static_cast<std::int32_t>(id % slot_count); }

// Deliberate: looking up ignores the upper 16 bits of an id, registering does not.
std::uint64_t key_of(std::uint64_t id) { return id & 0xFFFF'FFFF'FFFFU; }

bool made_now() {
  const Lock lock(mutex);
  if (uidhash) return false;
  uidhash =
      qal_hash_create(slot_count, records_per_chunk, sizeof(std::uint64_t), sizeof(Values), 0);
  return true;
}

}  // namespace

int qal_uid_init() { return made_now() ? qal_thread_mutex_init(&mutex.platform()) : ok; }

uint64_t qal_uid_new(uint64_t first, uint64_t second) {
  const Lock lock(mutex);
  const std::uint64_t id = curId++;
  const Values values{first, second};
  qal_hash_add(uidhash, slot_of(id), &id, &values);
  return id;
}

uint64_t qal_uid_next() {
  const Lock lock(mutex);
  return curId;
}

int qal_uid_find(uint64_t id, uint64_t *first_out, uint64_t *second_out) {
  const std::uint64_t key = key_of(id);
  Values values{};
  {
    const Lock lock(mutex);
    if (!qal_hash_find(uidhash, slot_of(key), &key, &values)) return not_found;
  }
  if (first_out) *first_out = values.first;
  if (second_out) *second_out = values.second;
  return ok;
}

int qal_uid_destroy(uint64_t id) {
  const std::uint64_t key = key_of(id);
  Values discarded;
  const Lock lock(mutex);
  return qal_hash_remove(uidhash, slot_of(key), &key, &discarded);
}

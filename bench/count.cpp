// Runs the hottest calls for valgrind's callgrind to count their instructions, and prints their
// names in the order in which they run. Each call runs 1024 times to make what it needs, then 1024
// times and 2048 times more. A mark ends each repetition, and the last two differ by 1024 calls
// alone.
#include <qal/hash.h>
#include <qal/list.h>
#include <qal/logger.h>
#include <qal/mpool.h>
#include <qal/path.h>
#include <qal/plist.h>
#include <qal/startup.h>
#include <qal/uid.h>
#include <qal/wildcard.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "record.hpp"

// Callgrind writes down what it has counted whenever this is entered.
extern "C" [[gnu::noinline]] void qal_count_mark() { asm volatile(""); }

namespace {

using Key = std::uint64_t;

constexpr std::int32_t record_count = 1024;  // a power of two, and the number of slots
constexpr std::int32_t chunk = 256;

template <typename Call>
void count(const char *name, const Call &call) {
  std::puts(name);
  for (const int times : {record_count, record_count, 2 * record_count}) {
    for (int i = 0; i < times; ++i) call(i);
    qal_count_mark();
  }
}

void pools() {
  QalMpool *const pool = qal_mpool_create(32, chunk);
  count("pool, allocate and free", [=](int) { qal_mpool_free(pool, qal_mpool_alloc(pool)); });
}

void lists() {
  QalList *const list = qal_list_create(qal_list_pool_create(sizeof(Key), chunk, 0));
  count("list, append and pop", [=](int) {
    qal_list_append(list, qal_list_alloc(list));
    qal_list_free(list, qal_list_pop(list));
  });
  QalPlist *const pointers = qal_plist_create();
  count("pointer list, append and pop", [=](int) {
    qal_plist_append(pointers, qal_plist_alloc());
    QalPlistNode *node = qal_plist_pop(pointers);
    qal_plist_free(&node);
  });
}

// Each slot of the table holds one record.
std::int32_t slot_of(Key key) { return static_cast<std::int32_t>(key % record_count); }

void tables() {
  QalHash *const table = qal_hash_create(record_count, chunk, sizeof(Key), sizeof(Key), 0);
  for (Key key = 0; key < record_count; ++key) qal_hash_add(table, slot_of(key), &key, &key);
  count("hash, find", [=](int i) {
    const Key key = static_cast<Key>(i) % record_count;
    Key data = 0;
    qal_hash_find(table, slot_of(key), &key, &data);
  });
  count("hash, miss", [=](int i) {
    const Key key = static_cast<Key>(i) % record_count + record_count;
    Key data = 0;
    qal_hash_find(table, slot_of(key), &key, &data);
  });
  count("hash, add and remove", [=](int i) {
    const Key key = static_cast<Key>(i) % record_count + record_count;
    qal_hash_add(table, slot_of(key), &key, &key);
    qal_hash_remove(table, slot_of(key), &key, nullptr);
  });
}

void pairs() {
  QalHashPairs *const table = qal_hash_pairs_create(record_count, chunk, sizeof(Key), 0);
  const Key data = 1;
  for (int i = 0; i < record_count; ++i) qal_hash_pairs_add(table, i, 7 * i, &data);
  count("pair hash, find", [=](int i) {
    const int point = i % record_count;
    Key found = 0;
    qal_hash_pairs_find(table, point, 7 * point, &found);
  });
}

void ids() {
  const Key first = qal_uid_new(1, 2);
  for (int i = 1; i < record_count; ++i) qal_uid_new(1, 2);
  count("unique id, find", [=](int i) {
    Key one = 0;
    Key other = 0;
    qal_uid_find(first + static_cast<Key>(i) % record_count, &one, &other);
  });
}

const unsigned char *bytes(const char *text) {
  return reinterpret_cast<const unsigned char *>(text);
}

void texts() {
  count("small matcher, a record's name",
        [](int) { zul_fnmatch(bytes("halix_server*.dat"), bytes("halix_server4711.dat")); });
  char path[] = "/usr/local/ZUL/kalmora102/site_preferences/transport/launch/settings.dat";
  count("path, convert clean", [&](int) { qal_convert_pathname(path, QAL_PATH_TO_SLASH); });
  count("logger, silent", [](int i) { qal_info("%s: number %d\n", "count", i); });
}

// Through a pipe, so that each round finds the record again.
void records() {
  constexpr std::string_view text = "http://127.0.0.1:8080/stop halix secret 4711\n";
  int ends[2];
  if (pipe(ends) != 0) std::abort();
  struct stat info = {};
  info.st_mode = S_IFREG;
  info.st_size = text.size();
  count("tool, read a record", [&](int) {
    if (write(ends[1], text.data(), text.size()) < 0) std::abort();
    qal::internal::Record record;
    if (read_record(ends[0], info, record) != qal::internal::RecordStatus::whole) std::abort();
  });
}

}  // namespace

int main() {
  qal_utils_init();
  pools();
  lists();
  tables();
  pairs();
  ids();
  texts();
  records();
  return 0;
}

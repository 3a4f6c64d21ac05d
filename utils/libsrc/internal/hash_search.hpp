// The search for a record of a table, inline for tables of every kind.
#pragma once

#include <qal/hash.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qal::internal {

inline std::size_t key_bytes(const QalHash &table) {
  return static_cast<std::size_t>(table.key_size);
}

inline std::size_t data_bytes(const QalHash &table) {
  return static_cast<std::size_t>(table.data_size);
}

inline std::byte *data_of(const QalHash &table, void *record) {
  return static_cast<std::byte *>(record) + key_bytes(table);
}

inline QalList *&list_at(QalHash &table, std::int32_t slot) { return table.slots[slot]; }

// The arguments are passed by value: they stay in registers.
template <typename Use, typename... Arguments>
[[gnu::noinline]] auto with_any_size(std::size_t size, Use use, Arguments... arguments) {
  return use(size, arguments...);
}

// Calls `use` with a compile-time constant for the usual sizes, so that memcpy and memcmp of those
// are compiled inline.
template <typename Use, typename... Arguments>
[[gnu::always_inline]] inline auto with_size(std::size_t size, Use use, Arguments... arguments) {
  if (size == 8) [[likely]] {
    return use(std::integral_constant<std::size_t, 8>{}, arguments...);
  }
  switch (size) {
    case 4:
      return use(std::integral_constant<std::size_t, 4>{}, arguments...);
    case 16:
      return use(std::integral_constant<std::size_t, 16>{}, arguments...);
    default:
      return with_any_size(size, use, arguments...);
  }
}

[[gnu::always_inline]] inline void copy_bytes(void *to, const void *from, std::size_t size) {
  constexpr auto copy = [](auto bytes, void *target, const void *bytes_from) {
    if (bytes > 0) std::memcpy(target, bytes_from, bytes);
  };
  with_size(size, copy, to, from);
}

// The first record of the list with that key, or null.
template <typename Size>
[[gnu::always_inline]] inline std::byte *first_record(Size key_size, const QalList *list,
                                                      const void *key) {
  for (void *record = qal_list_first(list); record; record = qal_list_next(record)) {
    if (key_size == 0 || std::memcmp(record, key, key_size) == 0) [[likely]] {
      return static_cast<std::byte *>(record);
    }
  }
  return nullptr;
}

[[gnu::always_inline]] inline void copy_data(const QalHash &table, const void *data,
                                             void *data_out) {
  if (data_out) copy_bytes(data_out, data, data_bytes(table));
}

// Copies the data of a record out, unlinks the record and returns it to its pool.
[[gnu::noinline]] void take_record(const QalHash &table, QalList *list, void *record,
                                   void *data_out);

// As qal_hash_find, for a key of `key_size` bytes in the list of its slot.
template <typename Size>
[[gnu::always_inline]] inline int find_in(Size key_size, QalHash *table, QalList *list,
                                          const void *key, void *data_out) {
  std::byte *const record = first_record(key_size, list, key);
  if (!record) return QAL_HASH_NOT_FOUND;
  if (table->remove_on_find) [[unlikely]] {
    take_record(*table, list, record, data_out);
  } else {
    copy_data(*table, record + key_size, data_out);
  }
  return QAL_HASH_FOUND;
}

}  // namespace qal::internal

// Reads a server record: "URL user password process-id", separated by white space. Anybody may
// have written it, so a file that does not hold four sound fields is malformed, never repaired: a
// shortened URL would send the credentials to another host.
#pragma once

#include <sys/stat.h>

#include <cstddef>

namespace qal::internal {

inline constexpr std::size_t record_field_bytes = 255;  // at most
inline constexpr std::size_t record_scan_bytes =
    std::size_t{1024} * 1024;  // four fields are complete by then

// Holds credentials and wipes them at its end.
struct Record {
  Record() = default;
  ~Record();
  Record(const Record &) = delete;
  Record &operator=(const Record &) = delete;

  // A text that begins with a NUL byte is complete and yet empty.
  bool has_all_texts() const { return *url && *user && *password; }

  char url[record_field_bytes + 1] = {};
  char user[record_field_bytes + 1] = {};
  char password[record_field_bytes + 1] = {};
  int pid = 0;
};

enum class RecordStatus { whole, malformed, unreadable };

// Fills `record` from an open file, whose `fstat` is `info`. The record is whole when the file held
// all four fields, which only a regular file can, and unreadable when a read failed before they
// were complete. Each byte is read once at most and none behind the first MiB. The texts of a
// record that is not whole may be filled in part.
RecordStatus read_record(int descriptor, const struct stat &info, Record &record);

}  // namespace qal::internal

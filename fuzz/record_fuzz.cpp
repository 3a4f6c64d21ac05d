// The record reader on any file, compared with the C library's scanner. An input is two bytes that
// choose how many blanks stand in front, so that fields meet the end of a block, and the bytes of
// the record. The limit of what is read takes a MiB of blanks, too much for each input: a unit test
// draws records about it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "nameless_file.hpp"
#include "record.hpp"
#include "require.hpp"
#include "support/record_model.hpp"

namespace {

using qal::fuzz::nameless_file;
using qal::fuzz::require;
using qal::internal::read_record;
using qal::internal::Record;
using qal::internal::RecordStatus;

constexpr std::size_t block_bytes = 4096;

// Mostly none; else up to 255 bytes short of the end of a block.
std::size_t blanks_in_front(std::uint8_t kind, std::uint8_t distance) {
  return kind >= 0xC0 ? block_bytes - distance : 0;
}

void fill(int file, const std::string &content) {
  require(ftruncate(file, 0) == 0, "the file can be emptied");
  const ssize_t size = pwrite(file, content.data(), content.size(), 0);
  require(size == static_cast<ssize_t>(content.size()), "the file can be filled");
  lseek(file, 0, SEEK_SET);
}

void compare(const std::string &content) {
  const int file = nameless_file();
  fill(file, content);
  struct stat info;
  require(fstat(file, &info) == 0, "the file can be asked for");
  Record record;
  const RecordStatus status = read_record(file, info, record);
  require(status != RecordStatus::unreadable, "the file can be read");
  const auto expected = qal::test::model_of(content);
  require((status == RecordStatus::whole) == expected.has_value(), "whole as the model says");
  if (!expected) return;
  require(record.url == expected->url, "the same URL");
  require(record.user == expected->user, "the same user");
  require(record.password == expected->password, "the same password");
  require(record.pid == expected->pid, "the same process id");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size < 2) return 0;
  std::string content(blanks_in_front(data[0], data[1]), ' ');
  content.append(reinterpret_cast<const char *>(data) + 2, size - 2);
  compare(content);
  return 0;
}

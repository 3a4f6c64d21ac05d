// Machine figures from the kernel's files and the C library.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <span>
#include <string_view>

#include "internal/bounded_text.hpp"
#include "internal/file_system.hpp"
#include "internal/handles.hpp"
#include "internal/retry.hpp"
#include "platform/platform.hpp"

namespace qal::internal::platform {
namespace {

Descriptor open_for_reading(int directory, const char *path) {
  return Descriptor{
      retry_interrupted([&] { return openat(directory, path, O_RDONLY | O_CLOEXEC); })};
}

// Reads one of the kernel's small files as text. One call of read() gets the whole file.
bool read_kernel_file(int directory, const char *path, std::span<char> text) {
  const Descriptor file = open_for_reading(directory, path);
  if (!file) return false;
  const ssize_t length =
      retry_interrupted([&] { return read(file.get(), text.data(), text.size() - 1); });
  if (length < 0) return false;
  text[static_cast<std::size_t>(length)] = '\0';
  return true;
}

// Reads the number at `text`, which then points behind it.
bool take_number(const char *&text, long &number) {
  char *end = nullptr;
  number = std::strtol(text, &end, 10);
  if (end == text) return false;
  text = end;
  return true;
}

// On false `errno` says why; ENOENT means that the processor is offline.
bool read_id(int directory, std::string_view processor, std::string_view file, std::uint32_t &id) {
  std::array<char, NAME_MAX + 64> path;
  std::array<char, 32> content;
  BoundedText composed{path};
  composed.append({processor, "/topology/", file});
  if (!read_kernel_file(directory, composed.c_str(), content)) return false;
  const char *text = content.data();
  long number = 0;
  if (!take_number(text, number)) {
    errno = EINVAL;
    return false;
  }
  id = static_cast<std::uint32_t>(number);
  return true;
}

// Core ids repeat from package to package, so the key of a core holds both ids.
enum class Unit { package, core };

bool read_key(int directory, std::string_view processor, Unit unit, std::uint64_t &key) {
  std::uint32_t package = 0;
  std::uint32_t core = 0;
  if (!read_id(directory, processor, "physical_package_id", package)) return false;
  if (unit == Unit::core && !read_id(directory, processor, "core_id", core)) return false;
  key = std::uint64_t{package} << 32 | core;
  return true;
}

class KeySet {
 public:
  bool add(std::uint64_t key) {
    if (size_ == keys_.size()) return false;
    keys_[size_++] = key;
    return true;
  }
  int count_distinct() {
    const auto end = keys_.begin() + static_cast<std::ptrdiff_t>(size_);
    std::sort(keys_.begin(), end);
    return static_cast<int>(std::unique(keys_.begin(), end) - keys_.begin());
  }

 private:
  // The most processors that kernels are built for.
  std::array<std::uint64_t, 8192> keys_;
  std::size_t size_ = 0;
};

bool is_processor(std::string_view name) {
  constexpr std::string_view prefix = "cpu";
  return name.starts_with(prefix) && name.size() > prefix.size() &&
         name.find_first_not_of("0123456789", prefix.size()) == name.npos;
}

bool collect_keys(DIR *processors, Unit unit, KeySet &keys) {
  while (const dirent *entry = next_entry(processors)) {
    std::uint64_t key = 0;
    if (!is_processor(entry->d_name)) continue;
    if (read_key(dirfd(processors), entry->d_name, unit, key)) {
      if (!keys.add(key)) return false;
    } else if (errno != ENOENT) {
      return false;
    }
  }
  return errno == 0;
}

bool count_units(Unit unit, int &count) {
  const Directory processors = open_directory("/sys/devices/system/cpu");
  KeySet keys;
  if (!processors || !collect_keys(processors.get(), unit, keys)) return false;
  const int distinct = keys.count_distinct();
  if (distinct == 0) return false;
  count = distinct;
  return true;
}

// sysconf leaves `errno` alone when it does not know the figure.
long system_figure(int name) {
  errno = ENOTSUP;
  return sysconf(name);
}

}  // namespace

bool physical_memory_bytes(std::uint64_t &bytes) {
  const long pages = system_figure(_SC_PHYS_PAGES);
  if (pages < 0) return false;
  bytes = static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(page_size_bytes());
  return true;
}

bool processor_count(int &count) {
  const long online = system_figure(_SC_NPROCESSORS_ONLN);
  if (online < 1) return false;
  count = static_cast<int>(online);
  return true;
}

bool processor_packages(int &count) { return count_units(Unit::package, count); }

bool physical_cores(int &count) { return count_units(Unit::core, count); }

bool logical_processors(int &count) { return processor_count(count); }

bool resident_bytes(std::uint64_t &bytes) {
  std::array<char, 256> content;
  if (!read_kernel_file(AT_FDCWD, "/proc/self/statm", content)) return false;
  const char *text = content.data();
  long total_pages = 0;
  long resident_pages = 0;
  if (!take_number(text, total_pages) || !take_number(text, resident_pages)) return false;
  bytes =
      static_cast<std::uint64_t>(resident_pages) * static_cast<std::uint64_t>(page_size_bytes());
  return true;
}

}  // namespace qal::internal::platform

// Runs of numbered files that a template such as "frame.####.img" stands for.
#include <dirent.h>
#include <fcntl.h>
#include <qal/path.h>
#include <qal/status.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "internal/file_system.hpp"
#include "internal/handles.hpp"

namespace {

using qal::internal::Directory;
using qal::internal::FreeMemory;
using qal::internal::path_room;

constexpr std::size_t widest_field = 9;

// The number that `text` stands for; it has at most nine digits.
std::optional<std::int32_t> parse_digits(std::string_view text) {
  std::int32_t number = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + (digit - '0');
  }
  return number;
}

class NumberedPath {
 public:
  static std::optional<NumberedPath> parse(std::string_view text) {
    NumberedPath path;
    return path.read(text) ? std::optional{path} : std::nullopt;
  }

  // 10 to the power of the field's width: the first number that is too large for it.
  std::int32_t end() const {
    std::int32_t power = 1;
    for (std::size_t digit = 0; digit < width_; ++digit) power *= 10;
    return power;
  }

  bool exists(std::int32_t number) {
    if (number < 0 || number >= end()) return false;
    write(number);
    return qal::internal::can_be_opened(text_.data());
  }

  bool field_is_in_last_component() const { return suffix().find('/') == std::string_view::npos; }

  // The directory that holds the component with the field.
  std::array<char, path_room> directory() const {
    std::array<char, path_room> directory{"."};
    text().substr(0, name_position()).copy(directory.data(), path_room);
    return directory;
  }

  // The number in a directory entry's name. Case is disregarded because some file systems do so;
  // opening decides in the end.
  std::optional<std::int32_t> number_in(const char *entry) const {
    const std::string_view name{entry};
    const std::string_view before = prefix().substr(name_position());
    if (name.size() != before.size() + width_ + suffix().size()) return std::nullopt;
    const char *behind = entry + before.size() + width_;
    if (strncasecmp(entry, before.data(), before.size()) != 0) return std::nullopt;
    if (strncasecmp(behind, suffix().data(), suffix().size()) != 0) return std::nullopt;
    return parse_digits(name.substr(before.size(), width_));
  }

 private:
  bool read(std::string_view text) {
    if (text.size() >= path_room) return false;
    length_ = text.copy(text_.data(), text.size());
    // Deliberate: in a template the last "@" means the letter "l", whatever the files are called.
    if (const auto at = text.rfind('@'); at != std::string_view::npos) text_[at] = 'l';
    field_ = text.find('#');
    if (field_ == std::string_view::npos) return false;
    width_ = text.rfind('#') - field_ + 1;
    return width_ <= widest_field;
  }

  void write(std::int32_t number) {
    for (std::size_t digits = width_; digits > 0; --digits, number /= 10) {
      text_[field_ + digits - 1] = static_cast<char>('0' + number % 10);
    }
  }

  std::string_view text() const { return {text_.data(), length_}; }
  std::string_view prefix() const { return text().substr(0, field_); }
  std::string_view suffix() const { return text().substr(field_ + width_); }
  std::size_t name_position() const { return prefix().rfind('/') + 1; }  // 0 without a slash

  std::array<char, path_room> text_{};
  std::size_t length_ = 0;
  std::size_t field_ = 0;
  std::size_t width_ = 0;
};

// Numbers in a growing block, not allocated with qal_malloc, which reports a failure: when memory
// is short the numbers are probed instead, and nothing has failed.
class NumberList {
 public:
  bool add(std::int32_t number) {
    if (count_ == capacity_ && !grow()) return false;
    numbers_.get()[count_++] = number;
    return true;
  }
  std::span<std::int32_t> all() { return {numbers_.get(), count_}; }

 private:
  bool grow() {
    const std::size_t capacity = capacity_ == 0 ? 64 : 2 * capacity_;
    void *const larger = std::realloc(numbers_.get(), capacity * sizeof(std::int32_t));
    if (!larger) return false;
    static_cast<void>(numbers_.release());
    numbers_.reset(static_cast<std::int32_t *>(larger));
    capacity_ = capacity;
    return true;
  }

  std::unique_ptr<std::int32_t, FreeMemory> numbers_;
  std::size_t count_ = 0;
  std::size_t capacity_ = 0;
};

// Whether opening a directory failed for a reason that keeps its files from being opened as well. A
// directory that can be searched but not read is no such case.
bool nothing_can_be_opened(const char *directory, int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case EMFILE:
    case ENFILE:
    case ENOMEM:
      return true;
    case EACCES:
      return faccessat(AT_FDCWD, directory, X_OK, AT_EACCESS) != 0;
    default:
      return false;
  }
}

// Collects the numbers that the directory has entries for, none when nothing in it can be opened.
// False when some may be missing, as for a field in an earlier component.
bool list_numbers(const NumberedPath &path, NumberList &numbers) {
  const auto place = path.directory();
  const Directory directory = qal::internal::open_directory(place.data());
  if (!directory) return nothing_can_be_opened(place.data(), errno);
  if (!path.field_is_in_last_component()) return false;
  while (const dirent *entry = qal::internal::next_entry(directory.get())) {
    const auto number = path.number_in(entry->d_name);
    if (number && !numbers.add(*number)) return false;
  }
  return errno == 0;
}

std::optional<std::int32_t> first_listed(NumberedPath &path, std::span<std::int32_t> numbers) {
  std::ranges::sort(numbers);
  const auto hit = std::ranges::find_if(numbers, [&](auto number) { return path.exists(number); });
  return hit == numbers.end() ? std::nullopt : std::optional{*hit};
}

std::optional<std::int32_t> first_probed(NumberedPath &path) {
  for (std::int32_t number = 0; number < path.end(); ++number) {
    if (path.exists(number)) return number;
  }
  return std::nullopt;
}

// Reading the directory once saves opening up to 10^9 files.
std::optional<std::int32_t> find_first(NumberedPath &path) {
  NumberList numbers;
  if (list_numbers(path, numbers)) return first_listed(path, numbers.all());
  return first_probed(path);
}

// Probes from `first` up to the limit, the limit included.
std::int32_t find_last(NumberedPath &path, std::int32_t first, std::int32_t limit) {
  // Deliberate: with every number present a search without a limit returns 10^width, which has no
  // file.
  const std::int32_t last_probe = limit == QAL_RANGE_OPEN ? path.end() - 1 : limit;
  const std::int32_t reached = limit == QAL_RANGE_OPEN ? path.end() : limit;
  for (std::int32_t number = first;; ++number) {
    if (!path.exists(number)) return number - 1;
    if (number >= last_probe) return reached;
  }
}

}  // namespace

int qal_valid_pathname_range(const char *template_path, std::int32_t *first, std::int32_t *last) {
  if (!template_path || !first || !last) return QAL_STATUS_INVALID;
  if (*first == INT32_MIN) return QAL_STATUS_INVALID;  // there is no number before it to return
  auto path = NumberedPath::parse(template_path);
  if (!path) return QAL_STATUS_INVALID;
  const auto start = *first == QAL_RANGE_OPEN ? find_first(*path) : *first;
  if (!start) return QAL_STATUS_INVALID;
  *first = *start;
  *last = find_last(*path, *start, *last);
  return QAL_STATUS_OK;
}

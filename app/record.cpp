// The scanner that reads a server record.
#include "record.hpp"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "internal/retry.hpp"
#include "platform/platform.hpp"

namespace qal::internal {
namespace {

// A piece of the file: it holds credentials too.
struct Block {
  Block() = default;
  ~Block() { platform::clear_secret(bytes, sizeof bytes); }
  Block(const Block &) = delete;
  Block &operator=(const Block &) = delete;

  char bytes[4096];
};

// The C locale's white space, whatever locale a host has chosen.
bool is_space(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

// Splits the bytes into fields as they come, in blocks of any size.
class Scanner {
 public:
  explicit Scanner(Record &record)
      : record_(record), texts_{record.url, record.user, record.password} {}

  bool wants_more() const { return state_ == State::open; }
  bool is_complete() const { return state_ == State::complete; }

  void take(std::string_view block) {
    for (const char byte : block) {
      if (!wants_more()) return;
      if (field_ < text_count) {
        take_text(byte);
      } else {
        take_number(byte);
      }
    }
  }

  // The file ends here, and with it a number that has begun.
  void end() {
    if (wants_more() && has_digits_) finish();
  }

 private:
  static constexpr int text_count = 3;
  enum class State { open, complete, malformed };

  void take_text(char byte) {
    if (!is_space(byte)) {
      append(byte);
    } else if (length_ > 0) {
      ++field_;
      length_ = 0;
    }
  }

  // The record starts zeroed, so every text is terminated at any time.
  void append(char byte) {
    if (length_ == record_field_bytes) {
      state_ = State::malformed;
    } else {
      texts_[field_][length_++] = byte;
    }
  }

  void take_number(char byte) {
    if (is_digit(byte)) {
      take_digit(byte);
    } else if (has_digits_) {
      finish();
    } else if (!sign_ && (byte == '+' || byte == '-')) {
      sign_ = byte;
      ++length_;
    } else if (sign_ || !is_space(byte)) {
      state_ = State::malformed;
    }
  }

  void take_digit(char digit) {
    constexpr std::int64_t greatest = std::numeric_limits<int>::max();
    has_digits_ = true;
    magnitude_ = 10 * magnitude_ + (digit - '0');
    const bool fits = magnitude_ <= greatest + (sign_ == '-' ? 1 : 0);
    if (!fits || length_ == record_field_bytes) state_ = State::malformed;
    ++length_;
  }

  void finish() {
    record_.pid = static_cast<int>(sign_ == '-' ? -magnitude_ : magnitude_);
    state_ = State::complete;
  }

  Record &record_;
  char *const texts_[text_count];
  State state_ = State::open;
  int field_ = 0;
  std::size_t length_ = 0;  // of the field that is being taken
  char sign_ = '\0';
  bool has_digits_ = false;
  std::int64_t magnitude_ = 0;
};

// Feeds the scanner until it needs no more, to the end of the file or to the limit. False when a
// read fails.
bool scan(int descriptor, std::size_t file_size, Scanner &scanner) {
  Block block;
  std::size_t done = 0;
  bool at_end = false;
  while (scanner.wants_more() && !at_end && done < record_scan_bytes) {
    const std::size_t room = std::min(sizeof block.bytes, record_scan_bytes - done);
    const ssize_t got = retry_interrupted([&] { return read(descriptor, block.bytes, room); });
    if (got < 0) return false;
    at_end = got == 0;
    scanner.take({block.bytes, static_cast<std::size_t>(got)});
    done += static_cast<std::size_t>(got);
  }
  // At the limit a number may be cut off, and its remaining digits would make it another number.
  if (at_end || done == file_size) scanner.end();
  return true;
}

}  // namespace

Record::~Record() { platform::clear_secret(this, sizeof *this); }

RecordStatus read_record(int descriptor, const struct stat &info, Record &record) {
  if (!S_ISREG(info.st_mode)) return RecordStatus::malformed;
  Scanner scanner{record};
  if (!scan(descriptor, static_cast<std::size_t>(info.st_size), scanner)) {
    return RecordStatus::unreadable;
  }
  return scanner.is_complete() ? RecordStatus::whole : RecordStatus::malformed;
}

}  // namespace qal::internal

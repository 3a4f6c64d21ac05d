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

// A piece of the file: it holds credentials too. Most records are short, so only what was filled is
// wiped.
struct Block {
  Block() = default;
  ~Block() { platform::clear_secret(bytes, filled); }
  Block(const Block &) = delete;
  Block &operator=(const Block &) = delete;

  char bytes[4096];
  std::size_t filled = 0;
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
    while (wants_more() && !block.empty()) {
      block.remove_prefix(field_ < text_count ? take_text(block) : take_number(block.front()));
    }
  }

  // The file ends here, and with it a number that has begun.
  void end() {
    if (wants_more() && has_digits_) finish();
  }

 private:
  static constexpr int text_count = 3;
  enum class State { open, complete, malformed };

  // These return how many bytes they have taken: of a text all up to white space.
  std::size_t take_text(std::string_view block) {
    const auto ends_text = [](char byte) { return is_space(byte); };  // inlined, as a name is not
    const auto length = std::find_if(block.begin(), block.end(), ends_text) - block.begin();
    const std::string_view text = block.substr(0, static_cast<std::size_t>(length));
    if (text.empty()) {
      end_text();
      return 1;
    }
    append(text);
    return text.size();
  }

  void end_text() {
    if (length_ == 0) return;
    ++field_;
    length_ = 0;
  }

  // The record starts zeroed, so every text is terminated at any time.
  void append(std::string_view text) {
    if (text.size() >= record_field_room - length_) {
      state_ = State::malformed;
    } else {
      text.copy(texts_[field_] + length_, text.size());
      length_ += text.size();
    }
  }

  std::size_t take_number(char byte) {
    if (is_digit(byte)) {
      take_digit(byte);
    } else if (has_digits_) {
      finish();
    } else if (!sign_ && (byte == '+' || byte == '-')) {
      sign_ = byte;
    } else if (sign_ || !is_space(byte)) {
      state_ = State::malformed;
    }
    return 1;
  }

  void take_digit(char digit) {
    constexpr std::int64_t greatest = std::numeric_limits<int>::max();
    has_digits_ = true;
    magnitude_ = 10 * magnitude_ + (digit - '0');
    if (magnitude_ > greatest + (sign_ == '-' ? 1 : 0)) state_ = State::malformed;
  }

  void finish() {
    record_.pid = static_cast<int>(sign_ == '-' ? -magnitude_ : magnitude_);
    state_ = State::complete;
  }

  Record &record_;
  char *const texts_[text_count];
  State state_ = State::open;
  int field_ = 0;
  std::size_t length_ = 0;  // of the text that is being taken
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
    const auto size = static_cast<std::size_t>(got);
    block.filled = std::max(block.filled, size);
    scanner.take({block.bytes, size});
    done += size;
  }
  // A number that the limit cuts off may be another one.
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

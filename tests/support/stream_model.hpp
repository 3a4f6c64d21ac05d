// Streams that give their bytes piece by piece and fail in between, and slow models of the readers
// of lines and of items.
#pragma once

#include <stdio.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qal::test {

// What one attempt to read meets: bytes, or an error.
struct Delivery {
  std::string bytes;
  int error = 0;
};
using Deliveries = std::vector<Delivery>;

inline Deliveries byte_by_byte(std::string_view content, bool with_signals = false) {
  Deliveries deliveries;
  for (const char c : content) {
    if (with_signals) deliveries.push_back({.bytes = "", .error = EINTR});
    deliveries.push_back({.bytes = std::string(1, c)});
  }
  if (with_signals) deliveries.push_back({.bytes = "", .error = EINTR});
  return deliveries;
}

// A stream over deliveries, none of them empty; the last of them may fail forever.
class FlakySource {
 public:
  explicit FlakySource(Deliveries deliveries, bool last_for_ever = false)
      : deliveries_(std::move(deliveries)), last_for_ever_(last_for_ever) {}

  // The source must outlive the stream.
  FILE *open() {
    cookie_io_functions_t calls{};
    calls.read = [](void *source, char *to, std::size_t size) {
      return static_cast<FlakySource *>(source)->read(to, size);
    };
    return fopencookie(this, "r", calls);
  }

 private:
  ssize_t read(char *to, std::size_t size) {
    if (next_ == deliveries_.size()) return 0;
    Delivery &delivery = deliveries_[next_];
    if (delivery.error != 0) {
      if (!last_for_ever_ || next_ + 1 < deliveries_.size()) ++next_;
      errno = delivery.error;
      return -1;
    }
    const std::size_t given = delivery.bytes.copy(to, size);
    delivery.bytes.erase(0, given);
    if (delivery.bytes.empty()) ++next_;
    return static_cast<ssize_t>(given);
  }

  Deliveries deliveries_;
  bool last_for_ever_;
  std::size_t next_ = 0;
};

// The same deliveries for a reader that takes them byte by byte.
class Bytewise {
 public:
  static constexpr int end = -1;
  static constexpr int interrupted = -2;
  static constexpr int failed = -3;

  explicit Bytewise(const Deliveries &deliveries) {
    for (const Delivery &delivery : deliveries) {
      for (const char c : delivery.bytes) events_.push_back(static_cast<unsigned char>(c));
      if (delivery.error != 0) events_.push_back(delivery.error == EINTR ? interrupted : failed);
    }
  }

  int next() { return at_ < events_.size() ? events_[at_++] : end; }

  // All bytes that are left.
  std::string rest() {
    std::string bytes;
    for (int event = next(); event != end; event = next()) {
      if (event >= 0) bytes += static_cast<char>(event);
    }
    return bytes;
  }

 private:
  std::vector<int> events_;
  std::size_t at_ = 0;
};

struct ModelLine {
  int result;
  std::string stored;  // without a terminator
};

inline ModelLine model_of_line(Bytewise &stream, int most) {
  std::string stored;
  for (;;) {
    const int event = stream.next();
    if (event == Bytewise::interrupted) continue;
    if (event < 0 && stored.empty()) return {-1, ""};
    if (event < 0 || event == '\n') break;
    if (static_cast<int>(stored.size()) >= most) return {-2, stored};
    stored += static_cast<char>(event);
  }
  if (!stored.empty() && stored.back() == '\r') stored.pop_back();
  return {static_cast<int>(stored.size()), stored};
}

struct ModelItems {
  std::uint64_t count;
  std::string bytes;
};

// Items of which the last attempt got some bytes only are lost. Each error halves the attempts.
inline ModelItems model_of_items(Bytewise &stream, std::size_t item_size, std::uint64_t count) {
  std::string bytes;
  std::uint64_t total = 0;
  for (std::uint64_t chunk = count; item_size > 0 && chunk > 0 && total < count;) {
    chunk = std::min(chunk, count - total);
    const std::size_t wanted = (total + chunk) * item_size;
    int event = 0;
    while (bytes.size() < wanted && (event = stream.next()) >= 0) {
      bytes += static_cast<char>(event);
    }
    total = bytes.size() / item_size;
    bytes.resize(total * item_size);
    if (event == Bytewise::end) break;
    if (event < 0) chunk /= 2;
  }
  return {total, bytes};
}

// The lines with at least one byte; 0 if the first byte is a line feed.
inline int model_of_line_count(const std::string &content) {
  int count = 0;
  for (std::size_t i = 0; i < content.size() && content.front() != '\n'; ++i) {
    if (content[i] != '\n' && (i == 0 || content[i - 1] == '\n')) ++count;
  }
  return count;
}

}  // namespace qal::test

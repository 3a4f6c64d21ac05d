// Texts that end right before a page that must not be read.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace qal::test {

class GuardedText {
 public:
  // For texts that fit, with their terminators, into so many pages.
  explicit GuardedText(std::size_t pages = 1)
      : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))), size_(pages * page_) {
    room_ = static_cast<char *>(
        mmap(nullptr, size_ + page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0));
    mprotect(room_ + size_, page_, PROT_NONE);
  }
  ~GuardedText() { munmap(room_, size_ + page_); }
  GuardedText(const GuardedText &) = delete;
  GuardedText &operator=(const GuardedText &) = delete;

  const char *put(std::string_view text) { return put_bytes(std::string(text) + '\0'); }

  // Without a terminator.
  const char *put_bytes(std::string_view bytes) {
    char *const begin = room_ + size_ - bytes.size();
    std::copy(bytes.begin(), bytes.end(), begin);
    return begin;
  }

 private:
  std::size_t page_;
  std::size_t size_;
  char *room_;
};

}  // namespace qal::test

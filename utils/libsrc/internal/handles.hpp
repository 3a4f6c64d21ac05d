// Guards for what the operating system hands out, so that every early return releases it.
#pragma once

#include <dirent.h>
#include <qal/alloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace qal::internal {

struct CloseFile {
  void operator()(std::FILE *file) const { std::fclose(file); }
};
struct CloseDirectory {
  void operator()(DIR *directory) const { closedir(directory); }
};
struct FreeMemory {
  void operator()(void *block) const { std::free(block); }
};
struct FreeCheckedMemory {
  void operator()(void *block) const { QAL_FREE(block); }
};

using File = std::unique_ptr<std::FILE, CloseFile>;
using Directory = std::unique_ptr<DIR, CloseDirectory>;
using OwnedText = std::unique_ptr<char, FreeMemory>;
using CheckedText = std::unique_ptr<char, FreeCheckedMemory>;  // of qal_malloc()

class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor &&other) noexcept : number_(other.release()) {}
  Descriptor &operator=(Descriptor &&other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) close();
  }

  explicit operator bool() const { return number_ >= 0; }
  int get() const { return number_; }
  int release() { return std::exchange(number_, -1); }
  // Closes before the end of the scope. Returns the system's result.
  int close() { return ::close(release()); }

 private:
  int number_;
};

}  // namespace qal::internal

// Allocation that reports its failures.
#include <qal/alloc.h>

#include <qal/logger.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "internal/kept_errno.hpp"

namespace {

// What a report needs to know about the call that failed.
struct Request {
  const char *operation;
  const char *label;
  std::uint64_t size;
  int line;
  const char *file;
};

// strerror_r returns the text itself in one C library and a status in the others, which may have
// stored a text for an unknown number, too.
[[maybe_unused]] const char *error_text(const char *text, const char * /*buffer*/) { return text; }
[[maybe_unused]] const char *error_text(int /*status*/, const char *buffer) {
  return *buffer ? buffer : "Unknown error";
}

void report_failure(const Request &request) {
  const qal::internal::KeptErrno until_return;
  const int error = errno;
  char buffer[256] = "";
  qal_error("%s: %d\n", error_text(strerror_r(error, buffer, sizeof buffer), buffer), error);
  // Deliberate: the size is shown as a 32-bit int, so 2 GiB and more appear wrapped.
  qal_error("%s: Memory allocation (size %d) failed:\n", request.operation,
            static_cast<int>(static_cast<std::uint32_t>(request.size)));
  qal_error("At line %d in file %s\n", request.line, request.file);
  qal_error("%s: Memory allocation failed.\n", request.label);
}

// The caller's variable may be a pointer to any type, so it is read and written as bytes.
void *load_pointer(const void *variable) {
  void *block = nullptr;
  std::memcpy(&block, variable, sizeof block);
  return block;
}

void store_pointer(void *variable, const void *block) {
  std::memcpy(variable, &block, sizeof block);
}

}  // namespace

void qal_malloc(const char *label, void *out, uint64_t size, int line, const char *file) {
  store_pointer(out, nullptr);
  if (size == 0) return;
  void *block = std::malloc(static_cast<std::size_t>(size));
  if (!block) return report_failure({"QAL_MALLOC", label, size, line, file});
  store_pointer(out, block);
}

void qal_realloc(const char *label, void *out, int64_t size, int line, const char *file) {
  void *block = load_pointer(out);
  const auto bytes = static_cast<std::uint64_t>(size);
  if (!block) return qal_malloc(label, out, bytes, line, file);
  if (size == 0) {
    std::free(block);
    return store_pointer(out, nullptr);
  }
  // Deliberate: stored at once, so a failure loses the old block.
  block = std::realloc(block, static_cast<std::size_t>(bytes));
  store_pointer(out, block);
  if (!block) report_failure({"QAL_REALLOC", label, bytes, line, file});
}

void qal_free(void *ptr, int /*line*/, const char * /*file*/) { std::free(ptr); }

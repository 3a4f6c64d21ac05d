#include <qal/alloc.h>
#include <qal/logger.h>
#include <qal/temp_mem.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The record is public and its layout is fixed.
static_assert(offsetof(QalTempSegment, size) == 0);
static_assert(offsetof(QalTempSegment, requested) == 8);
static_assert(offsetof(QalTempSegment, mptr) == 16);
static_assert(offsetof(QalTempSegment, next) == 24);
static_assert(sizeof(QalTempSegment) == 32);

QalTempSegment *Tmem_InUse = nullptr;
QalTempSegment *Tmem_Avail = nullptr;

namespace {

// What a report needs to know about the call that failed.
struct Request {
  const char *operation;
  const char *label;
  std::uint64_t size;
  int line;
  const char *file;
};

// strerror_r answers with the text itself in one C library and with a status in the others.
[[maybe_unused]] const char *error_text(const char *text, const char * /*buffer*/) { return text; }
[[maybe_unused]] const char *error_text(int status, const char *buffer) {
  return status == 0 ? buffer : "Unknown error";
}

void report_failure(const Request &request) {
  const int error = errno;
  char buffer[256];
  qal_error("%s: %d\n", error_text(strerror_r(error, buffer, sizeof buffer), buffer), error);
  // Deliberate: the size is shown as a 32-bit int, so 2 GiB and more appear wrapped.
  qal_error("%s: Memory allocation (size %d) failed:\n", request.operation,
            static_cast<int>(static_cast<std::uint32_t>(request.size)));
  qal_error("At line %d in file %s\n", request.line, request.file);
  qal_error("%s: Memory allocation failed.\n", request.label);
  errno = error;
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

constexpr const char *own_file = "utils/libsrc/qal_temp_mem";
constexpr const char *block_label = "qal tmem segment mptr";
constexpr std::int64_t least_size = 100;
constexpr std::int64_t large_size = 1'000'000;

// The lists are handled through the link that leads to a segment: the head, or the `next` of the
// one before. A search that finds nothing answers the null link at the end.
QalTempSegment **find_block(QalTempSegment **link, const void *block) {
  while (*link && (*link)->mptr != block) link = &(*link)->next;
  return link;
}

// As the available list ascends, the first one that is large enough is the best fit.
QalTempSegment **find_size(QalTempSegment **link, std::int64_t size) {
  while (*link && (*link)->size < size) link = &(*link)->next;
  return link;
}

QalTempSegment *unlink_segment(QalTempSegment **link) {
  QalTempSegment *segment = *link;
  *link = segment->next;
  segment->next = nullptr;
  return segment;
}

void insert_segment(QalTempSegment **link, QalTempSegment *segment) {
  segment->next = *link;
  *link = segment;
}

void append_in_use(QalTempSegment *segment) {
  QalTempSegment **link = &Tmem_InUse;
  while (*link) link = &(*link)->next;
  insert_segment(link, segment);
}

void free_segment(QalTempSegment *segment) {
  QAL_FREE(segment->mptr);
  QAL_FREE(segment);
}

// A large block is not pinned by a small request.
bool is_wasteful(const QalTempSegment &segment, std::int64_t size) {
  return static_cast<double>(segment.size) * 0.25 > static_cast<double>(size) &&
         segment.size > large_size;
}

QalTempSegment *take_available(std::int64_t size) {
  QalTempSegment **best = find_size(&Tmem_Avail, size);
  if (!*best || is_wasteful(**best, size)) return nullptr;
  return unlink_segment(best);
}

QalTempSegment *make_segment(std::int64_t size) {
  QalTempSegment *segment = nullptr;
  qal_malloc("qal tmem segment", static_cast<void *>(&segment), sizeof *segment, 153, own_file);
  if (!segment) return nullptr;
  *segment = {size, 0, nullptr, nullptr};
  qal_malloc(block_label, static_cast<void *>(&segment->mptr), static_cast<std::uint64_t>(size),
             160, own_file);
  // Deliberate: without its block the record is lost, not given back.
  return segment->mptr ? segment : nullptr;
}

void display_list(const char *name, const QalTempSegment *segment) {
  for (int i = 0; segment; segment = segment->next, ++i) {
    std::fprintf(stderr, "%s[%d] (%p) = %10ld bytes, (requested %ld)\n", name, i, segment->mptr,
                 static_cast<long>(segment->size), static_cast<long>(segment->requested));
  }
}

// In unsigned, where a sum may wrap.
std::uint64_t total_size(const QalTempSegment *segment) {
  std::uint64_t total = 0;
  for (; segment; segment = segment->next) total += static_cast<std::uint64_t>(segment->size);
  return total;
}

void display_summary(std::uint64_t in_use, std::uint64_t available) {
  std::fprintf(stderr, "      Memory Summary:  InUse = %10ld bytes\n", static_cast<long>(in_use));
  std::fprintf(stderr, "                       Avail = %10ld bytes\n",
               static_cast<long>(available));
  std::fputs("                               ================\n", stderr);
  std::fprintf(stderr, "                       Total = %10ld bytes\n",
               static_cast<long>(in_use + available));
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

void *qal_temp_mem_alloc(int64_t size) {
  const auto effective_size = std::max(size, least_size);
  QalTempSegment *segment = take_available(effective_size);
  if (!segment) segment = make_segment(effective_size);
  if (!segment) return nullptr;
  segment->requested = size;
  append_in_use(segment);
  return segment->mptr;
}

int qal_temp_mem_release(void *ptr) {
  QalTempSegment **link = find_block(&Tmem_InUse, ptr);
  if (!*link) return 1;
  QalTempSegment *segment = unlink_segment(link);
  insert_segment(find_size(&Tmem_Avail, segment->size), segment);
  return 0;
}

void *qal_temp_mem_resize(void *ptr, int64_t size) {
  QalTempSegment *segment = *find_block(&Tmem_InUse, ptr);
  if (!segment) return nullptr;
  if (segment->size < size) {
    qal_realloc(block_label, static_cast<void *>(&segment->mptr), size, 333, own_file);
    // Deliberate: the segment stays in use without a block, its size unchanged.
    if (!segment->mptr) return nullptr;
    segment->size = size;
  }
  segment->requested = size;
  return segment->mptr;
}

int qal_temp_mem_free(void *ptr) {
  qal_temp_mem_release(ptr);
  QalTempSegment **link = find_block(&Tmem_Avail, ptr);
  if (!*link) return 1;
  free_segment(unlink_segment(link));
  return 0;
}

int qal_temp_mem_free_all_avail() {
  while (Tmem_Avail) free_segment(unlink_segment(&Tmem_Avail));
  return 0;
}

int qal_temp_mem_free_all() {
  while (Tmem_InUse) qal_temp_mem_free(Tmem_InUse->mptr);
  return qal_temp_mem_free_all_avail();
}

void qal_temp_mem_display() {
  std::fputs("\n-----------------------------b----------------------------\n", stderr);
  display_list("Avail", Tmem_Avail);
  if (Tmem_Avail) std::fputs("-------\n", stderr);
  display_list("InUse", Tmem_InUse);
  std::fputs("\n", stderr);
  display_summary(total_size(Tmem_InUse), total_size(Tmem_Avail));
  std::fputs("-----------------------------e-----------------------------\n\n", stderr);
}

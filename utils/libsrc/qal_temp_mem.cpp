// Scratch memory: blocks that are kept after use and handed out again.
#include <qal/temp_mem.h>

#include <qal/alloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

QalTempSegment *Tmem_InUse = nullptr;
QalTempSegment *Tmem_Avail = nullptr;

namespace {

constexpr const char *source = "utils/libsrc/qal_temp_mem";
constexpr const char *block_label = "qal tmem segment mptr";
constexpr std::int64_t least_size = 100;
constexpr std::int64_t large_size = 1'000'000;

// The functions below refer to a segment by the link that points to it: the head of the list, or
// `next` of the segment before. A search that finds nothing returns the null link at the end.
QalTempSegment **find_block(QalTempSegment **link, const void *block) {
  while (*link && (*link)->mptr != block) link = &(*link)->next;
  return link;
}

// The available list ascends, so the first segment that is large enough is the best fit.
QalTempSegment **find_size(QalTempSegment **link, std::int64_t size) {
  while (*link && (*link)->size < size) link = &(*link)->next;
  return link;
}

QalTempSegment *unlink_segment(QalTempSegment **link) {
  QalTempSegment *segment = *link;
  *link = segment->next;
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

// A small request does not tie up a large block.
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
  qal_malloc("qal tmem segment", static_cast<void *>(&segment), sizeof *segment, 153, source);
  if (!segment) return nullptr;
  *segment = {size, 0, nullptr, nullptr};
  qal_malloc(block_label, static_cast<void *>(&segment->mptr), static_cast<std::uint64_t>(size),
             160, source);
  // Deliberate: a record without its block is lost, not freed.
  return segment->mptr ? segment : nullptr;
}

void display_list(const char *name, const QalTempSegment *segment) {
  for (int i = 0; segment; segment = segment->next, ++i) {
    std::fprintf(stderr, "%s[%d] (%p) = %10ld bytes, (requested %ld)\n", name, i, segment->mptr,
                 static_cast<long>(segment->size), static_cast<long>(segment->requested));
  }
}

// Unsigned, because the sum may wrap.
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
  if (!*link) return QAL_TEMP_MEM_NOT_FOUND;
  QalTempSegment *segment = unlink_segment(link);
  insert_segment(find_size(&Tmem_Avail, segment->size), segment);
  return QAL_TEMP_MEM_OK;
}

void *qal_temp_mem_resize(void *ptr, int64_t size) {
  QalTempSegment *segment = *find_block(&Tmem_InUse, ptr);
  if (!segment) return nullptr;
  if (segment->size < size) {
    qal_realloc(block_label, static_cast<void *>(&segment->mptr), size, 333, source);
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
  if (!*link) return QAL_TEMP_MEM_NOT_FOUND;
  free_segment(unlink_segment(link));
  return QAL_TEMP_MEM_OK;
}

int qal_temp_mem_free_all_avail() {
  while (Tmem_Avail) free_segment(unlink_segment(&Tmem_Avail));
  return QAL_TEMP_MEM_OK;
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

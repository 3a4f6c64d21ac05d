// Counts the bytes that replacement moves: moving the rest of the text at each match would make
// the work quadratic.
#include <gtest/gtest.h>
#include <qal/text.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace {

bool counting = false;
std::size_t bytes_moved = 0;

}  // namespace

extern "C" {
void *__real_memmove(void *to, const void *from, std::size_t size);
void *__real_memcpy(void *to, const void *from, std::size_t size);

void *__wrap_memmove(void *to, const void *from, std::size_t size) {
  if (counting) bytes_moved += size;
  return __real_memmove(to, from, size);
}

void *__wrap_memcpy(void *to, const void *from, std::size_t size) {
  if (counting) bytes_moved += size;
  return __real_memcpy(to, from, size);
}
}

namespace {

struct Work {
  int replaced;
  std::size_t moved;
};

Work replace(const std::string &text, const char *find, const char *replacement, std::size_t room) {
  std::vector<char> buffer(std::max(room, text.size()) + 1);
  std::ranges::copy(text, buffer.begin());
  bytes_moved = 0;
  counting = true;
  const int replaced = qal_strrepl(buffer.data(), find, replacement, 0);
  counting = false;
  return {replaced, bytes_moved};
}

constexpr std::size_t matches = std::size_t{64} << 10U;
constexpr std::size_t kept = 62;  // bytes behind each match: enough to be moved by a call

std::string text_with_matches() {
  std::string text;
  for (std::size_t i = 0; i < matches; ++i) text += "ab" + std::string(kept, ',');
  return text;
}

TEST(TextWork, ShrinkingWritesEachByteOnce) {
  const auto work = replace(text_with_matches(), "ab", "x", 0);
  EXPECT_EQ(work.replaced, static_cast<int>(matches));
  EXPECT_LE(work.moved, (1 + kept) * matches);
}

TEST(TextWork, KeepingTheLengthWritesOnlyWhatIsReplaced) {
  const auto work = replace(text_with_matches(), "ab", "xy", 0);
  EXPECT_EQ(work.replaced, static_cast<int>(matches));
  EXPECT_LE(work.moved, 2 * matches);
}

TEST(TextWork, GrowingMovesTheTextOnceAndWritesEachByteOnce) {
  const auto work = replace(text_with_matches(), "ab", "xyz", (3 + kept) * matches);
  EXPECT_EQ(work.replaced, static_cast<int>(matches));
  EXPECT_LE(work.moved, (2 + kept + 3 + kept) * matches);
}

TEST(TextWork, WithoutAMatchNothingMoves) {
  const auto work = replace(text_with_matches(), "ba", "xyz", 0);
  EXPECT_EQ(work.replaced, 0);
  EXPECT_EQ(work.moved, 0U);
}

}  // namespace

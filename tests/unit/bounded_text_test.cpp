#include <gtest/gtest.h>
#include <internal/bounded_text.hpp>

#include <array>
#include <string>
#include <string_view>

namespace {

using qal::internal::BoundedText;

TEST(BoundedTextAppend, StartsEmptyAndJoinsPieces) {
  std::array<char, 16> room;
  room.fill('#');
  BoundedText text{room};
  EXPECT_EQ(text.view(), "");
  EXPECT_EQ(text.length(), 0U);
  EXPECT_TRUE(text.append("usr"));
  EXPECT_TRUE(text.append({"/", "lib"}));
  EXPECT_EQ(text.view(), "usr/lib");
  EXPECT_EQ(text.length(), 7U);
  EXPECT_STREQ(text.c_str(), "usr/lib");
  EXPECT_EQ(text.data(), room.data());
}

TEST(BoundedTextAppend, FillsTheRoomButForTheTerminator) {
  std::array<char, 5> room;
  BoundedText text{room};
  EXPECT_TRUE(text.append("abcd"));
  EXPECT_STREQ(text.c_str(), "abcd");
  EXPECT_TRUE(text.append(""));
  EXPECT_STREQ(text.c_str(), "abcd");
}

TEST(BoundedTextAppend, RefusesAPieceThatIsOneByteTooLong) {
  std::array<char, 5> room;
  BoundedText text{room};
  EXPECT_FALSE(text.append("abcde"));
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_TRUE(text.append("ab"));
  EXPECT_FALSE(text.append("cde"));
  EXPECT_EQ(text.view(), "ab");
  EXPECT_TRUE(text.append("cd"));
  EXPECT_EQ(text.view(), "abcd");
}

TEST(BoundedTextAppend, TakesAllPiecesOrNone) {
  std::array<char, 6> room;
  BoundedText text{room};
  EXPECT_FALSE(text.append({"ab", "cd", "ef"}));
  EXPECT_EQ(text.view(), "");
  EXPECT_TRUE(text.append({"ab", "cd", "e"}));
  EXPECT_EQ(text.view(), "abcde");
}

TEST(BoundedTextAppend, HoldsTheEmptyTextInASingleByte) {
  char room = '#';
  BoundedText text{{&room, 1}};
  EXPECT_EQ(room, '\0');
  EXPECT_FALSE(text.append("a"));
  EXPECT_TRUE(text.append(std::string_view{}));
  EXPECT_TRUE(text.append({}));
  EXPECT_EQ(room, '\0');
}

TEST(BoundedTextAppend, WritesNothingBehindTheTerminator) {
  std::array<char, 8> room;
  room.fill('#');
  BoundedText text{room};
  EXPECT_TRUE(text.append("abc"));
  EXPECT_EQ(std::string(room.data(), room.size()), std::string("abc\0####", 8));
}

}  // namespace

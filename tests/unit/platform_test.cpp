#include "platform/platform.hpp"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

namespace {

namespace platform = qal::internal::platform;

struct Formatted {
  int length;
  std::string text;
};

// The bytes behind the room that is offered must stay as they are.
Formatted format(std::size_t room, const char *pattern, ...) {
  std::string buffer(room + 8, '#');
  va_list arguments;
  va_start(arguments, pattern);
  const int length = platform::format_text(buffer.data(), room, pattern, arguments);
  va_end(arguments);
  EXPECT_EQ(buffer.substr(room), "########");
  return {length, room > 0 ? buffer.c_str() : ""};
}

TEST(PlatformFormat, FollowsPrintf) {
  const auto [length, text] =
      format(64, "%s|%5d|%-4u|%02x|%.2f|%%|%c", "word", -42, 7U, 10, 2.5, 'c');
  EXPECT_EQ(text, "word|  -42|7   |0a|2.50|%|c");
  EXPECT_EQ(length, static_cast<int>(text.size()));
}

TEST(PlatformFormat, CutsToTheRoomAndTellsTheWholeLength) {
  for (const std::size_t room : {1U, 2U, 10U, 11U, 12U}) {
    const auto [length, text] = format(room, "%s", "0123456789");
    EXPECT_EQ(length, 10) << room;
    EXPECT_EQ(text, std::string("0123456789").substr(0, room - 1)) << room;
  }
}

TEST(PlatformFormat, WritesNothingWithoutRoom) { EXPECT_EQ(format(0, "%d", 1234).length, 4); }

TEST(PlatformFormat, TakesEmptyAndLongTexts) {
  EXPECT_EQ(format(4, "%s", "").length, 0);
  const std::string whole(100'000, 'x');
  const auto [length, text] = format(200'000, "%s", whole.c_str());
  EXPECT_EQ(length, 100'000);
  EXPECT_EQ(text, whole);
}

TEST(PlatformSecret, IsOverwrittenAndNothingElse) {
  char secrets[] = "[password]";
  platform::clear_secret(secrets + 1, 8);
  EXPECT_EQ(std::string(secrets, 10), "[" + std::string(8, '\0') + "]");
  platform::clear_secret(secrets, 0);
  EXPECT_EQ(secrets[0], '[');
}

TEST(PlatformCurl, IsFoundUnderItsName) {
  const std::string name = platform::curl_library_name();
  EXPECT_NE(name.find(".4"), std::string::npos);  // that without it is the developers'
  void *library = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(library, nullptr) << dlerror();
  EXPECT_NE(dlsym(library, "curl_easy_init"), nullptr);
  dlclose(library);
}

}  // namespace

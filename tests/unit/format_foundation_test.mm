// What formatting through the platform's string class adds to printf's.
#import <Foundation/Foundation.h>

#include <gtest/gtest.h>
#include <qal/logger.h>

#include <cstdarg>
#include <string>

#include "platform/platform.hpp"
#include "support/log_capture.hpp"

namespace {

int watchers_released = 0;

}  // namespace

// Released with the autorelease pool that it is put into.
@interface Watcher : NSObject
@end

@implementation Watcher
- (void)dealloc {
  ++watchers_released;
  [super dealloc];
}
@end

@interface Described : NSObject
@end

@implementation Described
- (NSString *)description {
  [[[Watcher alloc] init] autorelease];
  return @"described";
}
@end

@interface Raising : NSObject
@end

@implementation Raising
- (NSString *)description {
  [NSException raise:NSGenericException format:@"nothing to say"];
  return nil;
}
@end

namespace {

namespace platform = qal::internal::platform;

// Objects have a placeholder that compilers take for a mistake in a format of printf's.
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-extra-args"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

// What callers have in hand while they format.
class FormatFoundation : public testing::Test {
 protected:
  void TearDown() override { [pool_ drain]; }

 private:
  NSAutoreleasePool *pool_ = [[NSAutoreleasePool alloc] init];
};

struct Formatted {
  int length;
  std::string text;
};

Formatted format(std::size_t room, const char *pattern, ...) {
  std::string buffer(room, '#');
  va_list arguments;
  va_start(arguments, pattern);
  const int length = platform::format_text(buffer.data(), room, pattern, arguments);
  va_end(arguments);
  return {length, buffer.c_str()};
}

std::string unbounded(const char *pattern, ...) {
  char out[256];
  va_list arguments;
  va_start(arguments, pattern);
  nsstring_vsprintf(out, pattern, arguments);
  va_end(arguments);
  return out;
}

TEST_F(FormatFoundation, PutsAnObjectsDescriptionForItsPlaceholder) {
  const auto [length, text] = format(64, "<%@> %s %@", @"text", "and", [NSNumber numberWithInt:42]);
  EXPECT_EQ(text, "<text> and 42");
  EXPECT_EQ(length, 13);
}

TEST_F(FormatFoundation, CutsADescriptionToTheRoom) {
  const auto [length, text] = format(5, "%@", @"0123456789");
  EXPECT_EQ(text, "0123");
  EXPECT_EQ(length, 10);
}

TEST_F(FormatFoundation, PutsAnObjectWithoutABound) {
  EXPECT_EQ(unbounded("%d %@!", 7, @"objects"), "7 objects!");
}

TEST_F(FormatFoundation, ReachesTheLogger) {
  const qal::test::LogCapture log;
  qal_error("no %@ for %d\n", @"file", 3);
  EXPECT_EQ(log.text(), "ERROR: no file for 3\n");
}

TEST_F(FormatFoundation, TakesBytesOfAnyLanguage) {
  const auto [length, text] = format(64, "%s, gr\u00fc\u00df dich", "\u20ac");
  EXPECT_EQ(text, "\u20ac, gr\u00fc\u00df dich");
  EXPECT_EQ(length, static_cast<int>(text.size()));
}

TEST_F(FormatFoundation, ReleasesWhatFormattingLeftInItsPool) {
  Described *const described = [[[Described alloc] init] autorelease];
  watchers_released = 0;
  EXPECT_EQ(format(64, "%@", described).text, "described");
  EXPECT_EQ(watchers_released, 1);
}

// The second half of a pair of characters has no meaning alone.
TEST_F(FormatFoundation, FailsOnATextWithoutAFormInTheByteEncoding) {
  EXPECT_LT(format(64, "a%Cb", 0xDC00).length, 0);
  EXPECT_EQ(unbounded("a%Cb", 0xDC00), "");
}

TEST_F(FormatFoundation, FailsOnAnObjectThatRaises) {
  Raising *const raising = [[[Raising alloc] init] autorelease];
  EXPECT_LT(format(64, "a%@b", raising).length, 0);
  EXPECT_EQ(unbounded("a%@b", raising), "");
}

TEST_F(FormatFoundation, LeavesOfALineTheMarkerWhenItFails) {
  const qal::test::LogCapture log;
  qal_error("a%@b\n", [[[Raising alloc] init] autorelease]);
  EXPECT_EQ(log.text(), "ERROR: ");
}

}  // namespace

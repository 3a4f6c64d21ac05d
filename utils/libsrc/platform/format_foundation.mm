// Text formatting through Foundation's string class, which knows the object placeholder as well.
// Compiled with manual reference counting.
#import <Foundation/Foundation.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/platform.hpp"

namespace qal::internal::platform {
namespace {

// The format is a parameter; the compiler checks it where it is written.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

NSString *formatted(const char *format, NSStringEncoding encoding, std::va_list arguments) {
  NSString *pattern = [[[NSString alloc] initWithCString:format encoding:encoding] autorelease];
  if (!pattern) return nil;
  return [[[NSString alloc] initWithFormat:pattern arguments:arguments] autorelease];
}

// Copies as much as fits, and returns the length of the whole text.
int copy_cut(char *out, std::size_t room, const char *text) {
  const std::size_t length = std::strlen(text);
  if (length > INT_MAX) return -1;
  if (room == 0) return static_cast<int>(length);
  const std::size_t kept = std::min(length, room - 1);
  std::memcpy(out, text, kept);
  out[kept] = '\0';
  return static_cast<int>(length);
}

}  // namespace

int format_text(char *out, std::size_t room, const char *format, std::va_list arguments) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  const NSStringEncoding encoding = [NSString defaultCStringEncoding];
  int length = -1;
  @try {
    const char *text = [formatted(format, encoding, arguments) cStringUsingEncoding:encoding];
    // Null for a text that the encoding cannot represent.
    if (text) length = copy_cut(out, room, text);
  } @catch (id) {
    // An object could not describe itself, or the encoding's conversion failed with an exception.
  }
  [pool drain];
  return length;
}

}  // namespace qal::internal::platform

// Text formatting through the system's string class, which knows the object placeholder as well.
// Compiled with manual reference counting.
#import <Foundation/Foundation.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/platform.hpp"

namespace qal::internal::platform {
namespace {

// The format comes from the caller; its own declaration has it checked.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

NSString *formatted(const char *format, NSStringEncoding encoding, std::va_list arguments) {
  NSString *pattern = [[[NSString alloc] initWithCString:format encoding:encoding] autorelease];
  if (!pattern) return nil;
  return [[[NSString alloc] initWithFormat:pattern arguments:arguments] autorelease];
}

void copy_cut(char *out, std::size_t room, const char *text, std::size_t length) {
  if (room == 0) return;
  const std::size_t kept = std::min(length, room - 1);
  std::memcpy(out, text, kept);
  out[kept] = '\0';
}

}  // namespace

int format_text(char *out, std::size_t room, const char *format, std::va_list arguments) {
  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  const NSStringEncoding encoding = [NSString defaultCStringEncoding];
  // Null where the text has no form in that encoding.
  const char *text = [formatted(format, encoding, arguments) cStringUsingEncoding:encoding];
  const std::size_t length = text ? std::strlen(text) : 0;
  copy_cut(out, room, text ? text : "", length);
  [pool drain];
  return text && length <= INT_MAX ? static_cast<int>(length) : -1;
}

}  // namespace qal::internal::platform

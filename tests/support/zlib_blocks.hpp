// Compressed blocks put together by hand, and what the functions that write and read them look
// like.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace qal::test {

using Write = std::size_t (*)(const void *, std::size_t, std::size_t, std::FILE *);
using Read = std::size_t (*)(void *, std::size_t, std::size_t, std::FILE *);

constexpr std::size_t four_gib = std::size_t{1} << 32;

inline std::string number(std::size_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

inline std::string header(std::size_t uncompressed, std::size_t compressed, char flag = '\0') {
  return number(uncompressed) + number(compressed) + flag;
}

// What zlib itself makes of the text.
inline std::string compressed(std::string_view text, int level = Z_DEFAULT_COMPRESSION) {
  uLongf size = compressBound(text.size());
  std::string out(size, '\0');
  EXPECT_EQ(compress2(reinterpret_cast<Bytef *>(out.data()), &size,
                      reinterpret_cast<const Bytef *>(text.data()), text.size(), level),
            Z_OK);
  out.resize(size);
  return out;
}

// The header may lie about the size of the text.
inline std::string block(std::size_t uncompressed, std::string_view stream) {
  return header(uncompressed, stream.size()).append(stream);
}

inline std::string block(std::string_view text) { return block(text.size(), compressed(text)); }

// Bytes that do not compress.
inline std::string noise(std::size_t size) {
  std::uint32_t state = 1;
  std::string bytes(size, '\0');
  for (char &byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

}  // namespace qal::test

#include <gtest/gtest.h>
#include <qal/utf8.h>

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <string_view>

#include "internal/handles.hpp"
#include "support/guarded_text.hpp"

namespace {

using qal::internal::OwnedText;
using qal::test::GuardedText;

struct Decoded {
  int consumed = 0;
  std::uint32_t value = 0;
  bool operator==(const Decoded &) const = default;
};

void PrintTo(const Decoded &decoded, std::ostream *out) {
  *out << decoded.consumed << " bytes, " << decoded.value;
}

// For string literals, whose terminator may be read.
Decoded decode(const char *text) {
  Decoded decoded;
  decoded.consumed =
      qal_char_utf8_to_unicode(reinterpret_cast<const unsigned char *>(text), &decoded.value);
  return decoded;
}

using Bytes = std::array<unsigned char, 4>;

Decoded decode(const Bytes &bytes) {
  Decoded decoded;
  decoded.consumed = qal_char_utf8_to_unicode(bytes.data(), &decoded.value);
  return decoded;
}

// Which bits of each byte count, and where: one entry for each bit of the decoded value.
struct KeptBit {
  int from_byte;
  int from_bit;
  int to_bit;
};
constexpr KeptBit kept_of_two[]{{0, 0, 6},  {0, 1, 7}, {0, 2, 8}, {0, 3, 9},
                                {0, 4, 10}, {1, 6, 6}, {1, 7, 7}};
constexpr KeptBit kept_of_three[]{{0, 0, 12}, {0, 1, 13}, {0, 2, 14}, {0, 3, 15},
                                  {1, 6, 12}, {1, 7, 13}, {2, 6, 6},  {2, 7, 7}};
constexpr KeptBit kept_of_four[]{{0, 0, 18}, {0, 1, 19}, {0, 2, 20}, {1, 6, 18}, {1, 7, 19},
                                 {2, 6, 12}, {2, 7, 13}, {3, 6, 6},  {3, 7, 7}};

template <std::size_t N>
std::uint32_t gathered(const Bytes &bytes, const KeptBit (&kept)[N]) {
  std::bitset<32> value;
  for (const auto &bit : kept) {
    if (std::bitset<8>(bytes[static_cast<std::size_t>(bit.from_byte)])
            .test(static_cast<std::size_t>(bit.from_bit)))
      value.set(static_cast<std::size_t>(bit.to_bit));
  }
  return static_cast<std::uint32_t>(value.to_ulong());
}

// The leading ones of a byte tell its part: one for a continuation, two to four for a lead.
int leading_ones(unsigned char byte) {
  int ones = 0;
  while (ones < 8 && byte & 0x80 >> ones) ++ones;
  return ones;
}

Decoded model_of_decoding(const Bytes &bytes) {
  const int length = leading_ones(bytes[0]);
  if (length < 2 || length > 4) return {1, bytes[0]};
  for (int i = 1; i < length; ++i) {
    if (leading_ones(bytes[static_cast<std::size_t>(i)]) != 1) return {1, bytes[0]};
  }
  if (length == 2) return {2, gathered(bytes, kept_of_two)};
  if (length == 3) return {3, gathered(bytes, kept_of_three)};
  return {4, gathered(bytes, kept_of_four)};
}

struct Encoded {
  int written = 0;
  std::string bytes;  // up to the terminator
};

constexpr unsigned char untouched = 0xA5;

// Encodes between guard bytes.
Encoded encode(std::uint32_t code_point) {
  std::array<unsigned char, 16> room;
  room.fill(untouched);
  Encoded encoded;
  encoded.written = qal_char_unicode_to_utf8(code_point, room.data() + 4);
  const auto end = static_cast<std::size_t>(4 + encoded.written);
  EXPECT_EQ(room[end], 0) << code_point;
  for (std::size_t i = 0; i < room.size(); ++i) {
    EXPECT_TRUE((i >= 4 && i <= end) || room[i] == untouched) << code_point;
  }
  encoded.bytes.assign(reinterpret_cast<const char *>(room.data()) + 4,
                       static_cast<std::size_t>(encoded.written));
  return encoded;
}

// By division, from the last byte to the first.
std::string model_of_encoding(std::uint32_t code_point) {
  if (code_point >= 0x200000) return {};
  if (code_point < 0x80) return {static_cast<char>(code_point)};
  const int length = code_point < 0x800 ? 2 : code_point < 0x10000 ? 3 : 4;
  std::string bytes;
  for (int i = 1; i < length; ++i, code_point /= 64)
    bytes.insert(bytes.begin(), static_cast<char>(128 + code_point % 64));
  constexpr std::uint32_t marks[]{0, 0, 192, 224, 240};
  bytes.insert(bytes.begin(), static_cast<char>(marks[length] + code_point));
  return bytes;
}

TEST(Utf8Decode, TakesAsciiAsItIs) {
  EXPECT_EQ(decode("A"), (Decoded{1, 0x41}));
  EXPECT_EQ(decode("\x7F"), (Decoded{1, 0x7F}));
  EXPECT_EQ(decode(""), (Decoded{1, 0}));
}

TEST(Utf8Decode, TakesBytesOutsideASequenceAsLatin1) {
  EXPECT_EQ(decode("\xE9x"), (Decoded{1, 0xE9}));
  EXPECT_EQ(decode("\x80"), (Decoded{1, 0x80}));
  EXPECT_EQ(decode("\xBF\x80"), (Decoded{1, 0xBF}));
  EXPECT_EQ(decode("\xC3"), (Decoded{1, 0xC3}));
  EXPECT_EQ(decode("\xC3\xC3"), (Decoded{1, 0xC3}));
  EXPECT_EQ(decode("\xE2\x82"), (Decoded{1, 0xE2}));
  EXPECT_EQ(decode("\xF0\x9F\x98"), (Decoded{1, 0xF0}));
  for (const char *never :
       {"\xF8\x80\x80\x80\x80", "\xFC\x80\x80\x80\x80", "\xFE\x80\x80\x80", "\xFF\x80\x80\x80"})
    EXPECT_EQ(decode(never), (Decoded{1, static_cast<unsigned char>(never[0])}));
}

// Deliberate: the masks drop bits, so the values are not the characters' code points.
TEST(Utf8Decode, KeepsTheUpperBitsOfASequenceAlone) {
  EXPECT_EQ(decode("\xC3\xA9"), (Decoded{2, 0xC0}));
  EXPECT_EQ(decode("\xDF\x80"), (Decoded{2, 0x7C0}));
  EXPECT_EQ(decode("\xE2\x82\xAC"), (Decoded{3, 0x2080}));
  EXPECT_EQ(decode("\xEF\xBF\xBF"), (Decoded{3, 0xF080}));
  EXPECT_EQ(decode("\xF0\x9F\x98\x80"), (Decoded{4, 0x82080}));
  EXPECT_EQ(decode("\xF7\xBF\xBF\xBF"), (Decoded{4, 0x1C2080}));
}

TEST(Utf8Decode, AcceptsOverlongFormsAndSurrogates) {
  EXPECT_EQ(decode("\xC0\x80").consumed, 2);
  EXPECT_EQ(decode("\xE0\x80\x80").consumed, 3);
  EXPECT_EQ(decode("\xF0\x80\x80\x80").consumed, 4);
  EXPECT_EQ(decode("\xED\xA0\x80"), (Decoded{3, 0xF080}));
  EXPECT_EQ(decode("\xF5\x80\x80\x80").consumed, 4);
}

void expect_agreement(const Bytes &bytes) {
  const Decoded decoded = decode(bytes);
  const Decoded expected = model_of_decoding(bytes);
  if (decoded == expected) return;
  ADD_FAILURE() << testing::PrintToString(bytes) << " gives " << testing::PrintToString(decoded)
                << " instead of " << testing::PrintToString(expected);
}

// One and two bytes are among them: a NUL ends those.
TEST(Utf8Decode, AgreesWithTheTableOfKeptBitsForEveryThreeBytes) {
  for (unsigned three = 0; three < 1U << 24; ++three) {
    expect_agreement({static_cast<unsigned char>(three >> 16),
                      static_cast<unsigned char>(three >> 8), static_cast<unsigned char>(three)});
    if (HasFailure()) return;
  }
}

TEST(Utf8Decode, AgreesWithTheTableOfKeptBitsForFourRandomBytes) {
  std::mt19937 engine{20260102};
  for (int i = 0; i < 1 << 20; ++i) {
    const auto random = static_cast<std::uint32_t>(engine());
    // Half of them begin like a sequence of four.
    const unsigned lead = i % 2 ? random >> 24 : 0xF0U | (random >> 24 & 7U);
    const unsigned rest = i % 4 ? random : (random & 0x3F3F3FU) | 0x808080U;
    const Bytes bytes{static_cast<unsigned char>(lead), static_cast<unsigned char>(rest >> 16),
                      static_cast<unsigned char>(rest >> 8), static_cast<unsigned char>(rest)};
    expect_agreement(bytes);
    if (HasFailure()) return;
  }
}

TEST(Utf8Decode, ReadsNothingBehindTheByteThatEndsASequence) {
  GuardedText text;
  const auto consumed = [&text](std::string_view bytes) {
    std::uint32_t value = 0;
    const auto *const start = reinterpret_cast<const unsigned char *>(text.put_bytes(bytes));
    return qal_char_utf8_to_unicode(start, &value);
  };
  // Whole sequences without a terminator, and every cut of them before one.
  EXPECT_EQ(consumed("A"), 1);
  EXPECT_EQ(consumed("\x80"), 1);
  EXPECT_EQ(consumed("\xFF"), 1);
  EXPECT_EQ(consumed("\xC3\xA9"), 2);
  EXPECT_EQ(consumed("\xE2\x82\xAC"), 3);
  EXPECT_EQ(consumed("\xF0\x9F\x98\x80"), 4);
  for (const std::string_view whole : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    for (std::size_t length = 1; length < whole.size(); ++length) {
      EXPECT_EQ(consumed(std::string(whole.substr(0, length)) + '\0'), 1);
      EXPECT_EQ(consumed(std::string(whole.substr(0, length)) + 'x'), 1);
    }
  }
}

TEST(Utf8Encode, WritesTheBytesAndATerminator) {
  EXPECT_EQ(encode(0).written, 1);
  EXPECT_EQ(encode(0).bytes, std::string(1, '\0'));
  EXPECT_EQ(encode('A').bytes, "A");
  EXPECT_EQ(encode(0xE9).bytes, "\xC3\xA9");
  EXPECT_EQ(encode(0x20AC).written, 3);
  EXPECT_EQ(encode(0x20AC).bytes, "\xE2\x82\xAC");
  EXPECT_EQ(encode(0x10FFFF).written, 4);
  EXPECT_EQ(encode(0x10FFFF).bytes, "\xF4\x8F\xBF\xBF");
}

TEST(Utf8Encode, ChangesItsLengthAtEachLimit) {
  EXPECT_EQ(encode(0x7F).bytes, "\x7F");
  EXPECT_EQ(encode(0x80).bytes, "\xC2\x80");
  EXPECT_EQ(encode(0x7FF).bytes, "\xDF\xBF");
  EXPECT_EQ(encode(0x800).bytes, "\xE0\xA0\x80");
  EXPECT_EQ(encode(0xFFFF).bytes, "\xEF\xBF\xBF");
  EXPECT_EQ(encode(0x10000).bytes, "\xF0\x90\x80\x80");
  EXPECT_EQ(encode(0x1FFFFF).bytes, "\xF7\xBF\xBF\xBF");
}

TEST(Utf8Encode, WritesATerminatorAloneForWhatFourBytesCannotHold) {
  for (const std::uint32_t code_point :
       {0x200000U, 0x200041U, 0x7FFFFFFFU, 0x80000000U, std::numeric_limits<std::uint32_t>::max()})
    EXPECT_EQ(encode(code_point).written, 0) << code_point;
}

TEST(Utf8Encode, TreatsSurrogatesLikeAnyOther) {
  EXPECT_EQ(encode(0xD800).bytes, "\xED\xA0\x80");
  EXPECT_EQ(encode(0xDFFF).bytes, "\xED\xBF\xBF");
}

TEST(Utf8Encode, AgreesWithDivisionForEveryCodePoint) {
  for (std::uint32_t code_point = 0; code_point <= 0x20FFFF; ++code_point) {
    unsigned char out[5] = {untouched, untouched, untouched, untouched, untouched};
    const std::string expected = model_of_encoding(code_point);
    const auto written = static_cast<std::size_t>(qal_char_unicode_to_utf8(code_point, out));
    ASSERT_EQ(written, expected.size()) << code_point;
    ASSERT_EQ(std::memcmp(out, expected.c_str(), written + 1), 0) << code_point;
    for (std::size_t i = written + 1; i < sizeof out; ++i) ASSERT_EQ(out[i], untouched);
  }
}

TEST(Utf8Encode, IsFollowedToItsEndByDecoding) {
  for (std::uint32_t code_point = 0; code_point <= 0x1FFFFF; ++code_point) {
    unsigned char bytes[5];
    const int written = qal_char_unicode_to_utf8(code_point, bytes);
    std::uint32_t value = 0;
    ASSERT_EQ(qal_char_utf8_to_unicode(bytes, &value), written) << code_point;
  }
}

TEST(Utf8Strings, AreCopied) {
  for (const auto convert : {qal_string_native_to_utf8, qal_string_utf8_to_native}) {
    for (const char *text : {"", "plain", "gr\xC3\xBC\xC3\x9F", "\xFF\xFE broken \xC3"}) {
      const OwnedText copy(convert(text));
      EXPECT_STREQ(copy.get(), text);
      EXPECT_NE(copy.get(), text);
    }
    const std::string longer(100'000, 'x');
    EXPECT_EQ(OwnedText(convert(longer.c_str())).get(), longer);
  }
}

TEST(Utf8Strings, OfNullAreNull) {
  EXPECT_EQ(qal_string_native_to_utf8(nullptr), nullptr);
  EXPECT_EQ(qal_string_utf8_to_native(nullptr), nullptr);
}

TEST(Utf8Strings, NeedNothingInPlace) {
  EXPECT_EQ(qal_string_native_to_utf8_inplace(), 0);
  EXPECT_EQ(qal_string_utf8_to_native_inplace(), 0);
}

TEST(Utf8Strings, HaveTheCodePageOfUtf8) { EXPECT_EQ(qal_get_current_code_page(), 65001); }

// clang-format off
constexpr std::uint32_t expected_symbols[256] = {
    0x0024, 0x00A2, 0x00A3, 0x00A4, 0x00A5, 0x0E3F, 0x20A0, 0x20A1, 0x20A2, 0x20A3, 0x20A4, 0x20A5, 0x20A6, 0x20A7, 0x20A9, 0x20AC,
    0x2042, 0x21BA, 0x21BB, 0x2195, 0x21E0, 0x21E2, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000, 0x0000,
    0x0020, 0x0021, 0x2200, 0x0023, 0x2203, 0x0025, 0x0026, 0x220D, 0x0028, 0x0029, 0x002A, 0x002B, 0x002C, 0x002D, 0x002E, 0x002F,
    0x0030, 0x0031, 0x0032, 0x0033, 0x0034, 0x0035, 0x0036, 0x0037, 0x0038, 0x0039, 0x003A, 0x003B, 0x003C, 0x003D, 0x003E, 0x003F,
    0x2245, 0x0391, 0x0392, 0x03A7, 0x0394, 0x0395, 0x03A6, 0x0393, 0x0397, 0x0399, 0x2123, 0x039A, 0x039B, 0x039C, 0x039D, 0x039F,
    0x03A0, 0x0398, 0x03A1, 0x03A3, 0x03A4, 0x0059, 0x03C2, 0x03A9, 0x039E, 0x03A8, 0x0396, 0x005B, 0x2234, 0x005D, 0x22A5, 0x005F,
    0x0305, 0x03B1, 0x03B2, 0x03C7, 0x03B4, 0x03B5, 0x03D5, 0x03B3, 0x03B7, 0x03B9, 0x03C6, 0x03BA, 0x03BB, 0x03BC, 0x03BD, 0x03BF,
    0x03C0, 0x03B8, 0x03C1, 0x03C3, 0x03C4, 0x03C5, 0x1FF6, 0x03C9, 0x03BE, 0x03C8, 0x03B6, 0x007B, 0x007C, 0x007D, 0x007E, 0x2020,
    0x2021, 0x00A7, 0x210A, 0x210B, 0x210E, 0x210F, 0x2110, 0x2112, 0x2113, 0x2115, 0x2119, 0x211B, 0x211D, 0x2124, 0x2128, 0x212B,
    0x212E, 0x222C, 0x222D, 0x222E, 0x222F, 0x2235, 0x2713, 0x2300, 0x2245, 0x223B, 0x2714, 0x2717, 0x2718, 0x21BC, 0x21C0, 0x2034,
    0x2033, 0x03A5, 0x2032, 0x2264, 0x002F, 0x221E, 0x2131, 0x2663, 0x2666, 0x2665, 0x2660, 0x2194, 0x2190, 0x2191, 0x2192, 0x2193,
    0x00B0, 0x00B1, 0x00A8, 0x2265, 0x00D7, 0x221D, 0x2202, 0x2022, 0x00F7, 0x2260, 0x2261, 0x2248, 0x2026, 0x2225, 0x2014, 0x21B5,
    0x2135, 0x2111, 0x211C, 0x2118, 0x2297, 0x2295, 0x2205, 0x2229, 0x222A, 0x2283, 0x2287, 0x2284, 0x2282, 0x2286, 0x2208, 0x2209,
    0x2220, 0x2207, 0x00AE, 0x00A9, 0x2122, 0x220F, 0x221A, 0x221B, 0x00AC, 0x2227, 0x2228, 0x21D4, 0x21D0, 0x21D1, 0x21D2, 0x21D3,
    0x2662, 0x2329, 0x2103, 0x2109, 0x2120, 0x2211, 0xF8EB, 0xF8EC, 0xF8ED, 0xF8EE, 0xF8EF, 0xF8F0, 0xF8F1, 0xF8F2, 0xF8F3, 0xF8F4,
    0x2030, 0x232A, 0x222B, 0x2320, 0x2210, 0x2321, 0xF8F6, 0xF8F7, 0xF8F8, 0xF8F9, 0xF8FA, 0xF8FB, 0xF8FD, 0xF8FE, 0x220C, 0x0040,
};
// clang-format on

TEST(SymbolFont, MapsEveryCode) {
  for (int code = 0; code < 256; ++code) {
    EXPECT_EQ(old_sym_font_to_unicode[code], expected_symbols[code]) << std::hex << code;
    EXPECT_EQ(qal_kalmora_symbol_to_unicode(code), expected_symbols[code]) << std::hex << code;
  }
}

TEST(SymbolFont, ClampsCodesOutsideTheTable) {
  for (const std::int32_t code : {-1, -5, std::numeric_limits<std::int32_t>::min()})
    EXPECT_EQ(qal_kalmora_symbol_to_unicode(code), 0x24U) << code;
  for (const std::int32_t code : {256, 1000, std::numeric_limits<std::int32_t>::max()})
    EXPECT_EQ(qal_kalmora_symbol_to_unicode(code), 0x40U) << code;
}

TEST(SymbolFont, GivesTheLastEntryForEveryLargerCode) {
  for (std::int32_t code = 256; code <= 0x20FFFF; ++code)
    ASSERT_EQ(qal_kalmora_symbol_to_unicode(code), 0x40U) << code;
}

TEST(SymbolFont, HasLettersAndGaps) {
  EXPECT_EQ(qal_kalmora_symbol_to_unicode(0x61), 0x3B1U);
  for (int code = 0x16; code <= 0x1F; ++code) EXPECT_EQ(qal_kalmora_symbol_to_unicode(code), 0U);
}

// Deliberate: none of these is a slip.
TEST(SymbolFont, KeepsItsIrregularEntries) {
  EXPECT_EQ(qal_kalmora_symbol_to_unicode(0x40), 0x2245U);
  EXPECT_EQ(qal_kalmora_symbol_to_unicode(0x98), 0x2245U);
  EXPECT_EQ(qal_kalmora_symbol_to_unicode(0x55), std::uint32_t{'Y'});
  EXPECT_EQ(qal_kalmora_symbol_to_unicode(0xA4), std::uint32_t{'/'});
  for (std::size_t i = 0; i < 256; ++i) {
    EXPECT_NE(old_sym_font_to_unicode[i], 0xF8F5U);
    EXPECT_NE(old_sym_font_to_unicode[i], 0xF8FCU);
  }
}

}  // namespace

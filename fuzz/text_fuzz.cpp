// The text functions on any texts, compared with models over std::string. An input is a byte that
// chooses the function, its numbers and its texts, which end at NULs.
#include <qal/text.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "input.hpp"
#include "require.hpp"
#include "room.hpp"
#include "support/text_model.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::require;
using qal::fuzz::Room;

// A text of which no more than `most` bytes may be looked at: a longer one has no terminator.
Room source_of(std::string_view text, std::size_t most) {
  return text.size() < most ? Room::of_text(text) : Room::holding(text.substr(0, most));
}

std::size_t place_of(const char *found, const Room &room) {
  return found ? static_cast<std::size_t>(found - room.data()) : std::string::npos;
}

// What a room holds after its first bytes were overwritten.
std::string overwritten(std::string room, const std::string &front) {
  return room.replace(0, front.size(), front);
}

void copy(Input &input) {
  const int size = input.byte() - 1;
  const std::string text = input.text();
  const auto looked_at = static_cast<std::size_t>(std::max(size - 1, 0));
  const Room source = source_of(text, looked_at);
  const Room room(static_cast<std::size_t>(std::max(size, 0)));
  require(qal_strncpy(room.data(), source.data(), size) == room.data(), "a copy answers its place");
  if (size < 1) return;
  require(room.all() == qal::test::filled(room.size(), text), "a copy is the text, cut to fit");
}

void copy_within(Input &input) {
  const unsigned from = input.byte();
  const unsigned to = input.byte();
  const unsigned size = input.byte() + 1U;
  const std::string text = input.text();
  const std::string source = text.substr(std::min<std::size_t>(from, text.size()));
  const Room room(std::max(text.size() + 1, std::size_t{to} + size), text);
  const std::string before = room.all();
  qal_strncpy(room.data() + to, room.data() + text.size() - source.size(), static_cast<int>(size));
  const std::string after = before.substr(0, to) + qal::test::filled(size, source);
  require(room.all() == overwritten(before, after), "a copy may overlap its source");
}

void append(Input &input) {
  const unsigned size = input.number() % 300;
  const std::string first = input.text();
  const std::string second = input.text();
  const bool full = first.size() >= size;
  const Room room(std::max<std::size_t>(size, first.size() + 1), first);
  const std::string before = room.all();
  const Room source = source_of(second, full ? 0 : size - 1 - first.size());
  const char *const appended = qal_strncat(room.data(), source.data(), size);
  require(place_of(appended, room) == first.size(), "the place of the appended part is answered");
  const std::string after = full ? before : qal::test::filled(size, first + second);
  require(room.all() == after, "both texts, cut to fit, or nothing in a full buffer");
}

void append_itself(Input &input) {
  const unsigned size = input.number() % 300;
  const unsigned from = input.byte();
  const std::string text = input.text();
  if (text.size() >= size) return;
  const std::string part = text.substr(std::min<std::size_t>(from, text.size()));
  const Room room(size, text);
  qal_strncat(room.data(), room.data() + text.size() - part.size(), size);
  require(room.all() == qal::test::filled(size, text + part), "a text may be appended to itself");
}

void find_character(Input &input) {
  const int character = static_cast<int>(input.number());
  const Room text = Room::of_text(input.text());
  const auto byte = static_cast<char>(character);
  require(place_of(qal_strchr(text.data(), character), text) == text.all().find(byte),
          "the first of a character");
  require(place_of(qal_strrchr(text.data(), character), text) == text.all().rfind(byte),
          "the last of a character");
}

void find_without_case(Input &input) {
  const std::string needle = input.text();
  const Room sought = Room::of_text(needle);
  const Room text = Room::of_text(input.text());
  const std::size_t place = needle.empty()
                                ? std::string::npos
                                : qal::test::raised(text.text()).find(qal::test::raised(needle));
  require(place_of(qal_strcasestr(text.data(), sought.data()), text) == place,
          "the first match without regard to case");
}

std::string in_seven_bits(std::string text) {
  for (char &c : text) c = static_cast<char>(c & 0x7f);
  return text;
}

void change_case(Input &input) {
  const int mode = static_cast<std::int8_t>(input.byte());
  const std::string text = input.text();
  const Room room = Room::of_text(text);
  qal_changecase(room.data(), mode);
  const std::string changed = mode == 0   ? qal::test::raised(text)
                              : mode == 1 ? qal::test::lowered(text)
                              : mode == 2 ? in_seven_bits(text)
                                          : text;
  require(room.all() == changed + '\0', "the letters of each mode change");
}

void convert_character(Input &input) {
  const unsigned character = input.number();
  const std::string text(character < 128 ? 1 : 0, static_cast<char>(character));
  const auto first_or_same = [=](const std::string &converted) {
    return converted.empty() ? character : static_cast<unsigned>(converted.front());
  };
  require(qal_toupper(character) == first_or_same(qal::test::raised(text)), "an upper-case form");
  require(qal_tolower(character) == first_or_same(qal::test::lowered(text)), "a lower-case form");
}

void replace(Input &input) {
  const int flags = input.byte();
  const std::string find = input.text();
  const std::string replacement = input.text();
  const std::string text = input.text();
  const auto expected = qal::test::replaced_slowly(text, find, replacement, (flags & 1) != 0);
  const Room sought = Room::of_text(find);
  const Room put_in = Room::of_text(replacement);
  const Room room(std::max(text.size(), expected.text.size()) + 1, text);
  const bool null_for_empty = (flags & 2) != 0;
  const int count =
      qal_strrepl(room.data(), find.empty() && null_for_empty ? nullptr : sought.data(),
                  replacement.empty() && null_for_empty ? nullptr : put_in.data(), flags);
  require(count == expected.count, "the number of replacements");
  require(room.text() == expected.text, "each match replaced once");
}

void cut_at_set(Input &input) {
  const std::string set = input.text();
  const std::string text = input.text();
  const Room stops = Room::of_text(set);
  const Room room = Room::of_text(text);
  const std::size_t kept = std::min(text.find_first_of(set), text.size());
  require(qal_strip_at_the_chars(room.data(), stops.data()) == static_cast<int>(kept),
          "the length up to the set");
  require(room.all() == qal::test::filled(room.size(), text.substr(0, kept)),
          "nothing but NUL behind the cut");
}

// Strips by either function: a character of 256 or more means the spaces.
int strip(const char *source, char *destination, unsigned character) {
  if (character >= 256) return qal_strip_pre_post_spaces(source, destination);
  return qal_strip_pre_post_chars(source, destination, static_cast<int>(character | 0xA500));
}

std::string stripped(const std::string &text, unsigned character) {
  if (character >= 256) return qal::test::trimmed(text, " \t\n\v\f\r");
  return qal::test::trimmed(text, std::string(1, static_cast<char>(character)));
}

void strip_both_ends(Input &input) {
  const unsigned character = input.number() % 512;
  const std::string text = input.text();
  const std::string expected = stripped(text, character);
  const Room source = Room::of_text(text);
  const Room room(text.size() + 1);
  require(strip(source.data(), room.data(), character) == static_cast<int>(expected.size()),
          "the length without both runs");
  require(room.text() == expected, "the text without both runs");
}

void strip_within(Input &input) {
  const unsigned character = input.number() % 512;
  const unsigned from = input.byte();
  const unsigned to = input.byte();
  const std::string text = input.text();
  const std::string expected = stripped(text, character);
  const Room room(std::max(from, to) + text.size() + 1);
  std::copy_n(text.c_str(), text.size() + 1, room.data() + from);
  const int length = strip(room.data() + from, room.data() + to, character);
  require(length == static_cast<int>(expected.size()), "the length within one room");
  require(std::string_view{room.data() + to} == expected, "stripping may overlap its source");
}

std::string widened(const std::string &text, int width) {
  const int missing = std::max(width - static_cast<int>(text.size()), 0);
  return std::string(static_cast<std::size_t>(missing), ' ') + text;
}

void print(Input &input) {
  const std::size_t size = input.byte();
  const int width = input.byte() % 64;
  const std::string text = input.text();
  const std::string stale = input.rest();
  const Room room(size);
  std::copy_n(stale.begin(), std::min(stale.size(), size), room.data());
  const std::string before = room.all();
  const int result = qal_snprintf(room.data(), size, "%*s", width, text.c_str());
  if (size == 0) {
    require(result == 1, "nothing fits into no room");
    return;
  }
  const auto expected = qal::test::printed_over(before, widened(text, width));
  require(result == expected.result, "whether the output fitted");
  require(room.all() == expected.room, "the output, cut to fit");
}

void print_in_vain(Input &input) {
  const std::size_t size = input.byte() + 1U;
  const wchar_t not_convertible[] = {L'a', 0x20ac, 0};
  const Room room(size);
  require(qal_snprintf(room.data(), size, "%ls", not_convertible) == 1, "a failure is told");
  require(room.all().back() == '\0', "a failure leaves a text");
  require(qal_snprintf(nullptr, size, "%s", "") == 1, "no buffer is a failure");
}

constexpr void (*functions[])(Input &) = {
    copy,    copy_within,  append,      append_itself, find_character,    find_without_case,
    replace, cut_at_set,   change_case, strip_within,  convert_character, strip_both_ends,
    print,   print_in_vain};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  functions[input.byte() % std::size(functions)](input);
  return 0;
}

// Replacement, copying and search without case, each beside what a user would write instead.
#include <absl/strings/str_replace.h>
#include <qal/text.h>

#include <boost/algorithm/string/replace.hpp>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "rows.hpp"

namespace {

constexpr std::size_t text_size = std::size_t{64} << 10U;
constexpr char wanted[] = "%s";
constexpr char shorter[] = "x";
constexpr char longer[] = "a value";
constexpr char as_long[] = "xy";

// One match in each eight bytes.
std::string text_of(std::size_t size) {
  std::string text;
  while (text.size() < size) text += "name=%s;";
  return text;
}

const std::string &text_with_matches() {
  static const std::string text = text_of(text_size);
  return text;
}

template <const char *replacement>
void replace_in_place(benchmark::State &state) {
  const std::string &text = text_with_matches();
  std::vector<char> buffer(2 * text.size() + 1);
  for (auto _ : state) {
    std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
    benchmark::DoNotOptimize(qal_strrepl(buffer.data(), wanted, replacement, 0));
    benchmark::ClobberMemory();
  }
}

template <const char *replacement>
void replace_in_std_string(benchmark::State &state) {
  const std::size_t fresh_size = std::strlen(replacement);
  for (auto _ : state) {
    std::string copy = text_with_matches();
    for (auto at = copy.find(wanted); at != std::string::npos; at = copy.find(wanted, at)) {
      copy.replace(at, sizeof wanted - 1, replacement);
      at += fresh_size;
    }
    benchmark::DoNotOptimize(copy.data());
  }
}

template <const char *replacement>
void replace_by_boost(benchmark::State &state) {
  for (auto _ : state) {
    std::string copy = text_with_matches();
    boost::replace_all(copy, wanted, replacement);
    benchmark::DoNotOptimize(copy.data());
  }
}

template <const char *replacement>
void replace_by_abseil(benchmark::State &state) {
  for (auto _ : state) {
    std::string result = absl::StrReplaceAll(text_with_matches(), {{wanted, replacement}});
    benchmark::DoNotOptimize(result.data());
  }
}

template <const char *replacement>
void replacing(const char *capability) {
  qal::bench::row(capability, {{"qal", replace_in_place<replacement>},
                               {"std::string", replace_in_std_string<replacement>},
                               {"Boost", replace_by_boost<replacement>},
                               {"Abseil", replace_by_abseil<replacement>}});
}

using Copy = char *(*)(char *dst, const char *src, int size);

char *c_library_copy(char *dst, const char *src, int size) {
  return std::strncpy(dst, src, static_cast<std::size_t>(size));
}

// A name is copied into a field of a record, whose rest is filled with NUL.
template <Copy copy>
void copy_into_field(benchmark::State &state) {
  char field[64];
  const char *name = "halix_server_of_studio_2";
  char *dst = field;
  int size = sizeof field;
  for (auto _ : state) {
    benchmark::DoNotOptimize(name);
    benchmark::DoNotOptimize(dst);
    benchmark::DoNotOptimize(size);
    copy(dst, name, size);
    benchmark::ClobberMemory();
  }
}

// What replacing in place begins with, because each round needs the text as it was.
void copy_text(benchmark::State &state) {
  const std::string &text = text_with_matches();
  std::vector<char> buffer(text.size() + 1);
  for (auto _ : state) {
    std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
    benchmark::ClobberMemory();
  }
}

void replace_growing(benchmark::State &state) {
  const std::string text = text_of(static_cast<std::size_t>(state.range(0)));
  std::vector<char> buffer(2 * text.size() + 1);
  for (auto _ : state) {
    std::memcpy(buffer.data(), text.c_str(), text.size() + 1);
    benchmark::DoNotOptimize(qal_strrepl(buffer.data(), wanted, longer, 0));
  }
}

void replace_growing_by_abseil(benchmark::State &state) {
  const std::string text = text_of(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(absl::StrReplaceAll(text, {{wanted, longer}}));
  }
}

using Search = char *(*)(const char *text, const char *needle);

char *end_of(const char *text, const char *) {
  return const_cast<char *>(text) + std::strlen(text);
}

char *c_library_search(const char *text, const char *needle) {
  return const_cast<char *>(strcasestr(text, needle));
}

// The needle stands at the very end of the text.
template <Search search>
void search_behind(benchmark::State &state, const char *filler, std::size_t size) {
  std::string text;
  while (text.size() < size) text += filler;
  text += "ProductVersion:";
  for (auto _ : state) {
    const char *in = text.c_str();
    benchmark::DoNotOptimize(in);
    benchmark::DoNotOptimize(search(in, "productVERSION:"));
  }
}

template <Search search>
void search_prose(benchmark::State &state) {
  search_behind<search>(state, "the quick brown fox ", text_size);
}

template <Search search>
void search_line(benchmark::State &state) {
  search_behind<search>(state, "Build: 21G", 40);
}

const bool registered = [] {
  using qal::bench::row;
  replacing<shorter>("string replace 64 KiB, shrink");
  replacing<longer>("string replace 64 KiB, grow");
  replacing<as_long>("string replace 64 KiB, equal");
  row("string copy into 64 bytes",
      {{"qal", copy_into_field<qal_strncpy>}, {"glibc strncpy", copy_into_field<c_library_copy>}});
  row("case-insensitive search, 64 KiB", {{"qal", search_prose<qal_strcasestr>},
                                          {"glibc strcasestr", search_prose<c_library_search>}});
  row("case-insensitive search, short",
      {{"qal", search_line<qal_strcasestr>}, {"glibc strcasestr", search_line<c_library_search>}});
  for (const char *const replacing_row :
       {"string replace 64 KiB, shrink", "string replace 64 KiB, grow",
        "string replace 64 KiB, equal"}) {
    row(replacing_row, {{"floor: a copy of the text", copy_text}});
  }
  row("case-insensitive search, 64 KiB", {{"floor: strlen", search_prose<end_of>}});
  row("case-insensitive search, short", {{"floor: strlen", search_line<end_of>}});
  qal::bench::curve("string replace, by the length of the text",
                    {100, 1'000, 10'000, 100'000, 1'000'000, 10'000'000},
                    {{"qal", replace_growing}, {"Abseil", replace_growing_by_abseil}});
  return true;
}();

}  // namespace

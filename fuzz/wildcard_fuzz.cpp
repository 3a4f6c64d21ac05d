// Both matchers on any two texts. An input is six bits of flags and ten of the pattern's length,
// the pattern and the name. Short inputs with few stars are compared with the recursive models; all
// others have to end and stay within their texts.
#include <qal/wildcard.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>

#include "require.hpp"
#include "support/wildcard_model.hpp"

namespace {

using qal::fuzz::require;
using Input = std::span<const std::uint8_t>;
using Text = std::unique_ptr<unsigned char[]>;

constexpr std::size_t longest_for_model = 24;
constexpr std::ptrdiff_t most_stars_for_model = 4;

// A copy of exactly its size, so that a sanitizer sees a read behind its end.
Text copy_of(Input input) {
  Text text{new unsigned char[input.size() + 1]};
  *std::copy(input.begin(), input.end(), text.get()) = '\0';
  return text;
}

bool model_can_follow(Input pattern, Input name) {
  return std::max(pattern.size(), name.size()) <= longest_for_model &&
         std::count(pattern.begin(), pattern.end(), '*') <= most_stars_for_model;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  if (size < 2) return 0;
  const unsigned flags = data[0] & 0x3FU;
  const std::size_t pattern_size = (data[0] & 0xC0U) * 4U + data[1];
  const Input texts{data + 2, size - 2};
  const Input pattern_input = texts.first(std::min(pattern_size, texts.size()));
  const Input name_input = texts.subspan(pattern_input.size());
  const Text pattern = copy_of(pattern_input);
  const Text name = copy_of(name_input);
  const char *const string = reinterpret_cast<const char *>(name.get());

  const bool small = zul_fnmatch(pattern.get(), name.get()) == 0;
  const bool full = qal_fnmatch(pattern.get(), string, flags) == 0;
  if (!model_can_follow(pattern_input, name_input)) return 0;
  require(small == qal::test::model_zul_fnmatch(pattern.get(), name.get()),
          "zul_fnmatch answers as its model");
  require(full == qal::test::model_qal_fnmatch(pattern.get(), string, flags),
          "qal_fnmatch answers as its model");
  return 0;
}

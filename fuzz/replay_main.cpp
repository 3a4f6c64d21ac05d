// Hands every input of a bundle to a fuzz target, so that an ordinary test run checks the property
// on all inputs collected so far.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <vector>

#include "require.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

using qal::fuzz::require;

std::vector<char> content_of(const std::filesystem::path &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Each input is an allocation of its own, so that valgrind sees what is read beyond it.
void replay(const std::vector<char> &input) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
}

// A bundle is a ustar archive of nothing but files. Each is a header of one block and its content
// in whole blocks; two blocks of zeros follow the last.
constexpr std::size_t block = 512;
constexpr std::size_t size_at = 124, size_digits = 11, type_at = 156, magic_at = 257;

bool is_end(std::string_view rest) { return rest.find_first_not_of('\0') == rest.npos; }

std::size_t size_in(std::string_view header) {
  const std::string_view digits = header.substr(size_at, size_digits);
  std::size_t size = 0;
  const char *end = digits.data() + digits.size();
  require(std::from_chars(digits.data(), end, size, 8).ptr == end,
          "the header of a bundled input has a size");
  return size;
}

std::vector<char> take_input(std::string_view &rest) {
  require(rest.size() >= block, "a bundle consists of blocks");
  const std::string_view header = rest.substr(0, block);
  require(header.substr(magic_at, 5) == "ustar", "a bundle is a ustar archive");
  require(header[type_at] == '0', "a bundle consists of files");
  const std::size_t size = size_in(header);
  const std::size_t blocks = (size + block - 1) / block;
  rest.remove_prefix(block);
  require(blocks * block <= rest.size(), "a bundle holds its last input whole");
  const std::string_view input = rest.substr(0, size);
  rest.remove_prefix(blocks * block);
  return {input.begin(), input.end()};
}

int replay_bundle(const std::filesystem::path &path) {
  const std::vector<char> bundle = content_of(path);
  std::string_view rest{bundle.data(), bundle.size()};
  int replayed = 0;
  for (; !is_end(rest); ++replayed) replay(take_input(rest));
  require(rest.size() >= 2 * block, "a bundle ends in two blocks of zeros");
  return replayed;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2 || !std::filesystem::is_regular_file(argv[1])) {
    std::fprintf(stderr, "usage: %s BUNDLE\n", argv[0]);
    return 2;
  }
  const int replayed = replay_bundle(argv[1]);
  std::printf("%d inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
}

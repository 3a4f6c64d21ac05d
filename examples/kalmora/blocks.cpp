// Compressed blocks with a level of one's own, and how many bytes reading them has counted.
#include <kalmora/blocks.hpp>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace {

struct Close {
  void operator()(std::FILE *file) const { std::fclose(file); }
};

}  // namespace

int main() {
  int best = 9;
  zlib_compression_method(&best, KALMORA_LEVEL_SET);

  std::array<char, 50'000> zeros = {};
  const std::unique_ptr<std::FILE, Close> file(std::tmpfile());
  if (!file) return 1;
  const std::size_t size = fwrite_zlib(zeros.data(), 1, zeros.size(), file.get());
  std::rewind(file.get());
  if (fread_zlib(zeros.data(), 1, zeros.size(), file.get()) != size) return 1;

  std::uint64_t in = 0, out = 0;
  zlib_io_stats(&in, &out, 0);
  std::printf("%d bytes from fewer than %d\n", static_cast<int>(in), out < 500 ? 500 : 50'000);
  return 0;
}

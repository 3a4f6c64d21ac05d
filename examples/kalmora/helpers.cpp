// Some of the programs' helpers.
#include <kalmora/helpers.hpp>

#include <cstdint>
#include <cstdio>

int main() {
  char name[] = "Gear Box (v2).dat";
  if (replace_illegal(name)) std::puts(name);
  std::printf("the same name: %s\n", readercmp("Gear Box", "gearbox") == 0 ? "yes" : "no");

  int major = 0, minor = 0, patch = 0;
  char letter = 0;
  version_number_from_version_string("10.2.3(b)", &major, &minor, &patch, &letter);
  std::printf("version %d, %d, %d, %c\n", major, minor, patch, letter);

  std::int64_t seed = 0;  // the same seed gives the same numbers everywhere
  const auto first = static_cast<double>(erand0(&seed));
  std::printf("%.6f %.6f\n", first, static_cast<double>(erand0(&seed)));

  char path[64];
  const int length = expfnam("~nobody-of-that-name/x", 64, path, sizeof path);
  if (length == KALMORA_NAME_UNKNOWN) std::puts("no such user");
  return 0;
}

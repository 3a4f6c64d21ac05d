// A model of a server record: the C library's scanner reads its fields, which are then checked.
#pragma once

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace qal::test {

struct ModelRecord {
  std::string url;
  std::string user;
  std::string password;
  int pid;
};

constexpr std::size_t model_limit_bytes = std::size_t{1024} * 1024;
constexpr std::size_t model_field_bytes = 255;

// Where the four fields lie. An end below 0 was not reached.
struct ModelFields {
  int start[4] = {-1, -1, -1, -1};
  int end[4] = {-1, -1, -1, -1};
};

inline ModelFields scan_with_c_library(std::string bytes) {
  ModelFields at;
  if (bytes.empty()) return at;
  std::FILE *const file = fmemopen(bytes.data(), bytes.size(), "rb");
  if (!file) std::abort();
  const int ignored =
      std::fscanf(file, " %n%*s%n %n%*s%n %n%*s%n %n%*d%n", &at.start[0], &at.end[0], &at.start[1],
                  &at.end[1], &at.start[2], &at.end[2], &at.start[3], &at.end[3]);
  static_cast<void>(ignored);
  std::fclose(file);
  return at;
}

// The first four fields of a whole file, or nothing when it is malformed.
inline std::optional<ModelRecord> model_of(std::string_view whole) {
  const std::string bytes{whole.substr(0, model_limit_bytes)};
  const ModelFields at = scan_with_c_library(bytes);
  if (at.end[3] < 0) return {};
  const auto number_end = static_cast<std::size_t>(at.end[3]);
  if (number_end == model_limit_bytes && whole.size() > model_limit_bytes) return {};
  std::string texts[4];
  for (int i = 0; i < 4; ++i) {
    const auto start = static_cast<std::size_t>(at.start[i]);
    texts[i] = bytes.substr(start, static_cast<std::size_t>(at.end[i]) - start);
    if (texts[i].size() > model_field_bytes) return {};
  }
  errno = 0;
  const long long pid = std::strtoll(texts[3].c_str(), nullptr, 10);
  if (errno != 0 || pid < INT_MIN || pid > INT_MAX) return {};
  // A NUL byte ends a text early.
  return ModelRecord{texts[0].c_str(), texts[1].c_str(), texts[2].c_str(), static_cast<int>(pid)};
}

}  // namespace qal::test

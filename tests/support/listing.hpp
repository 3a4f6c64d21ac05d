// A call of qal_dir_list with its outputs.
#pragma once

#include <qal/dir_list.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace qal::test {

using Names = std::vector<std::string>;

constexpr int unset_count = -77;

inline Names lines_of(const char *text) {
  Names lines;
  std::string_view rest{text ? text : ""};
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    lines.emplace_back(line);
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  }
  return lines;
}

// One call and everything it left behind. The outputs start with values that no call produces.
class Listing {
 public:
  explicit Listing(const std::string &pattern, int verbose = 0) {
    status = qal_dir_list(pattern.c_str(), &full_path, &directory_count, &directory_text,
                          &file_count, &file_text, verbose);
  }
  ~Listing() {
    std::free(full_path);
    std::free(directory_text);
    std::free(file_text);
  }
  Listing(const Listing &) = delete;
  Listing &operator=(const Listing &) = delete;

  Names directories() const { return lines_of(directory_text); }
  Names files() const { return lines_of(file_text); }

  bool gave_nothing() const { return !full_path && gave_no_names(); }
  bool gave_no_names() const { return !directory_text && !file_text && counts_are_unset(); }
  bool counts_are_unset() const {
    return directory_count == unset_count && file_count == unset_count;
  }

  int status = -1;
  char *full_path = unallocated();
  char *directory_text = unallocated();
  char *file_text = unallocated();
  int directory_count = unset_count;
  int file_count = unset_count;

 private:
  static char *unallocated() {
    static char never_freed[1];
    return never_freed;
  }
};

}  // namespace qal::test

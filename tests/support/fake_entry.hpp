// An entry as a directory's stream would deliver it; names may be longer than any file system's.
#pragma once

#include <dirent.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace qal::test {

struct FakeEntry {
  FakeEntry(const std::string &name, unsigned char kind)
      : words((sizeof(dirent) + name.size()) / sizeof(long) + 1) {
    entry()->d_type = kind;
    char *const room = reinterpret_cast<char *>(words.data()) + offsetof(dirent, d_name);
    std::copy_n(name.c_str(), name.size() + 1, room);
  }
  dirent *entry() { return reinterpret_cast<dirent *>(words.data()); }

  std::vector<long> words;
};

}  // namespace qal::test

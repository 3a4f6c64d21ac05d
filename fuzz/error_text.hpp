// What is printed on standard error, for targets that compare it.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "require.hpp"

namespace qal::fuzz {

template <typename Print>
std::string printed_by(const Print &print) {
  char *text = nullptr;
  std::size_t size = 0;
  std::FILE *const own = stderr;
  std::FILE *const memory = open_memstream(&text, &size);
  require(memory, "memory for a text can be had");
  stderr = memory;
  print();
  stderr = own;
  std::fclose(memory);
  const std::string printed(text, size);
  std::free(text);
  return printed;
}

}  // namespace qal::fuzz

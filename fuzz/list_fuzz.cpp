// Lists with inline payloads. An input is the shape of their pool and a row of operations, each a
// byte and its arguments.
#include <cstddef>
#include <cstdint>

#include "input.hpp"
#include "linked_lists.hpp"
#include "support/list_kinds.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  qal::fuzz::Input input(data, size);
  qal::fuzz::play_lists<qal::test::InlineLists>(input);
  return 0;
}

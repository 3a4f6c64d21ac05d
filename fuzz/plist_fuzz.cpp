// Lists of pointers. An input is the shape of their pools and a row of operations, each a byte and
// its arguments.
#include <qal/plist.h>

#include <cstddef>
#include <cstdint>

#include "input.hpp"
#include "linked_lists.hpp"
#include "require.hpp"
#include "support/list_kinds.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::require;

// Without pools there are no lists and no nodes, and handles of earlier ones are cleared.
void use_no_pools() {
  QalPlist *list = qal_plist_create();
  QalPlistNode *node = qal_plist_alloc();
  require(!list && !node, "without pools there is nothing to be had");
  QalPlist gone_list{};
  QalPlistNode gone_node{};
  list = &gone_list;
  node = &gone_node;
  qal_plist_destroy(&list);
  qal_plist_free(&node);
  require(!list && !node, "without pools handles are cleared");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  play_lists<qal::test::PointerLists>(input);
  use_no_pools();
  return 0;
}

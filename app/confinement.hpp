// What the tool gives up before it reads what others wrote.
#pragma once

#include <array>

namespace qal::internal {

// Those that the tool sweeps. Null stands for one that it does not.
using Directories = std::array<const char *, 2>;

// Should a record ever lead the sweep astray, the system still lets this process delete files in
// these directories only, and write nowhere. Not every system can do that; the sweep goes on
// without.
void confine_to(const Directories &directories);

}  // namespace qal::internal

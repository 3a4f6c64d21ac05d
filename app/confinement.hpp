// What the tool gives up before it reads what others wrote.
#pragma once

#include <array>

namespace qal::internal {

// The directories that the tool sweeps; null stands for one that it does not sweep.
using Directories = std::array<const char *, 2>;

// Lets this process write nowhere and delete files only in these directories, in case a record ever
// leads the sweep astray. Where the system cannot do that, the sweep goes on without it.
void confine_to(const Directories &directories);

}  // namespace qal::internal

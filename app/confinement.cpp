// Confines the tool to the directories that it sweeps.
#include "confinement.hpp"

#include <unistd.h>

#include <cstddef>

#include "internal/file_system.hpp"
#include "platform/platform.hpp"

namespace qal::internal {

void confine_to(const Directories &directories) {
  char rooms[std::tuple_size_v<Directories>][path_room];
  Directories paths = {};
  std::size_t count = 0;
  for (const char *const directory : directories) {
    if (!directory || !join_path(directory, "", rooms[count])) continue;
    // The first is swept at once, so it is left out if it is missing. A later one may be made while
    // the sweep waits for a server: it stays in the list, and then no right is given up.
    if (directory == directories.front() && access(rooms[count], F_OK) != 0) continue;
    paths[count] = rooms[count];
    ++count;
  }
  platform::keep_only_deleting_in(paths.data(), count);
}

}  // namespace qal::internal

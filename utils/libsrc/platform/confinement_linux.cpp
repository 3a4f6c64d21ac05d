// Linux: giving up rights through Landlock. A kernel without it, and one where it is switched off,
// fails the first call.
#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "internal/handles.hpp"
#include "platform/platform.hpp"

namespace qal::internal::platform {
namespace {

// LANDLOCK_ACCESS_FS_TRUNCATE, which the oldest headers that we build with lack.
constexpr std::uint64_t truncate_right = 1U << 14U;

constexpr std::uint64_t rights_of_every_version =
    LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
    LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
    LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
    LANDLOCK_ACCESS_FS_MAKE_SYM;

// Renaming from one directory into another is forbidden in every version.
std::uint64_t rights_to_give_up(long version) {
  return rights_of_every_version | (version >= 3 ? truncate_right : 0);
}

long newest_version() {
  return syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
}

Descriptor make_ruleset(std::uint64_t rights) {
  landlock_ruleset_attr attributes = {};
  attributes.handled_access_fs = rights;
  return Descriptor{
      static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes, sizeof attributes, 0))};
}

bool allow_deleting_in(const char *directory, const Descriptor &ruleset) {
  const Descriptor below{open(directory, O_PATH | O_DIRECTORY | O_CLOEXEC)};
  if (!below) return false;
  landlock_path_beneath_attr rule = {};
  rule.allowed_access = LANDLOCK_ACCESS_FS_REMOVE_FILE;
  rule.parent_fd = below.get();
  return syscall(SYS_landlock_add_rule, ruleset.get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

}  // namespace

bool keep_only_deleting_in(const char *const *directories, std::size_t count) {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  const long version = newest_version();
  if (version < 1) return false;
  const Descriptor ruleset = make_ruleset(rights_to_give_up(version));
  if (!ruleset) return false;
  for (const char *const directory : std::span{directories, count}) {
    if (!allow_deleting_in(directory, ruleset)) return false;
  }
  return syscall(SYS_landlock_restrict_self, ruleset.get(), 0) == 0;
}

}  // namespace qal::internal::platform

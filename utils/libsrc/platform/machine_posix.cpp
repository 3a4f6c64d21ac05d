// Machine figures that sysconf has on every system.
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "platform/platform.hpp"

namespace qal::internal::platform {
namespace {

int system_setting(int name) { return static_cast<int>(std::min<long>(sysconf(name), INT_MAX)); }

}  // namespace

int page_size_bytes() { return system_setting(_SC_PAGESIZE); }

int thread_limit() { return system_setting(_SC_THREAD_THREADS_MAX); }

}  // namespace qal::internal::platform

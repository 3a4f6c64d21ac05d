// Machine figures from sysctl and Mach.
#include <mach/mach.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include "platform/platform.hpp"

namespace qal::internal::platform {
namespace {

template <typename Figure>
bool hardware_figure(int selector, Figure &figure) {
  int name[] = {CTL_HW, selector};
  Figure answer{};
  size_t size = sizeof answer;
  if (sysctl(name, 2, &answer, &size, nullptr, 0) != 0) return false;
  figure = answer;
  return true;
}

bool named_figure(const char *name, int &figure) {
  int answer = 0;
  size_t size = sizeof answer;
  if (sysctlbyname(name, &answer, &size, nullptr, 0) != 0) return false;
  figure = answer;
  return true;
}

class TaskPort {
 public:
  ~TaskPort() {
    if (port_ != MACH_PORT_NULL) mach_port_deallocate(mach_task_self(), port_);
  }
  bool open(pid_t pid) { return task_for_pid(mach_task_self(), pid, &port_) == KERN_SUCCESS; }
  mach_port_t get() const { return port_; }

 private:
  mach_port_t port_ = MACH_PORT_NULL;
};

}  // namespace

bool physical_memory_bytes(std::uint64_t &bytes) { return hardware_figure(HW_MEMSIZE, bytes); }

bool processor_count(int &count) { return hardware_figure(HW_NCPU, count); }

bool processor_packages(int &count) { return named_figure("hw.packages", count); }

bool physical_cores(int &count) { return named_figure("hw.physicalcpu", count); }

bool logical_processors(int &count) { return named_figure("hw.logicalcpu", count); }

bool resident_bytes(std::uint64_t &bytes) {
  TaskPort task;
  task_basic_info_64 info{};
  mach_msg_type_number_t count = TASK_BASIC_INFO_64_COUNT;
  if (!task.open(getpid())) return false;
  const kern_return_t result =
      task_info(task.get(), TASK_BASIC_INFO_64, reinterpret_cast<task_info_t>(&info), &count);
  if (result != KERN_SUCCESS || count != TASK_BASIC_INFO_64_COUNT) return false;
  bytes = info.resident_size;
  return true;
}

}  // namespace qal::internal::platform

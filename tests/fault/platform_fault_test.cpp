// The Linux half of the platform on a simulated machine, which has its own kernel files and its own
// results of sysconf.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>

#include "platform/platform.hpp"
#include "support/fault.hpp"
#include "support/scratch.hpp"

using qal::test::fail_nth;
using qal::test::fail_times;
using qal::test::Fault;
using qal::test::ScratchDir;
namespace platform = qal::internal::platform;

namespace {

std::string sysfs;  // stands in for /sys/devices/system/cpu when set
std::string statm;  // stands in for /proc/self/statm when set
std::map<int, long> settings;
int repeats_of_cpu0 = 0;  // how many further entries of that name a directory lists

Fault open_fault, read_fault, readdir_fault;

}  // namespace

extern "C" {

DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path) {
  const bool redirected = !sysfs.empty() && std::strcmp(path, "/sys/devices/system/cpu") == 0;
  return __real_opendir(redirected ? sysfs.c_str() : path);
}

dirent *__real_readdir(DIR *directory);
dirent *__wrap_readdir(DIR *directory) {
  static dirent cpu0 = {.d_ino = 1, .d_off = 0, .d_reclen = 0, .d_type = DT_DIR, .d_name = "cpu0"};
  if (readdir_fault.strikes()) return nullptr;
  if (repeats_of_cpu0 == 0) return __real_readdir(directory);
  --repeats_of_cpu0;
  return &cpu0;
}

int __real_openat(int directory, const char *path, int flags, ...);
int __wrap_openat(int directory, const char *path, int flags, ...) {
  if (open_fault.strikes()) return -1;
  const bool redirected = !statm.empty() && std::strcmp(path, "/proc/self/statm") == 0;
  return __real_openat(directory, redirected ? statm.c_str() : path, flags);
}

ssize_t __real_read(int file, void *buffer, size_t size);
ssize_t __wrap_read(int file, void *buffer, size_t size) {
  std::memset(buffer, '9', size);  // what it held before is a number
  return read_fault.strikes() ? -1 : __real_read(file, buffer, size);
}

// The checking form that hardened builds call instead.
ssize_t __wrap___read_chk(int file, void *buffer, size_t size, size_t) {
  return __wrap_read(file, buffer, size);
}

long __real_sysconf(int name);
long __wrap_sysconf(int name) {
  const auto setting = settings.find(name);
  return setting == settings.end() ? __real_sysconf(name) : setting->second;
}
}

namespace {

class PlayedKernel : public testing::Test {
 protected:
  PlayedKernel() {
    sysfs.clear();
    statm.clear();
    settings.clear();
  }
};

using LinuxTopology = PlayedKernel;
using LinuxProcessors = PlayedKernel;
using LinuxMemory = PlayedKernel;
using LinuxResidentSize = PlayedKernel;
using PosixSettings = PlayedKernel;

constexpr int untouched = -77;

class Topology {
 public:
  Topology() { sysfs = scratch_.path(); }

  void processor(const std::string &name, const std::string &package, const std::string &core) {
    scratch_.directory(name);
    scratch_.directory(name + "/topology");
    if (!package.empty()) scratch_.file(name + "/topology/physical_package_id", package + line_end);
    if (!core.empty()) scratch_.file(name + "/topology/core_id", core + line_end);
  }
  void offline(const std::string &name) { scratch_.directory(name); }
  std::string operator/(const std::string &name) const { return scratch_ / name; }

  std::string line_end = "\n";  // behind each id

 private:
  ScratchDir scratch_;
};

// What a count is set to; `untouched` where it is unknown.
int counted(bool (*count)(int &)) {
  int value = untouched;
  const bool known = count(value);
  EXPECT_EQ(known, value != untouched);
  return value;
}

int packages() { return counted(&platform::processor_packages); }
int cores() { return counted(&platform::physical_cores); }

TEST_F(LinuxTopology, CountsDistinctPackagesAndPairsOfPackageAndCore) {
  Topology machine;
  for (int number = 0; number < 12; ++number) {
    machine.processor("cpu" + std::to_string(number), std::to_string(number % 2),
                      std::to_string(number / 2 % 3));
  }
  EXPECT_EQ(packages(), 2);
  EXPECT_EQ(cores(), 6);
}

TEST_F(LinuxTopology, TakesIdsAsTheyAre) {
  Topology machine;
  machine.processor("cpu0", "36", "65535");
  machine.processor("cpu1", "2147483647", "0");
  machine.processor("cpu12345", "-1", "-1");
  machine.processor("cpu2", "-1", "-1");
  EXPECT_EQ(packages(), 3);
  EXPECT_EQ(cores(), 3);
}

TEST_F(LinuxTopology, EndsAnIdWhereItsFileEnds) {
  Topology machine;
  machine.line_end.clear();
  machine.processor("cpu0", "1", "1000");
  machine.processor("cpu1", "1", "1");
  machine.processor("cpu2", "1", "1");
  EXPECT_EQ(packages(), 1);
  EXPECT_EQ(cores(), 2);
}

TEST_F(LinuxTopology, TakesNoMoreOfAnIdThanItHasRoomFor) {
  Topology machine;
  const std::string zeros(31, '0');
  machine.processor("cpu0", "0", zeros + "1");
  machine.processor("cpu1", "0", zeros + "2");
  EXPECT_EQ(cores(), 1);
}

TEST_F(LinuxTopology, LooksAtProcessorsOnly) {
  Topology machine;
  machine.processor("cpu0", "0", "0");
  for (const char *name : {"cpu", "cpufreq", "cpuidle", "cpu1x", "xcpu1", "cp1", "power"}) {
    machine.processor(name, "7", "7");
  }
  EXPECT_EQ(packages(), 1);
  EXPECT_EQ(cores(), 1);
}

TEST_F(LinuxTopology, PassesOverProcessorsThatAreOffline) {
  Topology machine;
  machine.processor("cpu0", "0", "0");
  machine.offline("cpu1");
  machine.processor("cpu2", "0", "1");
  EXPECT_EQ(packages(), 1);
  EXPECT_EQ(cores(), 2);
}

TEST_F(LinuxTopology, IsUnknownWithoutAnyId) {
  Topology machine;
  EXPECT_EQ(packages(), untouched);
  machine.offline("cpu0");
  EXPECT_EQ(packages(), untouched);
  EXPECT_EQ(cores(), untouched);
}

TEST_F(LinuxTopology, IsUnknownWithoutTheDirectory) {
  Topology machine;
  sysfs += "/missing";
  EXPECT_EQ(packages(), untouched);
  EXPECT_EQ(cores(), untouched);
}

TEST_F(LinuxTopology, KnowsPackagesWhereOnlyCoresAreUnknown) {
  Topology machine;
  machine.processor("cpu0", "0", "");
  EXPECT_EQ(packages(), 1);
  EXPECT_EQ(cores(), untouched);
}

TEST_F(LinuxTopology, IsUnknownWhereOneIdIsNoNumber) {
  Topology machine;
  machine.processor("cpu0", "0", "0");
  machine.processor("cpu1", "0", "none");
  EXPECT_EQ(packages(), 1);
  EXPECT_EQ(cores(), untouched);
  machine.processor("cpu2", "\n", "0");
  EXPECT_EQ(packages(), untouched);
}

TEST_F(LinuxTopology, IsUnknownWhereAFileCannotBeRead) {
  Topology machine;
  machine.processor("cpu0", "0", "0");
  machine.processor("cpu1", "0", "0");
  for (const int call : {1, 2}) {
    open_fault = fail_nth(call, EACCES);
    EXPECT_EQ(packages(), untouched);
    read_fault = fail_nth(call, EIO);
    EXPECT_EQ(packages(), untouched);
    readdir_fault = fail_nth(call, EIO);
    EXPECT_EQ(packages(), untouched);
  }
  EXPECT_EQ(packages(), 1);
}

TEST_F(LinuxTopology, IsReadOnAfterAnInterruption) {
  Topology machine;
  machine.processor("cpu0", "0", "0");
  open_fault = fail_times(3, EINTR);
  read_fault = fail_times(3, EINTR);
  EXPECT_EQ(packages(), 1);
  EXPECT_GT(open_fault.calls, 3);
  EXPECT_GT(read_fault.calls, 3);
}

TEST_F(LinuxTopology, HoldsAsManyProcessorsAsKernelsDo) {
  Topology machine;
  machine.processor("cpu0", "0", "1");
  repeats_of_cpu0 = 8191;
  EXPECT_EQ(cores(), 1);
  repeats_of_cpu0 = 8192;
  EXPECT_EQ(cores(), untouched);
}

TEST_F(LinuxProcessors, AreThoseOnline) {
  settings[_SC_NPROCESSORS_CONF] = 8;
  for (const int online : {1, 6}) {
    settings[_SC_NPROCESSORS_ONLN] = online;
    EXPECT_EQ(counted(&platform::processor_count), online);
    EXPECT_EQ(counted(&platform::logical_processors), online);
  }
}

TEST_F(LinuxProcessors, AreUnknownForAReasonWhenTheSystemNamesNone) {
  for (const long figure : {-1L, 0L}) {
    settings[_SC_NPROCESSORS_ONLN] = figure;
    int count = untouched;
    errno = 0;
    EXPECT_FALSE(platform::processor_count(count));
    EXPECT_EQ(errno, ENOTSUP);
    EXPECT_FALSE(platform::logical_processors(count));
    EXPECT_EQ(count, untouched);
  }
}

TEST_F(LinuxMemory, IsPagesTimesTheirSize) {
  settings[_SC_PAGESIZE] = 16384;
  settings[_SC_PHYS_PAGES] = 1L << 30;
  std::uint64_t bytes = 0;
  EXPECT_TRUE(platform::physical_memory_bytes(bytes));
  EXPECT_EQ(bytes, std::uint64_t{1} << 44);
}

TEST_F(LinuxMemory, IsUnknownForAReasonWhenTheSystemDoesNotNameIt) {
  settings[_SC_PHYS_PAGES] = -1;
  std::uint64_t bytes = 77;
  errno = 0;
  EXPECT_FALSE(platform::physical_memory_bytes(bytes));
  EXPECT_EQ(errno, ENOTSUP);
  EXPECT_EQ(bytes, 77U);
}

TEST_F(LinuxResidentSize, IsTheSecondFigureOfTheProcessStatus) {
  ScratchDir scratch;
  statm = scratch.file("statm", "1000 250 120 7 0 300 0\n");
  settings[_SC_PAGESIZE] = 4096;
  std::uint64_t bytes = 0;
  EXPECT_TRUE(platform::resident_bytes(bytes));
  EXPECT_EQ(bytes, 250U * 4096);
}

TEST_F(LinuxResidentSize, IsUnknownWithoutTwoFigures) {
  ScratchDir scratch;
  std::uint64_t bytes = 77;
  for (const char *content : {"", "\n", "1000\n", "1000 x\n", "x 250\n"}) {
    statm = scratch.file("statm", content);
    EXPECT_FALSE(platform::resident_bytes(bytes)) << content;
  }
  statm = scratch / "missing";
  EXPECT_FALSE(platform::resident_bytes(bytes));
  EXPECT_EQ(bytes, 77U);
}

TEST_F(PosixSettings, AreAskedForByName) {
  settings[_SC_PAGESIZE] = 65536;
  settings[_SC_THREAD_THREADS_MAX] = 2048;
  EXPECT_EQ(platform::page_size_bytes(), 65536);
  EXPECT_EQ(platform::thread_limit(), 2048);
}

TEST_F(PosixSettings, KeepTheThreadLimitWithinAnInt) {
  for (const auto &[limit, answer] : std::map<long, int>{{-1, -1},
                                                         {INT_MAX - 1L, INT_MAX - 1},
                                                         {INT_MAX, INT_MAX},
                                                         {INT_MAX + 1L, INT_MAX},
                                                         {LONG_MAX, INT_MAX}}) {
    settings[_SC_THREAD_THREADS_MAX] = limit;
    EXPECT_EQ(platform::thread_limit(), answer);
  }
}

}  // namespace

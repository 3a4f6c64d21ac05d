// Figures of the machine, the user, and processes.
#include <qal/system.h>
#include <qal/text.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "internal/password.hpp"
#include "internal/retry.hpp"
#include "platform/platform.hpp"

namespace {

using qal::internal::PasswordEntry;
namespace platform = qal::internal::platform;

// On every system the message names the macOS call that has these figures.
int stored_or_reported(bool success) {
  if (success) return QAL_SYSINFO_ANSWERED;
  std::perror("sysctl");
  return QAL_SYSINFO_FAILED;
}

int in_kib(std::uint64_t bytes) {
  return static_cast<int>(std::min<std::uint64_t>(bytes >> 10, INT_MAX));
}

bool physical_memory_kib(int &value) {
  std::uint64_t bytes = 0;
  if (!platform::physical_memory_bytes(bytes)) return false;
  value = in_kib(bytes);
  return true;
}

int resident_kib() {
  std::uint64_t bytes = 0;
  return platform::resident_bytes(bytes) ? in_kib(bytes) : QAL_SYSINFO_NOT_KNOWN;
}

// Each count falls back to the next finer one that the system knows.
bool count_logical(int &count) {
  return platform::logical_processors(count) || platform::processor_count(count);
}

bool count_cores(int &count) { return platform::physical_cores(count) || count_logical(count); }

bool count_packages(int &count) {
  return platform::processor_packages(count) || count_cores(count);
}

struct ClosePipe {
  void operator()(std::FILE *pipe) const { pclose(pipe); }
};
using Pipe = std::unique_ptr<std::FILE, ClosePipe>;

constexpr const char *version_command = "/usr/bin/sw_vers";
constexpr char version_label[] = "ProductVersion:";

// One byte more than is ever read, so that the output is always terminated.
using VersionOutput = std::array<char, 1025>;

bool read_version_output(VersionOutput &output) {
  const Pipe pipe{platform::open_command(version_command, "r")};
  if (!pipe) return false;
  output[qal::internal::read_uninterrupted(output.data(), output.size() - 1, pipe.get())] = '\0';
  return true;
}

// Reads a decimal number as scanf does, but takes the nearest int for one that an int cannot hold.
bool read_number(const char *&text, int &number) {
  char *end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text) return false;
  number = static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
  text = end;
  return true;
}

// White space before a number, and thus after the label, is skipped. What follows the second number
// does not matter.
bool parse_version(const char *output, int &major, int &minor) {
  const char *text = std::strstr(output, version_label);
  if (!text) return false;
  text += std::strlen(version_label);
  int first = 0;
  int second = 0;
  if (!read_number(text, first) || *text++ != '.' || !read_number(text, second)) return false;
  major = first;
  minor = second;
  return true;
}

}  // namespace

int qal_sysinfo(int query, int *value) {
  switch (query) {
    case QAL_SYSINFO_PAGE_BYTES:
      *value = platform::page_size_bytes();
      return QAL_SYSINFO_ANSWERED;
    case QAL_SYSINFO_MEMORY:
      return stored_or_reported(physical_memory_kib(*value));
    case QAL_SYSINFO_PROCESSORS:
      return stored_or_reported(platform::processor_count(*value));
    case QAL_SYSINFO_THREAD_LIMIT:
      *value = platform::thread_limit();
      return QAL_SYSINFO_ANSWERED;
    case QAL_SYSINFO_RESIDENT_MEMORY:
      *value = resident_kib();
      return QAL_SYSINFO_ANSWERED;
    case QAL_SYSINFO_PACKAGES:
      return stored_or_reported(count_packages(*value));
    case QAL_SYSINFO_PHYSICAL_CORES:
      return stored_or_reported(count_cores(*value));
    case QAL_SYSINFO_LOGICAL_PROCESSORS:
      return stored_or_reported(count_logical(*value));
    default:
      return QAL_SYSINFO_NOT_SUPPORTED;
  }
}

int qal_endian() {
  return std::endian::native == std::endian::little ? QAL_LITTLE_ENDIAN : QAL_BIG_ENDIAN;
}

int qal_username(char *dst, int size) {
  const PasswordEntry user;
  qal_strncpy(dst, user ? user.name().data() : "notfound", size);
  return QAL_STATUS_OK;
}

int qal_sleep(unsigned seconds) {
  sleep(seconds);
  return QAL_STATUS_OK;
}

int qal_usleep(unsigned microseconds) {
  usleep(microseconds);
  return QAL_STATUS_OK;
}

int qal_sched_yield() { return sched_yield(); }

int qal_signal(int signal_number, void (*handler)(int)) {
  signal(signal_number, handler);
  return QAL_STATUS_OK;
}

int qal_getpid() { return getpid(); }

int qal_is_pid_running(int pid) {
  // Deliberate: 1 means that the process is gone. The sweep of server records relies on this.
  return kill(pid, 0) != 0 && errno == ESRCH ? QAL_PID_GONE : QAL_PID_EXISTS;
}

int qal_get_osx_ver(char *name, int *major, int *minor) {
  std::memcpy(name, "Mac OS X", sizeof "Mac OS X");
  *major = *minor = QAL_OSX_VER_NOT_KNOWN;
  VersionOutput output{};
  if (!read_version_output(output)) {
    std::fprintf(stderr, "error: qal_get_osx_ver() can't run command to get OS version: <%s>\n",
                 version_command);
    return QAL_OSX_VER_NOT_KNOWN;
  }
  if (parse_version(output.data(), *major, *minor)) return QAL_OSX_VER_FOUND;
  std::fprintf(stderr, "error: qal_get_osx_ver() can't parse OS version string: <%s>\n",
               output.data());
  return QAL_OSX_VER_NOT_KNOWN;
}

// The real executable as the system shows its processes; only Linux shows them as files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/sweep_world.hpp"

namespace fs = std::filesystem;

namespace {

using qal::test::exists;
using qal::test::LiveOwner;
using qal::test::RecordServer;
using qal::test::succeeded_in_silence;
using qal::test::SweepWorld;
using qal::test::ToolStart;
using testing::SizeIs;

std::string proc_text(int pid, const std::string &name) {
  std::ifstream file{"/proc/" + std::to_string(pid) + "/" + name};
  return {std::istreambuf_iterator<char>(file), {}};
}

// The value of a line "name value" or "name: value".
std::string proc_line(int pid, const std::string &file, const std::string &name) {
  std::istringstream lines{proc_text(pid, file)};
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind(name, 0) == 0) return line.substr(name.size());
  }
  return {};
}

// What the running tool looks like from outside, while a server keeps it waiting.
class SweepProcess : public testing::Test {
 protected:
  void watch(const std::function<void(int pid)> &look, const ToolStart &start = {}) {
    world_.record("halix_server1.dat", server_.record(owner_.pid()));
    server_.before_answer([this, &look] {
      while (world_.tool_pid() == 0) std::this_thread::yield();
      look(world_.tool_pid());
    });
    EXPECT_TRUE(succeeded_in_silence(world_.run_tool(start)));
    EXPECT_THAT(server_.requests(), SizeIs(++watched_));
  }

  SweepWorld world_{KALMORA_SWEEP_PATH};
  LiveOwner owner_;
  RecordServer server_;

 private:
  std::size_t watched_ = 0;
};

// The descriptors of a process that lead to the null device.
std::set<int> null_devices_of(int pid) {
  std::set<int> numbers;
  std::error_code ignored;
  for (const auto &entry :
       fs::directory_iterator{"/proc/" + std::to_string(pid) + "/fd", ignored}) {
    if (fs::read_symlink(entry, ignored) != "/dev/null") continue;
    numbers.insert(std::stoi(entry.path().filename()));
  }
  return numbers;
}

TEST_F(SweepProcess, HasTheNullDeviceForItsOutputAndForAMissingInputAlone) {
  std::set<int> inherited = null_devices_of(getpid());
  inherited.erase(inherited.begin(), inherited.upper_bound(STDERR_FILENO));
  for (const auto &closed :
       {std::vector<int>{}, {0}, {1}, {2}, {0, 1}, {0, 2}, {1, 2}, {0, 1, 2}}) {
    std::set<int> found;
    watch([&](int pid) { found = null_devices_of(pid); }, {.closed_streams = closed});
    for (const int number : inherited) found.erase(number);
    const bool input_is_missing = !closed.empty() && closed.front() == STDIN_FILENO;
    EXPECT_EQ(found, input_is_missing ? std::set({0, 1, 2}) : std::set({1, 2})) << closed.size();
  }
}

// Without memory, a library of libcurl's ends the process with a status of its own.
TEST_F(SweepProcess, EndsBeforeItsLibrariesCleanUp) {
  EXPECT_TRUE(succeeded_in_silence(world_.run_tool({.preloaded = FAILING_END_PATH})));
}

TEST_F(SweepProcess, IgnoresBrokenConnections) {
  std::string ignored_signals;
  watch([&](int pid) { ignored_signals = proc_line(pid, "status", "SigIgn:"); });
  EXPECT_TRUE(std::stoull(ignored_signals, nullptr, 16) & 1ull << (SIGPIPE - 1)) << ignored_signals;
}

TEST_F(SweepProcess, LeavesNoCore) {
  std::string limit;
  watch([&](int pid) { limit = proc_line(pid, "limits", "Max core file size"); });
  std::istringstream values{limit};
  std::string soft;
  std::string hard;
  values >> soft >> hard;
  EXPECT_EQ(soft, "0");
  EXPECT_EQ(hard, "0");
}

// The limit that leaves a child one descriptor, whatever it inherits.
unsigned one_descriptor_left() {
  int lowest = STDERR_FILENO + 1;
  while (fcntl(lowest, F_GETFD) == 0) ++lowest;  // open, and stays open over an exec
  return static_cast<unsigned>(lowest) + 1;
}

// The record's file takes the last one.
TEST_F(SweepProcess, KeepsTheRecordWhenNoDescriptorIsLeftToLoadLibcurlWith) {
  const auto path = world_.record("halix_server1.dat", server_.record(owner_.pid()));
  EXPECT_TRUE(succeeded_in_silence(world_.run_tool({.most_descriptors = one_descriptor_left()})));
  EXPECT_THAT(server_.requests(), SizeIs(0));
  EXPECT_TRUE(exists(path));
  EXPECT_TRUE(succeeded_in_silence(world_.run_tool()));
  EXPECT_THAT(server_.requests(), SizeIs(1));
  EXPECT_FALSE(exists(path));
}

TEST_F(SweepProcess, StartsNoThreadOfItsOwn) {
  std::string threads;
  watch([&](int pid) { threads = proc_line(pid, "status", "Threads:"); });
  EXPECT_EQ(std::stoi(threads), 1);  // an address needs no resolver
}

}  // namespace

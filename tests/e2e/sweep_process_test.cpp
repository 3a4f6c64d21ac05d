// The real executable as the system shows its processes; only Linux shows them as files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
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
using testing::ElementsAre;
using testing::EndsWith;
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
    EXPECT_THAT(server_.requests(), SizeIs(1));
  }

  SweepWorld world_{KALMORA_SWEEP_PATH};
  LiveOwner owner_;
  RecordServer server_;
};

// Where the three streams of a process lead.
std::vector<std::string> streams_of(int pid) {
  std::vector<std::string> streams;
  for (const auto number : {"0", "1", "2"}) {
    std::error_code ignored;
    streams.push_back(fs::read_symlink("/proc/" + std::to_string(pid) + "/fd/" + number, ignored));
  }
  return streams;
}

TEST_F(SweepProcess, WritesToTheNullDeviceOnly) {
  std::vector<std::string> streams;
  watch([&](int pid) { streams = streams_of(pid); });
  EXPECT_THAT(streams, ElementsAre(EndsWith("/in"), "/dev/null", "/dev/null"));
}

TEST_F(SweepProcess, HasTheNullDeviceWhereAStreamWasMissing) {
  std::vector<std::string> streams;
  watch([&](int pid) { streams = streams_of(pid); }, {.closed_streams = {0, 1, 2}});
  EXPECT_THAT(streams, ElementsAre("/dev/null", "/dev/null", "/dev/null"));
}

TEST_F(SweepProcess, HasTheNullDeviceForTheOneStreamThatWasMissing) {
  std::vector<std::string> streams;
  watch([&](int pid) { streams = streams_of(pid); }, {.closed_streams = {1}});
  EXPECT_THAT(streams, ElementsAre(EndsWith("/in"), "/dev/null", "/dev/null"));
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

// What the kernel still lets the tool do while it asks a server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/landlock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <thread>

#include "support/sweep_world.hpp"

namespace fs = std::filesystem;

namespace {

using qal::test::exists;
using qal::test::LiveOwner;
using qal::test::read_file;
using qal::test::RecordServer;
using qal::test::succeeded_in_silence;
using qal::test::SweepWorld;
using qal::test::ToolStart;
using testing::HasSubstr;

using Contents = std::map<std::string, std::string>;

long landlock_version() {
  return syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
}

class SweepConfinement : public testing::Test {
 protected:
  SweepConfinement() : foreign_(world_.directory("foreign")), swept_(world_.temporary()) {
    for (const auto &directory : {foreign_, swept_}) fill(directory);
    world_.file(swept_ + "/moved", "content");
    record_ = world_.record("halix_server1.dat", server_.record(owner_.pid()));
  }

  // Runs the tool, which tries everything while it makes its request.
  void run(ToolStart start = {}) {
    start.preloaded = ATTEMPTS_PATH;
    start.environment.insert({{"FOREIGN", foreign_}, {"SWEPT", swept_}});
    EXPECT_TRUE(succeeded_in_silence(world_.run_tool(start)));
    EXPECT_EQ(server_.requests().size(), 1U);
    EXPECT_FALSE(exists(record_));
  }

  void move_record_to_resources() {
    const auto resources = world_.resources() + "/halix_server1.dat";
    fs::rename(record_, resources);
    record_ = resources;
  }

  // The contents of the world without these files.
  Contents contents_without(const std::vector<std::string> &paths) const {
    Contents contents = world_.contents();
    for (const auto &path : paths) contents.erase(fs::relative(path, world_.root()));
    return contents;
  }

  SweepWorld world_{KALMORA_SWEEP_PATH};
  LiveOwner owner_;
  RecordServer server_;
  std::string foreign_;
  std::string swept_;
  std::string record_;

 private:
  void fill(const std::string &directory) {
    for (const auto name : {"emptied", "written", "old", "deleted", "cut"}) {
      world_.file(directory + "/" + name, "content");
    }
    world_.directory(fs::relative(directory, world_.root()).string() + "/empty");
  }
};

// What only the kernel can show: its third version of Landlock has all the rights that are tried.
class SweepConfinementByTheKernel : public SweepConfinement {
 protected:
  void SetUp() override {
    if (landlock_version() < 3) GTEST_SKIP() << "this kernel cannot confine a process to that";
  }
};

TEST_F(SweepConfinementByTheKernel, LeavesNothingButDeletingFilesInTheSweptDirectories) {
  const auto expected = contents_without({record_, swept_ + "/deleted"});
  run();
  EXPECT_EQ(world_.contents(), expected);
}

// Shows that each attempt is one, and that a kernel without confinement does no harm.
TEST_F(SweepConfinement, IsDoneWithoutWhereTheKernelHasNone) {
  run({.environment = {{"UNCONFINED", "yes"}}});
  for (const auto &directory : {foreign_, swept_}) {
    for (const auto name : {"created", "new", "linked", "pointing", "made"}) {
      EXPECT_TRUE(exists(directory + "/" + name)) << name;
    }
    for (const auto name : {"old", "empty", "deleted"}) {
      EXPECT_FALSE(exists(directory + "/" + name)) << name;
    }
    EXPECT_EQ(read_file(directory + "/emptied"), "");
    EXPECT_EQ(read_file(directory + "/cut"), "");
    EXPECT_EQ(read_file(directory + "/written"), "changed");
  }
  EXPECT_TRUE(exists(foreign_ + "/moved"));
}

TEST_F(SweepConfinementByTheKernel, TakesTheTemporaryDirectoryAsTheSweepDoes) {
  std::string turned = swept_;
  std::replace(turned.begin() + 1, turned.end(), '/', '\\');
  const auto expected = contents_without({record_, swept_ + "/deleted"});
  run({.environment = {{"TMPDIR", turned}}});
  EXPECT_EQ(world_.contents(), expected);
}

TEST_F(SweepConfinementByTheKernel, TakesATemporaryDirectoryBelowTheWorkingDirectory) {
  const auto expected = contents_without({record_, swept_ + "/deleted"});
  const auto working_directory = fs::current_path();
  fs::current_path(world_.root());
  run({.environment = {{"TMPDIR", "tmp"}}});
  fs::current_path(working_directory);
  EXPECT_EQ(world_.contents(), expected);
}

// Deliberate: an empty name stands for the root, so files may be deleted everywhere then.
TEST_F(SweepConfinementByTheKernel, TakesAnEmptyNameForTheRoot) {
  move_record_to_resources();
  const auto expected = contents_without({record_, swept_ + "/deleted", foreign_ + "/deleted"});
  run({.environment = {{"TMPDIR", ""}}});
  EXPECT_EQ(world_.contents(), expected);
}

TEST_F(SweepConfinementByTheKernel, HoldsWithoutATemporaryDirectory) {
  move_record_to_resources();
  const auto expected = contents_without({record_});
  run({.unset = {"TMPDIR"}});
  EXPECT_EQ(world_.contents(), expected);
}

TEST_F(SweepConfinementByTheKernel, HoldsWithoutAResourceDirectory) {
  fs::remove(world_.resources());
  const auto expected = contents_without({record_, swept_ + "/deleted"});
  run();
  EXPECT_EQ(world_.contents(), expected);
}

TEST_F(SweepConfinement, GivesUpNewPrivileges) {
  std::string status;
  server_.before_answer([&] {
    while (world_.tool_pid() == 0) std::this_thread::yield();
    status = read_file("/proc/" + std::to_string(world_.tool_pid()) + "/status");
  });
  run();
  EXPECT_THAT(status, HasSubstr("\nNoNewPrivs:\t1\n"));
}

}  // namespace

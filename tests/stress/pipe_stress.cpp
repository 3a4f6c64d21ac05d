#include <gtest/gtest.h>
#include <qal/pipe.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>

#include "internal/handles.hpp"
#include "stress.hpp"
#include "support/descriptors.hpp"
#include "support/threads.hpp"

namespace {

using qal::internal::File;
using qal::test::open_descriptors;
using qal::test::run_together;
using qal::test::sized;
using qal::test::Stress;

using PipeStress = Stress;

constexpr int threads = 4;

// Reads what a command prints, and has another one exit with what it reads.
void talk(int number) {
  const std::string text = std::to_string(number % 100);
  std::array<int, 2> ids{-1, -1};
  File out(qal_pipe_popen_id(("echo " + text).c_str(), "r", &ids[0]));
  File in(qal_pipe_popen_id("read code; exit $code", "w", &ids[1]));
  ASSERT_TRUE(out && in);
  std::array<char, 16> line{};
  EXPECT_TRUE(qal_pipe_fgets(line.data(), line.size(), out.get()));
  EXPECT_EQ(line.data(), text + "\n");
  std::fputs(line.data(), in.get());
  out.reset();
  in.reset();
  std::array<int, 2> status{-1, -1};
  EXPECT_EQ(waitpid(ids[0], &status[0], 0), ids[0]);
  EXPECT_EQ(waitpid(ids[1], &status[1], 0), ids[1]);
  EXPECT_EQ(WEXITSTATUS(status[0]), 0);
  EXPECT_EQ(WEXITSTATUS(status[1]), number % 100);
}

TEST_F(PipeStress, LeavesNoDescriptorAndNoProcessBehind) {
  const int pairs = sized(20, 500);
  const auto before = open_descriptors();
  run_together(threads, [&](int thread) {
    for (int i = 0; i < pairs; ++i) talk(thread * pairs + i);
  });
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  record_count(threads * pairs * 2);
}

}  // namespace

#include <gtest/gtest.h>
#include <qal/pipe.h>

#include <array>
#include <cstdio>
#include <string>

#include "stress.hpp"
#include "support/commands.hpp"
#include "support/threads.hpp"

namespace {

using qal::test::Command;
using qal::test::exit_code;
using qal::test::expect_no_children;
using qal::test::run_together;
using qal::test::sized;
using qal::test::Stress;

using PipeStress = Stress;

constexpr int threads = 4;

// Reads what a command prints, and has another one exit with what it reads.
void talk(int number) {
  const std::string text = std::to_string(number % 100);
  Command printer("echo " + text, "r");
  Command reader("read code; exit $code", "w");
  ASSERT_TRUE(printer.stream && reader.stream);
  std::array<char, 16> line{};
  EXPECT_TRUE(qal_pipe_fgets(line.data(), line.size(), printer.stream.get()));
  EXPECT_EQ(line.data(), text + "\n");
  std::fputs(line.data(), reader.stream.get());
  printer.stream.reset();
  reader.stream.reset();
  EXPECT_EQ(exit_code(printer.pid), 0);
  EXPECT_EQ(exit_code(reader.pid), number % 100);
}

// The framework finds a descriptor that stays open.
TEST_F(PipeStress, LeavesNoDescriptorAndNoProcessBehind) {
  const int pairs = sized(20, 500);
  run_together(threads, [&](int thread) {
    for (int i = 0; i < pairs; ++i) talk(thread * pairs + i);
  });
  expect_no_children();
  record_count(threads * pairs * 2);
}

}  // namespace

// The machine's figures on a simulated platform, in which every call can be made to fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/system.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/platform.hpp"
#include "support/log_capture.hpp"
#include "support/stderr_capture.hpp"

namespace {

struct Machine {
  std::optional<std::uint64_t> memory;
  std::optional<std::uint64_t> resident;
  std::optional<int> packages;
  std::optional<int> cores;
  std::optional<int> logical;
  std::optional<int> processors;
  int threads = 4096;
  std::string asked;  // one letter for each count asked for, in order
} machine;

template <typename Figure>
bool tell(const std::optional<Figure> &known, Figure &figure) {
  if (known) figure = *known;
  errno = known ? 0 : EIO;
  return known.has_value();
}

bool tell_count(char letter, const std::optional<int> &known, int &count) {
  machine.asked += letter;
  return tell(known, count);
}

}  // namespace

namespace qal::internal::platform {

int page_size_bytes() { return 16384; }
int thread_limit() { return machine.threads; }
bool physical_memory_bytes(std::uint64_t &bytes) { return tell(machine.memory, bytes); }
bool resident_bytes(std::uint64_t &bytes) { return tell(machine.resident, bytes); }
bool processor_packages(int &count) { return tell_count('p', machine.packages, count); }
bool physical_cores(int &count) { return tell_count('c', machine.cores, count); }
bool logical_processors(int &count) { return tell_count('l', machine.logical, count); }
bool processor_count(int &count) { return tell_count('n', machine.processors, count); }

}  // namespace qal::internal::platform

namespace {

class SystemFigures : public testing::Test {
 protected:
  SystemFigures() { machine = {}; }
};

struct Outcome {
  int result;
  int value;
  std::string err;
  bool operator==(const Outcome &) const = default;
};

constexpr int untouched = -77;

Outcome ask(int query) {
  int value = untouched;
  const qal::test::StderrCapture err;
  const int result = qal_sysinfo(query, &value);
  return {result, value, err.text()};
}

void PrintTo(const Outcome &outcome, std::ostream *out) {
  *out << outcome.result << ", " << outcome.value << ", \"" << outcome.err << '"';
}

const Outcome refused{-1, untouched, "sysctl: Input/output error\n"};

Outcome answered(int value) { return {1, value, ""}; }

TEST_F(SystemFigures, ComeFromThePlatform) {
  machine.memory = std::uint64_t{8} << 30;
  machine.resident = 5 << 20;
  machine.packages = 2;
  machine.cores = 12;
  machine.logical = 24;
  machine.processors = 23;
  EXPECT_EQ(ask(0), answered(16384));
  EXPECT_EQ(ask(1), answered(8 << 20));
  EXPECT_EQ(ask(5), answered(23));
  EXPECT_EQ(ask(6), answered(4096));
  EXPECT_EQ(ask(7), answered(5 << 10));
  EXPECT_EQ(ask(8), answered(2));
  EXPECT_EQ(ask(9), answered(12));
  EXPECT_EQ(ask(10), answered(24));
}

TEST_F(SystemFigures, PassOnThatThereIsNoThreadLimit) {
  machine.threads = -1;
  EXPECT_EQ(ask(6), answered(-1));
}

TEST_F(SystemFigures, RoundMemoryDownToKib) {
  machine.memory = 4095;
  machine.resident = 1023;
  EXPECT_EQ(ask(1), answered(3));
  EXPECT_EQ(ask(7), answered(0));
}

TEST_F(SystemFigures, KeepMemoryWithinAnInt) {
  constexpr std::uint64_t largest = (std::uint64_t{INT_MAX} << 10) + 1023;
  machine.memory = machine.resident = largest;
  EXPECT_EQ(ask(1), answered(INT_MAX));
  EXPECT_EQ(ask(7), answered(INT_MAX));
  machine.memory = machine.resident = largest + 1;
  EXPECT_EQ(ask(1), answered(INT_MAX));
  EXPECT_EQ(ask(7), answered(INT_MAX));
  machine.memory = machine.resident = UINT64_MAX;
  EXPECT_EQ(ask(1), answered(INT_MAX));
  EXPECT_EQ(ask(7), answered(INT_MAX));
}

TEST_F(SystemFigures, ReportThatPhysicalMemoryIsRefused) { EXPECT_EQ(ask(1), refused); }

TEST_F(SystemFigures, ReportPastTheLogger) {
  const qal::test::LogCapture log;
  for (const int query : {1, 5, 7, 8, 9, 10}) ask(query);
  EXPECT_EQ(log.text(), "");
}

TEST_F(SystemFigures, TellAnUnknownResidentSizeByMinusOneInSilence) {
  EXPECT_EQ(ask(7), answered(-1));
}

TEST_F(SystemFigures, SupportNoOtherQuery) {
  for (const int query : {2, 3, 4, 11, 12, INT_MAX, -1, INT_MIN}) {
    EXPECT_EQ(ask(query), (Outcome{0, untouched, ""})) << query;
  }
  EXPECT_EQ(machine.asked, "");
}

// Each letter of the chain is a count; a bit of `known` is set if the platform knows it.
TEST_F(SystemFigures, FallBackAlongOneChainInEveryCombination) {
  const std::string chain = "pcln";
  const struct {
    int query;
    std::size_t first;
  } queries[] = {{8, 0}, {9, 1}, {10, 2}, {5, 3}};
  for (unsigned known = 0; known < 16; ++known) {
    const auto figure = [known](unsigned step) {
      return known >> step & 1 ? std::optional<int>(static_cast<int>(100 + step)) : std::nullopt;
    };
    machine.packages = figure(0);
    machine.cores = figure(1);
    machine.logical = figure(2);
    machine.processors = figure(3);
    for (const auto &[query, first] : queries) {
      std::size_t answering = first;
      while (answering < chain.size() && !(known >> answering & 1)) ++answering;
      const bool nobody = answering == chain.size();
      machine.asked.clear();
      EXPECT_EQ(ask(query), nobody ? refused : answered(static_cast<int>(100 + answering)))
          << "query " << query << ", known " << known;
      EXPECT_EQ(machine.asked, chain.substr(first, answering - first + 1))
          << "query " << query << ", known " << known;
    }
  }
}

}  // namespace

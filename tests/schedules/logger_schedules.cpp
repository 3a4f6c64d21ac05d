#include <gtest/gtest.h>
#include <qal/logger.h>
#include <qal/thread.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "schedules.hpp"

namespace {

using qal::test::Are;
using qal::test::most_preemptions;
using qal::test::together;

using LoggerSchedules = qal::test::Schedules;

constexpr QalLoggerFunc deliver = _qal_logger_func;

// A host's log, which several threads write at once.
class Log {
 public:
  Log() {
    qal_thread_mutex_init(&mutex_);
    qal_logger_init(this, &on_console, this, &on_log);
  }
  ~Log() {
    qal_logger_done();
    qal_thread_mutex_destroy(&mutex_);
    std::fclose(file_);
    std::free(text_);
  }
  Log(const Log &) = delete;
  Log &operator=(const Log &) = delete;

  std::vector<std::string> sorted_lines() {
    std::fflush(file_);
    std::vector<std::string> lines;
    std::string rest(text_, size_);
    for (std::size_t end = 0; (end = rest.find('\n')) != std::string::npos; rest.erase(0, end + 1))
      lines.push_back(rest.substr(0, end));
    std::ranges::sort(lines);
    return lines;
  }

 private:
  // Deliveries nest: each message for the console has one for the log in it.
  static void on_console(void *log, const char *line, ...) {
    qal_log("inner %c%%%%\n", *line);
    static_cast<Log *>(log)->write(line);
  }
  static void on_log(void *log, const char *line, ...) { static_cast<Log *>(log)->write(line); }

  void write(const char *line) {
    qal_thread_mutex_lock(&mutex_);
    deliver(file_, line);
    qal_thread_mutex_unlock(&mutex_);
  }

  QalThreadMutex mutex_;
  char *text_ = nullptr;
  std::size_t size_ = 0;
  std::FILE *file_ = open_memstream(&text_, &size_);
};

// Each line arrives whole, and as the one that its own thread delivers: its percent sign is single.
void log_together(int threads) {
  Log log;
  together(threads, [](int i) { qal_info("%d%%%%\n", i); });
  std::vector<std::string> expected;
  for (int i = 0; i < threads; ++i) {
    expected.push_back(std::to_string(i) + "%");
    expected.push_back("inner " + expected.back());
  }
  std::ranges::sort(expected);
  EXPECT_EQ(log.sorted_lines(), expected);
}

TEST_F(LoggerSchedules, TwoThreadsLog) {
  expect_every_good(most_preemptions, Are::alike, [] { log_together(2); });
}

TEST_F(LoggerSchedules, ThreeThreadsLog) {
  expect_every_good(most_preemptions, Are::alike, [] { log_together(3); });
}

TEST_F(LoggerSchedules, FourThreadsLog) {
  expect_random_good([] { log_together(4); });
}

}  // namespace

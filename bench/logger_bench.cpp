// What a message costs: nobody listening, a line to a callback, a line to a file, and one with the
// time of day, beside spdlog and the C library. The file is the null device.
#include <qal/logger.h>
#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <ctime>
#include <memory>

#include "rows.hpp"

namespace {

constexpr char device[] = "/dev/null";

std::FILE *null_device() {
  static std::FILE *const stream = std::fopen(device, "we");
  return stream;
}

void drop_line(void *, const char *line, ...) { benchmark::DoNotOptimize(line); }

void report_lines(benchmark::State &state) {
  int number = 0;
  for (auto _ : state) qal_error("%s: error %d\n", "bench", ++number);
  qal_logger_done();
  qal_logger_time_stamp(0);
}

void to_nobody(benchmark::State &state) { report_lines(state); }

void to_callback(benchmark::State &state) {
  qal_logger_init(nullptr, &drop_line, nullptr, nullptr);
  report_lines(state);
}

void to_stream(benchmark::State &state) {
  qal_logger_init(null_device(), &_qal_logger_func, nullptr, nullptr);
  report_lines(state);
}

void stamped(benchmark::State &state) {
  qal_logger_time_stamp(1);
  to_stream(state);
}

class DroppingSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
  void sink_it_(const spdlog::details::log_msg &message) override {
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    drop_line(nullptr, line.data());
  }
  void flush_() override {}
};

void report_by_spdlog(benchmark::State &state, const spdlog::sink_ptr &sink, const char *pattern,
                      spdlog::level::level_enum level = spdlog::level::info) {
  spdlog::logger log("bench", sink);
  log.set_pattern(pattern);
  log.set_level(level);
  int number = 0;
  for (auto _ : state) log.error("{}: error {}", "bench", ++number);
}

void spdlog_to_nobody(benchmark::State &state) {
  report_by_spdlog(state, std::make_shared<DroppingSink>(), "ERROR: %v", spdlog::level::off);
}

void spdlog_to_callback(benchmark::State &state) {
  report_by_spdlog(state, std::make_shared<DroppingSink>(), "ERROR: %v");
}

spdlog::sink_ptr spdlog_file() {
  return std::make_shared<spdlog::sinks::basic_file_sink_st>(device);
}

void spdlog_to_file(benchmark::State &state) {
  report_by_spdlog(state, spdlog_file(), "ERROR: %v");
}

void spdlog_stamped(benchmark::State &state) {
  report_by_spdlog(state, spdlog_file(), "%H:%M:%S ERROR: %v");
}

void snprintf_to_callback(benchmark::State &state) {
  char line[8192];
  int number = 0;
  for (auto _ : state) {
    std::snprintf(line, sizeof line, "ERROR: %s: error %d\n", "bench", ++number);
    drop_line(nullptr, line);
  }
}

void fprintf_to_stream(benchmark::State &state) {
  int number = 0;
  for (auto _ : state) std::fprintf(null_device(), "ERROR: %s: error %d\n", "bench", ++number);
}

void fprintf_stamped(benchmark::State &state) {
  int number = 0;
  for (auto _ : state) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::fprintf(null_device(), "%02d:%02d:%02d ERROR: %s: error %d\n", local.tm_hour, local.tm_min,
                 local.tm_sec, "bench", ++number);
  }
}

const bool registered = [] {
  using qal::bench::row;
  row("logger, silent", {{"qal", to_nobody}, {"spdlog", spdlog_to_nobody}});
  row("logger, callback", {{"qal", to_callback},
                           {"spdlog", spdlog_to_callback},
                           {"floor: snprintf", snprintf_to_callback}});
  row("logger, to a stream",
      {{"qal", to_stream}, {"spdlog", spdlog_to_file}, {"fprintf", fprintf_to_stream}});
  row("logger, stamped",
      {{"qal", stamped}, {"spdlog", spdlog_stamped}, {"fprintf", fprintf_stamped}});
  return true;
}();

}  // namespace

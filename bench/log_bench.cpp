// What a message costs: nobody listening, a line to a callback, a line to a file, beside fprintf.
#include <benchmark/benchmark.h>
#include <qal/logger.h>

#include <cstdio>

namespace {

std::FILE *null_device() {
  static std::FILE *const device = std::fopen("/dev/null", "we");
  return device;
}

void drop_line(void *, const char *line, ...) { benchmark::DoNotOptimize(line); }

void report_lines(benchmark::State &state) {
  int number = 0;
  for (auto _ : state) qal_error("%s: error %d\n", "bench", ++number);
  qal_logger_done();
  qal_logger_time_stamp(0);
  state.SetItemsProcessed(state.iterations());
}

void log_to_nobody(benchmark::State &state) { report_lines(state); }

void log_to_callback(benchmark::State &state) {
  qal_logger_init(nullptr, &drop_line, nullptr, nullptr);
  report_lines(state);
}

void log_to_callback_with_time(benchmark::State &state) {
  qal_logger_init(nullptr, &drop_line, nullptr, nullptr);
  qal_logger_time_stamp(1);
  report_lines(state);
}

void log_to_stream(benchmark::State &state) {
  qal_logger_init(null_device(), &_qal_logger_func, nullptr, nullptr);
  report_lines(state);
}

void c_library_fprintf(benchmark::State &state) {
  int number = 0;
  for (auto _ : state) std::fprintf(null_device(), "ERROR: %s: error %d\n", "bench", ++number);
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(log_to_nobody);
BENCHMARK(log_to_callback);
BENCHMARK(log_to_callback_with_time);
BENCHMARK(log_to_stream);
BENCHMARK(c_library_fprintf);

}  // namespace

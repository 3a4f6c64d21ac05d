// The logger: messages for the console and the log, by way of the host's callbacks.
#include <qal/clock.h>
#include <qal/logger.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include "internal/bounded_text.hpp"
#include "internal/kept_errno.hpp"
#include "platform/platform.hpp"

int Verbose_level = 0;

namespace {

using qal::internal::BoundedText;
using qal::internal::KeptErrno;
namespace platform = qal::internal::platform;

constexpr std::size_t line_size = 8192;

// Without a lock: written at set-up only, while no other thread logs.
struct {
  void *ConsoleFP;
  QalLoggerFunc ConsoleFunc;
  void *LogFP;
  QalLoggerFunc LogFunc;
  int TimeStamp;
  std::FILE *_qal_logger_redirect_file;
} logger;

// The finished line that this thread is passing to a callback, else null.
thread_local const char *delivered_line = nullptr;

// Callbacks may log themselves, so deliveries nest.
class Delivery {
 public:
  explicit Delivery(const char *line) : outer_(std::exchange(delivered_line, line)) {}
  ~Delivery() { delivered_line = outer_; }
  Delivery(const Delivery &) = delete;
  Delivery &operator=(const Delivery &) = delete;

 private:
  const char *outer_;
};

// Each marker begins with the blank that separates it from the time stamp.
void begin_line(BoundedText &line, std::string_view marker) {
  if (!logger.TimeStamp) {
    line.append(marker.substr(1));
    return;
  }
  const KeptErrno kept_errno;  // the format may use it, as "%m" does
  char time[sizeof "hh:mm:ss"];
  qal_date_get_string(time, QAL_DATE_SHORT);
  line.append({time, marker});
}

QAL_PRINTF(2, 0)
void append_formatted(std::span<char> room, const char *format, std::va_list arguments) {
  if (platform::format_text(room.data(), room.size(), format, arguments) < 0) room.front() = '\0';
}

QAL_PRINTF(4, 0)
void report(QalLoggerFunc callback, void *stream, std::string_view marker, const char *format,
            std::va_list arguments) {
  const KeptErrno kept_errno;  // callers report failures and look at errno afterwards
  char room[line_size];        // not cleared: most lines fill less than a hundredth of it
  BoundedText line(room);
  begin_line(line, marker);
  append_formatted(std::span(room).subspan(line.length()), format, arguments);
  const Delivery delivery(room);
  callback(stream, room);
}

QAL_PRINTF(2, 0)
void report_console(std::string_view marker, const char *format, std::va_list arguments) {
  report(logger.ConsoleFunc, logger.ConsoleFP, marker, format, arguments);
}

void copy_to_file(const char *text) {
  if (!logger._qal_logger_redirect_file) return;
  std::fputs(text, logger._qal_logger_redirect_file);
  std::fflush(logger._qal_logger_redirect_file);
}

void put_text(void *stream, const char *text) {
  if (stream) std::fputs(text, static_cast<std::FILE *>(stream));
  copy_to_file(text);
}

// A finished line has no arguments and is never formatted: its bytes are text, whatever they look
// like. Only the percent signs that qal_scrub_format_string doubled become single again.
void undouble_percents(const char *line, std::span<char> out) {
  std::size_t length = 0;
  while (*line != '\0' && length + 1 < out.size()) {
    out[length++] = *line;
    line += line[0] == '%' && line[1] == '%' ? 2 : 1;
  }
  out[length] = '\0';
}

void put_undoubled(void *stream, const char *line) {
  char text[line_size];
  undouble_percents(line, text);
  put_text(stream, text);
}

QAL_PRINTF(2, 0)
void put_formatted(void *stream, const char *format, std::va_list arguments) {
  char text[line_size];
  if (std::vsnprintf(text, sizeof text, format, arguments) < 0) text[0] = '\0';
  put_text(stream, text);
}

}  // namespace

void qal_logger_init(void *console_stream, QalLoggerFunc console_func, void *log_stream,
                     QalLoggerFunc log_func) {
  logger.ConsoleFP = console_stream;
  logger.ConsoleFunc = console_func;
  logger.LogFP = log_stream;
  logger.LogFunc = log_func;
}

void qal_logger_done() { qal_logger_init(nullptr, nullptr, nullptr, nullptr); }

void qal_logger_time_stamp(int on) { logger.TimeStamp = on; }

void qal_info(const char *format, ...) {
  if (!logger.ConsoleFunc) return;
  std::va_list arguments;
  va_start(arguments, format);
  report_console(" ", format, arguments);
  va_end(arguments);
}

void qal_warn(const char *format, ...) {
  if (!logger.ConsoleFunc) return;
  std::va_list arguments;
  va_start(arguments, format);
  report_console(" WARNING: ", format, arguments);
  va_end(arguments);
}

void qal_error(const char *format, ...) {
  if (!logger.ConsoleFunc) return;
  std::va_list arguments;
  va_start(arguments, format);
  report_console(" ERROR: ", format, arguments);
  va_end(arguments);
}

void qal_fatal(const char *format, ...) {
  if (!logger.ConsoleFunc) return;
  std::va_list arguments;
  va_start(arguments, format);
  report_console(" FATAL: ", format, arguments);
  va_end(arguments);
}

void qal_abort(const char *format, ...) {
  // Deliberate: without a callback for the console the process continues.
  if (!logger.ConsoleFunc) return;
  std::va_list arguments;
  va_start(arguments, format);
  report_console(" ABORT: ", format, arguments);
  va_end(arguments);
  std::abort();
}

void qal_log(const char *format, ...) {
  if (!logger.LogFunc) return;
  std::va_list arguments;
  va_start(arguments, format);
  report(logger.LogFunc, logger.LogFP, " ", format, arguments);
  va_end(arguments);
}

void qal_debug(const char * /*format*/, ...) {}

// The optimiser may not look into the empty statement, so it removes neither the function nor a
// call of it.
__attribute__((noinline)) void qal_stop_here() { __asm__ volatile(""); }

void _qal_logger_func(void *stream, const char *format, ...) {
  const KeptErrno kept_errno;
  if (format == delivered_line) {
    // Most lines have nothing doubled and need no copy.
    return std::strchr(format, '%') ? put_undoubled(stream, format) : put_text(stream, format);
  }
  std::va_list arguments;
  va_start(arguments, format);
  put_formatted(stream, format, arguments);
  va_end(arguments);
}

FILE *_qal_logger_set_file(const char *path) {
  std::FILE *&copy = logger._qal_logger_redirect_file;
  if (copy) std::fclose(copy);
  copy = path ? std::fopen(path, "wbe") : nullptr;
  return copy;
}

FILE *_qal_logger_get_file() { return logger._qal_logger_redirect_file; }

char *qal_scrub_format_string(const char *text) {
  if (!text) return nullptr;
  auto *scrubbed = static_cast<char *>(std::calloc(2 * std::strlen(text) + 1, 1));
  if (!scrubbed) return nullptr;
  for (char *out = scrubbed; *text != '\0'; ++text) {
    *out++ = *text;
    if (*text == '%') *out++ = '%';
  }
  return scrubbed;
}

void update_windows_console(int /*state*/) {}

void nsstring_vsprintf(char *out, const char *format, va_list arguments) {
  // Whole before any of it reaches `out`, which the caller may format into itself.
  char text[line_size];
  std::va_list again;
  va_copy(again, arguments);
  int length = platform::format_text(text, sizeof text, format, arguments);
  const bool fits = length < static_cast<int>(sizeof text);
  if (!fits) {
    length = platform::format_text(out, static_cast<std::size_t>(length) + 1, format, again);
  }
  va_end(again);
  if (length < 0) {
    out[0] = '\0';
  } else if (fits) {
    std::memcpy(out, text, static_cast<std::size_t>(length) + 1);
  }
}

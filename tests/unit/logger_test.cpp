#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/clock.h>
#include <qal/logger.h>
#include <qal/startup.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "internal/handles.hpp"
#include "support/child.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"

namespace {

using qal::internal::File;
using qal::internal::OwnedText;
using qal::test::in_child;
using qal::test::in_new_process;
using qal::test::LogCapture;
using qal::test::read_file;
using qal::test::run_in_child;
using qal::test::ScratchDir;
using testing::ElementsAre;
using testing::Field;
using testing::MatchesRegex;

constexpr std::size_t longest_line = 8191;

struct Call {
  void *stream;
  std::string line;
  bool operator==(const Call &) const = default;
};
std::vector<Call> console_calls;
std::vector<Call> log_calls;

void record_console(void *stream, const char *line, ...) {
  console_calls.push_back({stream, line});
}
void record_log(void *stream, const char *line, ...) { log_calls.push_back({stream, line}); }

void record_console_locked(void *stream, const char *line, ...) {
  static std::mutex mutex;
  const std::lock_guard lock(mutex);
  console_calls.push_back({stream, line});
}

// A host's own callback that takes its second argument as a format.
QAL_PRINTF(2, 3) void format_again(void *stream, const char *format, ...) {
  char text[1024];
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  *static_cast<std::string *>(stream) += text;
}

// A callback that does what a test wants to be done during a delivery.
std::function<void(const char *line)> during_delivery;
void run_during_delivery(void *, const char *line, ...) { during_delivery(line); }

// Four threads each log one word over and over, while a fifth does `beside`.
void log_words_from_four_threads(const std::function<void()> &beside) {
  qal_logger_init(nullptr, &record_console_locked, nullptr, nullptr);
  std::vector<std::thread> threads;
  for (char letter = 'a'; letter < 'e'; ++letter) {
    threads.emplace_back([letter] {
      const std::string word(100, letter);
      for (int i = 0; i < 500; ++i) qal_info("%s", word.c_str());
    });
  }
  threads.emplace_back(beside);
  for (auto &thread : threads) thread.join();
  EXPECT_EQ(console_calls.size(), 2000U);
}

// What the ready-made callback writes while `body` runs.
std::string written_by(const std::function<void(std::FILE *)> &body) {
  const ScratchDir scratch;
  {
    const File file{std::fopen((scratch / "console").c_str(), "wb")};
    body(file.get());
  }
  qal_logger_done();
  return read_file(scratch / "console");
}

std::string logged_through_ready_made(const char *text) {
  return written_by([&](std::FILE *stream) {
    qal_logger_init(stream, &_qal_logger_func, nullptr, nullptr);
    qal_info("%s", text);
  });
}

QAL_PRINTF(2, 3) std::string formatted(std::size_t room, const char *format, ...) {
  std::vector<char> out(room, 'x');
  std::va_list arguments;
  va_start(arguments, format);
  nsstring_vsprintf(out.data(), format, arguments);
  va_end(arguments);
  return out.data();
}

QAL_PRINTF(2, 3) void format_into(std::string &room, const char *format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  nsstring_vsprintf(room.data(), format, arguments);
  va_end(arguments);
}

// Leaves the logger as it is when a process begins.
class LoggerStage : public testing::Test {
 protected:
  ~LoggerStage() override {
    qal_logger_done();
    qal_logger_time_stamp(0);
    Verbose_level = 0;
    console_calls.clear();
    log_calls.clear();
  }
};

using LoggerAbort = LoggerStage;
using LoggerDebug = LoggerStage;
using LoggerDone = LoggerStage;
using LoggerFatal = LoggerStage;
using LoggerFormatPosition = LoggerStage;
using LoggerFunc = LoggerStage;
using LoggerInit = LoggerStage;
using LoggerLevels = LoggerStage;
using LoggerScrub = LoggerStage;
using LoggerStopHere = LoggerStage;
using LoggerVsprintf = LoggerStage;

class LoggerFile : public LoggerStage {
 protected:
  ~LoggerFile() override { _qal_logger_set_file(nullptr); }

  const ScratchDir scratch;
};

TEST_F(LoggerInit, HandsEachCallbackItsOwnStream) {
  int console = 0;
  int log = 0;
  qal_logger_init(&console, &record_console, &log, &record_log);
  qal_info("to the console\n");
  qal_log("to the log\n");
  EXPECT_THAT(console_calls, ElementsAre(Call{&console, "to the console\n"}));
  EXPECT_THAT(log_calls, ElementsAre(Call{&log, "to the log\n"}));
}

TEST_F(LoggerInit, AcceptsNullStreams) {
  qal_logger_init(nullptr, &record_console, nullptr, &record_log);
  qal_info("a\n");
  qal_log("b\n");
  EXPECT_THAT(console_calls, ElementsAre(Call{nullptr, "a\n"}));
  EXPECT_THAT(log_calls, ElementsAre(Call{nullptr, "b\n"}));
}

TEST_F(LoggerInit, SilencesTheSideWithoutCallback) {
  qal_logger_init(nullptr, nullptr, nullptr, &record_log);
  qal_error("lost\n");
  qal_log("kept\n");
  EXPECT_THAT(log_calls, ElementsAre(Call{nullptr, "kept\n"}));

  log_calls.clear();
  qal_logger_init(nullptr, &record_console, nullptr, nullptr);
  qal_log("lost\n");
  qal_error("kept\n");
  EXPECT_TRUE(log_calls.empty());
  EXPECT_THAT(console_calls, ElementsAre(Call{nullptr, "ERROR: kept\n"}));
}

TEST_F(LoggerDone, RemovesBothCallbacks) {
  qal_logger_init(nullptr, &record_console, nullptr, &record_log);
  qal_logger_done();
  qal_info("lost\n");
  qal_log("lost\n");
  EXPECT_TRUE(console_calls.empty());
  EXPECT_TRUE(log_calls.empty());
}

TEST_F(LoggerDone, KeepsTheTimeStampAndTheCopyFile) {
  const ScratchDir scratch;
  qal_logger_time_stamp(1);
  std::FILE *copy = _qal_logger_set_file((scratch / "copy").c_str());
  qal_logger_done();
  EXPECT_EQ(_qal_logger_get_file(), copy);
  const LogCapture log;
  qal_info("message\n");
  EXPECT_THAT(log.text(), MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9] message\n"));
  _qal_logger_set_file(nullptr);
}

TEST_F(LoggerLevels, CarryTheirMarkersWithoutTimeStamp) {
  const LogCapture log;
  qal_info("message\n");
  qal_warn("full\n");
  qal_error("message\n");
  qal_fatal("message\n");
  EXPECT_THAT(log.lines(),
              ElementsAre("message\n", "WARNING: full\n", "ERROR: message\n", "FATAL: message\n"));
}

TEST_F(LoggerLevels, SeparateTheirMarkersFromTheTimeStamp) {
  const LogCapture log;
  qal_logger_time_stamp(1);
  qal_info("message\n");
  qal_warn("full\n");
  qal_error("message\n");
  qal_fatal("message\n");
  const std::string time = "[0-9][0-9]:[0-9][0-9]:[0-9][0-9]";
  EXPECT_THAT(log.lines(), ElementsAre(MatchesRegex(time + " message\n"),
                                       MatchesRegex(time + " WARNING: full\n"),
                                       MatchesRegex(time + " ERROR: message\n"),
                                       MatchesRegex(time + " FATAL: message\n")));
}

TEST_F(LoggerLevels, StampLogLinesAsInformation) {
  qal_logger_init(nullptr, nullptr, nullptr, &record_log);
  for (const int on : {-1, 0x100, 0}) {
    qal_logger_time_stamp(on);
    qal_log("line\n");
  }
  const auto stamped = Field(&Call::line, MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9] line\n"));
  EXPECT_THAT(log_calls, ElementsAre(stamped, stamped, Call{nullptr, "line\n"}));
}

TEST_F(LoggerLevels, FormatTheirArgumentsAndAddNoLineEnd) {
  const LogCapture log;
  qal_info("%s is %d of %5.2f%%", "this", 3, 7.5);
  qal_warn("%c", 'x');
  EXPECT_THAT(log.lines(), ElementsAre("this is 3 of  7.50%", "WARNING: x"));
}

TEST_F(LoggerLevels, TakeAnEmptyMessage) {
  const LogCapture log;
  qal_info("%s", "");
  qal_error("%s", "");
  EXPECT_THAT(log.lines(), ElementsAre("", "ERROR: "));
}

TEST_F(LoggerLevels, IgnoreTheVerbosity) {
  EXPECT_EQ(Verbose_level, 0);
  qal_logger_init(nullptr, &record_console, nullptr, &record_log);
  for (const int level : {-1, 0, 1, 99}) {
    Verbose_level = level;
    qal_info("line\n");
    qal_warn("line\n");
    qal_error("line\n");
    qal_fatal("line\n");
    qal_log("line\n");
  }
  EXPECT_EQ(console_calls.size(), 16U);
  EXPECT_EQ(log_calls.size(), 4U);
}

TEST_F(LoggerLevels, FillALineOf8191Bytes) {
  const LogCapture log;
  const std::string message(longest_line, 'm');
  qal_info("%s", message.c_str());
  EXPECT_EQ(log.lines().front(), message);
}

TEST_F(LoggerLevels, CutALongerLine) {
  const LogCapture log;
  const std::string message(longest_line + 1, 'm');
  qal_info("%s", message.c_str());
  qal_warn("%s", message.c_str());
  EXPECT_EQ(log.lines()[0], message.substr(1));
  EXPECT_EQ(log.lines()[1], ("WARNING: " + message).substr(0, longest_line));
}

TEST_F(LoggerLevels, CutALongerLineBehindATimeStamp) {
  const LogCapture log;
  qal_logger_time_stamp(1);
  qal_fatal("%s", std::string(3 * longest_line, 'm').c_str());
  EXPECT_EQ(log.lines()[0].size(), longest_line);
  EXPECT_EQ(log.lines()[0].substr(8, 9), " FATAL: m");
}

TEST_F(LoggerLevels, DoNothingWithoutCallback) {
  const auto child = in_child([] {
    qal_info("x %d\n", 1);
    qal_warn("x %d\n", 1);
    qal_error("x %d\n", 1);
    qal_fatal("x %d\n", 1);
    qal_log("x %d\n", 1);
    qal_debug("x %d\n", 1);
  });
  EXPECT_EQ(child.out + child.err, "");
}

TEST_F(LoggerLevels, DoNotFormatWithoutCallback) {
  int count = 7;
  qal_info("text%n", &count);
  qal_error("text%n", &count);
  qal_log("text%n", &count);
  EXPECT_EQ(count, 7);
}

TEST_F(LoggerLevels, KeepErrno) {
  const LogCapture log;
  qal_logger_time_stamp(1);
  errno = ENOTDIR;
  qal_error("%ls", L"\x20ac");  // sets errno inside
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(LoggerLevels, KeepErrnoAcrossACallbackThatSetsIt) {
  during_delivery = [](const char *) { errno = EBADF; };
  qal_logger_init(nullptr, &run_during_delivery, nullptr, &run_during_delivery);
  errno = ENOTDIR;
  qal_info("line\n");
  qal_log("line\n");
  EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(LoggerLevels, ComposeEachThreadsLinesApart) {
  log_words_from_four_threads([] {});
  for (const auto &[stream, line] : console_calls) EXPECT_EQ(line, std::string(100, line[0]));
}

std::string time_of_day() {
  char text[9];
  qal_date_get_string(text, 0);
  return text;
}

// Holds for an interval over midnight too.
bool is_between(const std::string &from, const std::string &to, const std::string &time) {
  return from <= to ? from <= time && time <= to : from <= time || time <= to;
}

TEST_F(LoggerLevels, StampEachThreadsLinesApart) {
  setenv("TZ", "UTC0", 1);
  qal_logger_time_stamp(1);
  const std::string from = time_of_day();
  log_words_from_four_threads([] {
    for (int i = 0; i < 500; ++i) time_of_day();
  });
  const std::string to = time_of_day();
  for (const auto &[stream, line] : console_calls) {
    ASSERT_EQ(line.size(), 109U);
    EXPECT_TRUE(is_between(from, to, line.substr(0, 8))) << line.substr(0, 8);
    EXPECT_EQ(line.substr(8), " " + std::string(100, line[9]));
  }
}

TEST_F(LoggerFatal, ReturnsToItsCaller) {
  in_child([] {
    const LogCapture log;
    qal_fatal("the end\n");
    EXPECT_EQ(log.text(), "FATAL: the end\n");
  });
}

TEST_F(LoggerAbort, DeliversItsLineAndEndsTheProcess) {
  const auto child = run_in_child([] {
    std::atexit([] { std::fputs("clean-up\n", stderr); });
    qal_logger_init(stderr, &_qal_logger_func, nullptr, nullptr);
    qal_abort("reason %d\n", 5);
  });
  EXPECT_TRUE(child.killed_by(SIGABRT));
  EXPECT_EQ(child.err, "ABORT: reason 5\n");
}

TEST_F(LoggerAbort, SeparatesItsMarkerFromTheTimeStamp) {
  const auto child = run_in_child([] {
    qal_logger_init(stderr, &_qal_logger_func, nullptr, nullptr);
    qal_logger_time_stamp(1);
    qal_abort("reason\n");
  });
  EXPECT_TRUE(child.killed_by(SIGABRT));
  EXPECT_THAT(child.err, MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9] ABORT: reason\n"));
}

TEST_F(LoggerAbort, ReturnsWhenNobodyListensOnTheConsole) {
  const auto child = in_child([] {
    qal_abort("x\n");
    qal_logger_init(nullptr, nullptr, nullptr, &record_log);
    qal_abort("x\n");
    EXPECT_TRUE(log_calls.empty());
  });
  EXPECT_EQ(child.err, "");
}

TEST_F(LoggerDebug, NeitherFormatsNorDelivers) {
  int count = 7;
  qal_logger_init(nullptr, &record_console, nullptr, &record_log);
  qal_debug("text%n\n", &count);
  EXPECT_EQ(count, 7);
  EXPECT_TRUE(console_calls.empty());
  EXPECT_TRUE(log_calls.empty());
}

TEST_F(LoggerStopHere, HasNoEffect) {
  const auto child = in_child([] {
    const LogCapture log;
    errno = ENOTDIR;
    qal_stop_here();
    for (const int state : {0, 1, -1, INT_MAX}) update_windows_console(state);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_TRUE(log.lines().empty());
  });
  EXPECT_EQ(child.out + child.err, "");
}

TEST_F(LoggerFormatPosition, LetsAPrintfLikeCallbackReadDirectivesInTheLine) {
  std::string out;
  qal_logger_init(&out, &format_again, nullptr, nullptr);
  qal_info("%s\n", "100%% sure");
  EXPECT_EQ(out, "100% sure\n");
}

TEST_F(LoggerFormatPosition, PrintsScrubbedTextLiterally) {
  std::string out;
  qal_logger_init(&out, &format_again, nullptr, nullptr);
  const OwnedText scrubbed{qal_scrub_format_string("100% %s %n")};
  qal_info("%s\n", scrubbed.get());
  EXPECT_EQ(out, "100% %s %n\n");
}

TEST_F(LoggerFunc, FormatsAndWritesToTheStream) {
  EXPECT_EQ(
      written_by([](std::FILE *stream) { _qal_logger_func(stream, "%s %d%%\n", "level", 40); }),
      "level 40%\n");
}

TEST_F(LoggerFunc, WritesAFinishedLineAsItStands) {
  EXPECT_EQ(logged_through_ready_made("%s %n %d %*c\n"), "%s %n %d %*c\n");
  EXPECT_EQ(logged_through_ready_made("trailing %"), "trailing %");
}

TEST_F(LoggerFunc, UndoublesPercentSignsOfAFinishedLineFromTheLeft) {
  EXPECT_EQ(logged_through_ready_made("100%%\n"), "100%\n");
  EXPECT_EQ(logged_through_ready_made("%%%"), "%%");
  EXPECT_EQ(logged_through_ready_made("%%%%"), "%%");
  EXPECT_EQ(logged_through_ready_made("%%s%%%d"), "%s%%d");
}

TEST_F(LoggerFunc, PrintsScrubbedTextLiterally) {
  const std::string text = "50% of %s and %% too";
  const OwnedText scrubbed{qal_scrub_format_string(text.c_str())};
  EXPECT_EQ(logged_through_ready_made(scrubbed.get()), text);
}

TEST_F(LoggerFunc, KnowsFinishedLinesOfTheLogChannelToo) {
  EXPECT_EQ(written_by([](std::FILE *stream) {
              qal_logger_init(nullptr, nullptr, stream, &_qal_logger_func);
              qal_log("%s", "%s%%\n");
            }),
            "%s%\n");
}

TEST_F(LoggerFunc, WritesTheLongestFinishedLineWhole) {
  const std::string message(longest_line, '%');
  EXPECT_EQ(logged_through_ready_made(message.c_str()), std::string(4096, '%'));
  const std::string plain(longest_line, 'p');
  EXPECT_EQ(logged_through_ready_made(plain.c_str()), plain);
}

TEST_F(LoggerFunc, FormatsAnyOtherTextDuringADelivery) {
  EXPECT_EQ(written_by([](std::FILE *stream) {
              during_delivery = [stream](const char *line) {
                const std::string copy = line;
                _qal_logger_func(stream, "%s|%d\n", "own", 1);
                // The same text at another address is a format like any other.
                const QalLoggerFunc call = &_qal_logger_func;
                call(stream, copy.c_str(), 42);
                call(stream, line, 42);
              };
              qal_logger_init(nullptr, &run_during_delivery, nullptr, nullptr);
              qal_info("%s", "%d\n");
            }),
            "own|1\n42\n%d\n");
}

TEST_F(LoggerFunc, KnowsTheOuterLineAgainAfterANestedDelivery) {
  EXPECT_EQ(written_by([](std::FILE *stream) {
              during_delivery = [stream](const char *line) {
                qal_log("%s", "inner %d\n");
                const QalLoggerFunc call = &_qal_logger_func;
                call(stream, line, 42);
              };
              qal_logger_init(nullptr, &run_during_delivery, stream, &_qal_logger_func);
              qal_info("%s", "outer %d\n");
            }),
            "inner %d\nouter %d\n");
}

TEST_F(LoggerFunc, KnowsOnlyTheLineOfItsOwnThread) {
  EXPECT_EQ(written_by([](std::FILE *stream) {
              during_delivery = [stream](const char *line) {
                const QalLoggerFunc call = &_qal_logger_func;
                std::thread([&] { call(stream, line, 42); }).join();
              };
              qal_logger_init(nullptr, &run_during_delivery, nullptr, nullptr);
              qal_info("%s", "%d\n");
            }),
            "42\n");
}

TEST_F(LoggerFunc, FormatsAsUsualAfterADelivery) {
  static char line[8192];
  EXPECT_EQ(written_by([](std::FILE *stream) {
              const QalLoggerFunc call = &_qal_logger_func;
              qal_logger_init(stream, &_qal_logger_func, nullptr, nullptr);
              qal_info("%s", "%d\n");
              std::snprintf(line, sizeof line, "%s", "%d\n");
              call(stream, line, 42);
            }),
            "%d\n42\n");
}

TEST_F(LoggerFunc, WritesAtMost8191Bytes) {
  const std::string fits(longest_line, 'f');
  const std::string longer(longest_line + 1, 'l');
  EXPECT_EQ(written_by([&](std::FILE *stream) { _qal_logger_func(stream, "%s", fits.c_str()); }),
            fits);
  EXPECT_EQ(written_by([&](std::FILE *stream) { _qal_logger_func(stream, "%s", longer.c_str()); }),
            longer.substr(1));
}

TEST_F(LoggerFunc, DoesNotFlushTheStream) {
  const ScratchDir scratch;
  const File file{std::fopen((scratch / "console").c_str(), "wb")};
  _qal_logger_func(file.get(), "buffered\n");
  EXPECT_EQ(read_file(scratch / "console"), "");
}

TEST_F(LoggerFunc, WritesNothingWhenTheArgumentsCannotBeConverted) {
  EXPECT_EQ(
      written_by([](std::FILE *stream) { _qal_logger_func(stream, "before %ls", L"\x20ac"); }), "");
}

TEST_F(LoggerFunc, KeepsErrno) {
  written_by([](std::FILE *stream) {
    errno = ENOTDIR;
    _qal_logger_func(stream, "%ls", L"\x20ac");
    EXPECT_EQ(errno, ENOTDIR);
  });
}

TEST_F(LoggerFunc, KeepsErrnoWhenAFinishedLineCannotBeWritten) {
  const ScratchDir scratch;
  const File unwritable{std::fopen(scratch.file("console").c_str(), "rb")};
  std::setvbuf(unwritable.get(), nullptr, _IONBF, 0);
  during_delivery = [&](const char *line) {
    const QalLoggerFunc call = &_qal_logger_func;
    errno = ENOTDIR;
    call(unwritable.get(), line);
    EXPECT_EQ(errno, ENOTDIR) << line;
    EXPECT_TRUE(std::ferror(unwritable.get()));
    std::clearerr(unwritable.get());
  };
  qal_logger_init(nullptr, &run_during_delivery, nullptr, nullptr);
  qal_info("%s", "plain\n");
  qal_info("%s", "100%%\n");
}

TEST_F(LoggerFile, ReceivesACopyOfEveryLineAtOnce) {
  std::FILE *copy = _qal_logger_set_file((scratch / "copy").c_str());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(_qal_logger_get_file(), copy);
  const auto console = written_by([&](std::FILE *stream) {
    qal_logger_init(stream, &_qal_logger_func, nullptr, nullptr);
    qal_warn("%s", "%d%%\n");
    EXPECT_EQ(read_file(scratch / "copy"), "WARNING: %d%\n");
    _qal_logger_func(stream, "%d\n", 2);
    EXPECT_EQ(read_file(scratch / "copy"), "WARNING: %d%\n2\n");
  });
  EXPECT_EQ(console, "WARNING: %d%\n2\n");
}

TEST_F(LoggerFile, ReceivesTheLineWithoutAStreamToo) {
  _qal_logger_set_file((scratch / "copy").c_str());
  _qal_logger_func(nullptr, "only here\n");
  EXPECT_EQ(read_file(scratch / "copy"), "only here\n");
}

TEST_F(LoggerFile, StartsEmpty) {
  const auto path = scratch.file("copy", "from an earlier run\n");
  _qal_logger_set_file(path.c_str());
  EXPECT_EQ(read_file(path), "");
}

TEST_F(LoggerFile, ClosesTheFirstFileBeforeItOpensTheSecond) {
  const int first = fileno(_qal_logger_set_file((scratch / "first").c_str()));
  const int second = fileno(_qal_logger_set_file((scratch / "second").c_str()));
  EXPECT_EQ(first, second);  // the lowest free descriptor was free again
  _qal_logger_func(nullptr, "line\n");
  EXPECT_EQ(read_file(scratch / "first"), "");
  EXPECT_EQ(read_file(scratch / "second"), "line\n");
}

TEST_F(LoggerFile, StopsCopyingWhenTheSecondCannotBeOpened) {
  const LogCapture log;
  _qal_logger_set_file((scratch / "copy").c_str());
  EXPECT_EQ(_qal_logger_set_file((scratch / "missing/copy").c_str()), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(_qal_logger_get_file(), nullptr);
  _qal_logger_func(nullptr, "line\n");
  EXPECT_EQ(read_file(scratch / "copy"), "");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(LoggerFile, IsNotThereAtStart) { EXPECT_EQ(_qal_logger_get_file(), nullptr); }

TEST_F(LoggerFile, OutlivesTheLibrarysShutDown) {
  in_new_process([this] {
    qal_utils_init();
    const std::FILE *const copy = _qal_logger_set_file((scratch / "copy").c_str());
    qal_logger_time_stamp(1);
    qal_logger_init(nullptr, &_qal_logger_func, nullptr, nullptr);
    qal_utils_done();
    EXPECT_EQ(_qal_logger_get_file(), copy);
    qal_info("x\n");
    EXPECT_THAT(read_file(scratch / "copy"), MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9] x\n"));
  });
}

TEST_F(LoggerFile, IsRemovedByANullPath) {
  _qal_logger_set_file((scratch / "copy").c_str());
  EXPECT_EQ(_qal_logger_set_file(nullptr), nullptr);
  EXPECT_EQ(_qal_logger_get_file(), nullptr);
}

TEST_F(LoggerFile, IsClosedInPrograms) {
  std::FILE *copy = _qal_logger_set_file((scratch / "copy").c_str());
  EXPECT_TRUE(fcntl(fileno(copy), F_GETFD) & FD_CLOEXEC);
}

TEST_F(LoggerScrub, DoublesEveryPercentSign) {
  EXPECT_STREQ(OwnedText{qal_scrub_format_string("100%")}.get(), "100%%");
  EXPECT_STREQ(OwnedText{qal_scrub_format_string("%")}.get(), "%%");
  EXPECT_STREQ(OwnedText{qal_scrub_format_string("%%d")}.get(), "%%%%d");
  EXPECT_STREQ(OwnedText{qal_scrub_format_string("plain \xff")}.get(), "plain \xff");
}

TEST_F(LoggerScrub, AnswersAnEmptyTextForAnEmptyText) {
  EXPECT_STREQ(OwnedText{qal_scrub_format_string("")}.get(), "");
}

TEST_F(LoggerScrub, ZeroFillsTwiceTheLengthAndOneByte) {
  const OwnedText scrubbed{qal_scrub_format_string("abc%")};
  EXPECT_EQ(std::string(scrubbed.get(), 9), std::string("abc%%\0\0\0\0", 9));
}

TEST_F(LoggerScrub, AnswersNullForNoText) { EXPECT_EQ(qal_scrub_format_string(nullptr), nullptr); }

TEST_F(LoggerVsprintf, FormatsAsPrintfDoes) {
  EXPECT_EQ(formatted(64, "%s %05d %.3f %c%%", "text", 42, 0.5, 'x'), "text 00042 0.500 x%");
  EXPECT_EQ(formatted(64, "%s", ""), "");
}

TEST_F(LoggerVsprintf, HasNoBoundOfItsOwn) {
  for (const std::size_t length : {8'190U, 8'191U, 8'192U, 100'000U}) {
    const std::string text(length, 't');
    EXPECT_EQ(formatted(length + 1, "%s", text.c_str()), text);
  }
}

TEST_F(LoggerVsprintf, TakesItsOwnRoomAsAnArgument) {
  std::string room(600, '#');
  room.replace(0, 4, "abc", 4);
  format_into(room, "%s-%s", room.c_str(), room.c_str());
  EXPECT_STREQ(room.c_str(), "abc-abc");
  format_into(room, "x%s", room.c_str());
  EXPECT_STREQ(room.c_str(), "xabc-abc");
}

}  // namespace

// What the logger, its ready-made callback and the identity make of any text: a scrubbed text
// arrives as the text itself, and no "%" of a finished line is ever read as a directive. An input
// is a byte that chooses what to do, its numbers and its texts.
#include <qal/logger.h>
#include <unistd.h>
#include <qal/identity.hpp>

#include <cctype>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include "input.hpp"
#include "internal/handles.hpp"
#include "nameless_file.hpp"
#include "require.hpp"
#include "room.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::nameless_file;
using qal::fuzz::require;
using qal::fuzz::Room;
using qal::internal::File;
using qal::internal::OwnedText;
using qal::test::LogCapture;

// By pointers, since the compiler checks no formats then: these come from the input.
using Report = void (*)(const char *format, ...);
constexpr Report levels[] = {qal_info, qal_warn, qal_error, qal_fatal, qal_log};
constexpr std::string_view markers[] = {"", "WARNING: ", "ERROR: ", "FATAL: ", ""};
constexpr QalLoggerFunc ready_made = _qal_logger_func;
constexpr void (*format_all)(char *, const char *, std::va_list) = nsstring_vsprintf;

constexpr std::size_t longest_line = 8191;

std::string cut(const std::string &line) { return line.substr(0, longest_line); }

std::string doubled(const std::string &text) {
  std::string all;
  for (const char c : text) all.append(c == '%' ? 2 : 1, c);
  return all;
}

// What a finished line prints.
std::string undoubled(const std::string &line) {
  std::string text;
  for (std::size_t i = 0; i < line.size(); ++i) {
    text += line[i];
    if (line.compare(i, 2, "%%") == 0) ++i;
  }
  return text;
}

// A text that may be longer than a line.
std::string repeated_text(Input &input) {
  const unsigned times = input.byte() % 128 + 1U;
  const std::string piece = input.text();
  std::string text;
  for (unsigned i = 0; i < times; ++i) text += piece;
  return text;
}

OwnedText scrubbed(const std::string &text) {
  const Room source = Room::of_text(text);
  OwnedText result(qal_scrub_format_string(source.data()));
  require(result != nullptr, "there is memory");
  return result;
}

// What the ready-made callback writes to its stream, and to its copy file, while this lives.
class Output {
 public:
  Output() : stream_(open_memstream(&bytes_, &size_)) {
    require(stream_ && _qal_logger_set_file(copy_path().c_str()), "there are places to write to");
  }
  ~Output() {
    qal_logger_done();
    _qal_logger_set_file(nullptr);
    stream_.reset();
    std::free(bytes_);
  }
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  FILE *stream() const { return stream_.get(); }

  std::string text() {
    std::fflush(stream());
    const std::string text{bytes_, size_};
    require(_qal_logger_get_file() != nullptr, "there is a copy file");
    require(copied() == text, "the copy file holds the same at once");
    return text;
  }

 private:
  static std::string copy_path() { return "/dev/fd/" + std::to_string(nameless_file()); }
  static std::string copied() {
    std::string text(static_cast<std::size_t>(lseek(nameless_file(), 0, SEEK_END)), '\0');
    const ssize_t got = pread(nameless_file(), text.data(), text.size(), 0);
    require(got == static_cast<ssize_t>(text.size()), "the copy file can be read");
    return text;
  }

  char *bytes_ = nullptr;
  std::size_t size_ = 0;
  File stream_;
};

void format_into(char *out, const char *format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  format_all(out, format, arguments);
  va_end(arguments);
}

void scrub(Input &input) {
  const std::string text = input.text();
  const OwnedText result = scrubbed(text);
  std::string expected = doubled(text);
  expected.resize(2 * text.size() + 1);
  require(std::string(result.get(), expected.size()) == expected, "each % doubled, then zeros");
  const Room printed(text.size() + 1);
  format_into(printed.data(), result.get());
  require(printed.all() == text + '\0', "a scrubbed text prints as the text");
  const Room copied(text.size() + 1);
  format_into(copied.data(), "%s", text.c_str());
  require(copied.all() == text + '\0', "formatting has no bound of its own");
}

constexpr std::string_view time_shape = "00:00:00 ";

// Takes the time off the front of a line.
std::string without_time(const std::string &line) {
  require(line.size() >= time_shape.size(), "there is room for the time");
  for (std::size_t i = 0; i < time_shape.size(); ++i) {
    const bool is_digit = std::isdigit(static_cast<unsigned char>(line[i])) != 0;
    require(time_shape[i] == '0' ? is_digit : line[i] == time_shape[i], "the time comes first");
  }
  return line.substr(time_shape.size());
}

// Reports in one of three ways: the text as an argument, scrubbed as an argument, scrubbed as the
// format.
void report(Input &input) {
  const unsigned way = input.byte() % 3;
  const std::size_t level = input.byte() % std::size(levels);
  const bool stamped = input.byte() % 4 == 3;
  const std::string text = repeated_text(input);
  const OwnedText safe = scrubbed(text);
  Output output;
  qal_logger_init(output.stream(), ready_made, output.stream(), ready_made);
  qal_logger_time_stamp(stamped);
  if (way == 0) levels[level]("%s", text.c_str());
  if (way == 1) levels[level]("%s", safe.get());
  if (way == 2) levels[level](safe.get());
  qal_logger_time_stamp(0);
  const std::string start = std::string(stamped ? time_shape : "").append(markers[level]);
  std::string expected = undoubled(cut(start + (way == 1 ? safe.get() : text)));
  if (stamped) expected = expected.substr(time_shape.size());
  const std::string printed = stamped ? without_time(output.text()) : output.text();
  require(printed == expected, "a finished line is printed as it stands");
  if (way == 1 && start.size() + 2 * text.size() <= longest_line)
    require(printed.ends_with(text), "a scrubbed text arrives as the text");
}

// A host that keeps the lines gets them whole.
void collect(Input &input) {
  const std::size_t level = input.byte() % (std::size(levels) - 1);
  const std::string text = repeated_text(input);
  const LogCapture log;
  levels[level]("%s", text.c_str());
  qal_log("%s", text.c_str());
  qal_debug("%s", text.c_str());
  qal_stop_here();
  update_windows_console(1);
  require(log.lines().size() == 1, "one line for a report");
  require(log.text() == cut(std::string(markers[level]) + text), "the marker and the text");
}

// The ready-made callback called by anybody else formats as usual.
void call_directly(Input &input) {
  const int number = static_cast<int>(input.number()) - 0x8000;
  const std::string text = repeated_text(input);
  const OwnedText safe = scrubbed(text);
  Output output;
  ready_made(output.stream(), "%d|%s", number, text.c_str());
  ready_made(output.stream(), safe.get());
  ready_made(nullptr, "");
  qal_abort("%s", "nobody listens");
  require(output.text() == cut(std::to_string(number) + "|" + text) + cut(text),
          "other formats are formatted");
}

// What the callback below logs while a line is being delivered.
const char *logged_meanwhile = nullptr;

void deliver_and_log(void *stream, const char *line, ...) {
  const std::string copy = line;
  ready_made(stream, "%s", copy.c_str());
  qal_log("%s", logged_meanwhile);
  ready_made(stream, line);
}

void log_meanwhile(Input &input) {
  const std::string outer = repeated_text(input);
  const std::string inner = repeated_text(input);
  Output output;
  logged_meanwhile = inner.c_str();
  qal_logger_init(output.stream(), deliver_and_log, output.stream(), ready_made);
  qal_info("%s", outer.c_str());
  require(output.text() == cut(outer) + undoubled(cut(inner)) + undoubled(cut(outer)),
          "each delivery knows its own line");
}

std::string lower_case(std::string text) {
  for (char &c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

struct Version {
  std::uint16_t major, minor, patch;
  char letter;

  std::string text() const {
    const std::string text = std::to_string(major) + "." + std::to_string(minor) + "." +
                             std::to_string(patch) + "(" + letter + ")";
    return text.c_str();  // a NUL ends it
  }
  float number() const {
    const double numbers = minor / 100.0 + major + patch / 10000.0;
    return static_cast<float>(numbers + (letter - 'a') / 1000000.0);
  }
};

Version version_in(Input &input) {
  Version version;
  version.major = static_cast<std::uint16_t>(input.number());
  version.minor = version.major % 100;
  version.patch = static_cast<std::uint16_t>(input.number());
  version.letter = static_cast<char>(input.byte());
  return version;
}

void check_version(QalIdentity &identity, const Version &version) {
  const char *const text = identity.getVersionString();
  require(version.major != 0 ? text == version.text() : !text, "the version, if there is one");
  require(identity.getVersionFloat() == version.number(), "the version as a number");
}

void check_names(QalIdentity &identity, const std::string &name, int product) {
  require(identity.getProductName(false) == name, "the product's name and its flavor's");
  require(identity.getProductName(true) == lower_case(name), "the name in lower case");
  require(identity.isProduct(product), "the product, whatever its flavor");
}

int changes = 0;

void identify(Input &input) {
  constexpr int products[] = {1, 3, 4, 5, 6, 7};
  const int product = products[input.byte() % std::size(products)];
  const int flavor = static_cast<std::int16_t>(input.number());
  const int component = input.byte() % 6;
  const Version version = version_in(input);
  const std::string path = repeated_text(input);
  const LogCapture log;
  QalIdentity identity(path.c_str());
  changes = 0;
  identity.setChangeCallback([](QalIdentity *) { ++changes; });
  identity.setProduct(product);
  identity.setFlavor(flavor);
  identity.setComponent(component);
  identity.setVersion(version.major, version.minor, version.patch, version.letter);
  require(changes == 1, "the change of the product is told");

  std::string name = identity.getBaseProductName(false);
  if (flavor != 0) name.append(" ").append(identity.getFlavorName(false));
  std::string whole = "[" + path.substr(0, 1023) + "] " + name;
  if (component != 0) whole.append(" ").append(identity.getComponentName());
  if (version.major != 0) whole.append(" version ").append(version.text());
  require(identity.getIdentityString() == whole.substr(0, 1023), "the identity, cut to fit");
  check_names(identity, name, product);
  check_version(identity, version);
}

constexpr void (*scenarios[])(Input &) = {scrub,         report,        collect,
                                          call_directly, log_meanwhile, identify};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  scenarios[input.byte() % std::size(scenarios)](input);
  return 0;
}

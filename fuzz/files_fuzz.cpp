// The readers of lines and of items, and the line count, on streams that give short reads and
// errors, compared with models over the same deliveries. An input is a byte that chooses the
// reader, its numbers, the plan of the deliveries and the content.
#include <qal/files.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <kalmora/helpers.hpp>
#include <string>
#include <string_view>

#include "input.hpp"
#include "internal/handles.hpp"
#include "require.hpp"
#include "room.hpp"
#include "support/stream_model.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::require;
using qal::fuzz::Room;
using qal::fuzz::untouched;
using qal::internal::File;
using qal::test::Bytewise;
using qal::test::Deliveries;
using qal::test::FlakySource;
using qal::test::model_of_line_count;
using qal::test::ModelLine;

// The name under which the line count finds the stream of the input.
constexpr std::string_view stream_name = "the stream";
FILE *named_stream = nullptr;

// A byte of the plan is an interruption, an error, or how many bytes come at once.
Deliveries delivered_by(const std::string &plan, const std::string &content) {
  Deliveries deliveries;
  std::size_t at = 0;
  for (const char planned : plan) {
    const auto step = static_cast<unsigned char>(planned);
    if (step < 0x20) {
      deliveries.push_back({"", EINTR});
    } else if (step < 0x40) {
      deliveries.push_back({"", EIO});
    } else if (at < content.size()) {
      deliveries.push_back({content.substr(at, step < 0xF0 ? step - 0x3FU : 1000)});
      at += deliveries.back().bytes.size();
    }
  }
  if (at < content.size()) deliveries.push_back({content.substr(at)});
  return deliveries;
}

Deliveries deliveries_in(Input &input) {
  const std::string plan = input.bytes();
  return delivered_by(plan, input.rest());
}

// Unbuffered, or with a buffer of the given size and a few bytes.
void set_buffer(FILE *stream, unsigned kind) {
  static char buffer[4096];
  std::setvbuf(stream, kind == 0 ? nullptr : buffer, kind == 0 ? _IONBF : _IOFBF, kind + 3);
}

std::string rest_of(FILE *stream) {
  std::string bytes;
  for (;;) {
    const int c = std::fgetc(stream);
    if (c != EOF) {
      bytes += static_cast<char>(c);
    } else if (std::ferror(stream)) {
      std::clearerr(stream);
    } else {
      return bytes;
    }
  }
}

void check_line(const ModelLine &expected, int result, int most, const Room &room) {
  require(result == expected.result, "the length of the line, or why there is none");
  const std::string all = room.all();
  if (most < 0) {
    require(all[0] == untouched, "without a buffer nothing is written");
    return;
  }
  const std::size_t stored = expected.stored.size();
  require(all.substr(0, stored) == expected.stored, "the characters of the line");
  if (result >= 0) require(all[stored] == '\0', "the line ends");
  if (result == -1 && most > 0) require(all[0] == '\0', "no line is the empty text");
}

void read_lines(Input &input) {
  const unsigned buffering = input.byte();
  const int most = static_cast<std::int8_t>(input.byte());
  const Deliveries deliveries = deliveries_in(input);
  Bytewise model(deliveries);
  FlakySource source(deliveries);
  const File stream(source.open());
  set_buffer(stream.get(), buffering);
  // Each delivery may end a line without the end of the stream.
  for (std::size_t ends = 0; ends <= deliveries.size();) {
    const Room room(static_cast<std::size_t>(std::max(most, 0)) + 1);
    const auto expected = model_of_line(model, most);
    errno = EINTR;  // an old error, which the reader must ignore
    check_line(expected, qal_io_get_aline(stream.get(), most, room.data()), most, room);
    if (expected.result == -1) ++ends;
  }
}

void read_items(Input &input) {
  const unsigned buffering = input.byte();
  const std::size_t item_size = input.byte() % 32;
  const std::uint64_t count = input.number() % 2048;
  const Deliveries deliveries = deliveries_in(input);
  Bytewise model(deliveries);
  FlakySource source(deliveries);
  const File stream(source.open());
  set_buffer(stream.get(), buffering);
  const Room room(item_size * count);
  const auto expected = model_of_items(model, item_size, count);
  require(qal_fread(room.data(), item_size, count, stream.get()) == expected.count,
          "the number of whole items");
  require(room.all().starts_with(expected.bytes), "the bytes of the items");
  require(!std::ferror(stream.get()), "no error stays marked");
  require(rest_of(stream.get()) == model.rest(), "what follows stays in the stream");
}

// At most twelve errors in a row: the reader takes them for the end when it has halved a block of
// 4096 bytes to nothing.
std::string with_short_error_runs(std::string plan) {
  unsigned errors = 0;
  for (char &step : plan) {
    errors = static_cast<unsigned char>(step) < 0x40 ? errors + 1 : 0;
    if (errors <= 12) continue;
    step = '\x40';
    errors = 0;
  }
  return plan;
}

void count_lines(Input &input) {
  const bool ends_in_errors = input.byte() % 2 == 1;
  const unsigned times = input.byte() % 32 + 1;
  const std::string plan = input.bytes();
  const std::string piece = input.rest();
  std::string content;
  for (unsigned i = 0; i < times; ++i) content += piece;
  Deliveries deliveries = delivered_by(with_short_error_runs(plan), content);
  if (ends_in_errors) deliveries.push_back({"", EIO});
  FlakySource source(deliveries, ends_in_errors);
  named_stream = source.open();
  require(file_getlinecount(stream_name.data()) == model_of_line_count(content),
          "the number of lines with something in them");
  require(named_stream == nullptr, "the file was opened");
}

constexpr void (*readers[])(Input &) = {read_lines, read_items, count_lines};

}  // namespace

extern "C" {
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
  if (path != stream_name) return __real_fopen(path, mode);
  FILE *const stream = named_stream;
  named_stream = nullptr;
  return stream;
}
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Input input(data, size);
  readers[input.byte() % std::size(readers)](input);
  return 0;
}

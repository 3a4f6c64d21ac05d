// The path functions on any text, compared with models that follow the rules step by step. An input
// is a byte of flags, two bytes of sizes near the limits, a path, a second text, the working
// directory and the homes that "~" may mean.
#include <qal/path.h>
#include <qal/status.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

#include "input.hpp"
#include "password_database.hpp"
#include "require.hpp"
#include "support/guarded_room.hpp"
#include "support/path_model.hpp"

namespace {

using qal::fuzz::Input;
using qal::fuzz::password_database;
using qal::fuzz::require;
using qal::test::absolute_model;
using qal::test::basename_model;
using qal::test::convert_model;
using qal::test::dirname_model;
using qal::test::extension_dot;
using qal::test::extension_model;
using qal::test::GuardedRoom;
using qal::test::join_model;
using qal::test::normalise_model;
using qal::test::Normalised;
using qal::test::Part;
using std::string;

constexpr std::size_t longest_directory = 1023;

struct Scenario {
  explicit Scenario(Input input)
      : flags(static_cast<std::uint32_t>(input.byte() % 4) | input.byte() % 4 * 0x100U),
        near_full(input.nearby()),
        near_normal(input.nearby()),
        path(input.long_text()),
        other(input.long_text()),
        directory(input.long_text()) {
    password_database = {input.long_text(), input.text(), input.long_text()};
    if (password_database.own_home->empty()) password_database.own_home.reset();
  }

  std::uint32_t flags;  // of the conversion
  int near_full;        // how much room there is beyond what is needed
  int near_normal;
  string path;
  string other;
  string directory;  // the working directory; none when it is too long
};

string working_directory;

void check_working_directory(const string &directory, int nearby) {
  require(qal_setcwd(nullptr) == -1, "no directory can be entered");
  require(qal_setcwd(directory.c_str()) == 0, "a directory can be entered");
  const int size = std::max(static_cast<int>(directory.size()) + 1 + nearby, 0);
  GuardedRoom room{size, ""};
  const char *const told = qal_getcwd(room.data(), static_cast<std::size_t>(size));
  const bool fits = static_cast<int>(directory.size()) < size;
  require(fits ? told == room.data() && room.text() == directory : !told && room.is_untouched(),
          "the working directory is told when it fits");
  require(room.guards_are_intact(), "the working directory stays in its room");
}

void check_conversion(const string &path, std::uint32_t flags) {
  GuardedRoom room{path};
  require(qal_convert_pathname(room.data(), flags) == 0, "conversion answers 0");
  require(room.text() == convert_model(path, flags), "converted as the model says");
  require(room.text().size() <= path.size(), "conversion never lengthens");
  require(room.guards_are_intact(), "conversion stays in the path");
}

// What the room may hold before: a text with its end.
string fitting(const string &text, int size) {
  return text.substr(0, static_cast<std::size_t>(std::max(size - 1, 0)));
}

void check_normalisation(const Scenario &scenario) {
  const int needed = normalise_model(scenario.path, scenario.other, 0).result;
  const int size = needed + scenario.near_normal;
  const string already = fitting(scenario.other, size);
  const Normalised expected = normalise_model(scenario.path, already, size);
  GuardedRoom out{size, already};
  const int result = qal_get_norm_path(scenario.path.c_str(), out.data(), size);
  require(result == expected.result, "normalisation answers as the model says");
  const bool written = result == 0 && size > 0;
  require(written ? out.text() == expected.text : out.is_untouched(),
          "normalised as the model says");
  require(out.guards_are_intact(), "normalisation stays in its room");
}

void check_split(const string &path, const char *split(char *), const Part &expected) {
  GuardedRoom room{path};
  require(split(room.data()) == expected.answer, "split as the model says");
  require(room.text() == expected.path, "a split path is left as the model says");
  require(room.guards_are_intact(), "splitting stays in the path");
}

int needed_for(const string &path) {
  if (path.empty()) return -1;
  if (absolute_model(path)) return static_cast<int>(path.size()) + 1;
  if (working_directory.size() > longest_directory) return -1;
  return static_cast<int>(working_directory.size() + path.size()) + 2;
}

string full_path(const string &path) {
  if (absolute_model(path)) return path;
  const bool backslash = working_directory.find('\\') != string::npos;
  return working_directory + (backslash ? "\\" : "/") + path;
}

void check_full_path(const string &path, int nearby) {
  require(qal_path_is_absolute(path.c_str()) == absolute_model(path), "absolute as the model says");
  const int needed = needed_for(path);
  const int size = std::max(needed, 0) + nearby;
  GuardedRoom out{size, ""};
  const bool fits = needed >= 0 && needed <= size;
  const int result = qal_get_full_path(path.c_str(), out.data(), size);
  require(result == (fits ? 0 : needed), "the full path fits or its size is told");
  require(fits ? out.text() == full_path(path) : out.is_untouched(),
          "the full path is as modelled");
  require(out.guards_are_intact(), "the full path stays in its room");
}

std::optional<string> expanded(const string &path) {
  if (path.substr(0, 1) != "~") return path;
  const std::size_t slash = path.find('/');
  const string name = path.substr(1, slash == string::npos ? slash : slash - 1);
  const auto home = password_database.home_of(name);
  if (!home) return home;
  return *home + "/" + (slash == string::npos ? "" : path.substr(slash + 1));
}

void check_expansion(const string &path, int nearby) {
  const auto expected = expanded(path);
  const int needed = expected ? static_cast<int>(expected->size()) + 1 : 1;
  const int size = needed + nearby;
  GuardedRoom out{size, "before"};
  const int result = qal_expand_pathname(path.c_str(), out.data(), size);
  const bool fits = needed <= size;
  const bool unknown = size > 0 && !expected;
  require(result == (unknown ? QAL_STATUS_NOT_FOUND
                     : fits  ? QAL_STATUS_OK
                             : QAL_STATUS_INVALID),
          "expansion answers as the model says");
  require(size < 1 || out.text() == (expected && fits ? *expected : ""), "expanded as modelled");
  require(out.guards_are_intact(), "expansion stays in its room");
}

void check_list(const string &base, const string &one, const string &two) {
  const string expected[] = {join_model(&base, {one, two}), join_model(nullptr, {one, two}),
                             join_model(&base, {one}), join_model(&base, {})};
  GuardedRoom rooms[] = {GuardedRoom{expected[0]}, GuardedRoom{expected[1]},
                         GuardedRoom{expected[2]}, GuardedRoom{expected[3]}};
  qal_addpath(rooms[0].data(), base.c_str(), one.c_str(), two.c_str(), nullptr);
  qal_addpath(rooms[1].data(), nullptr, one.c_str(), two.c_str(), nullptr);
  qal_addpath(rooms[2].data(), base.c_str(), one.c_str(), nullptr);
  qal_addpath(rooms[3].data(), base.c_str(), nullptr);
  for (int i = 0; i < 4; ++i) {
    require(rooms[i].text() == expected[i], "a list is put together as the model says");
    require(rooms[i].guards_are_intact(), "a list takes the room that it needs");
  }
}

void check_extension(const string &path) {
  const std::size_t dot = extension_dot(path, '/', '\\');
  const char *const found = qal_find_dot_in_filename(path.c_str());
  require(found == (dot == string::npos ? nullptr : path.c_str() + dot), "the dot is found");
  const std::size_t cut = extension_dot(path, '\\', '/');
  GuardedRoom room{path};
  require(qal_remove_ext(room.data()) == (cut == string::npos ? 0 : 1), "an extension is told");
  require(room.text() == path.substr(0, cut), "an extension is cut off");
  require(room.guards_are_intact(), "cutting stays in the path");
}

void check_suffixes(const string &arch) {
  for (unsigned kind = 0; kind < 6; ++kind) {
    const char *const expected = extension_model(arch, kind);
    const char *const suffix = qal_file_extension(arch.c_str(), kind);
    require(!suffix == !expected && (!suffix || string{suffix} == expected), "suffix as modelled");
  }
}

}  // namespace

extern "C" int __wrap_chdir(const char *path) {
  working_directory = path;
  return 0;
}

extern "C" char *__wrap_getcwd(char *room, std::size_t size) {
  if (working_directory.size() < size) {
    return static_cast<char *>(
        std::memcpy(room, working_directory.c_str(), working_directory.size() + 1));
  }
  errno = ERANGE;
  return nullptr;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Scenario scenario{{data, size}};
  check_working_directory(scenario.directory, scenario.near_full);
  check_conversion(scenario.path, scenario.flags);
  check_normalisation(scenario);
  check_split(scenario.path, qal_dirname, dirname_model(scenario.path));
  check_split(scenario.path, qal_basename, basename_model(scenario.path));
  check_full_path(scenario.path, scenario.near_full);
  check_expansion(scenario.path, scenario.near_full);
  check_list(scenario.path, scenario.other, scenario.directory);
  check_extension(scenario.path);
  check_suffixes(scenario.path);
  return 0;
}

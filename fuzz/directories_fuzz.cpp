// What the programs read from their surroundings: version texts, names with a "~", and the
// directories that the environment leads to, compared with models. An input is a byte that says
// which variables are set, one for what TMPDIR names, two of sizes near the limits, and texts.
#include <qal/files.h>
#include <qal/text.h>
#include <sys/stat.h>
#include <kalmora/directories.hpp>
#include <kalmora/helpers.hpp>
#include <qal/identity.hpp>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "input.hpp"
#include "internal/bounded_text.hpp"
#include "password_database.hpp"
#include "require.hpp"
#include "support/directories_model.hpp"
#include "support/guarded_room.hpp"
#include "support/log_capture.hpp"

// The resolution happens once per process. Here its states lie in a section of their own, so that
// they can be put back; and the platform's word is the scenario's. All headers that the two units
// need stand above, where "static" means no more than it says.
#define static static __attribute__((section("resolution")))
#define qal_zul_arch platform_word
#include "installation.cpp"
#undef qal_zul_arch
#include "directories.cpp"
#undef static

namespace {

using qal::fuzz::Input;
using qal::fuzz::password_database;
using qal::fuzz::require;
using qal::test::DirectoryWorld;
using qal::test::GuardedRoom;
using qal::test::LogCapture;
using qal::test::model_directories;
using qal::test::model_expansion;
using qal::test::model_root;
using qal::test::ModelDirectories;

constexpr const char *variables[] = {"ZUL_HOME", "ZUL_USER_HOMEDIR", "TRANSPORT_DIR",
                                     "LAUNCH_CONFIG_DIR", "TMPDIR"};

extern "C" char __start_resolution[];  // both named by the linker
extern "C" char __stop_resolution[];

void forget_resolution() {
  static const std::string at_start{__start_resolution, __stop_resolution};
  std::copy(at_start.begin(), at_start.end(), __start_resolution);
}

enum TemporaryPlace { missing, directory, file };

struct Scenario {
  explicit Scenario(Input input) {
    const int set = input.byte();
    has_arch = (set & 0x20) != 0;
    temporary = static_cast<TemporaryPlace>(input.byte() % 3);
    near_capacity = input.nearby();
    length = input.byte();
    version = input.text();
    name = input.long_text();
    password_database = {input.long_text(), input.text(), input.long_text()};
    if ((set & 0x40) != 0) password_database.own_home.reset();
    world.product = input.text();
    world.base_name = input.long_text();
    if (has_arch) world.arch = input.long_text();
    for (int i = 0; i < 5; ++i) {
      if ((set >> i & 1) != 0) world.settings[variables[i]] = input.long_text();
    }
    world.home_of = [](const std::string &user) { return password_database.home_of(user); };
  }

  bool has_arch;
  TemporaryPlace temporary;
  int near_capacity;  // how much room there is beyond what is needed
  int length;         // of the name, as the caller tells it
  std::string version;
  std::string name;
  DirectoryWorld world;
};

const Scenario *scenario;
std::string published_word;  // what was put into the environment

struct Identity : QalIdentity {
  Identity() : QalIdentity("tool") {}
  const char *getBaseProductName(bool) override { return scenario->world.base_name.c_str(); }
};

// The number in front of an end, which must be there.
int model_number(std::string &rest, char end) {
  const std::size_t at = rest.find(end);
  if (at == std::string::npos) {
    rest.clear();
    return 0;
  }
  const long number = std::strtol(rest.substr(0, at).c_str(), nullptr, 10);
  rest = rest.substr(at + 1);
  return static_cast<int>(std::min<long>(std::max<long>(number, INT_MIN), INT_MAX));
}

char model_letter(const std::string &text) {
  const std::size_t open = text.find('(');
  if (open == std::string::npos || open + 1 == text.size()) return 'a';
  const bool marked = open + 2 < text.size() && text[open + 2] == '-';
  if (!marked) return text[open + 1];
  return open + 3 < text.size() ? text[open + 3] : 'a';
}

void check_version(const std::string &text) {
  std::string rest = text;
  const int expected[] = {model_number(rest, '.'), model_number(rest, '.'),
                          model_number(rest, '(')};
  GuardedRoom room{text};
  int numbers[3] = {-1, -1, -1};
  char letter = '?';
  version_number_from_version_string(room.data(), &numbers[0], &numbers[1], &numbers[2], &letter);
  require(std::equal(numbers, numbers + 3, expected), "the numbers are those of strtol");
  require(letter == model_letter(text), "the letter is that of the model");
  require(room.is_untouched(), "a version text stays as it is");
}

void check_expansion(const std::string &name, int length, int nearby) {
  const auto count = static_cast<std::size_t>(length);
  const std::string counted = name.substr(0, count);
  const auto home = password_database.home_of(
      counted.substr(0, 1) == "~" ? counted.substr(1, counted.find('/') - 1) : "");
  const auto expected = model_expansion(scenario->world, counted);
  const int needed = expected ? static_cast<int>(expected->size()) + 1 : 8;
  const int capacity = needed + nearby;
  GuardedRoom out{capacity, "before"};
  const int result = expfnam(name.c_str(), length, out.data(), capacity);
  if (expected && needed <= capacity) {
    require(result == needed - 1 && out.text() == *expected, "expanded as the model says");
  } else {
    const bool unknown = name.empty() || (counted.substr(0, 1) == "~" && !home);
    const int failure = unknown ? -1 : counted.empty() ? 0 : -2;
    require(result == (capacity < 1 ? -2 : failure), "failure is told");
    require(capacity < 1 || out.text().empty(), "a failed expansion is empty");
  }
  require(out.guards_are_intact(), "expansion stays in its room");
}

std::string expected_log() {
  const auto &world = scenario->world;
  const std::string root = model_root(world);
  std::string log = "getenv(ZUL_HOME) returned ";
  log += root.substr(0, 1) == " " ? "NULL\n" : "[" + root + "]\n";
  if (!scenario->has_arch) {
    log +=
        "\nZUL_ARCH environment variable not defined.\n"
        "Setting ZUL_ARCH to default value -- apple.\n";
  }
  if (!world.is_set("TMPDIR") || scenario->temporary == directory) return log;
  const bool is_missing = scenario->temporary == missing;
  return log + "Warning: TMPDIR is set to a non-" + (is_missing ? "existing" : "directory") +
         " path\n";
}

void check_texts(const ModelDirectories &expected) {
  require(App_resource_directory == expected.resource, "the resources are named");
  require(Old_App_resource_directory == expected.old_resource, "the old resources are named");
  require(Zul_home_directory == expected.root, "the root is found");
  require(App_home_directory == expected.app, "the product's tree is found");
  require(App_site_preferences_directory == expected.preferences, "the preferences are found");
  require(Vemo_home_directory == expected.vemo, "the companion's tree is found");
  require(Zul_arch == expected.arch, "the platform's word is taken");
  require(User_home_directory == expected.home, "the home is found");
  require(User_resource_directory == expected.user, "the user's resources are found");
  require(TransportPaths == expected.transports, "each transport is whole");
  require(LaunchConfigPaths == expected.launches, "each launch configuration is whole");
}

void check_resolution() {
  for (const auto text : {std::span<char>{Zul_home_directory}, std::span<char>{App_home_directory},
                          std::span<char>{TransportPaths}, std::span<char>{LaunchConfigPaths},
                          std::span<char>{User_resource_directory}, std::span<char>{Zul_arch}}) {
    std::fill(text.begin(), text.end(), '#');
  }
  const LogCapture log;
  forget_resolution();
  query_env_vars(scenario->world.product.c_str());
  require(log.text() == expected_log(), "the log tells what was found");
  check_texts(model_directories(scenario->world));
}

}  // namespace

const char *qal_zul_arch() { return scenario->has_arch ? scenario->world.arch.c_str() : nullptr; }

extern "C" {

char *__real_getenv(const char *name);

char *__wrap_getenv(const char *name) {
  if (!scenario) return __real_getenv(name);
  if (std::string_view{name} == "ZUL_ARCH") return published_word.data();
  const auto set = scenario->world.settings.find(name);
  return set == scenario->world.settings.end() ? nullptr : const_cast<char *>(set->second.c_str());
}

int __wrap_putenv(char *setting) {
  published_word = std::strchr(setting, '=') + 1;
  return 0;
}

int __wrap_qal_stat(const char *, QalStat *record) {
  record->mode = scenario->temporary == file ? S_IFREG : S_IFDIR;
  return scenario->temporary == missing ? -1 : 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Scenario current{{data, size}};
  Identity identity;
  scenario = &current;
  QalIdentity::currentIdentity = &identity;
  check_version(current.version);
  check_expansion(current.name, current.length, current.near_capacity);
  check_resolution();
  QalIdentity::currentIdentity = nullptr;
  scenario = nullptr;
  return 0;
}

}  // extern "C"

// The directory texts that every program of the family reads from its environment.
#include <qal/files.h>
#include <qal/logger.h>
#include <qal/path.h>
#include <qal/text.h>
#include <sys/stat.h>
#include <kalmora/directories.hpp>
#include <kalmora/helpers.hpp>
#include <qal/identity.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string_view>

#include "internal/bounded_text.hpp"

char App_resource_directory[64] = "Library/Application Support/Kalmora102";
char Old_App_resource_directory[64] = "Library/Application Support/Kalmora101";
char Zul_home_directory[1024];
char App_home_directory[1024];
char App_site_preferences_directory[1024];
char Vemo_home_directory[1024];
char Zul_arch[80];
char User_home_directory[1024];
char User_resource_directory[1024];
char TransportPaths[1024];
char LaunchConfigPaths[1024];

namespace {

using qal::internal::BoundedText;
using Pieces = std::initializer_list<std::string_view>;

constexpr char version[] = "102";
constexpr char old_version[] = "101";
constexpr char vemo_version[] = "32";

constexpr std::size_t path_size = 1024;
constexpr int user_home_capacity = 1009;  // for expfnam

// Writes a directory, or leaves the text empty when it does not fit: a path without its end names
// another directory.
bool compose(std::span<char> text, Pieces pieces) { return BoundedText{text}.append(pieces); }

void convert(char *path) { qal_convert_pathname(path, QAL_PATH_TO_SLASH); }

const char *base_product_name() {
  QalIdentity *const identity = QalIdentity::currentIdentity;
  return identity ? identity->getBaseProductName(true) : "";
}

void name_resource_directory(std::span<char> text, const char *product, const char *suffix) {
  std::snprintf(text.data(), text.size(), "Library/Application Support/%s%s", product, suffix);
}

// Deliberate: the fixed trees are neither converted nor expanded.
void use_fixed_trees() {
  qal_info("getenv(ZUL_HOME) returned NULL\n");
  compose(Zul_home_directory, {"/usr/local/ZUL/"});
  compose(App_home_directory, {"/usr/local/ZUL/", base_product_name(), version});
  compose(App_site_preferences_directory, {"/usr/local/ZUL/kalmora", version, "/site_preferences"});
  compose(Vemo_home_directory, {"/usr/local/ZUL/vemo", vemo_version});
}

void expand_tree(char (&tree)[path_size], Pieces pieces) {
  char path[path_size];
  tree[0] = '\0';
  if (!compose(path, pieces)) return;
  convert(path);
  expfnam(path, static_cast<int>(std::strlen(path)), tree, sizeof tree - 1);
}

void use_trees_below(const char *root) {
  qal_strncpy(Zul_home_directory, root, sizeof Zul_home_directory);
  qal_info("getenv(ZUL_HOME) returned [%s]\n", root);
  expand_tree(App_home_directory, {root, "/", base_product_name(), version});
  expand_tree(App_site_preferences_directory, {root, "/kalmora", version, "/site_preferences"});
  expand_tree(Vemo_home_directory, {root, "/vemo", vemo_version});
}

// Deliberate: a root that begins with a space counts as unset.
void resolve_trees() {
  const char *const root = qal_zul_home();
  if (!root || *root == ' ') {
    use_fixed_trees();
  } else {
    use_trees_below(root);
  }
}

// Sets the default word in the environment, which keeps the text itself, so it is never released.
const char *default_arch() {
  static char setting[] = "ZUL_ARCH=apple";
  const char *const word = putenv(setting) == 0 ? std::getenv("ZUL_ARCH") : "apple";
  qal_info(
      "\nZUL_ARCH environment variable not defined.\n"
      "Setting ZUL_ARCH to default value -- %s.\n",
      word);
  return word;
}

void resolve_arch() {
  const char *const word = qal_zul_arch();
  qal_strncpy(Zul_arch, word ? word : default_arch(), sizeof Zul_arch);
}

// False when the home does not fit. An unknown home is empty and no failure.
bool resolve_user_home() {
  if (const char *const set = std::getenv("ZUL_USER_HOMEDIR")) {
    return compose(User_home_directory, {set});
  }
  return expfnam("~", 1, User_home_directory, user_home_capacity) != KALMORA_NAME_TOO_LONG;
}

// Deliberate: an empty home gives a directory that begins with "/". A home that did not fit gives
// an empty text, because that directory would be another user's.
void resolve_user_resources(bool home_fits) {
  User_resource_directory[0] = '\0';
  if (!home_fits) return;
  compose(User_resource_directory, {User_home_directory, "/", App_resource_directory});
  convert(User_resource_directory);
}

// A colon-separated list in one of the texts. An entry is appended whole, with its separator, or
// left out.
class SearchPath {
 public:
  explicit SearchPath(std::span<char> text) : text_(text) {}

  bool empty() const { return text_.length() == 0; }
  void append(std::string_view separator, std::string_view entry) {
    text_.append({separator, entry});
  }
  void convert_all() { convert(text_.data()); }

  // Composes the entry separately, so that converting it leaves the rest of the list as it is.
  void append_converted(std::string_view separator, Pieces pieces) {
    char entry[path_size];
    if (!compose(entry, pieces)) return;
    convert(entry);
    append(separator, entry);
  }

 private:
  BoundedText text_;
};

const char *non_empty_setting(const char *name) {
  const char *const value = std::getenv(name);
  return value && *value ? value : nullptr;
}

void resolve_transports() {
  SearchPath paths{TransportPaths};
  if (const char *const own = non_empty_setting("TRANSPORT_DIR")) {
    paths.append("", own);
    paths.convert_all();
  }
  if (*Vemo_home_directory && *Zul_arch) {
    paths.append_converted(paths.empty() ? "" : ":",
                           {Vemo_home_directory, "/machines/", Zul_arch, "/ZUL/transports"});
  }
}

// Deliberate: unlike the transports, both later entries bring their ":" even to an empty list. A
// home that did not fit brings none: the entry would be another user's.
void resolve_launch_configs(bool home_fits) {
  SearchPath paths{LaunchConfigPaths};
  if (*Vemo_home_directory) paths.append(Vemo_home_directory, "/launch_configs");
  if (const char *const own = non_empty_setting("LAUNCH_CONFIG_DIR")) {
    paths.append(":", own);
    paths.convert_all();
  }
  if (!home_fits) return;
  paths.append_converted(":",
                         {User_home_directory, "/", App_resource_directory, "/launch_configs"});
}

void check_temporary_directory() {
  const char *const path = std::getenv("TMPDIR");
  if (!path) return;
  QalStat record;
  if (qal_stat(path, &record) != 0) {
    qal_info("Warning: TMPDIR is set to a non-existing path\n");
  } else if (!S_ISDIR(record.mode)) {
    qal_info("Warning: TMPDIR is set to a non-directory path\n");
  }
}

}  // namespace

void query_env_vars(const char *product) {
  static bool firstTime = true;
  if (!firstTime) return;
  firstTime = false;

  const char *const word = product ? product : "";
  name_resource_directory(App_resource_directory, word, version);
  name_resource_directory(Old_App_resource_directory, word, old_version);
  resolve_trees();
  resolve_arch();
  const bool home_fits = resolve_user_home();
  resolve_user_resources(home_fits);
  resolve_transports();
  resolve_launch_configs(home_fits);
  check_temporary_directory();
}

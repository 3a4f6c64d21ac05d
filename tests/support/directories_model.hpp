// A model of the directories that an environment leads to, written more plainly.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace qal::test {

// What the resolution depends on.
struct DirectoryWorld {
  std::map<std::string, std::string> settings;
  std::string product = "kalmora";
  std::string base_name = "kalmora";
  std::string arch = "apple";
  // The home of a user, by the name after a "~"; "" is the process's own.
  std::function<std::optional<std::string>(const std::string &user)> home_of;

  bool is_set(const std::string &name) const { return settings.count(name) != 0; }
  std::string setting(const std::string &name) const {
    return is_set(name) ? settings.at(name) : "";
  }
};

struct ModelDirectories {
  std::string resource;      // App_resource_directory
  std::string old_resource;  // Old_App_resource_directory
  std::string root;          // Zul_home_directory
  std::string app;           // App_home_directory
  std::string preferences;   // App_site_preferences_directory
  std::string vemo;          // Vemo_home_directory
  std::string arch;          // Zul_arch
  std::string home;          // User_home_directory
  std::string user;          // User_resource_directory
  std::string transports;    // TransportPaths
  std::string launches;      // LaunchConfigPaths
  bool home_fits = false;
};

inline std::string or_empty(const std::string &path, std::size_t longest) {
  return path.size() <= longest ? path : "";
}

inline std::string slashed(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

inline std::string model_root(const DirectoryWorld &world) {
  if (!world.is_set("ZUL_HOME")) return "/usr/local/ZUL";
  const std::string root = world.setting("ZUL_HOME").substr(0, 1023);
  const auto last = root.find_last_not_of("\r\n");
  const bool separator = last != root.npos && (root[last] == '/' || root[last] == '\\');
  return separator && last > 0 ? root.substr(0, last) : root;
}

// A name with its "~" expanded; nothing when that is not possible.
inline std::optional<std::string> model_expansion(const DirectoryWorld &world,
                                                  const std::string &name) {
  if (name.empty()) return {};
  if (name[0] != '~') return slashed(name);
  const std::size_t slash = std::min(name.find('/'), name.size());
  const auto home = world.home_of(name.substr(1, slash - 1));
  if (!home || home->size() + name.size() - slash > 1023) return {};
  return slashed(*home + name.substr(slash));
}

inline std::string model_tree(const DirectoryWorld &world, const std::string &path) {
  return or_empty(model_expansion(world, slashed(or_empty(path, 1023))).value_or(""), 1022);
}

inline void append_whole(std::string &list, const std::string &entry) {
  if (list.size() + entry.size() <= 1023) list += entry;
}

inline void model_trees(const DirectoryWorld &world, ModelDirectories &all) {
  const std::string root = model_root(world);
  all.root = root;
  all.app = model_tree(world, root + "/" + world.base_name + "102");
  all.preferences = model_tree(world, root + "/kalmora102/site_preferences");
  all.vemo = model_tree(world, root + "/vemo32");
  if (root.substr(0, 1) != " ") return;
  all.root = "/usr/local/ZUL/";
  all.app = or_empty(all.root + world.base_name + "102", 1023);
  all.preferences = all.root + "kalmora102/site_preferences";
  all.vemo = all.root + "vemo32";
}

inline void model_user(const DirectoryWorld &world, ModelDirectories &all) {
  const bool set = world.is_set("ZUL_USER_HOMEDIR");
  const std::string own = world.home_of("").value_or("");
  const std::string wanted = set ? world.setting("ZUL_USER_HOMEDIR") : slashed(own);
  all.home = or_empty(wanted, set ? 1023 : 1008);
  all.home_fits = all.home.size() == wanted.size();
  all.user = all.home_fits ? slashed(or_empty(all.home + "/" + all.resource, 1023)) : "";
}

inline void model_transports(const DirectoryWorld &world, ModelDirectories &all) {
  std::string &list = all.transports;
  append_whole(list, slashed(world.setting("TRANSPORT_DIR")));
  const std::string own =
      or_empty(slashed(all.vemo + "/machines/" + all.arch + "/ZUL/transports"), 1023);
  if (all.vemo.empty() || all.arch.empty() || own.empty()) return;
  append_whole(list, (list.empty() ? "" : ":") + own);
}

inline void model_launches(const DirectoryWorld &world, ModelDirectories &all) {
  std::string &list = all.launches;
  if (!all.vemo.empty()) append_whole(list, all.vemo + "/launch_configs");
  const std::string own = world.setting("LAUNCH_CONFIG_DIR");
  if (!own.empty()) {
    append_whole(list, ":" + own);
    list = slashed(list);
  }
  if (!all.home_fits) return;
  const auto last = or_empty(slashed(all.home + "/" + all.resource + "/launch_configs"), 1023);
  if (!last.empty()) append_whole(list, ":" + last);
}

inline ModelDirectories model_directories(const DirectoryWorld &world) {
  ModelDirectories all;
  const std::string resources = "Library/Application Support/";
  all.resource = (resources + world.product + "102").substr(0, 63);
  all.old_resource = (resources + world.product + "101").substr(0, 63);
  all.arch = world.arch.substr(0, 79);
  model_trees(world, all);
  model_user(world, all);
  model_transports(world, all);
  model_launches(world, all);
  return all;
}

}  // namespace qal::test

// Where a program of the family finds its things. The environment decides, here one of our own.
#include <kalmora/directories.hpp>

#include <cstdio>
#include <cstdlib>

int main() {
  setenv("ZUL_HOME", "/opt/zul/", 1);
  setenv("ZUL_USER_HOMEDIR", "/home/ada", 1);
  setenv("TRANSPORT_DIR", "/srv/transports", 1);
  unsetenv("LAUNCH_CONFIG_DIR");

  query_env_vars("kalmora");  // once, before other threads run

  std::printf("installation  %s\n", Zul_home_directory);
  std::printf("preferences   %s\n", App_site_preferences_directory);
  std::printf("resources     %s\n", User_resource_directory);
  std::printf("transports    %s\n", TransportPaths);
  return 0;
}

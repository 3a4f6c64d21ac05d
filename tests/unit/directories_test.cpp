// Directory resolution, each case in a child process with an environment of its own.
#include <gtest/gtest.h>
#include <qal/logger.h>
#include <unistd.h>
#include <kalmora/directories.hpp>
#include <qal/identity.hpp>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/child.hpp"
#include "support/directories_model.hpp"
#include "support/home.hpp"
#include "support/log_capture.hpp"
#include "support/scratch.hpp"

namespace {

using qal::test::clear_environment;
using qal::test::DirectoryWorld;
using qal::test::home_of;
using qal::test::in_child;
using qal::test::InScratch;
using qal::test::LogCapture;
using qal::test::model_directories;
using Settings = std::map<std::string, std::string>;

using TemporaryDirectoryCheck = InScratch;

constexpr std::size_t limits[] = {1000, 1008, 1022, 1023, 1024, 5000};

// A path of exactly so many bytes that no step changes.
std::string path_of(std::size_t length) { return "/" + std::string(length - 1, 'p'); }

void in_child(const Settings &settings, const std::function<void()> &body) {
  qal::test::in_child([&] {
    clear_environment();
    for (const auto &[name, value] : settings) setenv(name.c_str(), value.c_str(), 1);
    body();
  });
}

// Resolves as the product "kalmora" of a host whose identity is Kalmora.
void resolve(const char *product = "kalmora") {
  QalIdentity identity{"tool"};
  identity.setProduct(1);
  QalIdentity::currentIdentity = &identity;
  query_env_vars(product);
  QalIdentity::currentIdentity = nullptr;
}

void resolved(const Settings &settings, const std::function<void()> &checks) {
  in_child(settings, [&] {
    resolve();
    checks();
  });
}

std::string root_for(const char *value) {
  const auto child = qal::test::in_child([&] {
    clear_environment();
    if (value) setenv("ZUL_HOME", value, 1);
    std::fputs(qal_zul_home(), stdout);
  });
  return child.out;
}

std::string root_for(const std::string &value) { return root_for(value.c_str()); }

// Compares every text with that of the model.
void expect_model(const Settings &settings) {
  DirectoryWorld world;
  world.settings = settings;
  world.home_of = [](const std::string &) { return home_of(getuid()); };
  const auto expected = model_directories(world);
  EXPECT_EQ(App_resource_directory, expected.resource);
  EXPECT_EQ(Old_App_resource_directory, expected.old_resource);
  EXPECT_EQ(Zul_home_directory, expected.root);
  EXPECT_EQ(App_home_directory, expected.app);
  EXPECT_EQ(App_site_preferences_directory, expected.preferences);
  EXPECT_EQ(Vemo_home_directory, expected.vemo);
  EXPECT_EQ(Zul_arch, expected.arch);
  EXPECT_EQ(User_home_directory, expected.home);
  EXPECT_EQ(User_resource_directory, expected.user);
  EXPECT_EQ(TransportPaths, expected.transports);
  EXPECT_EQ(LaunchConfigPaths, expected.launches);
}

TEST(InstallationRoot, HasAFixedPlaceWhenNothingIsSet) {
  EXPECT_EQ(root_for(nullptr), "/usr/local/ZUL");
}

TEST(InstallationRoot, IsTheOneInTheEnvironment) { EXPECT_EQ(root_for("/opt/zul"), "/opt/zul"); }

TEST(InstallationRoot, LosesOneSeparatorAtItsEnd) {
  EXPECT_EQ(root_for("/opt/zul/"), "/opt/zul");
  EXPECT_EQ(root_for("/opt/zul//"), "/opt/zul/");
  EXPECT_EQ(root_for("C:\\zul\\"), "C:\\zul");
  EXPECT_EQ(root_for("/opt/zul\\/"), "/opt/zul\\");
}

TEST(InstallationRoot, IsSearchedForItsSeparatorBeforeLineEnds) {
  EXPECT_EQ(root_for("/opt/zul/\n"), "/opt/zul");
  EXPECT_EQ(root_for("/opt/zul/\r\n\n\r"), "/opt/zul");
  EXPECT_EQ(root_for("/opt/zul\n"), "/opt/zul\n");  // passed over, not removed
  EXPECT_EQ(root_for("/opt/zul\n/\n"), "/opt/zul\n");
  EXPECT_EQ(root_for("/opt/zul/ "), "/opt/zul/ ");
}

TEST(InstallationRoot, KeepsItsFirstCharacterWhateverItIs) {
  EXPECT_EQ(root_for("/"), "/");
  EXPECT_EQ(root_for("\\"), "\\");
  EXPECT_EQ(root_for("//"), "/");
  EXPECT_EQ(root_for("/\n"), "/\n");
  EXPECT_EQ(root_for("\n/"), "\n");
}

TEST(InstallationRoot, MayBeEmpty) { EXPECT_EQ(root_for(""), ""); }

TEST(InstallationRoot, IsCutTo1023Bytes) {
  for (const auto length : limits) {
    EXPECT_EQ(root_for(path_of(length)), path_of(std::min<std::size_t>(length, 1023)));
  }
}

TEST(InstallationRoot, LooksForItsSeparatorAfterTheCut) {
  EXPECT_EQ(root_for(path_of(1022) + "/"), path_of(1022));
  EXPECT_EQ(root_for(path_of(1022) + "/x"), path_of(1022));
  EXPECT_EQ(root_for(path_of(1023) + "/"), path_of(1023));
}

TEST(InstallationRoot, IsRememberedForTheProcess) {
  in_child({{"ZUL_HOME", "/first"}}, [] {
    const char *const root = qal_zul_home();
    setenv("ZUL_HOME", "/second", 1);
    EXPECT_EQ(qal_zul_home(), root);
    EXPECT_STREQ(root, "/first");
    unsetenv("ZUL_HOME");
    EXPECT_STREQ(qal_zul_home(), "/first");
  });
}

TEST(InstallationRoot, IsACopyOfTheSetting) {
  in_child({{"ZUL_HOME", "/first/"}}, [] {
    EXPECT_STREQ(qal_zul_home(), "/first");
    EXPECT_STREQ(std::getenv("ZUL_HOME"), "/first/");
  });
}

TEST(PlatformWord, IsAppleEverywhere) { EXPECT_STREQ(qal_zul_arch(), "apple"); }

TEST(DirectoryTexts, HaveTheirSizesAndFirstValues) {
  EXPECT_EQ(sizeof App_resource_directory, 64u);
  EXPECT_EQ(sizeof Old_App_resource_directory, 64u);
  EXPECT_EQ(sizeof Zul_arch, 80u);
  EXPECT_STREQ(App_resource_directory, "Library/Application Support/Kalmora102");
  EXPECT_STREQ(Old_App_resource_directory, "Library/Application Support/Kalmora101");
  for (const auto *text :
       {&Zul_home_directory, &App_home_directory, &App_site_preferences_directory,
        &Vemo_home_directory, &User_home_directory, &User_resource_directory, &TransportPaths,
        &LaunchConfigPaths}) {
    EXPECT_EQ(sizeof *text, 1024u);
    EXPECT_STREQ(*text, "");
  }
  EXPECT_STREQ(Zul_arch, "");
}

TEST(DirectoryResolve, UsesFixedPlacesWhenNothingIsSet) {
  resolved({}, [] {
    const auto home = home_of(getuid()).value_or("");
    EXPECT_STREQ(App_resource_directory, "Library/Application Support/kalmora102");
    EXPECT_STREQ(Old_App_resource_directory, "Library/Application Support/kalmora101");
    EXPECT_STREQ(Zul_home_directory, "/usr/local/ZUL");
    EXPECT_STREQ(App_home_directory, "/usr/local/ZUL/kalmora102");
    EXPECT_STREQ(App_site_preferences_directory, "/usr/local/ZUL/kalmora102/site_preferences");
    EXPECT_STREQ(Vemo_home_directory, "/usr/local/ZUL/vemo32");
    EXPECT_STREQ(Zul_arch, "apple");
    EXPECT_EQ(User_home_directory, home);
    EXPECT_EQ(User_resource_directory, home + "/Library/Application Support/kalmora102");
    EXPECT_STREQ(TransportPaths, "/usr/local/ZUL/vemo32/machines/apple/ZUL/transports");
    EXPECT_EQ(LaunchConfigPaths, "/usr/local/ZUL/vemo32/launch_configs:" + home +
                                     "/Library/Application Support/kalmora102/launch_configs");
  });
}

TEST(DirectoryResolve, FollowsTheEnvironment) {
  resolved({{"ZUL_HOME", "/opt/zul/"},
            {"ZUL_USER_HOMEDIR", "/home/mira"},
            {"TRANSPORT_DIR", "/t1:/t2"},
            {"LAUNCH_CONFIG_DIR", "/l1:/l2"}},
           [] {
             EXPECT_STREQ(Zul_home_directory, "/opt/zul");
             EXPECT_STREQ(App_home_directory, "/opt/zul/kalmora102");
             EXPECT_STREQ(App_site_preferences_directory, "/opt/zul/kalmora102/site_preferences");
             EXPECT_STREQ(Vemo_home_directory, "/opt/zul/vemo32");
             EXPECT_STREQ(User_home_directory, "/home/mira");
             EXPECT_STREQ(User_resource_directory,
                          "/home/mira/Library/Application Support/kalmora102");
             EXPECT_STREQ(TransportPaths, "/t1:/t2:/opt/zul/vemo32/machines/apple/ZUL/transports");
             EXPECT_STREQ(LaunchConfigPaths,
                          "/opt/zul/vemo32/launch_configs:/l1:/l2:"
                          "/home/mira/Library/Application Support/kalmora102/launch_configs");
           });
}

TEST(DirectoryResolve, NamesTheProductTreeAfterTheIdentity) {
  in_child({{"ZUL_HOME", "/opt/zul"}}, [] {
    QalIdentity identity{"tool"};
    identity.setProduct(3);
    QalIdentity::currentIdentity = &identity;
    query_env_vars("kalmora");
    EXPECT_STREQ(App_home_directory, "/opt/zul/pellum102");
    EXPECT_STREQ(App_site_preferences_directory, "/opt/zul/kalmora102/site_preferences");
  });
}

TEST(DirectoryResolve, NamesNoProductWithoutAnIdentity) {
  in_child({{"ZUL_HOME", "/opt/zul"}}, [] {
    query_env_vars("kalmora");
    EXPECT_STREQ(App_home_directory, "/opt/zul/102");
  });
}

TEST(DirectoryResolve, NamesTheResourceDirectoriesAfterTheProductWord) {
  in_child({{"ZUL_USER_HOMEDIR", "/h"}}, [] {
    resolve("pellum");
    EXPECT_STREQ(App_resource_directory, "Library/Application Support/pellum102");
    EXPECT_STREQ(Old_App_resource_directory, "Library/Application Support/pellum101");
    EXPECT_STREQ(User_resource_directory, "/h/Library/Application Support/pellum102");
    EXPECT_STREQ(App_home_directory, "/usr/local/ZUL/kalmora102");
  });
}

TEST(DirectoryResolve, TakesANullProductAsEmpty) {
  in_child({{"ZUL_USER_HOMEDIR", "/h"}}, [] {
    resolve(nullptr);
    EXPECT_STREQ(App_resource_directory, "Library/Application Support/102");
    EXPECT_STREQ(Old_App_resource_directory, "Library/Application Support/101");
    EXPECT_STREQ(User_resource_directory, "/h/Library/Application Support/102");
  });
}

TEST(DirectoryResolve, CutsALongProductWordTo63Bytes) {
  const std::string folder = "Library/Application Support/";
  for (const std::size_t length : {32u, 33u, 35u, 36u, 5000u}) {
    in_child({}, [&] {
      const std::string product(length, 'w');
      resolve(product.c_str());
      EXPECT_EQ(App_resource_directory, (folder + product + "102").substr(0, 63));
      EXPECT_EQ(Old_App_resource_directory, (folder + product + "101").substr(0, 63));
    });
  }
}

TEST(DirectoryResolve, DoesNothingTheSecondTime) {
  in_child({{"ZUL_USER_HOMEDIR", "/first"}}, [] {
    resolve();
    setenv("ZUL_USER_HOMEDIR", "/second", 1);
    setenv("TMPDIR", "/no/such/place", 1);
    User_home_directory[1] = 'F';
    const LogCapture log;
    resolve("pellum");
    EXPECT_STREQ(App_resource_directory, "Library/Application Support/kalmora102");
    EXPECT_STREQ(User_home_directory, "/First");
    EXPECT_EQ(log.text(), "");
  });
}

void ask_again(void *lines, const char *, ...) {
  ++*static_cast<int *>(lines);
  query_env_vars("pellum");
}

TEST(DirectoryResolve, DoesNothingWhenAskedAgainMeanwhile) {
  in_child({{"TMPDIR", "/no/such/place"}}, [] {
    int lines = 0;
    qal_logger_init(&lines, ask_again, nullptr, nullptr);
    resolve();
    qal_logger_done();
    EXPECT_EQ(lines, 2);
    EXPECT_STREQ(App_resource_directory, "Library/Application Support/kalmora102");
  });
}

TEST(DirectoryResolve, LeavesNothingOfWhatATextHeldBefore) {
  const Settings settings{{"ZUL_HOME", path_of(1023)},
                          {"ZUL_USER_HOMEDIR", path_of(1024)},
                          {"TRANSPORT_DIR", path_of(1024)},
                          {"LAUNCH_CONFIG_DIR", path_of(1024)}};
  in_child(settings, [&] {
    for (char *const text : {Zul_home_directory, App_home_directory, App_site_preferences_directory,
                             Vemo_home_directory, Zul_arch, User_home_directory,
                             User_resource_directory, TransportPaths, LaunchConfigPaths}) {
      std::fill_n(text, 79, '#');
    }
    resolve();
    expect_model(settings);
  });
}

TEST(DirectoryResolve, TakesARootThatBeginsWithABlankAsUnset) {
  for (const auto &root : {" ", " /opt/zul", " ~\\x"}) {
    in_child({{"ZUL_HOME", root}, {"ZUL_USER_HOMEDIR", "/h"}}, [] {
      const LogCapture log;
      resolve();
      EXPECT_STREQ(Zul_home_directory, "/usr/local/ZUL/");
      EXPECT_STREQ(App_home_directory, "/usr/local/ZUL/kalmora102");
      EXPECT_STREQ(App_site_preferences_directory, "/usr/local/ZUL/kalmora102/site_preferences");
      EXPECT_STREQ(Vemo_home_directory, "/usr/local/ZUL/vemo32");
      EXPECT_STREQ(TransportPaths, "/usr/local/ZUL/vemo32/machines/apple/ZUL/transports");
      EXPECT_EQ(log.text(), "getenv(ZUL_HOME) returned NULL\n");
    });
  }
}

TEST(DirectoryResolve, TakesOnlyASpaceForABlank) {
  resolved({{"ZUL_HOME", "\t/opt"}}, [] { EXPECT_STREQ(Zul_home_directory, "\t/opt"); });
}

// An identity whose base name is more than a path would take unchanged.
struct OddIdentity : QalIdentity {
  explicit OddIdentity(std::string base) : QalIdentity("tool"), base_(std::move(base)) {}
  const char *getBaseProductName(bool lower) override {
    EXPECT_TRUE(lower);
    return base_.c_str();
  }
  std::string base_;
};

TEST(DirectoryResolve, ConvertsNothingInTheFixedTrees) {
  in_child({{"ZUL_HOME", " "}}, [] {
    OddIdentity identity{"a\\b"};
    QalIdentity::currentIdentity = &identity;
    query_env_vars("kalmora");
    EXPECT_STREQ(App_home_directory, "/usr/local/ZUL/a\\b102");
  });
}

TEST(DirectoryResolve, EmptiesATreeWhoseProductNameDoesNotFit) {
  for (const bool fixed : {false, true}) {
    const std::size_t longest = fixed ? 1023 : 1022;
    const std::size_t room = longest - std::string("/usr/local/ZUL/102").size();
    for (const std::size_t length : {room, room + 1, std::size_t{5000}}) {
      in_child({{"ZUL_HOME", fixed ? " " : "/usr/local/ZUL"}}, [&] {
        OddIdentity identity{std::string(length, 'b')};
        QalIdentity::currentIdentity = &identity;
        query_env_vars("kalmora");
        EXPECT_EQ(App_home_directory,
                  length == room ? "/usr/local/ZUL/" + identity.base_ + "102" : std::string());
        EXPECT_STREQ(App_site_preferences_directory, "/usr/local/ZUL/kalmora102/site_preferences");
        EXPECT_STREQ(Vemo_home_directory, "/usr/local/ZUL/vemo32");
      });
    }
  }
}

TEST(DirectoryResolve, ReportsTheRoot) {
  in_child({{"ZUL_HOME", "/opt/100%s/"}}, [] {
    const LogCapture log;
    resolve();
    EXPECT_EQ(log.text(), "getenv(ZUL_HOME) returned [/opt/100%s]\n");
  });
}

TEST(DirectoryResolve, ReportsTheFixedRootToo) {
  in_child({}, [] {
    const LogCapture log;
    resolve();
    EXPECT_EQ(log.text(), "getenv(ZUL_HOME) returned [/usr/local/ZUL]\n");
  });
}

void copy_trees(void *copies, const char *, ...) {
  auto &trees = *static_cast<std::vector<std::string> *>(copies);
  if (trees.empty()) trees = {Zul_home_directory, App_home_directory};
}

void expect_trees_at_the_report(const char *root, const std::vector<std::string> &expected) {
  in_child({{"ZUL_HOME", root}}, [&] {
    std::vector<std::string> trees;
    qal_logger_init(&trees, copy_trees, nullptr, nullptr);
    resolve();
    qal_logger_done();
    EXPECT_EQ(trees, expected);
  });
}

TEST(DirectoryResolve, ReportsTheRootBeforeItComposesTheTrees) {
  expect_trees_at_the_report("/opt/zul", {"/opt/zul", ""});
  expect_trees_at_the_report(" ", {"", ""});
}

TEST(DirectoryResolve, ConvertsAndExpandsTheTreesBelowARoot) {
  resolved({{"ZUL_HOME", "~root\\zul"}}, [] {
    const auto home = home_of(0).value_or("nowhere");  // of the user that every system has
    EXPECT_STREQ(Zul_home_directory, "~root\\zul");
    EXPECT_EQ(App_home_directory, home + "/zul/kalmora102");
    EXPECT_EQ(App_site_preferences_directory, home + "/zul/kalmora102/site_preferences");
    EXPECT_EQ(Vemo_home_directory, home + "/zul/vemo32");
  });
}

TEST(DirectoryResolve, EmptiesTheTreesOfAnUnknownUser) {
  resolved({{"ZUL_HOME", "~no-such-user-here/zul"}, {"ZUL_USER_HOMEDIR", "/h"}}, [] {
    EXPECT_STREQ(Zul_home_directory, "~no-such-user-here/zul");
    EXPECT_STREQ(App_home_directory, "");
    EXPECT_STREQ(App_site_preferences_directory, "");
    EXPECT_STREQ(Vemo_home_directory, "");
    EXPECT_STREQ(TransportPaths, "");
  });
}

TEST(DirectoryResolve, TakesAnEmptyRootAsSet) {
  in_child({{"ZUL_HOME", ""}}, [] {
    const LogCapture log;
    resolve();
    EXPECT_STREQ(Zul_home_directory, "");
    EXPECT_STREQ(App_home_directory, "/kalmora102");
    EXPECT_STREQ(Vemo_home_directory, "/vemo32");
    EXPECT_EQ(log.text(), "getenv(ZUL_HOME) returned []\n");
  });
}

TEST(DirectoryResolve, LeavesThePlatformWordOutOfTheEnvironment) {
  resolved({}, [] { EXPECT_EQ(std::getenv("ZUL_ARCH"), nullptr); });
  resolved({{"ZUL_ARCH", "other"}}, [] {
    EXPECT_STREQ(Zul_arch, "apple");
    EXPECT_STREQ(std::getenv("ZUL_ARCH"), "other");
  });
}

TEST(DirectoryResolve, TakesTheUserHomeAsItIsSet) {
  resolved({{"ZUL_USER_HOMEDIR", "~\\mira/"}}, [] {
    EXPECT_STREQ(User_home_directory, "~\\mira/");
    EXPECT_STREQ(User_resource_directory, "~/mira//Library/Application Support/kalmora102");
  });
}

TEST(DirectoryResolve, KeepsTheLeadingSlashForAnEmptyHome) {
  resolved({{"ZUL_USER_HOMEDIR", ""}}, [] {
    EXPECT_STREQ(User_home_directory, "");
    EXPECT_STREQ(User_resource_directory, "/Library/Application Support/kalmora102");
  });
}

TEST(DirectoryResolve, HasNoResourceDirectoryWhenTheHomeDoesNotFit) {
  const auto expect_none = [] { EXPECT_STREQ(User_resource_directory, ""); };
  for (const std::size_t length : {1024u, 5000u}) {
    resolved({{"ZUL_USER_HOMEDIR", path_of(length)}}, [&] {
      EXPECT_STREQ(User_home_directory, "");
      expect_none();
    });
  }
  const std::size_t room = 1023 - std::string("/Library/Application Support/kalmora102").size();
  resolved({{"ZUL_USER_HOMEDIR", path_of(room)}}, [&] {
    EXPECT_EQ(User_resource_directory, path_of(room) + "/Library/Application Support/kalmora102");
  });
  resolved({{"ZUL_USER_HOMEDIR", path_of(room + 1)}}, [&] {
    EXPECT_EQ(User_home_directory, path_of(room + 1));
    expect_none();
  });
}

TEST(DirectoryResolve, ConvertsTheTransports) {
  resolved({{"TRANSPORT_DIR", "C:\\t1:\\t2\\"}}, [] {
    EXPECT_STREQ(TransportPaths, "C:/t1:/t2/:/usr/local/ZUL/vemo32/machines/apple/ZUL/transports");
  });
}

TEST(DirectoryResolve, AddsNothingForAnEmptyTransportSetting) {
  resolved({{"TRANSPORT_DIR", ""}}, [] {
    EXPECT_STREQ(TransportPaths, "/usr/local/ZUL/vemo32/machines/apple/ZUL/transports");
  });
}

TEST(DirectoryResolve, HasOnlyTheSetTransportsWithoutAVemoTree) {
  resolved({{"ZUL_HOME", path_of(1020)}, {"TRANSPORT_DIR", "/t"}},
           [] { EXPECT_STREQ(TransportPaths, "/t"); });
  resolved({{"ZUL_HOME", path_of(1020)}}, [] { EXPECT_STREQ(TransportPaths, ""); });
}

TEST(DirectoryResolve, ConvertsTheSetLaunchConfigurations) {
  resolved({{"ZUL_USER_HOMEDIR", "\\h"}, {"LAUNCH_CONFIG_DIR", "\\l1:l2\\"}}, [] {
    EXPECT_STREQ(LaunchConfigPaths,
                 "/usr/local/ZUL/vemo32/launch_configs:/l1:l2/:"
                 "/h/Library/Application Support/kalmora102/launch_configs");
  });
}

TEST(DirectoryResolve, AddsNothingForAnEmptyLaunchSetting) {
  resolved({{"LAUNCH_CONFIG_DIR", ""}, {"ZUL_USER_HOMEDIR", "/h"}}, [] {
    EXPECT_STREQ(LaunchConfigPaths,
                 "/usr/local/ZUL/vemo32/launch_configs:"
                 "/h/Library/Application Support/kalmora102/launch_configs");
  });
}

TEST(DirectoryResolve, BeginsTheLaunchListWithAnEmptyEntryWithoutAVemoTree) {
  resolved({{"ZUL_HOME", path_of(1020)}, {"ZUL_USER_HOMEDIR", "/h"}}, [] {
    EXPECT_STREQ(LaunchConfigPaths, ":/h/Library/Application Support/kalmora102/launch_configs");
  });
  resolved({{"ZUL_HOME", path_of(1020)}, {"ZUL_USER_HOMEDIR", "/h"}, {"LAUNCH_CONFIG_DIR", "/l"}},
           [] {
             EXPECT_STREQ(LaunchConfigPaths,
                          ":/l:/h/Library/Application Support/kalmora102/launch_configs");
           });
}

TEST(DirectoryResolve, HasNoLaunchConfigurationInAHomeThatDidNotFit) {
  resolved({{"ZUL_USER_HOMEDIR", path_of(1024)}},
           [] { EXPECT_STREQ(LaunchConfigPaths, "/usr/local/ZUL/vemo32/launch_configs"); });
  resolved({{"ZUL_HOME", path_of(1020)}, {"ZUL_USER_HOMEDIR", path_of(1024)}},
           [] { EXPECT_STREQ(LaunchConfigPaths, ""); });
}

TEST(DirectoryResolve, AppendsAListEntryWithItsSeparatorOrNotAtAll) {
  const std::string machines = ":/usr/local/ZUL/vemo32/machines/apple/ZUL/transports";
  const std::size_t room = 1023 - machines.size();
  resolved({{"TRANSPORT_DIR", path_of(room)}},
           [&] { EXPECT_EQ(TransportPaths, path_of(room) + machines); });
  resolved({{"TRANSPORT_DIR", path_of(room + 1)}},
           [&] { EXPECT_EQ(TransportPaths, path_of(room + 1)); });
  resolved({{"TRANSPORT_DIR", path_of(1023)}}, [&] { EXPECT_EQ(TransportPaths, path_of(1023)); });
  resolved({{"TRANSPORT_DIR", path_of(1024)}},
           [&] { EXPECT_EQ(TransportPaths, machines.substr(1)); });

  const std::string vemo = "/usr/local/ZUL/vemo32/launch_configs";
  const std::string own = ":/h/Library/Application Support/kalmora102/launch_configs";
  const std::size_t launch_room = 1023 - vemo.size() - 1;
  const auto launch = [&](std::size_t length, const std::string &expected) {
    resolved({{"LAUNCH_CONFIG_DIR", path_of(length)}, {"ZUL_USER_HOMEDIR", "/h"}},
             [&] { EXPECT_EQ(LaunchConfigPaths, expected); });
  };
  const std::size_t both = launch_room - own.size();
  launch(both, vemo + ":" + path_of(both) + own);
  launch(both + 1, vemo + ":" + path_of(both + 1));
  launch(launch_room, vemo + ":" + path_of(launch_room));
  launch(launch_room + 1, vemo + own);
}

TEST(DirectoryResolve, HoldsEveryTextWithinItsSizeForLongSettings) {
  for (const auto length : limits) {
    const std::string path = path_of(length);
    for (const auto *name :
         {"ZUL_HOME", "ZUL_USER_HOMEDIR", "TRANSPORT_DIR", "LAUNCH_CONFIG_DIR"}) {
      const Settings one{{name, path}};
      resolved(one, [&] { expect_model(one); });
    }
    const Settings all{{"ZUL_HOME", path},
                       {"ZUL_USER_HOMEDIR", path},
                       {"TRANSPORT_DIR", path},
                       {"LAUNCH_CONFIG_DIR", path},
                       {"TMPDIR", path}};
    resolved(all, [&] { expect_model(all); });
  }
}

TEST(DirectoryResolve, HoldsTheTreesWithinTheirRoomAroundEachLimit) {
  for (std::size_t length = 975; length <= 1024; ++length) {
    for (const std::string prefix : {"", "~"}) {
      const Settings settings{{"ZUL_HOME", prefix + path_of(length)}};
      resolved(settings, [&] { expect_model(settings); });
    }
  }
}

std::string log_for(const std::string &tmpdir) {
  const auto child = qal::test::in_child([&] {
    clear_environment();
    setenv("TMPDIR", tmpdir.c_str(), 1);
    const LogCapture log;
    resolve();
    EXPECT_STREQ(Zul_arch, "apple");
    const std::string first = "getenv(ZUL_HOME) returned [/usr/local/ZUL]\n";
    EXPECT_EQ(log.lines().at(0), first);
    std::fputs(log.text().substr(first.size()).c_str(), stdout);
  });
  return child.out;
}

TEST_F(TemporaryDirectoryCheck, AcceptsADirectory) { EXPECT_EQ(log_for(scratch.path()), ""); }

TEST_F(TemporaryDirectoryCheck, WarnsOfAMissingPath) {
  const std::string warning = "Warning: TMPDIR is set to a non-existing path\n";
  EXPECT_EQ(log_for(scratch / "missing"), warning);
  EXPECT_EQ(log_for(""), warning);
  EXPECT_EQ(log_for(path_of(5000)), warning);
}

TEST_F(TemporaryDirectoryCheck, WarnsOfAFile) {
  EXPECT_EQ(log_for(scratch.file("file")), "Warning: TMPDIR is set to a non-directory path\n");
}

}  // namespace

// The whole tool, beside what a user would start instead: an empty program, find, a shell script
// with curl and a Python script, both of which stand beside this file; and beside its floor, a
// program that makes the same system calls and does nothing else. KALMORA_SWEEP in the
// environment names the tool as it is installed, with the C++ runtime inside; the one that is built
// with the benchmarks stands in for it otherwise.
#include <httplib.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "rows.hpp"
#include "scratch.hpp"

namespace {

using qal::bench::Scratch;
using Command = std::vector<std::string>;

std::vector<char *> pointers_to(Command &texts) {
  std::vector<char *> pointers;
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// An empty directory is the home of whatever runs.
const Scratch &home() {
  static const Scratch directory;
  return directory;
}

bool run(Command command, const std::string &temporary = home().path()) {
  Command settings = {"ZUL_USER_HOMEDIR=" + home().path(), "HOME=" + home().path(),
                      "TMPDIR=" + temporary, "PATH=/usr/bin:/bin"};
  pid_t child = 0;
  int status = 0;
  return posix_spawnp(&child, command[0].c_str(), nullptr, nullptr, pointers_to(command).data(),
                      pointers_to(settings).data()) == 0 &&
         waitpid(child, &status, 0) == child && status == 0;
}

// Each of these works on one directory.
bool sweep(const std::string &directory) {
  const char *const named = std::getenv("KALMORA_SWEEP");
  return run({named ? named : KALMORA_SWEEP_PATH}, directory);
}

bool sweep_with_shared_runtime(const std::string &directory) {
  return run({KALMORA_SWEEP_PATH}, directory);
}

bool same_system_calls(const std::string &directory) {
  return run({SWEEP_FLOOR_PATH, home() / "Library/Application Support/kalmora102"}, directory);
}

bool empty_program(const std::string &) { return run({EMPTY_PROGRAM_PATH}); }

bool find(const std::string &directory) {
  return run({"find", directory, "-maxdepth", "1", "-name", "halix_server*.dat"});
}

bool shell_script(const std::string &directory) {
  return run({"sh", SCRIPTS "/settle.sh", directory});
}

bool python_script(const std::string &directory) {
  return run({"python3", SCRIPTS "/settle.py", directory});
}

using Settle = bool (*)(const std::string &directory);

void settle_repeatedly(benchmark::State &state, Settle settle, const Scratch &directory) {
  for (auto _ : state) {
    if (!settle(directory.path())) state.SkipWithError("the program failed");
  }
}

template <Settle settle>
void over_nothing(benchmark::State &state) {
  static const Scratch directory;
  settle_repeatedly(state, settle, directory);
}

void fill(const Scratch &directory, int count, const char *name, const std::string &content) {
  for (int i = 0; i < count; ++i) directory.file(name + std::to_string(i) + ".dat", content);
}

const Scratch &unrelated_files() {
  static const Scratch directory;
  static const bool filled = (fill(directory, 100'000, "other", ""), true);
  benchmark::DoNotOptimize(filled);
  return directory;
}

template <Settle settle>
void over_unrelated_files(benchmark::State &state) {
  settle_repeatedly(state, settle, unrelated_files());
}

// Kept, so that each round finds them all.
const Scratch &records_of_dead_owners(int count) {
  static std::map<int, Scratch> made;
  const auto [place, is_new] = made.try_emplace(count);
  if (is_new) {
    fill(place->second, count, "halix_server",
         "http://127.0.0.1:8080/stop halix secret " + std::to_string(INT_MAX) + "\n");
  }
  return place->second;
}

template <Settle settle>
void over_dead_owners(benchmark::State &state) {
  settle_repeatedly(state, settle, records_of_dead_owners(10'000));
}

template <Settle settle>
void over_records(benchmark::State &state) {
  settle_repeatedly(state, settle, records_of_dead_owners(static_cast<int>(state.range(0))));
}

// On the loopback, until the program ends.
class Server {
 public:
  Server() {
    server_.Get("/stop", [this](const httplib::Request &, httplib::Response &) { ++requests_; });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
  }
  ~Server() {
    server_.stop();
    thread_.join();
  }
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  std::string record_of_a_running_owner() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/stop halix secret " +
           std::to_string(getpid()) + "\n";
  }
  int take_requests() { return requests_.exchange(0); }

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  std::atomic<int> requests_ = 0;
};

template <Settle settle>
void notify_500_servers(benchmark::State &state) {
  static const Scratch directory;
  static Server server;
  for (auto _ : state) {
    state.PauseTiming();
    fill(directory, 500, "halix_server", server.record_of_a_running_owner());
    state.ResumeTiming();
    if (!settle(directory.path()) || server.take_requests() != 500) {
      state.SkipWithError("not every server was notified");
    }
  }
}

const bool registered = [] {
  using qal::bench::row;
  const char *const floor = "floor: the same system calls";
  row("tool, nothing to do", {{"qal", over_nothing<sweep>},
                              {"qal, shared C++ runtime", over_nothing<sweep_with_shared_runtime>},
                              {"empty C program", over_nothing<empty_program>},
                              {floor, over_nothing<same_system_calls>}});
  row("tool, 1e5 unrelated files", {{"qal", over_unrelated_files<sweep>},
                                    {"find", over_unrelated_files<find>},
                                    {floor, over_unrelated_files<same_system_calls>}});
  row("tool, 1e4 records of dead owners", {{"qal", over_dead_owners<sweep>},
                                           {"shell", over_dead_owners<shell_script>},
                                           {"python", over_dead_owners<python_script>},
                                           {floor, over_dead_owners<same_system_calls>}});
  row("tool, 500 servers",
      {{"qal", notify_500_servers<sweep>},
       {"shell", notify_500_servers<shell_script>},
       {"python", notify_500_servers<python_script>},
       {"floor: the same calls of libcurl", notify_500_servers<same_system_calls>}});
  qal::bench::curve("tool, by the number of records", {10, 100, 1'000, 10'000, 100'000},
                    {{"qal", over_records<sweep>}, {"the floor", over_records<same_system_calls>}});
  return true;
}();

}  // namespace

#include "support/sweep_world.hpp"

#include <fcntl.h>
#include <httplib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace fs = std::filesystem;

namespace qal::test {
namespace {

constexpr uid_t unprivileged_id = 65534;
constexpr unsigned owner_seconds = 300;  // an owner ends soon even if its test was killed

int collect(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

void give_to_tool_user(const std::string &path) {
  if (geteuid() == 0 && lchown(path.c_str(), unprivileged_id, unprivileged_id) != 0) {
    throw std::runtime_error("cannot give away " + path);
  }
}

// The ordinary user may not be able to walk to the build. The copy has permissions of its own,
// because those of the build depend on its mask.
std::string copy_for_everybody(const fs::path &file, const ScratchDir &directory) {
  const std::string copy = directory / file.filename().native();
  fs::copy_file(file, copy, fs::copy_options::overwrite_existing);
  fs::permissions(copy, fs::perms(0755));
  return copy;
}

std::string decode_base64(std::string_view text) {
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned pending = 0;
  int bits = 0;
  for (const char digit : text.substr(0, text.find('='))) {
    pending = (pending << 6 | static_cast<unsigned>(alphabet.find(digit))) & 0xFFFF;
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(pending >> bits);
  }
  return bytes;
}

ServedRequest as_served(const httplib::Request &request) {
  ServedRequest served;
  served.method = request.method;
  served.path = request.path;
  served.target = request.target;
  served.headers = {request.headers.begin(), request.headers.end()};
  const std::string credentials = request.get_header_value("Authorization");
  if (credentials.rfind("Basic ", 0) == 0) {
    const std::string pair = decode_base64(std::string_view{credentials}.substr(6));
    const std::size_t colon = pair.find(':');
    served.user = pair.substr(0, colon);
    if (colon != std::string::npos) served.password = pair.substr(colon + 1);
  }
  return served;
}

// Whether a variable sets up a sanitizer or a coverage build, which the tool needs too.
bool belongs_to_the_build(std::string_view name) {
  for (const auto prefix : {"ASAN_", "LSAN_", "UBSAN_", "TSAN_", "GCOV_", "LLVM_PROFILE_"}) {
    if (name.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

std::map<std::string, std::string> build_environment() {
  auto environment = current_environment();
  std::erase_if(environment, [](const auto &one) { return !belongs_to_the_build(one.first); });
  return environment;
}

std::vector<char *> pointers_to(std::vector<std::string> &texts) {
  std::vector<char *> pointers;
  for (auto &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Between fork and exec of a process that has threads: only calls that are safe there.
[[noreturn]] void become_tool(const char *path, char **argv, char **envp, const int (&streams)[3],
                              const ToolStart &start) {
  for (int number = 0; number < 3; ++number) dup2(streams[number], number);
  for (const int number : start.closed_streams) close(number);
  const rlimit descriptors = {start.most_descriptors, start.most_descriptors};
  if (start.most_descriptors > 0) setrlimit(RLIMIT_NOFILE, &descriptors);
  std::signal(SIGPIPE, SIG_DFL);  // a server of the test may have had it ignored
  become_unprivileged();
  execve(path, argv, envp);
  _exit(127);
}

int open_or_throw(const std::string &path, int flags) {
  const int descriptor = open(path.c_str(), flags | O_CLOEXEC, 0600);
  if (descriptor < 0) throw std::runtime_error("cannot open " + path);
  return descriptor;
}

}  // namespace

std::string record_text(std::string_view url, std::string_view user, std::string_view password,
                        long long pid) {
  std::string text;
  for (const auto field : {url, user, password}) text.append(field).append(" ");
  return text + std::to_string(pid) + "\n";
}

LiveOwner::LiveOwner() : pid_(fork()) {
  if (pid_ < 0) throw std::runtime_error("cannot fork");
  if (pid_ > 0) return;
  become_unprivileged();
  // Held open, they would keep whoever reads what a killed test wrote.
  for (int stream = 0; stream <= STDERR_FILENO; ++stream) close(stream);
  std::signal(SIGALRM, SIG_DFL);
  alarm(owner_seconds);
  for (;;) pause();
}

LiveOwner::~LiveOwner() {
  kill(pid_, SIGKILL);
  collect(pid_);
}

int vanished_pid() {
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid == 0) _exit(0);
  collect(pid);
  return pid;
}

int foreign_pid() { return geteuid() == 0 ? getpid() : 1; }

struct RecordServer::Inside {
  Inside() {
    server.set_pre_routing_handler(
        [this](const httplib::Request &request, httplib::Response &response) {
          serve(request, response);
          return httplib::Server::HandlerResponse::Handled;
        });
    port = server.bind_to_any_port("127.0.0.1");
    if (port < 0) throw std::runtime_error("cannot listen on the loopback interface");
    thread = std::thread([this] { server.listen_after_bind(); });
    while (!server.is_running()) std::this_thread::yield();
  }

  ~Inside() {
    server.stop();
    thread.join();
  }

  void serve(const httplib::Request &request, httplib::Response &response) {
    std::function<void()> step;
    ServedRequest served = as_served(request);
    answer(served, response);
    {
      const std::lock_guard lock{mutex};
      requests.push_back(std::move(served));
      step = before_answer;
    }
    if (step) step();
  }

  void answer(ServedRequest &served, httplib::Response &response) const {
    response.status = 200;
    if (served.user != user || served.password != password) {
      response.status = 401;
      response.set_header("WWW-Authenticate", "Basic realm=\"records\"");
    } else if (served.path == redirecting_path) {
      response.set_redirect("/elsewhere");
    }
    served.status = response.status;
  }

  httplib::Server server;
  int port = -1;
  std::thread thread;
  mutable std::mutex mutex;  // guards what follows
  std::vector<ServedRequest> requests;
  std::function<void()> before_answer;
};

RecordServer::RecordServer() : inside_(std::make_unique<Inside>()) {}
RecordServer::~RecordServer() = default;

std::string RecordServer::authority() const { return "127.0.0.1:" + std::to_string(inside_->port); }

std::string RecordServer::url(std::string_view path) const {
  return "http://" + authority() + std::string(path);
}

std::string RecordServer::record(int pid, std::string_view path) const {
  return record_text(url(path), user, password, pid);
}

std::vector<ServedRequest> RecordServer::requests() const {
  const std::lock_guard lock{inside_->mutex};
  return inside_->requests;
}

long RecordServer::requests_for(std::string_view path) const {
  const std::lock_guard lock{inside_->mutex};
  return std::ranges::count(inside_->requests, path, &ServedRequest::path);
}

std::vector<std::string> RecordServer::paths() const {
  std::vector<std::string> paths;
  for (const auto &request : requests()) paths.push_back(request.path);
  return paths;
}

void RecordServer::before_answer(std::function<void()> step) {
  const std::lock_guard lock{inside_->mutex};
  inside_->before_answer = std::move(step);
}

SweepWorld::SweepWorld(std::string tool)
    : tool_(std::move(tool)),
      home_(directory("home")),
      resources_(directory("home/Library/Application Support/kalmora102")),
      temporary_(directory("tmp")) {
  if (tool_.empty() || geteuid() != 0) return;
  tool_ = copy_for_everybody(tool_, installed_);
  const std::string library = QAL_TEST_LIBRARY;  // which a shared build finds beside the tool
  if (!library.empty()) copy_for_everybody(library, installed_);
}

std::string SweepWorld::directory(std::string_view name) const {
  const std::string path = scratch_.directory(name);
  give_to_tool_user(path);
  return path;
}

std::string SweepWorld::file(const std::string &path, std::string_view content) const {
  write_file(path, content);
  give_to_tool_user(path);
  return path;
}

std::string SweepWorld::record(std::string_view name, std::string_view content) const {
  return file(temporary_ + "/" + std::string(name), content);
}

std::map<std::string, std::string> SweepWorld::contents() const {
  std::map<std::string, std::string> contents;
  for (const auto &entry : fs::recursive_directory_iterator(root())) {
    const std::string name = entry.path().lexically_relative(root());
    contents[name] = fs::is_regular_file(entry.symlink_status()) ? read_file(entry.path()) : "";
  }
  return contents;
}

std::map<std::string, std::string> SweepWorld::environment(const ToolStart &start) const {
  auto environment = start.environment;
  environment.insert({{"ZUL_HOME", root()}, {"ZUL_USER_HOMEDIR", home_}, {"TMPDIR", temporary_}});
  environment.merge(build_environment());
  for (const auto &name : start.unset) environment.erase(name);
  if (!start.preloaded.empty()) {
    // LD_PRELOAD ends a path at a blank, so it gets the bare name, which LD_LIBRARY_PATH leads to.
    const fs::path copy = copy_for_everybody(start.preloaded, installed_);
    environment["LD_PRELOAD"] = copy.filename();
    environment["LD_LIBRARY_PATH"] = copy.parent_path();
  }
  return environment;
}

ChildResult SweepWorld::run_tool(const ToolStart &start) const {
  std::vector<std::string> settings;
  for (const auto &[name, value] : environment(start)) settings.push_back(name + "=" + value);
  std::vector<std::string> arguments = start.arguments;
  const auto envp = pointers_to(settings);
  const auto argv = pointers_to(arguments);
  const ScratchDir streams;
  const int numbers[3] = {open_or_throw(streams / "in", O_RDONLY | O_CREAT),
                          open_or_throw(streams / "out", O_WRONLY | O_CREAT),
                          open_or_throw(streams / "err", O_WRONLY | O_CREAT)};
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid == 0) {
    become_tool(tool_.c_str(), const_cast<char **>(argv.data()), const_cast<char **>(envp.data()),
                numbers, start);
  }
  tool_pid_ = pid;
  ChildResult result;
  result.status = collect(pid);
  for (const int number : numbers) close(number);
  result.out = read_file(streams / "out");
  result.err = read_file(streams / "err");
  return result;
}

testing::AssertionResult succeeded_in_silence(const ChildResult &result) {
  if (!result.exited_with(0)) {
    return testing::AssertionFailure()
           << "ended with wait status " << result.status << "; wrote " << result.out << result.err;
  }
  if (!result.out.empty() || !result.err.empty()) {
    return testing::AssertionFailure() << "wrote " << result.out << result.err;
  }
  return testing::AssertionSuccess();
}

}  // namespace qal::test

// What a sweep needs around it: a private home and temporary directory, owners for the records,
// servers for the requests, and the tool itself, run as an ordinary user.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/child.hpp"
#include "support/scratch.hpp"

namespace qal::test {

// The text of a record whose four fields are separated by blanks.
std::string record_text(std::string_view url, std::string_view user, std::string_view password,
                        long long pid);

// A process of the user that the tool runs as. Ends with the object.
class LiveOwner {
 public:
  LiveOwner();
  ~LiveOwner();
  LiveOwner(const LiveOwner &) = delete;
  LiveOwner &operator=(const LiveOwner &) = delete;

  int pid() const { return pid_; }

 private:
  int pid_;
};

// The id of a process that has ended and was collected.
int vanished_pid();

// The id of a process that exists and that the tool may not signal.
int foreign_pid();

// A request as the server saw it.
struct ServedRequest {
  std::string method;
  std::string path;
  std::string target;    // the path with its query
  std::string user;      // from the basic credentials
  std::string password;  // likewise
  std::multimap<std::string, std::string> headers;
  int status = 0;  // answered
};

// An HTTP server on the loopback interface that knows one user. It answers 200, without the right
// credentials 401, and on one path a redirection.
class RecordServer {
 public:
  static constexpr char user[] = "halix";
  static constexpr char password[] = "s3cret:word";
  static constexpr char redirecting_path[] = "/redirect";  // leads to /elsewhere

  RecordServer();
  ~RecordServer();
  RecordServer(const RecordServer &) = delete;
  RecordServer &operator=(const RecordServer &) = delete;

  std::string authority() const;  // "127.0.0.1:port"
  std::string url(std::string_view path = "/settle") const;
  // A record that this server accepts.
  std::string record(int pid, std::string_view path = "/settle") const;

  std::vector<ServedRequest> requests() const;
  std::vector<std::string> paths() const;  // of the requests, in order
  long requests_for(std::string_view path) const;

  // Runs in the server, after a request came and before it is answered.
  void before_answer(std::function<void()> step);

 private:
  struct Inside;
  std::unique_ptr<Inside> inside_;
};

// How the tool is started.
struct ToolStart {
  std::map<std::string, std::string> environment = {};     // beside and instead of the usual one
  std::vector<std::string> unset = {};                     // variables that are left out
  std::vector<int> closed_streams = {};                    // of the descriptors 0 to 2
  unsigned most_descriptors = 0;                           // at once; 0: as many as the test may
  std::vector<std::string> arguments = {"kalmora-sweep"};  // from the invocation name on
  std::string preloaded = "";                              // the path of a library, or none
};

// A home with a resource directory, a temporary directory, and a place for what must stay whole.
class SweepWorld {
 public:
  // `tool` is the path of the executable; tests that do not start it leave it out.
  explicit SweepWorld(std::string tool = "");

  const std::string &root() const { return scratch_.path(); }
  const std::string &home() const { return home_; }
  const std::string &resources() const { return resources_; }
  const std::string &temporary() const { return temporary_; }

  // A directory that belongs to the user that the tool runs as.
  std::string directory(std::string_view name) const;
  // A file of that user, by its full path, which is returned.
  std::string file(const std::string &path, std::string_view content) const;
  // A record in the temporary directory.
  std::string record(std::string_view name, std::string_view content) const;

  // Every file below the world with its content, a directory with its name alone. What the tool
  // must not touch is equal before and after.
  std::map<std::string, std::string> contents() const;

  ChildResult run_tool(const ToolStart &start = {}) const;
  // The process that run_tool started last; 0 before. A server's step may ask while it runs.
  int tool_pid() const { return tool_pid_; }

 private:
  std::map<std::string, std::string> environment(const ToolStart &start) const;

  ScratchDir scratch_;
  ScratchDir installed_;
  std::string tool_;
  std::string home_;
  std::string resources_;
  std::string temporary_;
  mutable std::atomic<int> tool_pid_{0};
};

// Exit status 0, and nothing on either stream.
testing::AssertionResult succeeded_in_silence(const ChildResult &result);

}  // namespace qal::test

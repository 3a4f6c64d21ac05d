// Shows the tool at work: one record of every kind, a server on loopback that checks credentials,
// one run of the real executable, and a table of what became of each record.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/child.hpp"
#include "support/scratch.hpp"
#include "support/sweep_world.hpp"

namespace {

using qal::test::record_text;
using qal::test::RecordServer;
using qal::test::SweepWorld;

enum class Fate { deleted, kept };

struct Row {
  std::string path;  // of the record
  std::string owner;
  std::string content;
  std::string asks;     // the path of the URL in it, empty if it has none
  int expected_status;  // of the server's answer, 0 if it must not be asked
  Fate expected_fate;
};

struct Outcome {
  std::string received;
  int status = 0;
  int requests = 0;
};

class Demo {
 public:
  int run() {
    write_records();
    const auto result = world_.run_tool();
    const bool silent = succeeded_in_silence(result);
    print_heading();
    bool all = true;
    for (const auto &row : rows_) all = print(row) && all;
    std::printf("\nkalmora-sweep ended with exit status %d and printed %zu bytes.\n",
                WEXITSTATUS(result.status), result.out.size() + result.err.size());
    std::printf(all && silent ? "Every record is as it should be.\n"
                              : "SOMETHING IS NOT AS IT SHOULD BE.\n");
    return all && silent ? 0 : 1;
  }

 private:
  void write_records() {
    write_in_resources();
    write_malformed();
    write_unasked();
    write_other_kinds();
  }

  void write_in_resources() {
    const std::string &home = world_.resources();
    add(home + "/halix_server1.dat", "running", "complete", server_.record(owner_.pid(), "/live"),
        "/live", 200, Fate::deleted);
    add(home + "/halix_server2.dat", "ended", "complete",
        server_.record(qal::test::vanished_pid(), "/ended"), "/ended", 0, Fate::kept);
    add(home + "/halix_server3.dat", "of another user", "complete",
        server_.record(qal::test::foreign_pid(), "/foreign"), "/foreign", 200, Fate::deleted);
    add(home + "/halix_server4.dat", "running", "wrong password",
        record_text(server_.url("/refused"), "halix", "guess", owner_.pid()), "/refused", 401,
        Fate::deleted);
  }

  void write_malformed() {
    add(temporary("5.dat"), "-", "one word", "interrupted", "", 0, Fate::deleted);
    add(temporary("6.dat"), "-", "empty", "", "", 0, Fate::deleted);
    add(temporary("7.dat"), "-", "three fields", server_.url("/three") + " halix s3cret\n",
        "/three", 0, Fate::deleted);
    add(temporary("8.dat"), "running", "user of 256 bytes",
        record_text(server_.url("/long"), std::string(256, 'u'), "s3cret", owner_.pid()), "/long",
        0, Fate::deleted);
  }

  // A text that begins with a NUL is an empty one.
  void write_unasked() {
    add(temporary("9.dat"), "running", "empty user",
        record_text(server_.url("/empty"), std::string(1, 0), "s3cret", owner_.pid()), "/empty", 0,
        Fate::deleted);
    add(temporary("10.dat"), "running", "unreadable", server_.record(owner_.pid(), "/unreadable"),
        "/unreadable", 0, Fate::kept);
    chmod(rows_.back().path.c_str(), 0);
  }

  // The link leads to a record whose own name is not swept: one request comes, for the link.
  void write_other_kinds() {
    const std::string fifo = temporary("11.dat");
    const std::string link = temporary("12.dat");
    const std::string target = temporary(".txt");
    if (mkfifo(fifo.c_str(), 0666) != 0) throw std::runtime_error("cannot make " + fifo);
    std::filesystem::create_symlink(target, link);
    rows_.push_back({fifo, "-", "a FIFO", "", 0, Fate::deleted});
    rows_.push_back({link, "running", "a link to the last", "/linked", 200, Fate::deleted});
    rows_.push_back(
        {world_.directory("tmp/halix_server13.dat"), "-", "a directory", "", 0, Fate::kept});
    add(target, "running", "complete, other name", server_.record(owner_.pid(), "/linked"), "", 0,
        Fate::kept);
  }

  std::string temporary(const char *ending) const {
    return world_.temporary() + "/halix_server" + ending;
  }

  void add(const std::string &path, const char *owner, const char *content, const std::string &text,
           const char *asks, int expected_status, Fate fate) {
    rows_.push_back({world_.file(path, text), owner, content, asks, expected_status, fate});
  }

  Outcome outcome_of(const Row &row) const {
    Outcome outcome;
    for (const auto &request : server_.requests()) {
      if (row.asks.empty() || request.path != row.asks) continue;
      outcome.received = request.method + " " + request.path + " from " + request.user + ", " +
                         std::to_string(request.status);
      outcome.status = request.status;
      ++outcome.requests;
    }
    return outcome;
  }

  void print_heading() const {
    std::printf("home       %s\ntemporary  %s\nserver     http://%s\n\n", world_.home().c_str(),
                world_.temporary().c_str(), server_.authority().c_str());
    std::printf(line, "", "RECORD", "OWNER", "CONTENT", "WHAT THE SERVER RECEIVED", "FILE");
  }

  bool print(const Row &row) const {
    const Outcome outcome = outcome_of(row);
    const Fate fate = qal::test::exists(row.path) ? Fate::kept : Fate::deleted;
    const bool right = fate == row.expected_fate && outcome.status == row.expected_status &&
                       outcome.requests == (row.expected_status != 0 ? 1 : 0);
    const auto name = row.path.substr(row.path.rfind('/') + 1);
    std::printf(line, right ? "ok" : "??", name.c_str(), row.owner.c_str(), row.content.c_str(),
                outcome.received.empty() ? "-" : outcome.received.c_str(),
                fate == Fate::kept ? "kept" : "deleted");
    return right;
  }

  static constexpr char line[] = "%-3s %-19s %-16s %-21s %-31s %s\n";

  SweepWorld world_{KALMORA_SWEEP_PATH};
  RecordServer server_;
  qal::test::LiveOwner owner_;
  std::vector<Row> rows_;
};

}  // namespace

int main() {
  umask(022);  // the tool's user reads what is made here
  return Demo().run();
}

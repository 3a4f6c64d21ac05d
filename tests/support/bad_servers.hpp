// Servers on the loopback interface that do everything but answer a request properly.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace qal::test {

// What a server does with a connection before it closes it.
using Behaviour = std::function<void(int connection)>;

void say_nothing(int connection);  // until the client hangs up
// Sends this to whoever asks.
Behaviour answering(std::string answer);

// By names that say what they do.
std::map<std::string, Behaviour> useless_behaviours();    // end without an answer that can be used
std::map<std::string, Behaviour> excessive_behaviours();  // exceed at once what a client takes
std::map<std::string, Behaviour> lasting_behaviours();    // go on until a client loses patience

// A server that takes one connection after the other.
class RawServer {
 public:
  explicit RawServer(Behaviour behaviour);
  ~RawServer();
  RawServer(const RawServer &) = delete;
  RawServer &operator=(const RawServer &) = delete;

  std::string authority() const;  // "127.0.0.1:port"
  std::string url() const { return "http://" + authority() + "/"; }
  int connections() const;  // made so far

 private:
  struct Inside;
  std::unique_ptr<Inside> inside_;
};

// A port that is taken, so that nobody else gets it, but refuses connections.
class RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort &) = delete;
  RefusingPort &operator=(const RefusingPort &) = delete;

  std::string url() const;

 private:
  int socket_;
};

// Of a server that accepts no more connections. Its sockets stay open until the process ends.
std::string authority_of_busy_server();

}  // namespace qal::test

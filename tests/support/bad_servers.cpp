#include "support/bad_servers.hpp"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

namespace qal::test {
namespace {

using std::string_literals::operator""s;

constexpr int huge_pieces = 1000;  // of 100 KB
constexpr int endlessly = -1;
constexpr char ok[] = "HTTP/1.1 200 OK\r\n";

std::string repeated(std::string_view text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

std::string random_bytes(int count) {
  std::random_device source;
  std::string bytes;
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(source());
  return bytes;
}

// Whether the client still listens.
bool send_all(int connection, std::string_view text) {
  return send(connection, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

bool read_some(int connection) {
  char request[4096];
  return recv(connection, request, sizeof request, 0) > 0;
}

// Sends `start` and then `piece` so many times.
Behaviour flooding(std::string start, std::string piece, int times) {
  return [=](int connection) {
    bool listens = read_some(connection) && send_all(connection, start);
    for (int i = 0; listens && i != times; ++i) listens = send_all(connection, piece);
  };
}

// Sends `start` and then a byte of `text` a second.
Behaviour dripping(std::string start, std::string text) {
  return [=](int connection) {
    bool listens = send_all(connection, start);
    for (const char drop : text) {
      listens = listens && send_all(connection, {&drop, 1});
      if (!listens) return;
      std::this_thread::sleep_for(std::chrono::seconds{1});
    }
  };
}

void hang_up(int /*connection*/) {}

void reset(int connection) {
  const linger at_once = {1, 0};
  read_some(connection);
  setsockopt(connection, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

sockaddr_in loopback(in_port_t port = 0) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = port;
  return address;
}

const sockaddr *as_address(const sockaddr_in &address) {
  return reinterpret_cast<const sockaddr *>(&address);
}

int open_socket() {
  const int made = socket(AF_INET, SOCK_STREAM, 0);
  if (made < 0 || fcntl(made, F_SETFD, FD_CLOEXEC) != 0) throw std::runtime_error("no socket");
  return made;
}

// A socket with a free port of its own.
int bound() {
  const int made = open_socket();
  const auto address = loopback();
  if (bind(made, as_address(address), sizeof address) != 0) {
    throw std::runtime_error("no port on the loopback interface");
  }
  return made;
}

// A socket that listens there and holds at most `backlog` connections not yet accepted.
int listening(int backlog = SOMAXCONN) {
  const int listener = bound();
  if (listen(listener, backlog) != 0) throw std::runtime_error("cannot listen");
  return listener;
}

in_port_t port_of(int listener) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
  return address.sin_port;
}

std::string authority_of(int listener) {
  return "127.0.0.1:" + std::to_string(ntohs(port_of(listener)));
}

}  // namespace

void say_nothing(int connection) {
  while (read_some(connection)) {
  }
}

Behaviour answering(std::string answer) { return flooding(std::move(answer), "", 0); }

std::map<std::string, Behaviour> useless_behaviours() {
  return {
      {"hangs up", hang_up},
      {"resets", reset},
      {"no answer", answering("")},
      {"half an answer", answering(ok + "Content-"s)},
      {"refuses the credentials",
       answering("HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\n\r\n")},
      {"garbage", answering(random_bytes(9999))},
      {"escape sequences", answering(repeated("\x1b[2J\x1b]0;title\x07", 100))},
      {"control characters", answering("\0\xff\x1b[2Jgarbage"s)},
      {"empty lines", answering(std::string(100'000, '\n'))},
      {"status of six digits", answering("HTTP/1.1 999999 \r\n\r\n")},
      {"negative length", answering(ok + "Content-Length: -5\r\n\r\nx"s)},
      {"body too short", answering(ok + "Content-Length: 99\r\n\r\nx"s)},
      {"body far too short", answering(ok + "Content-Length: 99999999999999\r\n\r\nx"s)},
      {"chunks of garbage", answering(ok + "Transfer-Encoding: chunked\r\n\r\nzz\r\n"s)},
  };
}

std::map<std::string, Behaviour> excessive_behaviours() {
  const auto line = "X-Line: " + std::string(90, 'x') + "\r\n";
  return {
      {"100 MB header line", flooding(ok + "X: "s, std::string(100'000, 'x'), huge_pieces)},
      {"100 MB of header lines", flooding(ok, repeated(line, 1000), huge_pieces)},
      {"endless body", flooding(ok + "\r\n"s, std::string(65'536, 'x'), endlessly)},
  };
}

std::map<std::string, Behaviour> lasting_behaviours() {
  const auto interim = repeated("HTTP/1.1 100 Continue\r\n\r\n", 1000);
  return {
      {"silent", say_nothing},
      {"drips its header", dripping("", ok + repeated("X-Drop: x\r\n", 100))},
      {"drips its body", dripping(ok + "Content-Length: 1000\r\n\r\n"s, std::string(1000, 'x'))},
      {"endless interim answers", flooding("", interim, endlessly)},
  };
}

struct RawServer::Inside {
  explicit Inside(Behaviour one) : behaviour(std::move(one)) {
    if (pipe(stop) != 0) throw std::runtime_error("cannot make a pipe");
    std::signal(SIGPIPE, SIG_IGN);  // clients may hang up first
    thread = std::thread([this] { serve_until_stopped(); });
  }

  ~Inside() {
    if (write(stop[1], "", 1) != 1) std::abort();
    thread.join();
    for (const int descriptor : {stop[0], stop[1], listener}) close(descriptor);
  }

  void serve_until_stopped() {
    pollfd waiting[2] = {{listener, POLLIN, 0}, {stop[0], POLLIN, 0}};
    while (poll(waiting, 2, -1) < 0 || !waiting[1].revents) {
      if (!waiting[0].revents) continue;
      const int connection = accept(listener, nullptr, nullptr);
      if (connection < 0) continue;
      ++connections;
      behaviour(connection);
      close(connection);
    }
  }

  const Behaviour behaviour;
  const int listener = listening();
  int stop[2] = {-1, -1};
  std::atomic<int> connections{0};
  std::thread thread;
};

RawServer::RawServer(Behaviour behaviour)
    : inside_(std::make_unique<Inside>(std::move(behaviour))) {}
RawServer::~RawServer() = default;

std::string RawServer::authority() const { return authority_of(inside_->listener); }

int RawServer::connections() const { return inside_->connections; }

RefusingPort::RefusingPort() : socket_(bound()) {}
RefusingPort::~RefusingPort() { close(socket_); }

std::string RefusingPort::url() const { return "http://" + authority_of(socket_) + "/"; }

std::string authority_of_busy_server() {
  const int listener = listening(0);
  const auto address = loopback(port_of(listener));
  for (int i = 0; i < 4; ++i) {
    const int waiting = open_socket();
    fcntl(waiting, F_SETFL, O_NONBLOCK);
    connect(waiting, as_address(address), sizeof address);
  }
  return authority_of(listener);
}

}  // namespace qal::test

// Servers for measurements of the whole tool. Prints a line "NAME<tab>URL" for each, the good one,
// which answers 200, first, and an empty one behind the last; then, for each path that it reads,
// how often the good one was asked for it. They all go when the input ends.
#include <unistd.h>

#include <iostream>
#include <list>
#include <map>
#include <string>

#include "support/bad_servers.hpp"
#include "support/sweep_world.hpp"

namespace {

using qal::test::answering;
using qal::test::Behaviour;
using qal::test::RawServer;
using qal::test::RecordServer;
using qal::test::say_nothing;

constexpr char done[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

Behaviour redirecting(const std::string &status, const std::string &url) {
  return answering("HTTP/1.1 " + status + " Moved\r\nLocation: " + url +
                   "\r\nContent-Length: 0\r\n\r\n");
}

std::map<std::string, Behaviour> behaviours(const std::string &redirected) {
  auto all = qal::test::useless_behaviours();
  all.merge(qal::test::excessive_behaviours());
  all.merge(qal::test::lasting_behaviours());
  all["redirects"] = redirecting("302", redirected);
  all["redirects for good"] = redirecting("301", redirected);
  all["redirects with the method"] = redirecting("307", redirected);
  return all;
}

void show(const std::string &name, const std::string &url) {
  std::cout << name << '\t' << url << '\n';
}

}  // namespace

int main() {
  const RecordServer good;
  std::list<RawServer> bad;
  show("good", good.url(""));
  for (const auto &[name, behaviour] : behaviours(good.url("/redirected"))) {
    show(name, bad.emplace_back(behaviour).url());
  }
  const RawServer silent{say_nothing};
  const RawServer open{answering(done)};
  show("silent instead of encrypting", "https://" + silent.authority() + "/");
  show("does not encrypt", "https://" + open.authority() + "/");
  show("too busy to take the connection", "http://" + qal::test::authority_of_busy_server() + "/");
  const qal::test::RefusingPort refusing;
  show("refuses", refusing.url());
  std::cout << std::endl;
  for (std::string path; std::getline(std::cin, path);) {
    std::cout << good.requests_for(path) << std::endl;
  }
  _exit(0);  // a server may still wait for its client
}

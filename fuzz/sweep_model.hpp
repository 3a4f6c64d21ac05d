// What a sweep has to do with a directory, told entry by entry.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/record_model.hpp"
#include "sweep_scenario.hpp"

namespace qal::fuzz {

struct Request {
  std::string url;
  std::string user;
  std::string password;
  long limit_ms;
  bool operator==(const Request &) const = default;
};

// Three of them use up the sweep's patience, two do not.
constexpr long request_ms = 25'000;
constexpr const char *newer_content = "half a record";

class SweepModel {
 public:
  SweepModel(const Scenario &scenario, const std::vector<std::string> &listing)
      : entries(scenario.entries), scenario_(scenario) {
    if (!scenario.is_listed) return;
    std::string names;
    for (const auto &name : listing) {
      if (is_listed(name)) names += name + "\n";
    }
    for (std::size_t end; (end = names.find('\n')) != names.npos; names.erase(0, end + 1)) {
      visit(names.substr(0, end));
    }
  }

  Entries entries;                  // those that are left
  std::set<std::string> replaced;   // of these, those that are other files now
  std::vector<int> probed;          // in order
  std::vector<Request> requests;    // in order
  std::vector<std::string> asking;  // the record of each request

 private:
  static constexpr std::size_t longest_path = 1023;
  static constexpr int most_links = 40;

  static bool is_record_name(const std::string &name) {
    const std::string begin = "halix_server";
    const std::string end = ".dat";
    return name.size() >= begin.size() + end.size() && name.substr(0, begin.size()) == begin &&
           name.substr(name.size() - end.size()) == end && name.find('/') == name.npos;
  }

  bool fits(const std::string &name) const {
    return scenario_.name.size() + 1 + name.size() <= longest_path;
  }

  // What opening a name leads to.
  std::optional<Entry> resolved(std::string name) const {
    for (int links = 0; links <= most_links; ++links) {
      const auto found = entries.find(name);
      if (found == entries.end()) return {};
      const Entry &entry = found->second;
      if (entry.kind == Entry::link_to_place) return behind(entry.content);
      if (entry.kind != Entry::link_to_sibling) return entry;
      name = entry.content;
    }
    return {};
  }

  static std::optional<Entry> behind(const std::string &link) {
    for (const Target &target : link_targets()) {
      if (target.text == link) return target.entry;
    }
    return {};
  }

  bool is_listed(const std::string &name) const {
    const auto entry = resolved(name);
    const bool plain = entry && (entry->kind == Entry::regular || entry->kind == Entry::fifo);
    return plain && is_record_name(name) && fits(name);
  }

  bool is_left_alone(const std::string &name) const {
    const auto found = entries.find(name);
    if (found == entries.end()) return false;
    const bool is_link =
        found->second.kind == Entry::link_to_place || found->second.kind == Entry::link_to_sibling;
    return scenario_.is_shared && is_link && scenario_.is_strangers(name);
  }

  void visit(std::string piece) {
    for (char &byte : piece) byte = byte == '\\' ? '/' : byte;
    if (!is_record_name(piece) || !fits(piece) || is_left_alone(piece)) return;
    const auto entry = resolved(piece);
    if (!entry || entry->kind == Entry::socket) return;  // cannot be opened
    const auto record = entry->kind == Entry::regular ? test::model_of(entry->content)
                                                      : std::optional<test::ModelRecord>{};
    if (record && !settle(*record, piece)) return;
    if (entries.count(piece) != 0 && entries.at(piece).kind != Entry::directory) {
      entries.erase(piece);
      replaced.erase(piece);
    }
  }

  // Whether the record's file is to be deleted afterwards.
  bool settle(const test::ModelRecord &record, const std::string &name) {
    probed.push_back(record.pid);
    if (scenario_.is_vanished(record.pid)) return false;
    if (record.url.empty() || record.user.empty() || record.password.empty()) return true;
    const Transport &transport = scenario_.transport;
    if (transport.has_no_handle || !transport.can_be_restricted()) return true;
    requests.push_back({record.url, record.user, record.password, limit_ms()});
    asking.push_back(name);
    if (transport.meanwhile == Transport::vanished) entries.erase(name);
    if (transport.meanwhile != Transport::replaced) return true;
    entries.insert_or_assign(name, Entry{Entry::regular, newer_content});
    replaced.insert(name);
    return false;
  }

  long limit_ms() const {
    const long counted_ms = request_ms - 1'000;
    return static_cast<long>(requests.size()) * counted_ms >= 60'000 ? 1'000 : 10'000;
  }

  const Scenario &scenario_;
};

}  // namespace qal::fuzz

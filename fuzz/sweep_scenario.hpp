// What a fuzzed sweep meets: the directory's name and entries, the probe and the transport.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "input.hpp"
#include "sweep_places.hpp"

namespace qal::fuzz {

struct Entry {
  enum Kind { regular, fifo, socket, directory, link_to_place, link_to_sibling };
  Kind kind;
  std::string content;  // of a file or a FIFO, or the text of a link
};
using Entries = std::map<std::string, Entry>;

// Where a link out of the directory leads: its text and what is there, if anything.
struct Target {
  std::string text;
  std::optional<Entry> entry;
};

inline std::vector<Target> link_targets() {
  return {{places().victim(), Entry{Entry::regular, precious}},
          {places().root() + "/missing", {}},
          {"/dev/null", Entry{Entry::fifo, ""}},  // no regular file, as a FIFO
          {places().outside(), Entry{Entry::directory, ""}},
          {std::string(300, 'n'), {}},
          {places().outside() + "/../outside/victim", Entry{Entry::regular, precious}}};
}

// What the transport does. All requests of a sweep fare alike.
struct Transport {
  enum Meanwhile { nothing, replaced, vanished };  // what becomes of a record during its request

  explicit Transport(int choice = 0)
      : has_no_handle((choice & 1) != 0),
        refuses_names((choice & 2) != 0),
        refuses_numbers((choice & 4) != 0),
        times_out((choice & 8) != 0),
        sends_much((choice & 16) != 0),
        refuses_guard(guard_of(choice / 32)),
        meanwhile(static_cast<Meanwhile>(choice / 32 % 3)) {}

  bool can_be_restricted() const {
    return (!refuses_names || !refuses_numbers) && refuses_guard == 0;
  }

  bool has_no_handle;
  bool refuses_names;    // of protocols
  bool refuses_numbers;  // of protocols
  bool times_out;
  bool sends_much;
  int refuses_guard;  // 0 for none; else which of those that keep the credentials to the server
  Meanwhile meanwhile;

 private:
  static int guard_of(int kind) { return kind >= 3 && kind < 6 ? kind - 2 : 0; }
};

class Scenario {
 public:
  explicit Scenario(Input input) {
    name_directory(input.byte());
    answers_ = input.byte();
    transport = Transport{input.byte()};
    while (input.left() && entries.size() < most_entries) add_entry(input);
  }

  bool is_vanished(int pid) const { return (answers_ >> (pid & 7) & 1) != 0; }

  // The others belong to the user.
  bool is_strangers(const std::string &link) const { return link.size() % 2 == 1; }

  std::string name;        // of the directory, as the sweep is given it
  std::string directory;   // where it lies
  bool is_listed = true;   // whether it is there under that name
  bool is_shared = false;  // sticky, and everybody may write to it
  Transport transport;
  Entries entries;

 private:
  static constexpr std::size_t most_entries = 12;
  static constexpr std::size_t longest_name = 255;

  void name_directory(int choice) {
    const std::string &root = places().root();
    const std::string names[] = {
        places().swept(),   root + "/swept/",  root + "\\swept", root + "/outside/..\\swept",
        root + "//swept/.", root + "/missing", places().victim()};
    is_shared = choice / 8 % 2 == 1;
    is_listed = choice % 8 != 5 && choice % 8 != 6;
    directory = choice % 8 == 7 ? places().deep() : places().swept();
    name = choice % 8 == 7 ? directory : names[choice % 8];
  }

  void add_entry(Input &input) {
    const int shape = input.byte();
    const std::string own_name = named(input.text(), shape >> 3 & 3);
    const std::string bytes = input.bytes();
    if (own_name.empty() || own_name == "." || own_name == "..") return;
    entries.insert_or_assign(own_name, entry_of(shape & 7, shape >> 5, bytes, input, own_name));
  }

  // Three of four names are those of records.
  static std::string named(std::string text, int shape) {
    for (char &byte : text) byte = byte == '/' ? '\\' : byte;
    if (shape == 0) return text.substr(0, longest_name);
    const std::size_t room = longest_name - 16;
    const std::size_t padding = shape == 1 ? room - std::min(room, text.size()) : 0;
    return "halix_server" + text.substr(0, room) + std::string(padding, '_') + ".dat";
  }

  Entry entry_of(int kind, int shape, const std::string &bytes, Input &input,
                 const std::string &own_name) const {
    const auto targets = link_targets();
    switch (kind) {
      case 0:
        return {Entry::fifo, bytes};
      case 1:
        return {input.byte() % 2 == 0 ? Entry::socket : Entry::directory, ""};
      case 2:
        return {Entry::link_to_place, targets[input.byte() % targets.size()].text};
      case 3:
        return {Entry::link_to_sibling, sibling(input.byte(), own_name)};
      default:
        return {Entry::regular, content_of(shape, bytes, input)};
    }
  }

  std::string sibling(std::size_t index, const std::string &own_name) const {
    if (entries.empty()) return own_name;
    return std::next(entries.begin(), static_cast<long>(index % entries.size()))->first;
  }

  // Bytes as they are, or sound fields with a piece that makes one of them odd.
  static std::string content_of(int shape, const std::string &bytes, Input &input) {
    if (shape < 2) return bytes;
    const std::string pid = std::to_string(static_cast<int>(input.byte()) - 100);
    if (shape < 4) return bytes + " user secret " + pid;
    if (shape < 6) return "http://h/ " + bytes + " secret " + pid;
    const std::string filling(input.byte(), 'f');
    return "http://h/ user " + filling + bytes + ' ' + pid + (shape == 6 ? "" : filling);
  }

  int answers_ = 0;
};

}  // namespace qal::fuzz

// Both matchers beside the C library's fnmatch and GLib's pattern, which is compiled beforehand.
#include <fnmatch.h>
#include <glib.h>
#include <qal/wildcard.h>

#include <cstring>
#include <string>
#include <vector>

#include "rows.hpp"

namespace {

const unsigned char *bytes(const char *text) {
  return reinterpret_cast<const unsigned char *>(text);
}

struct Small {
  const char *pattern;
  bool operator()(const char *name) const { return zul_fnmatch(bytes(pattern), bytes(name)) == 0; }
};

struct Full {
  const char *pattern;
  bool operator()(const char *name) const { return qal_fnmatch(bytes(pattern), name, 0) == 0; }
};

struct Glibc {
  const char *pattern;
  bool operator()(const char *name) const { return fnmatch(pattern, name, 0) == 0; }
};

class GLib {
 public:
  explicit GLib(const char *pattern) : spec_(g_pattern_spec_new(pattern)) {}
  ~GLib() { g_pattern_spec_free(spec_); }
  GLib(const GLib &) = delete;
  GLib &operator=(const GLib &) = delete;
  bool operator()(const char *name) const { return g_pattern_spec_match_string(spec_, name); }

 private:
  GPatternSpec *spec_;
};

// The floors: a byte of each name; each byte of the name.
struct FirstByte {
  const char *pattern;
  bool operator()(const char *name) const { return *name == *pattern; }
};

struct Length {
  const char *pattern;
  bool operator()(const char *name) const {
    std::size_t length = std::strlen(name);
    benchmark::DoNotOptimize(length);
    return length == 0;
  }
};

// What a large temporary directory holds, one name behind the other as the system gives them: one
// in a hundred is a record.
class Names {
 public:
  Names() {
    const char *const kinds[] = {"halix_client", "systemd-private-", "tmp.", "cache-"};
    for (int i = 0; i < 100'000; ++i) {
      text_ += (i % 100 == 0 ? "halix_server" : kinds[i % 4]) + std::to_string(i * 37) + ".dat";
      text_ += '\0';
    }
    for (std::size_t at = 0; at < text_.size(); at = text_.find('\0', at) + 1) {
      starts_.push_back(text_.data() + at);
    }
  }
  const std::vector<const char *> &all() const { return starts_; }

 private:
  std::string text_;
  std::vector<const char *> starts_;
};

constexpr char records[] = "halix_server*.dat";
constexpr char suffix[] = "*.dat";
constexpr char other_suffix[] = "*.log";
constexpr char sets[] = "[a-z]*[0-9][!a-c].[dt]*";
constexpr char stars[] = "a*a*a*a*b";

template <typename Matcher, const char *pattern>
void over_a_directory(benchmark::State &state) {
  static const Names names;
  const Matcher matches{pattern};
  for (auto _ : state) {
    int found = 0;
    for (const char *name : names.all()) found += matches(name);
    benchmark::DoNotOptimize(found);
  }
}

template <typename Matcher>
void many_stars(benchmark::State &state, std::size_t length) {
  const std::string name(length, 'a');
  const Matcher matches{stars};
  for (auto _ : state) benchmark::DoNotOptimize(matches(name.c_str()));
}

template <typename Matcher>
void many_stars_over_1000(benchmark::State &state) {
  many_stars<Matcher>(state, 1000);
}

template <typename Matcher>
void many_stars_growing(benchmark::State &state) {
  many_stars<Matcher>(state, static_cast<std::size_t>(state.range(0)));
}

const bool registered = [] {
  using qal::bench::curve;
  using qal::bench::row;
  row("small matcher, records among 1e5 names",
      {{"qal", over_a_directory<Small, records>},
       {"glibc fnmatch", over_a_directory<Glibc, records>},
       {"GLib pattern", over_a_directory<GLib, records>}});
  row("small matcher, a suffix of 1e5 names", {{"qal", over_a_directory<Small, suffix>},
                                               {"glibc fnmatch", over_a_directory<Glibc, suffix>},
                                               {"GLib pattern", over_a_directory<GLib, suffix>}});
  row("small matcher, a suffix of none of 1e5 names",
      {{"qal", over_a_directory<Small, other_suffix>},
       {"glibc fnmatch", over_a_directory<Glibc, other_suffix>},
       {"GLib pattern", over_a_directory<GLib, other_suffix>}});
  row("small matcher, sets",
      {{"qal", over_a_directory<Small, sets>}, {"glibc fnmatch", over_a_directory<Glibc, sets>}});
  row("small matcher, many stars",
      {{"qal", many_stars_over_1000<Small>}, {"glibc fnmatch", many_stars_over_1000<Glibc>}});
  row("full matcher, many stars",
      {{"qal", many_stars_over_1000<Full>}, {"glibc fnmatch", many_stars_over_1000<Glibc>}});
  row("small matcher, records among 1e5 names",
      {{"floor: a byte of each", over_a_directory<FirstByte, records>}});
  row("small matcher, sets", {{"floor: a byte of each", over_a_directory<FirstByte, sets>}});
  for (const char *const stars_row : {"small matcher, many stars", "full matcher, many stars"}) {
    row(stars_row, {{"floor: strlen", many_stars_over_1000<Length>}});
  }
  curve("matchers, many stars, by the length of the name", {50, 100, 200, 400, 800, 1000},
        {{"qal small", many_stars_growing<Small>},
         {"qal full", many_stars_growing<Full>},
         {"glibc fnmatch", many_stars_growing<Glibc>},
         {"GLib pattern", many_stars_growing<GLib>}});
  return true;
}();

}  // namespace

// Path text: turning separators round in place, taking out what says nothing, and the normal form
// of a whole path, beside what the C++ library, GLib and APR offer for the same.
#include <apr_file_info.h>
#include <apr_general.h>
#include <apr_pools.h>
#include <glib.h>
#include <qal/path.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>

#include "rows.hpp"

namespace {

using Buffer = std::array<char, 1024>;

const std::string clean =
    "/usr/local/ZUL/kalmora102/site_preferences/transport/launch/settings.dat";
const std::string backslashes =
    "C:\\usr\\local\\ZUL\\kalmora102\\site_preferences\\transport\\launch\\settings.dat";
const std::string dotted =
    "/usr/./local//ZUL/vemo32/../kalmora102/./site_preferences/x/../transport/settings.dat";

// The rewriting is done in place, so each round must put back a path that it changes.
template <const std::string &path, typename Rewrite>
void in_place(benchmark::State &state, Rewrite rewrite) {
  Buffer buffer{};
  path.copy(buffer.data(), path.size());
  for (auto _ : state) {
    if (&path != &clean) std::memcpy(buffer.data(), path.c_str(), path.size() + 1);
    rewrite(buffer.data());
    benchmark::DoNotOptimize(buffer);
  }
}

template <const std::string &path, std::uint32_t flags>
void convert(benchmark::State &state) {
  in_place<path>(state, [](char *text) { qal_convert_pathname(text, flags); });
}

template <const std::string &path>
void std_replace(benchmark::State &state) {
  in_place<path>(state,
                 [](char *text) { std::replace(text, text + std::strlen(text), '\\', '/'); });
}

template <const std::string &path>
void glib_delimit(benchmark::State &state) {
  in_place<path>(state, [](char *text) { g_strdelimit(text, "\\", '/'); });
}

template <const std::string &path>
void one_pass(benchmark::State &state) {
  in_place<path>(state, [](char *text) { benchmark::DoNotOptimize(std::strlen(text)); });
}

void one_copy(benchmark::State &state) {
  Buffer out{};
  for (auto _ : state) {
    std::memcpy(out.data(), dotted.c_str(), std::strlen(dotted.c_str()) + 1);
    benchmark::DoNotOptimize(out);
  }
}

void normalise(benchmark::State &state) {
  Buffer out{};
  for (auto _ : state) {
    out[0] = '\0';
    qal_get_norm_path(dotted.c_str(), out.data(), static_cast<int>(out.size()));
    benchmark::DoNotOptimize(out);
  }
}

void std_normal_form(benchmark::State &state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::filesystem::path{dotted}.lexically_normal());
  }
}

void glib_canonical_name(benchmark::State &state) {
  for (auto _ : state) {
    char *name = g_canonicalize_filename(dotted.c_str(), "/");
    benchmark::DoNotOptimize(name);
    g_free(name);
  }
}

apr_pool_t *new_pool() {
  apr_initialize();
  apr_pool_t *pool = nullptr;
  apr_pool_create(&pool, nullptr);
  return pool;
}

void apr_merge(benchmark::State &state) {
  static apr_pool_t *const pool = new_pool();
  for (auto _ : state) {
    char *merged = nullptr;
    apr_filepath_merge(&merged, "", dotted.c_str(), 0, pool);
    benchmark::DoNotOptimize(merged);
    apr_pool_clear(pool);
  }
}

const bool registered = [] {
  using qal::bench::row;
  row("path, convert clean", {{"qal", convert<clean, 0>},
                              {"std::replace", std_replace<clean>},
                              {"g_strdelimit", glib_delimit<clean>}});
  row("path, convert backslashes", {{"qal", convert<backslashes, 0>},
                                    {"std::replace", std_replace<backslashes>},
                                    {"g_strdelimit", glib_delimit<backslashes>}});
  row("path, compact", {{"qal", convert<dotted, QAL_PATH_COMPACT>},
                        {"std::filesystem", std_normal_form},
                        {"GLib", glib_canonical_name},
                        {"APR", apr_merge}});
  row("path, normalise", {{"qal", normalise},
                          {"std::filesystem", std_normal_form},
                          {"GLib", glib_canonical_name},
                          {"APR", apr_merge}});
  row("path, convert clean", {{"floor: strlen", one_pass<clean>}});
  row("path, convert backslashes", {{"floor: a copy and strlen", one_pass<backslashes>}});
  row("path, compact", {{"floor: a copy and strlen", one_pass<dotted>}});
  row("path, normalise", {{"floor: strlen and a copy", one_copy}});
  return true;
}();

}  // namespace

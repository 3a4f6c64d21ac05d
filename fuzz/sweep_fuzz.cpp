// A sweep over a directory that somebody hostile filled, with a transport, a probe and a clock of
// our own, compared with a model of what has to happen. An input is a byte that says how the
// directory is named, one for the probe's answers, one for the transport, and the entries.
#define CURL_DISABLE_DEPRECATION
#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/sweep.hpp>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "internal/handles.hpp"
#include "require.hpp"
#include "sweep_model.hpp"
#include "sweep_places.hpp"
#include "sweep_scenario.hpp"

namespace {

using qal::fuzz::Entry;
using qal::fuzz::listed_names;
using qal::fuzz::newer_content;
using qal::fuzz::places;
using qal::fuzz::Request;
using qal::fuzz::request_ms;
using qal::fuzz::require;
using qal::fuzz::Scenario;
using qal::fuzz::sorted_names;
using qal::fuzz::SweepModel;
using qal::fuzz::Transport;
using qal::fuzz::write_file;
using qal::internal::Descriptor;
using std::string;

// The sweep that runs now and what was seen of it.
struct Run {
  const Scenario &scenario;
  const SweepModel &model;
  std::vector<int> probed = {};
  std::vector<Request> requests = {};
  int open_handles = 0;
  std::int64_t clock_ms = 0;
};

Run *run;

// What libcurl is given to allocate with.
struct Memory {
  curl_free_callback release;
  curl_realloc_callback resize;
  curl_strdup_callback duplicate;
  curl_calloc_callback allocate;
};

Memory memory;

struct Handle {
  std::map<CURLoption, string> *options;
  std::vector<CURLoption> *order;
  char *header;  // with the credentials, as libcurl puts it together
  curl_write_callback write;
  void *write_target;
};

string in_directory(const string &name) { return run->scenario.directory + "/" + name; }

void change_record(const string &name) {
  const auto meanwhile = run->scenario.transport.meanwhile;
  if (meanwhile == Transport::vanished) unlink(in_directory(name).c_str());
  if (meanwhile != Transport::replaced) return;
  const string newer = places().aside() + "/newer";
  write_file(newer, newer_content);
  require(std::rename(newer.c_str(), in_directory(name).c_str()) == 0, "a record can be replaced");
}

// Sends pieces of a body until the tool has had enough, which has to be soon after 1 MiB.
void send_body(const Handle &handle) {
  constexpr std::size_t piece = 100'000;
  static char bytes[piece];
  int sent = 0;
  while (handle.write(bytes, 1, piece, handle.write_target) == piece) {
    require(++sent <= 10, "a body of more than 1 MiB is refused");
  }
  require(sent == 10, "a body of up to 1 MiB is taken");
}

void check_options(const Handle &handle) {
  const std::vector<CURLoption> first = {CURLOPT_URL, CURLOPT_HTTPGET, CURLOPT_USERNAME,
                                         CURLOPT_PASSWORD};
  require(std::vector(handle.order->begin(), handle.order->begin() + 4) == first,
          "the four options come first");
  const std::map<CURLoption, string> guards = {{CURLOPT_HTTPGET, "1"},
                                               {CURLOPT_PROTOCOLS_STR, "http,https"},
                                               {CURLOPT_FOLLOWLOCATION, "0"},
                                               {CURLOPT_DEFAULT_PROTOCOL, "http"},
                                               {CURLOPT_PROXY, ""},
                                               {CURLOPT_NETRC, "0"},
                                               {CURLOPT_NOSIGNAL, "1"},
                                               {CURLOPT_QUICK_EXIT, "1"},
                                               {CURLOPT_CONNECTTIMEOUT_MS, "5000"},
                                               {CURLOPT_VERBOSE, "0"}};
  for (const auto &[option, value] : guards) {
    require(handle.options->at(option) == value, "each guard is set");
  }
}

bool is_refused(CURLoption option) {
  static constexpr int nothing = -1;
  static constexpr int guards[] = {nothing, CURLOPT_PROXY, CURLOPT_FOLLOWLOCATION, CURLOPT_NETRC};
  const Transport &transport = run->scenario.transport;
  return (option == CURLOPT_PROTOCOLS_STR && transport.refuses_names) ||
         (option == CURLOPT_PROTOCOLS && transport.refuses_numbers) ||
         option == guards[transport.refuses_guard];
}

// As libcurl does: duplicates a text and lets the block grow.
void compose_header(Handle &handle) {
  const string user = handle.options->at(CURLOPT_USERNAME);
  const string header = user + ":" + handle.options->at(CURLOPT_PASSWORD);
  handle.header = memory.duplicate(user.c_str());
  handle.header = static_cast<char *>(memory.resize(handle.header, header.size() + 1));
  require(handle.header == user, "a block keeps what it held when it grows");
  std::memcpy(handle.header, header.c_str(), header.size() + 1);
}

struct Status {
  struct stat info;
  bool operator==(const Status &other) const {
    return info.st_ino == other.info.st_ino && info.st_mode == other.info.st_mode &&
           info.st_size == other.info.st_size && info.st_mtim.tv_nsec == other.info.st_mtim.tv_nsec;
  }
};

Status status_of(const string &path) {
  Status status = {};
  require(lstat(path.c_str(), &status.info) == 0, "an entry can be asked for");
  return status;
}

// The open descriptor keeps what the FIFO holds until the run has ended.
Descriptor make_fifo(const string &path, const string &content) {
  require(mkfifo(path.c_str(), 0600) == 0, "a FIFO can be made");
  Descriptor fifo{open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)};
  const ssize_t written = write(fifo.get(), content.data(), content.size());
  require(written == static_cast<ssize_t>(content.size()), "a FIFO can be filled");
  return fifo;
}

void create(const string &path, const Entry &entry, std::vector<Descriptor> &fifos) {
  bool created = true;
  switch (entry.kind) {
    case Entry::regular:
      write_file(path, entry.content);
      break;
    case Entry::fifo:
      fifos.push_back(make_fifo(path, entry.content));
      break;
    case Entry::socket:
      created = mknod(path.c_str(), S_IFSOCK | 0600, 0) == 0;
      break;
    case Entry::directory:
      created = mkdir(path.c_str(), 0700) == 0;
      break;
    case Entry::link_to_place:
    case Entry::link_to_sibling:
      created = symlink(entry.content.c_str(), path.c_str()) == 0;
      break;
  }
  require(created, "an entry can be created");
}

std::map<string, Status> fill(const Scenario &scenario, std::vector<Descriptor> &fifos) {
  std::map<string, Status> filled;
  for (const auto &[name, entry] : scenario.entries) {
    const string path = scenario.directory + "/" + name;
    create(path, entry, fifos);
    filled[name] = status_of(path);
  }
  return filled;
}

void check_directory(const Run &seen, const std::map<string, Status> &before) {
  const SweepModel &model = seen.model;
  std::vector<string> left;
  for (const auto &[name, entry] : model.entries) left.push_back(name);
  require(sorted_names(seen.scenario.directory) == left, "the right entries are left");
  for (const string &name : left) {
    const bool same = status_of(seen.scenario.directory + "/" + name) == before.at(name);
    require(same != (model.replaced.count(name) != 0), "what is left is what was there");
  }
}

void empty_directory(const string &directory) {
  for (const string &name : listed_names(directory)) {
    require(std::remove((directory + "/" + name).c_str()) == 0, "an entry can be removed");
  }
}

int lowest_free_descriptor() {
  const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(descriptor);
  return descriptor;
}

void sweep(const Scenario &scenario) {
  std::vector<Descriptor> fifos;
  require(chmod(scenario.directory.c_str(), scenario.is_shared ? 01777 : 0755) == 0,
          "a directory can be shared");
  const auto before = fill(scenario, fifos);
  const SweepModel model{scenario, listed_names(scenario.directory)};
  const int descriptor = lowest_free_descriptor();
  Run seen{scenario, model};
  run = &seen;
  process_directory(scenario.name.c_str());
  run = nullptr;
  require(lowest_free_descriptor() == descriptor, "all descriptors are closed");
  require(seen.open_handles == 0, "all handles are closed");
  require(seen.probed == model.probed, "the probe is asked as the model says");
  require(seen.requests == model.requests, "the requests are those of the model");
  check_directory(seen, before);
  require(places().are_whole(), "nothing outside the directory changes");
}

}  // namespace

// libcurl as the tool finds it: the library's name means the program itself, which shows these.
#pragma GCC visibility push(default)
extern "C" {

CURL *curl_easy_init() {
  if (run->scenario.transport.has_no_handle) return nullptr;
  ++run->open_handles;
  auto *const handle = static_cast<Handle *>(memory.allocate(1, sizeof(Handle)));
  handle->options = new std::map<CURLoption, string>;
  handle->order = new std::vector<CURLoption>;
  return handle;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"
#undef curl_easy_setopt
CURLcode curl_easy_setopt(CURL *curl, CURLoption option, ...) {
  auto &handle = *static_cast<Handle *>(curl);
  va_list values;
  va_start(values, option);
  const bool is_number = option < CURLOPTTYPE_OBJECTPOINT;
  const long number = is_number ? va_arg(values, long) : 0;
  void *const pointer = is_number ? nullptr : va_arg(values, void *);
  va_end(values);
  handle.order->push_back(option);
  if (option == CURLOPT_WRITEFUNCTION) {
    handle.write = reinterpret_cast<curl_write_callback>(pointer);
  } else if (option == CURLOPT_WRITEDATA) {
    handle.write_target = pointer;
  } else {
    (*handle.options)[option] =
        is_number ? std::to_string(number) : static_cast<const char *>(pointer);
  }
  return is_refused(option) ? CURLE_UNKNOWN_OPTION : CURLE_OK;
}
#pragma GCC diagnostic pop

CURLcode curl_easy_perform(CURL *curl) {
  auto &handle = *static_cast<Handle *>(curl);
  const Transport &transport = run->scenario.transport;
  const std::size_t index = run->requests.size();
  require(index < run->model.asking.size(), "there are no more requests than the model says");
  check_options(handle);
  compose_header(handle);
  auto &options = *handle.options;
  run->requests.push_back({options[CURLOPT_URL], options[CURLOPT_USERNAME],
                           options[CURLOPT_PASSWORD], std::stol(options[CURLOPT_TIMEOUT_MS])});
  if (transport.sends_much) send_body(handle);
  change_record(run->model.asking[index]);
  run->clock_ms += request_ms;
  return transport.times_out ? CURLE_OPERATION_TIMEDOUT : CURLE_COULDNT_CONNECT;
}

void curl_easy_cleanup(CURL *curl) {
  auto *const handle = static_cast<Handle *>(curl);
  --run->open_handles;
  delete handle->options;
  delete handle->order;
  memory.release(handle->header);
  memory.release(handle);
}

CURLcode curl_global_init_mem(long, curl_malloc_callback, curl_free_callback release,
                              curl_realloc_callback resize, curl_strdup_callback duplicate,
                              curl_calloc_callback allocate) {
  memory = {release, resize, duplicate, allocate};
  return CURLE_OK;
}

}  // extern "C"
#pragma GCC visibility pop

extern "C" {

// qal::internal::platform::curl_library_name
const char *__wrap__ZN3qal8internal8platform17curl_library_nameEv() { return nullptr; }

int __wrap_qal_is_pid_running(int pid) {
  run->probed.push_back(pid);
  return run->scenario.is_vanished(pid) ? 1 : 0;
}

int __real_lstat(const char *path, struct stat *info);

int __wrap_lstat(const char *path, struct stat *info) {
  const int status = __real_lstat(path, info);
  const string name = std::strrchr(path, '/') + 1;
  if (run && run->scenario.is_strangers(name)) ++info->st_uid;
  return status;
}

int __real_clock_gettime(clockid_t clock, timespec *now);

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  if (!run) return __real_clock_gettime(clock, now);
  *now = {static_cast<time_t>(run->clock_ms / 1000), run->clock_ms % 1000 * 1'000'000};
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const Scenario scenario{{data, size}};
  sweep(scenario);
  empty_directory(scenario.directory);
  return 0;
}

}  // extern "C"

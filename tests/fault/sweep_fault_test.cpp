// The sweep with a listing, a libcurl, a clock and system calls that a test controls.
#include <curl/curl.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/startup.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/directories.hpp>
#include <kalmora/sweep.hpp>
#include <qal/identity.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "internal/handles.hpp"
#include "notify.hpp"
#include "platform/platform.hpp"
#include "record.hpp"
#include "support/child.hpp"
#include "support/fault.hpp"
#include "support/sweep_world.hpp"

// The tool's entry point under a name that can be called: what it hands to its sweeps cannot be
// seen from outside.
#define main tool_main
#include "main.cpp"
#undef main

namespace {

using std::string_literals::operator""s;
using qal::test::clear_environment;
using qal::test::exists;
using qal::test::fail_all;
using qal::test::fail_from;
using qal::test::fail_nth;
using qal::test::fail_times;
using qal::test::Fault;
using qal::test::in_child;
using qal::test::in_new_process;
using qal::test::names_in;
using qal::test::read_file;
using qal::test::record_text;
using qal::test::run_in_child;
using qal::test::SweepWorld;
using qal::test::vanished_pid;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

using Option = std::pair<CURLoption, std::string>;

// What the replaced functions do and what they were called with. By default they work.
struct Stage {
  // libcurl
  bool library_missing = false;
  std::set<std::string> functions_missing;
  bool init_fails = false;
  std::set<CURLoption> refused;
  std::function<CURLcode()> perform = [] { return CURLE_OK; };
  int loads = 0;  // tried
  int libraries_open = 0;
  int handles_open = 0;
  int performs = 0;
  std::vector<Option> options;
  curl_write_callback write = nullptr;
  void *write_target = nullptr;
  // the clock
  std::int64_t later_ms = 0;
  // the listing, when a test brings its own
  bool listing_runs = false;
  bool listing_replaced = false;
  int listing_status = 0;
  const char *listing_names = nullptr;
  std::function<void(const char *wildcard)> on_listing;
  std::set<void *> listing_outputs;  // not released yet
  // other parts of the library
  std::function<void()> on_start;
  int start_answer = 0;  // where it is not 0, the library is not started
  std::optional<int> probe_answer;
  // system calls
  std::vector<std::string> calls;
  bool calls_recorded = false;
  std::size_t read_at_most = SIZE_MAX;
  Fault open, read, fstat, stat, lstat;
  bool stat_tells_another_device = false;
  std::optional<uid_t> effective_user;
  std::optional<rlimit> core_limit;  // as it was set
  std::function<void(struct stat &record)> on_record;
  std::function<void(struct stat &directory)> on_directory;
  std::function<void(struct stat &link)> on_link;
  std::size_t bytes_read = 0;
  // memory
  int allocations_left = -1;  // below 0: any number
  bool mallocs_fail = false;
  std::vector<std::string> wiped;  // what each wipe found
  int releases = 0;                // calls of free()
};

Stage stage;

// What libcurl was given when it was loaded, which a process does once.
struct CurlMemory {
  bool given = false;
  curl_malloc_callback allocate = nullptr;
  curl_free_callback release = nullptr;
  curl_realloc_callback resize = nullptr;
  curl_strdup_callback duplicate = nullptr;
  curl_calloc_callback allocate_zeroed = nullptr;
};

CurlMemory curl_memory;

void note(const char *call) {
  if (stage.calls_recorded) stage.calls.emplace_back(call);
}

CURL *fake_init() {
  note("handle");
  if (stage.init_fails) return nullptr;
  ++stage.handles_open;
  return new int;
}

std::string option_text(CURLoption option, va_list value) {
  if (option < CURLOPTTYPE_OBJECTPOINT) return std::to_string(va_arg(value, long));
  void *const pointer = va_arg(value, void *);
  if (option == CURLOPT_WRITEFUNCTION) {
    stage.write = reinterpret_cast<curl_write_callback>(pointer);
    return "function";
  }
  if (option == CURLOPT_WRITEDATA) {
    stage.write_target = pointer;
    return "data";
  }
  return static_cast<const char *>(pointer);
}

// The type of the real function, whose last named parameter is an enumeration.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"
CURLcode fake_setopt(CURL *, CURLoption option, ...) {
  va_list value;
  va_start(value, option);
  stage.options.emplace_back(option, option_text(option, value));
  va_end(value);
  return stage.refused.count(option) ? CURLE_UNKNOWN_OPTION : CURLE_OK;
}
#pragma GCC diagnostic pop

CURLcode fake_perform(CURL *) {
  note("request");
  ++stage.performs;
  return stage.perform();
}

void fake_cleanup(CURL *handle) {
  note("cleanup");
  --stage.handles_open;
  delete static_cast<int *>(handle);
}

CURLcode fake_global_init_mem(long, curl_malloc_callback allocate, curl_free_callback release,
                              curl_realloc_callback resize, curl_strdup_callback duplicate,
                              curl_calloc_callback allocate_zeroed) {
  EXPECT_EQ(stage.handles_open, 0);
  curl_memory = {true, allocate, release, resize, duplicate, allocate_zeroed};
  return CURLE_OK;
}

template <typename Function>
void *address(Function *function) {
  return reinterpret_cast<void *>(function);
}

void *find_fake(const std::string &name) {
  if (stage.functions_missing.count(name)) return nullptr;
  if (name == "curl_easy_init") return address(fake_init);
  if (name == "curl_easy_setopt") return address(fake_setopt);
  if (name == "curl_easy_perform") return address(fake_perform);
  if (name == "curl_easy_cleanup") return address(fake_cleanup);
  if (name == "curl_global_init_mem") return address(fake_global_init_mem);
  return nullptr;
}

char *listing_output(const char *text) {
  if (!text) return nullptr;
  char *const output = strdup(text);
  stage.listing_outputs.insert(output);
  return output;
}

int fake_listing(char **full_path, char **directories, char **files) {
  *full_path = listing_output("/full/path");
  *directories = listing_output(".\n..\n");
  *files = listing_output(stage.listing_names);
  return stage.listing_status;
}

}  // namespace

// Never inlined: the compiler would take `free` for a mismatch with the call of `new` that it sees.
[[gnu::noinline]] void *operator new(std::size_t size) {
  if (stage.allocations_left == 0) throw std::bad_alloc{};
  if (stage.allocations_left > 0) --stage.allocations_left;
  void *const block = std::malloc(size ? size : 1);
  if (!block) throw std::bad_alloc{};
  return block;
}
[[gnu::noinline]] void operator delete(void *block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept { std::free(block); }

extern "C" {

int __real_open(const char *path, int flags, ...);
ssize_t __real_read(int descriptor, void *room, size_t size);
int __real_close(int descriptor);
int __real_fstat(int descriptor, struct stat *info);
uid_t __real_geteuid();
int __real_stat(const char *path, struct stat *info);
int __real_lstat(const char *path, struct stat *info);
int __real_clock_gettime(clockid_t clock, timespec *now);
void *__real_malloc(std::size_t size);
void __real_free(void *block);
int __real_qal_utils_init();
int __real_qal_dir_list(const char *, char **, int *, char **, int *, char **, int);
int __real_qal_is_pid_running(int pid);
int __real_qal_file_unlink(const char *path);
void __real__ZN3qal8internal8platform12clear_secretEPvm(void *secret, size_t size);

void *__wrap_dlopen(const char *name, int) {
  EXPECT_STREQ(name, qal::internal::platform::curl_library_name());
  ++stage.loads;
  if (stage.library_missing) return nullptr;
  ++stage.libraries_open;
  return &stage;
}

int __wrap_dlclose(void *library) {
  EXPECT_EQ(library, &stage);
  --stage.libraries_open;
  return 0;
}

void *__wrap_dlsym(void *library, const char *name) {
  EXPECT_EQ(library, &stage);
  return find_fake(name);
}

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
  const int result = __real_clock_gettime(clock, now);
  if (clock != CLOCK_MONOTONIC) return result;
  *now = {static_cast<time_t>(1000 + stage.later_ms / 1000), stage.later_ms % 1000 * 1'000'000};
  return result;
}

int __wrap_open(const char *path, int flags, int mode) {
  if (std::string_view{path}.find("halix_server") == std::string_view::npos) {
    return __real_open(path, flags, mode);
  }
  note((flags & O_NOFOLLOW) != 0 ? "open" : "follow");
  EXPECT_EQ(flags & ~O_NOFOLLOW, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  return stage.open.strikes() ? -1 : __real_open(path, flags, mode);
}

ssize_t __wrap_read(int descriptor, void *room, size_t size) {
  note("read");
  if (stage.read.strikes()) return -1;
  EXPECT_LE(size, 4096u);
  const ssize_t got = __real_read(descriptor, room, std::min(size, stage.read_at_most));
  if (got > 0) stage.bytes_read += static_cast<std::size_t>(got);
  return got;
}

// What a fortified build calls instead.
ssize_t __wrap___read_chk(int descriptor, void *room, size_t size, size_t room_size) {
  EXPECT_LE(size, room_size);
  return __wrap_read(descriptor, room, size);
}

int __wrap_close(int descriptor) {
  note("close");
  return __real_close(descriptor);
}

int __wrap_fstat(int descriptor, struct stat *info) {
  note("fstat");
  const int status = stage.fstat.strikes() ? -1 : __real_fstat(descriptor, info);
  if (stage.on_record) stage.on_record(*info);
  return status;
}

uid_t __wrap_geteuid() { return stage.effective_user.value_or(__real_geteuid()); }

int __real_setrlimit(int resource, const rlimit *limit);
int __wrap_setrlimit(int resource, const rlimit *limit) {
  if (resource == static_cast<int>(RLIMIT_CORE)) stage.core_limit = *limit;
  return __real_setrlimit(resource, limit);
}

int __wrap_stat(const char *path, struct stat *info) {
  if (stage.listing_runs) return __real_stat(path, info);
  note("stat");
  const int status = stage.stat.strikes() ? -1 : __real_stat(path, info);
  if (stage.stat_tells_another_device) ++info->st_dev;
  if (stage.on_directory && std::string_view{path}.ends_with('/')) stage.on_directory(*info);
  return status;
}

int __wrap_lstat(const char *path, struct stat *info) {
  if (stage.listing_runs) return __real_lstat(path, info);
  note("lstat");
  const int status = stage.lstat.strikes() ? -1 : __real_lstat(path, info);
  if (stage.on_link) stage.on_link(*info);
  return status;
}

int __wrap_qal_utils_init() {
  if (stage.on_start) stage.on_start();
  return stage.start_answer != 0 ? stage.start_answer : __real_qal_utils_init();
}

int __wrap_qal_dir_list(const char *pattern, char **full_path, int *directory_count,
                        char **directories, int *file_count, char **files, int verbose) {
  EXPECT_EQ(verbose, 0);
  if (stage.on_listing) stage.on_listing(pattern);
  if (stage.listing_replaced) return fake_listing(full_path, directories, files);
  stage.listing_runs = true;
  const int status = __real_qal_dir_list(pattern, full_path, directory_count, directories,
                                         file_count, files, verbose);
  stage.listing_runs = false;
  return status;
}

int __wrap_qal_is_pid_running(int pid) {
  note("probe");
  return stage.probe_answer ? *stage.probe_answer : __real_qal_is_pid_running(pid);
}

int __wrap_qal_file_unlink(const char *path) {
  note("unlink");
  return __real_qal_file_unlink(path);
}

void *__wrap_malloc(std::size_t size) { return stage.mallocs_fail ? nullptr : __real_malloc(size); }

void __wrap_free(void *block) {
  ++stage.releases;
  stage.listing_outputs.erase(block);
  __real_free(block);
}

// clear_secret: keeps what was wiped, so that a test can look for it.
void __wrap__ZN3qal8internal8platform12clear_secretEPvm(void *secret, size_t size) {
  if (stage.allocations_left < 0) stage.wiped.emplace_back(static_cast<const char *>(secret), size);
  __real__ZN3qal8internal8platform12clear_secretEPvm(secret, size);
}

}  // extern "C"

namespace {

class SweepStage : public testing::Test {
 protected:
  SweepStage() { stage = Stage{}; }
  ~SweepStage() override {
    EXPECT_EQ(stage.handles_open, 0);
    stage = Stage{};
  }

  std::string notified_record(int number = 1) const {
    return world_.record("halix_server" + std::to_string(number) + ".dat",
                         record_text("http://127.0.0.1/x", "halix", "secret", getpid()));
  }
  void sweep() const { process_directory(world_.temporary().c_str()); }
  std::vector<std::string> calls_of_sweep() const {
    stage.calls_recorded = true;
    sweep();
    stage.calls_recorded = false;
    return stage.calls;
  }
  void sweep_one() const { EXPECT_FALSE(keeps_a_record()); }

  bool keeps_a_record() const {
    const auto path = notified_record();
    sweep();
    return exists(path);
  }
  static void list(const char *names) {
    stage.listing_replaced = true;
    stage.listing_names = names;
  }

  static std::vector<std::string> values_of(CURLoption option) {
    std::vector<std::string> values;
    for (const auto &[name, value] : stage.options) {
      if (name == option) values.push_back(value);
    }
    return values;
  }

  // libcurl is loaded once in a process.
  static void before_curl_is_loaded(const std::function<void()> &body) { in_new_process(body); }

  SweepWorld world_;
};

using SweepRequest = SweepStage;
using SweepCurl = SweepStage;
using SweepCalls = SweepStage;
using SweepListing = SweepStage;
using SweepMemory = SweepStage;

TEST_F(SweepRequest, SetsTheFourOptionsFirstAndThenItsGuards) {
  sweep_one();
  EXPECT_THAT(
      stage.options,
      ElementsAre(
          Option{CURLOPT_URL, "http://127.0.0.1/x"}, Option{CURLOPT_HTTPGET, "1"},
          Option{CURLOPT_USERNAME, "halix"}, Option{CURLOPT_PASSWORD, "secret"},
          Option{CURLOPT_WRITEFUNCTION, "function"}, Option{CURLOPT_WRITEDATA, "data"},
          Option{CURLOPT_PROTOCOLS_STR, "http,https"}, Option{CURLOPT_DEFAULT_PROTOCOL, "http"},
          Option{CURLOPT_FOLLOWLOCATION, "0"}, Option{CURLOPT_PROXY, ""},
          Option{CURLOPT_NETRC, std::to_string(CURL_NETRC_IGNORED)}, Option{CURLOPT_NOSIGNAL, "1"},
          Option{CURLOPT_QUICK_EXIT, "1"}, Option{CURLOPT_CONNECTTIMEOUT_MS, "5000"},
          Option{CURLOPT_TIMEOUT_MS, "10000"}, Option{CURLOPT_VERBOSE, "0"}));
  EXPECT_EQ(stage.performs, 1);
}

TEST_F(SweepRequest, IsForTheRecordsUrlByteForByte) {
  const std::string url = "http://127.0.0.1/x?a=b&c=%20d";
  world_.record("halix_server1.dat", record_text(url, "halix", "secret", getpid()));
  sweep();
  EXPECT_THAT(values_of(CURLOPT_URL), ElementsAre(url));
}

TEST_F(SweepRequest, GoesAheadWhenOtherOptionsAreRefused) {
  for (const auto option :
       {CURLOPT_URL, CURLOPT_HTTPGET, CURLOPT_USERNAME, CURLOPT_PASSWORD, CURLOPT_WRITEFUNCTION,
        CURLOPT_WRITEDATA, CURLOPT_DEFAULT_PROTOCOL, CURLOPT_NOSIGNAL, CURLOPT_QUICK_EXIT,
        CURLOPT_CONNECTTIMEOUT_MS, CURLOPT_TIMEOUT_MS, CURLOPT_VERBOSE}) {
    stage.refused.insert(option);
  }
  sweep_one();
  EXPECT_EQ(stage.performs, 1);
}

TEST_F(SweepRequest, RestrictsTheProtocolsTheOldWayWhenTheNewOneIsRefused) {
  stage.refused = {CURLOPT_PROTOCOLS_STR};
  sweep_one();
  EXPECT_THAT(values_of(static_cast<CURLoption>(181)),
              ElementsAre(std::to_string(CURLPROTO_HTTP | CURLPROTO_HTTPS)));
  EXPECT_EQ(stage.performs, 1);
}

TEST_F(SweepRequest, IsNotMadeWhenTheProtocolsCannotBeRestricted) {
  stage.refused = {CURLOPT_PROTOCOLS_STR, static_cast<CURLoption>(181)};
  sweep_one();
  EXPECT_EQ(stage.performs, 0);
}

// They would leave the host: to a proxy of the environment or to wherever a redirect leads.
TEST_F(SweepRequest, IsNotMadeWhenTheCredentialsCannotBeKeptToTheServer) {
  for (const auto option : {CURLOPT_PROXY, CURLOPT_FOLLOWLOCATION, CURLOPT_NETRC}) {
    stage.refused = {option};
    sweep_one();
    EXPECT_EQ(stage.performs, 0) << option;
  }
}

TEST_F(SweepRequest, DropsABodyOfUpToOneMebibyte) {
  stage.perform = [] {
    std::string piece(65536, 'x');
    for (int i = 0; i < 16; ++i) {
      EXPECT_EQ(stage.write(piece.data(), 1, piece.size(), stage.write_target), piece.size());
    }
    EXPECT_EQ(stage.write(piece.data(), 1, 0, stage.write_target), 0u);
    EXPECT_NE(stage.write(piece.data(), 1, 1, stage.write_target), 1u) << "a byte too many";
    return CURLE_WRITE_ERROR;
  };
  sweep_one();
  EXPECT_EQ(stage.performs, 1);
}

TEST_F(SweepRequest, CountsTheBodyOfEachRequestAnew) {
  stage.perform = [] {
    std::string most(1'000'000, 'x');
    EXPECT_EQ(stage.write(most.data(), 1, most.size(), stage.write_target), most.size());
    return CURLE_OK;
  };
  notified_record(1);
  notified_record(2);
  sweep();
  EXPECT_EQ(stage.performs, 2);
}

TEST_F(SweepRequest, HasNoSayInWhatBecomesOfTheRecord) {
  for (const CURLcode code : {CURLE_OK, CURLE_COULDNT_CONNECT, CURLE_OPERATION_TIMEDOUT,
                              CURLE_WRITE_ERROR, CURLE_OUT_OF_MEMORY, CURLE_URL_MALFORMAT}) {
    stage.perform = [code] { return code; };
    sweep_one();
  }
  EXPECT_EQ(stage.performs, 6);
}

TEST_F(SweepCurl, MissingMeansThatEveryRecordThatNeedsARequestIsKept) {
  before_curl_is_loaded([this] {
    stage.library_missing = true;
    const auto first = notified_record(1);
    const auto second = notified_record(2);
    const auto textless = world_.record("halix_server3.dat", "\0 n p "s + std::to_string(getpid()));
    const auto malformed = world_.record("halix_server4.dat", "malformed");
    sweep();
    EXPECT_TRUE(exists(first));
    EXPECT_TRUE(exists(second));
    EXPECT_FALSE(exists(textless));
    EXPECT_FALSE(exists(malformed));
    EXPECT_EQ(stage.loads, 2) << "once for each record that needs a request";
    EXPECT_EQ(stage.performs, 0);
  });
}

TEST_F(SweepCurl, IsTriedAgainForTheNextRecordAndStaysLoadedThen) {
  before_curl_is_loaded([this] {
    stage.library_missing = true;
    const auto path = notified_record();
    sweep();
    EXPECT_TRUE(exists(path));
    stage.library_missing = false;
    notified_record(2);
    sweep();
    EXPECT_THAT(names_in(world_.temporary()), IsEmpty());
    EXPECT_EQ(stage.performs, 2);
    EXPECT_EQ(stage.loads, 2);
    EXPECT_EQ(stage.libraries_open, 1);
  });
}

TEST_F(SweepCurl, IncompleteMeansThatItIsClosedAndTheRecordKept) {
  before_curl_is_loaded([this] {
    const auto path = notified_record();
    for (const auto function :
         {"curl_easy_init", "curl_easy_setopt", "curl_easy_perform", "curl_easy_cleanup"}) {
      stage.functions_missing = {function};
      sweep();
      EXPECT_TRUE(exists(path)) << function;
      EXPECT_EQ(stage.libraries_open, 0) << function;
    }
    EXPECT_EQ(stage.loads, 4);
    EXPECT_FALSE(curl_memory.given);
    EXPECT_THAT(stage.options, IsEmpty());
    stage.functions_missing = {};
    sweep_one();
    EXPECT_EQ(stage.performs, 1);
    EXPECT_TRUE(curl_memory.given);
  });
}

TEST_F(SweepCurl, WithoutItsMemoryFunctionsIsUsedAllTheSame) {
  before_curl_is_loaded([this] {
    stage.functions_missing = {"curl_global_init_mem"};
    sweep_one();
    EXPECT_EQ(stage.performs, 1);
  });
}

TEST_F(SweepCurl, WithoutAHandleMeansThatTheRecordIsDeletedWithoutARequest) {
  stage.init_fails = true;
  sweep_one();
  EXPECT_EQ(stage.performs, 0);
  stage.init_fails = false;
  sweep_one();
  EXPECT_EQ(stage.performs, 1);
}

TEST_F(SweepCurl, IsNotLoadedWhenNobodyIsToBeNotified) {
  before_curl_is_loaded([this] {
    world_.record("halix_server1.dat", "malformed");
    world_.record("halix_server2.dat", record_text("u", "n", "p", vanished_pid()));
    world_.record("halix_server3.dat", "\0 n p "s + std::to_string(getpid()));
    sweep();
    EXPECT_EQ(stage.loads, 0);
  });
}

class SweepBudget : public SweepStage {
 protected:
  // The time limits of `count` requests, each of which takes `elapsed_ms` and ends with `code`.
  std::vector<std::string> limits_for(int count, std::int64_t elapsed_ms, CURLcode code) const {
    stage.perform = [=] {
      stage.later_ms += elapsed_ms;
      return code;
    };
    stage.options.clear();
    for (int i = 0; i < count; ++i) notified_record(i);
    sweep();
    return values_of(CURLOPT_TIMEOUT_MS);
  }
};

// Of ten seconds nine count.
TEST_F(SweepBudget, LeavesASecondToEachRequestOnceAMinuteIsUsedUp) {
  EXPECT_THAT(
      limits_for(9, 10'000, CURLE_OPERATION_TIMEDOUT),
      ElementsAre("10000", "10000", "10000", "10000", "10000", "10000", "10000", "1000", "1000"));
  EXPECT_EQ(stage.performs, 9);
}

TEST_F(SweepBudget, IsNotUsedUpAMillisecondEarlier) {
  EXPECT_THAT(limits_for(4, 30'999, CURLE_OPERATION_TIMEDOUT),
              ElementsAre("10000", "10000", "10000", "1000"));
  EXPECT_THAT(limits_for(3, 31'000, CURLE_OPERATION_TIMEDOUT),
              ElementsAre("10000", "10000", "1000"));
  EXPECT_THAT(limits_for(2, 60'999, CURLE_OPERATION_TIMEDOUT), ElementsAre("10000", "10000"));
}

TEST_F(SweepBudget, CountsARequestWhateverBecameOfIt) {
  for (const CURLcode code : {CURLE_OK, CURLE_COULDNT_CONNECT, CURLE_RECV_ERROR}) {
    EXPECT_THAT(limits_for(3, 31'000, code), ElementsAre("10000", "10000", "1000"));
  }
}

TEST_F(SweepBudget, LeavesTheFirstSecondOfEachRequestOut) {
  EXPECT_THAT(limits_for(80, 1'000, CURLE_OK), testing::Each("10000"));
  EXPECT_EQ(limits_for(61, 2'000, CURLE_OK).back(), "1000");
  EXPECT_EQ(limits_for(60, 2'000, CURLE_OK).back(), "10000");
}

TEST_F(SweepBudget, GainsNothingByQuickRequests) {
  int asked = 0;
  stage.perform = [&asked] {
    stage.later_ms += ++asked <= 60 ? 0 : 61'000;
    return CURLE_OK;
  };
  for (int i = 0; i < 62; ++i) notified_record(i);
  sweep();
  const auto limits = values_of(CURLOPT_TIMEOUT_MS);
  ASSERT_THAT(limits, SizeIs(62));
  EXPECT_EQ(limits[60], "10000");
  EXPECT_EQ(limits[61], "1000");
}

TEST_F(SweepBudget, BeginsAnewWithEachSweep) {
  EXPECT_THAT(limits_for(2, 100'000, CURLE_OPERATION_TIMEDOUT), ElementsAre("10000", "1000"));
  EXPECT_THAT(limits_for(1, 100'000, CURLE_OPERATION_TIMEDOUT), ElementsAre("10000"));
}

TEST_F(SweepCalls, ReadsProbesAsksClosesAndDeletesInThisOrder) {
  notified_record();
  EXPECT_THAT(calls_of_sweep(), ElementsAre("open", "fstat", "read", "probe", "handle", "request",
                                            "cleanup", "stat", "close", "unlink"));
}

TEST_F(SweepCalls, CloseAndKeepARecordOfAVanishedProcess) {
  world_.record("halix_server1.dat", record_text("u", "n", "p", vanished_pid()));
  EXPECT_THAT(calls_of_sweep(), ElementsAre("open", "fstat", "read", "probe", "close"));
}

TEST_F(SweepCalls, KeepARecordWhoseProbeAnswersAnythingBut0) {
  const auto path = notified_record();
  for (const int answer : {-1, 2}) {
    stage.probe_answer = answer;
    sweep();
    EXPECT_TRUE(exists(path)) << answer;
  }
  EXPECT_EQ(stage.performs, 0);
}

TEST_F(SweepCalls, NeitherProbeNorAskForAMalformedRecord) {
  world_.record("halix_server1.dat", "malformed");
  EXPECT_THAT(calls_of_sweep(),
              ElementsAre("open", "fstat", "read", "read", "stat", "close", "unlink"));
}

TEST_F(SweepCalls, NeverReadWhatIsNoRegularFile) {
  ASSERT_EQ(mkfifo((world_.temporary() + "/halix_server1.dat").c_str(), 0666), 0);
  EXPECT_THAT(calls_of_sweep(), ElementsAre("open", "fstat", "stat", "close", "unlink"));
}

TEST_F(SweepCalls, GoOnAfterAnInterruption) {
  stage.open = fail_times(3, EINTR);
  stage.read = fail_times(3, EINTR);
  sweep_one();
  EXPECT_EQ(stage.performs, 1);
}

TEST_F(SweepCalls, GoOnAfterARecordThatCannotBeRead) {
  const auto listed = [this] {
    return find_files(world_.temporary().c_str(), "halix_server*.dat");
  };
  for (Fault Stage::*const failing : {&Stage::open, &Stage::fstat, &Stage::read}) {
    for (const int number : {1, 2, 3}) notified_record(number);
    const auto first = listed().front();
    stage.performs = 0;
    stage.*failing = fail_nth(1, EACCES);
    sweep();
    EXPECT_EQ(stage.performs, 2);
    EXPECT_THAT(listed(), ElementsAre(first, world_.temporary() + "/"));
  }
}

TEST_F(SweepCalls, ReadEachByteOnceHoweverShortTheReadsAre) {
  const auto path = notified_record();
  const auto size = read_file(path).size();
  for (const std::size_t at_most : {std::size_t{1}, std::size_t{2}, std::size_t{7}}) {
    stage.read_at_most = at_most;
    stage.bytes_read = 0;
    sweep_one();
    EXPECT_EQ(stage.bytes_read, size);
  }
  EXPECT_EQ(stage.performs, 3);
  EXPECT_THAT(values_of(CURLOPT_PASSWORD), ElementsAre("secret", "secret", "secret"));
}

TEST_F(SweepCalls, ReadBlocksOfFourKibibytesUpToOneMebibyte) {
  world_.record("halix_server1.dat", std::string(2 << 20, ' '));
  sweep();
  EXPECT_EQ(stage.read.calls, 256);
  EXPECT_EQ(stage.bytes_read, std::size_t{1} << 20);
}

TEST_F(SweepCalls, StayBelowOneMebibyteWithShortReadsToo) {
  world_.record("halix_server1.dat", std::string(2 << 20, ' '));
  stage.read_at_most = 4095;
  sweep();
  EXPECT_EQ(stage.bytes_read, std::size_t{1} << 20);
}

// Byte for byte: before any field, within each of them and within the number, which may go on.
TEST_F(SweepCalls, KeepARecordWhoseReadingFailsBeforeItsFieldsAreComplete) {
  for (const int owner : {getpid(), vanished_pid()}) {
    const std::string text = record_text("u", "n", "p", owner);
    const auto path = world_.record("halix_server1.dat", text);
    stage.read_at_most = 1;
    for (std::size_t size = 0; size < text.size(); ++size) {
      stage.read = fail_from(static_cast<int>(size) + 1, EIO);
      sweep();
      EXPECT_TRUE(exists(path)) << size;
    }
  }
  EXPECT_EQ(stage.performs, 0);
}

TEST_F(SweepCalls, KeepARecordWhenOnlyTheReadBehindItsLastByteFails) {
  const auto path = world_.record("halix_server1.dat", "u n p " + std::to_string(getpid()));
  stage.read = fail_from(2, EIO);
  sweep();
  EXPECT_EQ(stage.performs, 0);
  EXPECT_TRUE(exists(path));
}

TEST_F(SweepCalls, KeepAFileWhoseNameCannotBeAskedFor) {
  stage.stat = fail_all(EIO);
  EXPECT_TRUE(keeps_a_record());
}

TEST_F(SweepCalls, KeepAFileThatTookTheRecordsNameMeanwhile) {
  const auto path = notified_record();
  stage.perform = [this, &path] {
    rename(world_.file(world_.home() + "/new", "newer").c_str(), path.c_str());
    return CURLE_OK;
  };
  sweep();
  ASSERT_TRUE(exists(path));
  EXPECT_EQ(read_file(path), "newer");
}

TEST_F(SweepCalls, KeepAFileOfTheSameNumberOnAnotherDevice) {
  stage.stat_tells_another_device = true;
  EXPECT_TRUE(keeps_a_record());
}

TEST_F(SweepCalls, KeepALinkThatTookTheRecordsNameMeanwhile) {
  const auto path = notified_record();
  const auto target = world_.file(world_.home() + "/target", "target");
  stage.perform = [&] {
    unlink(path.c_str());
    EXPECT_EQ(symlink(target.c_str(), path.c_str()), 0);
    return CURLE_OK;
  };
  sweep();
  EXPECT_TRUE(exists(path));
}

TEST_F(SweepCalls, DeleteALinkThatStillLeadsToTheRecord) {
  const auto path = notified_record();
  stage.perform = [this, &path] {
    const auto moved = world_.home() + "/moved";
    rename(path.c_str(), moved.c_str());
    EXPECT_EQ(symlink(moved.c_str(), path.c_str()), 0);
    return CURLE_OK;
  };
  sweep();
  EXPECT_FALSE(exists(path));
  EXPECT_TRUE(exists(world_.home() + "/moved"));
}

TEST_F(SweepCalls, AreContentWhenTheRecordVanishesMeanwhile) {
  const auto path = notified_record();
  stage.perform = [&path] {
    unlink(path.c_str());
    return CURLE_OK;
  };
  sweep();
  EXPECT_EQ(stage.performs, 1);
}

const uid_t stranger = geteuid() + 1;
const uid_t keeper = geteuid() + 2;  // whom the directory belongs to

TEST_F(SweepCalls, SettleARecordWhoeverOwnsIt) {
  const auto path = notified_record();
  stage.on_record = [](struct stat &record) { record.st_uid = stranger; };
  sweep();
  EXPECT_EQ(stage.performs, 1);
  EXPECT_FALSE(exists(path));
}

// A link to a record in a directory as the test describes it.
class SweepLinks : public SweepStage {
 protected:
  SweepLinks() {
    EXPECT_EQ(symlink(target_.c_str(), path_.c_str()), 0);
    stage.on_directory = [this](struct stat &directory) {
      directory.st_mode = S_IFDIR | mode_;
      directory.st_uid = keeper;
    };
    stage.on_link = [this](struct stat &link) { link.st_uid = owner_; };
  }

  bool is_followed(mode_t mode, uid_t owner) {
    mode_ = mode;
    owner_ = owner;
    stage.performs = 0;
    sweep();
    const bool followed = stage.performs > 0;
    EXPECT_NE(exists(path_), followed);
    EXPECT_TRUE(exists(target_));
    unlink(path_.c_str());
    EXPECT_EQ(symlink(target_.c_str(), path_.c_str()), 0);
    return followed;
  }

  mode_t mode_ = 01777;
  uid_t owner_ = geteuid();
  const std::string target_ = world_.file(
      world_.home() + "/target", record_text("http://127.0.0.1/x", "halix", "secret", getpid()));
  const std::string path_ = world_.temporary() + "/halix_server1.dat";
};

TEST_F(SweepLinks, AreFollowedInASharedDirectoryWhenTheyAreTheUsersOrTheDirectorysOwners) {
  EXPECT_TRUE(is_followed(01777, geteuid()));
  EXPECT_TRUE(is_followed(01777, keeper));
  EXPECT_FALSE(is_followed(01777, stranger));
  EXPECT_FALSE(is_followed(01703, stranger));
}

TEST_F(SweepLinks, AreTheUsersWhenTheyAreTheEffectiveUsers) {
  stage.effective_user = getuid() + 1;
  EXPECT_TRUE(is_followed(01777, getuid() + 1));
  EXPECT_FALSE(is_followed(01777, getuid()));
}

TEST_F(SweepLinks, AreFollowedInEveryOtherDirectory) {
  for (const mode_t mode : {0777u, 01775u, 01770u, 0755u, 0700u}) {
    EXPECT_TRUE(is_followed(mode, stranger)) << mode;
  }
}

TEST_F(SweepLinks, AreLookedAtBeforeAndAfterTheyAreFollowed) {
  EXPECT_THAT(calls_of_sweep(),
              ElementsAre("open", "lstat", "stat", "follow", "lstat", "fstat", "read", "probe",
                          "handle", "request", "cleanup", "stat", "close", "unlink"));
}

TEST_F(SweepLinks, ThatAreAStrangersAreNotOpened) {
  owner_ = stranger;
  EXPECT_THAT(calls_of_sweep(), ElementsAre("open", "lstat", "stat"));
}

TEST_F(SweepLinks, ThatCannotBeLookedAtAreLeftAlone) {
  stage.lstat = fail_all(EACCES);
  sweep();
  stage.lstat = {};
  stage.stat = fail_all(EACCES);
  sweep();
  EXPECT_EQ(stage.read.calls, 0);
  EXPECT_TRUE(exists(path_));
}

TEST_F(SweepLinks, ThatTookTheNameOfOneThatWasLookedAtAreLeftAlone) {
  const auto other = world_.home() + "/other";
  ASSERT_EQ(symlink(target_.c_str(), other.c_str()), 0);
  stage.on_link = [&](struct stat &) { rename(other.c_str(), path_.c_str()); };
  sweep();
  EXPECT_EQ(stage.read.calls, 0);
  EXPECT_TRUE(exists(path_));
}

TEST_F(SweepLinks, ThatTookTheNumberOfOneThatWasLookedAtAreLeftAlone) {
  int looks = 0;
  stage.on_link = [&](struct stat &link) { link.st_uid = ++looks == 1 ? geteuid() : stranger; };
  sweep();
  EXPECT_EQ(looks, 2);
  EXPECT_EQ(stage.read.calls, 0);
  EXPECT_TRUE(exists(path_));
}

TEST_F(SweepLinks, ThatVanishAfterTheyWereLookedAtAreForgotten) {
  stage.on_link = [this](struct stat &) { unlink(path_.c_str()); };
  sweep();
  EXPECT_EQ(stage.read.calls, 0);
}

TEST_F(SweepListing, ReleasesAllItsOutputsOnSuccess) {
  list("a\nb\n");
  EXPECT_THAT(find_files("/dir", "*"), ElementsAre("/dir/a", "/dir/b", "/dir/"));
  EXPECT_THAT(stage.listing_outputs, IsEmpty());
}

TEST_F(SweepListing, ReleasesAllItsOutputsOnFailure) {
  list("a\nb\n");
  for (const int status : {2, 6, 8}) {
    stage.listing_status = status;
    EXPECT_THAT(find_files("/dir", "*"), IsEmpty());
    EXPECT_THAT(stage.listing_outputs, IsEmpty());
  }
}

TEST_F(SweepListing, TakesNoNamesForAnEmptyList) {
  stage.listing_replaced = true;
  EXPECT_THAT(find_files("/dir", "*"), IsEmpty());
  EXPECT_THAT(stage.listing_outputs, IsEmpty());
}

TEST_F(SweepListing, TakesThePieceBehindTheLastNewline) {
  list("a\n\nb");
  EXPECT_THAT(find_files("/dir", "*"), ElementsAre("/dir/a", "/dir/", "/dir/b"));
}

TEST_F(SweepListing, LeavesOutAPathThatDoesNotFit) {
  const std::string longest(1023 - std::strlen("/dir/"), 'x');
  const std::string names = longest + "\n" + longest + "x\nb";
  list(names.c_str());
  EXPECT_THAT(find_files("/dir", "*"), ElementsAre("/dir/" + longest, "/dir/b"));
}

TEST_F(SweepListing, IsOfTheRootForAnEmptyDirectory) {
  std::vector<std::string> listed;
  stage.listing_replaced = true;
  stage.on_listing = [&](const char *wildcard) { listed.emplace_back(wildcard); };
  stage.listing_names = "halix_server_that_is_not_there.dat\n";
  stage.calls_recorded = true;
  process_directory("");
  stage.calls_recorded = false;
  EXPECT_THAT(listed, ElementsAre("/halix_server*.dat"));
  EXPECT_THAT(stage.calls, ElementsAre("open"));
  EXPECT_THAT(find_files("", "*"), ElementsAre("/halix_server_that_is_not_there.dat", "/"));
}

TEST_F(SweepListing, IsNotTrustedToNameRecordsOnly) {
  const auto outside = world_.file(world_.home() + "/halix_server1.dat", "malformed");
  const auto foreign = world_.record("notes.txt", "malformed");
  const auto record = world_.record("halix_server2.dat", "malformed");
  stage.listing_replaced = true;
  stage.listing_names =
      "../home/halix_server1.dat\n..\\home\\halix_server1.dat\nnotes.txt\n./halix_server2.dat\n";
  EXPECT_THAT(calls_of_sweep(), IsEmpty());
  EXPECT_TRUE(exists(outside));
  EXPECT_TRUE(exists(foreign));
  EXPECT_TRUE(exists(record));
}

using Settings = std::map<std::string, std::string>;
using Wildcards = std::vector<std::string>;

// Calls the tool's main with directories that list as empty, and returns its exit status. Changes
// the environment, so it needs a process of its own.
int enter_tool(const Settings &settings, char *name,
               const std::function<void(const char *wildcard)> &on_listing) {
  clear_environment();
  for (const auto &[setting, value] : settings) setenv(setting.c_str(), value.c_str(), 1);
  stage.listing_replaced = true;
  stage.on_listing = on_listing;
  const int out = dup(STDOUT_FILENO);
  char *argv[] = {name, nullptr};
  const int status = tool_main(name ? 1 : 0, argv);
  dup2(out, STDOUT_FILENO);  // the tool had silenced it
  return status;
}

void expect_sweeps(const Settings &settings, const Wildcards &expected) {
  in_child([&] {
    Wildcards listed;
    char name[] = "kalmora-sweep";
    const auto keep = [&](const char *wildcard) { listed.emplace_back(wildcard); };
    EXPECT_EQ(enter_tool(settings, name, keep), 0);
    EXPECT_EQ(listed, expected);
  });
}

// Stands for a library of libcurl that ends the process in its own way when memory is short. Its
// priority lets it run after the program's own destructors, as those of a library do.
bool library_lacks_memory = false;

[[gnu::destructor(101)]] void end_library() {
  if (library_lacks_memory) _exit(127);
}

TEST(ToolEntry, EndsBeforeTheLibrariesThatItHasLoaded) {
  const auto result = run_in_child([] {
    library_lacks_memory = true;
    char name[] = "kalmora-sweep";
    std::exit(enter_tool({}, name, nullptr));
  });
  EXPECT_TRUE(result.exited_with(0));
}

// Whatever limit the tool was started with.
TEST(ToolEntry, ForbidsACoreBeforeItSweeps) {
  in_child([] {
    char name[] = "kalmora-sweep";
    bool forbidden = false;
    enter_tool({{"ZUL_USER_HOMEDIR", "/h"}}, name, [&forbidden](const char *) {
      forbidden =
          stage.core_limit && stage.core_limit->rlim_cur == 0 && stage.core_limit->rlim_max == 0;
    });
    EXPECT_TRUE(forbidden);
  });
}

std::string resources_of(const std::string &home) {
  return home + "/Library/Application Support/kalmora102/halix_server*.dat";
}

TEST(ToolEntry, SweepsTheResourcesAndThenTheTemporaryDirectory) {
  expect_sweeps({{"ZUL_USER_HOMEDIR", "/h"}, {"TMPDIR", "/t"}},
                {resources_of("/h"), "/t/halix_server*.dat"});
}

TEST(ToolEntry, SweepsTheResourcesAloneWithoutATemporaryDirectory) {
  expect_sweeps({{"ZUL_USER_HOMEDIR", "/h"}}, {resources_of("/h")});
}

TEST(ToolEntry, SweepsTheRootForAnEmptyTemporaryDirectory) {
  expect_sweeps({{"ZUL_USER_HOMEDIR", "/h"}, {"TMPDIR", ""}},
                {resources_of("/h"), "/halix_server*.dat"});
}

TEST(ToolEntry, SweepsOneDirectoryTwiceWhenBothNamesMeanIt) {
  const std::string resources = "/h/Library/Application Support/kalmora102";
  expect_sweeps({{"ZUL_USER_HOMEDIR", "/h"}, {"TMPDIR", resources}},
                {resources_of("/h"), resources_of("/h")});
}

// An empty directory would mean the root.
TEST(ToolEntry, SkipsResourcesThatDidNotFit) {
  for (const std::size_t length : {1000u, 1023u, 1024u, 5000u}) {
    expect_sweeps({{"ZUL_USER_HOMEDIR", "/" + std::string(length - 1, 'h')}, {"TMPDIR", "/t"}},
                  {"/t/halix_server*.dat"});
  }
}

TEST(ToolEntry, SweepsTheResourcesOfAnEmptyHome) {
  expect_sweeps({{"ZUL_USER_HOMEDIR", ""}}, {resources_of("")});
}

void expect_identity(char *name, const std::string &expected) {
  in_child([&] {
    std::string identity;
    enter_tool({{"ZUL_USER_HOMEDIR", "/h"}}, name, [&](const char *) {
      identity = QalIdentity::currentIdentity->getIdentityString();
      EXPECT_TRUE(QalIdentity::currentIdentity->isProduct(1));
      EXPECT_EQ(QalIdentity::currentIdentity->getVersionString(), nullptr);
      EXPECT_EQ(QalIdentity::currentIdentity->getVersionFloat(), -0.000097F) << "all parts are 0";
      EXPECT_STREQ(App_home_directory, "/usr/local/ZUL/kalmora102");
    });
    EXPECT_EQ(identity, expected);
  });
}

TEST(ToolEntry, PublishesTheIdentityOfTheFamilysClientWithoutAVersion) {
  char name[] = "/opt/bin/sweep";
  expect_identity(name, "[/opt/bin/sweep] Kalmora Client");
}

TEST(ToolEntry, TakesAMissingNameForAnEmptyOne) { expect_identity(nullptr, "[] Kalmora Client"); }

// Runs the tool with a start-up that answers so.
void expect_run(int start_answer, int expected_status, std::size_t expected_listings) {
  qal::test::in_child([=] {
    std::string identity;
    stage.start_answer = start_answer;
    stage.on_start = [&identity] {
      const auto current = QalIdentity::currentIdentity;
      identity = current ? current->getIdentityString() : "none";
      EXPECT_STREQ(User_resource_directory, "");
    };
    Wildcards listed;
    char name[] = "kalmora-sweep";
    const auto keep = [&](const char *wildcard) { listed.emplace_back(wildcard); };
    EXPECT_EQ(enter_tool({{"ZUL_USER_HOMEDIR", "/h"}}, name, keep), expected_status);
    EXPECT_EQ(identity, "[kalmora-sweep] Kalmora Client");
    EXPECT_THAT(listed, SizeIs(expected_listings));
    EXPECT_EQ(*User_resource_directory == '\0', expected_status != 0);
  });
}

TEST(ToolEntry, StartsTheLibraryBetweenTheIdentityAndTheDirectories) { expect_run(0, 0, 1); }

TEST(ToolEntry, SweepsNothingWhenTheLibraryDoesNotStart) { expect_run(5, 1, 0); }

TEST(ToolEntry, LeavesTheLibraryToTheEndOfTheProcess) {
  qal::test::in_child([] {
    char name[] = "kalmora-sweep";
    enter_tool({{"ZUL_USER_HOMEDIR", "/h"}}, name,
               [](const char *) { EXPECT_EQ(qal_utils_set_cachedir("/c"), QAL_STATUS_OK); });
    EXPECT_STREQ(qal_utils_get_cachedir(), "/c");
  });
}

TEST_F(SweepMemory, ShortageEndsTheSweepWithoutHarm) {
  const auto count_left = [this] { return names_in(world_.temporary()).size(); };
  for (int i = 0; i < 20; ++i) {
    world_.record("halix_server" + std::to_string(i) + std::string(60, 'x') + ".dat", "malformed");
  }
  const std::string dir = world_.temporary();
  int failures = 0;
  for (;; ++failures) {
    stage.allocations_left = failures;
    process_directory(dir.c_str());
    stage.allocations_left = -1;
    if (count_left() == 0) break;
    ASSERT_EQ(count_left(), 20u);
    ASSERT_LT(failures, 1000);
  }
  EXPECT_GT(failures, 20);
}

// The block that a record is read into begins with its text; the rest is whatever the stack held
// before. The record is wholly written.
void expect_wiped(const std::string &text, const std::string &url, const std::string &user,
                  const std::string &password) {
  EXPECT_THAT(stage.wiped,
              ElementsAre(StartsWith(text),
                          AllOf(SizeIs(sizeof(qal::internal::Record)), HasSubstr(url + '\0'),
                                HasSubstr(user + '\0'), HasSubstr(password + '\0'))));
}

TEST_F(SweepMemory, HoldsNoCredentialsAfterARecord) {
  const auto record = notified_record();
  const auto text = read_file(record);
  sweep();
  expect_wiped(text, "http://127.0.0.1/x", "halix", "secret");
}

TEST_F(SweepMemory, HoldsNoCredentialsAfterAMalformedRecord) {
  world_.record("halix_server1.dat", "url user unsound_password x");
  sweep();
  expect_wiped("url user unsound_password x", "url", "user", "unsound_password");
}

TEST_F(SweepMemory, HoldsNoCredentialsAfterAKeptRecord) {
  const auto text = record_text("u", "n", "kept_password", vanished_pid());
  world_.record("halix_server1.dat", text);
  sweep();
  expect_wiped(text, "u", "n", "kept_password");
}

TEST_F(SweepMemory, OfCurlIsWipedBeforeItIsReleased) {
  sweep_one();
  ASSERT_TRUE(curl_memory.given);
  stage.wiped.clear();
  char *const copy = curl_memory.duplicate("copied password");
  EXPECT_STREQ(copy, "copied password");
  const int releases = stage.releases;
  curl_memory.release(copy);
  EXPECT_EQ(stage.releases, releases + 1);
  EXPECT_THAT(stage.wiped, ElementsAre("copied password"s + '\0'));

  stage.wiped.clear();
  auto *const block = static_cast<char *>(curl_memory.allocate(9));
  std::memcpy(block, "password", 9);
  auto *const grown = static_cast<char *>(curl_memory.resize(block, 4000));
  EXPECT_STREQ(grown, "password");
  EXPECT_THAT(stage.wiped, ElementsAre("password"s + '\0'));
  auto *const shrunk = static_cast<char *>(curl_memory.resize(grown, 4));
  EXPECT_EQ(std::string(shrunk, 4), "pass");
  curl_memory.release(shrunk);
  EXPECT_THAT(stage.wiped, ElementsAre(SizeIs(9), SizeIs(4000), "pass"));
}

TEST_F(SweepMemory, OfCurlThatIsRefusedLeavesABlockAsItIs) {
  sweep_one();
  ASSERT_TRUE(curl_memory.given);
  char *const block = curl_memory.duplicate("password");
  stage.wiped.clear();
  stage.mallocs_fail = true;
  void *const grown = curl_memory.resize(block, 4000);
  void *const fresh = curl_memory.resize(nullptr, 10);
  void *const zeroed = curl_memory.allocate_zeroed(3, 5);
  char *const copy = curl_memory.duplicate("copied");
  stage.mallocs_fail = false;
  EXPECT_EQ(grown, nullptr);
  EXPECT_EQ(fresh, nullptr);
  EXPECT_EQ(zeroed, nullptr);
  EXPECT_EQ(copy, nullptr);
  EXPECT_THAT(stage.wiped, IsEmpty());
  EXPECT_STREQ(block, "password");
  curl_memory.release(block);
}

TEST_F(SweepMemory, OfCurlBehavesAsTheCLibrarys) {
  sweep_one();
  ASSERT_TRUE(curl_memory.given);
  curl_memory.release(nullptr);
  auto *const zeroed = static_cast<char *>(curl_memory.allocate_zeroed(30, 100));
  EXPECT_EQ(std::count(zeroed, zeroed + 3000, '\0'), 3000);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(zeroed) % alignof(std::max_align_t), 0u);
  curl_memory.release(zeroed);
  void *const fresh = curl_memory.resize(nullptr, 10);
  EXPECT_NE(fresh, nullptr);
  curl_memory.release(fresh);
  EXPECT_EQ(curl_memory.allocate_zeroed(SIZE_MAX / 2, 3), nullptr);
  EXPECT_EQ(curl_memory.allocate(SIZE_MAX - 3), nullptr);
}

}  // namespace

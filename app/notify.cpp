// The requests to the servers, and the allocator that wipes what libcurl keeps of them.
#include "notify.hpp"

// Older versions of libcurl know only the deprecated way to restrict the protocols.
#define CURL_DISABLE_DEPRECATION
#include <curl/curl.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "platform/platform.hpp"

namespace qal::internal {
namespace {

constexpr long connect_limit_ms = 5'000;
constexpr long request_limit_ms = 10'000;
constexpr long hurried_limit_ms = 1'000;
constexpr std::int64_t free_ms = 1'000;  // of each request
constexpr std::int64_t patience_ms = 60'000;
constexpr std::size_t body_limit_bytes = std::size_t{1024} * 1024;

// libcurl copies the credentials into blocks of its own. These functions are its allocator: they
// wipe each block before they release it. The block's size stands in front of it.
struct alignas(std::max_align_t) BlockHead {
  std::size_t size;
};

BlockHead *head_of(void *block) { return static_cast<BlockHead *>(block) - 1; }

void *allocate(std::size_t size) {
  std::size_t whole = 0;
  if (__builtin_add_overflow(size, sizeof(BlockHead), &whole)) return nullptr;
  auto *const head = static_cast<BlockHead *>(std::malloc(whole));
  if (!head) return nullptr;
  head->size = size;
  return head + 1;
}

void release(void *block) {
  if (!block) return;
  platform::clear_secret(block, head_of(block)->size);
  std::free(head_of(block));
}

void *resize(void *block, std::size_t size) {
  void *const moved = allocate(size);
  if (!moved || !block) return moved;
  std::memcpy(moved, block, std::min(size, head_of(block)->size));
  release(block);
  return moved;
}

void *allocate_zeroed(std::size_t count, std::size_t size) {
  std::size_t whole = 0;
  if (__builtin_mul_overflow(count, size, &whole)) return nullptr;
  void *const block = allocate(whole);
  return block ? std::memset(block, 0, whole) : nullptr;
}

char *duplicate(const char *text) {
  const std::size_t size = std::strlen(text) + 1;
  void *const copy = allocate(size);
  return copy ? static_cast<char *>(std::memcpy(copy, text, size)) : nullptr;
}

struct Curl {
  decltype(&curl_easy_init) init = nullptr;
  decltype(&curl_easy_setopt) set_option = nullptr;
  decltype(&curl_easy_perform) perform = nullptr;
  decltype(&curl_easy_cleanup) cleanup = nullptr;

  bool is_complete() const { return init && set_option && perform && cleanup; }
};

template <typename Function>
void look_up(void *library, const char *name, Function &function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
}

Curl functions_of(void *library) {
  Curl curl;
  look_up(library, "curl_easy_init", curl.init);
  look_up(library, "curl_easy_setopt", curl.set_option);
  look_up(library, "curl_easy_perform", curl.perform);
  look_up(library, "curl_easy_cleanup", curl.cleanup);
  return curl;
}

void use_our_memory(void *library) {
  decltype(&curl_global_init_mem) use_memory = nullptr;
  look_up(library, "curl_global_init_mem", use_memory);
  if (use_memory) {
    use_memory(CURL_GLOBAL_DEFAULT, allocate, release, resize, duplicate, allocate_zeroed);
  }
}

// A complete libcurl stays loaded: it keeps state, and perhaps a resolver thread, until the process
// ends.
Curl load_curl() {
  void *const library = dlopen(platform::curl_library_name(), RTLD_NOW | RTLD_LOCAL);
  if (!library) return {};
  const Curl curl = functions_of(library);
  if (!curl.is_complete()) {
    dlclose(library);
    return {};
  }
  use_our_memory(library);
  return curl;
}

// Tries again until it succeeds: perhaps only memory or a descriptor was short.
const Curl &loaded_curl() {
  static Curl curl;
  if (!curl.is_complete()) curl = load_curl();
  return curl;
}

// One transfer: the handle and what has arrived of the body.
class Request {
 public:
  explicit Request(const Curl &curl) : curl_(curl), handle_(curl.init(), curl.cleanup) {}

  explicit operator bool() const { return handle_ != nullptr; }

  // Failures are ignored here, like that of the request itself.
  void address(const Record &record) {
    set(CURLOPT_URL, record.url);
    set(CURLOPT_HTTPGET, 1L);
    set(CURLOPT_USERNAME, record.user);
    set(CURLOPT_PASSWORD, record.password);
  }

  // The record may have been written by anybody: nothing that it names may be printed, make the
  // tool read files or wait for ever, or pass the credentials on. False when the credentials cannot
  // be kept to the record's own server; no request may be made then.
  bool guard(long limit_ms) {
    set(CURLOPT_WRITEFUNCTION, &Request::drop_body);
    set(CURLOPT_WRITEDATA, static_cast<void *>(&body_bytes_));
    const bool restricted =
        set(CURLOPT_PROTOCOLS_STR, "http,https") ||
        set(CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
    set(CURLOPT_DEFAULT_PROTOCOL, "http");
    const bool direct = set(CURLOPT_FOLLOWLOCATION, 0L) && set(CURLOPT_PROXY, "") &&
                        set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L);
    set(CURLOPT_CONNECTTIMEOUT_MS, connect_limit_ms);
    set(CURLOPT_TIMEOUT_MS, limit_ms);
    set(CURLOPT_VERBOSE, 0L);
    return restricted && direct;
  }

  void perform() { curl_.perform(handle_.get()); }

 private:
  template <typename Value>
  bool set(CURLoption option, Value value) {
    return curl_.set_option(handle_.get(), option, value) == CURLE_OK;
  }

  // Counts what it drops. A result other than the number of bytes ends the transfer.
  static std::size_t drop_body(char *, std::size_t size, std::size_t count, void *total) {
    const std::size_t bytes = size * count;
    auto &body_bytes = *static_cast<std::size_t *>(total);
    body_bytes += bytes;
    return body_bytes > body_limit_bytes ? 0 : bytes;
  }

  const Curl &curl_;
  std::unique_ptr<CURL, decltype(Curl::cleanup)> handle_;
  std::size_t body_bytes_ = 0;
};

void ask(const Curl &curl, const Record &record, long limit_ms) {
  Request request{curl};
  if (!request) return;
  request.address(record);
  if (request.guard(limit_ms)) request.perform();
}

std::int64_t monotonic_ms() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace

long Notifier::time_limit_ms() const {
  return spent_ms_ < patience_ms ? request_limit_ms : hurried_limit_ms;
}

bool Notifier::notify(const Record &record) {
  const Curl &curl = loaded_curl();
  if (!curl.is_complete()) return false;
  const std::int64_t start_ms = monotonic_ms();
  ask(curl, record, time_limit_ms());
  spent_ms_ += std::max<std::int64_t>(0, monotonic_ms() - start_ms - free_ms);
  return true;
}

}  // namespace qal::internal

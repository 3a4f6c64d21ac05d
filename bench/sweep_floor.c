// The floor of the tool: the system calls of a sweep in their order, and nothing else. Requests are
// made by the same calls of libcurl, because a request that keeps credentials to their server, over
// TLS too, is libcurl's work in any implementation. Takes the resource directory as its argument
// and the temporary directory from TMPDIR. Each record is one line of four fields.
#define _GNU_SOURCE
#define CURL_DISABLE_DEPRECATION
#include <curl/curl.h>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static void harden_process(void) {
  const struct rlimit none = {0, 0};
  const int null_device = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null_device, STDOUT_FILENO);
  dup2(null_device, STDERR_FILENO);
  close(null_device);
  signal(SIGPIPE, SIG_IGN);
  setrlimit(RLIMIT_CORE, &none);
}

// What the kernel's header for Landlock calls so; only the platform's own files include it.
enum {
  remove_file = 1 << 5,
  write_remove_or_make = 0x1ff2,
  truncate_right = 1 << 14,
  ask_for_version = 1,
  path_beneath = 1
};

struct path_rule {
  uint64_t allowed;
  int32_t directory;
} __attribute__((packed));

static void allow_deleting_in(const char *directory, int ruleset) {
  const int below = open(directory, O_PATH | O_DIRECTORY | O_CLOEXEC);
  const struct path_rule rule = {remove_file, below};
  syscall(SYS_landlock_add_rule, ruleset, path_beneath, &rule, 0);
  close(below);
}

static void confine_to(const char *resources, const char *temporary) {
  const int has_resources = access(resources, F_OK) == 0;
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  const long version = syscall(SYS_landlock_create_ruleset, NULL, 0, ask_for_version);
  if (version < 1) return;
  const uint64_t given_up = write_remove_or_make | (version >= 3 ? truncate_right : 0);
  const int ruleset = (int)syscall(SYS_landlock_create_ruleset, &given_up, sizeof given_up, 0);
  if (has_resources) allow_deleting_in(resources, ruleset);
  allow_deleting_in(temporary, ruleset);
  syscall(SYS_landlock_restrict_self, ruleset, 0);
  close(ruleset);
}

struct curl {
  __typeof__(&curl_easy_init) init;
  __typeof__(&curl_easy_setopt) set;
  __typeof__(&curl_easy_perform) perform;
  __typeof__(&curl_easy_cleanup) cleanup;
};

static struct curl load_curl(void) {
  void *const library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
  const struct curl curl = {dlsym(library, "curl_easy_init"), dlsym(library, "curl_easy_setopt"),
                            dlsym(library, "curl_easy_perform"),
                            dlsym(library, "curl_easy_cleanup")};
  return curl;
}

static size_t drop_body(char *body, size_t size, size_t count, void *unused) {
  (void)body;
  (void)unused;
  return size * count;
}

static void restrict_request(const struct curl *curl, CURL *request) {
  curl->set(request, CURLOPT_WRITEFUNCTION, drop_body);
  curl->set(request, CURLOPT_PROTOCOLS_STR, "http,https");
  curl->set(request, CURLOPT_DEFAULT_PROTOCOL, "http");
  curl->set(request, CURLOPT_FOLLOWLOCATION, 0L);
  curl->set(request, CURLOPT_PROXY, "");
  curl->set(request, CURLOPT_NETRC, (long)CURL_NETRC_IGNORED);
  curl->set(request, CURLOPT_NOSIGNAL, 1L);
  curl->set(request, CURLOPT_QUICK_EXIT, 1L);
  curl->set(request, CURLOPT_CONNECTTIMEOUT_MS, 5000L);
  curl->set(request, CURLOPT_TIMEOUT_MS, 10000L);
}

static void notify(const char *url, const char *user, const char *password) {
  static struct curl curl;
  if (!curl.init) curl = load_curl();
  CURL *const request = curl.init();
  curl.set(request, CURLOPT_URL, url);
  curl.set(request, CURLOPT_USERNAME, user);
  curl.set(request, CURLOPT_PASSWORD, password);
  restrict_request(&curl, request);
  curl.perform(request);
  curl.cleanup(request);
}

static void settle(const char *path) {
  char record[4096];
  char *rest = record;
  struct stat info;
  const int file = open(path, O_RDONLY | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  fstat(file, &info);
  record[read(file, record, sizeof record - 1)] = '\0';
  const char *const url = strsep(&rest, " ");
  const char *const user = strsep(&rest, " ");
  const char *const password = strsep(&rest, " ");
  const int is_running = kill((pid_t)strtol(rest, NULL, 10), 0) == 0;
  if (is_running) {
    notify(url, user, password);
    stat(path, &info);
  }
  close(file);
  if (is_running) unlink(path);
}

// The names of the records, each with its terminator; an empty one at the end.
static char *names_of_records(const char *directory) {
  static const char begins[] = "halix_server";
  size_t length = 0;
  size_t room = 4096;
  char *names = malloc(room);
  DIR *const stream = opendir(directory);
  const struct dirent *entry;
  struct stat info;
  int is_examined = 0;
  while (stream && (entry = readdir(stream)) != NULL) {
    if (!is_examined) is_examined = fstatat(dirfd(stream), entry->d_name, &info, 0) == 0;
    if (entry->d_type != DT_REG) continue;
    if (strncmp(entry->d_name, begins, sizeof begins - 1) != 0) continue;
    if (length + sizeof entry->d_name >= room) names = realloc(names, room *= 2);
    length += strlen(strcpy(names + length, entry->d_name)) + 1;
  }
  if (stream) closedir(stream);
  names[length] = '\0';
  return names;
}

static void sweep(const char *directory) {
  char path[4096];
  const char *name = names_of_records(directory);
  for (; *name; name += strlen(name) + 1) {
    snprintf(path, sizeof path, "%s/%s", directory, name);
    settle(path);
  }
}

int main(int argc, char **argv) {
  const char *const resources = argc > 1 ? argv[1] : "";
  const char *const temporary = getenv("TMPDIR");
  struct stat info;
  harden_process();
  stat(temporary, &info);
  confine_to(resources, temporary);
  sweep(resources);
  sweep(temporary);
  return 0;
}

// Uses most of the library over and over for the given number of seconds, as a process that lives
// long would. Once a second a line on standard output reports the descriptors, the threads and the
// resident KiB; none of them may grow. Ends at once when anything has a wrong result.
//
// usage: soak SECONDS
#include <arpa/inet.h>
#include <netinet/in.h>
#include <qal/barrier.h>
#include <qal/blocks.h>
#include <qal/dir_list.h>
#include <qal/files.h>
#include <qal/hash.h>
#include <qal/list.h>
#include <qal/mpool.h>
#include <qal/pipe.h>
#include <qal/plist.h>
#include <qal/startup.h>
#include <qal/temp_mem.h>
#include <qal/thread.h>
#include <qal/uid.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <kalmora/sweep.hpp>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include "internal/handles.hpp"
#include "support/descriptors.hpp"
#include "support/scratch.hpp"

namespace {

using qal::internal::Descriptor;
using qal::internal::File;
using qal::internal::OwnedText;
using qal::test::exists;
using qal::test::names_in;
using qal::test::open_descriptors;
using qal::test::ScratchDir;
using qal::test::write_file;

constexpr unsigned longest_round_seconds = 60;
constexpr int team_size = 4;

void expect(bool holds, const char *what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::exit(1);
}

// A process that answers every request on the loopback interface.
class Server {
 public:
  explicit Server(unsigned seconds) : listener_(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *const any = reinterpret_cast<sockaddr *>(&address);
    expect(bind(listener_.get(), any, size) == 0 && listen(listener_.get(), SOMAXCONN) == 0 &&
               getsockname(listener_.get(), any, &size) == 0,
           "a server can be made");
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/settle";
    pid_ = fork();
    expect(pid_ >= 0, "a process can be had");
    if (pid_ == 0) serve(seconds);
    listener_ = Descriptor{};
  }
  ~Server() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  const std::string &url() const { return url_; }

 private:
  // Does not stay for long should this process be killed.
  [[noreturn]] void serve(unsigned seconds) {
    alarm(seconds + 2 * longest_round_seconds);
    constexpr std::string_view answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    for (;;) {
      const Descriptor connection{accept(listener_.get(), nullptr, nullptr)};
      std::array<char, 4096> request{};
      if (read(connection.get(), request.data(), request.size()) <= 0) continue;
      if (write(connection.get(), answer.data(), answer.size()) < 0) continue;
    }
  }

  Descriptor listener_;
  std::string url_;
  pid_t pid_ = -1;
};

void use_tables() {
  QalHash *table = qal_hash_create(16, 8, sizeof(int), sizeof(int), 1);
  QalHash *other = qal_hash_create(16, 8, sizeof(int), sizeof(int), 0);
  expect(table && other, "tables can be made");
  for (int i = 0; i < 200; ++i) {
    qal_hash_add(i % 2 ? table : other, i % 16, &i, &i);
  }
  expect(qal_hash_merge(table, other, nullptr, nullptr) == 0, "tables can be merged");
  for (int i = 0; i < 200; ++i) {
    int data = -1;
    expect(qal_hash_find(table, i % 16, &i, &data) == 1 && data == i, "a record is found");
  }
  qal_hash_destroy(&table);
  qal_hash_destroy(&other);
}

void use_lists() {
  QalListPool *pool = qal_list_pool_create(sizeof(int), 10, 0);
  QalList *list = qal_list_create(pool);
  expect(list, "a list can be made");
  for (int i = 0; i < 100; ++i) {
    void *const payload = qal_list_alloc(list);
    *static_cast<int *>(payload) = i * 37 % 100;
    qal_list_append(list, payload);
  }
  qal_list_sort(list, [](const void *a, const void *b) {
    return *static_cast<const int *>(a) - *static_cast<const int *>(b);
  });
  for (int i = 0; i < 100; ++i) {
    void *const payload = qal_list_pop(list);
    expect(*static_cast<int *>(payload) == i, "a list is sorted");
    qal_list_free(list, payload);
  }
  qal_list_destroy(&list);
  qal_list_pool_destroy(&pool);
}

void use_scratch_memory() {
  void *small = qal_temp_mem_alloc(1000);
  void *const large = qal_temp_mem_alloc(300'000);
  small = qal_temp_mem_resize(small, 50'000);
  expect(small && large, "scratch memory can be had");
  qal_temp_mem_release(large);
  expect(qal_temp_mem_alloc(200'000) == large, "scratch memory is used again");
  qal_temp_mem_free_all();
}

// What the threads of a team share.
struct Team {
  QalMpool *pool;
  QalThreadSema semaphore;
};

void use_pointer_list() {
  QalPlist *list = qal_plist_create();
  for (int i = 0; i < 10; ++i) qal_plist_prepend(list, qal_plist_alloc());
  expect(qal_plist_length(list) == 10, "nodes can be had");
  qal_plist_destroy(&list);
}

void use_ids() {
  std::array<std::uint64_t, 10> ids{};
  for (std::uint64_t &id : ids) id = qal_uid_new(1, 2);
  for (const std::uint64_t id : ids) expect(qal_uid_destroy(id) == 0, "an id can be retired");
}

int play_along(void *team_address) {
  auto &team = *static_cast<Team *>(team_address);
  std::array<void *, 20> elements{};
  for (void *&element : elements) element = qal_mpool_alloc(team.pool);
  for (void *const element : elements) qal_mpool_free(team.pool, element);
  use_pointer_list();
  use_ids();
  expect(qal_thread_global_isum(1, team_size) == team_size, "threads can be summed up");
  expect(qal_thread_sema_wait(&team.semaphore) == 0, "a permit can be had");
  return team_size;
}

void use_threads(QalMpool *pool) {
  Team team{pool, {}};
  qal_thread_sema_init(&team.semaphore, 0);
  std::array<int, team_size> indices{};
  for (int &index : indices) {
    expect(qal_thread_create(&index, &play_along, &team) == 0, "a thread can be started");
  }
  for (int i = 0; i < team_size; ++i) qal_thread_sema_release(&team.semaphore);
  for (const int index : indices) {
    int result = 0;
    expect(qal_thread_join(&index, &result) == 0 && result == team_size, "a thread can be joined");
  }
  qal_thread_sema_destroy(&team.semaphore);
}

void use_pipes() {
  int pid = -1;
  File out(qal_pipe_popen_id("echo answer", "r", &pid));
  std::array<char, 16> line{};
  expect(out && qal_pipe_fgets(line.data(), line.size(), out.get()), "a command answers");
  out.reset();
  expect(waitpid(pid, nullptr, 0) == pid, "a command ends");
}

void use_blocks(const ScratchDir &scratch) {
  const std::string path = scratch / "block";
  std::vector<int> numbers(5000);
  std::iota(numbers.begin(), numbers.end(), 0);
  const File file(std::fopen(path.c_str(), "w+be"));
  expect(qal_fwrite_zlib(numbers.data(), sizeof(int), numbers.size(), file.get()) > 0,
         "a block can be written");
  std::rewind(file.get());
  std::vector<int> read_back(numbers.size());
  qal_fread_zlib(read_back.data(), sizeof(int), read_back.size(), file.get());
  expect(read_back == numbers, "a block can be read");
}

void use_files(const ScratchDir &scratch) {
  const std::string directory = scratch.directory("files");
  const std::string first = directory + "/first.txt";
  const std::string second = directory + "/second.txt";
  write_file(first, "content");
  expect(qal_file_copy(first.c_str(), second.c_str(), 0) == 0, "a file can be copied");
  char *path = nullptr;
  char *directories = nullptr;
  char *files = nullptr;
  int directory_count = 0;
  int file_count = 0;
  const int status = qal_dir_list((directory + "/*.txt").c_str(), &path, &directory_count,
                                  &directories, &file_count, &files, 0);
  const std::array<OwnedText, 3> texts{OwnedText{path}, OwnedText{directories}, OwnedText{files}};
  expect(status == 0 && file_count == 2, "a directory can be listed");
  expect(qal_file_rmdir(directory.c_str(), 1) == 0, "a directory can be removed");
}

// One record is settled with a request, one is malformed, and one has an owner that is gone.
void sweep(const ScratchDir &scratch, const Server &server) {
  const std::string directory = scratch.directory("records");
  const std::string fields = server.url() + " user password ";
  const std::string kept = directory + "/halix_server3.dat";
  write_file(directory + "/halix_server1.dat", fields + std::to_string(getpid()));
  write_file(directory + "/halix_server2.dat", "too few");
  write_file(kept, fields + "999999999");
  process_directory(directory.c_str());
  expect(names_in(directory).size() == 1 && exists(kept), "records are settled");
  qal_file_rmdir(directory.c_str(), 1);
}

long entries_in(const char *directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

long resident_kib() {
  std::ifstream pages("/proc/self/statm");
  long all = 0;
  long resident = 0;
  pages >> all >> resident;
  return resident * sysconf(_SC_PAGESIZE) / 1024;
}

void report(long seconds, long rounds) {
  std::printf("%ld s: %ld rounds, %zu descriptors, %ld threads, %ld KiB\n", seconds, rounds,
              open_descriptors().size(), entries_in("/proc/self/task"), resident_kib());
  std::fflush(stdout);
}

void soak(long seconds, const Server &server) {
  const ScratchDir scratch;
  QalMpool *pool = qal_mpool_create(100, 10);
  const auto start = std::chrono::steady_clock::now();
  long reported = 0;
  for (long rounds = 1; reported < seconds; ++rounds) {
    alarm(longest_round_seconds);
    use_tables();
    use_lists();
    use_scratch_memory();
    use_threads(pool);
    use_pipes();
    use_blocks(scratch);
    use_files(scratch);
    sweep(scratch, server);
    const auto passed = std::chrono::steady_clock::now() - start;
    const long now = std::chrono::duration_cast<std::chrono::seconds>(passed).count();
    if (now != reported) report(now, rounds);
    reported = now;
  }
  qal_mpool_destroy(&pool);
}

}  // namespace

int main(int argc, char **argv) {
  const long seconds = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 0;
  if (seconds < 1) {
    std::fputs("usage: soak SECONDS\n", stderr);
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  const Server server(static_cast<unsigned>(seconds));
  qal_utils_init();
  soak(seconds, server);
  qal_utils_done();
  return 0;
}

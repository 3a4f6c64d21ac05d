// A team of threads fills a table, each member its share, and sums it up together. The table is
// then kept in a file as a compressed block and read back.
#include <qal/barrier.h>
#include <qal/blocks.h>
#include <qal/startup.h>
#include <qal/thread.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>

namespace {

constexpr int team_size = 4;
constexpr int term_count = 100'000;
using Table = std::array<double, term_count>;
Table table;

struct Member {
  int number = 0;  // in the team
  int thread = 0;  // as the library counts
  double total = 0;
};

int work(void *argument) {
  auto *const member = static_cast<Member *>(argument);
  double share = 0;
  for (std::size_t i = static_cast<std::size_t>(member->number); i < table.size(); i += team_size)
    share += table[i] = static_cast<double>(i + 1);
  member->total = qal_thread_global_dsum(share, team_size);  // returns once all have come here
  return 0;
}

struct Close {
  void operator()(std::FILE *file) const { std::fclose(file); }
};

}  // namespace

int main() {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;

  std::array<Member, team_size> team;
  for (int i = 0; i < team_size; ++i) {
    Member &member = team[static_cast<std::size_t>(i)];
    member.number = i;
    if (qal_thread_create(&member.thread, work, &member) != 0) return 1;
  }
  for (const Member &member : team) qal_thread_join(&member.thread, nullptr);
  for (const Member &member : team)
    std::printf("thread %d: the total is %.0f\n", member.thread, member.total);

  const std::unique_ptr<std::FILE, Close> file(std::tmpfile());
  if (!file) return 1;
  const std::size_t size = qal_fwrite_zlib(table.data(), sizeof table[0], table.size(), file.get());
  const bool halved = 2 * static_cast<std::size_t>(std::ftell(file.get())) < size;
  std::printf("%zu bytes kept in %s\n", size, halved ? "less than half of that" : "more");

  std::rewind(file.get());
  static Table kept;
  const bool whole = qal_fread_zlib(kept.data(), sizeof kept[0], kept.size(), file.get()) == size;
  std::printf("read back: %s\n", whole && kept == table ? "the same" : "something else");

  qal_utils_done();
  return 0;
}

// Every allocation of every part fails once, alone and with all that follow it. Each time the calls
// give their stated failures and nothing else, nothing stays behind but what is meant to be lost,
// and the same calls work as usual as soon as there is memory again.
#include <dirent.h>
#include <gtest/gtest.h>
#include <qal/qal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <kalmora/kalmora.hpp>
#include <qal/identity.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <ostream>
#include <string>
#include <utility>

#include "fault/short_memory.hpp"
#include "internal/handles.hpp"
#include "support/child.hpp"
#include "support/commands.hpp"
#include "support/descriptors.hpp"
#include "support/home.hpp"
#include "support/scratch.hpp"
#include "support/zlib_blocks.hpp"

namespace {

using qal::internal::File;
using qal::internal::OwnedText;
using qal::test::blocks_left;
using qal::test::call;
using qal::test::exists;
using qal::test::failed;
using qal::test::forget_blocks;
using qal::test::home_of;
using qal::test::InsideCall;
using qal::test::lose_block;
using qal::test::open_descriptors;
using qal::test::read_file;
using qal::test::refusals;
using qal::test::run_in_child;
using qal::test::run_short;
using qal::test::ScratchDir;
using qal::test::Shortage;
using qal::test::suffice;
using qal::test::write_file;

// The call allocates for itself: it fails exactly when an allocation does.
template <typename Result>
void expect_exactly(const Result &result, const Result &done, const Result &refused) {
  EXPECT_EQ(result, failed() ? refused : done);
}

// The C library allocates and can do without some of it.
template <typename Result>
void expect_either(const Result &result, const Result &done, const Result &refused) {
  EXPECT_TRUE(result == done || (failed() && result == refused)) << result;
}

// A container's user may have no entry in the password database.
bool user_is_known() {
  static const bool known = home_of(getuid()).has_value();
  return known;
}

void expect_made(const void *result) { EXPECT_EQ(result == nullptr, failed()); }

bool holds(const char *text, const char *expected) {
  return text && std::strcmp(text, expected) == 0;
}

File open_file(const std::string &path, const char *mode) {
  return File{std::fopen(path.c_str(), mode)};
}

// Reports are composed and delivered, and not kept: that would take memory.
void drop_line(void *, const char *, ...) {}

void allocate(const ScratchDir &) {
  char *block = nullptr;
  call([&] { QAL_MALLOC("block", block, 10); });
  expect_made(block);
  char *const before = block;
  call([&] { QAL_REALLOC("block", block, 5000); });
  expect_made(block);
  if (failed()) std::free(before);  // Deliberate: growth that fails loses the old block.
  QAL_FREE(block);
  call([&] { QAL_MALLOC("block", block, 10); });
  expect_made(block);
  QAL_REALLOC("block", block, 0);
}

void use_temporary_memory(const ScratchDir &) {
  void *const block = call(qal_temp_mem_alloc, 1000);
  expect_made(block);
  // Deliberate: without its block the record is lost.
  if (failed() && blocks_left() > 0) {
    EXPECT_TRUE(lose_block(sizeof(QalTempSegment)));
  }
  void *const other = call(qal_temp_mem_alloc, 2'000'000);
  expect_made(other);
  if (failed() && blocks_left() > (block ? 2U : 0U)) {
    EXPECT_TRUE(lose_block(sizeof(QalTempSegment)));
  }
  if (block) {
    void *const grown = call(qal_temp_mem_resize, block, 9000);
    expect_made(grown);
    if (failed()) std::free(block);  // Deliberate: as for any growth.
  }
  if (other) {
    EXPECT_EQ(call(qal_temp_mem_release, other), 0);
  }
  EXPECT_EQ(call(qal_temp_mem_free_all), 0);
}

void log(const ScratchDir &scratch) {
  OwnedText scrubbed{call(qal_scrub_format_string, "100%")};
  EXPECT_TRUE(failed() ? !scrubbed : holds(scrubbed.get(), "100%%"));

  const auto copy_path = scratch / "copy";
  const bool copied = call(_qal_logger_set_file, copy_path.c_str()) != nullptr;
  EXPECT_TRUE(copied || failed());
  const File console = open_file(scratch / "console", "w");
  qal_logger_init(console.get(), &_qal_logger_func, nullptr, nullptr);
  call([] { qal_error("at %d%%\n", 50); });
  call([] { qal_info("%.6000f\n", 1.0); });  // cannot be formatted without memory
  call(qal_logger_time_stamp, 1);
  call([] { qal_warn("stamped\n"); });
  tzset();  // replaces what the C library noted about the zone in the call
  qal_logger_time_stamp(0);
  qal_logger_init(nullptr, &drop_line, nullptr, nullptr);
  call(_qal_logger_set_file, nullptr);
  std::fflush(console.get());
  for (const auto &path : {scratch / "console", copied ? copy_path : scratch / "console"}) {
    const std::string text = read_file(path);
    EXPECT_TRUE(text.starts_with("ERROR: at 50%\n")) << text;
    EXPECT_TRUE(text.ends_with("stamped\n")) << text;
  }
}

void convert_text(const ScratchDir &) {
  const OwnedText utf8{call(qal_string_native_to_utf8, "text")};
  EXPECT_TRUE(failed() ? !utf8 : holds(utf8.get(), "text"));
  const OwnedText native{call(qal_string_utf8_to_native, "text")};
  EXPECT_TRUE(failed() ? !native : holds(native.get(), "text"));
  char printed[8192];
  const int cut = call([&] { return qal_snprintf(printed, sizeof printed, "%.6000f", 1.0); });
  expect_exactly(cut, 0, 1);
}

void find_paths(const ScratchDir &scratch) {
  char path[1024] = "";
  expect_exactly(call([&] { return qal_get_norm_path("/a/b/../c", path, sizeof path); }), 0, -1);
  if (!failed()) {
    EXPECT_STREQ(path, "/a/c");
  }

  for (const char *home : {"~/x", "~root/x"}) {
    const bool is_known = home[1] != '/' || user_is_known();
    const int status = call(qal_expand_pathname, home, path, int{sizeof path});
    expect_either<int>(status, is_known ? QAL_STATUS_OK : QAL_STATUS_NOT_FOUND,
                       QAL_STATUS_NOT_FOUND);
    EXPECT_TRUE(status != QAL_STATUS_OK || std::string(path).ends_with("/x")) << path;
  }

  // Without memory to open the directory there is no file, without memory for its numbers the files
  // are probed one by one.
  const auto numbered = scratch / "many/file-number-###";
  int32_t first = -1;
  int32_t last = -1;
  const int found = call([&] { return qal_valid_pathname_range(numbered.c_str(), &first, &last); });
  expect_either<int>(found, QAL_STATUS_OK, QAL_STATUS_INVALID);
  EXPECT_EQ(first, found == QAL_STATUS_OK ? 0 : -1);
  EXPECT_EQ(last, found == QAL_STATUS_OK ? 259 : -1);

  const OwnedText directory{call(qal_getcwd, nullptr, std::size_t{0})};
  EXPECT_TRUE(directory || failed());
  EXPECT_EQ(call(qal_get_full_path, "x", path, int{sizeof path}), 0);
}

void list_directory(const ScratchDir &scratch) {
  ASSERT_EQ(chdir(scratch.path().c_str()), 0);
  for (const auto &pattern : {scratch / "many/*", std::string("many/*")}) {
    char *path = nullptr;
    char *directories = nullptr;
    char *files = nullptr;
    int directory_count = -1;
    int file_count = -1;
    const int status = call([&] {
      return qal_dir_list(pattern.c_str(), &path, &directory_count, &directories, &file_count,
                          &files, 1);
    });
    const OwnedText owned[] = {OwnedText{path}, OwnedText{directories}, OwnedText{files}};
    const bool listed = status == QAL_STATUS_OK;
    EXPECT_TRUE(listed || failed());
    EXPECT_TRUE(listed || status == QAL_STATUS_NO_MEMORY || status == QAL_STATUS_NOT_FOUND);
    EXPECT_EQ(file_count, listed ? 260 : -1);
    EXPECT_EQ(directory_count, listed ? 3 : -1);
  }
}

void handle_files(const ScratchDir &scratch) {
  const auto copy = scratch / "copied";
  const auto moved = scratch / "moved";
  EXPECT_EQ(call(qal_file_copy, (scratch / "lines").c_str(), copy.c_str(), 0U), QAL_STATUS_OK);
  EXPECT_EQ(call(qal_file_rename, copy.c_str(), moved.c_str(), 0x10000U), QAL_STATUS_OK);
  EXPECT_EQ(read_file(moved), "one\ntwo\n");
  EXPECT_EQ(call(qal_io_chkfil, copy.c_str(), 1U, 1), 1);
  EXPECT_EQ(call(qal_file_unlink, moved.c_str()), QAL_STATUS_OK);

  const OwnedText name{call(qal_tempnam, scratch.path().c_str(), "qal")};
  expect_made(name.get());

  // A stream without a buffer reads byte by byte.
  File file = open_file(scratch / "lines", "r");
  char text[16];
  EXPECT_EQ(call(qal_io_get_aline, file.get(), 15, text), 3);
  EXPECT_STREQ(text, "one");
  file = open_file(scratch / "lines", "r");
  EXPECT_EQ(call(qal_fread, text, uint64_t{1}, uint64_t{8}, file.get()), 8U);
}

void remove_tree(const ScratchDir &scratch) {
  const auto tree = scratch.directory("tree");
  for (const char *name : {"tree/a", "tree/b", "tree/d/c", "tree/d/e/f"}) {
    scratch.directory("tree/d/e");
    scratch.file(name);
  }
  expect_exactly<int>(call(qal_file_rmdir, tree.c_str(), 1), QAL_STATUS_OK, QAL_STATUS_FAILED);
  EXPECT_EQ(exists(tree), failed());
}

void run_commands(const ScratchDir &) {
  int pid = -1;
  char line[16] = "";
  File named{call(qal_pipe_popen_id, "echo text", "r", &pid)};
  expect_made(named.get());
  if (named) {
    EXPECT_TRUE(holds(call(qal_pipe_fgets, line, 16U, named.get()), "text\n"));
  }
  named.reset();
  EXPECT_GT(pid, 0);
  EXPECT_NE(qal::test::wait_for(pid), -1);

  std::FILE *const unnamed = call(qal_pipe_popen, "cat > /dev/null", "w");
  EXPECT_TRUE(unnamed || failed());
  if (!unnamed) return;
  EXPECT_EQ(call(qal_pipe_fwrite, "text", std::size_t{1}, std::size_t{4}, unnamed), 4U);
  EXPECT_EQ(call(qal_pipe_pclose, unnamed), 0);
}

// Deliberate: a pool that got no chunk stays locked. Answers whether it was.
bool unlock_after_refusal(QalMpool *pool) {
  const bool held = qal_thread_mutex_trylock(&pool->lock) != 0;
  EXPECT_EQ(qal_thread_mutex_unlock(&pool->lock), 0);
  return held;
}

void expect_one_locked(QalListPool *pool) {
  const bool headers = pool->use_header_pool && unlock_after_refusal(pool->header_pool);
  EXPECT_NE(headers, unlock_after_refusal(pool->element_pool));
}

void use_pool(const ScratchDir &) {
  QalMpool *pool = call(qal_mpool_create, 40U, 2U);
  expect_made(pool);
  if (!pool) return;
  for (int i = 0; i < 5; ++i) {
    void *const element = call(qal_mpool_alloc, pool);
    expect_made(element);
    if (failed()) {
      EXPECT_TRUE(unlock_after_refusal(pool));
    }
  }
  call([&] { qal_mpool_destroy(&pool); });
}

void use_lists(const ScratchDir &) {
  for (const int with_headers : {0, 1}) {
    QalListPool *pool = call(qal_list_pool_create, 24U, 1U, with_headers);
    expect_made(pool);
    if (!pool) continue;
    QalList *list = call(qal_list_create, pool);
    expect_made(list);
    if (failed() && with_headers) expect_one_locked(pool);
    for (int i = 0; i < 3 && list; ++i) {
      void *const payload = call(qal_list_alloc, list);
      expect_made(payload);
      if (failed()) expect_one_locked(pool);
      call(qal_list_append, list, payload);
    }
    call([&] { qal_list_destroy(&list); });
    call([&] { qal_list_pool_destroy(&pool); });
  }
}

void use_pointer_lists(const ScratchDir &) {
  const int status = call(qal_plist_pool_create, 1U, 1U);
  expect_exactly<int>(status, QAL_STATUS_OK, QAL_STATUS_NO_MEMORY);
  QalPlist *const list = call(qal_plist_create);
  EXPECT_EQ(list == nullptr, failed() || status != QAL_STATUS_OK);
  // After the first failure the pool stays locked.
  for (int i = 0; i < 3 && status == QAL_STATUS_OK; ++i) {
    QalPlistNode *const node = call(qal_plist_alloc);
    expect_made(node);
    if (failed()) break;
    call(qal_plist_append, list, node);
  }
  EXPECT_EQ(call(qal_plist_pool_destroy), QAL_STATUS_OK);
}

void use_tables(const ScratchDir &) {
  QalHash *table = call(qal_hash_create, 3, 1, 4, 4, 0U);
  expect_made(table);
  for (int key = 0; key < 3 && table; ++key) {
    const int status = call(qal_hash_add, table, key, &key, &key);
    expect_exactly<int>(status, QAL_STATUS_OK, QAL_STATUS_NO_MEMORY);
    if (failed()) expect_one_locked(table->pool);
    EXPECT_EQ(call(qal_hash_find, table, key, &key, nullptr), status == QAL_STATUS_OK);
  }
  QalHash *other = call(qal_hash_create, 3, 1, 4, 4, 0U);
  expect_made(other);
  const int key = 7;
  const bool added = other && call(qal_hash_add, other, 0, &key, &key) == QAL_STATUS_OK;
  if (other && !added) expect_one_locked(other->pool);
  // A record that does not fit any more is left out.
  if (table && added) {
    EXPECT_EQ(call(qal_hash_merge, table, other, nullptr, nullptr), QAL_STATUS_OK);
    if (failed()) expect_one_locked(table->pool);
    EXPECT_EQ(qal_hash_find(table, 0, &key, nullptr), !failed());
  }
  call([&] { qal_hash_destroy(&table); });
  call([&] { qal_hash_destroy(&other); });
}

void use_pair_tables(const ScratchDir &) {
  QalHashPairs *pairs = call(qal_hash_pairs_create, 3, 1, 4, 0U);
  expect_made(pairs);
  if (!pairs) return;
  expect_exactly<int>(call(qal_hash_pairs_add, pairs, 1, 2, "dat"), QAL_STATUS_OK,
                      QAL_STATUS_NO_MEMORY);
  if (failed()) expect_one_locked(pairs->table->pool);
  call([&] { qal_hash_pairs_destroy(&pairs); });
}

// The registry lives as long as the process and cannot be given back.
void hand_out_ids(const ScratchDir &) {
  EXPECT_EQ(call(qal_uid_init), 0);
  if (failed()) {
    EXPECT_EQ(blocks_left(), 0U);
  }
  // Deliberate: an id is handed out whether or not it could be registered.
  const bool has_table = !failed();
  const uint64_t id = call(qal_uid_new, uint64_t{1}, uint64_t{2});
  const bool lacked_memory = failed();
  const bool registered = call(qal_uid_find, id, nullptr, nullptr) == 0;
  // Without memory for its index the id is registered all the same.
  EXPECT_TRUE(registered ? has_table : !has_table || lacked_memory);
  const bool locked = has_table && !registered;
  suffice();
  EXPECT_EQ(qal_uid_init(), 0);
  EXPECT_EQ(qal_uid_next(), id + 1);
  if (!locked) {
    EXPECT_EQ(qal_uid_find(qal_uid_new(3, 4), nullptr, nullptr), 0);
  }
  forget_blocks();
}

// Ids and lists may be missing afterwards, the threads may not.
void start_up(const ScratchDir &) {
  EXPECT_EQ(call(qal_utils_init), QAL_STATUS_OK);
  const int status = call(qal_utils_set_cachedir, "/cache");
  expect_exactly<int>(status, QAL_STATUS_OK, QAL_STATUS_NO_MEMORY);
  EXPECT_TRUE(failed() ? !qal_utils_get_cachedir() : holds(qal_utils_get_cachedir(), "/cache"));
  suffice();
  EXPECT_EQ(qal_utils_set_cachedir("/later"), QAL_STATUS_OK);
  EXPECT_EQ(qal_utils_done(), QAL_STATUS_OK);
  const auto left = blocks_left();
  const bool has_ids = qal_uid_find(qal_uid_new(1, 2), nullptr, nullptr) == 0;
  constexpr std::size_t blocks_of_the_registry = 5;
  EXPECT_EQ(left, has_ids ? blocks_of_the_registry : 0U);
  forget_blocks();
}

int return_seven(void *) { return 7; }

// Starts a thread and joins it; its slot is free again either way.
void run_thread() {
  int index = -1;
  const int status = call(qal_thread_create, &index, &return_seven, nullptr);
  expect_exactly(status, 0, -1);
  int result = 0;
  EXPECT_EQ(call(qal_thread_join, &index, &result), status);
  EXPECT_EQ(result, status == 0 ? 7 : -1);
}

void run_threads(const ScratchDir &) {
  EXPECT_EQ(call(qal_thread_init), 0);
  run_thread();
  EXPECT_EQ(call(qal_thread_reduce_dmax, 2.5, 1), 2.5);
  EXPECT_EQ(call(qal_thread_global_isum, 3, 1), 3);
  QalThreadSema semaphore;
  EXPECT_EQ(call(qal_thread_sema_init, &semaphore, 1), 0);
  EXPECT_EQ(call(qal_thread_sema_wait, &semaphore), 0);
  EXPECT_EQ(call(qal_thread_sema_destroy, &semaphore), 0);
  suffice();
  run_thread();
  forget_blocks();  // the platform keeps a stack for the next thread
}

using qal::test::Read;
using qal::test::Write;

void keep_blocks(const ScratchDir &scratch) {
  const std::string data(50'000, 'd');
  const std::pair<Write, Read> pairs[] = {{&qal_fwrite_zlib, &qal_fread_zlib},
                                          {&fwrite_zlib, &fread_zlib}};
  for (const auto &[write, read] : pairs) {
    File file = open_file(scratch / "written", "w+");
    expect_either(call(write, data.data(), std::size_t{1}, data.size(), file.get()), data.size(),
                  std::size_t{0});
    file = open_file(scratch / "block", "w+");
    write(data.data(), 1, data.size(), file.get());
    file = open_file(scratch / "block", "r");
    std::string copy(data.size(), '\0');
    const auto got = call(read, copy.data(), std::size_t{1}, copy.size(), file.get());
    expect_either(got, data.size(), std::size_t{0});
    EXPECT_TRUE(got == 0 || copy == data);
  }
}

void ask_system(const ScratchDir &) {
  char user[64];
  EXPECT_EQ(call(qal_username, user, int{sizeof user}), 0);
  EXPECT_TRUE(failed() || (std::strcmp(user, "notfound") != 0) == user_is_known());
  for (const int query : {1, 5, 7, 8, 9, 10}) {
    int value = 0;
    EXPECT_EQ(call(qal_sysinfo, query, &value), 1);
    EXPECT_GT(value, 0);
  }
  char system[16];
  int major = 0;
  int minor = 0;
  call(qal_get_osx_ver, system, &major, &minor);
  EXPECT_STREQ(system, "Mac OS X");
  EXPECT_EQ(major == -1, minor == -1);
}

void tell_time(const ScratchDir &) {
  // The last one is read from a file.
  for (const char *zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", ":/etc/localtime"}) {
    setenv("TZ", zone, 1);
    int date[6] = {};
    EXPECT_EQ(call(qal_date_get, date), date[5]);
    EXPECT_GE(date[0], 2024);
    char text[15];
    EXPECT_EQ(call(qal_date_get_string, text, 1), 14);
  }
  setenv("TZ", "UTC0", 1);
  tzset();
}

int by_name(const dirent **a, const dirent **b) { return std::strcmp((*a)->d_name, (*b)->d_name); }

void help_programs(const ScratchDir &scratch) {
  char path[1024];
  const int length = call(expfnam, "~/x", 3, path, int{sizeof path});
  EXPECT_TRUE(length == -1 ? failed() || !user_is_known() : length > 2 && user_is_known())
      << length;

  const auto lines = scratch / "lines";
  expect_either(call(file_getlinecount, lines.c_str()), 2, -1);

  dirent **list = nullptr;
  const int count = call(our_scandir, (scratch / "many").c_str(), &list,
                         static_cast<int (*)(const dirent *)>(nullptr), &by_name);
  expect_exactly(count, 263, -1);
  expect_made(list);
  call(our_freenamelist, static_cast<void *>(list));

  char data[8];
  int64_t position = -1;
  const int status = call(remote_fileio, lines.c_str(), 0, SEEK_SET, int64_t{0}, int64_t{8},
                          static_cast<void *>(data), &position);
  expect_either(status, 0, -2);
  EXPECT_EQ(position, status == 0 ? 8 : 0);

  const OwnedText lower{call(lower_case, "TEXT")};
  EXPECT_TRUE(failed() ? !lower : holds(lower.get(), "text"));
}

void resolve_directories(const ScratchDir &scratch) {
  unsetenv("ZUL_USER_HOMEDIR");
  setenv("TMPDIR", scratch.path().c_str(), 1);
  call(query_env_vars, "kalmora");
  EXPECT_TRUE(failed() || (*User_home_directory != '\0') == user_is_known());
  EXPECT_EQ(std::string(User_resource_directory),
            std::string(User_home_directory) + "/" + App_resource_directory);
}

void sweep(const ScratchDir &scratch) {
  const auto swept = scratch.directory("swept");
  write_file(swept + "/halix_server1.dat", "malformed");
  write_file(swept + "/halix_server2.dat", "malformed too");
  write_file(swept + "/other.dat", "not ours");
  bool listed = true;
  try {
    const InsideCall inside;
    listed = find_files(swept.c_str(), "*.dat").size() == 4;  // the trailing one included
  } catch (const std::bad_alloc &) {
    EXPECT_TRUE(failed());
  }
  EXPECT_TRUE(listed || failed());
  call(process_directory, swept.c_str());
  const bool settled = !exists(swept + "/halix_server1.dat");
  EXPECT_TRUE(settled || failed());
  EXPECT_EQ(settled, !exists(swept + "/halix_server2.dat"));
  EXPECT_TRUE(exists(swept + "/other.dat"));
}

const unsigned char *pattern_of(const char *text) {
  return reinterpret_cast<const unsigned char *>(text);
}

void search_and_change_texts() {
  const std::string long_text = std::string(9000, '.') + "needle";
  EXPECT_STREQ(call(qal_strcasestr, "a Needle", "nEEDLE"), "Needle");
  EXPECT_STREQ(call(qal_strcasestr, long_text.c_str(), "NEEDLE"), "needle");
  EXPECT_STREQ(call(qal_strchr, "a-b-c", '-'), "-b-c");
  EXPECT_STREQ(call(qal_strrchr, "a-b-c", '-'), "-c");
  EXPECT_EQ(call(qal_isalpha, 'x'), 1);
  char text[64];
  EXPECT_STREQ(call(qal_strncpy, text, " -ab", int{sizeof text}), " -ab");
  EXPECT_STREQ(call(qal_strncat, text, "c~d ", unsigned{sizeof text}), "c~d ");
  EXPECT_EQ(call(qal_strip_pre_post_spaces, text, text), 6);
  EXPECT_EQ(call(qal_strip_pre_post_chars, text, text, '-'), 5);
  EXPECT_EQ(call(qal_strip_at_the_chars, text, "~"), 3);
  EXPECT_EQ(call(qal_strrepl, text, "b", "+++", int{QAL_REPLACE_ALL}), 1);
  call(qal_changecase, text, int{QAL_CASE_UPPER});
  EXPECT_STREQ(text, "A+++C");
  EXPECT_EQ(call([&] { return qal_snprintf(text, sizeof text, "%s-%d", "text", 7); }), 0);
  EXPECT_STREQ(text, "text-7");
}

int by_address(const void *a, const void *b) { return (a > b) - (a < b); }

// Each list begins in the reverse of its sorted order.
void sort_lists() {
  constexpr int length = 1000;
  qal_plist_pool_create(1, length);
  QalPlist *const nodes = qal_plist_create();
  QalListPool *pool = qal_list_pool_create(8, length, 0);
  QalList *payloads = qal_list_create(pool);
  for (int i = 0; i < length; ++i) {
    QalPlistNode *const node = qal_plist_alloc();
    node->data = node;
    qal_plist_prepend(nodes, node);
    qal_list_prepend(payloads, qal_list_alloc(payloads));
  }
  call([=] { qal_plist_sort(nodes, &by_address); });
  call([=] { qal_list_sort(payloads, &by_address); });
  qal_list_destroy(&payloads);
  qal_list_pool_destroy(&pool);
  qal_plist_pool_destroy();
}

// What is said to need no memory has no allocation that could fail.
void do_without_memory(const ScratchDir &) {
  EXPECT_EQ(call(zul_fnmatch, pattern_of("h*[a-z]?.dat"), pattern_of("halix_x1.dat")), 0);
  EXPECT_EQ(call(qal_fnmatch, pattern_of("*/b*"), "a/bc", unsigned{QAL_FNM_PATHNAME}), 0);
  char path[64] = "/a/./b/../c";
  EXPECT_EQ(call(qal_convert_pathname, path, uint32_t{QAL_PATH_COMPACT}), 0);
  search_and_change_texts();
  sort_lists();
  int timer = -1;
  call(qal_timer_new, &timer);
  call(qal_timer_start, &timer);
  call(qal_timer_stop, &timer);
  call([] {
    QalIdentity identity("/bin/demo");
    identity.setProduct(1);
    identity.setComponent(1);
    identity.setVersion(10, 2, 3, 'b');
    EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Kalmora Client version 10.2.3(b)");
  });
}

enum class Life { any_time, once_per_process };

struct Area {
  const char *name;
  void (*use)(const ScratchDir &);
  Life life = Life::any_time;
};

// The addresses that would be printed without it become part of the name that ctest shows.
void PrintTo(const Area &area, std::ostream *out) { *out << area.name; }

constexpr Area areas[] = {
    {"allocation", &allocate},
    {"blocks", &keep_blocks},
    {"clock", &tell_time},
    {"directories", &resolve_directories, Life::once_per_process},
    {"files", &handle_files},
    {"helpers", &help_programs},
    {"ids", &hand_out_ids, Life::once_per_process},
    {"lists", &use_lists},
    {"listing", &list_directory},
    {"logger", &log},
    {"pairs", &use_pair_tables},
    {"paths", &find_paths},
    {"pipes", &run_commands},
    {"pointer_lists", &use_pointer_lists},
    {"pool", &use_pool},
    {"removal", &remove_tree},
    {"start_up", &start_up, Life::once_per_process},
    {"sweep", &sweep},
    {"system", &ask_system},
    {"tables", &use_tables},
    {"temporary_memory", &use_temporary_memory},
    {"text", &convert_text},
    {"threads", &run_threads, Life::once_per_process},
};

// What the C library sets up at its first use and keeps is no concern of these tests. To look for
// an unknown user, it opens every user database.
void warm_up(const Area &area, const ScratchDir &scratch) {
  char path[1024];
  qal_expand_pathname("~nobody at all", path, sizeof path);
  if (area.life == Life::any_time) area.use(scratch);
  forget_blocks();
}

constexpr char undisturbed[] = "undisturbed";

void use_with_shortage(const Area &area, const ScratchDir &scratch, int nth, Shortage shortage) {
  alarm(60);
  qal_logger_init(nullptr, &drop_line, nullptr, nullptr);
  warm_up(area, scratch);
  const auto before = open_descriptors();
  run_short(nth, shortage);
  area.use(scratch);
  suffice();
  if (refusals() == 0) std::puts(undisturbed);
  EXPECT_EQ(blocks_left(), 0U);
  EXPECT_EQ(open_descriptors(), before);
  if (area.life == Life::any_time) area.use(scratch);
}

struct Points {
  int refused = 0;
  int survived = 0;
};

// One process for each point, until an allocation that never comes is to be refused.
Points refuse_each(const Area &area, const ScratchDir &scratch, Shortage shortage) {
  Points points;
  for (;;) {
    const int nth = points.refused + 1;
    const auto child = run_in_child([&] { use_with_shortage(area, scratch, nth, shortage); });
    const bool passed = child.exited_with(0);
    if (passed && child.out.find(undisturbed) != std::string::npos) return points;
    ++points.refused;
    points.survived += passed;
    EXPECT_TRUE(passed) << "allocation " << nth << "\n" << child.status << child.out << child.err;
    if (points.refused - points.survived > 3) return points;  // enough to see what is wrong
  }
}

class EveryAllocation : public testing::TestWithParam<Area> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(qal::test::memory_can_run_short());
    scratch_.directory("many/d");
    for (int i = 0; i < 260; ++i) {
      char name[64];
      std::snprintf(name, sizeof name, "many/file-number-%03d", i);
      scratch_.file(name);
    }
    scratch_.file("lines", "one\ntwo\n");
  }

  ScratchDir scratch_;
};

TEST_P(EveryAllocation, FailsAsStatedAndLeavesNothingBehind) {
  const Area &area = GetParam();
  Points all;
  for (const Shortage shortage : {Shortage::once, Shortage::lasting}) {
    const Points points = refuse_each(area, scratch_, shortage);
    EXPECT_TRUE(points.refused > 0 || qal::test::under_sanitizer);
    all.refused += points.refused;
    all.survived += points.survived;
  }
  std::printf("%s: %d of %d allocation points survived\n", area.name, all.survived, all.refused);
}

INSTANTIATE_TEST_SUITE_P(Areas, EveryAllocation, testing::ValuesIn(areas),
                         [](const auto &area) { return area.param.name; });

TEST(NoAllocation, IsMadeByWhatIsSaidToNeedNoMemory) {
  ASSERT_TRUE(qal::test::memory_can_run_short());
  const ScratchDir scratch;
  run_short(1, Shortage::lasting);
  do_without_memory(scratch);
  suffice();
  EXPECT_EQ(refusals(), 0);
}

}  // namespace

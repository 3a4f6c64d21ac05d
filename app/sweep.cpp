// The sweep: settles or keeps each server record of a directory.
#include <qal/dir_list.h>
#include <qal/files.h>
#include <qal/status.h>
#include <qal/system.h>
#include <qal/wildcard.h>
#include <sys/stat.h>
#include <unistd.h>
#include <kalmora/sweep.hpp>

#include <cerrno>
#include <cstddef>
#include <new>
#include <string_view>
#include <utility>

#include "internal/file_system.hpp"
#include "internal/handles.hpp"
#include "notify.hpp"
#include "record.hpp"

namespace {

using qal::internal::Descriptor;
using qal::internal::is_same_file;
using qal::internal::join_path;
using qal::internal::Notifier;
using qal::internal::open_any_kind;
using qal::internal::open_any_kind_but_link;
using qal::internal::OwnedText;
using qal::internal::path_room;
using qal::internal::Record;
using qal::internal::RecordStatus;

constexpr char record_pattern[] = "halix_server*.dat";

// The names of the matching plain files, each followed by a newline. Null when the directory cannot
// be listed; the texts that the listing has allocated by then are released too.
OwnedText matching_names(const char *wildcard, int &file_count) {
  char *full_path = nullptr;
  char *directories = nullptr;
  char *files = nullptr;
  int directory_count = 0;
  const int status =
      qal_dir_list(wildcard, &full_path, &directory_count, &directories, &file_count, &files, 0);
  const OwnedText unused[] = {OwnedText{full_path}, OwnedText{directories}};
  OwnedText names{files};
  if (status != QAL_STATUS_OK) names.reset();
  return names;
}

// Whether an entry of `dir` is one of its own records. A file name may hold a newline, which ended
// the name in the list, or a backslash, which has become a slash: such a path may lead anywhere.
bool is_own_record(std::string_view dir, const std::string &path) {
  const std::string_view name = std::string_view{path}.substr(dir.size() + 1);
  if (name.find('/') != std::string_view::npos) return false;
  return zul_fnmatch(reinterpret_cast<const unsigned char *>(record_pattern),
                     reinterpret_cast<const unsigned char *>(name.data())) == QAL_FNM_MATCH;
}

// In a directory where everybody may put a link, another user's link could lead to a file that only
// this user may read. Some kernels refuse to follow such a link, but not all and not everywhere.
bool may_follow(const std::string &path, const struct stat &link) {
  constexpr mode_t shared = S_ISVTX | S_IWOTH;
  struct stat dir;
  if (stat(path.substr(0, path.rfind('/') + 1).c_str(), &dir) != 0) return false;
  return (dir.st_mode & shared) != shared || link.st_uid == geteuid() || link.st_uid == dir.st_uid;
}

// Fails when the link is no longer the one that was checked: the new one may be another user's.
Descriptor open_link(const std::string &path) {
  struct stat link;
  struct stat now;
  if (lstat(path.c_str(), &link) != 0 || !may_follow(path, link)) return Descriptor{};
  Descriptor file = open_any_kind(path.c_str());
  const bool same =
      lstat(path.c_str(), &now) == 0 && is_same_file(now, link) && now.st_uid == link.st_uid;
  return same ? std::move(file) : Descriptor{};
}

Descriptor open_record(const std::string &path) {
  Descriptor file = open_any_kind_but_link(path.c_str());
  const bool is_link = !file && errno == ELOOP;
  return is_link ? open_link(path) : std::move(file);
}

// Deliberate: the record of a process that exists is settled and that of a vanished one is kept.
// Returns whether the record may be deleted.
bool notify_if_owned(const Record &record, Notifier &notifier) {
  if (qal_is_pid_running(record.pid) != QAL_PID_EXISTS) return false;
  return !record.has_all_texts() || notifier.notify(record);
}

void settle(const std::string &path, Notifier &notifier) {
  Descriptor file = open_record(path);
  struct stat info;
  if (!file || fstat(file.get(), &info) != 0) return;
  Record record;
  const RecordStatus status = read_record(file.get(), info, record);
  if (status == RecordStatus::unreadable) return;
  if (status == RecordStatus::whole && !notify_if_owned(record, notifier)) return;
  // Compared while the file is open, so that no new file can have got its inode.
  const bool unchanged = qal::internal::still_means(path.c_str(), info);
  file.close();
  if (unchanged) qal_file_unlink(path.c_str());
}

}  // namespace

std::vector<std::string> find_files(const char *dir, const char *pattern) {
  std::vector<std::string> paths;
  char path[path_room];
  if (!dir || !pattern || !join_path(dir, pattern, path)) return paths;
  int count = 0;
  const OwnedText names = matching_names(path, count);
  if (!names) return paths;
  paths.reserve(static_cast<std::size_t>(count) + 1);
  // Deliberate: the empty piece behind the last newline is an entry too, "dir/".
  for (std::string_view rest = names.get();;) {
    const std::size_t end = rest.find('\n');
    if (join_path(dir, rest.substr(0, end), path)) paths.emplace_back(path);
    if (end == std::string_view::npos) return paths;
    rest.remove_prefix(end + 1);
  }
}

void process_directory(const char *dir) {
  try {
    Notifier notifier;
    for (const std::string &path : find_files(dir, record_pattern)) {
      if (is_own_record(dir, path)) settle(path, notifier);
    }
  } catch (const std::bad_alloc &) {  // GCOV_EXCL_BR_LINE: nothing throws another type
    // Memory is short: the records that are left wait for the next run.
  }
}

// What is known about a file, whether it can be read or written, and reading it line by line.
#include <fcntl.h>
#include <qal/files.h>
#include <qal/logger.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "internal/file_system.hpp"
#include "internal/handles.hpp"
#include "internal/retry.hpp"

namespace {

using qal::internal::Descriptor;
using qal::internal::retry_interrupted;

constexpr unsigned option_bits = 0xff00;

struct Verdict {
  bool usable;
  const char *finding;  // reported after the file's name; null when there is nothing to report
};

const char *wrong_kind(const char *path, unsigned mode) {
  QalStat record;
  if (!(mode & (QAL_CHECK_NOT_DIRECTORY | QAL_CHECK_REGULAR))) return nullptr;
  if (qal_stat(path, &record) != 0) return nullptr;
  if ((mode & QAL_CHECK_NOT_DIRECTORY) && S_ISDIR(record.mode)) return "is a directory.";
  if ((mode & QAL_CHECK_REGULAR) && !S_ISREG(record.mode)) return "is not a regular file.";
  return nullptr;
}

// Creates the file exclusively and removes it only while the name still means it, so that nobody
// else's file is ever removed.
bool can_be_created(const char *path) {
  const Descriptor file{retry_interrupted(
      [path] { return open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); })};
  if (!file) return false;
  struct stat created;
  const bool is_ours =
      fstat(file.get(), &created) == 0 && qal::internal::still_means(path, created);
  if (is_ours) unlink(path);
  return true;
}

Verdict check_writing(const char *path) {
  if (access(path, F_OK) != 0) {
    if (can_be_created(path)) return {true, nullptr};
  } else if (access(path, W_OK) == 0) {
    return {true, "already exists.\n Okaying will overwrite it."};
  }
  return {false, "cannot be created. Permission denied."};
}

Verdict check(const char *path, unsigned mode) {
  if (const char *finding = wrong_kind(path, mode)) return {false, finding};
  if (mode & ~option_bits) return check_writing(path);
  if (access(path, R_OK) == 0) return {true, nullptr};
  return {false, "cannot be read."};
}

int next_character(FILE *stream) {
  for (;;) {
    const int character = std::fgetc(stream);
    if (character != EOF || !std::ferror(stream) || errno != EINTR) return character;
    std::clearerr(stream);
  }
}

// Terminates a line of `length` characters. Returns its length without a carriage return.
int end_line(char *buf, int length) {
  buf[length] = '\0';
  if (length > 0 && buf[length - 1] == '\r') buf[--length] = '\0';
  return length;
}

}  // namespace

int qal_io_chkfil(const char *path, unsigned mode, int verbose) {
  if (!path) path = "";
  const Verdict verdict = check(path, mode);
  if (verbose == QAL_CHECK_VERBOSE && verdict.finding) {
    qal_error("File '%s' %s", path, verdict.finding);
  }
  return verdict.usable ? 1 : 0;
}

int qal_io_get_aline(FILE *stream, int max_chars, char *buf) {
  if (!stream || !buf) return QAL_LINE_END_OF_FILE;
  if (max_chars > 0) buf[0] = '\0';
  for (int length = 0;; ++length) {
    const int character = next_character(stream);
    if (character == EOF && length == 0) return QAL_LINE_END_OF_FILE;
    if (character == EOF || character == '\n') return max_chars < 0 ? 0 : end_line(buf, length);
    if (length >= max_chars) return QAL_LINE_TOO_LONG;
    buf[length] = static_cast<char>(character);
  }
}

int qal_stat(const char *path, QalStat *record) {
  *record = QalStat{};
  struct stat info;
  const int result = stat(path ? path : "", &info);
  if (result != 0) return result;
  record->access_time = static_cast<int64_t>(info.st_atime);
  record->change_time = static_cast<int64_t>(info.st_ctime);
  record->modification_time = static_cast<int64_t>(info.st_mtime);
  record->inode = static_cast<uint64_t>(info.st_ino);
  record->group_id = static_cast<uint32_t>(info.st_gid);
  record->user_id = static_cast<uint32_t>(info.st_uid);
  record->device = static_cast<int32_t>(info.st_dev);
  record->mode = static_cast<uint32_t>(info.st_mode);
  record->link_count = static_cast<uint32_t>(info.st_nlink);
  record->special_device = static_cast<int32_t>(info.st_rdev);
  record->size = static_cast<int64_t>(info.st_size);
  return result;
}

int qal_is_dir(const char *path) {
  QalStat record;
  return qal_stat(path, &record) == 0 && S_ISDIR(record.mode);
}

// Copying, renaming, removing and reading files.
#include <fcntl.h>
#include <qal/files.h>
#include <qal/status.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <string_view>

#include "internal/file_system.hpp"
#include "internal/handles.hpp"
#include "internal/retry.hpp"
#include "platform/platform.hpp"

namespace {

using qal::internal::Descriptor;
using qal::internal::is_same_file;
using qal::internal::retry_interrupted;
namespace platform = qal::internal::platform;

constexpr std::size_t block_size = 16384;

enum class Durability { cached, on_disk };

const char *text_of(const char *path) { return path ? path : ""; }

int status_of(int result) { return result == 0 ? QAL_STATUS_OK : QAL_STATUS_FAILED; }

Descriptor open_source(const char *path) {
  return Descriptor{retry_interrupted([path] { return open(path, O_RDONLY | O_CLOEXEC); })};
}

// Some file systems write a truncated file to the disk as soon as it is closed, so nothing is
// truncated where there is nothing to cut off: in a new file, a device or a pipe.
bool emptied(int file, const struct stat &info) {
  if (!S_ISREG(info.st_mode) || info.st_size == 0) return true;
  return retry_interrupted([file] { return ftruncate(file, 0); }) == 0;
}

// A new file first, as some file systems give all empty files one inode. What exists is opened
// without truncating, because only the open file shows whether it is the source itself.
Descriptor open_destination(const char *path, const struct stat &source) {
  const auto permissions = static_cast<mode_t>(source.st_mode & 0777);
  const auto opened = [path, permissions](int more_flags) {
    return Descriptor{retry_interrupted(
        [=] { return open(path, O_WRONLY | O_CREAT | O_CLOEXEC | more_flags, permissions); })};
  };
  Descriptor file = opened(O_EXCL);
  if (file || errno != EEXIST) return file;
  file = opened(0);
  struct stat info;
  if (!file || fstat(file.get(), &info) != 0) return Descriptor{};
  if (is_same_file(source, info) || !emptied(file.get(), info)) return Descriptor{};
  return file;
}

bool write_whole(int file, std::string_view block) {
  while (!block.empty()) {
    const auto written = retry_interrupted([&] { return write(file, block.data(), block.size()); });
    if (written <= 0) return false;
    block.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool copy_content(int from, int to) {
  platform::copy_in_kernel(from, to);
  std::array<char, block_size> block;
  for (;;) {
    const auto got = retry_interrupted([&] { return read(from, block.data(), block_size); });
    if (got <= 0) return got == 0;
    if (!write_whole(to, {block.data(), static_cast<std::size_t>(got)})) return false;
  }
}

// Whether a file of this kind (a device, a pipe) or on this file system can never be synchronised.
bool has_no_disk(int error) {
  constexpr std::array errors{EINVAL, EROFS, ENOTSUP, EOPNOTSUPP, ENOSYS};
  return std::find(errors.begin(), errors.end(), error) != errors.end();
}

bool reached_disk(int file) {
  return retry_interrupted([file] { return platform::sync_to_disk(file); }) == 0 ||
         has_no_disk(errno);
}

// The name of a new file is on the disk once its directory is. A directory that may be written to
// but not read cannot be synchronised.
bool name_reached_disk(const char *path) {
  const std::size_t name = std::string_view{path}.rfind('/') + 1;  // 0 without a slash
  std::array<char, PATH_MAX> directory{"."};
  std::string_view{path}.copy(directory.data(), std::min(name, directory.size() - 1));
  const Descriptor parent = open_source(directory.data());
  return !parent || reached_disk(parent.get());
}

int copy_file(const char *src, const char *dst, unsigned flags, Durability durability) {
  const Descriptor from = open_source(src);
  if (!from) return QAL_STATUS_NO_SOURCE;
  if ((flags & QAL_COPY_KEEP_EXISTING) && qal::internal::can_be_opened(dst))
    return QAL_STATUS_EXISTS;
  struct stat source;
  if (fstat(from.get(), &source) != 0 || S_ISDIR(source.st_mode)) return QAL_STATUS_FAILED;
  Descriptor to = open_destination(dst, source);
  if (!to) return QAL_STATUS_FAILED;
  const bool copied = copy_content(from.get(), to.get()) &&
                      (durability == Durability::cached || reached_disk(to.get()));
  const bool closed = to.close() == 0;  // where some file systems report a full disk
  return copied && closed ? QAL_STATUS_OK : QAL_STATUS_FAILED;
}

}  // namespace

int qal_file_copy(const char *src, const char *dst, unsigned flags) {
  return copy_file(text_of(src), text_of(dst), flags, Durability::cached);
}

int qal_file_unlink(const char *path) { return status_of(unlink(text_of(path))); }

int qal_file_rename(const char *from, const char *to, unsigned flags) {
  if (!(flags & QAL_RENAME_BY_COPY)) return status_of(std::rename(text_of(from), text_of(to)));
  const int copied =
      copy_file(text_of(from), text_of(to), QAL_COPY_KEEP_EXISTING, Durability::on_disk);
  if (copied != QAL_STATUS_OK) return copied;
  return name_reached_disk(text_of(to)) ? qal_file_unlink(from) : QAL_STATUS_FAILED;
}

uint64_t qal_fread(void *buf, uint64_t item_size, uint64_t count, FILE *stream) {
  std::size_t bytes = 0;
  if (!buf || !stream || __builtin_mul_overflow(item_size, count, &bytes) || bytes == 0) return 0;
  auto *to = static_cast<char *>(buf);
  std::size_t total = 0;
  for (std::size_t chunk = count; chunk > 0 && total < count;) {
    chunk = std::min(chunk, static_cast<std::size_t>(count) - total);
    const std::size_t got = std::fread(to + total * item_size, item_size, chunk, stream);
    total += got;
    if (got == chunk) continue;
    if (std::feof(stream)) break;
    std::clearerr(stream);
    chunk /= 2;
  }
  return total;
}

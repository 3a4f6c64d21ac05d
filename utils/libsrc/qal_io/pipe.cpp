// Shell commands whose input or output is a pipe.
#include <fcntl.h>
#include <qal/pipe.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string_view>
#include <utility>

#include "internal/handles.hpp"
#include "platform/platform.hpp"

namespace {

using qal::internal::Descriptor;
namespace platform = qal::internal::platform;

struct Pipe {
  Descriptor read_end{};
  Descriptor write_end{};

  explicit operator bool() const { return read_end && write_end; }
};

// The child closes the standard descriptors and opens them anew. When the caller had one closed, an
// end of the pipe may have its number, and is moved out of the way.
Descriptor lifted(int end) {
  if (end > STDERR_FILENO) return Descriptor(end);
  const Descriptor low(end);
  return Descriptor(fcntl(end, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

Pipe open_pipe() {
  int ends[2];
  if (!platform::open_pipe(ends)) return {};
  Descriptor read_end = lifted(ends[0]);
  return {std::move(read_end), lifted(ends[1])};
}

// From here on the child calls only what is safe between fork and exec in a process with threads:
// no stdio, no allocation.
void say(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void say_error(std::string_view message) {
  const std::string_view reason = platform::error_text(errno);
  say(message);
  say(": ");
  say(reason);
  say("\n");
}

// `dup` takes the lowest free number, which is not the one just closed if a lower one was closed
// before.
void put_onto(int standard, int end, std::string_view message) {
  close(standard);
  const int copy = dup(end);
  if (copy < 0) return say_error(message);
  if (copy == standard) return;
  dup2(copy, standard);
  close(copy);
}

void become_command(const char *command, bool parent_reads, Pipe &pipe) {
  setpgid(0, 0);
  if (parent_reads) {
    constexpr std::string_view message = "dup() of write side of pipe failed\n";
    put_onto(STDOUT_FILENO, pipe.write_end.get(), message);
    put_onto(STDERR_FILENO, pipe.write_end.get(), message);
  } else {
    put_onto(STDIN_FILENO, pipe.read_end.get(), "dup() of read side of pipe failed\n");
  }
  pipe = Pipe{};
  execlp("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
  say("qal_pipe_popen_id() exec() failed for <");
  say(command);
  say(">\n");
}

std::FILE *stream_of(Descriptor end, const char *mode) {
  std::FILE *const stream = fdopen(end.get(), mode);
  if (stream) end.release();
  return stream;
}

}  // namespace

FILE *qal_pipe_popen_id(const char *command, const char *mode, int *pid_out) {
  if (pid_out) *pid_out = QAL_PIPE_NO_PROCESS;
  if (!command || !mode || !pid_out || (mode[0] != 'r' && mode[0] != 'w')) return nullptr;
  const bool parent_reads = mode[0] == 'r';
  Pipe pipe = open_pipe();
  if (!pipe) return nullptr;
  // In the parent and for both modes: a child that flushed would write the parent's text again.
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t pid = fork();
  *pid_out = pid;
  if (pid < 0) {
    std::fprintf(stderr, "qal_pipe_popen_id() fork() failed for <%s>\n", command);
    return nullptr;
  }
  if (pid == 0) {
    become_command(command, parent_reads, pipe);
    // Deliberate: the child does not end here; it returns to the caller as a failure.
    return nullptr;
  }
  setpgid(pid, pid);  // as the child does: whichever runs first, the group exists from here on
  return stream_of(std::move(parent_reads ? pipe.read_end : pipe.write_end), mode);
}

FILE *qal_pipe_popen(const char *command, const char *mode) {
  // A command started later that inherited the stream would keep this one's input open.
  return command && mode ? platform::open_command(command, mode) : nullptr;
}

int qal_pipe_pclose(FILE *stream) { return stream ? pclose(stream) : -1; }

char *qal_pipe_fgets(char *buffer, uint32_t size, FILE *stream) {
  constexpr std::uint32_t largest = std::numeric_limits<int>::max();
  return std::fgets(buffer, static_cast<int>(std::min(size, largest)), stream);
}

size_t qal_pipe_fread(void *buffer, size_t item_size, size_t count, FILE *stream) {
  return std::fread(buffer, item_size, count, stream);
}

size_t qal_pipe_fwrite(const void *buffer, size_t item_size, size_t count, FILE *stream) {
  return std::fwrite(buffer, item_size, count, stream);
}

int qal_pipe_feof(FILE *stream) { return std::feof(stream); }

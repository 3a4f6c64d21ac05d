// What the library needs from the system beyond POSIX. There is one file for each system: machine_*
// holds the machine's figures and platform_* the rest; machine_posix.cpp serves all systems, and
// confinement_linux.cpp is apart from Linux's rest for its length.
// Where C libraries on Linux differ, c_library_* has one file for the GNU one and one for others.
// Of format_*, the text formatting, there is one file with Foundation and one without. The build
// chooses the files; code never asks which system it runs on.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace qal::internal::platform {

// Machine figures. Those that return bool store their figure only when they return true.
int page_size_bytes();
// The most threads a process may have, or -1 where there is no limit.
int thread_limit();
// On false `errno` says why.
bool physical_memory_bytes(std::uint64_t &bytes);
// The processors that can be used now. On false `errno` says why.
bool processor_count(int &count);
bool processor_packages(int &count);
bool physical_cores(int &count);
bool logical_processors(int &count);
// Memory of this process that is held in RAM.
bool resident_bytes(std::uint64_t &bytes);

// Formats as vsnprintf does: writes at most room - 1 bytes and a terminator, and returns the length
// of the whole text, or a negative value on failure. With Foundation the format may also hold its
// object placeholder.
int format_text(char *out, std::size_t room, const char *format, std::va_list arguments);

// Opens a pipe whose ends are closed on exec. On false nothing is open.
bool open_pipe(int (&ends)[2]);

// Starts a shell command as popen does, with a stream that commands started later do not inherit.
// Where popen itself cannot do this, a command that another thread starts just then may inherit it.
std::FILE *open_command(const char *command, const char *mode);

// The text of an error number. A forked child may call this before exec.
const char *error_text(int error);

// The upper-case mapping of ASCII in the current locale: the system's own table or, where that is
// not accessible, `room`, filled with it.
constexpr int ascii_count = 128;
const int *upper_case_of_ascii(int (&room)[ascii_count]);

// Copies from one open file to another, each from its current position, as far as the system does
// that by itself. It may stop anywhere. The caller reads and writes the rest and sees any error.
void copy_in_kernel(int from, int to);

// Waits until a file's content is on the disk itself, as far as the system lets a program wait for
// it. The result is fsync's.
int sync_to_disk(int file);

// Not 0 while the process has one thread, as far as the system knows: it changes this when a thread
// is started. Always 0 where the system does not say.
extern const char &single_threaded;

// Overwrites a secret, even where the optimiser would leave that out.
void clear_secret(void *secret, std::size_t size);

// Gives up for good, for this thread and those that it starts, as far as the system allows: new
// privileges, and writing, creating, renaming and deleting, except for deleting files below the
// directories. False when nothing but new privileges was given up: the system cannot do it, one of
// the directories cannot be opened, or a call failed.
bool keep_only_deleting_in(const char *const *directories, std::size_t count);

// The name under which the dynamic loader finds libcurl.
const char *curl_library_name();

}  // namespace qal::internal::platform

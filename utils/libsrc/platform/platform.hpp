// What the library needs from the system beyond POSIX: machine_* hold the machine figures, format_*
// the text formatting, platform_* the rest. There is one file for each system, beside
// machine_posix.cpp for all of them; the text formatting goes by whether there is Foundation. The
// build chooses, code never asks which system it runs on.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace qal::internal::platform {

// Machine figures. Those that answer bool store their figure only when they answer true.
int page_size_bytes();
// The most threads a process may have, or -1 where the system names no limit.
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

// Formats as vsnprintf does: at most room - 1 bytes and a terminator, answering the length that the
// whole text has, or a negative value on failure. With Foundation its object placeholder is
// understood too.
int format_text(char *out, std::size_t room, const char *format, std::va_list arguments);

// Opens a pipe whose ends are not passed on to programs. On false nothing is open.
bool open_pipe(int (&ends)[2]);

// What an error number means, from a function that a forked child may call before it execs.
const char *error_text(int error);

// The upper-case mapping of ASCII in the current locale, all of it at once: the system's own table
// or, where it shows none, the filled room.
constexpr int ascii_count = 128;
const int *upper_case_of_ascii(int (&room)[ascii_count]);

// Moves what the system is willing to move by itself from one open file to another, each from where
// it stands on. May stop anywhere: what is left, reading and writing finds, and the reason too.
void copy_in_kernel(int from, int to);

// Overwrites a secret in a way that no optimiser removes.
void clear_secret(void *secret, std::size_t size);

// The name under which the dynamic loader finds libcurl.
const char *curl_library_name();

}  // namespace qal::internal::platform

/** @file
 *  The sweep of server records: settles those whose owner exists and keeps those whose owner is
 *  gone.
 *
 *  A record is a file "halix_server*.dat" that holds a URL, a user name, a password and the id of
 *  the process that owns it, separated by white space. Each field has at most 255 bytes, the id is
 *  an `int`, and all four must be complete within the first MiB. Any other regular file of such a
 *  name is malformed, and so is a FIFO or a character device. Directories, sockets and block
 *  devices are passed over, links to them as well, and so are links that lead nowhere.
 *
 *  To settle a record is to delete it, after its server was notified if need be. What becomes of a
 *  record depends on what qal_is_pid_running() (qal/system.h) returns for its owner:
 *
 *  | record                        | owner          | request                          | file    |
 *  |-------------------------------|----------------|----------------------------------|---------|
 *  | cannot be opened or read      | -              | none                             | kept    |
 *  | malformed                     | -              | none                             | deleted |
 *  | four fields                   | QAL_PID_GONE   | none                             | kept    |
 *  | four fields, no text empty    | QAL_PID_EXISTS | one GET with user and password   | deleted |
 *  | four fields, some text empty  | QAL_PID_EXISTS | none                             | deleted |
 *
 *  A path is at most 1023 bytes; a longer one is left alone, never cut. libcurl is loaded when the
 *  first request is made. While it is missing, each record that needs a request is kept, and
 *  loading is tried again for the next one.
 *
 *  Threads: one sweep at a time, because nothing here is locked. A host that uses libcurl itself
 *  initialises it before the first sweep, because the sweep does so too when it loads libcurl.
 *
 *  Source: app/sweep.cpp, app/record.cpp, app/notify.cpp. */
#ifndef KALMORA_SWEEP_HPP
#define KALMORA_SWEEP_HPP

#include <string>
#include <vector>

/** Lists the files of a directory whose names match a wildcard pattern, and behind them one more
 *  entry, "dir/".
 *
 *  A file is what qal_dir_list() (qal/dir_list.h) counts as one: a regular file, a FIFO, a
 *  character device, or a link to one of these.
 *
 *  @param dir      directory, NUL-terminated; a null pointer gives an empty list. The listing takes
 *                  a leading "~" for a home, but the paths keep it.
 *  @param pattern  as zul_fnmatch() takes it (qal/wildcard.h), matched against names without `dir`;
 *                  a null pointer gives an empty list. Of a pattern with a "/" the part before it
 *                  chooses a directory below `dir`, and is missing in the paths.
 *  @return the paths "dir/name" with every backslash turned into a slash, in the order in which the
 *          system lists them, and the last entry. A name that holds a newline comes as several
 *          entries, and a path that does not fit is left out. Empty when the directory cannot be
 *          listed or when "dir/pattern" does not fit.
 *  @throws std::bad_alloc  when memory is short; nothing leaks. */
std::vector<std::string> find_files(const char *dir, const char *pattern);

/** Goes through the records of one directory, and settles or keeps each as the table above says.
 *
 *  Entries that are not records of this very directory are passed over, such as a name with a
 *  backslash, which leads elsewhere. A record is kept if its name has come to mean another file. A
 *  link is followed, and the link itself is deleted; in a sticky directory that everybody may write
 *  to, a link is left alone unless it belongs to the effective user or to the directory's owner. A
 *  request follows no redirect, uses no proxy, speaks http and https only and takes at most 10
 *  seconds. The time that each request takes beyond its first second is added up; once the sum
 *  reaches 60 seconds in a sweep, each further request has 1 second. How a request ends changes
 *  nothing. The host must ignore SIGPIPE, because a server may hang up while it is written to.
 *
 *  Nothing is printed or thrown. The only failures reported are those of the listing, about entries
 *  that it cannot examine and memory that is short (see qal/dir_list.h).
 *
 *  @param dir  directory, NUL-terminated; "" means "/", and null does nothing. */
void process_directory(const char *dir);

#endif

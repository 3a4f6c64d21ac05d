/** @file
 *  Listing one directory by a wildcard.
 *
 *  A listing takes a path whose last component is a pattern. It lists what the directory before
 *  the pattern holds: every directory, and the other entries whose names match the pattern. Names
 *  come in the system's order, unsorted.
 *
 *  Limits: an expanded pattern and an entry's path have at most 1023 bytes, a name at most 255.
 *  The three texts are the caller's, released with `free`.
 *
 *  Errors: an entry or a directory that is not as expected is reported through qal_error()
 *  (logger.h); the status says what the caller has to know.
 *
 *  Threads: any number may list at once; a relative pattern reads the process's working directory.
 *
 *  Source: utils/libsrc/qal_io/dir_list.cpp. */
#ifndef QAL_DIR_LIST_H
#define QAL_DIR_LIST_H

#include <qal/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Lists the directory part of `pattern`, filtering plain files by its last component.
 *
 *  Every directory is listed whatever the pattern, "." and ".." included, and so are links to
 *  directories, sockets and block devices. All else counts as a file and is listed when
 *  zul_fnmatch() matches its name, also a hidden one. A pattern that ends in "/" lists all files. A
 *  pattern without any "/" is not looked up in the working directory: it gives
 *  QAL_STATUS_NOT_FOUND, as the empty pattern does.
 *
 *  An entry that cannot be examined (a dangling link, a path or name over the limits) is reported
 *  through qal_error() and left out. A listing that succeeds flushes standard output.
 *
 *      char *path, *directories, *files;
 *      int directory_count, file_count;
 *      qal_dir_list("~/records/halix_server*.dat", &path, &directory_count, &directories,
 *                   &file_count, &files, 0);
 *      free(path), free(directories), free(files);
 *
 *  @param pattern         the path, borrowed; a leading "~" or "~user" is expanded.
 *  @param full_path_out   the expanded pattern, made absolute but not normalised.
 *  @param dir_count_out   the number of directories; written on success only.
 *  @param dir_names_out   their names, each followed by a newline, in one text.
 *  @param file_count_out  the number of files; written on success only.
 *  @param file_names_out  their names, in the same form.
 *  @param verbose         not 0: also report a directory of which no entry can be read.
 *  @return QAL_STATUS_OK; QAL_STATUS_INVALID (a null argument, or an expanded pattern over the
 *          limit); QAL_STATUS_NOT_FOUND (no such user or directory, a directory that cannot be
 *          opened, or no working directory, whatever the reason); QAL_STATUS_NO_MEMORY (an
 *          allocation for a result failed, or reading the directory did). After a failure each text
 *          is null, or it holds what had been found and still needs `free`. When an argument for a
 *          result is null, nothing is written. */
QAL_API int qal_dir_list(const char *pattern, char **full_path_out, int *dir_count_out,
                         char **dir_names_out, int *file_count_out, char **file_names_out,
                         int verbose);

#ifdef __cplusplus
}
#endif

#endif

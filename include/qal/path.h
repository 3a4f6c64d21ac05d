/** @file
 *  Pathnames: conversion, normalisation, parts, full paths, home directories, numbered files.
 *
 *  Paths are NUL-terminated byte strings that the caller owns. Both "/" and "\" are separators
 *  where a function does not say otherwise, because the same paths travel between systems. All
 *  functions work on the text alone, except those that say that they ask the system. A function
 *  that works in place never makes its text longer. Sizes are in bytes, the NUL included; a path
 *  that does not fit is a failure and never cut. The two exceptions: qal_get_norm_path() of an
 *  empty path cuts its "." to one byte, and qal_addpath() does not know the size of its text.
 *
 *  Errors: nothing is reported to the logger, except that qal_get_norm_path() and
 *  qal_expand_pathname() allocate through qal_malloc(), which reports its own failures.
 *
 *  Threads: any thread may call. The working directory belongs to the whole process.
 *
 *  Source: utils/libsrc/qal_io/path_convert.cpp, path_norm.cpp, path_parts.cpp, path_full.cpp and
 *  path_range.cpp. */
#ifndef QAL_PATH_H
#define QAL_PATH_H

#include <qal/export.h>
#include <qal/status.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A result of qal_get_norm_path(), qal_get_full_path() and qal_setcwd(). */
enum {
  QAL_PATH_FAILED = -1 /**< the function failed */
};

/** What qal_convert_pathname() does: one of the first two, with any of the others added by "|". */
enum {
  QAL_PATH_TO_SLASH = 0,        /**< every separator becomes "/" */
  QAL_PATH_TO_BACKSLASH = 2,    /**< every separator becomes "\" */
  QAL_PATH_FIX_ILLEGAL = 0x100, /**< characters that file names may not hold become "_" */
  QAL_PATH_COMPACT = 0x200      /**< redundant pieces are removed */
};

/** Converts the separators of a path and, if asked, cleans and compacts it.
 *
 *  The bytes : * ? " < > | are illegal in names; a ":" in second place ends a drive and stays.
 *  Compacting removes "." pieces, a ".." piece together with the piece before it, and repeated
 *  separators. Only pieces between two separators are removed, so a first or a last "." or ".."
 *  stays, and so does a ".." behind a first piece ("a/../b"). Two leading separators stay, three
 *  and more become two; a ".." right behind them removes one of the two: "//../x" becomes "/x". It
 *  is a single pass, so compacting twice can give more than once: "a/x//../b" becomes "a/x/../b".
 *
 *  @param path   converted in place, never made longer; null is allowed and left alone.
 *  @param flags  the settings above. The bits other than 8 to 15 are one number: 2 is
 *                QAL_PATH_TO_BACKSLASH, and any other counts as QAL_PATH_TO_SLASH.
 *  @return QAL_STATUS_OK, always. */
QAL_API int qal_convert_pathname(char *path, uint32_t flags);

/** Normalises a path: slashes only, no repeated ones, and no segments that begin with a dot.
 *
 *  A segment that begins with ".." also removes the nearest one kept before it. All other segments
 *  that begin with a dot are dropped, hidden names such as ".config" included. Exactly two leading
 *  slashes stay; three and more become one. A segment that is not the first of the path has a
 *  slash before it even when all those before it vanished: "./a" gives "/a" and "/x/../y" gives
 *  "//y". When nothing is left the result is ".".
 *
 *  @param path      borrowed; must not overlap `out`.
 *  @param out       the result; caller-owned. Null is allowed with an `out_size` below 1. Must hold
 *                   a text, usually "": a relative result is added to it, and its backslashes
 *                   become slashes.
 *  @param out_size  size of `out`; nothing fits when it is below 1.
 *  @return QAL_STATUS_OK; QAL_PATH_FAILED when `path` is null, begins with "..", leads above its
 *          first segment or has more than 1024 segments, when memory is short, when `out` is null
 *          with an `out_size` of 1 or more, and when the result's size is beyond an `int`; else the
 *          size that `out` needs, which is above 0. It counts a slash for every segment kept, so it
 *          can be one more than the result takes; for a result of "." it is 2, or 1 when `out_size`
 *          is below 1. `out` is untouched unless QAL_STATUS_OK is returned. An empty path gives
 *          QAL_STATUS_OK and a "." that is cut to `out_size`: "" in one byte, nothing when it is
 *          below 1. */
QAL_API int qal_get_norm_path(const char *path, char *out, int out_size);

/** Returns the directory part of a path.
 *
 *  The separator is the backslash if the path holds one, else the slash.
 *
 *  @param path  changed in place: trailing separators are removed, and where the result is `path`
 *               the text is cut at the last separator left. Null is allowed.
 *  @return `path`, or a text that the library owns: "." for a null, empty or blank (" ") path and
 *          where no separator is left; the separator alone where only the first byte is one; two
 *          backslashes where the last backslash is the second byte, whatever the first one is. A
 *          bare slash, backslash or pair of backslashes is returned as it is.
 *  @note   The separator alone is a text of the calling thread, which its next call changes. */
QAL_API const char *qal_dirname(char *path);

/** Returns the last part of a path.
 *
 *  @param path  changed in place: trailing separators, chosen as by qal_dirname(), are removed.
 *               Null is allowed.
 *  @return a place in `path`, or "." for a null, empty or blank (" ") path. A path of slashes only
 *          gives "", but a bare slash, backslash or pair of backslashes is returned as it is. */
QAL_API const char *qal_basename(char *path);

/** Says whether a path is absolute: whether it begins with "/", "~", or an ASCII letter and ":".
 *
 *  @param path  borrowed; null is allowed and not absolute.
 *  @return 1 or 0. A leading "\" alone is not absolute. */
QAL_API int qal_path_is_absolute(const char *path);

/** Puts the working directory before a path that is not absolute; nothing is normalised.
 *
 *  The separator between them is "\" where the working directory holds one, else "/".
 *
 *  @param path      borrowed; must not overlap `out`.
 *  @param out       the result; caller-owned. Null counts as no room.
 *  @param out_size  size of `out`; nothing fits when it is below 1.
 *  @return QAL_STATUS_OK; QAL_PATH_FAILED when `path` is null or empty, when there is no working
 *          directory or it has more than 1023 bytes, and when the result's size is beyond an `int`;
 *          else the size that `out` needs, which is above 0. `out` is untouched unless
 *          QAL_STATUS_OK is returned. */
QAL_API int qal_get_full_path(const char *path, char *out, int out_size);

/** Returns the working directory, exactly as the platform's getcwd() does.
 *
 *  @param buf   receives the path; caller-owned. With null and a `size` of 0 a text of the length
 *               needed is allocated, which the caller releases with free().
 *  @param size  size of `buf` in bytes.
 *  @return `buf` or the new text; null with `errno` set when the path does not fit and on failure,
 *          when what `buf` holds is indeterminate. */
QAL_API char *qal_getcwd(char *buf, size_t size);

/** Changes the working directory of the process, as the platform's chdir() does.
 *
 *  @param path  borrowed; null fails with EFAULT.
 *  @return QAL_STATUS_OK; or QAL_PATH_FAILED with `errno` set, when the working directory is the
 *          one before. */
QAL_API int qal_setcwd(const char *path);

/** Adds a path, given by its components, to a ":"-separated list of paths.
 *
 *      char list[64];
 *      qal_addpath(list, "/opt/a:/opt/b", "home", "lib", (char *)NULL);
 *
 *  makes "/opt/a:/opt/b:home/lib".
 *
 *  @param dst   receives the list; caller-owned and large enough, as nothing checks its size. May
 *               be `base` itself; no component may lie in it. Null is allowed: nothing happens.
 *  @param base  the list so far; borrowed. Null: there is no list yet, and no ":" is written.
 *  @param ...   components, borrowed, ended by a null `char *`; without any, `dst` is `base`.
 *  @return QAL_STATUS_OK, always. */
QAL_API int qal_addpath(char *dst, const char *base, ...);

/** Finds the last dot in the last part of a path.
 *
 *  @param path  borrowed; null is allowed.
 *  @return the dot's place in `path`, or null when there is none. */
QAL_API char *qal_find_dot_in_filename(const char *path);

/** Cuts the extension off: the last dot in the last part of the path, and what follows it.
 *
 *  @param path  changed in place; null is allowed.
 *  @return 1 when something was cut (".profile" becomes ""), else 0. */
QAL_API int qal_remove_ext(char *path);

/** Stands for a number that qal_valid_pathname_range() is to find. */
enum {
  QAL_RANGE_OPEN = -1 /**< begin with the first file, or go on to the last */
};

/** Finds a run of numbered files, such as frame.0000.img to frame.0119.img for "frame.####.img".
 *
 *  The field reaches from the first "#" to the last, at most 9 bytes, and is replaced whole by the
 *  number with leading zeros. A number with more digits than that, or a negative one, has no file.
 *  The last "@" of the template stands for the letter "l". A file exists if it can be opened for
 *  reading.
 *
 *  @param template_path  at most 1023 bytes; borrowed.
 *  @param first  in: the number to begin with, or QAL_RANGE_OPEN for the smallest that has a file.
 *                Out: the number begun with.
 *  @param last   in: the last number to open after `*first`, or QAL_RANGE_OPEN to go on to the
 *                first missing file. Out: the last number before the first missing file, which is
 *                `*first` - 1 if that has no file. If no file is missing, the number passed in, or
 *                for QAL_RANGE_OPEN 10 to the power of the field's width.
 *  @return QAL_STATUS_OK; or QAL_STATUS_INVALID for a null argument, for a template that is too
 *          long or has no "#" or too wide a field, when QAL_RANGE_OPEN finds no file to begin with,
 *          and when `*first` is INT32_MIN. On failure both numbers are untouched.
 *  @note   Opens each file of the run. If the field is in the template's last component, the
 *          smallest number is looked for in the directory, and a file that the directory does not
 *          list under its name is not found. Otherwise the numbers are tried one after another,
 *          unless the directory before the field cannot be opened for a reason that keeps all
 *          files from being opened. */
QAL_API int qal_valid_pathname_range(const char *template_path, int32_t *first, int32_t *last);

/** Replaces a leading "~" or "~name" by the home directory of the current or the named user.
 *
 *  The home directory comes from the password database, that of the current user by the real user
 *  id; HOME is not used. It is always followed by a "/": "~" gives "/home/me/". A backslash is an
 *  ordinary character and stays. Programs that take names with backslashes from users call
 *  expfnam() (kalmora/helpers.hpp), which turns them into slashes, puts nothing behind the home of
 *  a "~" alone, and returns the length of the result.
 *
 *  @param path      borrowed; must not overlap `out`. A path that does not begin with "~" is
 *                   copied.
 *  @param out       the result; caller-owned.
 *  @param out_size  size of `out`, at least 1.
 *  @return QAL_STATUS_OK, QAL_STATUS_INVALID (an argument is null, or `out` is too small) or
 *          QAL_STATUS_NOT_FOUND (no such user). On failure `out` is "", where it has room. */
QAL_API int qal_expand_pathname(const char *path, char *out, int out_size);

/** The kinds of files that qal_file_extension() knows. */
enum {
  QAL_FILE_EXECUTABLE = 0,     /**< executable */
  QAL_FILE_OBJECT = 1,         /**< object file */
  QAL_FILE_STATIC_LIBRARY = 2, /**< static library */
  QAL_FILE_SHARED_LIBRARY = 3  /**< shared library */
};

/** Returns the suffix of a kind of file on a platform, its dot included.
 *
 *  The table is searched from the top for a word that `arch` holds, in lower case and anywhere. The
 *  first one found decides, so "darwin" is Windows.
 *
 *  | word in `arch`          | executable | object | static | shared |
 *  |-------------------------|------------|--------|--------|--------|
 *  | linux sun sgi cpq ibm   | (empty)    | .o     | .a     | .so    |
 *  | hp                      | (empty)    | .o     | .a     | .sl    |
 *  | apple                   | (empty)    | .o     | .a     | .dylib |
 *  | win                     | .exe       | .obj   | .lib   | .dll   |
 *
 *  @param arch  architecture text such as "linux_2.6_64"; borrowed. Null means "apple".
 *  @param kind  one of the kinds above.
 *  @return a constant text, empty for an executable outside Windows; null for any other `kind` and
 *          when no word is found. */
QAL_API const char *qal_file_extension(const char *arch, unsigned kind);

#ifdef __cplusplus
}
#endif

#endif

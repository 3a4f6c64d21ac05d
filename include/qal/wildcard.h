/** @file
 *  Shell-style wildcards over NUL-terminated bytes.
 *
 *  There are two matchers, and they differ on purpose. zul_fnmatch() is small, takes no flags and
 *  is the one that the directory listing applies to file names. qal_fnmatch() knows the rules of
 *  paths and takes flags. Both know `*`, `?`, sets in brackets and the backslash as escape, and
 *  both return 0 for a match as the platform's fnmatch() does. A null argument matches nothing.
 *
 *  Neither allocates or recurses. The time of a call is bounded by the product of the two lengths,
 *  whatever the pattern.
 *
 *  Threads: neither keeps state, so any thread may call them; the case folding of qal_fnmatch()
 *  follows the current locale.
 *
 *  Source: utils/libsrc/qal_wildcard.cpp. */
#ifndef QAL_WILDCARD_H
#define QAL_WILDCARD_H

#include <qal/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Results of both matchers. */
enum {
  QAL_FNM_MATCH = 0,  /**< the name or string matches the pattern */
  QAL_FNM_NOMATCH = 1 /**< it does not */
};

/** Flags of qal_fnmatch(). The numbers are not those of the platform's fnmatch(). */
enum {
  QAL_FNM_PATHNAME = 0x01,      /**< only a slash in the pattern matches a slash */
  QAL_FNM_NOESCAPE = 0x02,      /**< a backslash is an ordinary character */
  QAL_FNM_PERIOD = 0x04,        /**< `?` and `*` do not match a leading dot */
  QAL_FNM_LEADING_DIR = 0x08,   /**< the pattern may end where the string goes on with a slash */
  QAL_FNM_CASEFOLD = 0x10,      /**< letters match without regard to case */
  QAL_FNM_TRAILING_SLASH = 0x20 /**< a string may lack the slash that its pattern ends with */
};

/** Matches a file name against a pattern, without flags.
 *
 *  `*` and `?` match every byte, `/` and a leading `.` included. Letters match exactly. In a set,
 *  `^` or `!` in front negates, a `]` in first place is a member, and ranges compare signed bytes:
 *  those above 0x7F come before the others. A backslash makes the next byte literal, inside a set
 *  too. A backslash at the end of the pattern and a set that is never closed match nothing.
 *
 *  @param pattern  the pattern; borrowed.
 *  @param name     the name; borrowed. A name of 1024 bytes or more matches no pattern.
 *  @return QAL_FNM_MATCH or QAL_FNM_NOMATCH. */
QAL_API int zul_fnmatch(const unsigned char *pattern, const unsigned char *name);

/** Matches a string, such as a path, against a pattern.
 *
 *  Apart from the flags it differs from zul_fnmatch() in four ways: a string may have any length; a
 *  `]` right after the opening bracket or its negation closes the set at once (an empty set matches
 *  nothing, a negated one every byte that sets can match); ranges compare unsigned bytes; a
 *  backslash at the end of the pattern is literal.
 *
 *  A `*` searches unless the pattern ends with it or, with QAL_FNM_PATHNAME, a `/` follows it.
 *  QAL_FNM_PERIOD protects a `.` at the start of the string and, with QAL_FNM_PATHNAME, after a
 *  `/`, but not from sets, and not behind the first `*` that searches. QAL_FNM_CASEFOLD folds ASCII
 *  letters in sets, and what the locale calls letters elsewhere. With QAL_FNM_TRAILING_SLASH a
 *  non-empty string matches if it ends where the pattern has a literal `/`, and the string "/" if
 *  it ends where the pattern has any literal; the rest of the pattern is ignored. Behind a `*` that
 *  searches, this holds for the rest of the string after the part that the `*` matched.
 *
 *  @param pattern  the pattern; borrowed.
 *  @param string   the string, of any length; borrowed.
 *  @param flags    any union of the QAL_FNM flags; other bits are ignored.
 *  @return QAL_FNM_MATCH or QAL_FNM_NOMATCH. */
QAL_API int qal_fnmatch(const unsigned char *pattern, const char *string, unsigned flags);

/** The same as qal_fnmatch(): in spite of its name it does not add QAL_FNM_PATHNAME.
 *
 *  @param pattern  the pattern; borrowed.
 *  @param string   the string; borrowed.
 *  @param flags    any union of the QAL_FNM flags; other bits are ignored.
 *  @return QAL_FNM_MATCH or QAL_FNM_NOMATCH. */
QAL_API int qal_fnmatch_pathnames(const unsigned char *pattern, const char *string, unsigned flags);

#ifdef __cplusplus
}
#endif

#endif

/** @file
 *  Byte strings: character classes, copies that always end, replacement in place, search without
 *  case, trimming, and a bounded print that says when it had to cut.
 *
 *  Every text is a string of bytes that ends with a NUL and belongs to the caller. A pointer may be
 *  null only where its function says so. Sizes count bytes and include the terminator. Nothing here
 *  allocates, but the C library may for an unusual conversion of qal_snprintf().
 *
 *  The platform's classes, upper case and lower case are those of the locale that the program has
 *  set; the library itself never sets one.
 *
 *  Threads: no function keeps state, so any thread may call any of them on texts of its own.
 *
 *  Source: utils/libsrc/qal_text_class.cpp (classes), utils/libsrc/qal_text.cpp (the rest). */
#ifndef QAL_TEXT_H
#define QAL_TEXT_H

#include <qal/export.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** @name Character classes
 *  Each returns exactly 1 or 0. */
/**@{*/

/** Says whether bit 7 of the byte is clear, whatever the locale.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isascii(int c);

/** Says whether the byte is a tab or a space, whatever the locale.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isblank(int c);

/** Says whether the byte is one of 0 to 9, whatever the locale.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isdigit(int c);

/** Says whether the byte is one of 0-9, a-f, A-F, whatever the locale.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isxdigit(int c);

/** Says whether the byte is of the platform's upper-case or lower-case class. The letters without
 *  case that some locales have do not count.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isalpha(int c);

/** Says whether the byte is a letter as by qal_isalpha(), or one of 0 to 9.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isalnum(int c);

/** Says whether the byte is of the platform's control class.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_iscntrl(int c);

/** Says whether the byte is of the platform's visible class.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isgraph(int c);

/** Says whether the byte is of the platform's lower-case class.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_islower(int c);

/** Says whether the byte is of the platform's printable class.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isprint(int c);

/** Says whether the byte is of the platform's punctuation class.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_ispunct(int c);

/** Says whether the byte is of the platform's space class.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isspace(int c);

/** Says whether the byte is of the platform's upper-case class.
 *
 *  @param c  any number, of which the low byte counts.
 *  @return 1 if it is, else 0. */
QAL_API int qal_isupper(int c);
/**@}*/

/** Copies a text into a buffer, cut to fit, and fills the rest of the buffer with NUL.
 *
 *  @param dst   receives the copy; `size` bytes, all of them are written.
 *  @param src   text to copy; may overlap `dst`. At most `size` - 1 bytes of it are read.
 *  @param size  size of `dst`, at least 1. Below 1 nothing is written.
 *  @return `dst`. That a text was cut is not reported. */
QAL_API char *qal_strncpy(char *dst, const char *src, int size);

/** Appends a text to the text in a buffer, cut to fit, and fills the rest with NUL.
 *
 *  @param dst   buffer of `size` bytes that holds a text shorter than `size`.
 *  @param src   text to append; may overlap `dst`.
 *  @param size  size of the whole buffer, not of the room left. When the text in `dst` leaves no
 *               room nothing is written.
 *  @return where the appended part begins: the old end of the text, not `dst`. */
QAL_API char *qal_strncat(char *dst, const char *src, unsigned size);

/** Finds the first place of a character in a text, its terminator included.
 *
 *  @param string     text to search.
 *  @param character  what to find, taken as a `char`; 0 finds the terminator.
 *  @return the place in `string`, or null. */
QAL_API char *qal_strchr(const char *string, int character);

/** Finds the last place of a character in a text, its terminator included.
 *
 *  @param string     text to search.
 *  @param character  what to find, taken as a `char`; 0 finds the terminator.
 *  @return the place in `string`, or null. */
QAL_API char *qal_strrchr(const char *string, int character);

/** Returns the upper-case form of a character.
 *
 *  @param character  any number.
 *  @return the platform's upper-case form of a character below 128; any other comes back
 *          unchanged. */
QAL_API unsigned qal_toupper(unsigned character);

/** Returns the lower-case form of a character.
 *
 *  @param character  any number.
 *  @return the platform's lower-case form of a character below 128; any other comes back
 *          unchanged. */
QAL_API unsigned qal_tolower(unsigned character);

/** Finds a text in another without regard to case.
 *
 *  Bytes below 128 are compared in the platform's upper case, all others exactly. A locale may
 *  give a letter an upper case of 128 or more. The work is at most the product of both
 *  lengths, and close to the length of `haystack` for ordinary text.
 *
 *  @param haystack  text to search.
 *  @param needle    text to find.
 *  @return the first place in `haystack` where the whole of `needle` stands, or null. An empty
 *          `needle` gives null, unlike the platform's strstr(). */
QAL_API char *qal_strcasestr(const char *haystack, const char *needle);

/** Modes of qal_changecase(). Only ASCII letters change case, whatever the locale. */
enum {
  QAL_CASE_UPPER = 0,     /**< a-z to upper case */
  QAL_CASE_LOWER = 1,     /**< A-Z to lower case */
  QAL_CASE_SEVEN_BITS = 2 /**< clears bit 7 of every byte; a byte 0x80 thus ends the text */
};

/** Changes the case of a text in place, or forces it to seven bits.
 *
 *  @param string  text to change.
 *  @param mode    one of the modes above; any other changes nothing. */
QAL_API void qal_changecase(char *string, int mode);

/** Flags of qal_strrepl(). */
enum {
  QAL_REPLACE_ALL = 0,    /**< replace every occurrence */
  QAL_REPLACE_FIRST = 0x1 /**< stop after the first replacement */
};

/** Replaces the occurrences of one text by another, in place and from left to right.
 *
 *  What was put in is not searched again, so a replacement may contain `find`. The time is linear
 *  in the lengths of the old and the new text.
 *
 *  @param string       text to change. Its buffer must have room for the result: no size is passed
 *                      and none is checked.
 *  @param find         what to replace; null or empty finds nothing. Must not lie in `string`.
 *  @param replacement  what to put in its place; null counts as empty. Must not lie in `string`.
 *  @param flags        QAL_REPLACE_ALL or QAL_REPLACE_FIRST. Other bits are ignored.
 *  @return the number of replacements; with 0 the text is as it was. */
QAL_API int qal_strrepl(char *string, const char *find, const char *replacement, int flags);

/** Cuts a text at the first character that belongs to a set.
 *
 *  @param string  text to cut; every byte from the cut to its old end becomes NUL.
 *  @param set     the characters to cut at; empty cuts nothing.
 *  @return the length that is left. */
QAL_API int qal_strip_at_the_chars(char *string, const char *set);

/** Copies a text without the leading and trailing occurrences of one byte.
 *
 *  @param src        text to copy.
 *  @param dst        receives the copy; strlen(src) + 1 bytes. May be `src` or overlap it.
 *  @param character  the byte to leave out; only its low byte counts.
 *  @return the length written; 0, with `dst` empty, when nothing else was in `src`. */
QAL_API int qal_strip_pre_post_chars(const char *src, char *dst, int character);

/** Copies a text without its leading and trailing bytes of the platform's space class.
 *
 *  @param src  text to copy.
 *  @param dst  receives the copy; strlen(src) + 1 bytes. May be `src` or overlap it.
 *  @return the length written; 0, with `dst` empty, when only spaces were in `src`. */
QAL_API int qal_strip_pre_post_spaces(const char *src, char *dst);

/** Results of qal_snprintf(). */
enum {
  QAL_SNPRINTF_WHOLE = 0,    /**< the whole output is in the buffer */
  QAL_SNPRINTF_NOT_WHOLE = 1 /**< the output was cut, or counts as failed */
};

/** Prints into a buffer and says whether all of it fitted.
 *
 *  What the buffer held before matters in one case: empty output into a buffer of 2 bytes or more
 *  that held no NUL behind its first byte counts as failed.
 *
 *  @param buffer  receives the text; null gives QAL_SNPRINTF_NOT_WHOLE.
 *  @param size    size of `buffer`; 0 gives QAL_SNPRINTF_NOT_WHOLE and nothing is written.
 *  @param format  as for printf(), but without "%n", at which a C library that checks may end the
 *                 process.
 *  @param ...     the arguments of `format`.
 *  @return QAL_SNPRINTF_WHOLE; or QAL_SNPRINTF_NOT_WHOLE when the output was cut, when formatting
 *          failed or in the case above: the last byte of `buffer` is then NUL. */
QAL_API int qal_snprintf(char *buffer, size_t size, const char *format, ...) QAL_PRINTF(3, 4);

#ifdef __cplusplus
}
#endif

#endif

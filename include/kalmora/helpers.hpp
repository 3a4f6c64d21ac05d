/** @file
 *  What every program of the family needs and the foundation library does not have: tilde expansion
 *  and other file helpers, names and version texts, a repeatable random generator, tolerances.
 *  C++ only.
 *
 *  Limits, in bytes: an expanded home path 1023, a part name 80, the saved shell command 1023.
 *  Texts are NUL-terminated and borrowed for the call; buffers belong to the caller, and what a
 *  function allocates is released with the C library's free() or with our_freenamelist().
 *
 *  Errors: failures are negative numbers with names of their own, not status codes. No function
 *  reports anything, but the allocator does (see qal/alloc.h) when memory for a user's
 *  password entry is short.
 *
 *  Threads: only change_rsh() keeps state, and one thread at a time may call it. our_tempdir()
 *  reads the environment, which no thread may change meanwhile.
 *
 *  Source: app/helpers_file.cpp, app/helpers_number.cpp, app/helpers_text.cpp. */
#ifndef KALMORA_HELPERS_HPP
#define KALMORA_HELPERS_HPP

#include <dirent.h>
#include <stdint.h>

/** A result of our_tempdir(), file_getlinecount() and our_scandir(). */
enum {
  KALMORA_FAILED = -1 /**< the function failed */
};

/** Failures of expfnam(). */
enum {
  KALMORA_NAME_UNKNOWN = -1, /**< there is no name, or no such user */
  KALMORA_NAME_TOO_LONG = -2 /**< the result is too long */
};

/** Expands a leading "~" or "~user" to that user's home and turns every "\" into "/".
 *
 *  The home comes from the password database: of `user`, or of the real user id for "~" alone. The
 *  user part ends at the first "/"; a backslash is part of it. Names without a "~" in front are
 *  copied. This is for names that users give to programs; qal_expand_pathname() (qal/path.h) leaves
 *  backslashes alone, puts a "/" behind every home and returns a status.
 *
 *  @param name      the name; null or empty is a failure.
 *  @param length    how many of its bytes count; more than it has means all, below 0 means 0.
 *  @param out       receives the result; null counts as no capacity. Must not overlap `name`.
 *  @param capacity  size of `out` in bytes; the result is shorter than this. Below 1 nothing is
 *                   written, and the result is KALMORA_NAME_TOO_LONG for every name but null.
 *  @return the result's length; KALMORA_NAME_UNKNOWN for a null or empty name or an unknown user
 *          (the password database may be unreadable, or memory short); KALMORA_NAME_TOO_LONG when
 *          the result does not fit `capacity`, or home and rest together exceed 1023 bytes. On
 *          failure `out` is empty. */
int expfnam(const char *name, int length, char *out, int capacity);

/** Names the directory for temporary files: TMPDIR when it is set (even to nothing), else the
 *  first of "/tmp" and "/usr/tmp" that is writable.
 *
 *  @param out       receives the directory and a "/"; may be null.
 *  @param capacity  size of `out` in bytes. Nothing is written unless it exceeds the directory's
 *                   length by more than 2.
 *  @return the directory's length plus 1, written or not; KALMORA_FAILED when there is no such
 *          directory. */
int our_tempdir(char *out, int capacity);

/** Counts the lines of a text file that are not empty.
 *
 *  @param path  the file, expanded as by expfnam() to fewer than 499 bytes.
 *  @return the number of non-empty lines, the last one with or without its line feed, at most
 *          INT_MAX; 0 for a directory, or a file that begins with a line feed; KALMORA_FAILED when
 *          the name is null, empty or cannot be expanded, or the file cannot be opened. */
int file_getlinecount(const char *path);

/** Replaces by "_" what a sanitised name must not hold: space and ! " # $ ' ( ) * + , - . / : < >
 *  ? @ [ \ ] ^ |
 *
 *  @param name  changed in place; null counts as empty.
 *  @return 1 when the name was changed, else 0. */
int replace_illegal(char *name);

/** Orders two names without regard to spaces and letter case.
 *
 *  @param a  the first name, of at most 80 bytes.
 *  @param b  the second name, of at most 80 bytes.
 *  @return less than, equal to or greater than 0, as strcasecmp() returns it for the names without
 *          spaces; 1 when either name is null or longer. */
int readercmp(const char *a, const char *b);

/** Copies a text in lower case. Bytes below 128 follow the current locale, others are kept.
 *
 *  @param text  the text; null is allowed.
 *  @return the copy, which the caller releases with free(); null when `text` is or memory is
 *          short. */
char *lower_case(const char *text);

/** Modes of change_rsh(). */
enum {
  KALMORA_RSH_GET = 0, /**< copies the stored command to `text` */
  KALMORA_RSH_SET = 1  /**< stores `text` */
};

/** Keeps one shell command for the process.
 *
 *  @param text  to set, the command, cut to 1023 bytes; to get, a buffer with room for what is
 *               stored, at most 1024 bytes. Null changes nothing.
 *  @param mode  one of the modes above; any other does nothing.
 *  @return with KALMORA_RSH_SET the stored text, also for a null `text`: it stays valid, is not to
 *          be freed, and changes when another is stored. With any other mode `text`. */
char *change_rsh(char *text, int mode);

/** Names of parts: `count` buffers of at least 81 bytes each, owned by the caller. */
struct FILE_PART_LIST {
  int count;    /**< buffers */
  char **names; /**< their addresses */
};

/** Sorts the names of a list ascending by their bytes. The buffers stay where they are, their
 *  contents move; a name of more than 80 bytes that has to move is cut to 80.
 *
 *  @param list  the list; nothing happens when it or its `names` is null or when it has fewer than
 *               two. */
void sort_master_part_list(FILE_PART_LIST *list);

/** Reads a version text "major.minor.patch(letter)".
 *
 *  A number is 0 when the character that ends it is missing, and is clamped to the range of `int`.
 *  The letter is the one after the first "("; in the form "(1-b)" it is the one after the hyphen.
 *
 *  @param text    the version; null counts as empty.
 *  @param major   receives the number in front of the first dot; may be null.
 *  @param minor   receives the number in front of the second dot; may be null.
 *  @param patch   receives the number between that and the "(" behind it; may be null.
 *  @param letter  receives the letter, "a" when there is none; may be null. */
void version_number_from_version_string(const char *text, int *major, int *minor, int *patch,
                                        char *letter);

/** What sub_string_in_string() stores instead of a position. */
enum {
  KALMORA_NO_MATCH = -1 /**< the part does not occur */
};

/** Finds the first place where one text occurs in another.
 *
 *  @param text   the text to search; null matches nothing.
 *  @param part   the text to find; null matches nothing, and an empty one at 0.
 *  @param first  receives the position of the match's first byte, from 0, or KALMORA_NO_MATCH; may
 *                be null.
 *  @param last   receives the position of the match's last byte, -1 for an empty `part`, or
 *                KALMORA_NO_MATCH; may be null. */
void sub_string_in_string(const char *text, const char *part, int *first, int *last);

/** Draws the next number of a repeatable sequence: minimal standard generator, modulus 2^31 - 1,
 *  multiplier 69621.
 *
 *  @param seed  the state, not null; updated. Start with any number from 0 to 2^31 - 1 except
 *               123495867 and 2023987780, which give 0 for ever. With a seed outside that range the
 *               first numbers may lie outside 0 to 1.
 *  @return a number from 0 to 1, which the 64 largest states round up to. */
float erand0(int64_t *seed);

/** Returns how far apart values that count as equal may lie: the size of the last mantissa bits.
 *
 *  Let 2^e be the largest power of 2 that does not exceed |value|, with e at least -126. Then the
 *  tolerance is (2^digits - 1) * 2^(e - 23): for 1 and 1 digit 2^-23, which is about 1.2e-7. With a
 *  factor above 1, the largest power of 2 in the tolerance, 2^k, is replaced by 2^(k / factor), the
 *  quotient truncated: a factor of 2 turns 2^-23 into 2^-11. A tolerance below 2^-126 becomes about
 *  2^(-127 / factor).
 *
 *  @param value   where on the number line; its sign is the result's sign.
 *  @param digits  how many low mantissa bits count, clamped to 1 to 8.
 *  @param factor  1 and below leave the tolerance; above, it is drawn towards 1.
 *  @return the tolerance; without a factor above 1, not a number for an infinite `value` and for
 *          one that is not a number. */
float kal_flt_tolerance(float value, int digits, int factor);

/** Returns how far apart values that count as equal may lie, as kal_flt_tolerance() does, in double
 *  precision: with e - 52 in place of e - 23, -1022 in place of -126 and -1023 in place of -127.
 *
 *  @param value   where on the number line; its sign is the result's sign.
 *  @param digits  how many low mantissa bits count, clamped to 1 to 8.
 *  @param factor  1 and below leave the tolerance; above, it is drawn towards 1.
 *  @return the tolerance, as kal_flt_tolerance() returns it. */
double kal_dbl_tolerance(double value, int digits, int factor);

/** Returns the absolute value.
 *
 *  @param x  any value.
 *  @return the absolute value; one that is not below zero comes back as it is, negative zero and
 *          NaN included. */
float our_fabsf(float x);

/** Returns the absolute value in double precision.
 *
 *  @param x  any value.
 *  @return the absolute value, as our_fabsf() returns it. */
double our_fabsd(double x);

/** Subtracts two 32-bit integers, for sorting.
 *
 *  @param a  the address of the first, not null, of any alignment; borrowed.
 *  @param b  the address of the second, not null, of any alignment; borrowed.
 *  @return the first minus the second. The difference wraps around, so numbers more than 2^31 - 1
 *          apart come in the wrong order. */
int numcompar(const void *a, const void *b);

/** Says whether a value lies in a range, both ends included.
 *
 *  @param x     the value.
 *  @param low   the lower end.
 *  @param high  the upper end; below `low` the range is empty.
 *  @return 1 or 0; 0 when one of the three is NaN. */
int in_range(float x, float low, float high);

/** Releases a list and every text or entry in it.
 *
 *  @param list  a null-terminated array of allocated blocks, itself allocated; null is ignored. */
void our_freenamelist(void *list);

/** Reads a directory, "." and ".." included.
 *
 *  @param directory  the path; null is a failure.
 *  @param list       receives a null-terminated array, which the caller releases with
 *                    our_freenamelist(), or null on failure. An entry has its inode, record length
 *                    and name; everything else is zero. A null `list` is a failure.
 *  @param keep       returns 0 for the entries to leave out; null keeps all.
 *  @param compare    orders the entries in a stable sort; the order need not be consistent. Null
 *                    leaves them in the directory's own order.
 *  @return the number of entries; KALMORA_FAILED when the directory cannot be read or memory is
 *          short. */
int our_scandir(const char *directory, struct dirent ***list, int (*keep)(const struct dirent *),
                int (*compare)(const struct dirent **, const struct dirent **));

/** Modes of remote_fileio(), and a flag for writing. */
enum {
  KALMORA_FILE_READ = 0,    /**< reads a piece of the file */
  KALMORA_FILE_WRITE = 1,   /**< writes a piece of the file, which is made empty first */
  KALMORA_FILE_SIZE = 2,    /**< finds out the size of the file */
  KALMORA_FILE_KEEP = 0x100 /**< with KALMORA_FILE_WRITE: the file must exist and is not emptied */
};

/** Results of remote_fileio(). */
enum {
  KALMORA_FILE_OK = 0,              /**< success */
  KALMORA_FILE_INVALID = -1,        /**< the path is null, or there is no such mode */
  KALMORA_FILE_CANNOT_OPEN = -2,    /**< the file cannot be opened */
  KALMORA_FILE_CANNOT_TRANSFER = -3 /**< the piece is not sound, or was not moved whole */
};

/** Reads or writes a piece of a file, or finds out its size.
 *
 *  @param path      the file, used as it is; null is a failure. A directory has no size that means
 *                   anything.
 *  @param flags     one of the modes in the low 8 bits, and KALMORA_FILE_KEEP if wanted.
 *  @param origin    SEEK_SET, SEEK_CUR or SEEK_END; not used for the size.
 *  @param offset    where the piece begins, counted in bytes from `origin`.
 *  @param count     its length in bytes; 0 only positions. Not used for the size.
 *  @param buffer    the piece; may be null when `count` is 0.
 *  @param position  receives the position after the piece, the file's size for KALMORA_FILE_SIZE,
 *                   and 0 on failure; may be null.
 *  @return KALMORA_FILE_OK, when what was written has reached the system; KALMORA_FILE_INVALID for
 *          a null path or any other mode; KALMORA_FILE_CANNOT_OPEN; KALMORA_FILE_CANNOT_TRANSFER
 *          for a bad origin, a count below 0 and a missing buffer (the file is then left alone),
 *          and for a position that cannot be reached and a piece that cannot be moved whole. */
int remote_fileio(const char *path, int flags, int origin, int64_t offset, int64_t count,
                  void *buffer, int64_t *position);

#endif

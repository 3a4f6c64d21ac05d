/** @file
 *  Marks what the library exports and what the compiler can check about it.
 *
 *  The library is built with hidden symbols; a function or variable marked QAL_API is part of its
 *  interface, everything else is not. QAL_PRINTF names the positions of a format and of its first
 *  argument, counted from 1, so that calls are checked as calls of printf are. */
#ifndef QAL_EXPORT_H
#define QAL_EXPORT_H

/** Exports a function, a variable or a class. */
#define QAL_API __attribute__((visibility("default")))
/** Has calls checked as calls of printf. */
#define QAL_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))

#endif

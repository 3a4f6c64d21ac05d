/** @file
 *  The status codes that the library's functions return. */
#ifndef QAL_STATUS_H
#define QAL_STATUS_H

/** The codes that areas share. A function that returns other numbers has names for them in its own
 *  header. */
enum {
  QAL_STATUS_OK = 0,         /**< success */
  QAL_STATUS_NO_MEMORY = 2,  /**< an allocation failed, or a directory could not be read */
  QAL_STATUS_NO_ID = 4,      /**< no such unique id */
  QAL_STATUS_NO_THREADS = 5, /**< the thread layer did not start */
  QAL_STATUS_INVALID = 6,    /**< an argument is null, out of range or does not fit */
  QAL_STATUS_FAILED = 7,     /**< the operation failed */
  QAL_STATUS_NOT_FOUND = 8,  /**< no such user, file or directory */
  QAL_STATUS_EXISTS = 10,    /**< the destination exists and was not to be replaced */
  QAL_STATUS_NO_SOURCE = 11  /**< the source cannot be opened */
};

#endif

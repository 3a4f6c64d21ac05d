/* Gives every exported function to a pointer of exactly the promised type: a prototype that drifts
 * no longer compiles, a function that is missing no longer links. Each constant has its number
 * here. */
#include <assert.h>
#include <qal/qal.h>
#include <stdio.h>
#include <string.h>

static int named = 0;

#define HAS(result, function, ...)                      \
  do {                                                  \
    result (*volatile address)(__VA_ARGS__) = function; \
    named += address != NULL;                           \
  } while (0)

static void startup(void) {
  HAS(int, qal_utils_init, void);
  HAS(int, qal_utils_done, void);
  HAS(int, qal_utils_set_cachedir, const char *);
  HAS(const char *, qal_utils_get_cachedir, void);
}

static void logger(void) {
  HAS(void, qal_logger_init, void *, QalLoggerFunc, void *, QalLoggerFunc);
  HAS(void, qal_logger_done, void);
  HAS(void, qal_logger_time_stamp, int);
  HAS(void, qal_info, const char *, ...);
  HAS(void, qal_warn, const char *, ...);
  HAS(void, qal_error, const char *, ...);
  HAS(void, qal_fatal, const char *, ...);
  HAS(void, qal_abort, const char *, ...);
  HAS(void, qal_log, const char *, ...);
  HAS(void, qal_debug, const char *, ...);
  HAS(void, qal_stop_here, void);
  HAS(void, _qal_logger_func, void *, const char *, ...);
  HAS(FILE *, _qal_logger_set_file, const char *);
  HAS(FILE *, _qal_logger_get_file, void);
  HAS(char *, qal_scrub_format_string, const char *);
  HAS(void, update_windows_console, int);
  HAS(void, nsstring_vsprintf, char *, const char *, va_list);
  Verbose_level = 0;
}

static void clocks(void) {
  HAS(void, qal_time_get, QalTime *);
  HAS(double, qal_time_get_s, void);
  HAS(int, qal_date_get, int *);
  HAS(int, qal_date_get_string, char *, int);
  HAS(void, qal_timer_new, int *);
  HAS(void, qal_timer_start, const int *);
  HAS(void, qal_timer_stop, const int *);
  HAS(void, qal_timer_clear, const int *);
  HAS(void, qal_timer_print, const int *);
  HAS(float, qal_timer_elapsed, const int *);
}

static void text(void) {
  HAS(int, qal_isascii, int);
  HAS(int, qal_isblank, int);
  HAS(int, qal_isdigit, int);
  HAS(int, qal_isalnum, int);
  HAS(int, qal_isalpha, int);
  HAS(int, qal_iscntrl, int);
  HAS(int, qal_isgraph, int);
  HAS(int, qal_islower, int);
  HAS(int, qal_isprint, int);
  HAS(int, qal_ispunct, int);
  HAS(int, qal_isspace, int);
  HAS(int, qal_isupper, int);
  HAS(int, qal_isxdigit, int);
  HAS(char *, qal_strncpy, char *, const char *, int);
  HAS(char *, qal_strncat, char *, const char *, unsigned);
  HAS(char *, qal_strchr, const char *, int);
  HAS(char *, qal_strrchr, const char *, int);
  HAS(unsigned, qal_toupper, unsigned);
  HAS(unsigned, qal_tolower, unsigned);
  HAS(char *, qal_strcasestr, const char *, const char *);
  HAS(void, qal_changecase, char *, int);
  HAS(int, qal_strrepl, char *, const char *, const char *, int);
  HAS(int, qal_strip_at_the_chars, char *, const char *);
  HAS(int, qal_strip_pre_post_chars, const char *, char *, int);
  HAS(int, qal_strip_pre_post_spaces, const char *, char *);
  HAS(int, qal_snprintf, char *, size_t, const char *, ...);
}

static void memory(void) {
  HAS(void, qal_malloc, const char *, void *, uint64_t, int, const char *);
  HAS(void, qal_realloc, const char *, void *, int64_t, int, const char *);
  HAS(void, qal_free, void *, int, const char *);
  HAS(void *, qal_temp_mem_alloc, int64_t);
  HAS(int, qal_temp_mem_release, void *);
  HAS(void *, qal_temp_mem_resize, void *, int64_t);
  HAS(int, qal_temp_mem_free, void *);
  HAS(int, qal_temp_mem_free_all_avail, void);
  HAS(int, qal_temp_mem_free_all, void);
  HAS(void, qal_temp_mem_display, void);
  named += Tmem_InUse == NULL && Tmem_Avail == NULL;

  char *block = NULL;
  QAL_MALLOC("c11_surface", block, 16);
  QAL_REALLOC("c11_surface", block, 32);
  named += block != NULL;
  QAL_FREE(block);
}

static void paths(void) {
  HAS(int, qal_convert_pathname, char *, uint32_t);
  HAS(int, qal_get_norm_path, const char *, char *, int);
  HAS(const char *, qal_dirname, char *);
  HAS(const char *, qal_basename, char *);
  HAS(int, qal_path_is_absolute, const char *);
  HAS(int, qal_get_full_path, const char *, char *, int);
  HAS(char *, qal_getcwd, char *, size_t);
  HAS(int, qal_setcwd, const char *);
  HAS(int, qal_addpath, char *, const char *, ...);
  HAS(char *, qal_find_dot_in_filename, const char *);
  HAS(int, qal_remove_ext, char *);
  HAS(int, qal_valid_pathname_range, const char *, int32_t *, int32_t *);
  HAS(int, qal_expand_pathname, const char *, char *, int);
  HAS(const char *, qal_file_extension, const char *, unsigned);
}

static void files(void) {
  HAS(int, zul_fnmatch, const unsigned char *, const unsigned char *);
  HAS(int, qal_fnmatch, const unsigned char *, const char *, unsigned);
  HAS(int, qal_fnmatch_pathnames, const unsigned char *, const char *, unsigned);
  HAS(int, qal_dir_list, const char *, char **, int *, char **, int *, char **, int);
  HAS(int, qal_io_chkfil, const char *, unsigned, int);
  HAS(int, qal_io_get_aline, FILE *, int, char *);
  HAS(int, qal_stat, const char *, QalStat *);
  HAS(int, qal_is_dir, const char *);
  HAS(int, qal_file_copy, const char *, const char *, unsigned);
  HAS(int, qal_file_unlink, const char *);
  HAS(int, qal_file_rmdir, const char *, int);
  HAS(int, qal_file_rename, const char *, const char *, unsigned);
  HAS(uint64_t, qal_fread, void *, uint64_t, uint64_t, FILE *);
  HAS(char *, qal_tempnam, const char *, const char *);
}

static void system_information(void) {
  HAS(int, qal_sysinfo, int, int *);
  HAS(int, qal_endian, void);
  HAS(int, qal_username, char *, int);
  HAS(int, qal_sleep, unsigned);
  HAS(int, qal_usleep, unsigned);
  HAS(int, qal_sched_yield, void);
  HAS(int, qal_signal, int, void (*)(int));
  HAS(int, qal_getpid, void);
  HAS(int, qal_is_pid_running, int);
  HAS(int, qal_get_osx_ver, char *, int *, int *);
}

static void threads(void) {
  HAS(int, qal_thread_init, void);
  HAS(int, qal_thread_init_sys, void);
  HAS(int, qal_thread_setconcurrency, int);
  HAS(int, qal_thread_self, void);
  HAS(int, qal_thread_index, void);
  HAS(int, qal_thread_create, int *, QalThreadRoutine, void *);
  HAS(int, qal_thread_join, const int *, int *);
  HAS(int, qal_thread_cancel, const int *);
  HAS(int, qal_thread_create_sys, QalThreadHandle *, int);
  HAS(int, qal_thread_join_sys, QalThreadHandle);
  HAS(int, qal_thread_cancel_sys, QalThreadHandle);
  HAS(void *, qal_thread_start_void, void *);
  HAS(void *, qal_thread_start_int, void *);
  HAS(int, qal_thread_key_create, QalThreadKey *);
  HAS(int, qal_thread_setspecific, QalThreadKey, const void *);
  HAS(void *, qal_thread_getspecific, QalThreadKey);
  HAS(int, qal_thread_mutex_init, QalThreadMutex *);
  HAS(int, qal_thread_mutex_destroy, QalThreadMutex *);
  HAS(int, qal_thread_mutex_lock, QalThreadMutex *);
  HAS(int, qal_thread_mutex_trylock, QalThreadMutex *);
  HAS(int, qal_thread_mutex_unlock, QalThreadMutex *);
  HAS(int, qal_thread_cond_init, QalThreadCond *);
  HAS(int, qal_thread_cond_destroy, QalThreadCond *);
  HAS(int, qal_thread_cond_broadcast, QalThreadCond *);
  HAS(int, qal_thread_cond_signal, QalThreadCond *);
  HAS(int, qal_thread_cond_wait, QalThreadCond *, QalThreadMutex *);
  HAS(int, qal_thread_cond_timedwait, QalThreadCond *, QalThreadMutex *, float);
  HAS(int, qal_thread_sema_init, QalThreadSema *, int);
  HAS(int, qal_thread_sema_destroy, QalThreadSema *);
  HAS(int, qal_thread_sema_wait, QalThreadSema *);
  HAS(int, qal_thread_sema_release, QalThreadSema *);
  HAS(int, qal_thread_sema_reset, QalThreadSema *, int);
}

static void barriers(void) {
  HAS(int, qal_thread_barrier_init, QalThreadBarrier *);
  HAS(void, qal_thread_barrier_reinit, QalThreadBarrier *);
  HAS(int, qal_thread_barrier_destroy, QalThreadBarrier *);
  HAS(int, qal_thread_barrier, QalThreadBarrier *, unsigned);
  HAS(double, qal_thread_reduce_dmax, double, int);
  HAS(double, qal_thread_reduce_dmin, double, int);
  HAS(double, qal_thread_global_dsum, double, int);
  HAS(int, qal_thread_global_isum, int, int);
  HAS(void, qal_thread_global_dsums, const double *, double *, int, int);
  HAS(void, qal_thread_global_isums, const int *, int *, int, int);
}

static void lists(void) {
  HAS(QalMpool *, qal_mpool_create, uint32_t, uint32_t);
  HAS(void, qal_mpool_destroy, QalMpool **);
  HAS(void *, qal_mpool_alloc, QalMpool *);
  HAS(int, qal_mpool_free, QalMpool *, void *);
  HAS(int, qal_mpool_verify_ptr, QalMpool *, const void *);
  HAS(uint32_t, qal_mpool_status, QalMpool *, uint32_t *, uint32_t *);
  HAS(void, qal_mpool_check_corruption, void);
  HAS(void, qal_mpool_debug, void);
  HAS(int, qal_plist_pool_create, uint32_t, uint32_t);
  HAS(int, qal_plist_pool_destroy, void);
  HAS(QalPlist *, qal_plist_create, void);
  HAS(void, qal_plist_destroy, QalPlist **);
  HAS(QalPlistNode *, qal_plist_alloc, void);
  HAS(void, qal_plist_free, QalPlistNode **);
  HAS(QalPlistNode *, qal_plist_first, const QalPlist *);
  HAS(QalPlistNode *, qal_plist_last, const QalPlist *);
  HAS(QalPlistNode *, qal_plist_next, const QalPlistNode *);
  HAS(QalPlistNode *, qal_plist_prev, const QalPlistNode *);
  HAS(void, qal_plist_prepend, QalPlist *, QalPlistNode *);
  HAS(void, qal_plist_append, QalPlist *, QalPlistNode *);
  HAS(void, qal_plist_insert_after, QalPlist *, QalPlistNode *, QalPlistNode *);
  HAS(void, qal_plist_insert_before, QalPlist *, QalPlistNode *, QalPlistNode *);
  HAS(void, qal_plist_remove, QalPlist *, QalPlistNode *);
  HAS(QalPlistNode *, qal_plist_pop, QalPlist *);
  HAS(void, qal_plist_concat, QalPlist *, QalPlist *);
  HAS(uint32_t, qal_plist_length, const QalPlist *);
  HAS(void, qal_plist_sort, QalPlist *, QalPlistCompare);
  HAS(QalListPool *, qal_list_pool_create, uint32_t, uint32_t, int32_t);
  HAS(void, qal_list_pool_destroy, QalListPool **);
  HAS(QalList *, qal_list_create, QalListPool *);
  HAS(void, qal_list_destroy, QalList **);
  HAS(void *, qal_list_alloc, QalList *);
  HAS(void *, qal_list_alloc2, QalListPool *);
  HAS(void, qal_list_free, QalList *, void *);
  HAS(void, qal_list_free2, QalListPool *, void *);
  HAS(void *, qal_list_first, const QalList *);
  HAS(void *, qal_list_last, const QalList *);
  HAS(void *, qal_list_next, const void *);
  HAS(void *, qal_list_prev, const void *);
  HAS(void, qal_list_prepend, QalList *, void *);
  HAS(void, qal_list_append, QalList *, void *);
  HAS(void, qal_list_insert_after, QalList *, void *, void *);
  HAS(void, qal_list_insert_before, QalList *, void *, void *);
  HAS(void, qal_list_remove, QalList *, void *);
  HAS(void *, qal_list_pop, QalList *);
  HAS(void, qal_list_concat, QalList *, QalList *);
  HAS(uint32_t, qal_list_length, const QalList *);
  HAS(void, qal_list_sort, QalList *, QalListCompare);
}

static void tables(void) {
  HAS(QalHash *, qal_hash_create, int32_t, int32_t, int32_t, int32_t, uint32_t);
  HAS(void, qal_hash_destroy, QalHash **);
  HAS(void, qal_hash_reinit, QalHash *);
  HAS(int, qal_hash_add, QalHash *, int32_t, const void *, const void *);
  HAS(int, qal_hash_find, QalHash *, int32_t, const void *, void *);
  HAS(int, qal_hash_remove, QalHash *, int32_t, const void *, void *);
  HAS(int, qal_hash_merge, QalHash *, QalHash *, QalHashMergeFunc, void *);
  HAS(void, qal_hash_slot_traverse, QalHash *, int32_t);
  HAS(QalHashPairs *, qal_hash_pairs_create, int32_t, int32_t, int32_t, uint32_t);
  HAS(void, qal_hash_pairs_destroy, QalHashPairs **);
  HAS(void, qal_hash_pairs_reinit, QalHashPairs *);
  HAS(int, qal_hash_pairs_add, QalHashPairs *, int32_t, int32_t, const void *);
  HAS(int, qal_hash_pairs_find, QalHashPairs *, int32_t, int32_t, void *);
  HAS(int, qal_hash_pairs_remove, QalHashPairs *, int32_t, int32_t, void *);
  HAS(int, qal_uid_init, void);
  HAS(uint64_t, qal_uid_new, uint64_t, uint64_t);
  HAS(uint64_t, qal_uid_next, void);
  HAS(int, qal_uid_find, uint64_t, uint64_t *, uint64_t *);
  HAS(int, qal_uid_destroy, uint64_t);
}

static void streams(void) {
  HAS(FILE *, qal_pipe_popen_id, const char *, const char *, int *);
  HAS(FILE *, qal_pipe_popen, const char *, const char *);
  HAS(int, qal_pipe_pclose, FILE *);
  HAS(char *, qal_pipe_fgets, char *, uint32_t, FILE *);
  HAS(size_t, qal_pipe_fread, void *, size_t, size_t, FILE *);
  HAS(size_t, qal_pipe_fwrite, const void *, size_t, size_t, FILE *);
  HAS(int, qal_pipe_feof, FILE *);
  HAS(size_t, qal_fwrite_zlib, const void *, size_t, size_t, FILE *);
  HAS(size_t, qal_fread_zlib, void *, size_t, size_t, FILE *);
  named += zlib_io_in_bytes == 0 && zlib_io_out_bytes == 0;
}

static void characters(void) {
  HAS(uint32_t, qal_kalmora_symbol_to_unicode, int32_t);
  HAS(int, qal_char_utf8_to_unicode, const unsigned char *, uint32_t *);
  HAS(int, qal_char_unicode_to_utf8, uint32_t, unsigned char *);
  HAS(char *, qal_string_native_to_utf8, const char *);
  HAS(char *, qal_string_utf8_to_native, const char *);
  HAS(int, qal_string_native_to_utf8_inplace, void);
  HAS(int, qal_string_utf8_to_native_inplace, void);
  HAS(int, qal_get_current_code_page, void);
  named += old_sym_font_to_unicode[255] == 0x40;
}

/* What programs of the family were compiled with. */
#define IS(constant, number) static_assert((constant) == (number), "number of " #constant)

IS(QAL_CASE_UPPER, 0);
IS(QAL_CASE_LOWER, 1);
IS(QAL_CASE_SEVEN_BITS, 2);
IS(QAL_REPLACE_ALL, 0);
IS(QAL_REPLACE_FIRST, 0x1);
IS(QAL_SNPRINTF_WHOLE, 0);
IS(QAL_SNPRINTF_NOT_WHOLE, 1);

IS(QAL_PATH_FAILED, -1);
IS(QAL_PATH_TO_SLASH, 0);
IS(QAL_PATH_TO_BACKSLASH, 2);
IS(QAL_PATH_FIX_ILLEGAL, 0x100);
IS(QAL_PATH_COMPACT, 0x200);
IS(QAL_RANGE_OPEN, -1);
IS(QAL_FILE_EXECUTABLE, 0);
IS(QAL_FILE_OBJECT, 1);
IS(QAL_FILE_STATIC_LIBRARY, 2);
IS(QAL_FILE_SHARED_LIBRARY, 3);

IS(QAL_FNM_MATCH, 0);
IS(QAL_FNM_NOMATCH, 1);
IS(QAL_FNM_PATHNAME, 0x01);
IS(QAL_FNM_NOESCAPE, 0x02);
IS(QAL_FNM_PERIOD, 0x04);
IS(QAL_FNM_LEADING_DIR, 0x08);
IS(QAL_FNM_CASEFOLD, 0x10);
IS(QAL_FNM_TRAILING_SLASH, 0x20);

IS(QAL_CHECK_READ, 0);
IS(QAL_CHECK_WRITE, 1);
IS(QAL_CHECK_NOT_DIRECTORY, 0x100);
IS(QAL_CHECK_REGULAR, 0x200);
IS(QAL_CHECK_VERBOSE, 1);
IS(QAL_LINE_END_OF_FILE, -1);
IS(QAL_LINE_TOO_LONG, -2);
IS(QAL_COPY_KEEP_EXISTING, 0x1);
IS(QAL_RENAME_BY_COPY, 0x10000);
IS(QAL_RMDIR_RECURSIVE, 1);

IS(QAL_TEMP_MEM_OK, 0);
IS(QAL_TEMP_MEM_NOT_FOUND, 1);

IS(QAL_DATE_SHORT, 0);
IS(QAL_DATE_LONG, 1);
IS(QAL_MAX_TIMERS, 1024);

IS(QAL_SYSINFO_PAGE_BYTES, 0);
IS(QAL_SYSINFO_MEMORY, 1);
IS(QAL_SYSINFO_PROCESSORS, 5);
IS(QAL_SYSINFO_THREAD_LIMIT, 6);
IS(QAL_SYSINFO_RESIDENT_MEMORY, 7);
IS(QAL_SYSINFO_PACKAGES, 8);
IS(QAL_SYSINFO_PHYSICAL_CORES, 9);
IS(QAL_SYSINFO_LOGICAL_PROCESSORS, 10);
IS(QAL_SYSINFO_UNLIMITED, -1);
IS(QAL_SYSINFO_NOT_KNOWN, -1);
IS(QAL_SYSINFO_FAILED, -1);
IS(QAL_SYSINFO_NOT_SUPPORTED, 0);
IS(QAL_SYSINFO_ANSWERED, 1);
IS(QAL_LITTLE_ENDIAN, 0);
IS(QAL_BIG_ENDIAN, 1);
IS(QAL_PID_EXISTS, 0);
IS(QAL_PID_GONE, 1);
IS(QAL_OSX_VER_FOUND, 0);
IS(QAL_OSX_VER_NOT_KNOWN, -1);

IS(QAL_THREAD_OK, 0);
IS(QAL_THREAD_FAILED, -1);
IS(QAL_THREAD_MAIN_INDEX, 0);
IS(QAL_THREAD_NO_RESULT, -1);
IS(QAL_THREAD_BUSY, 1);
IS(QAL_THREAD_TIMED_OUT, 99);

IS(QAL_THREAD_BARRIER_FAILED, -1);
IS(QAL_THREAD_BARRIER_OK, 0);
IS(QAL_THREAD_BARRIER_LAST, 1);

IS(QAL_MPOOL_FAILED, -1);
IS(QAL_MPOOL_OK, 0);

IS(QAL_HASH_REMOVE, 0);
IS(QAL_HASH_KEEP, 1);
IS(QAL_HASH_REPLACE, 2);
IS(QAL_HASH_NOT_FOUND, 0);
IS(QAL_HASH_FOUND, 1);

IS(QAL_PIPE_NO_PROCESS, -1);
IS(QAL_PIPE_IN_CHILD, 0);

IS(QAL_CODE_PAGE_UTF8, 65001);

IS(QAL_STATUS_OK, 0);
IS(QAL_STATUS_NO_MEMORY, 2);
IS(QAL_STATUS_NO_ID, 4);
IS(QAL_STATUS_NO_THREADS, 5);
IS(QAL_STATUS_INVALID, 6);
IS(QAL_STATUS_FAILED, 7);
IS(QAL_STATUS_NOT_FOUND, 8);
IS(QAL_STATUS_EXISTS, 10);
IS(QAL_STATUS_NO_SOURCE, 11);

static int version_is_that_of_its_numbers(void) {
  char text[sizeof QAL_VERSION] = "";
  snprintf(text, sizeof text, "%d.%d.%d", QAL_VERSION_MAJOR, QAL_VERSION_MINOR, QAL_VERSION_PATCH);
  return strcmp(text, QAL_VERSION) == 0;
}

int main(void) {
  startup();
  logger();
  clocks();
  text();
  memory();
  paths();
  files();
  system_information();
  threads();
  barriers();
  lists();
  tables();
  streams();
  characters();
  printf("%d functions and variables found\n", named);
  return version_is_that_of_its_numbers() ? 0 : 1;
}

/* Gives every exported function to a pointer of exactly the promised type: a prototype that drifts
 * no longer compiles, a function that is missing no longer links. */
#include <qal/qal.h>
#include <stdio.h>

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

static int constants_hold(void) {
  return QAL_STATUS_OK == 0 && QAL_STATUS_NO_MEMORY == 2 && QAL_STATUS_INVALID == 6 &&
         QAL_STATUS_FAILED == 7 && QAL_STATUS_NOT_FOUND == 8 && QAL_STATUS_EXISTS == 10 &&
         QAL_STATUS_NO_SOURCE == 11 && QAL_MAX_TIMERS == 1024 && QAL_PATH_TO_BACKSLASH == 2 &&
         QAL_PATH_FIX_ILLEGAL == 0x100 && QAL_PATH_COMPACT == 0x200 && QAL_FNM_PATHNAME == 0x01 &&
         QAL_FNM_NOESCAPE == 0x02 && QAL_FNM_PERIOD == 0x04 && QAL_FNM_LEADING_DIR == 0x08 &&
         QAL_FNM_CASEFOLD == 0x10 && QAL_FNM_TRAILING_SLASH == 0x20;
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
  printf("%d functions and variables found\n", named);
  return constants_hold() ? 0 : 1;
}

/* Two threads log at once. The host's callback gets finished lines, but may get one from each
 * thread at the same moment: it guards what it keeps. */
#include <qal/logger.h>
#include <qal/startup.h>
#include <qal/thread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { LINES = 4, ROOM = 64 };

typedef struct Journal {
  QalThreadMutex mutex;
  char lines[LINES][ROOM];
  int count;
} Journal;

static void keep(void *stream, const char *line, ...) {
  Journal *journal = stream;
  if (qal_thread_mutex_lock(&journal->mutex) != 0) return;
  if (journal->count < LINES) snprintf(journal->lines[journal->count++], ROOM, "%s", line);
  qal_thread_mutex_unlock(&journal->mutex);
}

static int load(void *part) {
  qal_info("loading %s\n", (const char *)part);
  qal_warn("%s has no drawing\n", (const char *)part);
  return 0;
}

static int by_text(const void *one, const void *other) { return strcmp(one, other); }

int main(void) {
  static Journal journal;
  if (qal_utils_init() != QAL_STATUS_OK || qal_thread_mutex_init(&journal.mutex) != 0) return 1;
  qal_logger_init(&journal, keep, NULL, NULL); /* before the other threads start */

  char parts[2][8] = {"axle", "piston"};
  int threads[2];
  for (int i = 0; i < 2; ++i)
    if (qal_thread_create(&threads[i], load, parts[i]) != 0) return 1;
  for (int i = 0; i < 2; ++i) qal_thread_join(&threads[i], NULL);

  qsort(journal.lines, (size_t)journal.count, ROOM, by_text); /* they came in any order */
  for (int i = 0; i < journal.count; ++i) fputs(journal.lines[i], stdout);

  qal_thread_mutex_destroy(&journal.mutex);
  qal_utils_done();
  return 0;
}

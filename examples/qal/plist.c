/* A list of pointers to what lives elsewhere. */
#include <qal/plist.h>
#include <qal/startup.h>
#include <stdio.h>
#include <string.h>

static int by_name(const void *earlier, const void *later) { return strcmp(earlier, later); }

int main(void) {
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  QalPlist *parts = qal_plist_create();
  if (!parts) return 1;

  static char names[][8] = {"piston", "axle", "gear"};
  for (size_t i = 0; i < sizeof names / sizeof *names; ++i) {
    QalPlistNode *node = qal_plist_alloc();
    if (!node) return 1;
    node->data = names[i];
    qal_plist_append(parts, node);
  }

  qal_plist_sort(parts, by_name);
  for (QalPlistNode *at = qal_plist_first(parts); at; at = qal_plist_next(at))
    puts((const char *)at->data);

  QalPlistNode *first = qal_plist_pop(parts); /* the caller's from here on */
  printf("took %s, %u are left\n", (const char *)first->data, qal_plist_length(parts));
  qal_plist_free(&first);

  qal_plist_destroy(&parts); /* with its nodes, but not what they point to */
  qal_utils_done();
  return 0;
}

/* Every accessor that the list headers define inline, called and taken the address of. For units of
 * C and of C++ in one program. */
#include <qal/list.h>
#include <qal/plist.h>

enum { accessor_count = 8 };
typedef void (*Accessor)(void);

static inline void take_addresses(Accessor out[accessor_count]) {
  out[0] = (Accessor)&qal_list_first;
  out[1] = (Accessor)&qal_list_last;
  out[2] = (Accessor)&qal_list_next;
  out[3] = (Accessor)&qal_list_prev;
  out[4] = (Accessor)&qal_plist_first;
  out[5] = (Accessor)&qal_plist_last;
  out[6] = (Accessor)&qal_plist_next;
  out[7] = (Accessor)&qal_plist_prev;
}

/* Answers whether a list of two elements and a list of two nodes look right from both ends. */
static inline int calls_answer(void) {
  struct Element {
    void *prev, *next;
    int payload;
  } a = {NULL, NULL, 1}, b = {&a, NULL, 2};
  const QalList list = {NULL, &a.payload, &b.payload};
  QalPlistNode m = {NULL, NULL, NULL}, n = {&m, NULL, NULL};
  const QalPlist plist = {&m, &n};
  a.next = &b;
  m.next = &n;
  return qal_list_first(&list) == &a.payload && qal_list_last(&list) == &b.payload &&
         qal_list_next(&a.payload) == &b.payload && qal_list_prev(&b.payload) == &a.payload &&
         qal_plist_first(&plist) == &m && qal_plist_last(&plist) == &n &&
         qal_plist_next(&m) == &n && qal_plist_prev(&n) == &m;
}

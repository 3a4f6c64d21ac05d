/* The exported definitions of what the list headers define inline, for programs that call it or
 * take its address. They are C because only there does a unit of choice own an inline function. */
#include <qal/list.h>
#include <qal/plist.h>

extern inline void *qal_list_first(const QalList *list);
extern inline void *qal_list_last(const QalList *list);
extern inline void *qal_list_next(const void *payload);
extern inline void *qal_list_prev(const void *payload);

extern inline QalPlistNode *qal_plist_first(const QalPlist *list);
extern inline QalPlistNode *qal_plist_last(const QalPlist *list);
extern inline QalPlistNode *qal_plist_next(const QalPlistNode *node);
extern inline QalPlistNode *qal_plist_prev(const QalPlistNode *node);

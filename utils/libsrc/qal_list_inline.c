/* The exported definitions of the list headers' inline functions, for programs that call them out
 * of line or take their addresses. This file is C because only C lets us choose the unit that
 * defines an inline function. */
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

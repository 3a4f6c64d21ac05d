// The platform's part of the thread layer's start-up, alone in its file so that a host program can
// link a function of its own instead.
#include <qal/thread.h>

int qal_thread_init_sys() { return QAL_THREAD_OK; }

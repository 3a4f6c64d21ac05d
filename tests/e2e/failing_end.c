/* For LD_PRELOAD. A library that ends the process with a status of its own as it cleans up. */
#include <unistd.h>

__attribute__((destructor)) static void fail(void) { _exit(7); }

/* The inline accessors are one function each, whichever unit calls it or asks where it is. */
#include <stdio.h>
#include <string.h>

#include "accessors.h"

int from_c(Accessor out[accessor_count]);
int from_cxx(Accessor out[accessor_count]);

int main(void) {
  Accessor own[accessor_count], of_c[accessor_count], of_cxx[accessor_count];
  take_addresses(own);
  if (!calls_answer() || !from_c(of_c) || !from_cxx(of_cxx)) return 1;
  if (memcmp(own, of_c, sizeof own) != 0 || memcmp(own, of_cxx, sizeof own) != 0) return 2;
  puts("one address each");
  return 0;
}

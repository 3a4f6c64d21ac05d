#include "accessors.h"

int from_c(Accessor out[accessor_count]) {
  take_addresses(out);
  return calls_answer();
}

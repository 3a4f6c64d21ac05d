#include "accessors.h"

extern "C" int from_cxx(Accessor out[accessor_count]) {
  take_addresses(out);
  return calls_answer();
}

// A stranger's C++ program: the library, the identity and the program-level half together.
#include <qal/qal.h>
#include <kalmora/kalmora.hpp>
#include <qal/identity.hpp>

#include <cstdio>
#include <cstring>

int main(int, char **argv) {
  QalIdentity identity{argv[0]};
  identity.setProduct(1);
  QalIdentity::currentIdentity = &identity;
  if (qal_utils_init() != QAL_STATUS_OK) return 1;
  query_env_vars("kalmora");
  if (std::strcmp(Zul_arch, "apple") != 0) return 2;
  if (!find_files("/nonexistent", "*").empty()) return 3;
  std::printf("C++ %s %s\n", identity.getProductName(false), QAL_VERSION);
  return 0;
}

// What a program is, said once at its start.
#include <qal/identity.hpp>

#include <cstdio>

namespace {

void announce(QalIdentity *identity) {
  std::printf("now this is %s\n", identity->getProductName(true));
}

}  // namespace

int main() {
  QalIdentity identity{"/usr/local/bin/viewer"};
  identity.setChangeCallback(announce);
  identity.setProduct(QAL_PRODUCT_KALMORA);
  identity.setComponent(QAL_COMPONENT_CLIENT);
  identity.setVersion(10, 2, 3, 'b');
  QalIdentity::currentIdentity = &identity;

  std::puts(identity.getIdentityString());
  std::printf("as a number: %.4f\n", static_cast<double>(identity.getVersionFloat()));
  std::printf("a Kalmora program: %s\n", identity.isProduct(QAL_PRODUCT_KALMORA) ? "yes" : "no");
  return 0;
}

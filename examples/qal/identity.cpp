// Who a program is, told once at its start.
#include <qal/identity.hpp>

#include <cstdint>
#include <cstdio>

namespace {

constexpr std::int32_t kalmora = 1;
constexpr std::int32_t client = 1;

void announce(QalIdentity *identity) {
  std::printf("now this is %s\n", identity->getProductName(true));
}

}  // namespace

int main() {
  QalIdentity identity{"/usr/local/bin/viewer"};
  identity.setChangeCallback(announce);
  identity.setProduct(kalmora);
  identity.setComponent(client);
  identity.setVersion(10, 2, 3, 'b');
  QalIdentity::currentIdentity = &identity;

  std::puts(identity.getIdentityString());
  std::printf("as a number: %.4f\n", static_cast<double>(identity.getVersionFloat()));
  std::printf("a Kalmora program: %s\n", identity.isProduct(kalmora) ? "yes" : "no");
  return 0;
}

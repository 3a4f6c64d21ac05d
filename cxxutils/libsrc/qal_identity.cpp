// Which product of the family runs: its names, version and paths.
#include <qal/identity.hpp>

#include <qal/logger.h>
#include <qal/text.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <span>
#include <string_view>

QalIdentity *QalIdentity::currentIdentity = nullptr;

namespace {

constexpr const char *undefined_name = "Undefined!";

// Deliberate: product code 2 is not assigned.
constexpr const char *product_names[] = {undefined_name, "Kalmora", nullptr,  "Pellum",
                                         "Trevan",       "Halix",   "Morbel", "Quenta"};

constexpr const char *component_names[] = {undefined_name, "Client", "Server",
                                           "Orv",          "Tal",    "Junction"};

// Flavor codes are multiples of this, product codes are below it.
constexpr int32_t flavor_unit = 256;

// By flavor code in units of 256. Deliberate: 1536 is not assigned.
constexpr const char *flavor_names[] = {
    "",      "Ardent",       "Brisk",         "Lunt",   "Jast",      "Mavin",
    nullptr, "Corran",       "Delmo",         "Norrow", "Eskar",     "Fennel",
    "Gorsk", "Hollin Delmo", "Hollin Corran", "Ivrel",  "Ivrel Jast"};

// Null for a code that is not assigned; a negative one is as far outside as a large one.
const char *assigned_name(std::span<const char *const> names, int32_t code) {
  const auto index = static_cast<uint32_t>(code);
  return index < names.size() ? names[index] : nullptr;
}

const char *flavor_name(int32_t code) {
  return code % flavor_unit == 0 ? assigned_name(flavor_names, code / flavor_unit) : nullptr;
}

// Independent of NDEBUG, unlike the C library's assert.
[[noreturn]] void fail_assertion(const char *condition, const char *function, int line) {
  std::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", condition,
               function, "cxxutils/libsrc/qal_identity", line);
  std::abort();
}

// Appends as much of each piece as fits, so the position stays inside the buffer.
void append_cut(std::span<char> buffer, std::size_t &position,
                std::initializer_list<std::string_view> pieces) {
  for (auto piece : pieces) {
    piece = piece.substr(0, buffer.size() - 1 - position);
    std::copy(piece.begin(), piece.end(), buffer.data() + position);
    position += piece.size();
  }
  buffer[position] = '\0';
}

}  // namespace

QalIdentity::QalIdentity(const char *program_path) {
  qal_strncpy(program_path_, program_path ? program_path : "", text_size);
}

void QalIdentity::setProduct(int32_t code) {
  product_ = code;
  if (change_callback_) change_callback_(this);
}

void QalIdentity::setFlavor(int32_t code) { flavor_ = code; }

void QalIdentity::setComponent(int32_t code) { component_ = code; }

void QalIdentity::setVersion(uint16_t major, uint16_t minor, uint16_t patch, char letter) {
  major_ = major;
  minor_ = minor;
  patch_ = patch;
  letter_ = letter;
}

void QalIdentity::setChangeCallback(ChangeCallback callback) { change_callback_ = callback; }

const char *QalIdentity::getComponentName() {
  const char *name = assigned_name(component_names, component_);
  if (!name) fail_assertion("name != nullptr", "getComponentName", 34);
  return name;
}

const char *QalIdentity::getVersionString() {
  if (major_ == 0) return nullptr;
  qal_snprintf(version_string_, version_size, "%d.%d.%d(%c)", major_, minor_, patch_, letter_);
  return version_string_;
}

const char *QalIdentity::getBaseProductName(bool lower) {
  const char *name = assigned_name(product_names, product_);
  if (!name) fail_assertion("name != nullptr", "getBaseProductName", 75);
  qal_strncpy(base_product_name_, name, text_size);
  if (product_ == 0) {
    qal_fatal("Undefined product! aborting!\n");
    std::abort();
  }
  if (lower) qal_changecase(base_product_name_, QAL_CASE_LOWER);
  return base_product_name_;
}

const char *QalIdentity::getFlavorName(bool lower) {
  // Deliberate: a flavor that is not assigned leaves the text of the one before.
  if (const char *name = flavor_name(flavor_)) {
    qal_strncpy(flavor_name_, name, text_size);  // clears the rest of the buffer
  } else {
    qal_error("QalIdentity::getFlavorName: Flavor not handled: %d!\n", flavor_);
  }
  if (lower) qal_changecase(flavor_name_, QAL_CASE_LOWER);
  return flavor_name_;
}

const char *QalIdentity::getProductName(bool lower) {
  const char *base = getBaseProductName(false);
  if (flavor_ != 0) {
    qal_snprintf(product_name_, text_size, "%s %s", base, getFlavorName(false));
  } else {
    qal_strncpy(product_name_, base, text_size);
  }
  if (lower) qal_changecase(product_name_, QAL_CASE_LOWER);
  return product_name_;
}

const char *QalIdentity::getIdentityString() {
  std::size_t position = 0;
  append_cut(identity_string_, position, {"[", program_path_, "] ", getProductName(false)});
  if (component_ != 0) append_cut(identity_string_, position, {" ", getComponentName()});
  if (major_ != 0) append_cut(identity_string_, position, {" version ", getVersionString()});
  return identity_string_;
}

float QalIdentity::getVersionFloat() {
  // In double precision, so that the sum is rounded only once.
  double version = minor_ / 100.0 + major_;
  version += patch_ / 10000.0;
  version += (letter_ - 'a') / 1000000.0;
  return static_cast<float>(version);
}

bool QalIdentity::isProduct(int code) {
  constexpr int product_bits = 0xFF;
  constexpr int flavor_bits = 0xFF00;
  const int product = code & product_bits;
  const int flavor = code & flavor_bits;
  return product == product_ && (flavor == 0 || flavor == flavor_);
}

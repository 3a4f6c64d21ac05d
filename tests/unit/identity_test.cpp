#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qal/logger.h>
#include <qal/identity.hpp>

#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "support/child.hpp"
#include "support/log_capture.hpp"

namespace {

using qal::test::LogCapture;
using qal::test::run_in_child;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t text_size = 1024;
constexpr int kalmora = 1;

// Where the fields lie.
constexpr std::size_t product_name_at = 8;
constexpr std::size_t base_product_name_at = product_name_at + text_size;
constexpr std::size_t flavor_name_at = base_product_name_at + text_size;
constexpr std::size_t identity_string_at = flavor_name_at + text_size;
constexpr std::size_t version_string_at = identity_string_at + text_size;
constexpr std::size_t program_path_at = version_string_at + text_size;
constexpr std::size_t product_at = program_path_at + text_size;
constexpr std::size_t callback_at = product_at + 24;

char *bytes_of(QalIdentity &identity) { return reinterpret_cast<char *>(&identity); }

template <typename Value>
Value value_at(QalIdentity &identity, std::size_t offset) {
  Value value;
  std::memcpy(&value, bytes_of(identity) + offset, sizeof value);
  return value;
}

QalIdentity product(int32_t code, int32_t flavor = 0) {
  QalIdentity identity("/bin/demo");
  identity.setProduct(code);
  identity.setFlavor(flavor);
  return identity;
}

void show_stream_as_text(void *stream, const char *, ...) {
  std::fputs(static_cast<const char *>(stream), stderr);
}

// The index of a virtual member in the table. The lowest bit of its pointer may be a mark.
template <typename Member>
std::size_t slot_of(Member member) {
  std::uintptr_t word;
  std::memcpy(&word, &member, sizeof word);
  return (word & ~std::uintptr_t{1}) / sizeof(void *);
}

using Names = std::map<int32_t, std::string>;

Names flavors() {
  return {{256, "Ardent"},         {512, "Brisk"},   {768, "Lunt"},       {1024, "Jast"},
          {1280, "Mavin"},         {1792, "Corran"}, {2048, "Delmo"},     {2304, "Norrow"},
          {2560, "Eskar"},         {2816, "Fennel"}, {3072, "Gorsk"},     {3328, "Hollin Delmo"},
          {3584, "Hollin Corran"}, {3840, "Ivrel"},  {4096, "Ivrel Jast"}};
}

Names products() {
  return {{1, "Kalmora"}, {3, "Pellum"}, {4, "Trevan"}, {5, "Halix"}, {6, "Morbel"}, {7, "Quenta"}};
}

TEST(IdentityLayout, KeepsTheOrderOfTheFields) {
  QalIdentity identity("/bin/demo");
  identity.setProduct(3);
  identity.setFlavor(768);
  identity.setComponent(2);
  identity.setVersion(10, 20, 30, 'c');
  identity.setChangeCallback([](QalIdentity *) {});
  identity.getIdentityString();

  EXPECT_EQ(sizeof identity, 6192U);
  EXPECT_STREQ(bytes_of(identity) + product_name_at, "Pellum Lunt");
  EXPECT_STREQ(bytes_of(identity) + base_product_name_at, "Pellum");
  EXPECT_STREQ(bytes_of(identity) + flavor_name_at, "Lunt");
  EXPECT_STREQ(bytes_of(identity) + identity_string_at,
               "[/bin/demo] Pellum Lunt Server version 10.20.30(c)");
  EXPECT_STREQ(bytes_of(identity) + version_string_at, "10.20.30(c)");
  EXPECT_STREQ(bytes_of(identity) + program_path_at, "/bin/demo");
  EXPECT_EQ(value_at<int32_t>(identity, product_at), 3);
  EXPECT_EQ(value_at<int32_t>(identity, product_at + 4), 768);
  EXPECT_EQ(value_at<int32_t>(identity, product_at + 8), 2);
  EXPECT_EQ(value_at<uint16_t>(identity, product_at + 12), 10);
  EXPECT_EQ(value_at<uint16_t>(identity, product_at + 14), 20);
  EXPECT_EQ(value_at<uint16_t>(identity, product_at + 16), 30);
  EXPECT_EQ(value_at<char>(identity, product_at + 18), 'c');
  EXPECT_NE(value_at<QalIdentity::ChangeCallback>(identity, callback_at), nullptr);
  EXPECT_EQ(value_at<uint64_t>(identity, callback_at + 8), 0U);
}

TEST(IdentityLayout, HasItsEightOperationsInSlotOrder) {
  EXPECT_EQ(slot_of(&QalIdentity::getComponentName), 0U);
  EXPECT_EQ(slot_of(&QalIdentity::getVersionString), 1U);
  EXPECT_EQ(slot_of(&QalIdentity::getBaseProductName), 2U);
  EXPECT_EQ(slot_of(&QalIdentity::getFlavorName), 3U);
  EXPECT_EQ(slot_of(&QalIdentity::getProductName), 4U);
  EXPECT_EQ(slot_of(&QalIdentity::getIdentityString), 5U);
  EXPECT_EQ(slot_of(&QalIdentity::getVersionFloat), 6U);
  EXPECT_EQ(slot_of(&QalIdentity::isProduct), 7U);
  EXPECT_FALSE(std::has_virtual_destructor_v<QalIdentity>);
}

TEST(IdentitySetup, LeavesTheCurrentIdentityToTheProgram) {
  EXPECT_EQ(QalIdentity::currentIdentity, nullptr);
  const QalIdentity identity("/bin/demo");
  EXPECT_EQ(QalIdentity::currentIdentity, nullptr);
}

TEST(IdentitySetup, ClearsEverythingButTheProgramPath) {
  alignas(QalIdentity) unsigned char room[sizeof(QalIdentity)];
  std::memset(room, 0xEE, sizeof room);
  auto &identity = *new (room) QalIdentity("P");
  EXPECT_STREQ(bytes_of(identity) + program_path_at, "P");
  for (std::size_t at = product_name_at; at < sizeof identity; ++at) {
    const bool is_path = at == program_path_at;
    const bool is_gap = at > product_at + 18 && at < callback_at;
    if (is_path || is_gap) continue;
    EXPECT_EQ(bytes_of(identity)[at], '\0') << at;
  }
}

TEST(IdentitySetup, CutsALongProgramPath) {
  const std::string fits(text_size - 1, 'p');
  QalIdentity whole(fits.c_str());
  QalIdentity cut((fits + "q").c_str());
  EXPECT_EQ(bytes_of(whole) + program_path_at, fits);
  EXPECT_EQ(bytes_of(cut) + program_path_at, fits);
  EXPECT_EQ(value_at<int32_t>(cut, product_at), 0);
}

TEST(IdentitySetup, TakesNoProgramPathAsAnEmptyOne) {
  QalIdentity identity(nullptr);
  identity.setProduct(kalmora);
  EXPECT_STREQ(identity.getIdentityString(), "[] Kalmora");
}

TEST(IdentityCallback, IsCalledAfterTheProductCodeIsStored) {
  static QalIdentity *called_with = nullptr;
  static std::string name;
  QalIdentity identity("/bin/demo");
  identity.setChangeCallback([](QalIdentity *changed) {
    called_with = changed;
    name = changed->getBaseProductName(false);
  });
  identity.setProduct(5);
  EXPECT_EQ(called_with, &identity);
  EXPECT_EQ(name, "Halix");
}

TEST(IdentityCallback, IsCalledForProductsOnly) {
  static int calls;
  calls = 0;
  QalIdentity identity("/bin/demo");
  identity.setChangeCallback([](QalIdentity *) { ++calls; });
  identity.setFlavor(256);
  identity.setComponent(1);
  identity.setVersion(1, 2, 3, 'a');
  EXPECT_EQ(calls, 0);
  identity.setProduct(kalmora);
  identity.setProduct(kalmora);
  EXPECT_EQ(calls, 2);
  identity.setChangeCallback(nullptr);
  identity.setProduct(kalmora);
  EXPECT_EQ(calls, 2);
}

TEST(IdentityComponent, HasSixNames) {
  QalIdentity identity("/bin/demo");
  const char *names[] = {"Undefined!", "Client", "Server", "Orv", "Tal", "Junction"};
  for (int32_t code = 0; code < 6; ++code) {
    identity.setComponent(code);
    EXPECT_STREQ(identity.getComponentName(), names[code]);
  }
}

TEST(IdentityComponent, FailsTheAssertionForAnyOtherCode) {
  for (const int32_t code : {6, 7, 256, INT_MAX, -1, INT_MIN}) {
    const auto child = run_in_child([code] {
      QalIdentity identity("/bin/demo");
      identity.setComponent(code);
      identity.getComponentName();
    });
    EXPECT_TRUE(child.killed_by(SIGABRT)) << code;
    EXPECT_THAT(child.err,
                testing::MatchesRegex("Assertion failed: \\(.+\\), function getComponentName, "
                                      "file cxxutils/libsrc/qal_identity, line 34\\.\n"));
  }
}

TEST(IdentityVersion, IsComposedOfNumbersAndLetter) {
  QalIdentity identity("/bin/demo");
  identity.setVersion(10, 2, 3, 'b');
  EXPECT_STREQ(identity.getVersionString(), "10.2.3(b)");
  identity.setVersion(65535, 65535, 65535, 'z');
  EXPECT_STREQ(identity.getVersionString(), "65535.65535.65535(z)");
  identity.setVersion(1, 0, 0, 'a');
  EXPECT_STREQ(identity.getVersionString(), "1.0.0(a)");
}

TEST(IdentityVersion, IsNoneWithoutMajorNumber) {
  QalIdentity identity("/bin/demo");
  identity.setVersion(0, 2, 3, 'b');
  EXPECT_EQ(identity.getVersionString(), nullptr);
}

TEST(IdentityVersion, EndsAtAMissingLetter) {
  QalIdentity identity("/bin/demo");
  identity.setVersion(1, 2, 3, '\0');
  EXPECT_STREQ(identity.getVersionString(), "1.2.3(");
}

TEST(IdentityVersion, IsOneNumberToo) {
  QalIdentity identity("/bin/demo");
  const auto number = [&](uint16_t major, uint16_t minor, uint16_t patch, char letter) {
    identity.setVersion(major, minor, patch, letter);
    return identity.getVersionFloat();
  };
  EXPECT_EQ(number(1, 0, 0, 'a'), 1.0F);
  EXPECT_EQ(number(10, 2, 3, 'b'), 10.020301F);
  EXPECT_EQ(number(0, 2, 3, 'a'), 0.0203F);
  EXPECT_EQ(number(1, 250, 10000, 'a'), 4.5F);
  EXPECT_EQ(number(0, 0, 0, 'z'), 0.000025F);
}

TEST(IdentityVersion, CountsALetterBeforeAAsNegative) {
  QalIdentity identity("/bin/demo");
  identity.setVersion(1, 0, 0, 'A');
  EXPECT_EQ(identity.getVersionFloat(), 0.999968F);
  identity.setVersion(0, 0, 0, '\0');
  EXPECT_EQ(identity.getVersionFloat(), -0.000097F);
}

TEST(IdentityVersion, IsRoundedOnceFromDoublePrecision) {
  QalIdentity identity("/bin/demo");
  for (uint16_t minor = 0; minor < 100; ++minor) {
    for (uint16_t patch = 0; patch < 100; ++patch) {
      identity.setVersion(7, minor, patch, 'q');
      const double exact = ((minor / 100.0 + 7) + patch / 10000.0) + 16 / 1000000.0;
      EXPECT_EQ(identity.getVersionFloat(), static_cast<float>(exact)) << minor << "." << patch;
    }
  }
}

TEST(IdentityBaseName, FollowsTheProductCode) {
  for (const auto &[code, name] : products()) {
    auto identity = product(code);
    EXPECT_EQ(identity.getBaseProductName(false), name);
  }
}

TEST(IdentityBaseName, IsLoweredOnRequest) {
  auto identity = product(7);
  EXPECT_STREQ(identity.getBaseProductName(true), "quenta");
  EXPECT_STREQ(identity.getBaseProductName(false), "Quenta");
}

TEST(IdentityBaseName, IgnoresTheFlavor) {
  auto identity = product(kalmora, 768);
  EXPECT_STREQ(identity.getBaseProductName(false), "Kalmora");
}

TEST(IdentityBaseName, OfAnUndefinedProductIsFatal) {
  const auto child = run_in_child([] {
    qal_logger_init(stderr, &_qal_logger_func, nullptr, nullptr);
    auto identity = product(0);
    identity.getBaseProductName(false);
  });
  EXPECT_TRUE(child.killed_by(SIGABRT));
  EXPECT_EQ(child.err, "FATAL: Undefined product! aborting!\n");
}

TEST(IdentityBaseName, OfAnUndefinedProductEndsTheProcessSilentlyWithoutAHost) {
  const auto child = run_in_child([] {
    auto identity = product(0);
    identity.getBaseProductName(true);
  });
  EXPECT_TRUE(child.killed_by(SIGABRT));
  EXPECT_EQ(child.err, "");
}

TEST(IdentityBaseName, OfAnUndefinedProductIsStoredBeforeTheReport) {
  const auto child = run_in_child([] {
    auto identity = product(0);
    qal_logger_init(bytes_of(identity) + base_product_name_at, &show_stream_as_text, nullptr,
                    nullptr);
    identity.getBaseProductName(false);
  });
  EXPECT_TRUE(child.killed_by(SIGABRT));
  EXPECT_EQ(child.err, "Undefined!");
}

TEST(IdentityBaseName, FailsTheAssertionForACodeThatIsNotAssigned) {
  for (const int32_t code : {2, 8, 9, 257, INT_MAX, -1, INT_MIN}) {
    const auto child = run_in_child([code] {
      qal_logger_init(stderr, &_qal_logger_func, nullptr, nullptr);
      auto identity = product(code);
      identity.getBaseProductName(false);
    });
    EXPECT_TRUE(child.killed_by(SIGABRT)) << code;
    EXPECT_THAT(child.err,
                testing::MatchesRegex("Assertion failed: \\(.+\\), function getBaseProductName, "
                                      "file cxxutils/libsrc/qal_identity, line 75\\.\n"));
  }
}

TEST(IdentityFlavor, FollowsTheFlavorCode) {
  const LogCapture log;
  for (const auto &[code, name] : flavors()) {
    auto identity = product(kalmora, code);
    EXPECT_EQ(identity.getFlavorName(false), name);
  }
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(IdentityFlavor, IsLoweredOnRequest) {
  auto identity = product(kalmora, 3584);
  EXPECT_STREQ(identity.getFlavorName(true), "hollin corran");
  EXPECT_STREQ(identity.getFlavorName(false), "Hollin Corran");
}

TEST(IdentityFlavor, ClearsTheWholeTextForNoFlavor) {
  const LogCapture log;
  auto identity = product(kalmora, 0);
  std::memset(bytes_of(identity) + flavor_name_at, 'x', text_size);
  EXPECT_STREQ(identity.getFlavorName(false), "");
  EXPECT_EQ(std::string(bytes_of(identity) + flavor_name_at, text_size),
            std::string(text_size, '\0'));
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(IdentityFlavor, ReportsEveryOtherCode) {
  auto identity = product(kalmora);
  const auto named = flavors();
  for (int32_t code = -5000; code <= 9000; ++code) {
    if (code == 0 || named.contains(code)) continue;
    const LogCapture log;
    identity.setFlavor(code);
    EXPECT_STREQ(identity.getFlavorName(false), "");
    EXPECT_EQ(log.text(), "ERROR: QalIdentity::getFlavorName: Flavor not handled: " +
                              std::to_string(code) + "!\n");
  }
}

TEST(IdentityFlavor, ReportsExtremeCodes) {
  auto identity = product(kalmora);
  const LogCapture log;
  for (const int32_t code : {INT_MAX, INT_MIN, 1536}) {
    identity.setFlavor(code);
    identity.getFlavorName(false);
  }
  EXPECT_THAT(log.lines(),
              ElementsAre("ERROR: QalIdentity::getFlavorName: Flavor not handled: 2147483647!\n",
                          "ERROR: QalIdentity::getFlavorName: Flavor not handled: -2147483648!\n",
                          "ERROR: QalIdentity::getFlavorName: Flavor not handled: 1536!\n"));
}

TEST(IdentityFlavor, KeepsTheTextOfTheOneBeforeForACodeWithoutName) {
  auto identity = product(kalmora, 256);
  identity.getFlavorName(false);
  identity.setFlavor(1536);
  EXPECT_STREQ(identity.getFlavorName(false), "Ardent");
  EXPECT_STREQ(identity.getFlavorName(true), "ardent");
  EXPECT_STREQ(identity.getFlavorName(false), "ardent");
}

TEST(IdentityProductName, IsTheBaseNameAloneWithoutFlavor) {
  auto identity = product(4);
  EXPECT_STREQ(identity.getProductName(false), "Trevan");
  EXPECT_STREQ(identity.getProductName(true), "trevan");
}

TEST(IdentityProductName, NamesTheFlavorBehindTheBaseName) {
  auto identity = product(6, 4096);
  EXPECT_STREQ(identity.getProductName(false), "Morbel Ivrel Jast");
  EXPECT_STREQ(identity.getProductName(true), "morbel ivrel jast");
}

TEST(IdentityProductName, LowersNeitherOfTheNamesThatItIsMadeOf) {
  auto identity = product(6, 4096);
  const char *const base = bytes_of(identity) + base_product_name_at;
  identity.getProductName(true);
  EXPECT_STREQ(base, "Morbel");
  EXPECT_STREQ(bytes_of(identity) + flavor_name_at, "Ivrel Jast");
  identity.getBaseProductName(true);
  identity.getProductName(true);
  EXPECT_STREQ(base, "Morbel");
  identity.setFlavor(256);
  identity.getProductName(true);
  identity.setFlavor(1536);
  EXPECT_STREQ(identity.getFlavorName(false), "Ardent");
}

TEST(IdentityProductName, KeepsTheBlankBeforeAFlavorWithoutName) {
  const LogCapture log;
  auto identity = product(6, 1536);
  EXPECT_STREQ(identity.getProductName(false), "Morbel ");
  EXPECT_EQ(log.text(), "ERROR: QalIdentity::getFlavorName: Flavor not handled: 1536!\n");
}

TEST(IdentityProductName, EndsTheProcessAsTheBaseNameDoes) {
  const auto child = run_in_child([] {
    auto identity = product(2, 256);
    identity.getProductName(false);
  });
  EXPECT_TRUE(child.killed_by(SIGABRT));
  EXPECT_THAT(child.err, testing::HasSubstr("function getBaseProductName,"));
}

TEST(IdentityString, NamesPathProductComponentAndVersion) {
  auto identity = product(kalmora);
  identity.setComponent(1);
  identity.setVersion(10, 2, 3, 'b');
  EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Kalmora Client version 10.2.3(b)");
}

TEST(IdentityString, LeavesOutWhatIsNotSet) {
  auto identity = product(kalmora);
  EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Kalmora");
  identity.setVersion(0, 9, 9, 'b');
  EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Kalmora");
  identity.setComponent(5);
  EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Kalmora Junction");
  identity.setComponent(0);
  identity.setVersion(1, 0, 0, 'a');
  EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Kalmora version 1.0.0(a)");
}

TEST(IdentityString, ReportsAFlavorWithoutNameOnce) {
  const LogCapture log;
  auto identity = product(6, 1536);
  identity.setComponent(1);
  EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Morbel  Client");
  EXPECT_THAT(log.lines(), ElementsAre("ERROR: QalIdentity::getFlavorName: Flavor not handled: "
                                       "1536!\n"));
}

TEST(IdentityString, EndsAtAMissingLetter) {
  auto identity = product(kalmora);
  identity.setVersion(1, 2, 3, '\0');
  EXPECT_STREQ(identity.getIdentityString(), "[/bin/demo] Kalmora version 1.2.3(");
}

TEST(IdentityString, IsComposedAnewEachTime) {
  auto identity = product(kalmora);
  identity.setComponent(5);
  identity.setVersion(10, 2, 3, 'b');
  const char *text = identity.getIdentityString();
  identity.setComponent(0);
  identity.setVersion(0, 0, 0, 'a');
  EXPECT_EQ(identity.getIdentityString(), text);
  EXPECT_STREQ(text, "[/bin/demo] Kalmora");
}

TEST(IdentityString, ComposesTheProductNameInItsOwnText) {
  auto identity = product(3, 512);
  const char *name = identity.getProductName(true);
  identity.getIdentityString();
  EXPECT_STREQ(name, "Pellum Brisk");
}

TEST(IdentityString, ChecksTheComponentWhenItIsNotZero) {
  for (const int32_t code : {6, -1}) {
    const auto child = run_in_child([code] {
      auto identity = product(kalmora);
      identity.setComponent(code);
      identity.getIdentityString();
    });
    EXPECT_TRUE(child.killed_by(SIGABRT));
    EXPECT_THAT(child.err, testing::EndsWith("function getComponentName, file "
                                             "cxxutils/libsrc/qal_identity, line 34.\n"));
  }
}

TEST(IdentityString, FillsItsBufferToTheLastByte) {
  const std::string tail = "] Kalmora Client version 10.2.3(b)";
  const std::string path(text_size - 2 - tail.size(), 'p');
  QalIdentity identity(path.c_str());
  identity.setProduct(kalmora);
  identity.setComponent(1);
  identity.setVersion(10, 2, 3, 'b');
  EXPECT_EQ(identity.getIdentityString(), "[" + path + tail);
}

TEST(IdentityString, IsCutAtTheEndOfItsBuffer) {
  const std::string tail = "] Kalmora Client version 10.2.3(b)";
  for (std::size_t length = text_size - 2 - tail.size(); length < text_size; ++length) {
    const std::string path(length, 'p');
    QalIdentity identity(path.c_str());
    identity.setProduct(kalmora);
    identity.setComponent(1);
    identity.setVersion(10, 2, 3, 'b');
    EXPECT_EQ(identity.getIdentityString(), ("[" + path + tail).substr(0, text_size - 1));
    EXPECT_STREQ(bytes_of(identity) + version_string_at, "10.2.3(b)");
  }
}

TEST(IdentityIsProduct, ComparesTheProductWhateverTheFlavor) {
  auto identity = product(kalmora);
  EXPECT_TRUE(identity.isProduct(1));
  EXPECT_FALSE(identity.isProduct(3));
  EXPECT_FALSE(identity.isProduct(0));
  identity.setFlavor(768);
  EXPECT_TRUE(identity.isProduct(1));
}

TEST(IdentityIsProduct, ComparesTheFlavorWhenOneIsAskedFor) {
  auto identity = product(kalmora, 768);
  EXPECT_TRUE(identity.isProduct(1 + 768));
  EXPECT_FALSE(identity.isProduct(3 + 768));
  EXPECT_FALSE(identity.isProduct(1 + 512));
  identity.setFlavor(0);
  EXPECT_FALSE(identity.isProduct(1 + 768));
}

TEST(IdentityIsProduct, IgnoresHigherBits) {
  auto identity = product(kalmora, 768);
  EXPECT_TRUE(identity.isProduct(0x10000 + 1));
  EXPECT_TRUE(identity.isProduct(0x7FFF0000 + 768 + 1));
  EXPECT_TRUE(identity.isProduct(INT_MIN + 768 + 1));
}

TEST(IdentityIsProduct, ComparesTheWholeStoredCodes) {
  EXPECT_FALSE(product(257).isProduct(1));
  EXPECT_FALSE(product(1, 0x10300).isProduct(1 + 768));
  EXPECT_TRUE(product(1, 0x10300).isProduct(1));
}

TEST(IdentityIsProduct, AnswersForTheUndefinedProductWithoutEndingTheProcess) {
  auto identity = product(0);
  EXPECT_TRUE(identity.isProduct(0));
  EXPECT_FALSE(identity.isProduct(1));
}

TEST(IdentityTexts, OfFlavorAndVersionOutliveANewBaseName) {
  auto identity = product(3, 512);
  identity.setVersion(1, 2, 3, 'a');
  const char *base = identity.getBaseProductName(false);
  const char *flavor = identity.getFlavorName(false);
  const char *version = identity.getVersionString();
  EXPECT_EQ(identity.getBaseProductName(true), base);
  EXPECT_STREQ(base, "pellum");
  EXPECT_STREQ(flavor, "Brisk");
  EXPECT_STREQ(version, "1.2.3(a)");
}

TEST(IdentityTexts, LieInTheObjectAndShowWhatTheNextCallReturns) {
  auto identity = product(3, 512);
  identity.setVersion(1, 2, 3, 'a');
  const auto ask = [&identity] {
    return std::vector<const char *>{
        identity.getProductName(false), identity.getBaseProductName(false),
        identity.getFlavorName(false), identity.getIdentityString(), identity.getVersionString()};
  };
  const auto texts = ask();
  const char *const object = bytes_of(identity);
  EXPECT_EQ(texts, (std::vector{object + product_name_at, object + base_product_name_at,
                                object + flavor_name_at, object + identity_string_at,
                                object + version_string_at}));
  identity.setProduct(4);
  identity.setFlavor(768);
  identity.setVersion(4, 5, 6, 'd');
  ask();
  EXPECT_THAT(std::vector<std::string>(texts.begin(), texts.end()),
              ElementsAre("Trevan Lunt", "Trevan", "Lunt",
                          "[/bin/demo] Trevan Lunt version 4.5.6(d)", "4.5.6(d)"));
}

}  // namespace

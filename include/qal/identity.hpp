/** @file
 *  The product identity.
 *
 *  It says which product of the family a program is, in which flavor, as which component, in which
 *  version, and the path that it was started as.
 *
 *  A program builds one object at start, makes it current and then starts the library, which reads
 *  it from there. Names are at most 1023 bytes, the version text at most 255; longer ones are cut.
 *  Each name operation answers with a text in the object, valid until the same operation is called
 *  again or the object ends.
 *
 *  Errors: product and component codes come from the program itself, so one that is not assigned is
 *  a programming error and ends the process.
 *
 *  Threads: nothing is locked. Set the object up before other threads start; even asking for a name
 *  writes into the object.
 *
 *  Source: cxxutils/libsrc/qal_identity.cpp. */
#ifndef QAL_IDENTITY_HPP
#define QAL_IDENTITY_HPP

#include <qal/export.h>

#include <cstdint>

/** What a program is, and the names that follow from it. */
class QAL_API QalIdentity {
 public:
  /** Is told that the product code has changed. */
  typedef void (*ChangeCallback)(QalIdentity *);

  /** The identity of this process: null until the program sets it. Not owned. */
  static QalIdentity *currentIdentity;

  /** Makes an identity in which everything is empty, zero or null but the program path.
   *
   *  @param program_path  what the program was started as, cut at 1023 bytes; copied. Null counts
   *                       as empty. */
  explicit QalIdentity(const char *program_path);

  /** Stores the product code and afterwards tells the change callback, if one is set.
   *
   *  @param code  1 Kalmora, 3 Pellum, 4 Trevan, 5 Halix, 6 Morbel, 7 Quenta; 0 is undefined and
   *               2 is not assigned. Anything is stored; asking for the name judges it. */
  void setProduct(int32_t code);

  /** Stores the flavor code.
   *
   *  @param code  0 for none, or a multiple of 256 up to 4096 that has a name; 1536 has none. */
  void setFlavor(int32_t code);

  /** Stores the component code.
   *
   *  @param code  0 undefined, 1 Client, 2 Server, 3 Orv, 4 Tal, 5 Junction. */
  void setComponent(int32_t code);

  /** Stores the version.
   *
   *  @param major   0 means that there is no version.
   *  @param minor   second number.
   *  @param patch   third number.
   *  @param letter  the release of this version: 'a' for its first, then 'b' and so on. */
  void setVersion(uint16_t major, uint16_t minor, uint16_t patch, char letter);

  /** Sets what is called after each change of the product code.
   *
   *  @param callback  called with this object; null for nothing. */
  void setChangeCallback(ChangeCallback callback);

  /** Answers the name of the component. A code outside 0 to 5 fails the assertion. */
  virtual const char *getComponentName();

  /** Answers the version as "10.2.3(b)", or null when the major version is 0. */
  virtual const char *getVersionString();

  /** Answers the name of the product without its flavor.
   *
   *  @param lower  whether the name is to be in lower case.
   *  @note  Product code 0 is reported at fatal level and aborts the process; a code that is not
   *         assigned fails the assertion. */
  virtual const char *getBaseProductName(bool lower);

  /** Answers the name of the flavor, empty for flavor code 0. For a code without a name it reports
   *  an error and answers with what the text held before.
   *
   *  @param lower  whether the name is to be in lower case. */
  virtual const char *getFlavorName(bool lower);

  /** Answers the name of the product, followed by a blank and the flavor's name if it has one.
   *
   *  @param lower  whether the name is to be in lower case. Ends as getBaseProductName does. */
  virtual const char *getProductName(bool lower);

  /** Answers "[path] product", then the component if it is not 0, then the version if there is one:
   *  "[/bin/demo] Kalmora Client version 10.2.3(b)". Ends as getProductName and getComponentName
   *  do. */
  virtual const char *getIdentityString();

  /** Answers the version as one number: major, with minor in hundredths, patch in ten-thousandths
   *  and the letter's distance from 'a' in millionths. */
  virtual float getVersionFloat();

  /** Says whether this is the product, and the flavor if one is asked for.
   *
   *  @param code  the product code in its low byte; in the byte above it the flavor code, where 0
   *               stands for any flavor. The rest is ignored. */
  virtual bool isProduct(int code);

  // There is no virtual destructor: the table holds the eight operations and nothing else.

 private:
  static constexpr int text_size = 1024;
  static constexpr int version_size = 256;

  char product_name_[text_size] = {};
  char base_product_name_[text_size] = {};
  char flavor_name_[text_size] = {};
  char identity_string_[text_size] = {};
  char version_string_[text_size] = {};  // only the first version_size bytes are written
  char program_path_[text_size] = {};
  int32_t product_ = 0;
  int32_t flavor_ = 0;
  int32_t component_ = 0;
  uint16_t major_ = 0;
  uint16_t minor_ = 0;
  uint16_t patch_ = 0;
  char letter_ = '\0';
  ChangeCallback change_callback_ = nullptr;
  [[maybe_unused]] uint64_t reserved_ = 0;  // part of the record's fixed layout
};

#endif

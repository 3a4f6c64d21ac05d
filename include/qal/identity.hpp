/** @file
 *  The product identity.
 *
 *  It says which product of the family a program is, in which flavor, as which component, in which
 *  version, and the path that it was started as.
 *
 *  A program builds one object at start and makes it current: query_env_vars()
 *  (kalmora/directories.hpp) takes the product's name from there. Names are at most 1023 bytes, the
 *  version text at most 255; longer ones are cut.
 *  A text that a function returns belongs to the object: do not free it. It is valid until the next
 *  call of a function that returns a text, and no longer than the object.
 *
 *  Errors: product and component codes come from the program itself, so one that is not assigned is
 *  a programming error: asking for its name prints an assertion on standard error and ends the
 *  process with abort().
 *
 *  Threads: nothing is locked. Set the object up before other threads start; even asking for a name
 *  writes into the object.
 *
 *  Source: cxxutils/libsrc/qal_identity.cpp. */
#ifndef QAL_IDENTITY_HPP
#define QAL_IDENTITY_HPP

#include <qal/export.h>

#include <cstdint>

/** Product codes, and the flavor codes that go with any of them. */
enum {
  QAL_PRODUCT_UNDEFINED = 0, /**< not set yet; 2 is not assigned */
  QAL_PRODUCT_KALMORA = 1,   /**< Kalmora */
  QAL_PRODUCT_PELLUM = 3,    /**< Pellum */
  QAL_PRODUCT_TREVAN = 4,    /**< Trevan */
  QAL_PRODUCT_HALIX = 5,     /**< Halix */
  QAL_PRODUCT_MORBEL = 6,    /**< Morbel */
  QAL_PRODUCT_QUENTA = 7,    /**< Quenta */

  QAL_FLAVOR_NONE = 0,              /**< no flavor; 0x600 is not assigned */
  QAL_FLAVOR_ARDENT = 0x100,        /**< Ardent */
  QAL_FLAVOR_BRISK = 0x200,         /**< Brisk */
  QAL_FLAVOR_LUNT = 0x300,          /**< Lunt */
  QAL_FLAVOR_JAST = 0x400,          /**< Jast */
  QAL_FLAVOR_MAVIN = 0x500,         /**< Mavin */
  QAL_FLAVOR_CORRAN = 0x700,        /**< Corran */
  QAL_FLAVOR_DELMO = 0x800,         /**< Delmo */
  QAL_FLAVOR_NORROW = 0x900,        /**< Norrow */
  QAL_FLAVOR_ESKAR = 0xa00,         /**< Eskar */
  QAL_FLAVOR_FENNEL = 0xb00,        /**< Fennel */
  QAL_FLAVOR_GORSK = 0xc00,         /**< Gorsk */
  QAL_FLAVOR_HOLLIN_DELMO = 0xd00,  /**< Hollin Delmo */
  QAL_FLAVOR_HOLLIN_CORRAN = 0xe00, /**< Hollin Corran */
  QAL_FLAVOR_IVREL = 0xf00,         /**< Ivrel */
  QAL_FLAVOR_IVREL_JAST = 0x1000    /**< Ivrel Jast */
};

/** Component codes. */
enum {
  QAL_COMPONENT_UNDEFINED = 0, /**< not set yet */
  QAL_COMPONENT_CLIENT = 1,    /**< Client */
  QAL_COMPONENT_SERVER = 2,    /**< Server */
  QAL_COMPONENT_ORV = 3,       /**< Orv */
  QAL_COMPONENT_TAL = 4,       /**< Tal */
  QAL_COMPONENT_JUNCTION = 5   /**< Junction */
};

/** What a program is, and the names that follow from it. */
class QAL_API QalIdentity {
 public:
  /** Called after the product code has been set, on the thread that set it.
   *
   *  @param identity  the object whose product it is. */
  typedef void (*ChangeCallback)(QalIdentity *identity);

  /** The identity of this process, null until the program sets it. Not owned. */
  static QalIdentity *currentIdentity;

  /** Makes an identity in which everything is empty, zero or null but the program path.
   *
   *  @param program_path  what the program was started as, cut at 1023 bytes; copied. Null counts
   *                       as empty. */
  explicit QalIdentity(const char *program_path);

  /** Stores the product code and then calls the change callback, if one is set, even if the code
   *  has not changed.
   *
   *  @param code  a QAL_PRODUCT code without a flavor. Any number is stored; getBaseProductName()
   *               checks it. */
  void setProduct(int32_t code);

  /** Stores the flavor code, which getProductName() then adds to the product's name. The change
   *  callback is not called.
   *
   *  @param code  a QAL_FLAVOR code without a product; QAL_FLAVOR_NONE takes the flavor away. Any
   *               number is stored; getFlavorName() checks it. */
  void setFlavor(int32_t code);

  /** Stores the component code.
   *
   *  @param code  a QAL_COMPONENT code. Any number is stored; getComponentName() checks it. */
  void setComponent(int32_t code);

  /** Stores the version.
   *
   *  @param major   first number; 0 means that there is no version.
   *  @param minor   second number.
   *  @param patch   third number.
   *  @param letter  the release of this version: 'a' for its first, then 'b' and so on. It is not
   *                 checked. */
  void setVersion(uint16_t major, uint16_t minor, uint16_t patch, char letter);

  /** Sets the function that setProduct() calls once it has stored the code.
   *
   *  @param callback  called with this object; null for nothing. It must stay valid. */
  void setChangeCallback(ChangeCallback callback);

  /** Returns the name of the component.
   *
   *  @return the name, a constant text; "Undefined!" for QAL_COMPONENT_UNDEFINED.
   *  @note   A code that is not assigned ends the process. */
  virtual const char *getComponentName();

  /** Returns the version as text.
   *
   *  @return a text such as "10.2.3(b)"; null when the major version is 0. */
  virtual const char *getVersionString();

  /** Returns the name of the product without its flavor.
   *
   *  @param lower  whether the name is to be in lower case.
   *  @return the name.
   *  @note   A code that is not assigned ends the process, and so does QAL_PRODUCT_UNDEFINED, which
   *          is reported through qal_fatal() (logger.h). */
  virtual const char *getBaseProductName(bool lower);

  /** Returns the name of the flavor.
   *
   *  @param lower  whether the name is to be in lower case.
   *  @return the name, empty for QAL_FLAVOR_NONE. A code that is not assigned is reported through
   *          qal_error() (logger.h) and gives the name that was returned last, empty at first. */
  virtual const char *getFlavorName(bool lower);

  /** Returns the name of the product, followed by a blank and the flavor's name if there is one.
   *
   *  @param lower  whether the name is to be in lower case.
   *  @return the name, such as "Kalmora" or "Kalmora Brisk".
   *  @note   Ends the process when getBaseProductName() does. For a flavor that is not assigned the
   *          second name is what getFlavorName() returns. */
  virtual const char *getProductName(bool lower);

  /** Returns all that is known in one text.
   *
   *  @return the program path in brackets and the product, then the component if it is not
   *          QAL_COMPONENT_UNDEFINED, then the version if there is one, such as
   *          "[/bin/demo] Kalmora Client version 10.2.3(b)".
   *  @note   Ends the process when getProductName() or getComponentName() does. */
  virtual const char *getIdentityString();

  /** Returns the version as one number.
   *
   *  @return major + minor / 100 + patch / 10,000 + (letter - 'a') / 1,000,000, rounded once. It is
   *          computed even when there is no version; a letter that was never set counts as 0. */
  virtual float getVersionFloat();

  /** Says whether this is the product, and the flavor if one is asked for.
   *
   *  @param code  a QAL_PRODUCT code, and by "|" a QAL_FLAVOR code if one is asked for. Only the
   *               lowest two bytes count.
   *  @return whether both are this object's. Without a flavor in `code` any flavor will do. */
  virtual bool isProduct(int code);

  // There is no virtual destructor: the table holds the eight functions and nothing else.

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

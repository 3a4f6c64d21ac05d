/** @file
 *  UTF-8, code points and the products' old symbol font.
 *
 *  The native encoding of the platforms of today is UTF-8, so texts are only copied. The functions
 *  for single characters take pointers that are not null.
 *
 *  Threads: no function keeps state, so any thread may call any of them.
 *
 *  Source: utils/libsrc/qal_utf8.cpp, qal_utf8_symbol.cpp (the font's table). */
#ifndef QAL_UTF8_H
#define QAL_UTF8_H

#include <qal/export.h>
#include <qal/status.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The code point that each of the symbol font's 256 codes stands for; 0 where there is none. */
QAL_API extern const uint32_t old_sym_font_to_unicode[256];

/** Returns the code point of a symbol-font code.
 *
 *  @param code  the code; below 0 it counts as 0, above 255 as 255.
 *  @return the code point, or 0 where there is none. */
QAL_API uint32_t qal_kalmora_symbol_to_unicode(int32_t code);

/** Reads one character.
 *
 *  @param bytes  text of at least one byte; borrowed. A further byte is read only if those before
 *                it call for it, so nothing is read past a terminating NUL.
 *  @param out    receives the decoded value. For more than one byte that is not the character's
 *                code point: of each byte only some upper bits count, markers among them, so C3 A9
 *                gives 0xC0 and E0 A0 80 gives 0x2080. A byte that begins no whole sequence gives
 *                itself.
 *  @return the bytes consumed, 1 to 4; 1 for a byte that begins no whole sequence. */
QAL_API int qal_char_utf8_to_unicode(const unsigned char *bytes, uint32_t *out);

/** Writes one code point as UTF-8, also a surrogate, and a NUL behind it.
 *
 *  @param code_point  the code point, below 0x200000.
 *  @param out         receives the bytes; room for 5, caller-owned.
 *  @return the bytes written before the NUL, 1 to 4; 0 for 0x200000 and above, when `out` is
 *          empty. */
QAL_API int qal_char_unicode_to_utf8(uint32_t code_point, unsigned char *out);

/** Copies a text of the native encoding as UTF-8.
 *
 *  @param string  the text; borrowed. Null is allowed.
 *  @return the copy, which the caller releases with free(); null for null and when memory is
 *          short. */
QAL_API char *qal_string_native_to_utf8(const char *string);

/** Copies a text of UTF-8 in the native encoding.
 *
 *  @param string  the text; borrowed. Null is allowed.
 *  @return the copy, which the caller releases with free(); null for null and when memory is
 *          short. */
QAL_API char *qal_string_utf8_to_native(const char *string);

/** Does nothing, since the encodings are the same.
 *
 *  @return QAL_STATUS_OK, always. */
QAL_API int qal_string_native_to_utf8_inplace(void);

/** Does nothing, since the encodings are the same.
 *
 *  @return QAL_STATUS_OK, always. */
QAL_API int qal_string_utf8_to_native_inplace(void);

/** A result of qal_get_current_code_page(). */
enum {
  QAL_CODE_PAGE_UTF8 = 65001 /**< UTF-8 */
};

/** Returns the number of the native encoding's code page.
 *
 *  @return QAL_CODE_PAGE_UTF8, always. */
QAL_API int qal_get_current_code_page(void);

#ifdef __cplusplus
}
#endif

#endif

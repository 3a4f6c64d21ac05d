/* Writes a sign of the old symbol font as UTF-8. */
#include <qal/utf8.h>
#include <stdio.h>
#include <stdlib.h>

int main(void) {
  const uint32_t alpha = qal_kalmora_symbol_to_unicode('a');
  unsigned char text[5];
  const int length = qal_char_unicode_to_utf8(alpha, text);
  printf("U+%04X takes %d bytes: %s\n", (unsigned)alpha, length, (const char *)text);

  /* The result is how many bytes a character takes; the value is not its code point. */
  uint32_t value;
  printf("read again: %d bytes\n", qal_char_utf8_to_unicode(text, &value));

  char *copy = qal_string_utf8_to_native((const char *)text);
  if (!copy) return 1;
  printf("for the terminal: %s, code page %d\n", copy, qal_get_current_code_page());
  free(copy);
  return 0;
}

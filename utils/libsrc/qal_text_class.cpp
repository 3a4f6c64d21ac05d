// The character classes. The <cctype> functions are undefined for most ints, so each argument is
// reduced to its low byte first.
#include <qal/text.h>

#include <cctype>

namespace {

unsigned char low_byte(int c) { return static_cast<unsigned char>(c); }

bool in_range(unsigned char byte, char first, char last) { return byte >= first && byte <= last; }

bool is_digit(unsigned char byte) { return in_range(byte, '0', '9'); }

// Deliberate: not the platform's alphabetic class, which may hold letters without a case.
bool has_case(unsigned char byte) { return std::isupper(byte) != 0 || std::islower(byte) != 0; }

}  // namespace

int qal_isascii(int c) { return low_byte(c) < 0x80; }

int qal_isblank(int c) { return low_byte(c) == '\t' || low_byte(c) == ' '; }

int qal_isdigit(int c) { return is_digit(low_byte(c)); }

int qal_isxdigit(int c) {
  const unsigned char byte = low_byte(c);
  return is_digit(byte) || in_range(byte, 'a', 'f') || in_range(byte, 'A', 'F');
}

int qal_isalpha(int c) { return has_case(low_byte(c)); }

int qal_isalnum(int c) { return has_case(low_byte(c)) || is_digit(low_byte(c)); }

int qal_iscntrl(int c) { return std::iscntrl(low_byte(c)) != 0; }

int qal_isgraph(int c) { return std::isgraph(low_byte(c)) != 0; }

int qal_islower(int c) { return std::islower(low_byte(c)) != 0; }

int qal_isprint(int c) { return std::isprint(low_byte(c)) != 0; }

int qal_ispunct(int c) { return std::ispunct(low_byte(c)) != 0; }

int qal_isspace(int c) { return std::isspace(low_byte(c)) != 0; }

int qal_isupper(int c) { return std::isupper(low_byte(c)) != 0; }

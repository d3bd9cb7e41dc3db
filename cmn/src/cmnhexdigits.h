// Bytes as hexadecimal text.
#ifndef CMNHEXDIGITS_H
#define CMNHEXDIGITS_H

#include <cstddef>

namespace kelp_cmn_4_4 {

// Computed, not looked up: so compilers make vector code of the loop below.
inline char hexDigit(unsigned char value) {
  constexpr int lettersAfterDigits = 'a' - '9' - 1;
  return static_cast<char>(value + '0' + (value > 9 ? lettersAfterDigits : 0));
}

// Writes two lower-case digits for each byte, and no terminator.
inline void writeHexDigits(const unsigned char* bytes, size_t count, char* text) {
  for (size_t i = 0; i < count; ++i) {
    text[2 * i] = hexDigit(bytes[i] >> 4);
    text[2 * i + 1] = hexDigit(bytes[i] & 0xf);
  }
}

}  // namespace kelp_cmn_4_4

#endif

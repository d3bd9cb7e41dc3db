// Texts that hold nothing but ASCII. The plain loops are for the compiler to make vector code of.
#ifndef CMNASCIITEXT_H
#define CMNASCIITEXT_H

#include <cstddef>
#include <type_traits>

namespace kelp_cmn_4_4 {

// Looks at the whole text: stopping at the first other character would cost more.
template <class Char>
bool isAscii(const Char* text, size_t length) {
  using Unsigned = std::make_unsigned_t<Char>;
  Unsigned bits = 0;
  for (const Char* p = text; p != text + length; ++p) {
    bits = static_cast<Unsigned>(bits | static_cast<Unsigned>(*p));
  }
  return bits < 0x80;
}

template <class From, class To>
void copyAscii(const From* from, size_t length, To* to) {
  for (size_t i = 0; i < length; ++i) {
    to[i] = static_cast<To>(from[i]);
  }
}

}  // namespace kelp_cmn_4_4

#endif

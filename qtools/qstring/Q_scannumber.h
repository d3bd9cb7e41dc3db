// The numbers that the scanner reads. A number of any length is consumed, but only what decides its
// value is kept, in a buffer of fixed size. Not installed.
#ifndef Q_SCANNUMBER_H
#define Q_SCANNUMBER_H

#include "Q_scaninput.h"

#include <cstddef>
#include <cstdint>

namespace q_scan {

class IntegerNumeral {
 public:
  // A base of 0 becomes the one that the prefix tells.
  explicit IntegerNumeral(int base) : m_base(base) {}

  // Consumes the longest text that can still become an integer. False when it is none.
  bool consume(Field& field);

  // By the converters of their types, which set errno.
  intmax_t toSigned() const;
  uintmax_t toUnsigned() const;

 private:
  bool consumeDigits(Field& field);

  // As many octal digits, which are the most, do not fit into 64 bits.
  static constexpr size_t decisiveDigits = 23;

  int m_base;
  size_t m_length = 2;
  char m_text[2 + decisiveDigits + 1] = "+0";  // a sign, a zero, the significant digits
};

class FloatNumeral {
 public:
  // Consumes the longest text that can still become a floating number. False when it is none.
  bool consume(Field& field);

  // By strtod, once: what is kept of the digits, then, is the text that it reads.
  double toDouble();

 private:
  enum class Part { integer, fraction };

  bool consumeDigits(Field& field, Part part);
  void keepDigit(char digit);
  void consumeExponent(Field& field);

  // No number at which rounding goes the other way, or underflow begins, has more significant
  // digits. With so many kept, what follows says only whether the number lies above them.
  static constexpr size_t decisiveDigits = 769;
  static constexpr size_t exponentLength = 1 + 20;  // "e" and any intmax_t

  intmax_t m_exponent = 0;   // of ten, for the digits that are kept
  bool m_liesAbove = false;  // a digit that is not kept is not zero
  size_t m_length = 2;
  char m_text[2 + decisiveDigits + 1 + exponentLength + 1] = "+0";  // as above
};

}  // namespace q_scan

#endif

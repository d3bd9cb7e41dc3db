// The numbers that the scanner reads. A number of any length is consumed, but only what decides its
// value is kept, in a buffer of fixed size. Not installed.
#ifndef Q_SCANNUMBER_H
#define Q_SCANNUMBER_H

#include "Q_integertext.h"
#include "Q_scaninput.h"

#include <cstddef>
#include <cstdint>

namespace q_scan {

// The usual case, without a width: a decimal integer of few digits that is at hand as a whole.
// False, with nothing consumed, where it is not.
bool consumeShortDecimal(Input& input, q_integertext::Integer& value);

class IntegerNumeral {
 public:
  // A base of 0 becomes the one that the prefix tells.
  explicit IntegerNumeral(int base) : m_base(base) {}

  // Consumes the longest text that can still become an integer. False when it is none.
  bool consume(Field& field);

  const q_integertext::Integer& value() const { return m_value; }

 private:
  bool consumeDigits(Field& field);

  int m_base;
  q_integertext::Integer m_value;
};

class FloatNumeral {
 public:
  FloatNumeral() {
    m_text[0] = '+';
    m_text[1] = '0';
  }

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
  char m_text[2 + decisiveDigits + 1 + exponentLength + 1];  // as above, without a terminator
};

}  // namespace q_scan

#endif

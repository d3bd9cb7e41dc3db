// The reading of integers that the signed and the unsigned converter share. Not installed.
#ifndef Q_INTEGERTEXT_H
#define Q_INTEGERTEXT_H

#include <cctype>
#include <cerrno>
#include <cstdint>

namespace q_integertext {

// An integer as its digits come in.
struct Integer {
  uintmax_t magnitude = 0;
  bool negative = false;
  bool overflow = false;  // the magnitude does not fit

  void append(int digit, int base) {
    constexpr uintmax_t alwaysFits = UINTMAX_MAX / 64;  // whatever the base
    if (magnitude < alwaysFits) {
      magnitude = magnitude * static_cast<uintmax_t>(base) + static_cast<uintmax_t>(digit);
      return;
    }
    overflow = overflow ||
               __builtin_mul_overflow(magnitude, static_cast<uintmax_t>(base), &magnitude) ||
               __builtin_add_overflow(magnitude, static_cast<uintmax_t>(digit), &magnitude);
  }
};

// What strtoimax and strtoumax give: where the integer does not fit, the nearest value or the
// greatest, and ERANGE.
inline intmax_t toSigned(const Integer& integer) {
  const uintmax_t limit = static_cast<uintmax_t>(INTMAX_MAX) + (integer.negative ? 1U : 0U);
  if (integer.overflow || integer.magnitude > limit) {
    errno = ERANGE;
    return integer.negative ? INTMAX_MIN : INTMAX_MAX;
  }
  return static_cast<intmax_t>(integer.negative ? 0 - integer.magnitude : integer.magnitude);
}

inline uintmax_t toUnsigned(const Integer& integer) {
  if (integer.overflow) {
    errno = ERANGE;
    return UINTMAX_MAX;
  }
  return integer.negative ? 0 - integer.magnitude : integer.magnitude;
}

struct IntegerText {
  const char* end;  // after the last digit; the text's start when there is no number
  Integer value;
};

constexpr int notADigit = 36;

inline int digitValue(char c) {
  const int decimal = c - '0';
  if (decimal >= 0 && decimal <= 9) {
    return decimal;
  }
  const int letter = (c | 0x20) - 'a';  // of either case
  return letter >= 0 && letter < 26 ? letter + 10 : notADigit;
}

// A prefix counts only where a digit follows: of "0x" and "0xg" the number is the zero.
inline bool hasHexPrefix(const char* digits) {
  return digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X') && digitValue(digits[2]) < 16;
}

inline int effectiveBase(const char* digits, int base) {
  if (base != 0) {
    return base;
  }
  if (hasHexPrefix(digits)) {
    return 16;
  }
  return *digits == '0' ? 8 : 10;
}

// Reads white space, sign, prefix and digits. A bad base reads as no number and sets errno.
inline IntegerText readInteger(const char* text, int base) {
  IntegerText result{text, {}};
  if (base < 0 || base == 1 || base > 36) {
    errno = EINVAL;
    return result;
  }
  while (std::isspace(static_cast<unsigned char>(*text)) != 0) {
    ++text;
  }
  result.value.negative = *text == '-';
  if (*text == '-' || *text == '+') {
    ++text;
  }
  base = effectiveBase(text, base);
  if (base == 16 && hasHexPrefix(text)) {
    text += 2;
  }
  for (int digit = digitValue(*text); digit < base; digit = digitValue(*text)) {
    result.value.append(digit, base);
    result.end = ++text;
  }
  return result;
}

}  // namespace q_integertext

#endif

// The reading of integers that the signed and the unsigned converter share. Not installed.
#ifndef Q_INTEGERTEXT_H
#define Q_INTEGERTEXT_H

#include <cctype>
#include <cerrno>
#include <cstdint>

namespace q_integertext {

struct IntegerText {
  const char* end;  // after the last digit; the text's start when there is no number
  uintmax_t magnitude = 0;
  bool negative = false;
  bool overflow = false;  // the magnitude does not fit
};

constexpr int notADigit = 36;

inline int digitValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'z') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'Z') {
    return c - 'A' + 10;
  }
  return notADigit;
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
  IntegerText result{text};
  if (base < 0 || base == 1 || base > 36) {
    errno = EINVAL;
    return result;
  }
  while (std::isspace(static_cast<unsigned char>(*text)) != 0) {
    ++text;
  }
  result.negative = *text == '-';
  if (*text == '-' || *text == '+') {
    ++text;
  }
  base = effectiveBase(text, base);
  if (base == 16 && hasHexPrefix(text)) {
    text += 2;
  }
  for (int digit = digitValue(*text); digit < base; digit = digitValue(*text)) {
    const auto value = static_cast<uintmax_t>(digit);
    const auto factor = static_cast<uintmax_t>(base);
    result.overflow = result.overflow || result.magnitude > (UINTMAX_MAX - value) / factor;
    result.magnitude = result.magnitude * factor + value;
    result.end = ++text;
  }
  return result;
}

}  // namespace q_integertext

#endif

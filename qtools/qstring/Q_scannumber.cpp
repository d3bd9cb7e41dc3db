#include "Q_scannumber.h"

#include <charconv>
#include <cstdlib>
#include <iterator>

namespace q_scan {
namespace {

constexpr size_t beforeDigits = 2;  // the sign and the zero

// So large that more digits do not change the value of any number, and small enough to be added to
// any count of digits.
constexpr intmax_t exponentLimit = INTMAX_MAX / 100;

// Leading zeros are not kept.
bool isSignificant(int digit, size_t length) { return digit != '0' || length > beforeDigits; }

}  // namespace

bool consumeShortDecimal(Input& input, q_integertext::Integer& value) {
  constexpr ptrdiff_t fittingDigits = 18;
  const char* const start = input.position();
  const char* const digits = start + (*start == '-' || *start == '+' ? 1 : 0);
  const char* const end = start + input.available();
  const char* const limit = end - digits > fittingDigits ? digits + fittingDigits : end;
  const char* p = digits;
  uintmax_t magnitude = 0;
  for (; p != limit && isDigit(*p); ++p) {
    magnitude = 10 * magnitude + static_cast<uintmax_t>(*p - '0');
  }
  const bool isWhole = p != digits && (p != limit || (p == end && input.isLast()));
  if (isWhole) {
    value.magnitude = magnitude;
    value.negative = *start == '-';
    input.consume(static_cast<size_t>(p - start));
  }
  return isWhole;
}

bool IntegerNumeral::consume(Field& field) {
  m_value.negative = field.consumeEither('+', '-') == '-';
  const bool takesPrefix = m_base == 0 || m_base == 16;
  const bool zero = takesPrefix && field.consumeIf('0');
  if (zero && field.consumeEither('x', 'X') != 0) {
    m_base = 16;
  } else if (m_base == 0) {
    m_base = zero ? 8 : 10;
  }
  // Deliberate: of "0x" without a digit both characters are consumed, and it is 0. Only one
  // character of an input can be looked at in advance.
  return consumeDigits(field) || zero;
}

bool IntegerNumeral::consumeDigits(Field& field) {
  const intmax_t before = field.consumed();
  q_integertext::Integer integer =
      m_value;  // a copy that nothing else can change stays in registers
  const int base = m_base;
  const auto append = [&integer, base](unsigned char c) {
    const int digit = q_integertext::digitValue(static_cast<char>(c));
    if (digit >= base) {
      return false;
    }
    integer.append(digit, base);
    return true;
  };
  field.consumeRun(
      [&append](const unsigned char* text, size_t limit) { return runLength(text, limit, append); },
      [](const char*, size_t) {});
  m_value = integer;
  return field.consumed() != before;
}

bool FloatNumeral::consume(Field& field) {
  if (field.consumeEither('+', '-') == '-') {
    m_text[0] = '-';
  }
  bool hasDigits = consumeDigits(field, Part::integer);
  // Deliberate: "." whatever the locale, so that a text reads the same for every user.
  if (field.consumeIf('.')) {
    hasDigits = consumeDigits(field, Part::fraction) || hasDigits;
  }
  // Deliberate: "1e+" is consumed whole, and is 1. What is consumed cannot be put back.
  if (hasDigits && field.consumeEither('e', 'E') != 0) {
    consumeExponent(field);
  }
  return hasDigits;
}

bool FloatNumeral::consumeDigits(Field& field, Part part) {
  const intmax_t before = field.consumed();
  for (int c = field.peek(); isDigit(c); c = field.peek()) {
    if (part == Part::fraction) {
      --m_exponent;
    }
    if (isSignificant(c, m_length)) {
      keepDigit(static_cast<char>(c));
    }
    field.consume();
  }
  return field.consumed() != before;
}

void FloatNumeral::keepDigit(char digit) {
  if (m_length < beforeDigits + decisiveDigits) {
    m_text[m_length++] = digit;
    return;
  }
  ++m_exponent;
  m_liesAbove = m_liesAbove || digit != '0';
}

void FloatNumeral::consumeExponent(Field& field) {
  const bool isNegative = field.consumeEither('+', '-') == '-';
  intmax_t exponent = 0;
  for (int c = field.peek(); isDigit(c); c = field.peek()) {
    if (exponent < exponentLimit) {
      exponent = exponent * 10 + (c - '0');
    }
    field.consume();
  }
  m_exponent += isNegative ? -exponent : exponent;
}

// Without a point: that of strtod is the locale's.
double FloatNumeral::toDouble() {
  if (m_liesAbove) {
    m_text[m_length++] = '1';
    --m_exponent;
  }
  m_text[m_length++] = 'e';
  *std::to_chars(m_text + m_length, std::end(m_text) - 1, m_exponent).ptr = '\0';
  return std::strtod(m_text, nullptr);
}

}  // namespace q_scan

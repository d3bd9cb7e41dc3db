#include "Q_scannumber.h"

#include "Q_strtoimax.h"
#include "Q_strtoumax.h"

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

bool IntegerNumeral::consume(Field& field) {
  if (field.consumeOneOf("+-") == '-') {
    m_text[0] = '-';
  }
  const bool takesPrefix = m_base == 0 || m_base == 16;
  const bool zero = takesPrefix && field.consumeOneOf("0") != 0;
  if (zero && field.consumeOneOf("xX") != 0) {
    m_base = 16;
  } else if (m_base == 0) {
    m_base = zero ? 8 : 10;
  }
  return consumeDigits(field) || zero;
}

bool IntegerNumeral::consumeDigits(Field& field) {
  const intmax_t before = field.consumed();
  for (int c = field.peek(); isDigit(c, m_base); c = field.peek()) {
    if (isSignificant(c, m_length) && m_length < beforeDigits + decisiveDigits) {
      m_text[m_length++] = static_cast<char>(c);
    }
    field.consume();
  }
  return field.consumed() != before;
}

intmax_t IntegerNumeral::toSigned() const { return __Qstrtoimax(m_text, nullptr, m_base); }

uintmax_t IntegerNumeral::toUnsigned() const { return __Qstrtoumax(m_text, nullptr, m_base); }

bool FloatNumeral::consume(Field& field) {
  if (field.consumeOneOf("+-") == '-') {
    m_text[0] = '-';
  }
  bool hasDigits = consumeDigits(field, Part::integer);
  if (field.consumeOneOf(".") != 0) {
    hasDigits = consumeDigits(field, Part::fraction) || hasDigits;
  }
  if (hasDigits && field.consumeOneOf("eE") != 0) {
    consumeExponent(field);
  }
  return hasDigits;
}

bool FloatNumeral::consumeDigits(Field& field, Part part) {
  const intmax_t before = field.consumed();
  for (int c = field.peek(); isDigit(c, 10); c = field.peek()) {
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
  const bool isNegative = field.consumeOneOf("+-") == '-';
  intmax_t exponent = 0;
  for (int c = field.peek(); isDigit(c, 10); c = field.peek()) {
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

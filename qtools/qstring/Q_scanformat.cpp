#include "Q_scanformat.h"

#include "Q_scaninput.h"

#include <climits>

namespace q_scan {
namespace {

int parseWidth(const char*& format) {
  int width = 0;
  for (; isDigit(*format, 10); ++format) {
    const int digit = *format - '0';
    width = width > (INT_MAX - digit) / 10 ? INT_MAX : width * 10 + digit;
  }
  return width;
}

Modifier parseModifier(const char*& format) {
  const char first = *format;
  if (!isOneOf(first, "hlqLjtz")) {
    return Modifier::none;
  }
  ++format;
  const bool twice = *format == first && isOneOf(first, "hl");
  if (twice) {
    ++format;
  }
  switch (first) {
    case 'h':
      return twice ? Modifier::hh : Modifier::h;
    case 'l':
      return twice ? Modifier::ll : Modifier::l;
    case 'q':
      return Modifier::ll;
    case 'L':
      return Modifier::longDouble;
    case 'j':
      return Modifier::j;
    case 't':
      return Modifier::t;
    default:
      return Modifier::z;
  }
}

// Parses the set after "[" up to its "]". The end of one range may begin the next. False when the
// format ends first.
bool parseScanSet(const char*& format, std::bitset<256>& set) {
  const bool inverted = *format == '^';
  if (inverted) {
    ++format;
  }
  int previous = UCHAR_MAX + 1;  // no range begins before the first member
  do {
    if (*format == '\0') {
      return false;
    }
    const auto next = static_cast<unsigned char>(format[1]);
    if (*format == '-' && previous <= next && next != ']') {
      for (; previous < next; ++previous) {
        set.set(static_cast<size_t>(previous));
      }
      ++format;
    }
    previous = static_cast<unsigned char>(*format);
    set.set(static_cast<size_t>(previous));
    ++format;
  } while (*format != ']');
  ++format;
  if (inverted) {
    set.flip();
  }
  return true;
}

}  // namespace

bool parseConversion(const char*& format, Conversion& conversion) {
  if (*format == '*') {
    conversion.assigns = false;
    ++format;
  }
  conversion.width = parseWidth(format);
  conversion.modifier = parseModifier(format);
  conversion.letter = *format;
  if (conversion.letter == '\0') {
    return false;
  }
  ++format;
  return conversion.letter != '[' || parseScanSet(format, conversion.set);
}

Modifier integerModifier(const Conversion& conversion) {
  if (isOneOf(conversion.letter, "dinouxX")) {
    return conversion.modifier;
  }
  // Not isupper: what is stored must not depend on the locale.
  const bool isLong = conversion.letter >= 'A' && conversion.letter <= 'Z';
  return isLong ? Modifier::l : Modifier::none;
}

int integerBase(char letter) {
  switch (letter) {
    case 'i':
      return 0;
    case 'o':
    case 'O':
      return 8;
    case 'x':
    case 'X':
    case 'p':
      return 16;
    default:
      return 10;
  }
}

}  // namespace q_scan

#include "Q_scanformat.h"

#include "Q_scaninput.h"

#include <climits>

namespace q_scan {
namespace {

int parseWidth(const char*& format) {
  int width = 0;
  for (; isDigit(*format); ++format) {
    const int digit = *format - '0';
    width = width > (INT_MAX - digit) / 10 ? INT_MAX : width * 10 + digit;
  }
  return width;
}

// The second of two equal letters.
bool parseAgain(const char*& format, char letter) {
  const bool twice = *format == letter;
  format += twice ? 1 : 0;
  return twice;
}

Modifier parseModifier(const char*& format) {
  switch (*format++) {
    case 'h':
      return parseAgain(format, 'h') ? Modifier::hh : Modifier::h;
    case 'l':
      return parseAgain(format, 'l') ? Modifier::ll : Modifier::l;
    case 'q':
      return Modifier::ll;
    case 'L':
      return Modifier::longDouble;
    case 'j':
      return Modifier::j;
    case 't':
      return Modifier::t;
    case 'z':
      return Modifier::z;
    default:
      --format;
      return Modifier::none;
  }
}

// Parses the set after "[" up to its "]". The end of one range may begin the next. False when the
// format ends first.
bool parseScanSet(const char*& format, ScanSet& set) {
  set.reset();
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

void setUnsigned(Conversion& conversion, int base) {
  conversion.isUnsigned = true;
  conversion.base = base;
}

// A letter with a fixed type, or an unknown one: a modifier before it changes nothing. Not isupper:
// what is stored must not depend on the locale.
void setFixedType(Conversion& conversion, char letter) {
  const bool isLong = letter >= 'A' && letter <= 'Z';
  conversion.modifier = isLong ? Modifier::l : Modifier::none;
}

void setKind(Conversion& conversion, char letter) {
  switch (letter) {
    case 'd':
      return;
    case 'i':
      conversion.base = 0;
      return;
    case 'o':
      return setUnsigned(conversion, 8);
    case 'u':
      return setUnsigned(conversion, 10);
    case 'x':
    case 'X':
      return setUnsigned(conversion, 16);
    case 'O':
      setUnsigned(conversion, 8);
      return setFixedType(conversion, letter);
    case 'p':
      conversion.kind = Kind::pointer;
      return setUnsigned(conversion, 16);
    // Deliberate: not a, A and F. There are no hexadecimal numbers, infinities or NaNs, so that the
    // same is read on every platform.
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
      conversion.kind = Kind::floating;
      return;
    // Deliberate: "l" before c, s and [ changes nothing. There are no wide destinations.
    case 'c':
      conversion.kind = Kind::character;
      return;
    case 's':
      conversion.kind = Kind::word;
      return;
    case '[':
      conversion.kind = Kind::set;
      return;
    case 'n':
      conversion.kind = Kind::consumed;
      return;
    case '%':
      conversion.kind = Kind::percent;
      return;
    // Deliberate: any other letter reads a decimal integer, a long for a capital. So scanners did
    // before the standard called it undefined, and such formats are in use.
    default:
      return setFixedType(conversion, letter);
  }
}

}  // namespace

bool parseConversion(const char*& format, Conversion& conversion, ScanSet& set) {
  if (*format == '*') {
    conversion.assigns = false;
    ++format;
  }
  conversion.width = parseWidth(format);
  conversion.modifier = parseModifier(format);
  const char letter = *format;
  if (letter == '\0') {
    return false;
  }
  ++format;
  setKind(conversion, letter);
  return conversion.kind != Kind::set || parseScanSet(format, set);
}

}  // namespace q_scan

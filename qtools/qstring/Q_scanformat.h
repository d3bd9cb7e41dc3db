// The conversions of a scan format. Not installed.
#ifndef Q_SCANFORMAT_H
#define Q_SCANFORMAT_H

#include <bitset>

namespace q_scan {

enum class Modifier { none, hh, h, l, ll, longDouble, j, t, z };

struct Conversion {
  bool assigns = true;
  int width = 0;  // 0 for no limit
  Modifier modifier = Modifier::none;
  char letter = '\0';
  std::bitset<256> set;  // of a scan set
};

// Parses a conversion after its "%", and moves the format behind it. False when the format ends
// inside it.
bool parseConversion(const char*& format, Conversion& conversion);

// The modifier that says how an integer is stored: conversions with a fixed type, unknown ones
// among them, have their own.
Modifier integerModifier(const Conversion& conversion);

// Of a conversion to an integer: 0 where the number's prefix tells the base.
int integerBase(char letter);

}  // namespace q_scan

#endif

// The conversions of a scan format. Not installed.
#ifndef Q_SCANFORMAT_H
#define Q_SCANFORMAT_H

#include <bitset>

namespace q_scan {

enum class Kind { integer, pointer, floating, character, word, set, consumed, percent };

enum class Modifier { none, hh, h, l, ll, longDouble, j, t, z };

struct Conversion {
  Kind kind = Kind::integer;
  bool assigns = true;
  int width = 0;  // 0 for no limit
  Modifier modifier = Modifier::none;
  int base = 10;  // of an integer; 0 where its prefix tells
  bool isUnsigned = false;
};

using ScanSet = std::bitset<256>;

// Parses a conversion after its "%", and moves the format behind it. Only a scan set changes `set`.
// False when the format ends inside it.
bool parseConversion(const char*& format, Conversion& conversion, ScanSet& set);

}  // namespace q_scan

#endif

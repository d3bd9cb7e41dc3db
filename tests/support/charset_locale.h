// A locale of any encoding that the platform can convert.
#pragma once

#include "made_locale.h"

#include <clocale>
#include <cstdlib>
#include <string>

namespace kelp_test {

// Set (LC_CTYPE) for as long as a test needs it.
class CharsetLocale : public MadeLocale {
 public:
  CharsetLocale(const std::string& charset, int longestCharacter)
      : MadeLocale(LC_CTYPE, "LC_CTYPE\nEND LC_CTYPE\n", charmapOf(charset, longestCharacter)) {}

  // Whether the locale is there, and its converter, which shows at a character of several bytes.
  bool converts(const char* sample, wchar_t character) const {
    wchar_t converted[2] = {};
    return isSet() && std::mbstowcs(converted, sample, 2) == 1 && converted[0] == character;
  }
};

}  // namespace kelp_test

// Locales whose letters are not ASCII's, or not as in ASCII.
#pragma once

#include "made_locale.h"

#include <clocale>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace kelp_test {

// The upper-case letter first.
using LetterPair = std::pair<wchar_t, wchar_t>;

struct Alphabet {
  std::vector<LetterPair> pairs;
  std::wstring noLetters;  // of these, what the locale takes for no letters all the same
  std::wstring spaces;     // what it takes for white space besides the usual
};

inline Alphabet asciiAlphabet() {
  Alphabet alphabet;
  for (wchar_t c = L'A'; c <= L'Z'; ++c) {
    alphabet.pairs.emplace_back(c, c + 0x20);
  }
  return alphabet;
}

inline Alphabet latinAlphabet() {
  Alphabet alphabet = asciiAlphabet();
  for (wchar_t c = 0xc0; c <= 0xde; ++c) {
    if (c != 0xd7) {  // the sign of multiplication
      alphabet.pairs.emplace_back(c, c + 0x20);
    }
  }
  alphabet.pairs.emplace_back(0xff, 0xff);  // whose upper case stands elsewhere
  return alphabet;
}

// The dotted and the dotless letter are two, so neither pairs as in ASCII.
inline Alphabet turkishAlphabet() {
  Alphabet alphabet = asciiAlphabet();
  alphabet.pairs[L'I' - L'A'] = {L'I', 0x131};
  for (const LetterPair& pair : std::vector<LetterPair>{{0x130, L'i'},
                                                        {0xc7, 0xe7},
                                                        {0x11e, 0x11f},
                                                        {0xd6, 0xf6},
                                                        {0x15e, 0x15f},
                                                        {0xdc, 0xfc}}) {
    alphabet.pairs.push_back(pair);
  }
  return alphabet;
}

// Nobody's: "x" and "Y" are no letters but have another case, signs are letters of two cases, and
// so is the character whose byte is EOF as a signed char; and "_" is white space.
inline Alphabet oddAlphabet() {
  Alphabet alphabet = asciiAlphabet();
  alphabet.pairs.emplace_back(L'@', L'`');
  alphabet.pairs.emplace_back(L'q', 0xff);
  alphabet.pairs.emplace_back(L'$', L'%');  // which differ in one bit, the lowest
  alphabet.noLetters = L"xY";
  alphabet.spaces = L"_";
  return alphabet;
}

// Set (LC_CTYPE) for as long as a test needs it. A no-break space is white space in it.
class LettersLocale : public MadeLocale {
 public:
  LettersLocale(const std::string& charset, int longestCharacter, const Alphabet& alphabet)
      : MadeLocale(LC_CTYPE, source(alphabet),
                   charmapOf(charset, longestCharacter, others(alphabet) + L'\u00a0')) {}

 private:
  static std::string symbol(wchar_t c) {
    char text[16];
    std::snprintf(text, sizeof text, "<U%04X>", static_cast<unsigned int>(c));
    return text;
  }

  static std::wstring others(const Alphabet& alphabet) {
    std::wstring result;
    for (const auto& [upper, lower] : alphabet.pairs) {
      for (const wchar_t c : {upper, lower}) {
        if (c >= 0x80 && result.find(c) == std::wstring::npos) {
          result += c;
        }
      }
    }
    return result;
  }

  static void append(std::string& list, const std::string& item) {
    list += (list.empty() ? "" : ";") + item;
  }

  static std::string source(const Alphabet& alphabet) {
    std::string upper;
    std::string lower;
    std::string toUpper;
    std::string toLower;
    std::string space = "<U0009>;<U000A>;<U000B>;<U000C>;<U000D>;<U0020>;<U00A0>";
    for (const wchar_t c : alphabet.spaces) {
      append(space, symbol(c));
    }
    for (const auto& [large, small] : alphabet.pairs) {
      append(toUpper, "(" + symbol(small) + "," + symbol(large) + ")");
      append(toLower, "(" + symbol(large) + "," + symbol(small) + ")");
      if (alphabet.noLetters.find(large) == std::wstring::npos) {
        append(upper, symbol(large));
      }
      if (alphabet.noLetters.find(small) == std::wstring::npos) {
        append(lower, symbol(small));
      }
    }
    return "LC_CTYPE\nupper " + upper + "\nlower " + lower + "\nalpha " + upper + ";" + lower +
           "\nspace " + space + "\ntoupper " + toUpper + "\ntolower " + toLower +
           "\nEND LC_CTYPE\n";
  }
};

}  // namespace kelp_test

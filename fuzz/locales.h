// Locales of many kinds, each made when it is first chosen.
#pragma once

#include "input.h"
#include "letters_locale.h"

#include <locale.h>

#include <cstddef>
#include <string>

namespace kelp_fuzz {

struct LocaleKind {
  const char* platforms;  // null for one to be made
  const char* charset;
  int longestCharacter;
  kelp_test::Alphabet (*alphabet)();
};

constexpr LocaleKind localeKinds[] = {
    {"C", nullptr, 0, nullptr},
    {"C.utf8", nullptr, 0, nullptr},
    {nullptr, "UTF-8", 6, kelp_test::turkishAlphabet},
    {nullptr, "ISO-8859-1", 1, kelp_test::latinAlphabet},
    {nullptr, "ISO-8859-1", 1, kelp_test::oddAlphabet},
    {nullptr, "ISO-8859-9", 1, kelp_test::turkishAlphabet},
    {nullptr, "SHIFT_JIS", 2, kelp_test::asciiAlphabet},
    {nullptr, "EUC-JP", 3, kelp_test::asciiAlphabet},
    {nullptr, "SHIFT_JISX0213", 2, kelp_test::asciiAlphabet},
    {nullptr, "EUC-JISX0213", 3, kelp_test::asciiAlphabet},
    {nullptr, "EUC-JP-MS", 3, kelp_test::asciiAlphabet},
    {nullptr, "WINDOWS-31J", 2, kelp_test::asciiAlphabet},
    {nullptr, "BIG5", 2, kelp_test::asciiAlphabet},
    {nullptr, "BIG5-HKSCS", 2, kelp_test::asciiAlphabet},
    {nullptr, "EUC-KR", 2, kelp_test::asciiAlphabet},
    {nullptr, "CP949", 2, kelp_test::asciiAlphabet},
    {nullptr, "JOHAB", 2, kelp_test::asciiAlphabet},
    {nullptr, "EUC-TW", 4, kelp_test::asciiAlphabet},
    {nullptr, "GB2312", 2, kelp_test::asciiAlphabet},
    {nullptr, "GBK", 2, kelp_test::asciiAlphabet},
    {nullptr, "GB18030", 4, kelp_test::asciiAlphabet},
    {nullptr, "TCVN5712-1", 2, kelp_test::asciiAlphabet},
};
constexpr size_t localeKindCount = sizeof localeKinds / sizeof *localeKinds;

// "C" where the machine cannot make it.
inline locale_t makeLocale(const LocaleKind& kind) {
  if (kind.platforms != nullptr) {
    return newlocale(LC_ALL_MASK, kind.platforms, nullptr);
  }
  const kelp_test::LettersLocale made(kind.charset, kind.longestCharacter, kind.alphabet());
  return duplocale(LC_GLOBAL_LOCALE);
}

// The one that the input chooses is the thread's as long as this lives.
class ChosenLocale {
 public:
  explicit ChosenLocale(Input& input, size_t kinds = localeKindCount)
      : m_number(input.upTo(kinds - 1)) {
    static locale_t locales[localeKindCount] = {};
    if (locales[m_number] == nullptr) {
      locales[m_number] = makeLocale(localeKinds[m_number]);
    }
    uselocale(locales[m_number]);
  }
  ~ChosenLocale() { uselocale(LC_GLOBAL_LOCALE); }
  ChosenLocale(const ChosenLocale&) = delete;
  ChosenLocale& operator=(const ChosenLocale&) = delete;

  bool has(const std::string& charset) const {
    return localeKinds[m_number].charset != nullptr && localeKinds[m_number].charset == charset;
  }
  bool isCUtf8() const { return m_number == 1; }

 private:
  size_t m_number;
};

}  // namespace kelp_fuzz

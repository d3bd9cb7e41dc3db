// Letters and their cases, as the locale has them: of bytes without a call for each, and of wide
// characters.
#ifndef CMNCASETABLES_H
#define CMNCASETABLES_H

#include <ctype.h>
#include <wctype.h>

namespace kelp_cmn_4_4 {

// The tables in which the platform's isalpha, tolower and toupper look. They are those of the
// calling thread's present locale: ask for them anew in each call.
class CaseTables {
 public:
  static CaseTables upper() { return CaseTables(*__ctype_toupper_loc()); }
  static CaseTables lower() { return CaseTables(*__ctype_tolower_loc()); }

  bool isLetter(char c) const { return (m_classes[index(c)] & _ISalpha) != 0; }
  char map(char c) const { return static_cast<char>(m_mapped[index(c)]); }

 private:
  explicit CaseTables(const int* mapped) : m_mapped(mapped) {}

  static unsigned char index(char c) { return static_cast<unsigned char>(c); }

  const unsigned short* m_classes = *__ctype_b_loc();
  const int* m_mapped;
};

// The same for wide characters, of which there are no such tables.
class WideCase {
 public:
  static WideCase upper() { return WideCase(towupper); }
  static WideCase lower() { return WideCase(towlower); }

  static bool isLetter(wchar_t c) { return iswalpha(static_cast<wint_t>(c)) != 0; }
  wchar_t map(wchar_t c) const { return static_cast<wchar_t>(m_map(static_cast<wint_t>(c))); }

 private:
  explicit WideCase(wint_t (*platforms)(wint_t)) : m_map(platforms) {}

  wint_t (*m_map)(wint_t);
};

}  // namespace kelp_cmn_4_4

#endif

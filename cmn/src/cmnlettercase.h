// Letters and their cases, as the locale has them.
#ifndef CMNLETTERCASE_H
#define CMNLETTERCASE_H

#include <ctype.h>
#include <wctype.h>

namespace kelp_cmn_4_4 {

// Of bytes. Looks for letters where the platform's isalpha looks: in the calling thread's table, to
// be asked for anew in each call. The table behind toupper does not do: a thread's is not renewed
// when another thread calls setlocale, whereas toupper heeds that.
class ByteCase {
 public:
  static ByteCase upper() { return ByteCase(toupper); }
  static ByteCase lower() { return ByteCase(tolower); }

  bool isLetter(char c) const { return (m_classes[byte(c)] & _ISalpha) != 0; }
  char map(char c) const { return static_cast<char>(m_map(byte(c))); }

 private:
  explicit ByteCase(int (*platforms)(int)) : m_map(platforms) {}

  static unsigned char byte(char c) { return static_cast<unsigned char>(c); }

  const unsigned short* m_classes = *__ctype_b_loc();
  int (*m_map)(int);
};

// Of wide characters.
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

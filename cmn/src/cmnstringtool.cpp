#include "cmnstringtool.h"

#include "cmnasciitext.h"
#include "cmnlettercase.h"
#include "cmnnumbertext.h"
#include "cmntextsearch.h"

#include <langinfo.h>
#include <string.h>

#include <algorithm>
#include <cfenv>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace kelp_cmn_4_4 {
namespace {

struct FreeList {
  void operator()(char** list) const { CCmnStringTool::tstrfreelist(list); }
};

template <class Char, class Case>
bool equalAsLetters(Char a, Char b, const Case& upper) {
  return upper.isLetter(a) && upper.isLetter(b) && upper.map(a) == upper.map(b);
}

bool equalNoCase(const std::wstring& first, const std::wstring& second, const WideCase& upper) {
  return std::equal(
      first.begin(), first.end(), second.begin(), second.end(),
      [upper](wchar_t a, wchar_t b) { return a == b || equalAsLetters(a, b, upper); });
}

uint64_t wordAt(const char* bytes) {
  uint64_t word = 0;
  memcpy(&word, bytes, sizeof word);
  return word;
}

// The locale is asked only about bytes that differ, and eight are compared at once.
bool equalNoCase(std::string_view first, std::string_view second, const ByteCase& upper) {
  if (first.size() != second.size()) {
    return false;
  }
  size_t i = 0;
  for (; i + sizeof(uint64_t) <= first.size(); i += sizeof(uint64_t)) {
    uint64_t difference = wordAt(&first[i]) ^ wordAt(&second[i]);
    while (difference != 0) {
      const size_t byte = static_cast<size_t>(__builtin_ctzl(difference)) / CHAR_BIT;
      if (!equalAsLetters(first[i + byte], second[i + byte], upper)) {
        return false;
      }
      difference &= ~(UINT64_C(0xff) << byte * CHAR_BIT);
    }
  }
  return std::equal(first.begin() + i, first.end(), second.begin() + i,
                    [upper](char a, char b) { return a == b || equalAsLetters(a, b, upper); });
}

template <class Char, class Case>
std::basic_string<Char> withMappedLetters(std::basic_string<Char> text, const Case& other) {
  for (Char& c : text) {
    if (other.isLetter(c)) {
      c = other.map(c);
    }
  }
  return text;
}

// The letters of ASCII as every locale but a few maps them.
char plainUpper(char c) { return static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c); }
char plainLower(char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); }

// Looks at all of ASCII: a locale may have other letters there, and take some for none.
template <char (*plain)(char)>
bool mapsAsciiAs(const ByteCase& other) {
  bool differs = false;
  for (int i = 0; i < 0x80; ++i) {
    const char c = static_cast<char>(i);
    const bool isPlainLetter = plainUpper(c) != plainLower(c);
    differs |= other.isLetter(c) != isPlainLetter;
    differs |= isPlainLetter && other.map(c) != plain(c);
  }
  return !differs;
}

// The compiler makes vector code of the plain loop for a long text of ASCII.
template <char (*plain)(char)>
std::string withMappedBytes(const std::string& text, const ByteCase& other) {
  constexpr size_t longText = 256;
  if (text.length() < longText || !isAscii(text.data(), text.length()) ||
      !mapsAsciiAs<plain>(other)) {
    return withMappedLetters(text, other);
  }
  std::string result = text;
  for (char& c : result) {
    c = plain(c);
  }
  return result;
}

}  // namespace

std::string CCmnStringTool::int2str(int number) { return std::to_string(number); }

std::string CCmnStringTool::int2str(long number) { return std::to_string(number); }

std::string CCmnStringTool::uint2str(unsigned int number) { return std::to_string(number); }

std::string CCmnStringTool::uint2str(unsigned long number) { return std::to_string(number); }

// Deliberate: no more than the six digits of "%g". Texts of numbers are compared, and messages that
// carry them read, by processes that write them so.
//
// The digits of to_chars are those of "%g", but it knows neither other rounding modes nor the
// locale's point.
std::string CCmnStringTool::double2str(double number) {
  char buffer[64];
  const bool isPlain = std::isfinite(number) && std::fegetround() == FE_TONEAREST &&
                       std::string_view(nl_langinfo(RADIXCHAR)) == ".";
  if (!isPlain) {
    return formatted<64>("%g", number);
  }
  constexpr int significantDigits = 6;
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::general,
                                 significantDigits);
  return std::string(buffer, end.ptr);
}

std::string CCmnStringTool::bool2str(bool value) { return value ? "true" : "false"; }

std::wstring CCmnStringTool::int2wstr(int number) { return str2wstr(int2str(number)); }

std::wstring CCmnStringTool::int2wstr(long number) { return str2wstr(int2str(number)); }

std::wstring CCmnStringTool::uint2wstr(unsigned int number) { return str2wstr(uint2str(number)); }

std::wstring CCmnStringTool::uint2wstr(unsigned long number) { return str2wstr(uint2str(number)); }

int CCmnStringTool::str2int(const std::string& text) {
  int number = 0;
  str2int(text, number);
  return number;
}

unsigned int CCmnStringTool::str2uint(const std::string& text) {
  unsigned int number = 0;
  str2uint(text, number);
  return number;
}

double CCmnStringTool::str2double(const std::string& text) {
  double number = 0.0;
  str2double(text, number);
  return number;
}

// Deliberate: here and in the three below, only an empty text is an error. Where the number ends is
// not looked at, because blanks and units stand behind numbers.
int CCmnStringTool::str2int(const std::string& text, int& number) {
  if (text.empty()) {
    return -1;
  }
  // Deliberate: the low 32 bits, so that a number which was written as unsigned comes back.
  number = static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
  return 0;
}

int CCmnStringTool::str2uint(const std::string& text, unsigned int& number) {
  if (text.empty()) {
    return -1;
  }
  // Deliberate: read with its sign, and the low 32 bits kept, so that a number which was written as
  // an int comes back: "-1" as 4294967295.
  number = static_cast<unsigned int>(std::strtol(text.c_str(), nullptr, 10));
  return 0;
}

int CCmnStringTool::str2uint64(const std::string& text, unsigned long& number) {
  if (text.empty()) {
    return -1;
  }
  number = std::strtoull(text.c_str(), nullptr, 10);
  return 0;
}

int CCmnStringTool::str2double(const std::string& text, double& number) {
  if (text.empty()) {
    return -1;
  }
  number = std::strtod(text.c_str(), nullptr);
  return 0;
}

bool CCmnStringTool::isDigit(const std::string& text) {
  // Deliberate: true for an empty text, which holds nothing else; whoever needs a digit asks for
  // the length, too.
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool CCmnStringTool::CompareNoCase(const std::string& first, const std::string& second) {
  return equalNoCase(first, second, ByteCase::upper());
}

bool CCmnStringTool::CompareNoCase(const std::wstring& first, const std::wstring& second) {
  return equalNoCase(first, second, WideCase::upper());
}

// Deliberate: byte by byte, here and in tostrupper(). A text keeps its length, and multibyte
// letters stay as other programs wrote them.
std::string CCmnStringTool::tostrlower(const std::string& text) {
  return withMappedBytes<plainLower>(text, ByteCase::lower());
}

std::string CCmnStringTool::tostrupper(const std::string& text) {
  return withMappedBytes<plainUpper>(text, ByteCase::upper());
}

std::wstring CCmnStringTool::tostrlower(const std::wstring& text) {
  return withMappedLetters(text, WideCase::lower());
}

std::wstring CCmnStringTool::tostrupper(const std::wstring& text) {
  return withMappedLetters(text, WideCase::upper());
}

std::string CCmnStringTool::ltrim(const std::string& text, const char* set) {
  if (set == nullptr || *set == '\0') {
    return text;
  }
  // Deliberate: as a NUL-terminated text. Hosts trim what C code left in a buffer, where nothing
  // counts behind a zero byte; rtrim() keeps zero bytes, as it only makes a text shorter.
  return std::string(text.c_str() + ByteSet(set).leading(text));
}

std::string CCmnStringTool::rtrim(const std::string& text, const char* set) {
  if (set == nullptr) {
    return text;
  }
  return text.substr(0, text.length() - ByteSet(set).trailing(text));
}

std::string CCmnStringTool::trim(const std::string& text, const char* set) {
  return rtrim(ltrim(text, set), set);
}

unsigned long CCmnStringTool::find(const std::vector<std::string>& list, const char* pattern,
                                   unsigned long& index, bool trimRight) {
  const ByteSet whiteSpace(" \n\t\r");
  for (unsigned long i = index; i < list.size(); ++i) {
    std::string_view text = list[i];
    if (trimRight) {
      text.remove_suffix(whiteSpace.trailing(text));
    }
    const size_t position = findIn(text, pattern);
    if (position != std::string_view::npos) {
      index = i;
      return position;
    }
  }
  // Deliberate: an index past the end stays, so that a caller who goes on counting never comes back
  // into the list.
  index = std::max<unsigned long>(index, list.size());
  return std::string::npos;
}

std::string CCmnStringTool::searchreplace(const std::string& text, const std::string& from,
                                          const std::string& to) {
  if (text.empty() || from.empty()) {
    return text;
  }
  const size_t first = findIn(text, from);
  const std::unique_ptr<char[]> buffer(new char[replacedSize(text, from, to, first) + 1]);
  if (first == std::string_view::npos) {
    return text.substr(0, text.find('\0'));  // as the buffer is read below
  }
  std::string_view rest = text;
  char* target = buffer.get();
  for (size_t match = first; match != std::string_view::npos; match = findIn(rest, from)) {
    target = std::copy_n(rest.data(), match, target);
    target = std::copy(to.begin(), to.end(), target);
    rest.remove_prefix(match + from.length());
  }
  *std::copy(rest.begin(), rest.end(), target) = '\0';
  // Deliberate: up to the first zero byte, as all results that pass through a buffer: whoever takes
  // the C string sees the same text.
  return std::string(buffer.get());
}

// Deliberate: in none of the duplicates the allocation is tested. A null that is handed on as a
// text would crash further away.
char* CCmnStringTool::strdup(const std::string& text, void* (*alloc)(unsigned long)) {
  const size_t size = text.length() + 1;
  void* copy = alloc == nullptr ? std::malloc(size) : alloc(size);
  return static_cast<char*>(memcpy(copy, text.c_str(), size));
}

wchar_t* CCmnStringTool::wstrdup(const std::wstring& text, void* (*alloc)(unsigned long)) {
  const size_t size = (text.length() + 1) * sizeof(wchar_t);
  void* copy = alloc == nullptr ? std::malloc(size) : alloc(size);
  return static_cast<wchar_t*>(memcpy(copy, text.c_str(), size));
}

char* CCmnStringTool::tstrdup(const tstr& text, void* (*alloc)(unsigned long)) {
  return strdup(tstr2str(text), alloc);
}

char** CCmnStringTool::tstrduplist(const std::vector<tstr>& list) {
  const size_t size = (list.size() + 1) * sizeof(char*);
  std::unique_ptr<char*, FreeList> result(static_cast<char**>(std::malloc(size)));
  if (result == nullptr) {
    return nullptr;
  }
  // Always terminated, so that what is there can be freed when a copy throws.
  char** end = result.get();
  *end = nullptr;
  for (const tstr& text : list) {
    *end = tstrdup(text, nullptr);
    *++end = nullptr;
  }
  return result.release();
}

void CCmnStringTool::tstrfreelist(char**& list) {
  if (list == nullptr) {
    return;
  }
  for (char** text = list; *text != nullptr; ++text) {
    std::free(*text);
  }
  std::free(list);
  list = nullptr;
}

}  // namespace kelp_cmn_4_4

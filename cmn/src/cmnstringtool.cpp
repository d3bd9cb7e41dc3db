#include "cmnstringtool.h"

#include "Q_strings.h"
#include "cmntextsearch.h"

#include <unicode/ustring.h>

#include <string.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <iterator>
#include <memory>
#include <new>
#include <string_view>

namespace kelp_cmn_4_4 {
namespace {

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

struct FreeList {
  void operator()(char** list) const { CCmnStringTool::tstrfreelist(list); }
};

template <class Char>
using MallocBuffer = std::unique_ptr<Char[], Free>;

template <class Char>
MallocBuffer<Char> mallocBuffer(size_t count) {
  MallocBuffer<Char> buffer(static_cast<Char*>(std::malloc(count * sizeof(Char))));
  if (buffer == nullptr) {
    throw std::bad_alloc();
  }
  return buffer;
}

template <size_t bufferSize, class Number>
std::string formatted(const char* format, Number number) {
  char buffer[bufferSize];
  Q_snprintf(buffer, sizeof buffer, format, number);
  return buffer;
}

bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
bool isLetter(wchar_t c) { return std::iswalpha(static_cast<wint_t>(c)) != 0; }

char toLower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
wchar_t toLower(wchar_t c) { return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c))); }

char toUpper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
wchar_t toUpper(wchar_t c) { return static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c))); }

template <class Char>
bool equalNoCase(const std::basic_string<Char>& first, const std::basic_string<Char>& second) {
  return std::equal(first.begin(), first.end(), second.begin(), second.end(), [](Char a, Char b) {
    return a == b || (isLetter(a) && isLetter(b) && toUpper(a) == toUpper(b));
  });
}

template <class Char>
std::basic_string<Char> withLetters(std::basic_string<Char> text, Char (*mapped)(Char)) {
  for (Char& c : text) {
    if (isLetter(c)) {
      c = mapped(c);
    }
  }
  return text;
}

struct Entity {
  const char* character;
  const char* text;
};

// The ampersand is escaped first and unescaped last: or its own entities would be seen again.
constexpr Entity entities[] = {
    {"&", "&amp;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"}, {"'", "&#39;"}};

}  // namespace

std::wstring CCmnStringTool::str2wstr(const std::string& text) {
  if (text.empty()) {
    return std::wstring();
  }
  const size_t count = std::mbstowcs(nullptr, text.c_str(), 0);
  if (count == static_cast<size_t>(-1)) {
    return std::wstring();
  }
  const MallocBuffer<wchar_t> buffer = mallocBuffer<wchar_t>(count + 1);
  // In some encodings a text that ends inside a character is counted without an error, and then not
  // terminated.
  std::wmemset(&buffer[count], L'#', 1);
  if (std::mbstowcs(buffer.get(), text.c_str(), count + 1) != count || buffer[count] != L'\0') {
    return std::wstring();
  }
  return std::wstring(buffer.get());
}

std::wstring CCmnStringTool::mbs2wcs(const std::string& text) { return str2wstr(text); }

std::string CCmnStringTool::wstr2str(const std::wstring& text) {
  if (text.empty()) {
    return std::string();
  }
  // Two bytes per character, on purpose: this bounds the result.
  const size_t budget = 2 * text.length() + 2;
  const MallocBuffer<char> buffer = mallocBuffer<char>(budget);
  memset(buffer.get(), 0, budget);
  const size_t length = std::wcstombs(buffer.get(), text.c_str(), budget);
  // On an error nobody says how much was written. Otherwise some encodings put the beginning of a
  // character behind the last that fitted.
  const bool failed = length == static_cast<size_t>(-1);
  return std::string(buffer.get(), failed ? strnlen(buffer.get(), budget) : length);
}

std::string CCmnStringTool::wcs2mbs(const std::wstring& text) { return wstr2str(text); }

// The identity overloads must not convert.
std::wstring CCmnStringTool::str2wstr(const std::wstring& text) { return text; }

std::string CCmnStringTool::wstr2str(const std::string& text) { return text; }

tstr CCmnStringTool::str2tstr(const std::string& text) {
  tstr result(text.c_str());
  if (result.c_str() == nullptr) {  // ACE's way to say that it could not allocate
    throw std::bad_alloc();
  }
  return result;
}

std::string CCmnStringTool::tstr2str(const tstr& text) { return text.c_str(); }

std::wstring CCmnStringTool::tstr2wstr(const tstr& text) { return str2wstr(tstr2str(text)); }

tstr CCmnStringTool::wstr2tstr(const std::wstring& text) { return str2tstr(wstr2str(text)); }

icu::UnicodeString CCmnStringTool::str2ustr(std::string& text) {
  // ICU counts in an int32_t, and the terminator counts, too.
  if (strnlen(text.c_str(), INT32_MAX) == INT32_MAX) {
    return icu::UnicodeString();
  }
  UErrorCode error = U_ZERO_ERROR;
  int32_t length = 0;
  u_strFromUTF8(nullptr, 0, &length, text.c_str(), -1, &error);
  if (length < 1) {
    return icu::UnicodeString();
  }
  const int32_t capacity = length + 1;
  const std::unique_ptr<UChar[]> buffer(new UChar[static_cast<size_t>(capacity)]);
  error = U_ZERO_ERROR;
  u_strFromUTF8(buffer.get(), capacity, &length, text.c_str(), -1, &error);
  if (U_FAILURE(error)) {
    return icu::UnicodeString();
  }
  icu::UnicodeString result(buffer.get());
  if (result.isBogus()) {  // ICU's way to say that it could not allocate
    throw std::bad_alloc();
  }
  return result;
}

std::string CCmnStringTool::ustr2str(icu::UnicodeString& text) {
  const int32_t unitCount = text.length();
  if (text.isBogus() || unitCount == INT32_MAX) {  // ICU does not terminate as many
    return std::string();
  }
  // ICU drops the text of a string that it cannot terminate for lack of memory: so of a copy's.
  icu::UnicodeString copy;
  copy.fastCopyFrom(text);
  const UChar* units = copy.getTerminatedBuffer();
  if (units == nullptr) {
    throw std::bad_alloc();
  }
  UErrorCode error = U_ZERO_ERROR;
  int32_t length = 0;
  u_strToUTF8(nullptr, 0, &length, units, unitCount, &error);
  // Every unit takes a byte or more, so fewer bytes are a count that has passed INT32_MAX.
  if (length < 1 || length < unitCount || length == INT32_MAX) {
    return std::string();
  }
  const int32_t capacity = length + 1;
  const std::unique_ptr<char[]> buffer(new char[static_cast<size_t>(capacity)]());
  error = U_ZERO_ERROR;
  u_strToUTF8(buffer.get(), capacity, &length, units, unitCount, &error);
  return U_SUCCESS(error) ? std::string(buffer.get()) : std::string();
}

icu::UnicodeString CCmnStringTool::tstr2ustr(tstr& text) {
  std::string bytes = tstr2str(text);
  return str2ustr(bytes);
}

tstr CCmnStringTool::ustr2tstr(icu::UnicodeString& text) { return str2tstr(ustr2str(text)); }

std::string CCmnStringTool::int2str(int number) { return formatted<64>("%d", number); }

std::string CCmnStringTool::int2str(long number) { return formatted<128>("%ld", number); }

std::string CCmnStringTool::uint2str(unsigned int number) { return formatted<64>("%u", number); }

std::string CCmnStringTool::uint2str(unsigned long number) { return formatted<128>("%lu", number); }

std::string CCmnStringTool::double2str(double number) { return formatted<64>("%g", number); }

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

int CCmnStringTool::str2int(const std::string& text, int& number) {
  if (text.empty()) {
    return -1;
  }
  number = static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
  return 0;
}

int CCmnStringTool::str2uint(const std::string& text, unsigned int& number) {
  if (text.empty()) {
    return -1;
  }
  // Signed parse and low 32 bits, on purpose.
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
  // True for an empty text, on purpose.
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool CCmnStringTool::CompareNoCase(const std::string& first, const std::string& second) {
  return equalNoCase(first, second);
}

bool CCmnStringTool::CompareNoCase(const std::wstring& first, const std::wstring& second) {
  return equalNoCase(first, second);
}

std::string CCmnStringTool::tostrlower(const std::string& text) {
  return withLetters(text, toLower);
}

std::string CCmnStringTool::tostrupper(const std::string& text) {
  return withLetters(text, toUpper);
}

std::wstring CCmnStringTool::tostrlower(const std::wstring& text) {
  return withLetters(text, toLower);
}

std::wstring CCmnStringTool::tostrupper(const std::wstring& text) {
  return withLetters(text, toUpper);
}

std::string CCmnStringTool::ltrim(const std::string& text, const char* set) {
  if (set == nullptr || *set == '\0') {
    return text;
  }
  // As a NUL-terminated text, on purpose: the result ends at a zero byte, which rtrim keeps.
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
  index = std::max<unsigned long>(index, list.size());
  return std::string::npos;
}

std::string CCmnStringTool::searchreplace(const std::string& text, const std::string& from,
                                          const std::string& to) {
  if (text.empty() || from.empty()) {
    return text;
  }
  const std::unique_ptr<char[]> buffer(new char[replacedSize(text, from, to) + 1]);
  std::string_view rest = text;
  char* target = buffer.get();
  for (size_t match = findIn(rest, from); match != std::string_view::npos;
       match = findIn(rest, from)) {
    target = std::copy_n(rest.data(), match, target);
    target = std::copy(to.begin(), to.end(), target);
    rest.remove_prefix(match + from.length());
  }
  *std::copy(rest.begin(), rest.end(), target) = '\0';
  return std::string(buffer.get());
}

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

std::string CCmnStringTool::convertToXmlSpecialCharacters(const std::string& text) {
  std::string result = text;
  for (const Entity& entity : entities) {
    result = searchreplace(result, entity.character, entity.text);
  }
  return result;
}

std::string CCmnStringTool::convertFromXmlSpecialCharacters(const std::string& text) {
  std::string result = text;
  for (auto entity = std::rbegin(entities); entity != std::rend(entities); ++entity) {
    result = searchreplace(result, entity->text, entity->character);
  }
  return result;
}

std::string CCmnStringTool::xmlBracket(std::string name, bool open, bool newline) {
  return (open ? "<" : "</") + name + (newline ? ">\n" : ">");
}

std::string CCmnStringTool::xmlBracketValue(std::string name, std::string value) {
  return "\t" + xmlBracket(name, true, false) + convertToXmlSpecialCharacters(value) +
         xmlBracket(name, false, true);
}

// NOLINTNEXTLINE(readability-non-const-parameter): the interface is fixed
std::string CCmnStringTool::binary2str(unsigned char* data, int count) {
  constexpr char digits[] = "0123456789abcdef";
  std::string result;
  for (int i = 0; i < count; ++i) {
    result += digits[data[i] >> 4];
    result += digits[data[i] & 0xf];
  }
  return result;
}

std::wstring CCmnStringTool::binary2wstr(unsigned char* data, int count) {
  return str2wstr(binary2str(data, count));
}

int CCmnStringTool::str2binary(unsigned char* out, int* size, const std::string& hex) {
  // As long, which is wide enough: as int, half of 4 GiB is negative.
  if (*size < static_cast<long>(hex.length() / 2)) {
    return -1;
  }
  int count = 0;
  if (hex.length() != 1) {
    size_t position = 0;
    do {
      const std::string pair = hex.substr(position, 2);
      out[count++] = static_cast<unsigned char>(std::strtol(pair.c_str(), nullptr, 16));
      position += 2;
    } while (position <
             hex.length() - 1);  // an empty text has no end here: substr throws, as meant
  }
  *size = count;
  return 0;
}

int CCmnStringTool::wstr2binary(unsigned char* out, int* size, std::wstring hex, bool /*ignored*/) {
  return str2binary(out, size, wstr2str(hex));
}

std::string CCmnStringTool::str2uid(unsigned int type, const std::string& bytes) {
  std::string result = formatted<64>("%04x", type);
  for (const char byte : bytes) {
    // Widened with its sign, on purpose; the unsigned bytes of binary2uid are not.
    result += formatted<64>("%02x", static_cast<int>(static_cast<signed char>(byte)));
  }
  return result;
}

std::string CCmnStringTool::wstr2uid(unsigned int type, const std::wstring& bytes) {
  return str2uid(type, wstr2str(bytes));
}

std::wstring CCmnStringTool::binary2uid(unsigned int type, unsigned char* data, int count) {
  return str2wstr(formatted<64>("%04x", type)) + binary2wstr(data, count);
}

std::vector<std::string> CCmnStringTool::tokenize(const std::string& text,
                                                  const std::string& delimiters) {
  std::vector<std::string> tokens;
  const ByteSet delimiter(delimiters.c_str());
  std::string_view rest = text.c_str();
  rest.remove_prefix(delimiter.leading(rest));
  while (!rest.empty()) {
    const size_t length = delimiter.leadingOthers(rest);
    tokens.emplace_back(rest.substr(0, length));
    rest.remove_prefix(length);
    rest.remove_prefix(delimiter.leading(rest));
  }
  return tokens;
}

bool CCmnStringTool::isIpAddress(const std::string& text) {
  const std::vector<std::string> tokens = tokenize(text, ".");
  return tokens.size() == 4 && std::all_of(tokens.begin(), tokens.end(), isDigit);
}

}  // namespace kelp_cmn_4_4

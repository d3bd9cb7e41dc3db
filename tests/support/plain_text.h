// Plain forms of what CCmnStringTool does: slow, and obviously right.
#pragma once

#include <cctype>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kelp_test {

// What the functions that report their success return.
constexpr int done = 0;
constexpr int refused = -1;

template <class Text>
Text upToZero(const Text& text) {
  return text.substr(0, text.find(typename Text::value_type{}));
}

// ---- the encoding forms

inline std::string utf8(char32_t c) {
  const auto tail = [c](int shift) { return static_cast<char>(0x80 | ((c >> shift) & 0x3f)); };
  if (c < 0x80) {
    return {static_cast<char>(c)};
  }
  if (c < 0x800) {
    return {static_cast<char>(0xc0 | (c >> 6)), tail(0)};
  }
  if (c < 0x10000) {
    return {static_cast<char>(0xe0 | (c >> 12)), tail(6), tail(0)};
  }
  return {static_cast<char>(0xf0 | (c >> 18)), tail(12), tail(6), tail(0)};
}

inline std::u16string utf16(char32_t c) {
  if (c < 0x10000) {
    return {static_cast<char16_t>(c)};
  }
  return {static_cast<char16_t>(0xd800 + ((c - 0x10000) >> 10)),
          static_cast<char16_t>(0xdc00 + ((c - 0x10000) & 0x3ff))};
}

// The character that a text's next bytes are, in four bytes at most; -1 for none.
inline long nextCharacter(const std::string& text, size_t position, size_t& length) {
  constexpr unsigned char leadBits[] = {0x7f, 0x1f, 0x0f, 0x07};
  for (length = 1; length <= 4 && position + length <= text.size(); ++length) {
    char32_t c = static_cast<unsigned char>(text[position]) & leadBits[length - 1];
    for (size_t i = 1; i < length; ++i) {
      c = c << 6 | (static_cast<unsigned char>(text[position + i]) & 0x3f);
    }
    const bool isCharacter = c <= 0x10ffff && (c < 0xd800 || c > 0xdfff);
    if (isCharacter && utf8(c) == text.substr(position, length)) {
      return static_cast<long>(c);
    }
  }
  return -1;
}

// Up to a zero byte; nothing where any of it is malformed.
inline std::u16string plainlyFromUtf8(const std::string& bytes) {
  const std::string text = upToZero(bytes);
  std::u16string result;
  size_t length = 0;
  for (size_t position = 0; position < text.size(); position += length) {
    const long c = nextCharacter(text, position, length);
    if (c < 0) {
      return std::u16string();
    }
    result += utf16(static_cast<char32_t>(c));
  }
  return result;
}

// Nothing where any of it is malformed, also behind a zero character, at which the result ends.
inline std::string plainlyToUtf8(const std::u16string& units) {
  std::string result;
  for (size_t i = 0; i < units.size(); ++i) {
    char32_t c = units[i];
    if (c >= 0xd800 && c <= 0xdfff) {
      const char32_t next = i + 1 < units.size() ? units[i + 1] : 0;
      if (c > 0xdbff || next < 0xdc00 || next > 0xdfff) {
        return std::string();
      }
      c = 0x10000 + ((c - 0xd800) << 10) + (next - 0xdc00);
      ++i;
    }
    result += utf8(c);
  }
  return upToZero(result);
}

// ---- the locale's encoding

// Character by character, up to a zero byte.
inline std::wstring plainlyDecoded(const std::string& text) {
  std::wstring result;
  std::mbstate_t state{};
  const char* next = text.c_str();
  const char* const end = next + std::strlen(next) + 1;
  while (true) {
    wchar_t c = 0;
    const size_t length = std::mbrtowc(&c, next, static_cast<size_t>(end - next), &state);
    if (length == static_cast<size_t>(-1) || length == static_cast<size_t>(-2)) {
      return std::wstring();
    }
    if (length == 0 && c == 0) {
      return result;
    }
    result += c;
    next += length;
    if (length == 0) {  // the second of two that one sequence stands for; some converters keep it
      state = std::mbstate_t{};
    }
  }
}

// Character by character, up to a zero character and to the two bytes for each and two more.
inline std::string plainlyEncoded(const std::wstring& text) {
  const size_t budget = 2 * text.length() + 2;
  std::string result;
  std::mbstate_t state{};
  char bytes[MB_LEN_MAX];
  for (const wchar_t c : upToZero(text)) {
    const std::mbstate_t before = state;
    const size_t length = std::wcrtomb(bytes, c, &state);
    if (length == static_cast<size_t>(-1) || result.size() + length > budget) {
      state = before;
      break;
    }
    result.append(bytes, length);
  }
  // Some converters hold a character back until they see that nothing combines with it.
  const size_t rest = std::wcrtomb(bytes, L'\0', &state) - 1;
  return result.size() + rest > budget ? result : result.append(bytes, rest);
}

// ---- case, by the locale

inline bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }
inline bool isLetter(wchar_t c) { return std::iswalpha(static_cast<std::wint_t>(c)) != 0; }
inline char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
inline wchar_t upper(wchar_t c) {
  return static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
}
inline char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }
inline wchar_t lower(wchar_t c) {
  return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

template <class Text>
Text plainlyUpper(Text text) {
  for (auto& c : text) {
    c = isLetter(c) ? upper(c) : c;
  }
  return text;
}

template <class Text>
Text plainlyLower(Text text) {
  for (auto& c : text) {
    c = isLetter(c) ? lower(c) : c;
  }
  return text;
}

template <class Text>
bool plainlyEqual(const Text& first, const Text& second) {
  for (size_t i = 0; i < first.size() && i < second.size(); ++i) {
    const bool letters = isLetter(first[i]) && isLetter(second[i]);
    if (letters ? upper(first[i]) != upper(second[i]) : first[i] != second[i]) {
      return false;
    }
  }
  return first.size() == second.size();
}

// ---- numbers

inline std::string plainDecimal(bool negative, unsigned long magnitude) {
  std::string digits;
  do {
    digits.insert(digits.begin(), static_cast<char>('0' + magnitude % 10));
    magnitude /= 10;
  } while (magnitude != 0);
  return (negative ? "-" : "") + digits;
}

template <class Number>
std::string plainDecimal(Number number) {
  const auto bits = static_cast<unsigned long>(number);
  return number < 0 ? plainDecimal(true, 0 - bits) : plainDecimal(false, bits);
}

inline std::string plainDouble(double number) {
  char text[64];
  std::snprintf(text, sizeof text, "%g", number);
  return text;
}

inline bool areDigits(const std::string& text) {
  return text.find_first_not_of("0123456789") == std::string::npos;
}

inline std::wstring widened(const std::string& text) {
  return std::wstring(text.begin(), text.end());
}

// ---- trimming, searching and replacing

inline bool trimsNothing(const std::string& text, const char* set) {
  return text.empty() || set == nullptr || *set == '\0';
}

inline bool isInSet(char c, const char* set) {
  for (; *set != '\0'; ++set) {
    if (*set == c) {
      return true;
    }
  }
  return false;
}

inline std::string plainlyLeftTrimmed(std::string text, const char* set) {
  if (trimsNothing(text, set)) {
    return text;
  }
  while (!text.empty() && isInSet(text.front(), set)) {
    text.erase(0, 1);
  }
  return upToZero(text);
}

inline std::string plainlyRightTrimmed(std::string text, const char* set) {
  if (trimsNothing(text, set)) {
    return text;
  }
  while (!text.empty() && isInSet(text.back(), set)) {
    text.pop_back();
  }
  return text;
}

inline size_t plainlyFound(const std::string& text, const std::string& pattern, bool trimRight) {
  const std::string searched = trimRight ? plainlyRightTrimmed(text, " \n\t\r") : text;
  for (size_t i = 0; i + pattern.size() <= searched.size(); ++i) {
    if (searched.compare(i, pattern.size(), pattern) == 0) {
      return i;
    }
  }
  return std::string::npos;
}

// From left to right, up to a zero byte.
inline std::string plainlyReplaced(const std::string& text, const std::string& from,
                                   const std::string& to) {
  if (from.empty()) {
    return text;
  }
  std::string result;
  for (size_t i = 0; i < text.size();) {
    if (text.compare(i, from.size(), from) == 0) {
      result += to;
      i += from.size();
    } else {
      result += text[i++];
    }
  }
  return upToZero(result);
}

// ---- XML

using Entities = std::vector<std::pair<std::string, std::string>>;

inline std::string plainlyReplacedAll(std::string text, const Entities& replacements) {
  for (const auto& [from, to] : replacements) {
    text = plainlyReplaced(text, from, to);
  }
  return text;
}

inline std::string plainlyEscaped(const std::string& text) {
  return plainlyReplacedAll(text, {{"\x26", "&amp;"},
                                   {"\x3c", "&lt;"},
                                   {"\x3e", "&gt;"},
                                   {"\x22", "&quot;"},
                                   {"\x27", "&#39;"}});
}

inline std::string plainlyUnescaped(const std::string& text) {
  return plainlyReplacedAll(text, {{"&#39;", "\x27"},
                                   {"&quot;", "\x22"},
                                   {"&gt;", "\x3e"},
                                   {"&lt;", "\x3c"},
                                   {"&amp;", "\x26"}});
}

// ---- hexadecimal

using Bytes = std::vector<unsigned char>;

inline std::string plainHexadecimal(const Bytes& bytes) {
  std::string result;
  for (const unsigned int byte : bytes) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%02x", byte);
    result += digits;
  }
  return result;
}

// What str2binary() leaves behind.
struct BinaryRead {
  int status;
  int size;
  Bytes out;

  bool operator==(const BinaryRead& other) const {
    return status == other.status && size == other.size && out == other.out;
  }
};

inline void PrintTo(const BinaryRead& read, std::ostream* stream) {
  *stream << read.status << ", size " << read.size << ", " << plainHexadecimal(read.out);
}

constexpr unsigned char untouched = 0xee;

// For a text that is not empty.
inline BinaryRead plainlyRead(const std::string& hex, int size, size_t room = 8) {
  BinaryRead read = {done, size, Bytes(room, untouched)};
  const int pairs = static_cast<int>(hex.size()) / 2;
  if (size < pairs) {
    read.status = refused;
    return read;
  }
  for (size_t i = 0; i < hex.size() / 2; ++i) {
    const char pair[] = {hex[2 * i], hex[2 * i + 1], '\0'};
    read.out[i] = static_cast<unsigned char>(std::strtol(pair, nullptr, 16) & 0xff);
  }
  read.size = pairs;
  return read;
}

inline std::string plainIdentifier(unsigned int type, const std::string& bytes) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%04x", type);
  std::string result = digits;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    result += (byte >= 0x80 ? "ffffff" : "") + plainHexadecimal({byte});
  }
  return result;
}

// ---- tokens

inline std::vector<std::string> plainTokens(const std::string& text,
                                            const std::string& delimiters) {
  std::string buffer = upToZero(text);
  std::vector<std::string> tokens;
  for (const char* token = std::strtok(buffer.data(), delimiters.c_str()); token != nullptr;
       token = std::strtok(nullptr, delimiters.c_str())) {
    tokens.emplace_back(token);
  }
  return tokens;
}

inline bool plainlyIsIpAddress(const std::string& text) {
  const std::vector<std::string> tokens = plainTokens(text, ".");
  for (const std::string& token : tokens) {
    if (!areDigits(token)) {
      return false;
    }
  }
  return tokens.size() == 4;
}

}  // namespace kelp_test

// The conversions between the four kinds of strings.
#include "cmnasciitext.h"
#include "cmnbytesum.h"
#include "cmnstringtool.h"

#include <unicode/ustring.h>

#include <langinfo.h>
#include <string.h>

#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <new>
#include <string_view>

namespace kelp_cmn_4_4 {
namespace {

struct Free {
  void operator()(void* memory) const { std::free(memory); }
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

bool localeIsUtf8() { return std::string_view(nl_langinfo(CODESET)) == "UTF-8"; }

// Of the encodings that do, these are by far the most usual.
bool localeKeepsAscii() {
  const std::string_view encoding = nl_langinfo(CODESET);
  return encoding == "UTF-8" || encoding == "ANSI_X3.4-1968" ||
         encoding.substr(0, 9) == "ISO-8859-";
}

// In UTF-8 a character goes on in the bytes from 0x80 to 0xbf.
unsigned char charactersBegun(char byte) { return static_cast<signed char>(byte) >= -0x40 ? 1 : 0; }

// The characters that begin with the bytes from 0xf0 on take two units.
unsigned char unitsBegun(char byte) {
  const bool takesTwo = static_cast<unsigned char>(byte) >= 0xf0;
  return static_cast<unsigned char>(charactersBegun(byte) + (takesTwo ? 1 : 0));
}

// Where one sequence stands for two characters, the platform's converters for these take the second
// out of their state again and again: counting, it does not come to an end.
bool localeKeepsSecondCharacters() {
  const std::string_view encoding = nl_langinfo(CODESET);
  return encoding == "EUC-JISX0213" || encoding == "SHIFT_JISX0213";
}

size_t countOneByOne(const char* text) {
  const char* const end = text + strlen(text) + 1;
  std::mbstate_t state{};
  size_t count = 0;
  for (wchar_t c = L'#'; c != L'\0'; ++count) {
    const size_t length = std::mbrtowc(&c, text, static_cast<size_t>(end - text), &state);
    if (length > static_cast<size_t>(end - text)) {
      return static_cast<size_t>(-1);
    }
    if (length == 0) {
      state = std::mbstate_t{};
    }
    text += length;
  }
  return count - 1;
}

// How many wide characters a text has in the locale's encoding; -1 where it is not valid. In UTF-8
// only the conversion tells whether it is.
size_t countCharacters(const char* text) {
  if (localeIsUtf8()) {
    return sumInBlocks(strlen(text), [text](size_t i) { return charactersBegun(text[i]); });
  }
  return localeKeepsSecondCharacters() ? countOneByOne(text) : std::mbstowcs(nullptr, text, 0);
}

// How many UTF-16 units valid UTF-8 has.
size_t countUtf16(const char* text, size_t size) {
  return sumInBlocks(size, [text](size_t i) { return unitsBegun(text[i]); });
}

std::wstring widenedAscii(const char* text) {
  const size_t length = strlen(text);
  const MallocBuffer<wchar_t> buffer = mallocBuffer<wchar_t>(length + 1);
  copyAscii(text, length, buffer.get());
  return std::wstring(buffer.get(), length);
}

// Up to the first zero, as ustr2str() reads every buffer.
std::string narrowedAscii(const UChar* units, size_t length) {
  const std::unique_ptr<char[]> buffer(new char[length + 1]);
  copyAscii(units, length, buffer.get());
  buffer[length] = '\0';
  return std::string(buffer.get());
}

}  // namespace

std::wstring CCmnStringTool::str2wstr(const std::string& text) {
  if (text.empty()) {
    return std::wstring();
  }
  if (isAscii(text.data(), text.length()) && localeKeepsAscii()) {
    return widenedAscii(text.c_str());
  }
  const size_t count = countCharacters(text.c_str());
  // Deliberate: nothing of a text that is not valid, though wstr2str() keeps what it had converted.
  // An empty result is how callers learn that the locale does not fit.
  if (count == static_cast<size_t>(-1)) {
    return std::wstring();
  }
  const MallocBuffer<wchar_t> buffer = mallocBuffer<wchar_t>(count + 1);
  // In some encodings a text that ends inside a character is counted without an error, and then
  // not terminated.
  buffer[count] = L'#';
  if (std::mbstowcs(buffer.get(), text.c_str(), count + 1) != count || buffer[count] != L'\0') {
    return std::wstring();
  }
  return std::wstring(buffer.get(), count);
}

std::wstring CCmnStringTool::mbs2wcs(const std::string& text) { return str2wstr(text); }

std::string CCmnStringTool::wstr2str(const std::wstring& text) {
  if (text.empty()) {
    return std::string();
  }
  // Deliberate: two bytes per character bound the result. Hosts size the fields that take it by
  // the same rule.
  const size_t budget = 2 * text.length() + 2;
  const MallocBuffer<char> buffer = mallocBuffer<char>(budget);
  if (isAscii(text.data(), text.length()) && localeKeepsAscii()) {
    copyAscii(text.data(), text.length() + 1, buffer.get());
    return std::string(buffer.get());
  }
  memset(buffer.get(), 0, budget);
  const size_t length = std::wcstombs(buffer.get(), text.c_str(), budget);
  // Deliberate: an error keeps what was converted before it, since a part of a message tells more
  // than none. Nobody says how much that is. Without an error some encodings put the beginning of a
  // character behind the last that fitted.
  const bool failed = length == static_cast<size_t>(-1);
  return std::string(buffer.get(), failed ? strnlen(buffer.get(), budget) : length);
}

std::string CCmnStringTool::wcs2mbs(const std::wstring& text) { return wstr2str(text); }

// Deliberate: these two do not convert. Code for both kinds of strings calls them with what is of
// the wanted type already.
std::wstring CCmnStringTool::str2wstr(const std::wstring& text) { return text; }

std::string CCmnStringTool::wstr2str(const std::string& text) { return text; }

tstr CCmnStringTool::str2tstr(const std::string& text) {
  // Deliberate: up to the first zero byte, here and in tstr2str(), never by the stored length: a
  // tstr goes through C interfaces.
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
  const size_t size = strnlen(text.c_str(), INT32_MAX);
  if (size == 0 || size == INT32_MAX) {
    return icu::UnicodeString();
  }
  const bool ascii = isAscii(text.data(), size);
  const auto length = static_cast<int32_t>(ascii ? size : countUtf16(text.c_str(), size));
  const std::unique_ptr<UChar[]> buffer(new UChar[static_cast<size_t>(length) + 1]);
  if (ascii) {
    copyAscii(text.data(), size, buffer.get());
  } else {
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(buffer.get(), length + 1, nullptr, text.c_str(), -1, &error);
    if (U_FAILURE(error)) {
      return icu::UnicodeString();
    }
  }
  icu::UnicodeString result(buffer.get(), length);
  if (result.isBogus()) {  // ICU's way to say that it could not allocate
    throw std::bad_alloc();
  }
  return result;
}

std::string CCmnStringTool::ustr2str(icu::UnicodeString& text) {
  const int32_t unitCount = text.length();
  if (text.isBogus() || unitCount < 1 || unitCount == INT32_MAX) {  // ICU terminates no more
    return std::string();
  }
  // ICU drops the text of a string that it cannot terminate for lack of memory: so of a copy's.
  icu::UnicodeString copy;
  copy.fastCopyFrom(text);
  const UChar* const units = copy.getTerminatedBuffer();
  if (units == nullptr) {
    throw std::bad_alloc();
  }
  if (isAscii(units, static_cast<size_t>(unitCount))) {
    return narrowedAscii(units, static_cast<size_t>(unitCount));
  }
  UErrorCode error = U_ZERO_ERROR;
  int32_t length = 0;
  u_strToUTF8(nullptr, 0, &length, units, unitCount, &error);
  // Every unit takes a byte or more, so fewer bytes are a count that has passed INT32_MAX.
  if (length < unitCount || length == INT32_MAX) {
    return std::string();
  }
  const int32_t capacity = length + 1;
  const std::unique_ptr<char[]> buffer(new char[static_cast<size_t>(capacity)]());
  error = U_ZERO_ERROR;
  u_strToUTF8(buffer.get(), capacity, &length, units, unitCount, &error);
  // Deliberate: up to the first zero byte. What is behind it would get lost in the next tstr.
  return U_SUCCESS(error) ? std::string(buffer.get()) : std::string();
}

icu::UnicodeString CCmnStringTool::tstr2ustr(tstr& text) {
  std::string bytes = tstr2str(text);
  return str2ustr(bytes);
}

tstr CCmnStringTool::ustr2tstr(icu::UnicodeString& text) { return str2tstr(ustr2str(text)); }

}  // namespace kelp_cmn_4_4

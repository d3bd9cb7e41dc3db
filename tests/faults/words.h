// What operations come to, in words.
#pragma once

#include "cmntypes.h"

#include <unicode/unistr.h>

#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kelp_test {

inline std::string words(const std::string& text) { return text; }
inline std::string words(const char* text) { return text == nullptr ? "(null)" : text; }

inline std::string words(const std::wstring& text) {
  std::string result;
  icu::UnicodeString::fromUTF32(reinterpret_cast<const UChar32*>(text.data()),
                                static_cast<int32_t>(text.size()))
      .toUTF8String(result);
  return result;
}

inline std::string words(const kelp_cmn_4_4::tstr& text) { return words(text.c_str()); }

inline std::string words(const icu::UnicodeString& text) {
  std::string result;
  return text.isBogus() ? "(bogus)" : text.toUTF8String(result);
}

template <class Number, class = std::enable_if_t<std::is_arithmetic_v<Number>>>
std::string words(Number number) {
  return std::to_string(number);
}

template <class Some>
std::string joinedWords(const Some& some) {
  std::string result;
  for (const auto& one : some) {
    result += words(one) + "|";
  }
  return result;
}
template <class Value>
std::string words(const std::vector<Value>& values) {
  return joinedWords(values);
}
inline std::string words(const std::set<std::string>& texts) { return joinedWords(texts); }

template <class First, class Second>
std::string words(const std::pair<First, Second>& both) {
  return words(both.first) + ", " + words(both.second);
}

struct InWords {
  template <class Value>
  std::string operator()(const Value& value) const {
    return words(value);
  }
};

}  // namespace kelp_test

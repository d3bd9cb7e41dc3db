// Texts for functions that take a std::string, over memory of the test's choice.
#pragma once

#include "guarded_page.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace kelp_test {

// A string that says it holds these characters, without a copy of them. It must not be changed.
template <class Char>
class TextOver {
 public:
  TextOver(const Char* data, size_t length) {
    const struct {
      const Char* data;
      size_t length;
      size_t capacity;
    } claimed = {data, length, length};
    std::memcpy(m_kept, static_cast<void*>(&m_text), sizeof m_kept);
    std::memcpy(static_cast<void*>(&m_text), &claimed, sizeof claimed);
  }
  ~TextOver() { std::memcpy(static_cast<void*>(&m_text), m_kept, sizeof m_kept); }
  TextOver(const TextOver&) = delete;
  TextOver& operator=(const TextOver&) = delete;

  std::basic_string<Char>& text() { return m_text; }

 private:
  std::basic_string<Char> m_text;
  char m_kept[sizeof(std::basic_string<Char>)];
};

// Strings whose terminator is the last that may be read, one at a time.
template <class Char>
class GuardedTexts {
 public:
  explicit GuardedTexts(size_t longest) : m_page(longest + 1) {}

  // Good until the next one.
  TextOver<Char> over(const std::basic_string<Char>& text) {
    Char* const start = m_page.data() + (m_page.size() - text.size() - 1);
    std::copy_n(text.c_str(), text.size() + 1, start);
    return TextOver<Char>(start, text.size());
  }

 private:
  GuardedPage<Char> m_page;
};

}  // namespace kelp_test

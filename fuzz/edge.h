// Texts that end at a page nobody may touch, so that one element too far ends the fuzzer.
#pragma once

#include "guarded_page.h"
#include "text_over.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace kelp_fuzz {

constexpr size_t longestInput = 1 << 16;

// A string whose terminator is the last that may be read; good until the next one of its kind.
template <class Char>
kelp_test::TextOver<Char> atEdge(const std::basic_string<Char>& text) {
  static kelp_test::GuardedTexts<Char> texts(longestInput);
  return texts.over(text);
}

// Elements that are the last before such a page, to be read and written.
template <class Char>
class EdgeBuffer {
 public:
  Char* holding(const std::basic_string<Char>& content) {
    m_start = m_page.data() + (m_page.size() - content.size());
    m_size = content.size();
    std::copy(content.begin(), content.end(), m_start);
    return m_start;
  }

  std::basic_string<Char> content() const { return std::basic_string<Char>(m_start, m_size); }

 private:
  kelp_test::GuardedPage<Char> m_page{longestInput};
  Char* m_start = nullptr;
  size_t m_size = 0;
};

}  // namespace kelp_fuzz

// Searching in time that is linear in the text, whatever is searched for, and what follows from it.
#ifndef CMNTEXTSEARCH_H
#define CMNTEXTSEARCH_H

#include <string.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>

namespace kelp_cmn_4_4 {

// The bytes of a NUL-terminated text.
class ByteSet {
 public:
  explicit ByteSet(const char* bytes) {
    for (; *bytes != '\0'; ++bytes) {
      m_holds[static_cast<unsigned char>(*bytes)] = true;
    }
  }

  bool holds(char c) const { return m_holds[static_cast<unsigned char>(c)]; }

  // How many bytes of the set a text begins with, ends with, or has none of at its beginning.
  size_t leading(std::string_view text) const {
    size_t count = 0;
    while (count < text.size() && holds(text[count])) {
      ++count;
    }
    return count;
  }
  size_t trailing(std::string_view text) const {
    size_t count = 0;
    while (count < text.size() && holds(text[text.size() - 1 - count])) {
      ++count;
    }
    return count;
  }
  size_t leadingOthers(std::string_view text) const {
    size_t others = 0;
    while (others < text.size() && !holds(text[others])) {
      ++others;
    }
    return others;
  }

 private:
  std::array<bool, UCHAR_MAX + 1> m_holds = {};
};

// Where a pattern first stands in a text; npos if nowhere. Looks for its first byte alone, until
// too often the rest is not there: then goes on in a way that is linear for every text, but slower.
inline size_t findIn(std::string_view text, std::string_view pattern) {
  constexpr int falseStarts = 32;
  if (pattern.empty()) {
    return 0;
  }
  size_t start = 0;
  for (int i = 0; i < falseStarts; ++i) {
    start = text.find(pattern[0], start);
    if (start == std::string_view::npos || text.size() - start < pattern.size()) {
      return std::string_view::npos;
    }
    if (text.compare(start, pattern.size(), pattern) == 0) {
      return start;
    }
    ++start;
  }
  const void* const match =
      memmem(text.data() + start, text.size() - start, pattern.data(), pattern.size());
  return match == nullptr ? std::string_view::npos
                          : static_cast<size_t>(static_cast<const char*>(match) - text.data());
}

// The size of a text in which one pattern takes the place of another, which first stands at
// `first`. Throws where it is so large that no byte can follow it.
inline size_t replacedSize(std::string_view text, std::string_view from, std::string_view to,
                           size_t first) {
  size_t matches = 0;
  size_t kept = text.size();
  for (size_t match = first; match != std::string_view::npos; match = findIn(text, from)) {
    ++matches;
    kept -= from.size();
    text.remove_prefix(match + from.size());
  }
  size_t size = 0;
  if (__builtin_mul_overflow(matches, to.size(), &size) ||
      __builtin_add_overflow(size, kept, &size) || size == SIZE_MAX) {
    throw std::bad_alloc();
  }
  return size;
}

}  // namespace kelp_cmn_4_4

#endif

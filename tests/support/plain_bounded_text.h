// Slow forms of the Q_ routines that copy and append, step by step, on a destination that is a
// string of all its elements.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace kelp_test {

template <class Char>
size_t slowCopy(std::basic_string<Char>& dst, size_t at, const std::basic_string<Char>& src,
                size_t size) {
  if (size == 0) {
    return 0;
  }
  size_t copied = 0;
  while (copied < size - 1 && copied < src.size()) {
    dst[at + copied] = src[copied];
    ++copied;
  }
  dst[at + copied] = Char();
  return copied;
}

template <class Char>
size_t slowAppend(std::basic_string<Char>& dst, const std::basic_string<Char>& src, size_t size) {
  if (size == 0) {
    return 0;
  }
  if (dst[0] == Char()) {
    return size < 2 ? 0 : slowCopy(dst, 0, src, size);
  }
  size_t room = size;
  size_t length = 0;
  while (dst[length] != Char()) {
    if (room == 1) {
      return 0;
    }
    ++length;
    --room;
    if (room == 1) {
      return 0;
    }
  }
  room = size - length;
  return room < 2 ? 0 : slowCopy(dst, length, src, room);
}

template <class Char>
size_t slowCopyAndFill(std::basic_string<Char>& dst, const std::basic_string<Char>& src, size_t n,
                       size_t size) {
  if (size == 0) {
    return 0;
  }
  const size_t m = n < size ? n : size;
  for (size_t i = 0; i < m; ++i) {
    dst[i] = i < src.size() ? src[i] : Char();
  }
  if (size <= m) {
    dst[size - 1] = Char();
    return size - 1;
  }
  dst[m] = Char();
  return m;
}

template <class Char>
size_t slowAppendAtMost(std::basic_string<Char>& dst, const std::basic_string<Char>& src, size_t n,
                        size_t size) {
  const size_t length = std::min(dst.find(Char()), dst.size());
  const bool fits = n < size && length + n + 1 < size;
  return slowAppend(dst, src, fits ? length + n + 1 : size);
}

// Of a source what a call may read, at most `bound` elements; a longer one ends unterminated.
template <class Char>
std::basic_string<Char> readable(const std::basic_string<Char>& source, size_t bound) {
  return (source + Char()).substr(0, bound);
}

}  // namespace kelp_test

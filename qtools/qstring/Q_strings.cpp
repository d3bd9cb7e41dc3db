#include "Q_strings.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

size_t boundedLength(const char* text, size_t limit) { return strnlen(text, limit); }

size_t boundedLength(const wchar_t* text, size_t limit) { return wcsnlen(text, limit); }

template <class Char>
size_t copyText(Char* dst, const Char* src, size_t size) {
  if (size == 0 || dst == nullptr || src == nullptr) {
    return 0;
  }
  const size_t length = boundedLength(src, size - 1);
  std::char_traits<Char>::copy(dst, src, length);
  dst[length] = Char();
  // Deliberate: what was stored, unlike strlcpy, which gives what would have been needed: callers
  // add the results up to a position in the buffer.
  return length;
}

template <class Char>
size_t appendText(Char* dst, const Char* src, size_t size) {
  if (size == 0 || dst == nullptr || src == nullptr) {
    return 0;
  }
  const size_t length = boundedLength(dst, size - 1);
  if (length == size - 1) {
    return 0;  // full, or not terminated: left as it is
  }
  // Deliberate: what was appended, not the resulting length, for the same reason.
  return copyText(dst + length, src, size - length);
}

template <class Char>
size_t copyAndFill(Char* dst, const Char* src, size_t n, size_t size) {
  if (size == 0 || dst == nullptr || src == nullptr) {
    return 0;
  }
  const size_t stored = std::min(n, size - 1);
  const size_t length = boundedLength(src, stored);
  std::char_traits<Char>::copy(dst, src, length);
  std::fill(dst + length, dst + stored + 1, Char());
  // Deliberate: the bound, not what was taken from the source: callers lay out fields of a fixed
  // width by it.
  return stored;
}

template <class Char>
size_t appendAtMost(Char* dst, const Char* src, size_t n, size_t size) {
  if (size == 0) {
    return 0;
  }
  const size_t length = boundedLength(dst, size - 1);
  const size_t room = size - length;  // the terminator's, too
  // Where n exceeds the room, length + n could exceed every size_t.
  return appendText(dst, src, n < room ? length + n + 1 : size);
}

template <class Char>
int verifyText(const Char* buf, size_t n, size_t* length) {
  const size_t found = buf == nullptr ? n : boundedLength(buf, n);
  const bool terminated = found < n;
  if (length != nullptr) {
    *length = terminated ? found : 0;
  }
  return terminated ? 0 : -1;
}

}  // namespace

size_t Q_strlcpy(char* dst, const char* src, size_t size) { return copyText(dst, src, size); }

size_t Q_strlcat(char* dst, const char* src, size_t size) { return appendText(dst, src, size); }

size_t Q_strlncpy(char* dst, const char* src, size_t n, size_t size) {
  return copyAndFill(dst, src, n, size);
}

size_t Q_strlncat(char* dst, const char* src, size_t n, size_t size) {
  return appendAtMost(dst, src, n, size);
}

size_t Q_wcslcpy(wchar_t* dst, const wchar_t* src, size_t size) { return copyText(dst, src, size); }

size_t Q_wcslcat(wchar_t* dst, const wchar_t* src, size_t size) {
  return appendText(dst, src, size);
}

size_t Q_wcslncpy(wchar_t* dst, const wchar_t* src, size_t n, size_t size) {
  return copyAndFill(dst, src, n, size);
}

size_t Q_wcslncat(wchar_t* dst, const wchar_t* src, size_t n, size_t size) {
  return appendAtMost(dst, src, n, size);
}

int Q_strverify(const char* buf, size_t n, size_t* length) { return verifyText(buf, n, length); }

int Q_wstrverify(const wchar_t* buf, size_t n, size_t* length) {
  return verifyText(buf, n, length);
}

int Q_vsnprintf(char* dst, size_t size, const char* format, va_list args) {
  if (size == 0 || dst == nullptr) {
    return -1;
  }
  const int length = vsnprintf(dst, size, format, args);
  // Deliberate: an error gives 0 and an empty text, not -1, and a text that was cut the length
  // stored: callers take every result but the -1 above for the length of what is in the buffer.
  if (length < 0) {
    dst[0] = '\0';
    return 0;
  }
  return static_cast<int>(std::min(static_cast<size_t>(length), size - 1));
}

int Q_snprintf(char* dst, size_t size, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int length = Q_vsnprintf(dst, size, format, args);
  va_end(args);
  return length;
}

int Q_vsnwprintf(wchar_t* dst, size_t size, const wchar_t* format, va_list args) {
  if (size == 0 || size > SIZE_MAX / sizeof(wchar_t)) {
    return -1;
  }
  auto* const temporary = static_cast<wchar_t*>(malloc(size * sizeof(wchar_t)));
  if (temporary == nullptr) {
    return -1;
  }
  temporary[0] = L'\0';  // a platform that fails may have written nothing
  const int result = vswprintf(temporary, size, format, args);
  Q_wcslcpy(dst, temporary, size);
  free(temporary);
  // Deliberate: the platform's result, unlike Q_vsnprintf's. -1 is the one sign that a
  // text was cut.
  return result;
}

int Q_snwprintf(wchar_t* dst, size_t size, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = Q_vsnwprintf(dst, size, format, args);
  va_end(args);
  return result;
}

void* Q_dumb_realloc(void** block, size_t size) {
  if (block == nullptr) {
    return nullptr;
  }
  void* const resized = realloc(*block, size);
  // Deliberate: a failure frees the old block, which realloc would keep: callers have no other copy
  // of its address. With a size of 0 the platform has freed it.
  if (resized == nullptr && size != 0) {
    free(*block);
  }
  *block = resized;
  return resized;
}

// What the scanner reads, character by character. Not installed.
#ifndef Q_SCANINPUT_H
#define Q_SCANINPUT_H

#include "Q_vfscanf.h"

#include <cctype>
#include <cstdint>
#include <cstring>

namespace q_scan {

constexpr int endOfInput = -1;

inline bool isSpace(int c) { return std::isspace(c) != 0; }

inline bool isOneOf(int c, const char* characters) {
  return c > 0 && std::strchr(characters, c) != nullptr;
}

inline bool isDigit(int c, int base) {
  if (base <= 10) {
    return c >= '0' && c < '0' + base;
  }
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

class Input {
 public:
  explicit Input(ScanSource& source) : m_source(source) {}

  // The next character, or endOfInput.
  int peek() {
    if (m_source.unread <= 0 && __Qrefill(&m_source) != 0) {
      return endOfInput;
    }
    return static_cast<unsigned char>(*m_source.position);
  }

  // Consumes the character that peek() gave.
  void consume() {
    ++m_source.position;
    --m_source.unread;
    ++m_consumed;
  }

  void skipSpace() {
    while (isSpace(peek())) {
      consume();
    }
  }

  intmax_t consumed() const { return m_consumed; }

 private:
  ScanSource& m_source;
  intmax_t m_consumed = 0;
};

// The input that a conversion may consume: as much as its width allows.
class Field {
 public:
  Field(Input& input, int width) : m_input(input), m_limit(width == 0 ? INTMAX_MAX : width) {}

  int peek() { return m_consumed == m_limit ? endOfInput : m_input.peek(); }

  void consume() {
    m_input.consume();
    ++m_consumed;
  }

  // The character consumed, or 0 where another one follows.
  int consumeOneOf(const char* characters) {
    const int c = peek();
    if (!isOneOf(c, characters)) {
      return 0;
    }
    consume();
    return c;
  }

  intmax_t consumed() const { return m_consumed; }

 private:
  Input& m_input;
  intmax_t m_limit;
  intmax_t m_consumed = 0;
};

}  // namespace q_scan

#endif

// What the scanner reads. Not installed.
#ifndef Q_SCANINPUT_H
#define Q_SCANINPUT_H

#include "Q_vfscanf.h"

#include <ctype.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace q_scan {

constexpr int endOfInput = -1;

// The platform's isspace for a run of characters. It, too, looks in the calling thread's table,
// which it fetches but once: it is not to outlive a refill, which may change the locale.
class SpaceTest {
 public:
  bool operator()(int c) const { return (m_classes[c] & _ISspace) != 0; }

 private:
  const unsigned short* m_classes = *__ctype_b_loc();
};

inline bool isSpace(int c) { return SpaceTest()(c); }

inline bool isDigit(int c) { return c >= '0' && c <= '9'; }

// How many characters a text begins with for which `belongs` holds.
template <class Belongs>
size_t runLength(const unsigned char* text, size_t limit, Belongs belongs) {
  size_t length = 0;
  while (length < limit && belongs(text[length])) {
    ++length;
  }
  return length;
}

// How many characters a text begins with that are no white space.
inline size_t wordLength(const unsigned char* text, size_t limit) {
  return runLength(text, limit, [space = SpaceTest()](int c) { return !space(c); });
}

class Input {
 public:
  // Goes on where the source stands. The source is brought up to date at the end.
  explicit Input(ScanSource& source) : m_source(&source) { adoptSource(); }

  // A text up to its terminator, which is looked for no further than the scan comes; a longer one
  // ends at the limit.
  explicit Input(const char* text, size_t limit = INT_MAX)
      : m_start(text), m_position(text), m_end(text), m_textLimit(limit) {}

  ~Input() {
    if (m_source != nullptr) {
      updateSource();
    }
  }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  // The next character, or endOfInput.
  int peek() {
    if (m_position == m_end && !refill()) {
      return endOfInput;
    }
    return static_cast<unsigned char>(*m_position);
  }

  // What can be read without asking for more, from the character that peek() gave.
  const char* position() const { return m_position; }
  size_t available() const { return static_cast<size_t>(m_end - m_position); }

  // Whether what can be read so is all there is.
  bool isLast() const { return m_source == nullptr && *m_end == '\0'; }

  // Consumes some of that.
  void consume(size_t count = 1) { m_position += count; }

  void skipSpace() {
    while (peek() != endOfInput) {
      const auto* const text = reinterpret_cast<const unsigned char*>(m_position);
      consume(runLength(text, available(), SpaceTest()));
      if (m_position != m_end) {
        return;
      }
    }
  }

  intmax_t consumed() const { return m_consumedBefore + (m_position - m_start); }

 private:
  bool refill();
  void adoptSource();
  void updateSource();

  ScanSource* m_source = nullptr;
  const char* m_start = nullptr;  // of what is at hand
  const char* m_position = nullptr;
  const char* m_end = nullptr;
  intmax_t m_consumedBefore = 0;
  size_t m_textLimit = 0;  // of what has not been looked at
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

  // Consumes a run of characters. `measure` tells how many of those at hand belong to it, and `use`
  // gets them piece by piece.
  template <class Measure, class Use>
  void consumeRun(Measure measure, Use use) {
    while (peek() != endOfInput) {
      const auto* const text = reinterpret_cast<const unsigned char*>(m_input.position());
      const size_t limit = std::min(m_input.available(), static_cast<size_t>(m_limit - m_consumed));
      const size_t length = measure(text, limit);
      use(m_input.position(), length);
      m_input.consume(length);
      m_consumed += static_cast<intmax_t>(length);
      if (length < limit) {
        return;
      }
    }
  }

  bool consumeIf(char expected) { return consumeEither(expected, expected) != 0; }

  // The character consumed, or 0 where neither of them follows.
  int consumeEither(char first, char second) {
    const int c = peek();
    if (c != first && c != second) {
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

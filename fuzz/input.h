// What a fuzzer's bytes say, piece by piece: numbers, choices and texts. When they have run out,
// all is zero or empty.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace kelp_fuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : m_next(data), m_left(size) {}

  bool empty() const { return m_left == 0; }

  // The bytes of a number, the lowest first.
  template <class Number>
  Number number() {
    unsigned char bytes[sizeof(Number)] = {};
    const size_t count = m_left < sizeof bytes ? m_left : sizeof bytes;
    std::memcpy(bytes, m_next, count);
    skip(count);
    Number value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }

  // From 0 to most; one byte of input up to 255, else two.
  size_t upTo(size_t most) {
    return (most < 256 ? number<uint8_t>() : number<uint16_t>()) % (most + 1);
  }

  bool choice() { return (number<uint8_t>() & 1U) != 0; }

  // The next count bytes, fewer at the end.
  std::string bytes(size_t count) {
    count = m_left < count ? m_left : count;
    std::string text(reinterpret_cast<const char*>(m_next), count);
    skip(count);
    return text;
  }

  // Up to and without the next zero byte, which goes as well; so a corpus can be read and written.
  std::string text() {
    const void* const end = m_left == 0 ? nullptr : std::memchr(m_next, 0, m_left);
    if (end == nullptr) {
      return rest();
    }
    std::string text = bytes(static_cast<size_t>(static_cast<const uint8_t*>(end) - m_next));
    skip(1);
    return text;
  }

  std::string rest() { return bytes(m_left); }

 private:
  void skip(size_t count) {
    m_next += count;
    m_left -= count;
  }

  const uint8_t* m_next;
  size_t m_left;
};

}  // namespace kelp_fuzz

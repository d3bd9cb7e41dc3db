#include "cmnmsgdgst5.h"

#include "cmnhexdigits.h"

#include <string.h>

#include <algorithm>

namespace kelp_cmn_4_4 {
namespace {

// Deliberate: 64 bits, never reduced to the 32 of RFC 1321. Digests that hosts have kept were made
// so, and those of MD5 would match none of them.
using Word = unsigned long;

constexpr Word blockSize = 64;
constexpr Word lengthPosition = 56;

// Integer parts of 2^32 times the absolute sine of 1 to 64. Set by hand, four to a line, as the
// shifts repeat after four steps.
// clang-format off
constexpr Word sines[4][16] = {
    {0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee,
     0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
     0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be,
     0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821},
    {0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa,
     0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
     0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed,
     0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a},
    {0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c,
     0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
     0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05,
     0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665},
    {0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039,
     0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
     0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1,
     0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391}};
// clang-format on

struct Round1 {
  static Word mixed(Word b, Word c, Word d) { return d ^ (b & (c ^ d)); }
  static constexpr Word shifts[4] = {7, 12, 17, 22};
  static constexpr Word wordAt(Word step) { return step; }
};

struct Round2 {
  static Word mixed(Word b, Word c, Word d) { return (b & d) + (c & ~d); }
  static constexpr Word shifts[4] = {5, 9, 14, 20};
  static constexpr Word wordAt(Word step) { return (1 + 5 * step) % 16; }
};

struct Round3 {
  static Word mixed(Word b, Word c, Word d) { return b ^ (c ^ d); }
  static constexpr Word shifts[4] = {4, 11, 16, 23};
  static constexpr Word wordAt(Word step) { return (5 + 3 * step) % 16; }
};

struct Round4 {
  static Word mixed(Word b, Word c, Word d) { return c ^ (b | ~d); }
  static constexpr Word shifts[4] = {6, 10, 15, 21};
  static constexpr Word wordAt(Word step) { return 7 * step % 16; }
};

template <class Round>
inline void takeStep(Word& w, Word b, Word c, Word d, Word x, Word s, Word t) {
  const Word v = Round::mixed(b, c, d) + (w + x + t);
  // Deliberate: not a rotation. What leaves the 64 bits at the top is lost, and what is above the
  // 32 bits stays, as in every digest made so far.
  w = (v >> (32 - s) | v << s) + b;
}

template <class Round>
inline void takeRound(Word (&w)[4], const Word (&x)[16], const Word (&t)[16]) {
  for (Word i = 0; i < 16; i += 4) {
    takeStep<Round>(w[0], w[1], w[2], w[3], x[Round::wordAt(i)], Round::shifts[0], t[i]);
    takeStep<Round>(w[3], w[0], w[1], w[2], x[Round::wordAt(i + 1)], Round::shifts[1], t[i + 1]);
    takeStep<Round>(w[2], w[3], w[0], w[1], x[Round::wordAt(i + 2)], Round::shifts[2], t[i + 2]);
    takeStep<Round>(w[1], w[2], w[3], w[0], x[Round::wordAt(i + 3)], Round::shifts[3], t[i + 3]);
  }
}

// The lowest `count` bytes of a word, least significant first.
void storeBytes(unsigned char* bytes, Word word, Word count) {
  for (Word i = 0; i < count; ++i) {
    bytes[i] = static_cast<unsigned char>(word >> (8 * i));
  }
}

Word loadWord(const unsigned char* bytes) {
  return bytes[0] | static_cast<Word>(bytes[1]) << 8 | static_cast<Word>(bytes[2]) << 16 |
         static_cast<Word>(bytes[3]) << 24;
}

Word sizeOf(const char* text) { return text == nullptr ? 0 : strlen(text); }

Word sizeOf(const unsigned short* text) {
  if (text == nullptr) {
    return 0;
  }
  const unsigned short* end = text;
  while (*end != 0) {
    ++end;
  }
  return static_cast<Word>(end - text) * sizeof *text;
}

}  // namespace

CCmnMessageDigest5::CCmnMessageDigest5() { Initialize(); }

CCmnMessageDigest5::CCmnMessageDigest5(const void* data, unsigned long length) {
  Initialize();
  Update(static_cast<const unsigned char*>(data), length);
  Finalize();
}

CCmnMessageDigest5::CCmnMessageDigest5(const char* text) : CCmnMessageDigest5(text, sizeOf(text)) {}

CCmnMessageDigest5::CCmnMessageDigest5(const unsigned short* text)
    : CCmnMessageDigest5(text, sizeOf(text)) {}

void CCmnMessageDigest5::Initialize() {
  memset(m_buffer, 0, sizeof m_buffer);
  m_bufferCount = 0;
  m_state[0] = 0x67452301;
  m_state[1] = 0xefcdab89;
  m_state[2] = 0x98badcfe;
  m_state[3] = 0x10325476;
  m_bitCount = 0;
  memset(m_digest, 0, sizeof m_digest);
  memset(m_ansiDigest, 0, sizeof m_ansiDigest);
  memset(m_unicodeDigest, 0, sizeof m_unicodeDigest);
}

void CCmnMessageDigest5::Update(const unsigned char* data, unsigned long length) {
  if (data == nullptr || m_ansiDigest[0] != '\0') {
    return;
  }
  if (m_bufferCount > 0) {
    const Word taken = std::min(blockSize - m_bufferCount, length);
    memcpy(m_buffer + m_bufferCount, data, taken);
    m_bufferCount += taken;
    data += taken;
    length -= taken;
    if (m_bufferCount < blockSize) {
      return;
    }
    Transform(m_buffer);
    m_bitCount += blockSize * 8;
  }
  for (; length >= blockSize; data += blockSize, length -= blockSize) {
    Transform(data);
    m_bitCount += blockSize * 8;
  }
  memcpy(m_buffer, data, length);
  m_bufferCount = length;
}

void CCmnMessageDigest5::Finalize() {
  if (m_ansiDigest[0] != '\0') {
    return;
  }
  memset(m_buffer + m_bufferCount, 0, blockSize - m_bufferCount);
  m_buffer[m_bufferCount] = 0x80;
  if (m_bufferCount >= lengthPosition) {
    Transform(m_buffer);
    memset(m_buffer, 0, sizeof m_buffer);
  }
  m_bitCount += m_bufferCount * 8;
  storeBytes(m_buffer + lengthPosition, m_bitCount, 8);
  Transform(m_buffer);
  for (size_t i = 0; i < 4; ++i) {
    storeBytes(m_digest + 4 * i, m_state[i], 4);
  }
  writeHexDigits(m_digest, sizeof m_digest, m_ansiDigest);
}

unsigned char CCmnMessageDigest5::operator[](unsigned long index) const {
  return index < sizeof m_digest ? m_digest[index] : 0;
}

const char* CCmnMessageDigest5::GetAnsiMessageDigest() const { return m_ansiDigest; }

// Deliberate: always empty. The member is there for the layout that hosts are compiled against.
const wchar_t* CCmnMessageDigest5::GetUnicodeMessageDigest() const { return m_unicodeDigest; }

// NOLINTBEGIN(readability-convert-member-functions-to-static): hosts are compiled against members
void CCmnMessageDigest5::Transform_Round1(unsigned long& w, unsigned long b, unsigned long c,
                                          unsigned long d, unsigned long x, unsigned long s,
                                          unsigned long t) {
  takeStep<Round1>(w, b, c, d, x, s, t);
}

void CCmnMessageDigest5::Transform_Round2(unsigned long& w, unsigned long b, unsigned long c,
                                          unsigned long d, unsigned long x, unsigned long s,
                                          unsigned long t) {
  takeStep<Round2>(w, b, c, d, x, s, t);
}

void CCmnMessageDigest5::Transform_Round3(unsigned long& w, unsigned long b, unsigned long c,
                                          unsigned long d, unsigned long x, unsigned long s,
                                          unsigned long t) {
  takeStep<Round3>(w, b, c, d, x, s, t);
}

void CCmnMessageDigest5::Transform_Round4(unsigned long& w, unsigned long b, unsigned long c,
                                          unsigned long d, unsigned long x, unsigned long s,
                                          unsigned long t) {
  takeStep<Round4>(w, b, c, d, x, s, t);
}
// NOLINTEND(readability-convert-member-functions-to-static)

void CCmnMessageDigest5::Transform(const unsigned char* block) {
  Word x[16];
  for (size_t i = 0; i < 16; ++i) {
    x[i] = loadWord(block + 4 * i);
  }
  Word w[4] = {m_state[0], m_state[1], m_state[2], m_state[3]};
  takeRound<Round1>(w, x, sines[0]);
  takeRound<Round2>(w, x, sines[1]);
  takeRound<Round3>(w, x, sines[2]);
  takeRound<Round4>(w, x, sines[3]);
  for (int i = 0; i < 4; ++i) {
    m_state[i] += w[i];
  }
}

}  // namespace kelp_cmn_4_4

// The slow form of CCmnMessageDigest5.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace kelp_test {

// The whole message is padded in memory and every step looks its numbers up. With words of 32 bits
// the shifts become rotations and the result is the well-known MD5.
template <class Word>
struct PlainDigest {
  Word state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  // What is kept of the chaining values from one block to the next.
  Word kept = static_cast<Word>(-1);

  static Word wordOfBlock(const unsigned char* block, int step) {
    static constexpr int order[64] = {
        0, 1, 2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,  //
        1, 6, 11, 0,  5,  10, 15, 4,  9,  14, 3,  8,  13, 2,  7,  12,  //
        5, 8, 11, 14, 1,  4,  7,  10, 13, 0,  3,  6,  9,  12, 15, 2,   //
        0, 7, 14, 5,  12, 3,  10, 1,  8,  15, 6,  13, 4,  11, 2,  9};
    Word word = 0;
    for (int i = 3; i >= 0; --i) {
      word = word * 256 + block[4 * order[step] + i];
    }
    return word;
  }

  static Word constant(int step) {
    return static_cast<Word>(
        std::floor(std::ldexp(std::fabs(std::sin(static_cast<long double>(step + 1))), 32)));
  }

  static Word function(int step, Word b, Word c, Word d) {
    switch (step / 16) {
      case 0:
        return (b & c) | (~b & d);
      case 1:
        return (b & d) | (c & ~d);
      case 2:
        return b ^ c ^ d;
      default:
        return c ^ (b | ~d);
    }
  }

  void transform(const unsigned char* block) {
    static constexpr int shifts[64] = {
        7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,  //
        5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,  //
        4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,  //
        6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};
    Word a = state[0];
    Word b = state[1];
    Word c = state[2];
    Word d = state[3];
    for (int step = 0; step < 64; ++step) {
      const int s = shifts[step];
      const Word v = a + function(step, b, c, d) + wordOfBlock(block, step) + constant(step);
      const Word updated = ((v >> (32 - s)) | (v << s)) + b;
      a = d;
      d = c;
      c = b;
      b = updated;
    }
    state[0] = (state[0] + a) & kept;
    state[1] = (state[1] + b) & kept;
    state[2] = (state[2] + c) & kept;
    state[3] = (state[3] + d) & kept;
  }

  std::string digestOf(std::vector<unsigned char> message) {
    const uint64_t bits = message.size() * 8;
    message.push_back(0x80);
    while (message.size() % 64 != 56) {
      message.push_back(0);
    }
    for (int i = 0; i < 8; ++i) {
      message.push_back(static_cast<unsigned char>(bits >> (8 * i) & 0xff));
    }
    for (size_t i = 0; i < message.size(); i += 64) {
      transform(&message[i]);
    }
    return hexadecimal();
  }

  std::string hexadecimal() const {
    std::string result;
    for (const Word word : state) {
      for (int i = 0; i < 4; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x",
                      static_cast<unsigned int>(word >> (8 * i)) & 0xff);
        result += digits;
      }
    }
    return result;
  }
};

}  // namespace kelp_test

// Whatever stands in the host product's settings file, the verbosity read from it is that of a
// plain reader.
#include "cmnqrbconfiguration.h"
#include "expect.h"
#include "memory_file.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using kelp_fuzz::expect;

constexpr int untouched = -77;

struct Reading {
  int status;
  int level;
};

// Without the first line or part of a line, which is all of it that fits.
std::string cutPiece(std::string& content) {
  constexpr size_t longest = 255;
  const size_t newline = content.find('\n');
  const size_t length =
      std::min({content.size(), longest, newline == std::string::npos ? newline : newline + 1});
  std::string piece = content.substr(0, length);
  content.erase(0, length);
  return piece;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The low 32 bits of the number at the beginning, which stays within 64 bits.
Reading numberIn(const std::string& text) {
  const std::string number =
      text.substr(std::min(text.size(), text.find_first_not_of(" \t\n\v\f\r")));
  const bool isNegative = number[0] == '-';
  size_t i = isNegative || number[0] == '+' ? 1 : 0;
  if (!isDigit(number[i])) {
    return {1, untouched};
  }
  const uint64_t most = (uint64_t{1} << 63) - (isNegative ? 0 : 1);
  uint64_t magnitude = 0;
  for (; isDigit(number[i]); ++i) {
    const auto digit = static_cast<uint64_t>(number[i] - '0');
    magnitude = magnitude > (most - digit) / 10 ? most : magnitude * 10 + digit;
  }
  return {0, static_cast<int>(static_cast<uint32_t>(isNegative ? 0 - magnitude : magnitude))};
}

Reading plainlyRead(std::string content) {
  while (!content.empty()) {
    std::string piece = cutPiece(content);
    piece.resize(std::min(piece.size(), piece.find('\0')));
    if (piece.find("VERBOSE") != std::string::npos) {
      const size_t equals = piece.find('=');
      return equals == std::string::npos ? Reading{1, untouched}
                                         : numberIn(piece.substr(equals + 1));
    }
  }
  return {1, untouched};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const kelp_fuzz::MemoryFile file;
  const std::string content(reinterpret_cast<const char*>(data), size);
  file.hold(content);
  kelp_cmn_4_4::tstr dir = kelp_fuzz::MemoryFile::directory;
  kelp_cmn_4_4::tstr name = file.name().c_str();
  int level = untouched;
  const int status = kelp_cmn_4_4::CCmnQRBConfiguration::getTraceLevel(dir, name, level);
  const Reading plain = plainlyRead(content);
  expect(status == plain.status, "the plain reader's status");
  expect(level == plain.level, "the plain reader's level");
  return 0;
}

// Wide characters out of a fuzzer's bytes: most bytes are a character each, and some say that the
// next two, three or four bytes are one.
#pragma once

#include "input.h"

#include <cstdint>
#include <string>

namespace kelp_fuzz {

inline wchar_t wideCharacter(Input& input) {
  const auto byte = input.number<uint8_t>();
  if (byte < 0xf0) {
    return static_cast<wchar_t>(byte);
  }
  if (byte < 0xfc) {
    return static_cast<wchar_t>(input.number<uint16_t>());
  }
  if (byte < 0xff) {
    return static_cast<wchar_t>((input.number<uint16_t>() | input.upTo(0x10) << 16U));
  }
  return static_cast<wchar_t>(input.number<uint32_t>());
}

// All that is left.
inline std::wstring wideText(Input& input) {
  std::wstring text;
  while (!input.empty()) {
    text += wideCharacter(input);
  }
  return text;
}

}  // namespace kelp_fuzz

// Case is mapped and compared as the locale says of each character by itself.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "locales.h"
#include "plain_text.h"
#include "wide_text.h"

#include <cstdint>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_fuzz::expect;
using kelp_test::plainlyEqual;
using kelp_test::plainlyLower;
using kelp_test::plainlyUpper;

template <class Text>
void checkCompared(const Text& text, const Text& other) {
  auto guarded = kelp_fuzz::atEdge(text);
  const bool expected = plainlyEqual(text, other);
  expect(Tool::CompareNoCase(guarded.text(), other) == expected, "equal as character by character");
  expect(Tool::CompareNoCase(other, guarded.text()) == expected, "and the other way round");
}

template <class Text>
void checkLetters(const Text& text, const Text& other) {
  const Text upper = plainlyUpper(text);
  const Text lower = plainlyLower(text);
  expect(Tool::tostrupper(kelp_fuzz::atEdge(text).text()) == upper, "each letter in upper case");
  expect(Tool::tostrlower(kelp_fuzz::atEdge(text).text()) == lower, "each letter in lower case");
  expect(Tool::CompareNoCase(text, text), "equal to itself");
  checkCompared(text, other);
  checkCompared(text, upper);
  checkCompared(text, lower);
  checkCompared(upper, lower + other.substr(0, 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  constexpr size_t fewLocales = 6;
  const kelp_fuzz::ChosenLocale locale(input, fewLocales);
  const bool isWide = input.choice();
  if (isWide) {
    const size_t length = input.upTo(999);
    const std::wstring text = kelp_fuzz::wideText(input);
    checkLetters(text.substr(0, length), text.substr(text.size() / 2));
  } else {
    const std::string other = input.text();
    checkLetters(input.rest(), other);
  }
  return 0;
}

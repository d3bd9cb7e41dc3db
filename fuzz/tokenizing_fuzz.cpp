// Tokens are those of strtok, whatever separates; and an address is one by its tokens.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_text.h"

#include <cstdint>
#include <string>
#include <vector>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_fuzz::expect;

void checkTokens(const std::string& text, const std::string& delimiters) {
  auto guarded = kelp_fuzz::atEdge(text);
  expect(Tool::tokenize(guarded.text(), delimiters) == kelp_test::plainTokens(text, delimiters),
         "the tokens of strtok");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  const size_t length = input.upTo(20);
  const std::string delimiters = input.bytes(length);
  const std::string text = input.rest();
  checkTokens(text, delimiters);
  auto guarded = kelp_fuzz::atEdge(text);
  expect(Tool::isIpAddress(guarded.text()) == kelp_test::plainlyIsIpAddress(text),
         "four tokens of digits");
  return 0;
}

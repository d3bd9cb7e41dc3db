// Trimming removes what the plain form removes, one byte after the other.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_text.h"

#include <cstdint>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_fuzz::expect;
using kelp_test::plainlyLeftTrimmed;
using kelp_test::plainlyRightTrimmed;

void checkTrimmed(const std::string& text, const char* set) {
  auto guarded = kelp_fuzz::atEdge(text);
  const std::string left = plainlyLeftTrimmed(text, set);
  expect(Tool::ltrim(guarded.text(), set) == left, "the plain form at the start");
  expect(Tool::rtrim(guarded.text(), set) == plainlyRightTrimmed(text, set),
         "the plain form at the end");
  const std::string both = Tool::trim(guarded.text(), set);
  expect(both == plainlyRightTrimmed(left, set), "the plain form at both");
  expect(Tool::trim(both, set) == both, "nothing left to trim");
}

void checkWhiteSpaceTrimmed(const std::string& text) {
  auto guarded = kelp_fuzz::atEdge(text);
  expect(Tool::ltrim(guarded.text()) == plainlyLeftTrimmed(text, " \n\t\r"),
         "white space at first");
  expect(Tool::rtrim(guarded.text()) == plainlyRightTrimmed(text, " \n\t\r"), "or at the end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  const std::string set = input.text();
  const std::string text = input.rest();
  checkTrimmed(text, set.c_str());
  checkTrimmed(text, nullptr);
  checkWhiteSpaceTrimmed(text);
  return 0;
}

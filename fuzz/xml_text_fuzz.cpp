// Escaping and its reverse give what one replacement after the other gives, and undo one another;
// elements are put together of name and value.
#include "cmnstringtool.h"
#include "edge.h"
#include "expect.h"
#include "input.h"
#include "plain_text.h"

#include <cstdint>
#include <string>

namespace {

using Tool = kelp_cmn_4_4::CCmnStringTool;
using kelp_fuzz::atEdge;
using kelp_fuzz::expect;

void checkEscaped(const std::string& text) {
  const std::string escaped = Tool::convertToXmlSpecialCharacters(atEdge(text).text());
  expect(escaped == kelp_test::plainlyEscaped(text), "one replacement after the other");
  expect(escaped.find_first_of("<>\"'") == std::string::npos, "nothing that XML would mark");
  expect(Tool::convertFromXmlSpecialCharacters(escaped) == kelp_test::upToZero(text),
         "the same text back");
}

void checkUnescaped(const std::string& text) {
  expect(Tool::convertFromXmlSpecialCharacters(atEdge(text).text()) ==
             kelp_test::plainlyUnescaped(text),
         "one replacement after the other");
}

void checkElement(const std::string& name, const std::string& value) {
  expect(Tool::xmlBracket(name, true, true) == "<" + name + ">\n", "an opening tag");
  expect(Tool::xmlBracket(name, false, false) == "</" + name + ">", "a closing tag");
  expect(Tool::xmlBracketValue(name, value) ==
             "\t<" + name + ">" + kelp_test::plainlyEscaped(value) + "</" + name + ">\n",
         "an element on a line of its own");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kelp_fuzz::longestInput) {
    return 0;
  }
  kelp_fuzz::Input input(data, size);
  const std::string name = input.bytes(input.upTo(20));
  const std::string text = input.rest();
  checkEscaped(text);
  checkUnescaped(text);
  checkElement(name, text);
  return 0;
}

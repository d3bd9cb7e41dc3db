// Says what is wrong with a document, and where.
#include <cmnsaxhandler.h>
#include <cmnsaxparser.h>
#include <cmnstringtool.h>

#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;

static void examine(CCmnSaxParser& parser, const std::string& document) {
  CCmnSaxParseHandler handler;  // a new one for each document: problems accumulate
  parser.setHandler(&handler);
  parser.parse(document);
  if (handler.hasErrorOccurred()) {
    const xercesc::SAXParseException& problem = handler.getLastException();
    icu::UnicodeString message(problem.getMessage());
    std::printf("line %u, column %u: %s\n", static_cast<unsigned>(problem.getLineNumber()),
                static_cast<unsigned>(problem.getColumnNumber()),
                CCmnStringTool::ustr2str(message).c_str());
  } else {
    std::printf("well-formed\n");
  }
  parser.setHandler(nullptr);
}

int main() {
  CCmnSaxParser parser(nullptr);
  examine(parser, "<order>\n<item>laver</item>\n<item>wakame</order>\n");
  examine(parser, "<order/>");
  return 0;
}

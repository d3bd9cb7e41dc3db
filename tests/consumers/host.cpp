// Calls something of every dependency: ACE, ICU and Xerces-C must be found with the library.
#include <Q_strings.h>
#include <cmnicumessage.h>
#include <cmnmsgdgst5.h>
#include <cmnsaxhandler.h>
#include <cmnsaxparser.h>
#include <cmnstringtool.h>

#include <cstdio>

int main() {
  using namespace kelp_cmn_4_4;

  char number[8];
  Q_snprintf(number, sizeof number, "%d", 42);
  std::printf("%s\n", number);

  const tstr text = CCmnStringTool::str2tstr("ACE string");
  std::printf("%s\n", text.c_str());

  CCmnIcuMessage message("MSG_GREETING", 1);
  message.addArgument(icu::UnicodeString("host"));
  std::printf("%s\n", message.formatMessage("Hello, {0}").c_str());

  CCmnSaxParseHandler handler;
  CCmnSaxParser parser(&handler);
  parser.parse("<a><b></a>");
  std::puts(handler.hasErrorOccurred() ? "malformed" : "well-formed");

  std::printf("%s\n", CCmnMessageDigest5("abc").GetAnsiMessageDigest());
}

// Writes texts as XML, and reads one back.
#include <cmnstringtool.h>

#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;

int main() {
  std::fputs(CCmnStringTool::xmlBracket("order", true, true).c_str(), stdout);
  std::fputs(CCmnStringTool::xmlBracketValue("title", "Kelp & \"Sons\"").c_str(), stdout);
  std::fputs(CCmnStringTool::xmlBracket("order", false, true).c_str(), stdout);

  const std::string escaped = CCmnStringTool::convertToXmlSpecialCharacters("it's < 3");
  const std::string text = CCmnStringTool::convertFromXmlSpecialCharacters(escaped);
  std::printf("%s, that is: %s\n", escaped.c_str(), text.c_str());
  return 0;
}

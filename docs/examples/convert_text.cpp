// Takes a text through the four kinds of strings.
#include <cmnstringtool.h>

#include <clocale>
#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;

int main() {
  std::setlocale(LC_CTYPE, "C.UTF-8");  // wide text is text of the process locale

  std::string name = "côte";
  const std::wstring wide = CCmnStringTool::str2wstr(name);
  std::printf("%zu bytes, %zu wide characters\n", name.length(), wide.length());
  const icu::UnicodeString unicode = CCmnStringTool::str2ustr(name);
  std::printf("%d units of UTF-16\n", static_cast<int>(unicode.length()));
  const tstr ace = CCmnStringTool::str2tstr(name);
  std::printf("for ACE: %s\n", ace.c_str());

  // What is not valid becomes empty as a whole.
  std::string latin1 = "c\xf4te";
  std::printf("valid: %s\n", CCmnStringTool::str2ustr(latin1).isEmpty() ? "no" : "yes");

  // A letter is a character of wide text, but some bytes of narrow text.
  const std::wstring upper = CCmnStringTool::tostrupper(wide);
  std::printf("widened: %s\n", CCmnStringTool::wstr2str(upper).c_str());
  std::printf("byte by byte: %s\n", CCmnStringTool::tostrupper(name).c_str());
  return 0;
}

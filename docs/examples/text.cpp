// Writes the settings of a line as XML, and shows how text meets numbers and buffers.
#include <Q_sscanf.h>
#include <Q_strings.h>
#include <cmnstringtool.h>

#include <clocale>
#include <cstdio>
#include <string>
#include <vector>

using namespace kelp_cmn_4_4;

int main() {
  const std::string line = "title = Kelp & Sons; copies=3;; ratio = 0.25 \n";
  for (const std::string& setting : CCmnStringTool::tokenize(line, ";")) {
    const std::vector<std::string> pair = CCmnStringTool::tokenize(setting, "=");
    const std::string name = CCmnStringTool::trim(pair[0]);
    const std::string value = CCmnStringTool::trim(pair[1]);
    std::fputs(CCmnStringTool::xmlBracketValue(name, value).c_str(), stdout);
  }

  // The status tells an empty text from the rest; what stands behind the number is ignored.
  int copies = 1;
  int status = CCmnStringTool::str2int("", copies);
  std::printf("empty: status %d, copies %d\n", status, copies);
  status = CCmnStringTool::str2int("12 apples", copies);
  std::printf("\"12 apples\": status %d, copies %d\n", status, copies);

  // Every destination comes with its size in bytes, as an int.
  char word[6];
  int number = 0;
  const int assigned = Q_sscanf("12 pineapples", "%d %s", &number, static_cast<int>(sizeof number),
                                word, static_cast<int>(sizeof word));
  std::printf("%d values: %d, %s\n", assigned, number, word);

  // The result counts what was stored.
  char buffer[8];
  const size_t stored = Q_strlcpy(buffer, "pineapples", sizeof buffer);
  std::printf("%zu bytes: %s\n", stored, buffer);

  // Wide text is text of the process locale, which the host sets.
  std::setlocale(LC_CTYPE, "C.UTF-8");
  const std::wstring wide = CCmnStringTool::str2wstr("côte");
  const std::string upper = CCmnStringTool::wstr2str(CCmnStringTool::tostrupper(wide));
  std::printf("%zu characters: %s\n", wide.length(), upper.c_str());
  std::printf("byte by byte: %s\n", CCmnStringTool::tostrupper("côte").c_str());
  return 0;
}

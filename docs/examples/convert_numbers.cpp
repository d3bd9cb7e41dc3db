// Reads numbers out of texts, and writes them.
#include <cmnstringtool.h>

#include <cstdio>
#include <string>

using namespace kelp_cmn_4_4;

int main() {
  int number = 1;
  for (const char* text : {"12 apples", "apples", ""}) {
    const int status = CCmnStringTool::str2int(text, number);
    std::printf("\"%s\": status %d, number %d\n", text, status, number);
  }

  std::printf("unsigned: %u\n", CCmnStringTool::str2uint("-1"));
  unsigned long large = 0;
  CCmnStringTool::str2uint64("4294967296", large);
  std::printf("cut to 32 bits: %u, whole: %lu\n", CCmnStringTool::str2uint("4294967296"), large);
  std::printf("six digits: %s\n", CCmnStringTool::double2str(1234567.0).c_str());

  // Whether a text is a number, and nothing else, a host asks first.
  for (const char* text : {"12", "12 apples", ""}) {
    const bool isNumber = *text != '\0' && CCmnStringTool::isDigit(text);
    std::printf("\"%s\": %s\n", text, CCmnStringTool::bool2str(isNumber).c_str());
  }
  return 0;
}

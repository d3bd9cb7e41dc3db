// Writes bytes as hexadecimal digits, and reads them.
#include <cmnstringtool.h>

#include <cstdio>
#include <iterator>
#include <string>

using namespace kelp_cmn_4_4;

int main() {
  unsigned char key[] = {0x00, 0x7f, 0x80, 0xff};
  const std::string digits = CCmnStringTool::binary2str(key, sizeof key);
  std::printf("%s\n", digits.c_str());

  // The size is the room first, and the number of bytes then.
  unsigned char bytes[2];
  for (const char* text : {"7fF0", "7ff", "7ff00"}) {
    int size = sizeof bytes;
    const int status = CCmnStringTool::str2binary(bytes, &size, text);
    std::printf("%s: status %d, %d bytes\n", text, status, size);
  }
  int size = 1;
  std::printf("no room: status %d\n", CCmnStringTool::str2binary(bytes, &size, digits));

  std::printf("uid: %s\n", CCmnStringTool::str2uid(1, "AB").c_str());
  return 0;
}

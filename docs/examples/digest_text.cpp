// Computes digests at once.
#include <cmnmsgdgst5.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

int main() {
  const CCmnMessageDigest5 text("abc");
  std::printf("text:       %s\n", text.GetAnsiMessageDigest());
  std::printf("first byte: %02x\n", static_cast<unsigned>(text[0]));

  const unsigned char bytes[] = {'a', 'b', 'c'};
  const CCmnMessageDigest5 memory(bytes, sizeof bytes);
  std::printf("bytes:      %s\n", memory.GetAnsiMessageDigest());

  const CCmnMessageDigest5 nothing("");
  std::printf("no bytes:   %s\n", nothing.GetAnsiMessageDigest());
  return 0;
}

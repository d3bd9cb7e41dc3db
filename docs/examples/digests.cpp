// Computes digests at once and piece by piece.
#include <cmnmsgdgst5.h>

#include <cstdio>

using namespace kelp_cmn_4_4;

static void update(CCmnMessageDigest5& digest, const char* text, unsigned long length) {
  digest.Update(reinterpret_cast<const unsigned char*>(text), length);
}

int main() {
  const CCmnMessageDigest5 whole("abc");
  std::printf("at once:      %s\n", whole.GetAnsiMessageDigest());
  std::printf("first byte:   %02x\n", static_cast<unsigned>(whole[0]));

  CCmnMessageDigest5 pieces;
  update(pieces, "a", 1);
  const CCmnMessageDigest5 common = pieces;  // a copy goes on by itself
  update(pieces, "bc", 2);
  std::printf("not final:    \"%s\"\n", pieces.GetAnsiMessageDigest());
  pieces.Finalize();
  std::printf("in pieces:    %s\n", pieces.GetAnsiMessageDigest());
  update(pieces, "d", 1);  // ignored: the digest is final
  std::printf("still:        %s\n", pieces.GetAnsiMessageDigest());

  pieces = common;
  pieces.Finalize();
  std::printf("of \"a\":       %s\n", pieces.GetAnsiMessageDigest());

  pieces.Initialize();
  pieces.Finalize();
  std::printf("of no bytes:  %s\n", pieces.GetAnsiMessageDigest());
  return 0;
}

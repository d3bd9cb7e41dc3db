// Computes digests piece by piece.
#include <cmnmsgdgst5.h>

#include <cstdio>
#include <cstring>

using namespace kelp_cmn_4_4;

static void update(CCmnMessageDigest5& digest, const char* text) {
  digest.Update(reinterpret_cast<const unsigned char*>(text), std::strlen(text));
}

int main() {
  CCmnMessageDigest5 pieces;
  update(pieces, "a");
  const CCmnMessageDigest5 common = pieces;  // a copy goes on by itself
  update(pieces, "bc");
  std::printf("not final: \"%s\"\n", pieces.GetAnsiMessageDigest());
  pieces.Finalize();
  std::printf("in pieces: %s\n", pieces.GetAnsiMessageDigest());
  update(pieces, "d");  // ignored: the digest is final
  std::printf("still:     %s\n", pieces.GetAnsiMessageDigest());

  pieces = common;
  pieces.Finalize();
  std::printf("of \"a\":    %s\n", pieces.GetAnsiMessageDigest());

  pieces.Initialize();
  update(pieces, "abc");
  pieces.Finalize();
  std::printf("anew:      %s\n", pieces.GetAnsiMessageDigest());
  return 0;
}

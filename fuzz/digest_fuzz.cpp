// However a message is cut into pieces, its digest is that of the slow form.
#include "cmnmsgdgst5.h"
#include "expect.h"
#include "input.h"
#include "plain_digest.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using kelp_cmn_4_4::CCmnMessageDigest5;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kelp_fuzz::Input input(data, size);
  CCmnMessageDigest5 digest;
  std::vector<unsigned char> message;
  while (!input.empty()) {
    const std::string piece = input.bytes(input.upTo(200));
    digest.Update(reinterpret_cast<const unsigned char*>(piece.data()), piece.size());
    message.insert(message.end(), piece.begin(), piece.end());
  }
  digest.Finalize();
  const std::string expected = kelp_test::PlainDigest<uint64_t>().digestOf(message);
  kelp_fuzz::expect(digest.GetAnsiMessageDigest() == expected, "the digest of the slow form");
  return 0;
}

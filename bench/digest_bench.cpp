#include "rows.h"

#include <cmnmsgdgst5.h>

#include <string>

#ifdef KELP_BENCH_OPENSSL
#include <openssl/md5.h>
#endif

namespace kelp_bench {
namespace {

// MD5 has other digests, and nothing that could be compared: what counts is that both make one.
template <class Run>
auto blind(Run run) {
  return [run] {
    benchmark::DoNotOptimize(run());
    return std::string_view();
  };
}

void addDigestRow(const std::string& name, size_t size, double target) {
  Row& row = addRow("digest " + name, target);
  const std::string data(size, 'x');
  row.library(
      blind([data] { return kelp_cmn_4_4::CCmnMessageDigest5(data.data(), data.size())[0]; }));
#ifdef KELP_BENCH_OPENSSL
  row.peer("OpenSSL MD5", blind([data] {
             unsigned char digest[MD5_DIGEST_LENGTH];
             MD5(reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest);
             return digest[0];
           }));
#endif
}

}  // namespace

void addDigestRows() {
  addDigestRow("64 B", 64, 1.3);
  addDigestRow("1 KiB", 1024, 1.2);
  addDigestRow("1 MiB", 1 << 20, 1.2);
  growths().push_back({"digest", 1000, [](size_t size) {
                         return [data = std::string(size, 'x')] {
                           benchmark::DoNotOptimize(
                               kelp_cmn_4_4::CCmnMessageDigest5(data.data(), data.size())[0]);
                         };
                       }});
}

}  // namespace kelp_bench

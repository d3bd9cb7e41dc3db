// Says whether two names or addresses denote one host, and prints what is known of both.
#include <cmnnetwork.h>

#include <cstdio>
#include <string>

namespace {

using kelp_cmn_4_4::CCmnHostInfo;
using kelp_cmn_4_4::CCmnNetwork;

constexpr int wrongUsage = 64;  // EX_USAGE of <sysexits.h>

void printField(const char* label, const std::string& value) {
  std::printf("  %-21s %s\n", label, value.empty() ? "(none)" : value.c_str());
}

void print(const char* designation, const CCmnHostInfo& host) {
  std::string addresses;
  for (const std::string& address : host.m_addresses) {
    addresses += (addresses.empty() ? "" : " ") + address;
  }
  std::printf("%s\n", designation);
  printField("name:", host.m_name);
  printField("fully qualified name:", host.m_fqdn);
  printField("addresses:", addresses);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: same_host NAME_OR_ADDRESS NAME_OR_ADDRESS\n", stderr);
    return wrongUsage;
  }
  // Resolved once, for the answer and for the record: the resolver may take its time.
  const CCmnHostInfo first = CCmnNetwork::resolve(argv[1]);
  const CCmnHostInfo second = CCmnNetwork::resolve(argv[2]);
  const bool same = CCmnNetwork::compare(first, second);
  print(argv[1], first);
  print(argv[2], second);
  std::printf("%s\n", same ? "the same host" : "different hosts");
  if (std::fflush(stdout) != 0) {
    std::perror("same_host: standard output");
    return 2;
  }
  return same ? 0 : 1;
}

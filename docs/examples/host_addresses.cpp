// Asks the resolver for addresses and names.
#include <cmnnetwork.h>

#include <cstdio>
#include <set>
#include <string>

using namespace kelp_cmn_4_4;

int main() {
  for (const char* text : {"10.0.0.9", "127.1", "::1", "files"}) {
    std::printf("%s %s\n", text,
                CCmnNetwork::validateIPAddress(text) ? "is an address" : "is no address");
  }

  std::set<std::string> addresses;
  if (CCmnNetwork::getAddrByHost("files", addresses) == networkOk) {
    for (const std::string& address : addresses) {
      std::printf("address of files: %s\n", address.c_str());
    }
  }

  // The first address as a text decides, and the name comes in lower case.
  std::string name;
  if (CCmnNetwork::getFQDN("files", name) == networkOk) {
    std::printf("full name of files: %s\n", name.c_str());
  }
  if (CCmnNetwork::getFQDN("nowhere", name) == networkNoAddress) {
    std::printf("nowhere has no address\n");
  }
  return 0;
}

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
  int status = CCmnNetwork::getAddrByHost("files", addresses);
  std::printf("files: status %d\n", status);
  for (const std::string& address : addresses) {
    std::printf("  %s\n", address.c_str());
  }

  // The first address as a text decides, and the name comes in lower case.
  std::string name;
  status = CCmnNetwork::getFQDN("files", name);
  std::printf("full name: status %d, %s\n", status, name.c_str());
  status = CCmnNetwork::getFQDN("nowhere", name);
  std::printf("full name of nowhere: status %d\n", status);
  return 0;
}

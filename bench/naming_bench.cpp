#include "rows.h"

#include <cmnnetwork.h>
#include <netdb.h>

#include <set>
#include <string>

namespace kelp_bench {
namespace {

using kelp_cmn_4_4::CCmnNetwork;

long lookUp(const char* host, int flags) {
  addrinfo hints{};
  hints.ai_flags = flags;
  addrinfo* list = nullptr;
  const int status = getaddrinfo(host, nullptr, &hints, &list);
  if (status == 0) {
    freeaddrinfo(list);
  }
  return status == 0 ? 1 : 0;
}

std::string firstAddress(const char* host) {
  addrinfo hints{};
  addrinfo* list = nullptr;
  std::set<std::string> addresses;
  if (getaddrinfo(host, nullptr, &hints, &list) == 0) {
    for (const addrinfo* node = list; node != nullptr; node = node->ai_next) {
      char text[256];
      if (getnameinfo(node->ai_addr, node->ai_addrlen, text, sizeof text, nullptr, 0,
                      NI_NUMERICHOST) == 0) {
        addresses.insert(text);
      }
    }
    freeaddrinfo(list);
  }
  return addresses.empty() ? std::string() : *addresses.begin();
}

}  // namespace

void addNamingRows() {
  addRow("validateIPAddress", 1.05)
      .library([] { return static_cast<long>(CCmnNetwork::validateIPAddress("192.168.17.4")); })
      .peer("getaddrinfo", [] { return lookUp("192.168.17.4", AI_NUMERICHOST); });
  addRow("getAddrByHost", 1.05)
      .library([] {
        std::set<std::string> addresses;
        CCmnNetwork::getAddrByHost("localhost", addresses);
        return addresses.empty() ? std::string() : *addresses.begin();
      })
      .peer("getaddrinfo, getnameinfo", [] { return firstAddress("localhost"); });
}

}  // namespace kelp_bench

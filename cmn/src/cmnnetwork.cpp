#include "cmnnetwork.h"

#include "cmnstringtool.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>

namespace kelp_cmn_4_4 {
namespace {

struct FreeAddrInfo {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

using AddrInfoList = std::unique_ptr<addrinfo, FreeAddrInfo>;

// Both are false if the resolver fails. A list that it gives may be empty, that is, null.
bool lookUp(const char* host, int flags, AddrInfoList& list) {
  addrinfo hints{};
  hints.ai_flags = flags;
  hints.ai_family = AF_UNSPEC;
  addrinfo* nodes = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &nodes) != 0) {
    return false;
  }
  list.reset(nodes);
  return true;
}

bool lookUpName(const addrinfo& node, int flags, std::string& name) {
  char buffer[256];
  if (getnameinfo(node.ai_addr, node.ai_addrlen, buffer, sizeof buffer, nullptr, 0, flags) != 0) {
    return false;
  }
  name = buffer;
  return true;
}

// Not by a stream: where memory fails, that only drops what it cannot hold.
std::string description(const addrinfo& node) {
  std::string line = "ai_family = " + std::to_string(node.ai_family);
  line += ",ai_socktype = " + std::to_string(node.ai_socktype);
  line += ",ai_protocol = " + std::to_string(node.ai_protocol);
  line += ",ai_canonname = ";
  line += node.ai_canonname == nullptr ? "" : node.ai_canonname;
  line += ",ai_addrlen = " + std::to_string(node.ai_addrlen) + ",";
  std::string address;
  if (lookUpName(node, NI_NUMERICHOST, address)) {
    line += "foundName = " + address + ",";
  }
  return line;
}

}  // namespace

bool CCmnNetwork::validateIPAddress(const char* text) {
  AddrInfoList list;
  return text != nullptr && lookUp(text, AI_NUMERICHOST, list);
}

std::string CCmnNetwork::getComputerName() {
  char name[255] = "";
  // Deliberate: its result is not looked at. A name that was cut is better than none.
  gethostname(name, sizeof name - 1);
  return name;
}

std::set<std::string> CCmnNetwork::extractIPAddress(addrinfo* list) {
  std::set<std::string> addresses;
  for (const addrinfo* node = list; node != nullptr; node = node->ai_next) {
    std::string address;
    if (lookUpName(*node, NI_NUMERICHOST, address)) {
      addresses.insert(address);
    }
  }
  return addresses;
}

std::vector<std::string> CCmnNetwork::addrinfoBlob(addrinfo* list) {
  std::vector<std::string> lines;
  for (const addrinfo* node = list; node != nullptr; node = node->ai_next) {
    lines.push_back(description(*node));
  }
  return lines;
}

int CCmnNetwork::getAddrByHost(const std::string& host, std::set<std::string>& addresses) {
  AddrInfoList list;
  if (!lookUp(host.c_str(), 0, list)) {
    return networkLookupFailed;
  }
  addresses = extractIPAddress(list.get());
  return networkOk;
}

std::set<std::string> CCmnNetwork::getAddressListForHost(const std::string& host) {
  std::set<std::string> addresses;
  getAddrByHost(host, addresses);
  return addresses;
}

int CCmnNetwork::getHostbyAddr(const std::string& address, std::string& name) {
  AddrInfoList list;
  const bool isFound = lookUp(address.c_str(), AI_NUMERICHOST, list) && list != nullptr;
  // Deliberate: without NI_NAMEREQD, so that an address without a name goes by its own text.
  return isFound && lookUpName(*list, 0, name) ? networkOk : networkLookupFailed;
}

int CCmnNetwork::getFQDN(const char* host, std::string& fqdn) {
  if (host == nullptr) {
    return networkLookupFailed;
  }
  std::string address = CCmnStringTool::tostrlower(std::string(host));
  if (address.empty()) {
    return networkLookupFailed;
  }
  if (!validateIPAddress(address.c_str())) {
    const std::set<std::string> addresses = getAddressListForHost(address);
    if (addresses.empty()) {
      return networkNoAddress;
    }
    // Deliberate: the first in the order of texts. The resolver's order changes from call to call,
    // and a host would have now this name, now that.
    address = *addresses.begin();
  }
  std::string name;
  const int result = getHostbyAddr(address, name);
  if (result == networkOk) {
    fqdn = CCmnStringTool::tostrlower(name);
  }
  return result;
}

int CCmnNetwork::getFQDN(std::string& fqdn) { return getFQDN(getComputerName().c_str(), fqdn); }

CCmnHostInfo CCmnNetwork::resolve(const std::string& host) {
  CCmnHostInfo info;
  if (host.empty()) {
    return info;
  }
  if (validateIPAddress(host.c_str())) {
    // Deliberate: the result is not tested. Without a name the record stays empty, which callers
    // test. A name stands in both fields as the resolver writes it, and its addresses need not hold
    // the one given: compare() takes a host by those that its name is known under.
    getHostbyAddr(host, info.m_name);
    info.m_fqdn = info.m_name;
    info.m_addresses = getAddressListForHost(info.m_name);
    return info;
  }
  info.m_name = host;
  info.m_addresses = getAddressListForHost(info.m_name);
  if (!info.m_addresses.empty()) {
    getFQDN(info.m_addresses.begin()->c_str(), info.m_fqdn);
  }
  return info;
}

CCmnHostInfo CCmnNetwork::resolve() { return resolve(getComputerName()); }

bool CCmnNetwork::compare(const std::string& a, const std::string& b) {
  if (a.empty() || b.empty()) {
    return false;
  }
  const CCmnHostInfo infoA = resolve(a);  // first: the order of arguments is the compiler's
  return compare(infoA, resolve(b));
}

bool CCmnNetwork::compare(const CCmnHostInfo& a, const CCmnHostInfo& b) {
  const auto isOfB = [&b](const std::string& address) { return b.m_addresses.count(address) != 0; };
  if (std::any_of(a.m_addresses.begin(), a.m_addresses.end(), isOfB)) {
    return true;
  }
  if (!a.m_name.empty() && CCmnStringTool::CompareNoCase(a.m_name, b.m_name)) {
    return true;
  }
  return !a.m_fqdn.empty() && CCmnStringTool::CompareNoCase(a.m_fqdn, b.m_fqdn);
}

// Deliberate: `a` is not resolved, so that a list of records can be searched without the resolver.
bool CCmnNetwork::compare(const std::string& a, const CCmnHostInfo& b) {
  return !a.empty() && (b.m_addresses.count(a) != 0 || CCmnStringTool::CompareNoCase(a, b.m_fqdn) ||
                        CCmnStringTool::CompareNoCase(a, b.m_name));
}

}  // namespace kelp_cmn_4_4

// Host naming over an invented resolver: whatever names and addresses there are, and whichever call
// fails, look-ups and comparisons are those of a plain form.
#include "cmnnetwork.h"
#include "expect.h"
#include "input.h"
#include "network_results.h"
#include "scripted_resolver.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnHostInfo;
using kelp_cmn_4_4::CCmnNetwork;
using kelp_fuzz::expect;
using kelp_fuzz::Input;
using kelp_test::ResolverFailure;
using kelp_test::ScriptedResolver;

using Texts = std::set<std::string>;

// ---- what there is

struct World {
  std::map<std::string, std::vector<std::string>> addresses;  // of a name
  std::map<std::string, std::string> names;                   // of an address
  Texts withoutText;
  int failingLookUp = 0;  // counted from 1
  int failingReverse = 0;
};

// Designations that several things have in common, in more than one writing.
std::string someText(Input& input) {
  constexpr const char* texts[] = {"",
                                   "10.0.0.1",
                                   "10.0.0.9",
                                   "9.1.1.1",
                                   "10.0.0.01",
                                   "::1",
                                   "FE80::1",
                                   "fe80::1",
                                   "host",
                                   "HOST",
                                   "Host1",
                                   "host1",
                                   "host1.site.org",
                                   "[x]",
                                   "no\xc3\xa4me",
                                   "host1.SITE.org"};
  const size_t chosen = input.upTo(std::size(texts));
  return chosen < std::size(texts) ? texts[chosen] : input.text();
}

World someWorld(Input& input) {
  World world;
  for (size_t hosts = input.upTo(5); hosts > 0; --hosts) {
    std::vector<std::string>& addresses = world.addresses[someText(input)];
    addresses.clear();
    for (size_t count = input.upTo(3); count > 0; --count) {
      addresses.push_back(someText(input));
    }
  }
  for (size_t names = input.upTo(5); names > 0; --names) {
    const std::string address = someText(input);
    world.names[address] = someText(input);
  }
  if (input.choice()) {
    world.withoutText.insert(someText(input));
  }
  world.failingLookUp = static_cast<int>(input.upTo(12));
  world.failingReverse = static_cast<int>(input.upTo(12));
  return world;
}

void tell(const World& world, ScriptedResolver& resolver) {
  for (const auto& [name, addresses] : world.addresses) {
    std::vector<kelp_test::ResolverNode>& nodes = resolver.hosts[name];
    for (const std::string& address : addresses) {
      nodes.push_back({address});
    }
  }
  resolver.names = world.names;
  resolver.withoutText = world.withoutText;
  resolver.addrInfoFailure = ResolverFailure{world.failingLookUp};
  resolver.nameInfoFailure = ResolverFailure{world.failingReverse};
}

// ---- the plain form

class PlainNetwork {
 public:
  explicit PlainNetwork(const World& world) : m_world(world) {}

  bool isAddress(const std::string& text) { return lookUp(text, true).has_value(); }

  Texts addresses(const std::string& host) {
    const auto found = lookUp(host, false);
    Texts result;
    for (const std::string& address : found.value_or(std::vector<std::string>())) {
      if (!nextReverseFails() && m_world.withoutText.count(address) == 0 && fits(address)) {
        result.insert(address);
      }
    }
    return result;
  }

  std::optional<std::string> nameOf(const std::string& address) {
    const auto found = lookUp(address, true);
    if (!found || found->empty() || nextReverseFails()) {
      return std::nullopt;
    }
    const auto name = m_world.names.find(found->front());
    const std::string text = name == m_world.names.end() ? found->front() : name->second;
    return fits(text) ? std::optional<std::string>(text) : std::nullopt;
  }

  int fullName(const std::string& host, std::string& name) {
    std::string text = lowered(host);
    if (text.empty()) {
      return kelp_test::look_up::failed;
    }
    if (!isAddress(text)) {
      const Texts found = addresses(text);
      if (found.empty()) {
        return kelp_test::look_up::noAddress;
      }
      text = *found.begin();
    }
    const auto found = nameOf(text);
    if (!found) {
      return kelp_test::look_up::failed;
    }
    name = lowered(*found);
    return kelp_test::look_up::found;
  }

  CCmnHostInfo resolve(const std::string& host) {
    CCmnHostInfo info;
    if (host.empty()) {
      return info;
    }
    if (isAddress(host)) {
      info.m_name = info.m_fqdn = nameOf(host).value_or("");
      info.m_addresses = addresses(info.m_name);
      return info;
    }
    info.m_name = host;
    info.m_addresses = addresses(host);
    if (!info.m_addresses.empty()) {
      fullName(*info.m_addresses.begin(), info.m_fqdn);
    }
    return info;
  }

  bool isSameHost(const std::string& a, const std::string& b) {
    if (a.empty() || b.empty()) {
      return false;
    }
    const CCmnHostInfo infoA = resolve(a);
    return isSameHost(infoA, resolve(b));
  }

  static bool isSameHost(const CCmnHostInfo& a, const CCmnHostInfo& b) {
    for (const std::string& address : a.m_addresses) {
      for (const std::string& other : b.m_addresses) {
        if (address == other) {
          return true;
        }
      }
    }
    return (!a.m_name.empty() && lowered(a.m_name) == lowered(b.m_name)) ||
           (!a.m_fqdn.empty() && lowered(a.m_fqdn) == lowered(b.m_fqdn));
  }

  static bool isSameHost(const std::string& a, const CCmnHostInfo& b) {
    return !a.empty() && (b.m_addresses.count(a) == 1 || lowered(a) == lowered(b.m_fqdn) ||
                          lowered(a) == lowered(b.m_name));
  }

 private:
  static std::string lowered(std::string text) {
    for (char& c : text) {
      c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return text;
  }

  // In the look-ups' buffer.
  static bool fits(const std::string& text) { return text.size() < 256; }

  static bool isNumber(const std::string& text) {
    in6_addr address;
    return inet_pton(AF_INET, text.c_str(), &address) == 1 ||
           inet_pton(AF_INET6, text.c_str(), &address) == 1;
  }

  bool nextReverseFails() { return ++m_reverses == m_world.failingReverse; }

  // Nothing where the call fails; an address is its own.
  std::optional<std::vector<std::string>> lookUp(const std::string& text, bool onlyAddress) {
    const auto known = m_world.addresses.find(text);
    const bool isKnown = known != m_world.addresses.end();
    if (++m_lookUps == m_world.failingLookUp || (!isNumber(text) && (onlyAddress || !isKnown))) {
      return std::nullopt;
    }
    return isKnown ? known->second : std::vector<std::string>{text};
  }

  const World& m_world;
  int m_lookUps = 0;
  int m_reverses = 0;
};

// ---- the script

void expectSame(const CCmnHostInfo& info, const CCmnHostInfo& plain) {
  expect(info.m_name == plain.m_name, "the plain form's name");
  expect(info.m_addresses == plain.m_addresses, "the plain form's addresses");
  expect(info.m_fqdn == plain.m_fqdn, "the plain form's full name");
}

CCmnHostInfo someInfo(Input& input) {
  CCmnHostInfo info;
  info.m_name = someText(input);
  for (size_t count = input.upTo(2); count > 0; --count) {
    info.m_addresses.insert(someText(input));
  }
  info.m_fqdn = someText(input);
  return info;
}

void expectFullName(const std::string& host, PlainNetwork& plain) {
  std::string name = "untouched";
  std::string plainName = name;
  const int status = CCmnNetwork::getFQDN(host.c_str(), name);
  expect(status == plain.fullName(host, plainName), "the plain form's status");
  expect(name == plainName, "the plain form's full name");
}

void expectName(const std::string& address, PlainNetwork& plain) {
  std::string name = "untouched";
  const int status = CCmnNetwork::getHostbyAddr(address, name);
  const auto plainName = plain.nameOf(address);
  const bool isFound = status == kelp_test::look_up::found;
  expect(isFound || status == kelp_test::look_up::failed, "a status");
  expect(isFound == plainName.has_value(), "a name, or none");
  expect(name == plainName.value_or("untouched"), "the plain form's name");
}

void step(Input& input, PlainNetwork& plain) {
  const size_t call = input.upTo(7);
  const std::string a = someText(input);
  switch (call) {
    case 0:
      expect(CCmnNetwork::validateIPAddress(a.c_str()) == plain.isAddress(a), "an address, or not");
      break;
    case 1:
      expect(CCmnNetwork::getAddressListForHost(a) == plain.addresses(a), "the addresses");
      break;
    case 2:
      expectName(a, plain);
      break;
    case 3:
      expectFullName(a, plain);
      break;
    case 4:
      expectSame(CCmnNetwork::resolve(a), plain.resolve(a));
      break;
    case 5: {
      const CCmnHostInfo info = someInfo(input);
      expect(CCmnNetwork::compare(a, info) == PlainNetwork::isSameHost(a, info), "a host's own");
      break;
    }
    case 6: {
      const CCmnHostInfo one = someInfo(input);
      const CCmnHostInfo other = someInfo(input);
      expect(CCmnNetwork::compare(one, other) == PlainNetwork::isSameHost(one, other), "one host");
      break;
    }
    default: {
      const std::string b = someText(input);
      expect(CCmnNetwork::compare(a, b) == plain.isSameHost(a, b), "one host, or two");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  testing::FLAGS_gtest_break_on_failure = true;  // what the resolver demands
  Input input(data, size);
  const World world = someWorld(input);
  ScriptedResolver resolver;
  tell(world, resolver);
  PlainNetwork plain(world);
  while (!input.empty()) {
    step(input, plain);
  }
  expect(resolver.listsInUse() == 0, "every list released");
  return 0;
}

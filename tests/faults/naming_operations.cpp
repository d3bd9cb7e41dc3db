// Host naming, by the system's own resolver.
#include "cmnnetwork.h"
#include "job.h"
#include "words.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kelp_test {
namespace {

using kelp_cmn_4_4::CCmnHostInfo;
using kelp_cmn_4_4::CCmnNetwork;

const std::string host = "multi";
const std::string address = "10.0.0.9";

// The platform's resolver fails for lack of memory, too, and what it gives is then not whole.
const std::vector<Call> resolving{Call::getaddrinfo, Call::getnameinfo, Call::gethostname,
                                  Call::malloc,      Call::calloc,      Call::realloc,
                                  Call::anyMemory};
constexpr char someAddresses[] = "0: [0-9]*";

std::string inWords(const CCmnHostInfo& info) {
  return words(info.m_name) + ", " + words(info.m_addresses) + ", " + words(info.m_fqdn);
}

// Tells what it asked for and whether it got it. What fails must not have touched the value.
template <class Value, class Ask>
class Asking : public Job {
 public:
  Asking(const Ask& ask, const Value& old) : m_ask(ask), m_value(old) {}
  void run() override { m_result = m_ask(m_value); }
  std::string outcome() override { return words(m_result) + ": " + words(m_value); }
  std::string state() override { return words(m_value); }

 private:
  const Ask m_ask;
  int m_result = 0;
  Value m_value;
};

template <class Value, class Ask>
Operation asking(const std::string& name, const Value& old, Ask ask,
                 const std::vector<std::string>& outcomes) {
  const auto make = [ask, old]() -> std::unique_ptr<Job> {
    return std::make_unique<Asking<Value, Ask>>(ask, old);
  };
  Operation operation{"naming: " + name, make, {}, nullptr, {}, false};
  operation.allowances = {{resolving, outcomes}};
  return operation;
}

template <class Run, class Describe>
Operation answering(const std::string& name, Run run, Describe describe,
                    const std::vector<std::string>& outcomes) {
  return function("naming: " + name, run, describe, {{resolving, outcomes}});
}

class ResolverList {
 public:
  ResolverList() { (void)getaddrinfo(host.c_str(), nullptr, nullptr, &m_list); }
  ~ResolverList() { freeaddrinfo(m_list); }
  ResolverList(const ResolverList&) = delete;
  ResolverList& operator=(const ResolverList&) = delete;
  addrinfo* get() const { return m_list; }

 private:
  addrinfo* m_list = nullptr;
};

void addLookUps(Operations& all) {
  const std::set<std::string> oldAddresses{"old"};
  const std::string oldName("old");
  all.push_back(
      asking("getAddrByHost", oldAddresses,
             [](std::set<std::string>& found) { return CCmnNetwork::getAddrByHost(host, found); },
             {"3: old|", someAddresses, "0: "}));
  all.push_back(
      asking("getHostbyAddr", oldName,
             [](std::string& found) { return CCmnNetwork::getHostbyAddr(address, found); },
             {"3: old", "0: 10.0.0.9"}));
  for (const std::string& name : {host, address}) {
    all.push_back(
        asking("getFQDN of " + name, oldName,
               [name](std::string& found) { return CCmnNetwork::getFQDN(name.c_str(), found); },
               {"3: old", "-1: old", asEver, "0: *.example", "0: [0-9]*"}));
  }
  all.push_back(asking("getFQDN of this machine", oldName,
                       [](std::string& found) { return CCmnNetwork::getFQDN(found); },
                       {"3: old", "-1: old", asEver, "0: *"}));
}

void addAnswers(Operations& all) {
  all.push_back(answering("validateIPAddress",
                          [] { return CCmnNetwork::validateIPAddress(address.c_str()); }, InWords(),
                          {"0"}));
  all.push_back(answering("getComputerName", [] { return CCmnNetwork::getComputerName(); },
                          InWords(), {"", asEver}));
  const auto list = std::make_shared<ResolverList>();
  all.push_back(answering("extractIPAddress",
                          [list] { return CCmnNetwork::extractIPAddress(list->get()); }, InWords(),
                          {"*"}));
  all.push_back(answering("addrinfoBlob", [list] { return CCmnNetwork::addrinfoBlob(list->get()); },
                          InWords(), {"ai_family*"}));
  all.push_back(answering("getAddressListForHost",
                          [] { return CCmnNetwork::getAddressListForHost(host); }, InWords(),
                          {"*"}));
  for (const std::string& name : {host, address}) {
    all.push_back(answering("resolve " + name, [name] { return CCmnNetwork::resolve(name); },
                            inWords, {"*, *, *"}));
  }
  all.push_back(answering("resolve this machine", [] { return CCmnNetwork::resolve(); }, inWords,
                          {"*, *, *"}));
}

void addComparisons(Operations& all) {
  const std::vector<std::string> either{"0", "1"};
  const auto info = std::make_shared<CCmnHostInfo>(CCmnNetwork::resolve(host));
  all.push_back(answering(
      "compare names", [] { return CCmnNetwork::compare(host, address); }, InWords(), either));
  all.push_back(answering("compare records", [info] { return CCmnNetwork::compare(*info, *info); },
                          InWords(), {asEver}));
  all.push_back(answering("compare a name and a record",
                          [info] { return CCmnNetwork::compare(host, *info); }, InWords(),
                          {asEver}));
}

}  // namespace

Operations namingOperations() {
  Operations all;
  addLookUps(all);
  addAnswers(all);
  addComparisons(all);
  return all;
}

}  // namespace kelp_test

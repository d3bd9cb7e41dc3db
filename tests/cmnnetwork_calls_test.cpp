// What the look-ups ask of the system's resolver, and what they make of each of its answers.
#include "cmnnetwork.h"
#include "failing_memory.h"
#include "network_results.h"
#include "scratch.h"
#include "scripted_resolver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using namespace kelp_test::look_up;
using kelp_cmn_4_4::CCmnHostInfo;
using kelp_cmn_4_4::CCmnNetwork;
using kelp_test::ResolverNode;
using kelp_test::ScopedLocale;
using kelp_test::ScriptedResolver;
using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::set<std::string>;

// Each non-zero result is a failure, whatever its sign.
constexpr int resolverErrors[] = {EAI_BADFLAGS, EAI_NONAME,   EAI_AGAIN,   EAI_FAIL,
                                  EAI_FAMILY,   EAI_SOCKTYPE, EAI_SERVICE, EAI_MEMORY,
                                  EAI_SYSTEM,   EAI_OVERFLOW, EAI_NODATA,  1};

// The first address that it gives of a host is the last in the order of texts.
void tellHosts(ScriptedResolver& resolver) {
  resolver.hosts["multi"] = {{"9.1.1.1"}, {"10.0.0.9"}};
  resolver.hosts["Multi"] = resolver.hosts["multi"];
  resolver.hosts["Ten.Example"] = {{"10.0.0.9"}, {"10.0.0.10"}};
  resolver.names = {{"9.1.1.1", "Nine.Example"}, {"10.0.0.9", "Ten.Example"}};
}

class NetworkCalls : public testing::Test {
 protected:
  NetworkCalls() { tellHosts(m_resolver); }

  // The reverse look-ups among the calls, and the others, which only write an address.
  std::vector<std::string> nameCalls() const {
    std::vector<std::string> calls;
    for (const std::string& call : m_resolver.nameInfoCalls) {
      if (call.find(": flags 0,") != std::string::npos) {
        calls.push_back(call);
      }
    }
    return calls;
  }
  Texts numericCalls() const {
    Texts calls(m_resolver.nameInfoCalls.begin(), m_resolver.nameInfoCalls.end());
    for (const std::string& call : nameCalls()) {
      calls.erase(call);
    }
    return calls;
  }

  ScriptedResolver m_resolver;
};

std::string asText(const CCmnHostInfo& host) {
  std::string text = host.m_name + "|";
  for (const std::string& address : host.m_addresses) {
    text += address + ",";
  }
  return text + "|" + host.m_fqdn;
}

// Which call to the resolver fails, none if 0, and what then comes out.
struct FaultCase {
  int addrInfo;
  int nameInfo;
  int result;
  std::string text;
};

// Runs a look-up on a fresh resolver for each case and each error; `lookUp` gets the text "Old".
template <class LookUp>
void expectOutcomes(const std::vector<FaultCase>& cases, LookUp lookUp) {
  for (const FaultCase& fault : cases) {
    for (const int error : resolverErrors) {
      SCOPED_TRACE("getaddrinfo " + std::to_string(fault.addrInfo) + ", getnameinfo " +
                   std::to_string(fault.nameInfo) + ", error " + std::to_string(error));
      ScriptedResolver resolver;
      tellHosts(resolver);
      resolver.addrInfoFailure = {fault.addrInfo, error};
      resolver.nameInfoFailure = {fault.nameInfo, error};
      std::string text = "Old";
      EXPECT_EQ(lookUp(text), fault.result);
      EXPECT_EQ(text, fault.text);
      EXPECT_GE(static_cast<int>(resolver.addrInfoCalls.size()), fault.addrInfo);
      EXPECT_GE(static_cast<int>(resolver.nameInfoCalls.size()), fault.nameInfo);
    }
  }
}

TEST(NetworkStatuses, AreThoseThatHostsWereCompiledWith) {
  EXPECT_EQ(kelp_cmn_4_4::networkOk, 0);
  EXPECT_EQ(kelp_cmn_4_4::networkLookupFailed, 3);
  EXPECT_EQ(kelp_cmn_4_4::networkNoAddress, -1);
}

TEST_F(NetworkCalls, ValidatesByANumericLookUp) {
  EXPECT_TRUE(CCmnNetwork::validateIPAddress("10.0.0.9"));
  EXPECT_FALSE(CCmnNetwork::validateIPAddress("multi"));
  EXPECT_FALSE(CCmnNetwork::validateIPAddress(nullptr));
  EXPECT_THAT(m_resolver.addrInfoCalls,
              ElementsAre("10.0.0.9: flags 4, family 0", "multi: flags 4, family 0"));
  EXPECT_EQ(m_resolver.listsGiven(), 1U);
}

TEST_F(NetworkCalls, LooksUpAddressesWithZeroedHints) {
  Texts addresses{"old"};
  EXPECT_EQ(CCmnNetwork::getAddrByHost("Multi", addresses), found);
  EXPECT_THAT(addresses, ElementsAre("10.0.0.9", "9.1.1.1"));
  EXPECT_THAT(m_resolver.addrInfoCalls, ElementsAre("Multi: flags 0, family 0"));
  EXPECT_THAT(numericCalls(),
              ElementsAre("10.0.0.9: flags 1, 256 bytes", "9.1.1.1: flags 1, 256 bytes"));
  EXPECT_THAT(nameCalls(), IsEmpty());
  EXPECT_EQ(m_resolver.listsInUse(), 0U);
}

TEST_F(NetworkCalls, LooksUpANameByANumericLookUpFirst) {
  std::string name = "old";
  EXPECT_EQ(CCmnNetwork::getHostbyAddr("10.0.0.9", name), found);
  EXPECT_EQ(name, "Ten.Example");
  EXPECT_THAT(m_resolver.addrInfoCalls, ElementsAre("10.0.0.9: flags 4, family 0"));
  EXPECT_THAT(nameCalls(), ElementsAre("10.0.0.9: flags 0, 256 bytes"));
  EXPECT_EQ(m_resolver.listsInUse(), 0U);
}

TEST_F(NetworkCalls, NamesTheFirstNodeOnly) {
  m_resolver.hosts["10.0.0.9"] = {{"9.1.1.1"}, {"10.0.0.9"}};
  std::string name;
  EXPECT_EQ(CCmnNetwork::getHostbyAddr("10.0.0.9", name), found);
  EXPECT_EQ(name, "Nine.Example");

  // Not the next one when the first fails.
  m_resolver.nameInfoFailure = {static_cast<int>(m_resolver.nameInfoCalls.size()) + 1};
  EXPECT_EQ(CCmnNetwork::getHostbyAddr("10.0.0.9", name), failed);
  EXPECT_EQ(name, "Nine.Example");
}

TEST_F(NetworkCalls, GivesTheAddressAsTheNameOfOneWithoutAName) {
  std::string name = "old";
  EXPECT_EQ(CCmnNetwork::getHostbyAddr("fe80::1", name), found);
  EXPECT_EQ(name, "fe80::1");
}

TEST_F(NetworkCalls, TakesNamesOf255BytesAndNoMore) {
  m_resolver.names["10.0.0.9"] = std::string(255, 'n');
  std::string name;
  EXPECT_EQ(CCmnNetwork::getHostbyAddr("10.0.0.9", name), found);
  EXPECT_EQ(name, std::string(255, 'n'));
  m_resolver.names["10.0.0.9"] += 'n';
  EXPECT_EQ(CCmnNetwork::getHostbyAddr("10.0.0.9", name), failed);
  EXPECT_EQ(name, std::string(255, 'n'));
}

TEST_F(NetworkCalls, CollapsesTheNodesOfOneAddress) {
  m_resolver.hosts["multi"] = {{"9.1.1.1"},
                               {"9.1.1.1", AF_INET, SOCK_DGRAM, IPPROTO_UDP},
                               {"10.0.0.9"},
                               {"9.1.1.1", AF_INET, SOCK_RAW, 0}};
  EXPECT_THAT(CCmnNetwork::getAddressListForHost("multi"), ElementsAre("10.0.0.9", "9.1.1.1"));
}

TEST_F(NetworkCalls, SkipsAddressesWithoutText) {
  m_resolver.withoutText = {"9.1.1.1"};
  EXPECT_THAT(CCmnNetwork::getAddressListForHost("multi"), ElementsAre("10.0.0.9"));
  m_resolver.withoutText = {"10.0.0.9"};
  EXPECT_THAT(CCmnNetwork::getAddressListForHost("multi"), ElementsAre("9.1.1.1"));
}

TEST_F(NetworkCalls, FindsNothingOfAHostWhoseAddressesHaveNoText) {
  m_resolver.withoutText = {"9.1.1.1", "10.0.0.9"};
  Texts addresses{"old"};
  EXPECT_EQ(CCmnNetwork::getAddrByHost("multi", addresses), found);  // a success all the same
  EXPECT_THAT(addresses, IsEmpty());
  std::string fqdn = "Old";
  EXPECT_EQ(CCmnNetwork::getFQDN("multi", fqdn), noAddress);
  EXPECT_EQ(fqdn, "Old");
  m_resolver.addrInfoCalls.clear();
  EXPECT_EQ(asText(CCmnNetwork::resolve("multi")), "multi||");
  EXPECT_THAT(m_resolver.addrInfoCalls,
              ElementsAre("multi: flags 4, family 0", "multi: flags 0, family 0"));
}

// As long as the resolver says that it has succeeded.
TEST_F(NetworkCalls, TakesAnEmptyListForASuccessWithoutAddresses) {
  m_resolver.hosts = {{"multi", {}}, {"10.0.0.9", {}}};
  EXPECT_TRUE(CCmnNetwork::validateIPAddress("10.0.0.9"));
  Texts addresses{"old"};
  EXPECT_EQ(CCmnNetwork::getAddrByHost("multi", addresses), found);
  EXPECT_THAT(addresses, IsEmpty());
  EXPECT_THAT(CCmnNetwork::getAddressListForHost("multi"), IsEmpty());
}

TEST_F(NetworkCalls, FindsNoNameInAnEmptyList) {
  m_resolver.hosts = {{"multi", {}}, {"10.0.0.9", {}}};
  std::string name = "Old";
  EXPECT_EQ(CCmnNetwork::getHostbyAddr("10.0.0.9", name), failed);
  EXPECT_EQ(CCmnNetwork::getFQDN("10.0.0.9", name), failed);
  EXPECT_EQ(CCmnNetwork::getFQDN("multi", name), noAddress);
  EXPECT_EQ(name, "Old");
  EXPECT_EQ(asText(CCmnNetwork::resolve("10.0.0.9")), "||");
  EXPECT_EQ(asText(CCmnNetwork::resolve("multi")), "multi||");
  EXPECT_THAT(m_resolver.nameInfoCalls, IsEmpty());
}

TEST_F(NetworkCalls, LeavesTheListsOfCallersAlone) {
  addrinfo* const list = m_resolver.makeList({{"9.1.1.1"}, {"10.0.0.9"}, {"9.1.1.1"}, {"8.8.8.8"}});
  m_resolver.withoutText = {"8.8.8.8"};
  EXPECT_THAT(CCmnNetwork::extractIPAddress(list), ElementsAre("10.0.0.9", "9.1.1.1"));
  EXPECT_THAT(m_resolver.nameInfoCalls,
              ElementsAre("9.1.1.1: flags 1, 256 bytes", "10.0.0.9: flags 1, 256 bytes",
                          "9.1.1.1: flags 1, 256 bytes", "8.8.8.8: flags 1, 256 bytes"));
  EXPECT_THAT(CCmnNetwork::addrinfoBlob(list), testing::SizeIs(4));
  EXPECT_THAT(CCmnNetwork::extractIPAddress(nullptr), IsEmpty());
  EXPECT_THAT(CCmnNetwork::addrinfoBlob(nullptr), IsEmpty());
  EXPECT_THAT(m_resolver.addrInfoCalls, IsEmpty());
}

TEST_F(NetworkCalls, DescribesEveryFieldOfANode) {
  const struct {
    ResolverNode node;
    const char* line;
  } cases[] = {
      {{"10.0.0.1"},
       "ai_family = 2,ai_socktype = 1,ai_protocol = 6,ai_canonname = ,ai_addrlen = 16,"
       "foundName = 10.0.0.1,"},
      {{"fe80::1", AF_INET6, SOCK_DGRAM, IPPROTO_UDP, "Host.Example", 28},
       "ai_family = 10,ai_socktype = 2,ai_protocol = 17,ai_canonname = Host.Example,"
       "ai_addrlen = 28,foundName = fe80::1,"},
      {{"10.0.0.1", -1, -2, -3, "", 4294967295U},
       "ai_family = -1,ai_socktype = -2,ai_protocol = -3,ai_canonname = ,"
       "ai_addrlen = 4294967295,foundName = 10.0.0.1,"},
      {{"10.0.0.1", 2147483647, 0, 0, " a, b ", 0},
       "ai_family = 2147483647,ai_socktype = 0,ai_protocol = 0,ai_canonname =  a, b ,"
       "ai_addrlen = 0,foundName = 10.0.0.1,"},
      {{"8.8.8.8"},
       "ai_family = 2,ai_socktype = 1,ai_protocol = 6,ai_canonname = ,ai_addrlen = 16,"},
  };
  m_resolver.withoutText = {"8.8.8.8"};
  std::vector<ResolverNode> nodes;
  std::vector<std::string> lines;
  for (const auto& [node, line] : cases) {
    nodes.push_back(node);
    lines.emplace_back(line);
    EXPECT_THAT(CCmnNetwork::addrinfoBlob(m_resolver.makeList({node})), ElementsAre(line));
  }
  m_resolver.nameInfoCalls.clear();
  EXPECT_EQ(CCmnNetwork::addrinfoBlob(m_resolver.makeList(nodes)), lines);
  EXPECT_THAT(numericCalls(),
              ElementsAre("10.0.0.1: flags 1, 256 bytes", "8.8.8.8: flags 1, 256 bytes",
                          "fe80::1: flags 1, 256 bytes"));
  EXPECT_THAT(nameCalls(), IsEmpty());
}

TEST_F(NetworkCalls, ListsAreDescribedWholeOrNotAtAllWithoutMemory) {
  addrinfo* const list = m_resolver.makeList({{"10.0.0.9"}, {"2001:db8::1", AF_INET6}});
  const std::vector<std::string> whole = CCmnNetwork::addrinfoBlob(list);
  ASSERT_EQ(whole.size(), 2U);
  std::vector<std::string> lines;
  kelp_test::failEachAllocation(
      [&] { lines.clear(); }, [&] { lines = CCmnNetwork::addrinfoBlob(list); },
      [&](bool threw) { EXPECT_EQ(lines, threw ? std::vector<std::string>() : whole); });
}

TEST_F(NetworkCalls, AsksForTheFullyQualifiedNameOfTheFirstAddress) {
  std::string fqdn;
  EXPECT_EQ(CCmnNetwork::getFQDN("MULTI", fqdn), found);
  EXPECT_EQ(fqdn, "ten.example");
  EXPECT_THAT(m_resolver.addrInfoCalls,
              ElementsAre("multi: flags 4, family 0", "multi: flags 0, family 0",
                          "10.0.0.9: flags 4, family 0"));
  EXPECT_THAT(nameCalls(), ElementsAre("10.0.0.9: flags 0, 256 bytes"));
  EXPECT_EQ(m_resolver.listsGiven(), 2U);
}

TEST_F(NetworkCalls, AsksForTheFullyQualifiedNameOfAnAddressInLowerCase) {
  std::string fqdn;
  EXPECT_EQ(CCmnNetwork::getFQDN("FE80::A", fqdn), found);
  EXPECT_EQ(fqdn, "fe80::a");
  EXPECT_THAT(m_resolver.addrInfoCalls,
              ElementsAre("fe80::a: flags 4, family 0", "fe80::a: flags 4, family 0"));
}

TEST_F(NetworkCalls, AsksNothingForNothing) {
  std::string fqdn = "Old";
  EXPECT_EQ(CCmnNetwork::getFQDN(nullptr, fqdn), failed);
  EXPECT_EQ(CCmnNetwork::getFQDN("", fqdn), failed);
  EXPECT_EQ(fqdn, "Old");
  EXPECT_EQ(asText(CCmnNetwork::resolve("")), "||");
  EXPECT_FALSE(CCmnNetwork::compare(std::string(), std::string("multi")));
  EXPECT_FALSE(CCmnNetwork::compare(std::string("multi"), std::string()));
  EXPECT_FALSE(CCmnNetwork::compare(std::string(), std::string()));
  EXPECT_THAT(m_resolver.addrInfoCalls, IsEmpty());
}

TEST_F(NetworkCalls, TakesItsOutputForItsInput) {
  std::string text = "MULTI";
  EXPECT_EQ(CCmnNetwork::getFQDN(text.c_str(), text), found);
  EXPECT_EQ(text, "ten.example");
  text = "10.0.0.9";
  EXPECT_EQ(CCmnNetwork::getHostbyAddr(text, text), found);
  EXPECT_EQ(text, "Ten.Example");
}

TEST_F(NetworkCalls, LeavesAByteThatIsNoLetterOfTheLocale) {
  m_resolver.hosts["\xc4server"] = {{"10.0.0.9"}};
  m_resolver.names["10.0.0.9"] = "\xc4SERVER.Example";
  for (const char* locale : {"C", "C.utf8"}) {
    SCOPED_TRACE(locale);
    const ScopedLocale scope(locale);
    std::string fqdn;
    EXPECT_EQ(CCmnNetwork::getFQDN("\xc4SERVER", fqdn), found);
    EXPECT_EQ(fqdn, "\xc4server.example");
  }
}

TEST_F(NetworkCalls, ResolvesANameAsItIs) {
  EXPECT_EQ(asText(CCmnNetwork::resolve("Multi")), "Multi|10.0.0.9,9.1.1.1,|ten.example");
  EXPECT_THAT(m_resolver.addrInfoCalls,
              ElementsAre("Multi: flags 4, family 0", "Multi: flags 0, family 0",
                          "10.0.0.9: flags 4, family 0", "10.0.0.9: flags 4, family 0"));
  EXPECT_THAT(nameCalls(), ElementsAre("10.0.0.9: flags 0, 256 bytes"));
}

TEST_F(NetworkCalls, ResolvesAnAddressToTheAddressesOfItsName) {
  EXPECT_EQ(asText(CCmnNetwork::resolve("10.0.0.9")),
            "Ten.Example|10.0.0.10,10.0.0.9,|Ten.Example");
  EXPECT_THAT(m_resolver.addrInfoCalls,
              ElementsAre("10.0.0.9: flags 4, family 0", "10.0.0.9: flags 4, family 0",
                          "Ten.Example: flags 0, family 0"));
  m_resolver.hosts["Ten.Example"] = {{"10.0.0.10"}};
  EXPECT_EQ(asText(CCmnNetwork::resolve("10.0.0.9")), "Ten.Example|10.0.0.10,|Ten.Example");
  EXPECT_EQ(asText(CCmnNetwork::resolve("9.1.1.1")), "Nine.Example||Nine.Example");
  EXPECT_EQ(asText(CCmnNetwork::resolve("10.9.9.9")), "10.9.9.9|10.9.9.9,|10.9.9.9");
}

TEST_F(NetworkCalls, ResolvesBothDesignationsToCompareThem) {
  EXPECT_TRUE(CCmnNetwork::compare(std::string("multi"), std::string("10.0.0.9")));
  EXPECT_EQ(m_resolver.addrInfoCalls.size(), 7U);  // as many as both take above
  EXPECT_EQ(m_resolver.listsInUse(), 0U);
}

TEST_F(NetworkCalls, ResolvesTheFirstDesignationFirst) {
  EXPECT_FALSE(CCmnNetwork::compare(std::string("nowhere"), std::string("nobody")));
  EXPECT_THAT(m_resolver.addrInfoCalls,
              ElementsAre("nowhere: flags 4, family 0", "nowhere: flags 0, family 0",
                          "nobody: flags 4, family 0", "nobody: flags 0, family 0"));
}

TEST_F(NetworkCalls, FindsAnAddressUnlikeItselfWhenItsNameCannotBeFound) {
  EXPECT_TRUE(CCmnNetwork::compare(std::string("10.0.0.9"), std::string("10.0.0.9")));
  m_resolver.nameInfoFailure = {static_cast<int>(m_resolver.nameInfoCalls.size()) + 1};
  EXPECT_FALSE(CCmnNetwork::compare(std::string("10.0.0.9"), std::string("10.0.0.9")));
}

TEST_F(NetworkCalls, ComparesWithARecordWithoutResolving) {
  const CCmnHostInfo ten{"Ten.Example", {"10.0.0.9"}, "ten.example"};
  const CCmnHostInfo multi{"multi", {"9.1.1.1"}, "nine.example"};
  EXPECT_FALSE(CCmnNetwork::compare(ten, multi));
  EXPECT_FALSE(CCmnNetwork::compare(std::string("multi"), ten));
  EXPECT_FALSE(CCmnNetwork::compare(std::string("10.0.0.9"), multi));
  EXPECT_TRUE(CCmnNetwork::compare(std::string("10.0.0.9"), ten));
  EXPECT_THAT(m_resolver.addrInfoCalls, IsEmpty());
  EXPECT_THAT(m_resolver.nameInfoCalls, IsEmpty());
}

TEST_F(NetworkCalls, AsksAfresh) {
  EXPECT_THAT(CCmnNetwork::getAddressListForHost("multi"), ElementsAre("10.0.0.9", "9.1.1.1"));
  m_resolver.hosts["multi"] = {{"8.8.8.8"}};
  EXPECT_THAT(CCmnNetwork::getAddressListForHost("multi"), ElementsAre("8.8.8.8"));
  EXPECT_EQ(asText(CCmnNetwork::resolve("multi")), "multi|8.8.8.8,|8.8.8.8");
  m_resolver.names["8.8.8.8"] = "Eight";
  EXPECT_EQ(asText(CCmnNetwork::resolve("multi")), "multi|8.8.8.8,|eight");
}

TEST_F(NetworkCalls, NamesThisMachineWithTheBufferThatItFilled) {
  m_resolver.hostName = [](char* buffer, size_t size) {
    EXPECT_EQ(buffer[0], '\0');  // for a call that fails without a trace
    std::memcpy(buffer, "This.Host", 10);
    return size == 254 ? 0 : -1;
  };
  EXPECT_EQ(CCmnNetwork::getComputerName(), "This.Host");

  m_resolver.hostName = [](char* buffer, size_t size) {
    std::memset(buffer, 'h', size);  // and no terminator
    return 0;
  };
  EXPECT_EQ(CCmnNetwork::getComputerName(), std::string(254, 'h'));
  EXPECT_THAT(m_resolver.hostNameCalls, ElementsAre(254, 254));
}

TEST_F(NetworkCalls, NamesThisMachineWithWhatAFailedCallLeft) {
  m_resolver.hostName = [](char*, size_t) { return -1; };
  EXPECT_EQ(CCmnNetwork::getComputerName(), "");
  m_resolver.hostName = [](char* buffer, size_t) {
    std::memcpy(buffer, "cut", 4);
    return -1;
  };
  EXPECT_EQ(CCmnNetwork::getComputerName(), "cut");
}

TEST_F(NetworkCalls, LooksUpThisMachineByItsName) {
  m_resolver.hostName = [](char* buffer, size_t) {
    std::memcpy(buffer, "Multi", 6);
    return 0;
  };
  std::string fqdn = "Old";
  EXPECT_EQ(CCmnNetwork::getFQDN(fqdn), found);
  EXPECT_EQ(fqdn, "ten.example");
  EXPECT_EQ(asText(CCmnNetwork::resolve()), "Multi|10.0.0.9,9.1.1.1,|ten.example");

  m_resolver.hosts.clear();
  fqdn = "Old";
  EXPECT_EQ(CCmnNetwork::getFQDN(fqdn), noAddress);
  EXPECT_EQ(fqdn, "Old");
  EXPECT_EQ(asText(CCmnNetwork::resolve()), "Multi||");
}

TEST_F(NetworkCalls, LooksUpNothingForAMachineWithoutAName) {
  std::string fqdn = "Old";
  EXPECT_EQ(CCmnNetwork::getFQDN(fqdn), failed);
  EXPECT_EQ(fqdn, "Old");
  EXPECT_EQ(asText(CCmnNetwork::resolve()), "||");
  EXPECT_EQ(m_resolver.hostNameCalls.size(), 2U);
  EXPECT_THAT(m_resolver.addrInfoCalls, IsEmpty());
}

TEST_F(NetworkCalls, ReleasesItsListWhenACallIsCutShort) {
  m_resolver.nameInfoThrows = true;  // as cancelling the thread in it does
  m_resolver.nameInfoFailure = {1};
  Texts addresses{"old"};
  EXPECT_THROW(CCmnNetwork::getAddrByHost("multi", addresses), int);
  EXPECT_THAT(addresses, ElementsAre("old"));
  EXPECT_EQ(m_resolver.listsInUse(), 0U);

  m_resolver.nameInfoFailure = {static_cast<int>(m_resolver.nameInfoCalls.size()) + 1};
  std::string name = "old";
  EXPECT_THROW(CCmnNetwork::getHostbyAddr("10.0.0.9", name), int);
  EXPECT_EQ(name, "old");
  EXPECT_EQ(m_resolver.listsInUse(), 0U);
}

TEST(NetworkFaults, FailSimpleLookUps) {
  expectOutcomes({{0, 0, 1, "Old"}, {1, 0, 0, "Old"}},
                 [](std::string&) { return CCmnNetwork::validateIPAddress("10.0.0.9") ? 1 : 0; });
  const auto addresses = [](std::string& text) {
    Texts stored{"Old"};
    const int result = CCmnNetwork::getAddrByHost("multi", stored);
    text.clear();
    for (const std::string& address : stored) {
      text += address + ",";
    }
    return result;
  };
  expectOutcomes({{0, 0, found, "10.0.0.9,9.1.1.1,"},
                  {1, 0, failed, "Old,"},
                  {0, 1, found, "10.0.0.9,"},
                  {0, 2, found, "9.1.1.1,"}},
                 addresses);
  expectOutcomes({{0, 0, found, "Ten.Example"}, {1, 0, failed, "Old"}, {0, 1, failed, "Old"}},
                 [](std::string& name) { return CCmnNetwork::getHostbyAddr("10.0.0.9", name); });
}

TEST(NetworkFaults, ShowInTheFullyQualifiedName) {
  // A name: is it numeric, its addresses, the first one's name.
  expectOutcomes({{0, 0, found, "ten.example"},
                  {1, 0, found, "ten.example"},
                  {2, 0, noAddress, "Old"},
                  {3, 0, failed, "Old"},
                  {0, 1, found, "ten.example"},
                  {0, 2, found, "nine.example"},
                  {0, 3, failed, "Old"}},
                 [](std::string& fqdn) { return CCmnNetwork::getFQDN("MULTI", fqdn); });
  // An address, which counts as a name if the first call fails.
  expectOutcomes({{0, 0, found, "ten.example"},
                  {1, 0, found, "ten.example"},
                  {2, 0, failed, "Old"},
                  {0, 1, failed, "Old"}},
                 [](std::string& fqdn) { return CCmnNetwork::getFQDN("10.0.0.9", fqdn); });
}

TEST(NetworkFaults, LeavePartsOfARecordEmpty) {
  const auto resolved = [](const char* host) {
    return [host](std::string& text) {
      text = asText(CCmnNetwork::resolve(host));
      return found;
    };
  };
  expectOutcomes({{0, 0, found, "Multi|10.0.0.9,9.1.1.1,|ten.example"},
                  {1, 0, found, "Multi|10.0.0.9,9.1.1.1,|ten.example"},
                  {2, 0, found, "Multi||"},
                  {3, 0, found, "Multi|10.0.0.9,9.1.1.1,|ten.example"},
                  {4, 0, found, "Multi|10.0.0.9,9.1.1.1,|"},
                  {0, 1, found, "Multi|10.0.0.9,|ten.example"},
                  {0, 2, found, "Multi|9.1.1.1,|nine.example"},
                  {0, 3, found, "Multi|10.0.0.9,9.1.1.1,|"}},
                 resolved("Multi"));
  expectOutcomes({{0, 0, found, "Ten.Example|10.0.0.10,10.0.0.9,|Ten.Example"},
                  {1, 0, found, "10.0.0.9|10.0.0.9,|ten.example"},
                  {2, 0, found, "||"},
                  {3, 0, found, "Ten.Example||Ten.Example"},
                  {0, 1, found, "||"},
                  {0, 2, found, "Ten.Example|10.0.0.10,|Ten.Example"},
                  {0, 3, found, "Ten.Example|10.0.0.9,|Ten.Example"}},
                 resolved("10.0.0.9"));
}

}  // namespace

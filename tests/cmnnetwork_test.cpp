// Host names and addresses by the system's resolver, which knows only what
// tests/resources/etc/hosts says; and comparisons.
#include "cmnnetwork.h"

#include "network_results.h"
#include "scratch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <netdb.h>

#include <cstdlib>
#include <memory>
#include <set>
#include <string>

namespace {

using namespace kelp_test::look_up;
using kelp_cmn_4_4::CCmnHostInfo;
using kelp_cmn_4_4::CCmnNetwork;
using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::set<std::string>;

class Network : public testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("KELP_VIEW_ETC") == nullptr) {
      GTEST_FAIL() << "this test has hosts of its own: run it through tests/support/private_view "
                      "--etc tests/resources/etc";
    }
  }
};

std::unique_ptr<addrinfo, void (*)(addrinfo*)> listOf(const char* node, addrinfo hints) {
  addrinfo* list = nullptr;
  EXPECT_EQ(getaddrinfo(node, nullptr, &hints, &list), 0) << node;
  return {list, freeaddrinfo};
}

void expectRecord(const CCmnHostInfo& info, const std::string& name, const Texts& addresses,
                  const std::string& fqdn) {
  EXPECT_EQ(info.m_name, name);
  EXPECT_EQ(info.m_addresses, addresses);
  EXPECT_EQ(info.m_fqdn, fqdn);
}

TEST_F(Network, TakesNumericAddressesOnlyForAddresses) {
  for (const char* text :
       {"127.0.0.1", "::1", "10.1.2.3", "0.0.0.0", "255.255.255.255", "192.0.2.77", "fe80::1",
        "::", "2001:DB8::6", "2001:0db8:0:0:0:0:0:6", "::ffff:10.0.0.9", "127.1", "10.0.0.011"}) {
    EXPECT_TRUE(CCmnNetwork::validateIPAddress(text)) << text;
  }
  for (const char* text :
       {"", "localhost", "LOCALHOST", "multi", "nine.example", "nowhere.example", " ", "10.0.0.256",
        "1.2.3.4.5", "10.0.0.1/8", "10.0.0.1:80", "[::1]", ":::1", "::g", "10.0.0.x", "-1"}) {
    EXPECT_FALSE(CCmnNetwork::validateIPAddress(text)) << text;
  }
  EXPECT_FALSE(CCmnNetwork::validateIPAddress(nullptr));
}

TEST_F(Network, NamesThisMachine) {
  EXPECT_EQ(CCmnNetwork::getComputerName() + "\n",
            kelp_test::readFile("/proc/sys/kernel/hostname"));
}

TEST_F(Network, FindsAllAddressesOfAName) {
  const struct {
    const char* host;
    Texts addresses;
  } cases[] = {
      {"multi", {"10.0.0.9", "200.0.0.1", "9.1.1.1"}},
      {"MULTI", {"10.0.0.9", "200.0.0.1", "9.1.1.1"}},
      {"nine.example", {"9.1.1.1"}},
      {"dual", {"10.0.0.6", "2001:db8::6"}},
      {"six.example", {"2001:db8::6"}},
      {"localhost", {"127.0.0.1", "::1"}},  // as any other name of the file
      {"mixed", {"10.0.0.50"}},
      {"10.0.0.9", {"10.0.0.9"}},
      {"192.0.2.77", {"192.0.2.77"}},
      {"127.1", {"127.0.0.1"}},
      {"2001:DB8:0::6", {"2001:db8::6"}},
  };
  for (const auto& [host, expected] : cases) {
    SCOPED_TRACE(host);
    Texts addresses{"old"};
    EXPECT_EQ(CCmnNetwork::getAddrByHost(host, addresses), found);
    EXPECT_EQ(addresses, expected);
    EXPECT_EQ(CCmnNetwork::getAddressListForHost(host), expected);
  }
}

TEST_F(Network, FindsNoAddressOfAnUnknownName) {
  for (const std::string& host :
       {std::string(), std::string("nowhere.example"), std::string("mult"), std::string("multi."),
        std::string("multi nine.example"), std::string("\n"), std::string(300, 'h')}) {
    SCOPED_TRACE(host);
    Texts addresses{"old"};
    EXPECT_EQ(CCmnNetwork::getAddrByHost(host, addresses), failed);
    EXPECT_THAT(addresses, ElementsAre("old"));
    EXPECT_THAT(CCmnNetwork::getAddressListForHost(host), IsEmpty());
  }
}

TEST_F(Network, FindsTheNameOfAnAddressAsTheResolverWritesIt) {
  const struct {
    const char* address;
    const char* name;
  } cases[] = {
      {"9.1.1.1", "nine.example"},
      {"10.0.0.50", "MIXED.Example"},
      {"127.0.0.1", "LoopBack.example"},
      {"127.1", "LoopBack.example"},
      {"::1", "localhost"},
      {"2001:DB8::6", "six.example"},
      {"10.0.0.40", "10.0.0.41"},
      {"192.0.2.77", "192.0.2.77"},  // without a name
      {"192.0.2.077", "192.0.2.63"},
      {"2001:DB8:0::77", "2001:db8::77"},
  };
  for (const auto& [address, expected] : cases) {
    SCOPED_TRACE(address);
    std::string name = "old";
    EXPECT_EQ(CCmnNetwork::getHostbyAddr(address, name), found);
    EXPECT_EQ(name, expected);
  }
}

TEST_F(Network, FindsNoNameOfWhatIsNoAddress) {
  for (const char* address : {"", "multi", "localhost", "10.0.0.256", "nowhere.example"}) {
    SCOPED_TRACE(address);
    std::string name = "old";
    EXPECT_EQ(CCmnNetwork::getHostbyAddr(address, name), failed);
    EXPECT_EQ(name, "old");
  }
}

TEST_F(Network, FindsTheFullyQualifiedNameByTheSmallestAddressText) {
  const struct {
    const char* host;
    const char* fqdn;
  } cases[] = {
      {"multi", "ten.example"},           {"Multi", "ten.example"},
      {"nine.example", "nine.example"},   {"LAST.EXAMPLE", "last.example"},
      {"dual", "four.example"},           {"mIxEd", "mixed.example"},
      {"LOCALHOST", "loopback.example"},  {"ip6-localhost", "localhost"},
      {"10.0.0.9", "ten.example"},        {"10.0.0.50", "mixed.example"},
      {"10.0.0.40", "10.0.0.41"},         {"2001:DB8::6", "six.example"},
      {"2001:DB8:0::77", "2001:db8::77"}, {"192.0.2.77", "192.0.2.77"},
  };
  for (const auto& [host, expected] : cases) {
    SCOPED_TRACE(host);
    std::string fqdn = "Old";
    EXPECT_EQ(CCmnNetwork::getFQDN(host, fqdn), found);
    EXPECT_EQ(fqdn, expected);
  }
}

TEST_F(Network, FindsNoFullyQualifiedNameOfNothingKnown) {
  const struct {
    const char* host;
    int result;
  } cases[] = {{nullptr, failed},
               {"", failed},
               {"nowhere.example", noAddress},
               {"10.0.0.256", noAddress},
               {" ", noAddress}};
  for (const auto& [host, result] : cases) {
    SCOPED_TRACE(host == nullptr ? "null" : host);
    std::string fqdn = "Old";
    EXPECT_EQ(CCmnNetwork::getFQDN(host, fqdn), result);
    EXPECT_EQ(fqdn, "Old");
  }
}

TEST_F(Network, ResolvesNamesAndAddresses) {
  const struct {
    const char* host;
    const char* name;
    Texts addresses;
    const char* fqdn;
  } cases[] = {
      {"", "", {}, ""},
      {"multi", "multi", {"10.0.0.9", "200.0.0.1", "9.1.1.1"}, "ten.example"},
      {"MIXED", "MIXED", {"10.0.0.50"}, "mixed.example"},
      {"nowhere.Example", "nowhere.Example", {}, ""},
      {"10.0.0.50", "MIXED.Example", {"10.0.0.50"}, "MIXED.Example"},
      {"2001:DB8::6", "six.example", {"2001:db8::6"}, "six.example"},
      {"127.1", "LoopBack.example", {"127.0.0.1"}, "LoopBack.example"},
      {"::1", "localhost", {"127.0.0.1", "::1"}, "localhost"},
      {"10.0.0.40", "10.0.0.41", {"10.0.0.41"}, "10.0.0.41"},  // without the address itself
      {"192.0.2.77", "192.0.2.77", {"192.0.2.77"}, "192.0.2.77"},
      {"2001:DB8:0::77", "2001:db8::77", {"2001:db8::77"}, "2001:db8::77"},
  };
  for (const auto& [host, name, addresses, fqdn] : cases) {
    SCOPED_TRACE(host);
    expectRecord(CCmnNetwork::resolve(host), name, addresses, fqdn);
  }
}

TEST_F(Network, ComparesWhatTwoDesignationsResolveTo) {
  const struct {
    const char* a;
    const char* b;
    bool same;
  } cases[] = {
      {"", "", false},
      {"", "multi", false},
      {"multi", "", false},
      {"multi", "9.1.1.1", true},
      {"multi", "last.example", true},
      {"nine.example", "ten.example", false},
      {"nine.example", "10.0.0.9", false},
      {"six.example", "four.example", false},
      {"dual", "2001:DB8:0:0::6", true},
      {"MIXED", "mixed.example", true},
      {"localhost", "127.0.0.1", true},
      {"127.0.0.1", "127.1", true},
      {"192.0.2.77", "192.0.2.77", true},
      {"192.0.2.77", "192.0.2.78", false},
      {"nowhere.example", "NOWHERE.Example", true},  // by their names alone
      {"nowhere.example", "elsewhere.example", false},
      {"twin-a", "twin-b", true},  // by their fully qualified names alone
      {"10.0.0.40", "10.0.0.41", true},
      {"10.0.0.40", "10.0.0.50", false},
  };
  for (const auto& [a, b, same] : cases) {
    SCOPED_TRACE(std::string(a) + " and " + b);
    EXPECT_EQ(CCmnNetwork::compare(std::string(a), std::string(b)), same);
    EXPECT_EQ(CCmnNetwork::compare(std::string(b), std::string(a)), same);
  }
}

TEST_F(Network, ListsTheAddressesOfAResolverList) {
  addrinfo hints{};
  const auto list = listOf("multi", hints);  // each address once for each type of socket
  EXPECT_THAT(CCmnNetwork::extractIPAddress(list.get()),
              ElementsAre("10.0.0.9", "200.0.0.1", "9.1.1.1"));
  EXPECT_THAT(CCmnNetwork::extractIPAddress(nullptr), IsEmpty());
}

TEST_F(Network, DescribesAResolverList) {
  addrinfo hints{};
  const auto all = listOf("10.0.0.1", hints);
  EXPECT_THAT(CCmnNetwork::addrinfoBlob(all.get()),
              ElementsAre("ai_family = 2,ai_socktype = 1,ai_protocol = 6,ai_canonname = ,"
                          "ai_addrlen = 16,foundName = 10.0.0.1,",
                          "ai_family = 2,ai_socktype = 2,ai_protocol = 17,ai_canonname = ,"
                          "ai_addrlen = 16,foundName = 10.0.0.1,",
                          "ai_family = 2,ai_socktype = 3,ai_protocol = 0,ai_canonname = ,"
                          "ai_addrlen = 16,foundName = 10.0.0.1,"));
  hints.ai_flags = AI_CANONNAME;
  hints.ai_socktype = SOCK_STREAM;
  const auto six = listOf("six.example", hints);
  EXPECT_THAT(CCmnNetwork::addrinfoBlob(six.get()),
              ElementsAre("ai_family = 10,ai_socktype = 1,ai_protocol = 6,ai_canonname = "
                          "six.example,ai_addrlen = 28,foundName = 2001:db8::6,"));
  EXPECT_THAT(CCmnNetwork::addrinfoBlob(nullptr), IsEmpty());
}

TEST(HostInfo, IsAPlainValueEmptyAtFirst) {
  expectRecord(CCmnHostInfo(), "", {}, "");
  CCmnHostInfo host{"name", {"10.0.0.2", "10.0.0.1"}, "fqdn"};  // in this order
  const CCmnHostInfo copy = host;
  host = CCmnHostInfo();
  expectRecord(copy, "name", {"10.0.0.1", "10.0.0.2"}, "fqdn");
  expectRecord(host, "", {}, "");
}

TEST(CompareRecords, LooksAtAddressesThenNamesThenFullyQualifiedNames) {
  const struct {
    const char* what;
    CCmnHostInfo a;
    CCmnHostInfo b;
    bool same;
  } cases[] = {
      {"empty", {}, {}, false},
      {"nothing in common", {"a", {"10.0.0.1"}, "a.x"}, {"b", {"10.0.0.2"}, "b.x"}, false},
      {"everything", {"a", {"10.0.0.1"}, "a.x"}, {"a", {"10.0.0.1"}, "a.x"}, true},

      {"an address only", {"a", {"10.0.0.1"}, "a.x"}, {"b", {"10.0.0.1"}, "b.x"}, true},
      {"the last of each",
       {"", {"10.0.0.1", "10.0.0.2", "10.0.0.9"}, ""},
       {"", {"10.0.0.0", "10.0.0.9"}, ""},
       true},
      {"the first of each",
       {"", {"1.1.1.1", "3.3.3.3"}, ""},
       {"", {"1.1.1.1", "2.2.2.2"}, ""},
       true},
      {"the first and the last",
       {"", {"5.5.5.5", "9.9.9.9"}, ""},
       {"", {"1.1.1.1", "5.5.5.5"}, ""},
       true},
      {"one number, two texts", {"", {"10.0.0.1"}, ""}, {"", {"10.0.0.01"}, ""}, false},
      {"the beginning of an address", {"", {"10.0.0.1"}, ""}, {"", {"10.0.0.10"}, ""}, false},
      {"the end of an address", {"", {"10.0.0.1"}, ""}, {"", {"0.0.0.1"}, ""}, false},
      {"two cases of an address", {"", {"fe80::a"}, ""}, {"", {"FE80::A"}, ""}, false},
      {"an empty address", {"", {""}, ""}, {"", {""}, ""}, true},
      {"addresses of one only", {"", {"10.0.0.1"}, ""}, {"", {}, ""}, false},

      {"a name only", {"a", {"10.0.0.1"}, "a.x"}, {"a", {"10.0.0.2"}, "b.x"}, true},
      {"two cases of a name", {"HosT1", {}, ""}, {"hOSt1", {}, ""}, true},
      {"the beginning of a name", {"host", {}, ""}, {"host1", {}, ""}, false},
      {"a short and a long name", {"host1", {}, ""}, {"host1.example", {}, ""}, false},
      {"a name and none", {"a", {}, ""}, {"", {}, ""}, false},
      {"no name and fully qualified ones that differ", {"", {}, "a.x"}, {"", {}, "b.x"}, false},

      {"a fully qualified name only", {"a", {"1.1.1.1"}, "a.x"}, {"b", {"2.2.2.2"}, "a.x"}, true},
      {"two cases of it", {"a", {}, "A.x"}, {"b", {}, "a.X"}, true},
      {"the beginning of it", {"", {}, "a.x"}, {"", {}, "a.x.y"}, false},
      {"a fully qualified name and none", {"", {}, "a.x"}, {"", {}, ""}, false},
      {"none of both, and other names", {"a", {}, ""}, {"b", {}, ""}, false},

      {"the name of one as the other's fully qualified one",
       {"a.x", {}, ""},
       {"", {}, "a.x"},
       false},
      {"the address of one as the other's name", {"", {"1.1.1.1"}, ""}, {"1.1.1.1", {}, ""}, false},
  };
  for (const auto& [what, a, b, same] : cases) {
    SCOPED_TRACE(what);
    EXPECT_EQ(CCmnNetwork::compare(a, b), same);
    EXPECT_EQ(CCmnNetwork::compare(b, a), same);
  }
}

TEST(CompareTextWithRecord, LooksForTheTextInTheRecord) {
  const CCmnHostInfo host{"Host1", {"10.0.0.1", "10.0.0.2", "fe80::a"}, "host1.Example"};
  const struct {
    const char* what;
    std::string text;
    CCmnHostInfo record;
    bool same;
  } cases[] = {
      {"empty", "", host, false},
      {"both empty", "", {}, false},
      {"an empty address", "", {"", {""}, ""}, false},
      {"nothing in the record", "host1", {}, false},

      {"the first address", "10.0.0.1", host, true},
      {"an address amidst", "10.0.0.2", host, true},
      {"the last address", "fe80::a", host, true},
      {"another address", "10.0.0.3", host, false},
      {"one number, another text", "10.0.0.01", host, false},
      {"another case of an address", "FE80::A", host, false},
      {"the beginning of an address", "10.0.0.", host, false},

      {"the fully qualified name", "host1.Example", host, true},
      {"another case of it", "HOST1.eXAMPLE", host, true},
      {"only that", "a.x", {"", {}, "A.X"}, true},
      {"the beginning of it", "host1.Exampl", host, false},
      {"more than it", "host1.Example.", host, false},

      {"the name", "Host1", host, true},
      {"another case of it", "hOST1", host, true},
      {"only that", "HOST1", {"host1", {}, ""}, true},
      {"the beginning of it", "Host", host, false},
      {"more than it", "Host12", host, false},

      {"a short name of a fully qualified one", "host1", {"", {}, "host1.example"}, false},
      {"a name that resolves to an address", "nine.example", {"", {"9.1.1.1"}, ""}, false},
      {"an address that resolves to a name",
       "9.1.1.1",
       {"nine.example", {}, "nine.example"},
       false},
      {"an address as a name", "10.0.0.1", {"10.0.0.1", {}, ""}, true},
  };
  for (const auto& [what, text, record, same] : cases) {
    SCOPED_TRACE(what);
    EXPECT_EQ(CCmnNetwork::compare(text, record), same);
  }
}

}  // namespace

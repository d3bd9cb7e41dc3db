// Objects of which each thread has its own, or that several use under a lock; settings, paths,
// names of hosts, sleeping. As threads_text_test, threads_buffers_test and threads_commands_test do
// the rest, everything that several threads may do is done by several threads. Tells most under the
// thread sanitizer.
#include "another_process.h"
#include "cmnconfiguration.h"
#include "cmnerror.h"
#include "cmnicumessage.h"
#include "cmnmillisleep.h"
#include "cmnmsgdgst5.h"
#include "cmnnetwork.h"
#include "cmnpathtool.h"
#include "cmnqrbconfiguration.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmnsmartptr.h"
#include "cmntracelog.h"
#include "in_threads.h"
#include "install_root.h"
#include "next_symbol.h"
#include "plain_digest.h"
#include "resource_bundles.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <netdb.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

std::atomic<bool> platformHasNanosleep{true};
std::atomic<int> wholeSeconds{0};

}  // namespace

extern "C" int nanosleep(const timespec* duration, timespec* rest) {
  static const auto platforms = kelp_test::nextSymbol<decltype(nanosleep)>("nanosleep");
  if (!platformHasNanosleep) {
    errno = ENOSYS;
    return -1;
  }
  return platforms(duration, rest);
}

extern "C" unsigned int sleep(unsigned int seconds) {
  wholeSeconds += static_cast<int>(seconds);
  return 0;
}

namespace {

using namespace kelp_cmn_4_4;
using kelp_test::Call;
using kelp_test::call;
using kelp_test::InstallRoot;
using kelp_test::inThreads;
using kelp_test::threadCount;
using kelp_test::wrongCalls;

// ---- objects, of which each thread has its own

TEST(Threads, ComputeDigests) {
  inThreads([](size_t i) {
    const std::string text(1000 * i + 7, static_cast<char>('a' + i));
    const std::string expected =
        kelp_test::PlainDigest<unsigned long>().digestOf({text.begin(), text.end()});
    int wrong = 0;
    for (int round = 0; round < 30; ++round) {
      CCmnMessageDigest5 digest;
      for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        digest.Update(&byte, 1);
      }
      digest.Finalize();
      wrong += digest.GetAnsiMessageDigest() != expected ? 1 : 0;
    }
    return wrong;
  });
}

TEST(Threads, PassMessagesOn) {
  inThreads([](size_t i) {
    int wrong = 0;
    for (int round = 0; round < 50; ++round) {
      CCmnIcuMessage sent("MSG_" + std::to_string(i), static_cast<int>(i), "file.cpp", round);
      sent.addArgument(icu::Formattable(icu::UnicodeString("text")));
      sent.addArgument(icu::Formattable(static_cast<int32_t>(round)));
      CCmnIcuMessage received;
      received.deserialize(sent.serialize());
      wrong += received.getMessageId() != "MSG_" + std::to_string(i) ? 1 : 0;
      wrong +=
          received.formatMessage("{1}: {0}") != (std::to_string(round) + ": text").c_str() ? 1 : 0;
    }
    return wrong;
  });
}

class ThreadsInTheInstallRoot : public testing::Test {
 protected:
  ThreadsInTheInstallRoot() { InstallRoot::makeConfigDir(); }

 private:
  const InstallRoot m_root;
};

TEST_F(ThreadsInTheInstallRoot, LookTextsUpInManagersOfTheirOwnAndInOneCatalog) {
  const kelp_test::ScopedIcu icuState("en");
  kelp_test::installBundle("messages", kelp_test::BundleForm::directory);
  CCmnIcuMessageCatalog shared("de", "messages");
  ASSERT_EQ(shared.init(), 0);
  inThreads([&shared](size_t) {
    kelp_test::IcuFactory factory;
    CCmnMessageCatalogManager manager;
    manager.registerFactory(&factory);
    CCmnIcuMessage message("MSG_GREETING", 1);
    message.addArgument(icu::Formattable(icu::UnicodeString("you")));
    int wrong = 0;
    for (int round = 0; round < 20; ++round) {
      char* greeting = nullptr;
      manager.getLocalizedMessage(message.serialize(), "en", &greeting);
      wrong += std::strcmp(greeting, "messages: Hello, you") != 0 ? 1 : 0;
      manager.deleteLocalizedMessage(&greeting);
      wrong += shared.getMessage("MSG_PLAIN", "none") != tstr("messages: einfacher Text") ? 1 : 0;
    }
    return wrong;
  });
}

TEST_F(ThreadsInTheInstallRoot, ReadAndWriteSettings) {
  kelp_test::writeFile(InstallRoot::productConfig, "VERBOSE=3\n");
  inThreads([](size_t i) {
    const tstr component(("component" + std::to_string(i)).c_str());
    int wrong = 0;
    for (unsigned int round = 0; round < 20; ++round) {
      tstr dir;
      tstr file;
      int verbosity = 0;
      CCmnQRBConfiguration::getTraceConfigFileInfo(dir, file);
      wrong +=
          CCmnQRBConfiguration::getTraceLevel(dir, file, verbosity) != 0 || verbosity != 3 ? 1 : 0;
      CCmnPathTool::getMessageFileInfo(component, dir, file);
      wrong += CCmnPathTool::verify(dir.c_str()) != 0 ? 1 : 0;
      CCmnPathTool::getConfigFileInfo(component, dir, file);
      CCmnConfiguration written(dir.c_str(), file.c_str(), false);
      ACE_Configuration_Section_Key key;
      wrong += written.openSection("SECTION", key, 1) != 0 ? 1 : 0;
      wrong += written.setIntegerValue("number", round) != 0 ? 1 : 0;
      wrong += written.exportConfig() != 0 ? 1 : 0;
      CCmnConfiguration read(dir.c_str(), file.c_str(), true);
      unsigned int number = 77;
      wrong += read.getIntegerValue("SECTION", "number", number) != 0 || number != round ? 1 : 0;
    }
    return wrong;
  });
}

using Place = std::pair<std::string, std::string>;

// Also whether the directory is there.
template <class Function>
Place placeOf(Function place) {
  tstr dir("old");
  tstr file("old");
  const bool there = place(tstr("ab"), dir, file) == 0 && CCmnPathTool::verify(dir.c_str()) == 0;
  return {there ? dir.c_str() : "nowhere", file.c_str()};
}

std::string installPath() {
  tstr path;
  return CCmnPathTool::getInstallPath(path) == 0 ? path.c_str() : "none";
}

// Whoever comes first makes a directory; the others find it, or fail to make it.
TEST_F(ThreadsInTheInstallRoot, TakePathsWhoseDirectoriesTheyMake) {
  using Tool = CCmnPathTool;
  const std::vector<Call> calls = {
      call("getInstallPath", installPath, "/usr/tulsk"),
      call(
          "getTraceFileInfo", [] { return placeOf(Tool::getTraceFileInfo); },
          Place(InstallRoot::traceDir, "ab.log")),
      call(
          "getMessageFileInfo", [] { return placeOf(Tool::getMessageFileInfo); },
          Place(InstallRoot::resourceDir, "libab")),
      call(
          "getConfigFileInfo", [] { return placeOf(Tool::getConfigFileInfo); },
          Place(InstallRoot::configDir, "ab.conf")),
      call(
          "verify", [] { return CCmnPathTool::verify("/usr/tulsk/no/such/file"); }, -1),
  };
  for (int round = 0; round < 20; ++round) {
    for (const char* made :
         {InstallRoot::traceDir, InstallRoot::resourceDir, InstallRoot::configDir}) {
      std::filesystem::remove_all(made);
    }
    inThreads([&calls](size_t) { return wrongCalls(calls, 2); });
  }
}

TEST_F(ThreadsInTheInstallRoot, TraceIntoLogsOfTheirOwn) {
  constexpr size_t lineCount = 50;
  inThreads([](size_t i) {
    const std::string name = "thread" + std::to_string(i);
    CCmnTraceLog log;
    log.initialize(name.c_str(), "", "", 1, false);
    for (size_t line = 0; line < lineCount; ++line) {
      log.trace(1, "%s says %zu", name.c_str(), line);
    }
    const std::string traced = kelp_test::readFile(std::string(log.getTracePath().c_str()));
    size_t place = 0;
    for (size_t line = 0; line < lineCount && place != std::string::npos; ++line) {
      place = traced.find(name + " says " + std::to_string(line) + "\n", place);
    }
    return place == std::string::npos ? 1 : 0;
  });
}

// ---- objects that several threads use one after the other, under the host's lock

TEST_F(ThreadsInTheInstallRoot, ShareAMessageAndALogUnderALock) {
  using Log = CCmnSmartPtr<CCmnTraceLog, CCmnContextSingletonAllocator<CCmnTraceLog>>;
  using Message = CCmnSmartPtr<CCmnIcuMessage, CCmnNullAllocator<CCmnIcuMessage>>;
  const Log log(new CCmnTraceLog);
  log->initialize("shared", "", "", 1, false);
  const Message message(new CCmnIcuMessage("MSG_SHARED", 1));
  constexpr int rounds = 20;
  std::mutex lock;
  inThreads([&](size_t) {
    for (int round = 0; round < rounds; ++round) {
      const std::lock_guard<std::mutex> locked(lock);
      const Log ours = log;
      const Message same = message;
      same->addArgument(icu::Formattable(static_cast<int32_t>(round)));
      ours->trace(1, "traced");
    }
    return 0;
  });
  EXPECT_EQ(log->getCount(), 1);
  EXPECT_EQ(message->getCount(), 1);
  const std::string traced = kelp_test::readFile(std::string(log->getTracePath().c_str()));
  EXPECT_EQ(std::count(traced.begin(), traced.end(), '\n'), rounds * static_cast<int>(threadCount));
}

// ---- names of hosts, as tests/resources/etc/hosts has them

using Addresses = std::set<std::string>;
using Answer = std::pair<int, std::string>;

std::unique_ptr<addrinfo, void (*)(addrinfo*)> listOf(const char* address) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  EXPECT_EQ(getaddrinfo(address, nullptr, &hints, &list), 0);
  return {list, freeaddrinfo};
}

std::pair<int, Addresses> addressesOf(const std::string& host) {
  Addresses addresses = {"old"};
  const int status = CCmnNetwork::getAddrByHost(host, addresses);
  return {status, addresses};
}

Answer nameOf(const std::string& address) {
  std::string name = "old";
  const int status = CCmnNetwork::getHostbyAddr(address, name);
  return {status, name};
}

Answer fullNameOf(const char* host) {
  std::string name = "old";
  const int status = CCmnNetwork::getFQDN(host, name);
  return {status, name};
}

CCmnHostInfo hostOf(const std::string& name, const std::string& fullName,
                    const Addresses& addresses) {
  CCmnHostInfo host;
  host.m_name = name;
  host.m_fqdn = fullName;
  host.m_addresses = addresses;
  return host;
}

// Whether a look-up gives just that.
Call lookUp(const std::string& host, const CCmnHostInfo& expected) {
  return {"resolve " + host, [host, expected] {
            const CCmnHostInfo found = CCmnNetwork::resolve(host);
            return found.m_name == expected.m_name && found.m_fqdn == expected.m_fqdn &&
                   found.m_addresses == expected.m_addresses;
          }};
}

TEST(Threads, LookHostsUp) {
  using Net = CCmnNetwork;
  const Addresses addresses = {"10.0.0.9", "200.0.0.1", "9.1.1.1"};
  const CCmnHostInfo multi = hostOf("multi", "ten.example", addresses);
  const std::vector<Call> calls = {
      call(
          "getAddressListForHost", [] { return Net::getAddressListForHost("multi"); }, addresses),
      call(
          "getAddrByHost", [] { return addressesOf("multi"); }, std::pair(networkOk, addresses)),
      call(
          "getAddrByHost of nobody", [] { return addressesOf("nowhere.example"); },
          std::pair(networkLookupFailed, Addresses{"old"})),
      call(
          "getHostbyAddr", [] { return nameOf("10.0.0.9"); }, Answer(networkOk, "Ten.Example")),
      call(
          "getHostbyAddr of a name", [] { return nameOf("multi"); },
          Answer(networkLookupFailed, "old")),
      call(
          "getFQDN", [] { return fullNameOf("multi"); }, Answer(networkOk, "ten.example")),
      call(
          "getFQDN of nobody", [] { return fullNameOf("nowhere.example"); },
          Answer(networkNoAddress, "old")),
      lookUp("multi", multi),
      lookUp("10.0.0.50", hostOf("MIXED.Example", "MIXED.Example", {"10.0.0.50"})),
      lookUp("nowhere.example", hostOf("nowhere.example", "", {})),
      call(
          "compare", [] { return Net::compare(std::string("multi"), std::string("9.1.1.1")); },
          true),
      call(
          "compare hosts", [&multi] { return Net::compare(multi, multi); }, true),
      call(
          "compare a text", [&multi] { return Net::compare("TEN.example", multi); }, true),
  };
  inThreads([&calls](size_t) { return wrongCalls(calls, 10); });
}

TEST(Threads, NameThisMachineAndDescribeAddresses) {
  using Net = CCmnNetwork;
  char name[256] = "";
  ASSERT_EQ(gethostname(name, sizeof name), 0);
  const auto ownFullName = [] {
    std::string fqdn = "old";
    const int status = Net::getFQDN(fqdn);
    return Answer(status, fqdn);
  };
  const std::vector<Call> calls = {
      call(
          "getComputerName", [] { return Net::getComputerName(); }, std::string(name)),
      call("getFQDN of this machine", ownFullName, fullNameOf(name)),
      call(
          "resolve this machine", [] { return Net::resolve().m_name; }, std::string(name)),
      call(
          "validateIPAddress", [] { return Net::validateIPAddress("2001:db8::6"); }, true),
      call(
          "validateIPAddress of a name", [] { return Net::validateIPAddress("multi"); }, false),
      call(
          "extractIPAddress", [] { return Net::extractIPAddress(listOf("9.1.1.1").get()); },
          Addresses{"9.1.1.1"}),
      call(
          "addrinfoBlob", [] { return Net::addrinfoBlob(listOf("9.1.1.1").get()); },
          std::vector<std::string>{"ai_family = 2,ai_socktype = 1,ai_protocol = 6,ai_canonname = "
                                   ",ai_addrlen = 16,foundName = 9.1.1.1,"}),
  };
  inThreads([&calls](size_t) { return wrongCalls(calls, 10); });
}

// ---- parsers, sleeping

TEST(Threads, ParseWithParsersMadeUnderALock) {
  std::mutex lock;
  inThreads([&lock](size_t i) {
    std::unique_lock<std::mutex> locked(lock);
    auto handler = std::make_unique<CCmnSaxParseHandler>();
    auto parser = std::make_unique<CCmnSaxParser>(handler.get());
    locked.unlock();
    const std::string text(100 + i, 'x');
    int wrong = 0;
    for (int round = 0; round < 20; ++round) {
      parser->parse("<a>" + text + "</a>");
      wrong += handler->hasErrorOccurred() ? 1 : 0;
    }
    locked.lock();
    parser.reset();
    handler.reset();
    return wrong;
  });
}

// Once the platform has said that it has none, nobody asks it any more.
TEST(Threads, SleepWherePlatformsHaveNoNanosleep) {
  kelp_test::inAnotherProcess([] {
    platformHasNanosleep = false;
    inThreads([](size_t) {
      for (int round = 0; round < 100; ++round) {
        millisleep(1);
      }
      return 0;
    });
    EXPECT_EQ(wholeSeconds, 100 * static_cast<int>(threadCount));
  });
}

}  // namespace

// Everything that several threads may do, done by several threads. Tells most under the thread
// sanitizer.
#include "Q_sscanf.h"
#include "Q_strings.h"
#include "Q_strtoimax.h"
#include "Q_strtoumax.h"
#include "Q_vfscanf.h"
#include "another_process.h"
#include "charset_locale.h"
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
#include "cmnstringtool.h"
#include "comma_locale.h"
#include "exec_fixture.h"
#include "next_symbol.h"
#include "plain_digest.h"
#include "resource_bundles.h"
#include "scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

std::atomic<bool> platformHasNanosleep{true};
std::atomic<int> wholeSeconds{0};

}  // namespace

// Where a test has made locales of its own, the platform's newlocale forgets the list of
// directories that it searches for them.
extern "C" const char* __lsan_default_suppressions() { return "leak:argz_add_sep\n"; }

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
using kelp_test::eventually;
using kelp_test::hostile;
using kelp_test::InstallRoot;
using kelp_test::Lines;
using kelp_test::ProbedPipe;
using kelp_test::scan;
using testing::AnyOf;

constexpr size_t threadCount = 4;

// All begin at the same moment. The work takes the thread's number and tells how often something
// was wrong.
void inThreads(const std::function<int(size_t)>& work, size_t count = threadCount) {
  std::atomic<size_t> ready{0};
  std::vector<int> wrong(count);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      for (++ready; ready < count;) {
        std::this_thread::yield();
      }
      wrong[i] = work(i);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, std::vector<int>(count));
}

// ---- text, with a locale for each thread

struct Convention {
  locale_t locale;
  const char* umlaut;  // u with two dots
  const char* half;    // the number 1.5
};

class ThreadsWithLocales : public testing::Test {
 protected:
  ThreadsWithLocales() {
    add(newlocale(LC_ALL_MASK, "C.UTF-8", nullptr), "\xc3\xbc", "1.5");
    {
      const kelp_test::CharsetLocale latin("ISO-8859-1", 1);
      if (latin.converts("\xfc", L'\u00fc')) {
        add(duplocale(LC_GLOBAL_LOCALE), "\xfc", "1.5");
      }
    }
    {
      const kelp_test::CommaLocale comma;
      if (comma.isSet()) {
        add(newlocale(LC_CTYPE_MASK, "C.UTF-8", duplocale(LC_GLOBAL_LOCALE)), "\xc3\xbc", "1,5");
      }
    }
  }
  ~ThreadsWithLocales() override {
    for (const Convention& convention : m_conventions) {
      freelocale(convention.locale);
    }
  }

  // Each of several threads uses one of the locales.
  void inThreadsOfTheirOwn(const std::function<int(const Convention&)>& work) {
    inThreads([&](size_t i) {
      const Convention& convention = m_conventions[i % m_conventions.size()];
      uselocale(convention.locale);
      int wrong = 0;
      for (int round = 0; round < 300; ++round) {
        wrong += work(convention);
      }
      uselocale(LC_GLOBAL_LOCALE);
      return wrong;
    });
  }

 private:
  void add(locale_t locale, const char* umlaut, const char* half) {
    if (locale != nullptr) {
      m_conventions.push_back({locale, umlaut, half});
    }
  }
  std::vector<Convention> m_conventions;
};

TEST_F(ThreadsWithLocales, ConvertText) {
  inThreadsOfTheirOwn([](const Convention& convention) {
    const std::string umlauts = std::string("A") + convention.umlaut;
    int wrong = CCmnStringTool::str2wstr(umlauts) != L"A\u00fc" ? 1 : 0;
    wrong += CCmnStringTool::wstr2str(L"A\u00fc") != umlauts ? 1 : 0;
    wrong += CCmnStringTool::double2str(1.5) != convention.half ? 1 : 0;
    wrong += CCmnStringTool::str2double(convention.half) != 1.5 ? 1 : 0;
    wrong += CCmnStringTool::tostrupper(L"ab") != L"AB" ? 1 : 0;
    wrong += CCmnStringTool::int2wstr(-17) != L"-17" ? 1 : 0;
    std::string utf8 = "\xc3\xbc";
    icu::UnicodeString units = CCmnStringTool::str2ustr(utf8);
    wrong += units != icu::UnicodeString(static_cast<char16_t>(0xfc)) ? 1 : 0;
    wrong += CCmnStringTool::ustr2str(units) != utf8 ? 1 : 0;
    const tstr text = CCmnStringTool::wstr2tstr(L"A\u00fc");
    wrong += text != umlauts.c_str() || CCmnStringTool::tstr2wstr(text) != L"A\u00fc" ? 1 : 0;
    unsigned long number = 0;
    wrong +=
        CCmnStringTool::str2uint64("18446744073709551615", number) != 0 || ~number != 0 ? 1 : 0;
    return wrong;
  });
}

TEST_F(ThreadsWithLocales, CutReplaceAndEncodeText) {
  inThreadsOfTheirOwn([](const Convention&) {
    int wrong = CCmnStringTool::trim("  a b\n") != "a b" ? 1 : 0;
    wrong += CCmnStringTool::searchreplace("aXbX", "X", "--") != "a--b--" ? 1 : 0;
    wrong += CCmnStringTool::tokenize("a,b;c", ",;") != Lines({"a", "b", "c"}) ? 1 : 0;
    wrong += CCmnStringTool::convertToXmlSpecialCharacters("<&>") != "&lt;&amp;&gt;" ? 1 : 0;
    unsigned char bytes[2] = {0x1f, 0xa0};
    wrong += !CCmnStringTool::CompareNoCase(CCmnStringTool::binary2str(bytes, 2), "1fa0") ? 1 : 0;
    char** list = CCmnStringTool::tstrduplist({tstr("one"), tstr("two")});
    wrong += std::strcmp(list[1], "two") != 0 ? 1 : 0;
    CCmnStringTool::tstrfreelist(list);
    return wrong;
  });
}

TEST_F(ThreadsWithLocales, FormatAndScanNumbers) {
  inThreadsOfTheirOwn([](const Convention& convention) {
    char text[32];
    Q_snprintf(text, sizeof text, "%.1f%ls", 1.5, L"\u00fc");
    int wrong = text != std::string(convention.half) + convention.umlaut ? 1 : 0;
    double number = 0;
    int count = 0;
    char word[8] = "";
    wrong += Q_sscanf("-12.75e1 42 word", "%lf %d %s", &number, 8, &count, 4, word, 8) != 3 ? 1 : 0;
    wrong += number != -127.5 || count != 42 || std::strcmp(word, "word") != 0 ? 1 : 0;
    char* end = nullptr;
    wrong += __Qstrtoimax("-17x", &end, 10) != -17 || *end != 'x' ? 1 : 0;
    wrong += __Qstrtoumax("ffg", &end, 16) != 255 || *end != 'g' ? 1 : 0;
    Q_strlcpy(text, "one", sizeof text);
    Q_strlcat(text, " two", sizeof text);
    wrong += std::strcmp(text, "one two") != 0 ? 1 : 0;
    return wrong;
  });
}

TEST_F(ThreadsWithLocales, ScanStreamsOfTheirOwn) {
  inThreadsOfTheirOwn([](const Convention& convention) {
    const std::string text = std::string(" 2.5\v\t") + convention.umlaut + " 7x";
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(
        fmemopen(const_cast<char*>(text.data()), text.size(), "r"), fclose);
    ScanSource source{nullptr, 0, 0, nullptr, 0, nullptr, stream.get()};
    double number = 0;
    char word[8] = "";
    int count = 0;
    int wrong = scan(&source, "%lf %s %d", &number, 8, word, 8, &count, 4) != 3 ? 1 : 0;
    wrong += number != 2.5 || std::strcmp(word, convention.umlaut) != 0 || count != 7 ? 1 : 0;
    updateFILE(&source);
    wrong += fgetc(stream.get()) != 'x' ? 1 : 0;
    return wrong;
  });
}

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

TEST(Threads, ResolveNames) {
  inThreads([](size_t) {
    int wrong = 0;
    for (int round = 0; round < 20; ++round) {
      const auto addresses = CCmnNetwork::getAddressListForHost("127.0.0.1");
      wrong += addresses != std::set<std::string>{"127.0.0.1"} ? 1 : 0;
      wrong += !CCmnNetwork::compare(std::string("127.0.0.1"), std::string("127.0.0.1")) ? 1 : 0;
      wrong += CCmnNetwork::getComputerName().empty() ? 1 : 0;
      wrong += !CCmnNetwork::validateIPAddress("10.1.2.3") ? 1 : 0;
    }
    return wrong;
  });
}

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

// ---- commands

class ThreadsWithCommands : public testing::Test {
 protected:
  ThreadsWithCommands() { kelp_test::expectChangeOf("SIGCHLD"); }
  ~ThreadsWithCommands() override {
    while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
    }
    ProbedPipe::forgetRecords();
  }
};

// A status that is lost is all that may happen where commands overlap; the output never is.
int wrongRuns(size_t thread, int runs) {
  int wrong = 0;
  ProbedPipe pipe;
  for (int run = 0; run < runs; ++run) {
    const std::string word = std::to_string(thread) + "." + std::to_string(run);
    Lines output;
    const int code = pipe.run("/bin/echo " + word, output);
    wrong += code != execPipeOk && code != execPipeWaitFailed ? 1 : 0;
    wrong += output != Lines{word + "\n"} ? 1 : 0;
  }
  return wrong;
}

TEST_F(ThreadsWithCommands, RunThemAtOnce) {
  inThreads([](size_t i) { return wrongRuns(i, 15); });
}

TEST_F(ThreadsWithCommands, RunThemWhileTheHostReapsItsOwnChildren) {
  std::atomic<bool> done{false};
  std::thread host([&done] {
    while (!done) {
      const pid_t child = fork();
      if (child == 0) {
        _exit(0);
      }
      while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
      }
    }
  });
  inThreads([](size_t i) { return wrongRuns(i, 10); }, 2);
  done = true;
  host.join();
}

TEST_F(ThreadsWithCommands, RunThemBesideAThreadThatReapsEveryChild) {
  std::atomic<bool> done{false};
  std::thread reaper([&done] {
    while (!done) {
      if (waitpid(-1, nullptr, WNOHANG) <= 0) {
        std::this_thread::yield();
      }
    }
  });
  inThreads([](size_t i) { return wrongRuns(i, 10); }, 2);
  done = true;
  reaper.join();
}

TEST_F(ThreadsWithCommands, LookRecordsUpWhileOthersAreMade) {
  Lines output;
  ProbedPipe().run("/bin/true", output);
  std::atomic<int> found{0};
  inThreads([&found](size_t i) {
    ProbedPipe pipe;
    const int first = kelp_test::fakePid + static_cast<int>(i) * 1000;
    for (int pid = first; pid < first + 300; ++pid) {
      const pid_t child = pid % 50 == 0 ? fork() : -1;
      if (child == 0) {
        _exit(3);
      }
      int status = -1;
      found += pipe.CheckChildStatusMap(pid, &status) ? 1 : 0;
    }
    return 0;
  });
  EXPECT_EQ(found, 0);
}

class CountingPipe : public ProbedPipe {
 public:
  std::atomic<int> lines{0};

  bool ReadLine(char* buffer, int size, unsigned char* expired, long timeoutSeconds) override {
    ++lines;
    return ProbedPipe::ReadLine(buffer, size, expired, timeoutSeconds);
  }
};

// One after the other: while another command holds the read end, too, none of them gets SIGPIPE.
TEST_F(ThreadsWithCommands, AreEndedByAnAbortFromAnother) {
  for (int round = 0; round < 4; ++round) {
    CountingPipe pipe;
    Lines output;
    int code = -1;
    std::thread running([&] { code = pipe.run(hostile("flood"), output); });
    EXPECT_TRUE(eventually([&pipe] { return pipe.lines > 3; }));
    pipe.Abort();
    running.join();
    EXPECT_EQ(code, execPipeSignalled);
    EXPECT_GE(output.size(), 3U);
    size_t wrong = 0;
    for (size_t i = 0; i < output.size(); ++i) {
      wrong += output[i] != std::to_string(i) + "\n" ? 1 : 0;
    }
    EXPECT_EQ(wrong, 0U);
  }
}

TEST_F(ThreadsWithCommands, StartReadAndCloseOneInTurn) {
  ProbedPipe pipe;
  char line[16] = "";
  unsigned char timedOut = 0;
  int code = -1;
  std::thread([&] { pipe.ExecPipe("/bin/echo word", ""); }).join();
  std::thread([&] { pipe.ReadLine(line, sizeof line, &timedOut, 60); }).join();
  std::thread([&] { code = pipe.Close(60); }).join();
  EXPECT_STREQ(line, "word\n");
  EXPECT_EQ(code, execPipeOk);
}

TEST_F(ThreadsWithCommands, RunThemWhereSomeBlockTheSignal) {
  inThreads([](size_t i) {
    std::optional<kelp_test::BlockedChildSignal> blocked;
    if (i % 2 == 0) {
      blocked.emplace();
    }
    return wrongRuns(i, 10);
  });
}

// The child must be able to run commands, whatever the others were doing.
TEST_F(ThreadsWithCommands, AreNotInTheWayOfTheHostsForks) {
  std::atomic<bool> done{false};
  std::thread looking([&done] {
    ProbedPipe pipe;
    for (int status = 0; !done;) {
      pipe.CheckChildStatusMap(kelp_test::fakePid, &status);
    }
  });
  for (int round = 0; round < 5; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      Lines output;
      ProbedPipe pipe;
      const int code = pipe.run("/bin/echo x", output);
      _exit(code == execPipeOk && output == Lines{"x\n"} ? 0 : 1);
    }
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_THAT(status, AnyOf(0, -1));  // the handler may have reaped it
  }
  done = true;
  looking.join();
}

}  // namespace

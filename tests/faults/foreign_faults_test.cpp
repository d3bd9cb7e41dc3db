// What fails inside ACE, ICU and Xerces-C where memory does. The library is not in this program.
// Where one of these tests fails, that has been mended over there: it may then go from here, from
// foreign_faults.txt, and from what the headers say of it.
#include "foreign_faults.h"

#include "heap.h"
#include "next_symbol.h"

#include <ace/Configuration.h>
#include <ace/Configuration_Import_Export.h>
#include <gtest/gtest.h>
#include <unicode/msgfmt.h>
#include <unicode/resbund.h>
#include <unicode/uclean.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <memory>
#include <new>
#include <string>

static bool readingFails = false;

extern "C" char* fgets(char* line, int size, FILE* stream) {
  static const auto next = kelp_test::nextSymbol<decltype(fgets)>("fgets");
  return readingFails ? nullptr : next(line, size, stream);
}

static constexpr int exitOfAHang = 5;
static bool isAlone = false;

// Where a process has but one thread, a mutex that is held is held by the thread that asks.
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static const auto next = kelp_test::nextSymbol<int(pthread_mutex_t*)>("pthread_mutex_lock");
  if (!isAlone) {
    return next(mutex);
  }
  const int result = pthread_mutex_trylock(mutex);
  if (result == EBUSY) {
    _exit(exitOfAHang);
  }
  return result;
}

namespace {

using kelp_test::HeapCall;
using kelp_test::HeapWatch;
using kelp_test::Times;

constexpr char crash[] = "signal 11";
constexpr char wrong[] = "exit 3";
constexpr char leak[] = "exit 4";
constexpr char hang[] = "exit 5";
constexpr char exitOfXerces[] = "exit 255";
constexpr char untouched[] = "exit 2";

// Runs what gives the status to end with, and tells the end.
std::string inAProcess(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDERR_FILENO);
    signal(SIGSEGV, SIG_DFL);
    isAlone = true;
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                             : "exit " + std::to_string(WEXITSTATUS(status));
}

// The end of an operation with a request refused. The operation tells whether it counts as done,
// the check whether it was.
std::string endWith(HeapCall call, int nth, const std::function<bool()>& operation,
                    const std::function<bool()>& check) {
  return inAProcess([&] {
    bool isDone = false;
    HeapWatch watch(nth, Times::once, call);
    try {
      isDone = operation();
    } catch (const std::bad_alloc&) {
      isDone = false;
    } catch (const xercesc::OutOfMemoryException&) {
      isDone = false;
    }
    watch.end();
    if (watch.refused() == 0) {
      return 2;
    }
    return isDone && !check() ? 3 : !isDone && watch.blocks() > 0 ? 4 : 0;
  });
}

// Whether that comes of it, with some request refused.
bool canEndWith(
    const std::string& wanted, const std::function<bool()>& operation,
    const std::function<bool()>& check = [] { return true; }) {
  for (const HeapCall call : {HeapCall::nothrowNew, HeapCall::malloc, HeapCall::throwingNew,
                              HeapCall::calloc, HeapCall::realloc}) {
    std::string last;
    for (int nth = 1; last != untouched && nth < 2000; ++nth) {
      last = endWith(call, nth, operation, check);
      if (last == wanted) {
        return true;
      }
    }
  }
  return false;
}

// ---- ACE

class Ace : public testing::Test {
 protected:
  Ace() {
    const int file = mkstemp(m_path);
    const std::string content = "[S]\n\"K\"=\"a value\"\n[S\\T]\n[S\\U]\n";
    EXPECT_EQ(write(file, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(file);
    m_heap.open();
  }
  ~Ace() override { unlink(m_path); }

  bool import() { return ACE_Registry_ImpExp(m_heap).import_config(m_path) == 0; }
  bool hasValue() {
    ACE_Configuration_Section_Key section;
    ACE_TString value;
    return m_heap.open_section(m_heap.root_section(), "S", false, section) == 0 &&
           m_heap.get_string_value(section, "K", value) == 0 && value == "a value";
  }
  bool openNew() {
    ACE_Configuration_Section_Key section;
    return m_heap.open_section(m_heap.root_section(), "S\\T\\V", true, section) == 0;
  }

  char m_path[32] = "/tmp/foreign_faults.XXXXXX";
  ACE_Configuration_Heap m_heap;
};

TEST_F(Ace, CrashesWhereAHeapIsOpened) {
  EXPECT_TRUE(canEndWith(crash, [] { return ACE_Configuration_Heap().open() == 0; }));
}

TEST_F(Ace, CrashesWhereASectionIsMade) {
  ASSERT_TRUE(import());
  EXPECT_TRUE(canEndWith(crash, [this] { return openNew(); }));
}

TEST_F(Ace, RefusesASectionThatWasHalfMadeEverAfter) {
  ASSERT_TRUE(import());
  const auto open = [this] {
    openNew();
    return true;
  };
  EXPECT_TRUE(canEndWith(wrong, open, [this] { return openNew(); }));
}

TEST_F(Ace, CrashesWhereAFileIsImported) {
  EXPECT_TRUE(canEndWith(crash, [this] { return import(); }));
}

TEST_F(Ace, LosesValuesWhereAFileIsImportedAndGivesZero) {
  EXPECT_TRUE(canEndWith(
      wrong, [this] { return import(); }, [this] { return hasValue(); }));
}

TEST_F(Ace, TakesAReadErrorForTheEndOfAFile) {
  readingFails = true;
  EXPECT_TRUE(import());
  readingFails = false;
  EXPECT_FALSE(hasValue());
}

TEST_F(Ace, CrashesWhereAFileIsExported) {
  ASSERT_TRUE(import());
  EXPECT_TRUE(
      canEndWith(crash, [this] { return ACE_Registry_ImpExp(m_heap).export_config(m_path) == 0; }));
}

TEST_F(Ace, TellsTooFewSections) {
  ASSERT_TRUE(import());
  int found = 0;
  const auto enumerate = [&] {
    ACE_Configuration_Section_Key section;
    m_heap.open_section(m_heap.root_section(), "S", false, section);
    ACE_TString name;
    for (found = 0; m_heap.enumerate_sections(section, found, name) == 0;) {
      ++found;
    }
    return true;
  };
  EXPECT_TRUE(canEndWith(wrong, enumerate, [&] { return found == 2; }));
}

// ---- ICU

class Icu : public testing::Test {
 protected:
  bool format(const char* pattern) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Formattable value(12);
    m_output.remove();
    icu::MessageFormat::format(icu::UnicodeString(pattern), &value, 1, m_output, status);
    return U_SUCCESS(status) != 0;
  }
  icu::UnicodeString m_output;
};

TEST_F(Icu, CrashesWhereANumberIsFormatted) {
  ASSERT_TRUE(format("{0,number}"));
  EXPECT_TRUE(canEndWith(crash, [this] { return format("{0,number}"); }));
}

TEST_F(Icu, ChoosesAnotherPluralWithoutSayingSo) {
  const char* const pattern = "{0,plural,one{one}other{others}}";
  ASSERT_TRUE(format(pattern));
  ASSERT_EQ(m_output, "others");
  EXPECT_TRUE(canEndWith(
      wrong, [&] { return format(pattern); }, [this] { return m_output == "others"; }));
}

TEST_F(Icu, LeaksWhereABundleIsOpened) {
  const auto open = [] {
    UErrorCode status = U_ZERO_ERROR;
    const icu::ResourceBundle bundle("/no/such/bundle", icu::Locale("de"), status);
    return U_SUCCESS(status) != 0;
  };
  icu::Locale::getDefault();
  EXPECT_TRUE(canEndWith(leak, open));
}

// It asks for the default again, in words, while it holds the lock of the default.
TEST_F(Icu, HangsWhereTheDefaultLocaleIsFirstAskedFor) {
  u_cleanup();  // as if nothing had asked yet
  EXPECT_TRUE(canEndWith(hang, [] { return !icu::Locale::getDefault().isBogus(); }));
}

// ---- Xerces-C

TEST(Xerces, EndsTheProcessWhereItIsInitialised) {
  const auto initialise = [] {
    xercesc::XMLPlatformUtils::Initialize();
    return true;
  };
  EXPECT_TRUE(canEndWith(exitOfXerces, initialise));
}

// An exception may leave; but the next initialisation only counts, and nothing is there.
TEST(Xerces, CrashesWhereItIsUsedAfterItCouldNotBeInitialised) {
  std::string end;
  for (int nth = 1; end != untouched && end != crash; ++nth) {
    end = inAProcess([nth] {
      HeapWatch watch(nth, Times::onwards, HeapCall::throwingNew);
      try {
        xercesc::XMLPlatformUtils::Initialize();
        return 2;
      } catch (...) {
        watch.end();
      }
      xercesc::XMLPlatformUtils::Initialize();
      delete xercesc::XMLReaderFactory::createXMLReader();
      return 0;
    });
  }
  EXPECT_EQ(end, crash);
}

TEST(Xerces, NeedsMemoryToBeTerminated) {
  const std::string end = inAProcess([] {
    xercesc::XMLPlatformUtils::Initialize();
    const HeapWatch watch(1, Times::onwards);
    xercesc::XMLPlatformUtils::Terminate();
    return 0;
  });
  EXPECT_EQ(end, "signal 6");
}

TEST(Xerces, LeaksWhereAReaderIsMade) {
  xercesc::XMLPlatformUtils::Initialize();
  const auto make = [] {
    delete xercesc::XMLReaderFactory::createXMLReader();
    return true;
  };
  EXPECT_TRUE(canEndWith(leak, make));
  xercesc::XMLPlatformUtils::Terminate();
}

// Ends a process of its own with 4 where blocks are left of a reader that had no memory once.
std::string endOfParsing(int nth) {
  const auto parse = [nth] {
    const std::unique_ptr<xercesc::SAX2XMLReader> reader(
        xercesc::XMLReaderFactory::createXMLReader());
    constexpr char text[] = "<!DOCTYPE a [<!ENTITY e 'f'>]><a b='c'>&e;</a>";
    const HeapWatch watch(nth, Times::once, HeapCall::throwingNew);
    try {
      reader->parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(text),
                                               sizeof text - 1, "text"));
    } catch (const xercesc::OutOfMemoryException&) {
      return true;
    }
    return watch.refused() != 0;
  };
  return inAProcess([&parse] {
    HeapWatch watch;
    const bool failed = parse();
    watch.end();
    return !failed ? 2 : watch.blocks() > 0 ? 4 : 0;
  });
}

TEST(Xerces, LeaksWhereADocumentIsParsed) {
  xercesc::XMLPlatformUtils::Initialize();
  std::string end;
  for (int nth = 1; end != untouched && end != leak; ++nth) {
    end = endOfParsing(nth);
  }
  EXPECT_EQ(end, leak);
  xercesc::XMLPlatformUtils::Terminate();
}

// ---- the list

bool isTest(const std::string& name) {
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      if (name == std::string(suite.name()) + "." + suite.GetTestInfo(j)->name()) {
        return true;
      }
    }
  }
  return false;
}

TEST(ForeignFaults, AreEachShownByATestOfThisProgram) {
  ASSERT_FALSE(kelp_test::foreignFaults().empty());
  for (const kelp_test::ForeignFault& fault : kelp_test::foreignFaults()) {
    EXPECT_TRUE(isTest(fault.test)) << fault.test;
  }
}

}  // namespace

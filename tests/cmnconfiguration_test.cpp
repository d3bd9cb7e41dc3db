#include "cmnconfiguration.h"

#include "another_process.h"
#include "exposed_members.h"
#include "failing_memory.h"
#include "interposed_calls.h"
#include "next_symbol.h"
#include "scratch.h"

#include <ace/Configuration_Import_Export.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

std::optional<int> heapOpenResult;  // what opening a heap reports, without opening it
std::vector<size_t> heapOpenSizes;

}  // namespace

// Stands in front of ACE's own.
int ACE_Configuration_Heap::open(size_t size) {
  static const auto next = kelp_test::nextSymbol<int(ACE_Configuration_Heap*, size_t)>(
      "_ZN22ACE_Configuration_Heap4openEm");
  heapOpenSizes.push_back(size);
  return heapOpenResult ? *heapOpenResult : next(this, size);
}

namespace {

using kelp_cmn_4_4::CCmnConfiguration;
using kelp_cmn_4_4::CCmnError;
using kelp_cmn_4_4::tstr;
using kelp_test::Call;
using kelp_test::failEachAllocation;
using kelp_test::ScopedFailure;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

KELP_EXPOSE(CCmnConfiguration, m_configDir)
KELP_EXPOSE(CCmnConfiguration, m_configFile)

constexpr int failed = -1;
constexpr int sectionRefused = -3;  // by an import
constexpr int heapNotOpened = -7;   // what a test has ACE say, to be told from that
constexpr size_t sectionMapSize = 16;

constexpr char noDirectory[] = "Configuration path verification failed";
constexpr char noFile[] = "Configuration path succeeded but no configuration file exists.";
constexpr char importFailed[] = "Import of configuration file failed.";
constexpr char heapFailed[] = "Failed to open configuration heap";

// The path on which import and export work is shown by where an export goes.
class Configuration : public testing::Test {
 protected:
  ~Configuration() override {
    heapOpenResult.reset();
    heapOpenSizes.clear();
  }

  const std::string& dir() const { return m_scratch.path(); }

  void write(const std::string& name, const std::string& content) const {
    kelp_test::writeFile(dir() + name, content);
  }
  std::string read(const std::string& name) const { return kelp_test::readFile(dir() + name); }
  bool exists(const std::string& name) const { return std::filesystem::exists(dir() + name); }

  int import(CCmnConfiguration& store, const std::string& name) const {
    return store.importConfig(dir().c_str(), name.c_str());
  }

  // Writes the content to a file and loads it.
  int load(CCmnConfiguration& store, const std::string& content) const {
    write("loaded.conf", content);
    return import(store, "loaded.conf");
  }

 private:
  kelp_test::ScratchDirectory m_scratch;
};

bool isShorter(const std::string& a, const std::string& b) { return a.size() < b.size(); }

// Nothing can be opened while it lives.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    const int next = dup(STDERR_FILENO);
    close(next);
    getrlimit(RLIMIT_NOFILE, &m_before);
    const rlimit none{static_cast<rlim_t>(next), m_before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  rlimit m_before{};
};

void expectNoError(const CCmnConfiguration& store) {
  const CCmnError& error = store.getLastError();
  EXPECT_EQ(error.getCode(), 0);
  EXPECT_STREQ(error.what(), "");
  EXPECT_STREQ(error.getFileName(), "");
  EXPECT_EQ(error.getLineNumber(), 0);
  EXPECT_STREQ(error.getFunction(), "");
}

void expectError(const CCmnConfiguration& store, int code, const char* message,
                 const char* function) {
  const CCmnError& error = store.getLastError();
  EXPECT_EQ(error.getCode(), code);
  EXPECT_STREQ(error.what(), message);
  EXPECT_STREQ(error.getFileName(), "cmnconfiguration.cpp");
  EXPECT_GT(error.getLineNumber(), 0);
  EXPECT_STREQ(error.getFunction(), function);
}

std::string text(CCmnConfiguration& store, const char* section, const char* name) {
  tstr value("(none)");
  return store.getStringValue(section, name, value) == 0 ? value.c_str() : "(missing)";
}

constexpr long noNumber = -1;

long number(CCmnConfiguration& store, const char* section, const char* name) {
  unsigned int value = 0;
  return store.getIntegerValue(section, name, value) == 0 ? static_cast<long>(value) : noNumber;
}

// Creates the section if it is not there.
void makeCurrent(CCmnConfiguration& store, const char* section) {
  ACE_Configuration_Section_Key key;
  ASSERT_EQ(store.openSection(section, key, 1), 0);
}

std::vector<std::string> plain(const std::vector<tstr>& names) {
  std::vector<std::string> result;
  for (const tstr& name : names) {
    result.emplace_back(name.c_str());
  }
  return result;
}

// Whether a section exists, without creating it or changing the current one.
bool hasSection(CCmnConfiguration& store, const char* name) {
  ACE_Configuration_Section_Key key;
  ACE_Configuration_Heap& heap = store.configHeap();
  return heap.open_section(heap.root_section(), name, false, key) == 0;
}

// ---- construction

TEST_F(Configuration, StartsEmptyWithAnOpenHeapOfTheDefaultSize) {
  heapOpenSizes.clear();
  CCmnConfiguration store;
  EXPECT_THAT(heapOpenSizes, ElementsAre(sectionMapSize));
  expectNoError(store);
  EXPECT_THAT(plain(store.enumerateSections(store.configHeap().root_section())), IsEmpty());
  ACE_Configuration_Section_Key key;
  EXPECT_EQ(store.openSection("S", key, 1), 0);
}

TEST_F(Configuration, WithoutAFileThereIsNothingToExportTo) {
  CCmnConfiguration store;
  EXPECT_NE(store.exportConfig(), 0);
  expectNoError(store);
}

TEST_F(Configuration, KeepsUnverifiedPathsWhenToldNotToImport) {
  CCmnConfiguration store(dir().c_str(), "later.conf", false);
  expectNoError(store);
  EXPECT_FALSE(exists("later.conf"));
  makeCurrent(store, "S");
  ASSERT_EQ(store.setStringValue("K", "v"), 0);
  EXPECT_EQ(store.exportConfig(), 0);
  EXPECT_EQ(read("later.conf"), "[S]\n\"K\"=\"v\"\n");
}

TEST_F(Configuration, DoesNotReadAnExistingFileWhenToldNotTo) {
  write("a.conf", "[S]\n\"K\"=\"v\"\n");
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  EXPECT_FALSE(hasSection(store, "S"));
}

TEST_F(Configuration, ImportsAtConstructionWhenTold) {
  write("a.conf", "[S]\n\"K\"=\"v\"\n");
  CCmnConfiguration store(dir().c_str(), "a.conf", true);
  expectNoError(store);
  EXPECT_EQ(text(store, "S", "K"), "v");
}

TEST_F(Configuration, AFailedImportAtConstructionShowsInTheLastErrorOnly) {
  CCmnConfiguration store(dir().c_str(), "new.conf", true);
  expectError(store, failed, noFile, "importConfig");
  EXPECT_EQ(store.exportConfig(), 0) << "the paths are kept, so the export creates the file";
  EXPECT_TRUE(exists("new.conf"));
}

TEST_F(Configuration, NullPathsCountAsEmptyAtConstruction) {
  const std::string whole = dir() + "whole.conf";
  CCmnConfiguration fileOnly(nullptr, whole.c_str(), false);
  EXPECT_EQ(fileOnly.exportConfig(), 0);
  EXPECT_TRUE(exists("whole.conf"));
  const std::string other = dir() + "other.conf";
  CCmnConfiguration dirOnly(other.c_str(), nullptr, false);
  EXPECT_EQ(dirOnly.exportConfig(), 0);
  EXPECT_TRUE(exists("other.conf"));
  CCmnConfiguration neither(nullptr, nullptr, false);
  EXPECT_NE(neither.exportConfig(), 0);
  expectNoError(neither);
}

TEST_F(Configuration, DestructionWritesNothing) {
  {
    CCmnConfiguration store(dir().c_str(), "a.conf", false);
    makeCurrent(store, "S");
    ASSERT_EQ(store.setIntegerValue("K", 1), 0);
  }
  EXPECT_FALSE(exists("a.conf"));
}

// ---- a heap that cannot be opened

TEST_F(Configuration, AHeapThatCannotBeOpenedIsRecordedAndNotThrown) {
  heapOpenResult = heapNotOpened;
  CCmnConfiguration plainStore;
  expectError(plainStore, heapNotOpened, heapFailed, "CCmnConfiguration");
  CCmnConfiguration pathStore(dir().c_str(), "a.conf", false);
  expectError(pathStore, heapNotOpened, heapFailed, "CCmnConfiguration");
}

TEST_F(Configuration, EveryOperationFailsWithoutAHeap) {
  write("a.conf", "[S]\n\"K\"=\"v\"\n");
  CCmnConfiguration whole;
  ACE_Configuration_Section_Key root = whole.configHeap().root_section();
  heapOpenResult = heapNotOpened;
  CCmnConfiguration store(dir().c_str(), "out.conf", false);
  heapOpenResult.reset();
  ACE_Configuration_Section_Key key;
  tstr value("untouched");
  unsigned int integer = 77;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(store.openSection("S", key, 1), failed);
    EXPECT_EQ(store.openSection(root, "S", key, 0), failed);
    EXPECT_EQ(store.getStringValue("K", value), failed);
    EXPECT_EQ(store.setStringValue("K", "v"), failed);
    EXPECT_EQ(store.getIntegerValue("N", integer), failed);
    EXPECT_EQ(store.setIntegerValue("N", 1), failed);
    EXPECT_EQ(store.getStringValue("S", "K", value), failed);
    EXPECT_EQ(store.getIntegerValue("S", "N", integer), failed);
    EXPECT_THAT(plain(store.enumerateSections()), IsEmpty());
    EXPECT_THAT(plain(store.enumerateSections(root)), IsEmpty());
    EXPECT_EQ(store.exportConfig(), failed);
    expectError(store, heapNotOpened, heapFailed, "CCmnConfiguration");
  }
  EXPECT_STREQ(value.c_str(), "untouched");
  EXPECT_EQ(integer, 77U);
  EXPECT_FALSE(exists("out.conf"));
  EXPECT_NE(&store.configHeap(), &whole.configHeap());
}

TEST_F(Configuration, AnImportWithoutAHeapFailsAsOneThatAceRefuses) {
  write("a.conf", "[S]\n\"K\"=\"v\"\n");
  heapOpenResult = heapNotOpened;
  CCmnConfiguration store(dir().c_str(), "a.conf", true);
  expectError(store, failed, importFailed, "importConfig");
  EXPECT_EQ(import(store, "missing.conf"), failed);
  expectError(store, failed, noFile, "importConfig");
  EXPECT_EQ(import(store, "a.conf"), failed);
  expectError(store, failed, importFailed, "importConfig");
  EXPECT_EQ(store.exportConfig(), failed);
  EXPECT_EQ(read("a.conf"), "[S]\n\"K\"=\"v\"\n");
}

TEST_F(Configuration, AStoreWithoutAHeapDoesNotDisturbOthers) {
  heapOpenResult = heapNotOpened;
  auto first = std::make_unique<CCmnConfiguration>();
  CCmnConfiguration second;
  heapOpenResult.reset();
  CCmnConfiguration whole;
  first.reset();
  ACE_Configuration_Section_Key key;
  EXPECT_EQ(second.openSection("S", key, 1), failed);
  EXPECT_EQ(whole.openSection("S", key, 1), 0);
  EXPECT_EQ(whole.setStringValue("K", "v"), 0);
}

// ---- importConfig

TEST_F(Configuration, ImportReadsTextsAndNumbersOfNestedSections) {
  CCmnConfiguration store;
  EXPECT_EQ(load(store,
                 "[A]\n\"text\"=\"some text\"\n\"number\"=dword:0000001f\n"
                 "[A\\B\\C]\n\"most\"=dword:ffffffff\n\"none\"=dword:00000000\n\"empty\"=\"\"\n"),
            0);
  expectNoError(store);
  EXPECT_EQ(text(store, "A", "text"), "some text");
  EXPECT_EQ(number(store, "A", "number"), 0x1f);
  EXPECT_EQ(number(store, "A\\B\\C", "most"), 0xffffffffL);
  EXPECT_EQ(number(store, "A\\B\\C", "none"), 0);
  EXPECT_EQ(text(store, "A\\B\\C", "empty"), "");
}

TEST_F(Configuration, AMissingDirectoryFailsBeforeTheFileIsLookedFor) {
  CCmnConfiguration store;
  EXPECT_EQ(store.importConfig((dir() + "missing/").c_str(), "a.conf"), failed);
  expectError(store, failed, noDirectory, "importConfig");
}

TEST_F(Configuration, ANullDirectoryFailsAsAnEmptyPath) {
  write("a.conf", "[S]\n\"K\"=\"v\"\n");
  CCmnConfiguration store;
  EXPECT_EQ(store.importConfig(nullptr, (dir() + "a.conf").c_str()), failed);
  expectError(store, failed, noDirectory, "importConfig");
  EXPECT_FALSE(hasSection(store, "S"));
  EXPECT_EQ(store.importConfig("", (dir() + "a.conf").c_str()), failed);
  EXPECT_EQ(store.importConfig(nullptr, nullptr), failed);
}

TEST_F(Configuration, RemembersDirectoryAndFileAsTheyWereGiven) {
  CCmnConfiguration store("first/", "first.conf", false);
  for (const char* name : {"a", "another"}) {
    store.importConfig("no such directory", name);
    EXPECT_STREQ((store.*memberOf(CCmnConfiguration_m_configDir{})).c_str(), "no such directory");
    EXPECT_STREQ((store.*memberOf(CCmnConfiguration_m_configFile{})).c_str(), name);
  }
}

TEST_F(Configuration, ANullFileNamesTheDirectoryItself) {
  write("whole", "[S]\n\"K\"=\"v\"\n");
  CCmnConfiguration store;
  EXPECT_EQ(store.importConfig((dir() + "whole").c_str(), nullptr), 0);
  EXPECT_EQ(text(store, "S", "K"), "v");
}

TEST_F(Configuration, AMissingFileIsRecordedAndItsPathKept) {
  CCmnConfiguration store;
  EXPECT_EQ(import(store, "missing.conf"), failed);
  expectError(store, failed, noFile, "importConfig");
  EXPECT_EQ(store.exportConfig(), 0);
  EXPECT_TRUE(exists("missing.conf"));
}

TEST_F(Configuration, AMissingDirectorysPathIsKeptToo) {
  const std::string later = dir() + "later/";
  CCmnConfiguration store;
  EXPECT_EQ(store.importConfig(later.c_str(), "a.conf"), failed);
  std::filesystem::create_directory(later);
  EXPECT_EQ(store.exportConfig(), 0);
  EXPECT_TRUE(exists("later/a.conf"));
}

TEST_F(Configuration, DirectoryAndFileAreJoinedWithoutASeparator) {
  std::filesystem::create_directory(dir() + "cfg");
  write("cfg/a.conf", "[S]\n\"K\"=\"v\"\n");
  CCmnConfiguration store;
  EXPECT_EQ(store.importConfig((dir() + "cfg").c_str(), "a.conf"), failed);
  expectError(store, failed, noFile, "importConfig");
  EXPECT_EQ(store.exportConfig(), 0);
  EXPECT_TRUE(exists("cfga.conf"));
}

TEST_F(Configuration, AFailedImportPassesOnTheStatusOfACE) {
  write("broken.conf", "[S]\n\"K\"=\"v\"\n[T\n\"L\"=\"w\"\n");
  std::filesystem::create_directory(dir() + "directory.conf");
  for (const char* name : {"broken.conf", "directory.conf"}) {
    SCOPED_TRACE(name);
    CCmnConfiguration probe;
    ACE_Registry_ImpExp registry(probe.configHeap());
    const int expected = registry.import_config((dir() + name).c_str());
    ASSERT_NE(expected, 0);
    CCmnConfiguration store;
    EXPECT_EQ(import(store, name), expected);
    expectError(store, expected, importFailed, "importConfig");
  }
}

TEST_F(Configuration, EachFailureCarriesItsOwnLine) {
  write("broken.conf", "[S\n");
  std::set<int> lines;
  CCmnConfiguration store;
  store.importConfig("", "");
  lines.insert(store.getLastError().getLineNumber());
  import(store, "missing.conf");
  lines.insert(store.getLastError().getLineNumber());
  import(store, "broken.conf");
  lines.insert(store.getLastError().getLineNumber());
  heapOpenResult = failed;
  const CCmnConfiguration unopened;
  lines.insert(unopened.getLastError().getLineNumber());
  EXPECT_EQ(lines.size(), 4U);
}

TEST_F(Configuration, ASuccessDoesNotClearTheLastError) {
  CCmnConfiguration store;
  import(store, "missing.conf");
  const int line = store.getLastError().getLineNumber();
  EXPECT_EQ(load(store, "[S]\n\"K\"=\"v\"\n"), 0);
  EXPECT_EQ(store.exportConfig(), 0);
  EXPECT_EQ(text(store, "S", "K"), "v");
  expectError(store, failed, noFile, "importConfig");
  EXPECT_EQ(store.getLastError().getLineNumber(), line);
}

TEST_F(Configuration, ALaterFailureReplacesTheRecord) {
  CCmnConfiguration store;
  import(store, "missing.conf");
  EXPECT_EQ(store.importConfig(nullptr, "a.conf"), failed);
  expectError(store, failed, noDirectory, "importConfig");
}

TEST_F(Configuration, OtherFailuresAreNotRecorded) {
  CCmnConfiguration store((dir() + "missing/").c_str(), "a.conf", false);
  ACE_Configuration_Section_Key key;
  tstr value;
  unsigned int integer = 0;
  EXPECT_NE(store.openSection("S", key, 0), 0);
  EXPECT_NE(store.getStringValue("K", value), 0);
  EXPECT_NE(store.getIntegerValue("S", "K", integer), 0);
  EXPECT_NE(store.exportConfig(), 0);
  expectNoError(store);
}

TEST_F(Configuration, ASecondImportMerges) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "[A]\n\"kept\"=\"1\"\n\"changed\"=\"2\"\n\"retyped\"=\"3\"\n"), 0);
  ASSERT_EQ(load(store, "[A]\n\"changed\"=\"4\"\n\"retyped\"=dword:00000005\n[B]\n\"new\"=\"6\"\n"),
            0);
  EXPECT_EQ(text(store, "A", "kept"), "1");
  EXPECT_EQ(text(store, "A", "changed"), "4");
  EXPECT_EQ(number(store, "A", "retyped"), 5);
  EXPECT_EQ(text(store, "B", "new"), "6");
}

TEST_F(Configuration, ImportDoesNotChangeTheCurrentSection) {
  CCmnConfiguration store;
  makeCurrent(store, "Mine");
  ASSERT_EQ(load(store, "[Other]\n\"K\"=\"v\"\n"), 0);
  ASSERT_EQ(store.setStringValue("L", "w"), 0);
  EXPECT_EQ(text(store, "Mine", "L"), "w");
  EXPECT_EQ(text(store, "Other", "L"), "(missing)");
}

// ---- habits of ACE that show through

TEST_F(Configuration, TheLastLineNeedsItsLineEnd) {
  CCmnConfiguration store;
  EXPECT_EQ(load(store, "[A]\n\"first\"=\"1\"\n\"last\"=\"2\""), 0);
  EXPECT_EQ(text(store, "A", "first"), "1");
  EXPECT_EQ(text(store, "A", "last"), "(missing)");
}

TEST_F(Configuration, AMalformedLineEndsTheImportWithWhatCameBeforeApplied) {
  CCmnConfiguration store;
  EXPECT_NE(load(store, "[A]\n\"before\"=\"1\"\n[B\n\"after\"=\"2\"\n[C]\n\"after\"=\"3\"\n"), 0);
  expectError(store, store.getLastError().getCode(), importFailed, "importConfig");
  EXPECT_EQ(text(store, "A", "before"), "1");
  EXPECT_EQ(text(store, "A", "after"), "(missing)");
  EXPECT_FALSE(hasSection(store, "C"));
}

TEST_F(Configuration, ALineEndInsideAValueBreaksTheExportedFile) {
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  makeCurrent(store, "S");
  ASSERT_EQ(store.setStringValue("K", "one\ntwo"), 0);
  EXPECT_EQ(text(store, "S", "K"), "one\ntwo");
  ASSERT_EQ(store.exportConfig(), 0);
  EXPECT_EQ(read("a.conf"), "[S]\n\"K\"=\"one\ntwo\"\n");
  CCmnConfiguration again;
  import(again, "a.conf");
  EXPECT_NE(text(again, "S", "K"), "one\ntwo");
}

TEST_F(Configuration, ASlashInAFileSeparatesNestedNames) {
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  makeCurrent(store, "A/B");
  ASSERT_EQ(store.setStringValue("K", "v"), 0);
  EXPECT_THAT(plain(store.enumerateSections(store.configHeap().root_section())),
              ElementsAre("A/B"));
  ASSERT_EQ(store.exportConfig(), 0);
  CCmnConfiguration again;
  EXPECT_EQ(import(again, "a.conf"), 0);
  EXPECT_THAT(plain(again.enumerateSections(again.configHeap().root_section())), ElementsAre("A"));
  EXPECT_EQ(text(again, "A\\B", "K"), "v");
}

TEST_F(Configuration, ValuesInTheOlderFormAreReadToo) {
  CCmnConfiguration store;
  EXPECT_EQ(load(store, "[S]\nText=\"one\nQuoted=\"two\"\r\nNumber=#12\nNone=3\n"), 0);
  EXPECT_EQ(text(store, "S", "Text"), "one");
  EXPECT_EQ(text(store, "S", "Quoted"), "two\"");
  EXPECT_EQ(number(store, "S", "Number"), 12);
  EXPECT_EQ(text(store, "S", "None"), "(missing)");
}

TEST_F(Configuration, ValuesWhoseNamesDifferInCaseAloneAreOne) {
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  makeCurrent(store, "S");
  ASSERT_EQ(store.setStringValue("Key", "1"), 0);
  ASSERT_EQ(store.setStringValue("KEY", "2"), 0);
  EXPECT_EQ(text(store, "S", "key"), "2");
  ASSERT_EQ(store.exportConfig(), 0);
  EXPECT_EQ(read("a.conf"), "[S]\n\"Key\"=\"2\"\n");
}

TEST_F(Configuration, ASectionWhoseNameDiffersInCaseAloneIsRefused) {
  CCmnConfiguration store;
  makeCurrent(store, "Trace");
  ACE_Configuration_Section_Key key;
  EXPECT_EQ(store.openSection("TRACE", key, 0), failed);
  EXPECT_EQ(store.openSection("TRACE", key, 1), failed);
  EXPECT_EQ(load(store, "[S]\n\"K\"=\"v\"\n[TRACE]\n\"K\"=\"w\"\n"), sectionRefused);
  EXPECT_EQ(text(store, "S", "K"), "v");
  EXPECT_TRUE(hasSection(store, "Trace"));
}

// ---- files that ACE must not see

TEST_F(Configuration, AFileWithAZeroByteIsRefusedWhereverItStands) {
  const std::string zero(1, '\0');
  const std::string section = "[S]\n\"K\"=\"v\"\n";
  std::string wide;
  for (const char byte : section) {
    wide += byte + zero;
  }
  const std::string comment = "; " + std::string(100000, 'x') + "\n";
  for (const std::string& content : {
           zero,
           zero + section,
           "[" + zero + "S]\n" + section,
           section + "\"L\"=\"" + zero + "w\"\n",
           section + zero,
           "\xff\xfe" + wide,
           section + comment + zero,
           comment + comment + section + zero + "\n" + section,
           section + std::string(40, '\0') + "\n",
       }) {
    SCOPED_TRACE(content.size());
    CCmnConfiguration store;
    ASSERT_EQ(load(store, "[Old]\n\"K\"=\"old\"\n"), 0);
    EXPECT_EQ(load(store, content), failed);
    expectError(store, failed, importFailed, "importConfig");
    EXPECT_EQ(text(store, "Old", "K"), "old");
    EXPECT_THAT(plain(store.enumerateSections(store.configHeap().root_section())),
                ElementsAre("Old"));
    ASSERT_EQ(load(store, section), 0);
    EXPECT_EQ(text(store, "S", "K"), "v");
  }
}

TEST_F(Configuration, AFileThatCannotBeLookedAtIsRefused) {
  write("zero.conf", std::string("[S]\n\"K\"=\"v\"\n[\0S]\n", 17));
  for (const Call call : {Call::stat, Call::fopen, Call::fread}) {
    CCmnConfiguration store;
    ASSERT_EQ(load(store, "[Old]\n\"K\"=\"old\"\n"), 0);
    const ScopedFailure failure(call, EIO);
    EXPECT_EQ(import(store, "zero.conf"), failed);
    EXPECT_EQ(failure.failed(), 1);
    expectError(store, failed, importFailed, "importConfig");
    EXPECT_THAT(plain(store.enumerateSections(store.configHeap().root_section())),
                ElementsAre("Old"));
  }
}

// Some of these once made ACE's reader double its buffer for every line, or look as if they might.
TEST_F(Configuration, AnyOtherFileHasTheResultOfACE) {
  const auto many = [](const char* piece, int times) {
    std::string content;
    for (int i = 0; i < times; ++i) {
      content += piece;
    }
    return content;
  };
  const std::string ends[] = {"", "\n"};
  for (const std::string& content : {
           std::string(),
           many("[", 1 << 20),
           many("[", 1 << 20) + "]",
           many("[]", 1 << 10),
           many("\"", 1 << 20),
           many("\xff", 1 << 20),
           many("a", 4095),
           many("a", 4096),
           many("\n", 10000),
           many("[S]\r\"K\"=\"v\"\r", 10000),
           "[S]\n\"K\"=\"" + many("v", 1 << 20) + "\"",
           "[S]\n\"K\"=hex:" + many("0", 10000),
           "[S]\n\"K\"=dword:" + many("f", 10000),
           "[" + many("a\\", 300) + "]",
           std::string("[S]\n\"\"=\"v\""),
           std::string("[S]\n\"K\""),
           std::string("[S]\nK=\"v\""),
       }) {
    for (const std::string& end : ends) {
      SCOPED_TRACE(content.substr(0, 20) + " with " + std::to_string(content.size() + end.size()));
      write("odd.conf", content + end);
      CCmnConfiguration probe;
      ACE_Registry_ImpExp registry(probe.configHeap());
      const int expected = registry.import_config((dir() + "odd.conf").c_str());
      CCmnConfiguration store;
      EXPECT_EQ(import(store, "odd.conf"), expected);
      EXPECT_EQ(plain(store.enumerateSections(store.configHeap().root_section())),
                plain(probe.enumerateSections(probe.configHeap().root_section())));
    }
  }
}

TEST_F(Configuration, APipeIsReadOnce) {
  const std::string path = dir() + "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&path] { kelp_test::writeFile(path, "[S]\n\"K\"=\"v\"\n"); });
  CCmnConfiguration store;
  EXPECT_EQ(import(store, "pipe"), 0);
  writer.join();
  EXPECT_EQ(text(store, "S", "K"), "v");
}

TEST_F(Configuration, AFileThatCannotBeOpenedFailsAsOneThatAceRefuses) {
  write("a.conf", "[S]\n\"K\"=\"v\"\n");
  CCmnConfiguration store;
  {
    const NoMoreDescriptors none;
    EXPECT_EQ(import(store, "a.conf"), failed);
  }
  expectError(store, failed, importFailed, "importConfig");
  EXPECT_EQ(import(store, "a.conf"), 0);
}

// ---- memory that runs out

TEST_F(Configuration, AFileIsNamedWholeOrNotAtAllWithoutMemory) {
  CCmnConfiguration store;
  const std::string other = dir() + "a directory that is not there, and has a long name/";
  failEachAllocation([&] { store.importConfig(dir().c_str(), "old.conf"); },
                     [&] { store.importConfig(other.c_str(), "a.conf"); },
                     [&](bool threw) {
                       const int exported = store.exportConfig();
                       EXPECT_EQ(exported == 0, exists("old.conf"));
                       EXPECT_TRUE(threw || exported != 0);
                       std::filesystem::remove(dir() + "old.conf");
                     });
}

TEST_F(Configuration, AnErrorIsRecordedWholeOrNotAtAllWithoutMemory) {
  CCmnConfiguration store;
  failEachAllocation([&] { store.importConfig("", ""); }, [&] { import(store, "missing.conf"); },
                     [&](bool threw) {
                       expectError(store, failed, threw ? noDirectory : noFile, "importConfig");
                     });
}

TEST_F(Configuration, ATextIsReadWholeOrNotAtAllWithoutMemory) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "[S]\n\"K\"=\"a value\"\n\"Empty\"=\"\"\n"), 0);
  makeCurrent(store, "S");
  tstr value;
  int rc = 0;
  failEachAllocation(
      [&] {
        value = "old";
        rc = -1;
      },
      [&] { rc = store.getStringValue("K", value); },
      [&](bool threw) { EXPECT_STREQ(value.c_str(), threw || rc != 0 ? "old" : "a value"); });
  errno = ENOMEM;
  EXPECT_EQ(store.getStringValue("Empty", value), 0) << "an errno of before says nothing";
  EXPECT_STREQ(value.c_str(), "");
}

TEST_F(Configuration, ATextForWhichItsMakerHadNoMemoryIsNotSet) {
  CCmnConfiguration store;
  makeCurrent(store, "S");
  ASSERT_EQ(store.setStringValue("K", "old"), 0);
  const tstr broken = kelp_test::brokenText();
  ASSERT_EQ(broken.c_str(), nullptr);
  EXPECT_THROW(store.setStringValue("K", broken), std::bad_alloc);
  EXPECT_EQ(text(store, "S", "K"), "old");
}

TEST_F(Configuration, NamesAreEnumeratedWholeOrNotAtAllWithoutMemory) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "[one]\n[another section]\n[the longest name of them all]\n[x]\n"), 0);
  const ACE_Configuration_Section_Key root = store.configHeap().root_section();
  const std::vector<std::string> all = plain(store.enumerateSections(root));
  ASSERT_EQ(all.size(), 4U);
  // A name longer than all before it is one for which ACE has no room yet.
  ASSERT_NE(std::max_element(all.begin(), all.end(), isShorter), all.begin());
  std::vector<tstr> names;
  failEachAllocation([&] { names.clear(); }, [&] { names = store.enumerateSections(root); },
                     [&](bool) {
                       ASSERT_LE(names.size(), 4U);
                       for (size_t i = 0; i < names.size(); ++i) {
                         EXPECT_STREQ(names[i].c_str(), all[i].c_str());
                       }
                     });
}

// In a process of its own, because ACE may crash. Ends with 3 where a file that is not whole counts
// as written, and with 2 where no request was refused.
std::string endOfExport(CCmnConfiguration& store, int nth, const std::function<bool()>& isWhole) {
  return kelp_test::endOfAnotherProcess([&] {
    signal(SIGSEGV, SIG_DFL);
    const ScopedFailure failure(Call::nothrowNew, ENOMEM, nth);
    bool isTold = false;
    try {
      isTold = store.exportConfig() != 0;
    } catch (const std::bad_alloc&) {
      isTold = true;
    }
    const bool isUntouched = failure.failed() == 0;
    const kelp_test::Unfailing unfailing;
    _exit(!isTold && !isWhole() ? 3 : isUntouched ? 2 : 0);
  });
}

TEST_F(Configuration, AFileIsWrittenWholeOrAFailureToldWithoutMemory) {
  const std::string content = "[S]\n\"K\"=\"a value\"\n[S\\T]\n\"N\"=dword:0000000c\n";
  write("a.conf", content);
  CCmnConfiguration store;
  ASSERT_EQ(import(store, "a.conf"), 0);
  std::string end;
  for (int nth = 1; end != "exit 2"; ++nth) {
    end = endOfExport(store, nth, [&] { return read("a.conf") == content; });
    ASSERT_NE(end, "exit 3") << nth;
    ASSERT_LT(nth, 1000);
  }
}

// ---- exportConfig

TEST_F(Configuration, ExportWritesEverySection) {
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  makeCurrent(store, "A\\B");
  ASSERT_EQ(store.setIntegerValue("N", 0x12abU), 0);
  makeCurrent(store, "C");
  ASSERT_EQ(store.setStringValue("T", "text"), 0);
  makeCurrent(store, "Empty");
  EXPECT_EQ(store.exportConfig(), 0);
  const std::string content = read("a.conf");
  EXPECT_THAT(content, testing::HasSubstr("[A]\n[A\\B]\n\"N\"=dword:000012ab\n"));
  EXPECT_THAT(content, testing::HasSubstr("[C]\n\"T\"=\"text\"\n"));
  EXPECT_THAT(content, testing::HasSubstr("[Empty]\n"));
}

TEST_F(Configuration, ExportReplacesTheImportedFile) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "; a comment\n[S]\n\"K\"=\"v\"\n"), 0);
  ASSERT_EQ(store.exportConfig(), 0);
  EXPECT_EQ(read("loaded.conf"), "[S]\n\"K\"=\"v\"\n");
}

TEST_F(Configuration, ExportGoesToTheFileLastNamedEvenByAFailedImport) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "[S]\n\"K\"=\"v\"\n"), 0);
  import(store, "other.conf");
  ASSERT_EQ(store.exportConfig(), 0);
  EXPECT_EQ(read("other.conf"), "[S]\n\"K\"=\"v\"\n");
}

TEST_F(Configuration, ExportToAnUnwritablePlacePassesOnTheStatus) {
  std::filesystem::create_directory(dir() + "directory");
  for (const char* name : {"missing/a.conf", "directory"}) {
    SCOPED_TRACE(name);
    CCmnConfiguration store(dir().c_str(), name, false);
    ACE_Registry_ImpExp registry(store.configHeap());
    const int expected = registry.export_config((dir() + name).c_str());
    ASSERT_NE(expected, 0);
    EXPECT_EQ(store.exportConfig(), expected);
    expectNoError(store);
  }
}

TEST_F(Configuration, WhatWasExportedIsImportedAgain) {
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  makeCurrent(store, "A\\B");
  ASSERT_EQ(store.setIntegerValue("N", 4294967295U), 0);
  ASSERT_EQ(store.setStringValue("T", "a \\ path = 100%s; [x] \xc3\xa4"), 0);
  ASSERT_EQ(store.exportConfig(), 0);
  CCmnConfiguration again(dir().c_str(), "a.conf", true);
  expectNoError(again);
  EXPECT_EQ(number(again, "A\\B", "N"), 4294967295L);
  EXPECT_EQ(text(again, "A\\B", "T"), "a \\ path = 100%s; [x] \xc3\xa4");
}

// ---- sections

TEST_F(Configuration, NoSectionIsCurrentAtFirst) {
  CCmnConfiguration store;
  tstr value("untouched");
  unsigned int integer = 5;
  EXPECT_NE(store.getStringValue("K", value), 0);
  EXPECT_NE(store.setStringValue("K", "v"), 0);
  EXPECT_NE(store.getIntegerValue("K", integer), 0);
  EXPECT_NE(store.setIntegerValue("K", 1), 0);
  EXPECT_STREQ(value.c_str(), "untouched");
  EXPECT_EQ(integer, 5U);
  EXPECT_THAT(plain(store.enumerateSections()), IsEmpty());
}

TEST_F(Configuration, OpeningCreatesOnlyWhenAsked) {
  CCmnConfiguration store;
  ACE_Configuration_Section_Key key;
  EXPECT_NE(store.openSection("S", key, 0), 0);
  EXPECT_FALSE(hasSection(store, "S"));
  EXPECT_EQ(store.openSection("S", key, 1), 0);
  EXPECT_TRUE(hasSection(store, "S"));
  EXPECT_EQ(store.openSection("S", key, 0), 0);
  EXPECT_EQ(store.openSection("S", key, 1), 0) << "an existing section is no failure";
  EXPECT_EQ(store.openSection("P\\Q", key, 1), 0);
  EXPECT_TRUE(hasSection(store, "P"));
}

TEST_F(Configuration, TheOpenedSectionIsHandedOutAndCurrent) {
  CCmnConfiguration store;
  ACE_Configuration_Section_Key key;
  ASSERT_EQ(store.openSection("S", key, 1), 0);
  EXPECT_EQ(store.configHeap().set_string_value(key, "K", "v"), 0);
  tstr value;
  EXPECT_EQ(store.getStringValue("K", value), 0);
  EXPECT_STREQ(value.c_str(), "v");
  key = ACE_Configuration_Section_Key();
  EXPECT_EQ(store.getStringValue("K", value), 0) << "the store keeps a key of its own";
}

TEST_F(Configuration, AFailedOpeningLeavesTheCurrentSection) {
  CCmnConfiguration store;
  makeCurrent(store, "S");
  ACE_Configuration_Section_Key other;
  EXPECT_NE(store.openSection("Missing", other, 0), 0);
  ASSERT_EQ(store.setStringValue("K", "v"), 0);
  EXPECT_EQ(text(store, "S", "K"), "v");
}

TEST_F(Configuration, ABaseMakesTheNameRelative) {
  CCmnConfiguration store;
  ACE_Configuration_Section_Key outer;
  ACE_Configuration_Section_Key inner;
  ASSERT_EQ(store.openSection("A", outer, 1), 0);
  EXPECT_NE(store.openSection(outer, "B\\C", inner, 0), 0);
  EXPECT_EQ(store.openSection(outer, "B\\C", inner, 1), 0);
  ASSERT_EQ(store.setIntegerValue("N", 3), 0);
  EXPECT_EQ(number(store, "A\\B\\C", "N"), 3);
  EXPECT_FALSE(hasSection(store, "B"));
  EXPECT_EQ(store.openSection(store.configHeap().root_section(), "A\\B", inner, 0), 0);
  const ACE_Configuration_Section_Key none;
  EXPECT_NE(store.openSection(none, "B", inner, 1), 0) << "an empty key is no section";
}

// ---- values

TEST_F(Configuration, ValuesOfTheCurrentSectionAreSetReplacedAndRead) {
  CCmnConfiguration store;
  makeCurrent(store, "S");
  for (const char* content : {"first", "", "a longer second text", "x"}) {
    EXPECT_EQ(store.setStringValue("T", content), 0);
    tstr value("old");
    EXPECT_EQ(store.getStringValue("T", value), 0);
    EXPECT_STREQ(value.c_str(), content);
  }
  for (const unsigned int content : {0U, 1U, 0x80000000U, 0xffffffffU}) {
    EXPECT_EQ(store.setIntegerValue("N", content), 0);
    unsigned int value = 77;
    EXPECT_EQ(store.getIntegerValue("N", value), 0);
    EXPECT_EQ(value, content);
  }
}

TEST_F(Configuration, AValueOfTheOtherTypeIsNotReadButCanBeReplaced) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "[S]\n\"T\"=\"5\"\n\"N\"=dword:00000005\n"), 0);
  makeCurrent(store, "S");
  unsigned int integer = 77;
  tstr value("untouched");
  EXPECT_NE(store.getIntegerValue("T", integer), 0);
  EXPECT_NE(store.getStringValue("N", value), 0);
  EXPECT_EQ(integer, 77U);
  EXPECT_STREQ(value.c_str(), "untouched");
  EXPECT_EQ(store.setIntegerValue("T", 6), 0);
  EXPECT_EQ(store.setStringValue("N", "six"), 0);
  EXPECT_EQ(number(store, "S", "T"), 6);
  EXPECT_EQ(text(store, "S", "N"), "six");
}

TEST_F(Configuration, StatusesAreThoseOfTheHeap) {
  CCmnConfiguration store;
  ACE_Configuration_Section_Key key;
  ASSERT_EQ(store.openSection("S", key, 1), 0);
  ACE_Configuration_Heap& heap = store.configHeap();
  tstr value;
  unsigned int integer = 0;
  EXPECT_EQ(store.getStringValue("K", value), heap.get_string_value(key, "K", value));
  EXPECT_EQ(store.getIntegerValue("K", integer), heap.get_integer_value(key, "K", integer));
  EXPECT_EQ(store.openSection("M", key, 0),
            heap.open_section(heap.root_section(), "M", false, key));
  EXPECT_EQ(store.openSection("", key, 1), heap.open_section(heap.root_section(), "", true, key));
}

TEST_F(Configuration, AskingInAMissingSectionCreatesItAndFails) {
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  unsigned int integer = 77;
  tstr value("untouched");
  EXPECT_NE(store.getIntegerValue("S", "K", integer), 0);
  EXPECT_NE(store.getStringValue("T", "K", value), 0);
  EXPECT_EQ(integer, 77U);
  EXPECT_STREQ(value.c_str(), "untouched");
  ASSERT_EQ(store.exportConfig(), 0);
  const std::string content = read("a.conf");
  EXPECT_TRUE(content == "[S]\n[T]\n" || content == "[T]\n[S]\n") << content;
}

TEST_F(Configuration, AskingInANamedSectionMakesItCurrent) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "[A]\n\"K\"=\"v\"\n\"N\"=dword:00000001\n[B]\n\"K\"=\"w\"\n"), 0);
  makeCurrent(store, "B");
  EXPECT_EQ(text(store, "A", "K"), "v");
  EXPECT_EQ(store.setStringValue("K2", "x"), 0);
  EXPECT_EQ(text(store, "A", "K2"), "x");
  EXPECT_EQ(text(store, "B", "K2"), "(missing)");
  EXPECT_EQ(number(store, "A", "N"), 1);
  EXPECT_EQ(store.setIntegerValue("N2", 2), 0);
  EXPECT_EQ(number(store, "A", "N2"), 2);
  EXPECT_EQ(number(store, "B", "missing"), noNumber);
  EXPECT_EQ(store.setIntegerValue("N3", 3), 0);
  EXPECT_EQ(number(store, "B", "N3"), 3) << "current even where the value was missing";
}

TEST_F(Configuration, ASectionThatCannotBeOpenedGivesItsStatus) {
  CCmnConfiguration store;
  makeCurrent(store, "S");
  ASSERT_EQ(store.setStringValue("K", "v"), 0);
  ASSERT_EQ(store.setIntegerValue("N", 1), 0);
  ACE_Configuration_Section_Key none;
  const int expected = store.openSection("", none, 1);
  ASSERT_NE(expected, 0) << "an empty name is no section";
  tstr value("untouched");
  unsigned int integer = 77;
  EXPECT_EQ(store.getStringValue("", "K", value), expected);
  EXPECT_EQ(store.getIntegerValue("", "N", integer), expected);
  EXPECT_STREQ(value.c_str(), "untouched") << "the current section is not asked instead";
  EXPECT_EQ(integer, 77U);
}

// ---- enumeration

TEST_F(Configuration, EnumerationNamesTheSubsectionsOfOneLevel) {
  CCmnConfiguration store;
  ASSERT_EQ(load(store, "[A\\X]\n[A\\Y\\Deep]\n[A\\Z]\n\"K\"=\"v\"\n[B]\n"), 0);
  ACE_Configuration_Heap& heap = store.configHeap();
  EXPECT_THAT(plain(store.enumerateSections(heap.root_section())), UnorderedElementsAre("A", "B"));
  ACE_Configuration_Section_Key key;
  ASSERT_EQ(store.openSection("A", key, 0), 0);
  EXPECT_THAT(plain(store.enumerateSections(key)), UnorderedElementsAre("X", "Y", "Z"));
  EXPECT_THAT(plain(store.enumerateSections()), UnorderedElementsAre("X", "Y", "Z"));
  ASSERT_EQ(store.openSection("B", key, 0), 0);
  EXPECT_THAT(plain(store.enumerateSections()), IsEmpty());
  EXPECT_THAT(plain(store.enumerateSections(ACE_Configuration_Section_Key())), IsEmpty());
}

TEST_F(Configuration, EnumerationKeepsTheOrderOfTheHeapAndTheCurrentSection) {
  CCmnConfiguration store;
  for (int i = 0; i < 50; ++i) {
    makeCurrent(store, ("S" + std::to_string(i)).c_str());
  }
  makeCurrent(store, "Current");
  ACE_Configuration_Heap& heap = store.configHeap();
  std::vector<std::string> expected;
  ACE_TString name;
  for (int i = 0; heap.enumerate_sections(heap.root_section(), i, name) == 0; ++i) {
    expected.emplace_back(name.c_str());
  }
  ASSERT_EQ(expected.size(), 51U);
  EXPECT_EQ(plain(store.enumerateSections(heap.root_section())), expected);
  ASSERT_EQ(store.setStringValue("K", "v"), 0);
  EXPECT_EQ(text(store, "Current", "K"), "v");
}

TEST_F(Configuration, TheHeapItselfIsShared) {
  CCmnConfiguration store(dir().c_str(), "a.conf", false);
  ACE_Configuration_Heap& heap = store.configHeap();
  EXPECT_EQ(&heap, &store.configHeap());
  ACE_Configuration_Section_Key key;
  ASSERT_EQ(heap.open_section(heap.root_section(), "S", true, key), 0);
  ASSERT_EQ(heap.set_integer_value(key, "N", 5), 0);
  EXPECT_EQ(number(store, "S", "N"), 5);
  ASSERT_EQ(store.exportConfig(), 0);
  EXPECT_EQ(read("a.conf"), "[S]\n\"N\"=dword:00000005\n");
}

}  // namespace

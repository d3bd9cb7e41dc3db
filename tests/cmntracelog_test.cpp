#include "cmntracelog.h"

#include "cmnerror.h"
#include "heap.h"
#include "install_root.h"
#include "next_symbol.h"
#include "scratch.h"

#include <ace/ACE.h>
#include <ace/Configuration_Import_Export.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// ---- what stands in front of ACE and the platform, idle until a test arms it

namespace {

namespace fs = std::filesystem;

constexpr char configPath[] = "/usr/tulsk/lib/kelp/configfiles/vault.conf";

struct Interposed {
  std::vector<std::string> saved;  // the exported file's content after each export
  std::function<void()> onImport;  // may throw
  std::string sectionNotOpened;    // once
  bool timestampFails = false;
  std::string timestampText;  // written instead of the time; its second character is pointed at
  std::vector<std::pair<size_t, bool>> timestampCalls;
  bool recordOpened = false;
  std::vector<std::string> opened;  // paths and modes

  void noteOpened(const char* path, const char* mode) {
    if (recordOpened) {
      opened.push_back(std::string(path) + " " + mode);
    }
  }
};

Interposed& interposed() {
  static Interposed state;
  return state;
}

}  // namespace

int ACE_Registry_ImpExp::export_config(const ACE_TCHAR* path) {
  static const auto next = kelp_test::nextSymbol<int(ACE_Registry_ImpExp*, const ACE_TCHAR*)>(
      "_ZN19ACE_Registry_ImpExp13export_configEPKc");
  const int result = next(this, path);
  interposed().saved.push_back(kelp_test::readFile(path));
  return result;
}

int ACE_Registry_ImpExp::import_config(const ACE_TCHAR* path) {
  static const auto next = kelp_test::nextSymbol<int(ACE_Registry_ImpExp*, const ACE_TCHAR*)>(
      "_ZN19ACE_Registry_ImpExp13import_configEPKc");
  if (interposed().onImport) {
    interposed().onImport();
  }
  return next(this, path);
}

int ACE_Configuration_Heap::open_section(const ACE_Configuration_Section_Key& base,
                                         const ACE_TCHAR* name, bool create,
                                         ACE_Configuration_Section_Key& result) {
  using OpenSection = int(ACE_Configuration_Heap*, const ACE_Configuration_Section_Key&,
                          const ACE_TCHAR*, bool, ACE_Configuration_Section_Key&);
  static const auto next = kelp_test::nextSymbol<OpenSection>(
      "_ZN22ACE_Configuration_Heap12open_sectionERK29ACE_Configuration_Section_KeyPKcbRS0_");
  if (!interposed().sectionNotOpened.empty() && interposed().sectionNotOpened == name) {
    interposed().sectionNotOpened.clear();
    return -1;
  }
  return next(this, base, name, create, result);
}

ACE_TCHAR* ACE::timestamp(ACE_TCHAR buffer[], size_t size, bool toFirstDigit) {
  static const auto next =
      kelp_test::nextSymbol<ACE_TCHAR*(ACE_TCHAR*, size_t, bool)>("_ZN3ACE9timestampEPcmb");
  interposed().timestampCalls.emplace_back(size, toFirstDigit);
  if (interposed().timestampFails) {
    std::memset(buffer, 'x', size);
    return nullptr;
  }
  if (!interposed().timestampText.empty()) {
    std::snprintf(buffer, size, "%s", interposed().timestampText.c_str());
    return buffer + 1;
  }
  return next(buffer, size, toFirstDigit);
}

extern "C" FILE* fopen(const char* path, const char* mode) {
  static const auto next = kelp_test::nextSymbol<FILE*(const char*, const char*)>("fopen");
  interposed().noteOpened(path, mode);
  return next(path, mode);
}

namespace {

using kelp_cmn_4_4::CCmnError;
using kelp_cmn_4_4::CCmnTraceLog;
using kelp_cmn_4_4::CCmnTraceLogPtr;
using kelp_cmn_4_4::tstr;
using kelp_test::HeapCall;
using kelp_test::HeapRequest;
using kelp_test::HeapWatch;
using kelp_test::InstallRoot;
using kelp_test::readFile;
using kelp_test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using Keys = std::map<std::string, std::string>;

constexpr char defaultTracePath[] = "/usr/tulsk/krellvane/logs/zorvt//vault.log";
constexpr char settingsFailed[] = "ERROR: CCmnTraceLog: Failed to initialize log settings\n";

std::string dword(unsigned int value) {
  char text[32];
  std::snprintf(text, sizeof text, "dword:%08x", value);
  return text;
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

// The values of the trace's section, read without ACE; "(other)" holds every line outside it.
Keys keysIn(const std::string& content) {
  Keys keys;
  std::istringstream lines(content);
  std::string section;
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find("\"=");
    if (line.front() == '[') {
      section = line;
    } else if (section == "[DEBUG_TRACE_INFO]" && equals != std::string::npos) {
      keys[line.substr(1, equals - 1)] = line.substr(equals + 2);
    } else {
      keys["(other)"] += section + line;
    }
  }
  return keys;
}

std::string sectionOf(const Keys& keys) {
  std::string content = "[DEBUG_TRACE_INFO]\n";
  for (const auto& [key, value] : keys) {
    content += quoted(key) + "=" + value + "\n";
  }
  return content;
}

Keys defaultKeys(unsigned int level, unsigned int echo) {
  return {{"TRACEDIR", quoted(InstallRoot::traceDir)},
          {"TRACEFILE", quoted("vault.log")},
          {"TRACELEVEL", dword(level)},
          {"TRACESTDOUT", dword(echo)}};
}

std::string captured(const std::function<void()>& action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

// The time as ACE writes it, every digit replaced, so that two times have one shape.
std::string shape(std::string text) {
  for (char& byte : text) {
    byte = byte >= '0' && byte <= '9' ? '0' : byte;
  }
  return text;
}

std::string timeShape() {
  char buffer[128];
  ACE::timestamp(buffer, sizeof buffer, true);
  return shape(buffer);
}

// A fresh system: the product is installed, nothing is configured. Every time is the text "TIME"
// unless a test asks otherwise, so that whole lines can be compared.
class TraceLog : public testing::Test {
 protected:
  TraceLog() {
    interposed() = Interposed();
    interposed().timestampText = "TIME";
    InstallRoot::makeProductTree();
  }
  ~TraceLog() override { interposed() = Interposed(); }

  static void configure(const std::string& content) {
    fs::create_directories(InstallRoot::configDir);
    writeFile(configPath, content);
  }
  static void configureProduct(const std::string& content) {
    writeFile(InstallRoot::productConfig, content);
  }
  static Keys configured() { return keysIn(readFile(configPath)); }
  static std::string traced() { return readFile(defaultTracePath); }

  void initialize(int level = 1, bool toStdout = false) {
    m_log.initialize("vault", "", "", level, toStdout);
  }

  // The messages out of a list that are written, by their levels.
  std::vector<int> written(const std::vector<int>& levels) {
    std::vector<int> result;
    for (const int level : levels) {
      fs::remove(defaultTracePath);
      m_log.trace(level, "message of %d", level);
      if (fs::exists(defaultTracePath)) {
        EXPECT_EQ(traced(), "TIME message of " + std::to_string(level) + "\n");
        result.push_back(level);
      }
    }
    return result;
  }

  InstallRoot m_root;
  CCmnTraceLog m_log;
};

// ---- a new log

TEST_F(TraceLog, StartsUninitializedAndTouchesNoFile) {
  EXPECT_EQ(m_log.getTraceLevel(), 0);
  EXPECT_STREQ(m_log.getTracePath().c_str(), "");
  EXPECT_FALSE(m_log.isInitialized());
  EXPECT_EQ(m_log.getCount(), 0);
  EXPECT_FALSE(fs::exists(InstallRoot::configDir));
  EXPECT_FALSE(fs::exists(InstallRoot::traceDir));
}

TEST_F(TraceLog, IsSharedByHoldersAndGoesWithTheLast) {
  CCmnTraceLogPtr first = CCmnTraceLogPtr::create();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->getCount(), 1);
  const CCmnTraceLogPtr second = CCmnTraceLogPtr::create();
  EXPECT_EQ(first, second) << "one log per process";
  EXPECT_EQ(first->getCount(), 2);
  first = CCmnTraceLogPtr();
  EXPECT_EQ(second->getCount(), 1);
}

TEST_F(TraceLog, TracesNothingBeforeInitialize) {
  configureProduct("VERBOSE=9\n");
  EXPECT_EQ(captured([this] { m_log.trace(0, "lost"); }), "");
  EXPECT_FALSE(fs::exists(InstallRoot::traceDir));
}

// ---- initialize on a fresh system

TEST_F(TraceLog, AFreshSystemGetsTheDefaultsAndTheCallersLevel) {
  EXPECT_EQ(captured([this] { initialize(5); }), "");
  EXPECT_TRUE(m_log.isInitialized());
  EXPECT_EQ(m_log.getTraceLevel(), 0) << "a level that was only just written counts as 0";
  EXPECT_STREQ(m_log.getTracePath().c_str(), defaultTracePath) << "the doubled slash is meant";
  EXPECT_EQ(configured(), defaultKeys(5, 0));
  EXPECT_THAT(interposed().saved, SizeIs(1));
  EXPECT_TRUE(fs::exists(defaultTracePath));
  EXPECT_EQ(traced(), "");
}

TEST_F(TraceLog, TheEchoIsNotConfiguredOnAFreshSystemEvenWhenAskedFor) {
  initialize(1, true);
  EXPECT_EQ(configured(), defaultKeys(1, 0));
  EXPECT_EQ(captured([this] { m_log.trace(1, "m"); }), "vault:TIME m\n");
}

TEST_F(TraceLog, ANegativeLevelIsStoredAndReadBackAsItIs) {
  initialize(-5);
  EXPECT_EQ(configured(), defaultKeys(0xfffffffbU, 0));
  m_log.trace(1, "m");
  EXPECT_EQ(m_log.getTraceLevel(), -5);
}

TEST_F(TraceLog, AFileWithoutTheSectionIsCompletedAndKeepsItsOthers) {
  configure("[MINE]\n\"K\"=\"v\"\n");
  initialize(2, true);
  Keys expected = defaultKeys(2, 0);
  expected["(other)"] = "[MINE]\"K\"=\"v\"";
  EXPECT_EQ(configured(), expected);
  EXPECT_THAT(interposed().saved, SizeIs(1));
}

TEST_F(TraceLog, TheTraceFileIsOpenedOnceForAppending) {
  fs::create_directory(InstallRoot::traceDir);
  writeFile(defaultTracePath, "before\n");
  interposed().recordOpened = true;
  initialize();
  interposed().recordOpened = false;
  EXPECT_EQ(traced(), "before\n");
  EXPECT_EQ(std::count(interposed().opened.begin(), interposed().opened.end(),
                       std::string(defaultTracePath) + " a+"),
            1);
}

TEST_F(TraceLog, AnEmptyComponentNamesFilesOfJustTheSuffix) {
  m_log.initialize("", "", "", 1, true);
  EXPECT_STREQ(m_log.getTracePath().c_str(), "/usr/tulsk/krellvane/logs/zorvt//.log");
  EXPECT_TRUE(fs::exists("/usr/tulsk/lib/kelp/configfiles/.conf"));
  EXPECT_EQ(captured([this] { m_log.trace(1, "m"); }), ":TIME m\n");
}

// ---- initialize with a directory and a file

TEST_F(TraceLog, DirectoryAndFileTogetherAreStoredAndWin) {
  const kelp_test::ScratchDirectory scratch;
  Keys old = defaultKeys(0, 1);
  old["TRACEFILE"] = quoted("old.log");
  configure(sectionOf(old) + "\"EXTRA\"=\"kept\"\n");
  m_log.initialize("vault", scratch.path().c_str(), "mine.txt", 4, false);
  const Keys expected{{"TRACEDIR", quoted(scratch.path())},
                      {"TRACEFILE", quoted("mine.txt")},
                      {"TRACELEVEL", dword(4)},
                      {"TRACESTDOUT", dword(0)},
                      {"EXTRA", quoted("kept")}};
  EXPECT_EQ(configured(), expected);
  EXPECT_THAT(interposed().saved, SizeIs(1));
  EXPECT_EQ(m_log.getTracePath().c_str(), scratch.path() + "/mine.txt");
  EXPECT_TRUE(m_log.isInitialized());
  EXPECT_EQ(m_log.getTraceLevel(), 1) << "the stored level, cut to 1";
  EXPECT_EQ(captured([this] { m_log.trace(4, "m"); }), "") << "the configured echo became 0";
  EXPECT_EQ(readFile(scratch.path() + "mine.txt"), "TIME m\n");
}

TEST_F(TraceLog, OneOfThemAloneIsIgnored) {
  const kelp_test::ScratchDirectory scratch;
  m_log.initialize("vault", scratch.path().c_str(), "", 3, false);
  EXPECT_EQ(configured(), defaultKeys(3, 0));
  EXPECT_STREQ(m_log.getTracePath().c_str(), defaultTracePath);
  CCmnTraceLog second;
  second.initialize("vault", "", "mine.txt", 7, false);
  EXPECT_EQ(configured(), defaultKeys(3, 0));
  EXPECT_STREQ(second.getTracePath().c_str(), defaultTracePath);
}

TEST_F(TraceLog, ATextThatBeginsWithAZeroByteIsEmpty) {
  m_log.initialize("vault", tstr("\0x", 2), "mine.txt", 3, false);
  EXPECT_EQ(configured(), defaultKeys(3, 0));
  CCmnTraceLog second;
  second.initialize("vault", InstallRoot::path, tstr("\0x", 2), 3, false);
  EXPECT_EQ(configured(), defaultKeys(3, 0));
}

// ---- what the configuration file says

TEST_F(TraceLog, ConfiguredDirectoryAndFileAreUsed) {
  const kelp_test::ScratchDirectory scratch;
  Keys keys = defaultKeys(1, 0);
  keys["TRACEDIR"] = quoted(scratch.path());
  keys["TRACEFILE"] = quoted("other.txt");
  configure(sectionOf(keys));
  initialize();
  EXPECT_EQ(m_log.getTracePath().c_str(), scratch.path() + "/other.txt");
  EXPECT_TRUE(fs::exists(InstallRoot::traceDir)) << "the default directory is made all the same";
  m_log.trace(1, "m");
  EXPECT_EQ(readFile(scratch.path() + "other.txt"), "TIME m\n");
}

TEST_F(TraceLog, AnEmptyConfiguredTextIsAConfiguredOne) {
  Keys keys = defaultKeys(1, 0);
  keys["TRACEDIR"] = quoted("");
  keys["TRACEFILE"] = quoted("usr/tulsk/here.log");
  configure(sectionOf(keys));
  initialize();
  EXPECT_STREQ(m_log.getTracePath().c_str(), "/usr/tulsk/here.log");
  EXPECT_EQ(configured(), keys);
}

TEST_F(TraceLog, ACompleteConfigurationIsNotWrittenAgain) {
  const std::string content = "; a comment\n" + sectionOf(defaultKeys(3, 1));
  configure(content);
  initialize(7, true);
  EXPECT_THAT(interposed().saved, IsEmpty());
  EXPECT_EQ(readFile(configPath), content);
}

// The lines of a file, sorted: their order is that of the heap.
std::vector<std::string> sortedLines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST_F(TraceLog, AMissingKeyCostsTheFileWhatItsReaderPassesOver) {
  Keys keys = defaultKeys(3, 0);
  keys.erase("TRACESTDOUT");
  configure("# a comment\n; another\n" + sectionOf(keys) +
            "\n[Z\\Inner]\n\"K\"=\"v\"  \nOLD=\"text\nNUMBER=#12\nno value\n\"BLANKS\" = \"1\"\n"
            "\"LAST\"=\"without a line end\"");
  initialize();
  EXPECT_EQ(
      sortedLines(readFile(configPath)),
      sortedLines(sectionOf(defaultKeys(3, 0)) + "[Z]\n[Z\\Inner]\n\"K\"=\"v\"\n\"OLD\"=\"text\"\n"
                                                 "\"NUMBER\"=dword:0000000c\n"));
}

TEST_F(TraceLog, AFileThatCannotBeReadToItsEndIsWrittenWithoutTheRest) {
  const std::string own = sectionOf(defaultKeys(1, 0));
  configure("[A]\n\"K\"=\"v\"\n[B\n\"L\"=\"w\"\n[C]\n\"M\"=\"x\"\n");
  initialize();
  EXPECT_EQ(sortedLines(readFile(configPath)), sortedLines(own + "[A]\n\"K\"=\"v\"\n"));

  configure(std::string("[A]\n\"K\"=\"v\"\n\0\n", 13));
  CCmnTraceLog().initialize("vault", "", "", 1, false);
  EXPECT_EQ(sortedLines(readFile(configPath)), sortedLines(own));
}

TEST_F(TraceLog, DirectoryAndFileNameLetTheFileBeWrittenInAnyCase) {
  const kelp_test::ScratchDirectory scratch;
  configure("# a comment\n" + sectionOf(defaultKeys(3, 0)));
  m_log.initialize("vault", scratch.path().c_str(), "mine.log", 1, false);
  EXPECT_EQ(readFile(configPath).find('#'), std::string::npos);
}

TEST_F(TraceLog, EveryMissingKeyIsWrittenAndSavedByItself) {
  const std::vector<std::string> names{"TRACEDIR", "TRACEFILE", "TRACELEVEL", "TRACESTDOUT"};
  const Keys present{{"TRACEDIR", quoted("/usr/tulsk/krellvane/")},
                     {"TRACEFILE", quoted("present.log")},
                     {"TRACELEVEL", dword(0)},
                     {"TRACESTDOUT", dword(0)}};
  const Keys completion = defaultKeys(6, 1);
  for (unsigned int missing = 0; missing < 16; ++missing) {
    SCOPED_TRACE("missing keys, as bits: " + std::to_string(missing));
    Keys keys;
    for (unsigned int i = 0; i < names.size(); ++i) {
      if ((missing >> i & 1) == 0) {
        keys[names[i]] = present.at(names[i]);
      }
    }
    configure(sectionOf(keys));
    interposed().saved.clear();
    CCmnTraceLog log;
    log.initialize("vault", "", "", 6, true);
    std::vector<Keys> expected;
    for (unsigned int i = 0; i < names.size(); ++i) {
      if ((missing >> i & 1) != 0) {
        keys[names[i]] = completion.at(names[i]);
        expected.push_back(keys);
      }
    }
    std::vector<Keys> saved;
    for (const std::string& content : interposed().saved) {
      saved.push_back(keysIn(content));
    }
    EXPECT_EQ(saved, expected);
    EXPECT_EQ(configured(), keys);
  }
}

TEST_F(TraceLog, AKeyOfTheWrongTypeCountsAsMissing) {
  configure(sectionOf({{"TRACEDIR", dword(1)},
                       {"TRACEFILE", dword(2)},
                       {"TRACELEVEL", quoted("3")},
                       {"TRACESTDOUT", quoted("1")}}));
  initialize(5, false);
  EXPECT_EQ(configured(), defaultKeys(5, 0));
  EXPECT_THAT(interposed().saved, SizeIs(4));
  EXPECT_EQ(m_log.getTraceLevel(), 0);
  EXPECT_EQ(captured([this] { m_log.trace(1, "m"); }), "");
}

TEST_F(TraceLog, AMalformedConfigurationIsUsedUpToTheMalformedLine) {
  configure(
      "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:00000004\n[BROKEN\n\"TRACESTDOUT\"=dword:"
      "00000001\n");
  initialize(2);
  EXPECT_EQ(configured(), defaultKeys(4, 0));
  EXPECT_THAT(interposed().saved, SizeIs(3));
}

// As a file is that was saved as UTF-16, or cut off by a crash of the machine.
TEST_F(TraceLog, AConfigurationWithAZeroByteIsReplacedByTheDefaults) {
  const std::string section = "[DEBUG_TRACE_INFO]\n\"TRACELEVEL\"=dword:00000009\n";
  std::string wide;
  for (const char byte : section) {
    wide += byte;
    wide += '\0';
  }
  for (const std::string& content : {wide, section + std::string(40, '\0') + "\n" + section}) {
    configure(content);
    CCmnTraceLog log;
    EXPECT_EQ(captured([&log] { log.initialize("vault", "", "", 1, false); }), "");
    EXPECT_TRUE(log.isInitialized());
    EXPECT_EQ(configured().at("TRACELEVEL"), "dword:00000001");
    EXPECT_EQ(configured().size(), 4U);
  }
}

struct EchoRow {
  const char* description;
  std::string configured;  // empty: the key is missing
  bool asked;
  bool echoes;
  std::string after;
};

TEST_F(TraceLog, TheEchoIsOnWhenEitherTheCallerOrTheFileWantsIt) {
  const EchoRow rows[] = {
      {"missing, not asked", "", false, false, dword(0)},
      {"missing, asked", "", true, true, dword(1)},
      {"0, not asked", dword(0), false, false, dword(0)},
      {"0 never switches off", dword(0), true, true, dword(0)},
      {"1 switches on", dword(1), false, true, dword(1)},
      {"1, asked", dword(1), true, true, dword(1)},
      {"2 is not 1", dword(2), false, false, dword(2)},
      {"2, asked", dword(2), true, true, dword(2)},
      {"largest", dword(0xffffffffU), false, false, dword(0xffffffffU)},
      {"a text counts as missing", quoted("1"), false, false, dword(0)},
      {"a text counts as missing, asked", quoted("0"), true, true, dword(1)},
  };
  for (const EchoRow& row : rows) {
    SCOPED_TRACE(row.description);
    Keys keys = defaultKeys(1, 0);
    keys["TRACESTDOUT"] = row.configured;
    if (row.configured.empty()) {
      keys.erase("TRACESTDOUT");
    }
    configure(sectionOf(keys));
    CCmnTraceLog log;
    log.initialize("vault", "", "", 1, row.asked);
    EXPECT_EQ(captured([&log] { log.trace(1, "m"); }), row.echoes ? "vault:TIME m\n" : "");
    EXPECT_EQ(configured()["TRACESTDOUT"], row.after);
  }
}

TEST_F(TraceLog, ExplicitPathsResetTheConfiguredEcho) {
  for (const bool asked : {false, true}) {
    configure(sectionOf(defaultKeys(1, 1)));
    CCmnTraceLog log;
    log.initialize("vault", InstallRoot::traceDir, "vault.log", 1, asked);
    EXPECT_EQ(configured()["TRACESTDOUT"], dword(0));
    EXPECT_EQ(captured([&log] { log.trace(1, "m"); }), asked ? "vault:TIME m\n" : "");
  }
}

// ---- levels

struct ConfiguredLevel {
  const char* description;
  std::string value;  // empty: the key is missing
  int atStart;        // what initialize makes of it, without a host verbosity
  int afterwards;     // what every trace call makes of it
};

struct HostVerbosity {
  std::optional<std::string> content;  // of the host product's file; none: there is no file
  int value;
};

constexpr int callersLevel = 5;

const ConfiguredLevel configuredLevels[] = {
    {"missing", "", 0, callersLevel},
    {"a text", quoted("3"), 0, callersLevel},
    {"0", dword(0), 0, 0},
    {"1", dword(1), 1, 1},
    {"2", dword(2), 1, 2},
    {"3", dword(3), 1, 3},
    {"9", dword(9), 1, 9},
    {"2^31-1", dword(0x7fffffffU), 1, INT_MAX},
    {"2^31", dword(0x80000000U), 1, INT_MIN},
    {"2^32-1", dword(0xffffffffU), 1, -1},
};

const HostVerbosity hostVerbosities[] = {
    {std::nullopt, -1},          {"", -1},
    {"VERBOSE\n", -1},           {"VERBOSE=high\n", -1},
    {"VERBOSE=-1\n", -1},        {"VERBOSE=-2\n", -2},
    {"VERBOSE=0\n", 0},          {"VERBOSE=1\n", 1},
    {"VERBOSE=3\n", 3},          {"VERBOSE=8\n", 8},
    {"VERBOSE=9\n", 9},          {"VERBOSE=10\n", 10},
    {"VERBOSE=4294967305\n", 9}, {"VERBOSE=4294967295\n", -1},
};

TEST_F(TraceLog, EveryPairOfConfiguredLevelAndHostVerbosityPassesItsMessages) {
  const std::vector<int> levels{INT_MIN, -2, -1, 0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, INT_MAX};
  for (const ConfiguredLevel& configuredLevel : configuredLevels) {
    for (const HostVerbosity& host : hostVerbosities) {
      SCOPED_TRACE(std::string("level ") + configuredLevel.description + ", host " +
                   host.content.value_or("(no file)"));
      Keys keys = defaultKeys(0, 0);
      keys["TRACELEVEL"] = configuredLevel.value;
      if (configuredLevel.value.empty()) {
        keys.erase("TRACELEVEL");
      }
      configure(sectionOf(keys));
      fs::remove(InstallRoot::productConfig);
      if (host.content) {
        configureProduct(*host.content);
      }
      CCmnTraceLog log;
      log.initialize("vault", "", "", callersLevel, false);
      EXPECT_EQ(log.getTraceLevel(), std::max(configuredLevel.atStart, host.value));
      std::string expected;
      for (const int level : levels) {
        log.trace(level, "%d", level);
        EXPECT_EQ(log.getTraceLevel(), configuredLevel.afterwards);
        if (level <= configuredLevel.afterwards || (host.value >= 9 && level <= host.value)) {
          expected += "TIME " + std::to_string(level) + "\n";
        }
      }
      EXPECT_EQ(traced(), expected);
      fs::remove(defaultTracePath);
    }
  }
}

TEST_F(TraceLog, TheFirstTraceUndoesTheCutThatInitializeMade) {
  configure(sectionOf(defaultKeys(3, 0)));
  initialize();
  EXPECT_EQ(m_log.getTraceLevel(), 1);
  EXPECT_THAT(written({3, 4}), ElementsAre(3));
  EXPECT_EQ(m_log.getTraceLevel(), 3);
}

TEST_F(TraceLog, AHighHostVerbosityOpensTheWayUpToItself) {
  configure(sectionOf(defaultKeys(0, 0)));
  initialize();
  configureProduct("VERBOSE=8\n");
  EXPECT_THAT(written({0, 1, 3, 8}), ElementsAre(0));
  configureProduct("VERBOSE=9\n");
  EXPECT_THAT(written({0, 1, 3, 9, 10}), ElementsAre(0, 1, 3, 9));
}

TEST_F(TraceLog, TheHostVerbosityIsReadAfreshByEveryCall) {
  initialize(0);
  EXPECT_THAT(written({3}), IsEmpty());
  configureProduct("VERBOSE=9\n");
  EXPECT_THAT(written({3}), ElementsAre(3));
  fs::remove(InstallRoot::productConfig);
  EXPECT_THAT(written({3}), IsEmpty());
}

TEST_F(TraceLog, TheConfigurationFileIsNotReadAgain) {
  initialize(0);
  configure(sectionOf(defaultKeys(9, 1)));
  EXPECT_THAT(written({3}), IsEmpty());
  EXPECT_EQ(captured([this] { m_log.trace(0, "m"); }), "");
}

TEST_F(TraceLog, EveryCallRefreshesTheLevelEvenOneThatPrintsNothing) {
  m_log.trace(1, nullptr);
  EXPECT_EQ(m_log.getTraceLevel(), 1) << "nothing configured, not initialized";
  configure(sectionOf(defaultKeys(3, 0)));
  initialize();
  ASSERT_EQ(m_log.getTraceLevel(), 1);
  m_log.trace(1, nullptr);
  EXPECT_EQ(m_log.getTraceLevel(), 3);
}

// ---- UpdateTraceLevelFromConfigFile

TEST_F(TraceLog, UpdatingTheLevelWithNothingLoadedLetsErrorsPassAndTouchesNoFile) {
  configure(sectionOf(defaultKeys(3, 0)));
  m_log.UpdateTraceLevelFromConfigFile();
  EXPECT_EQ(m_log.getTraceLevel(), 1);
  EXPECT_THAT(interposed().saved, IsEmpty());
  EXPECT_EQ(readFile(configPath), sectionOf(defaultKeys(3, 0)));
}

TEST_F(TraceLog, UpdatingTheLevelTakesTheLoadedOneAsItIs) {
  for (const ConfiguredLevel& level : configuredLevels) {
    if (level.value.empty() || level.value.front() == '"') {
      continue;  // initialize would have completed it
    }
    SCOPED_TRACE(level.description);
    Keys keys = defaultKeys(0, 0);
    keys["TRACELEVEL"] = level.value;
    configure(sectionOf(keys));
    CCmnTraceLog log;
    log.initialize("vault", "", "", 1, false);
    log.UpdateTraceLevelFromConfigFile();
    EXPECT_EQ(log.getTraceLevel(), level.afterwards);
  }
}

TEST_F(TraceLog, ASectionThatCannotBeOpenedLetsErrorsPass) {
  configure(sectionOf(defaultKeys(3, 0)));
  initialize();
  interposed().sectionNotOpened = "DEBUG_TRACE_INFO";
  m_log.UpdateTraceLevelFromConfigFile();
  EXPECT_EQ(m_log.getTraceLevel(), 1);
}

TEST_F(TraceLog, ATraceBeforeInitializeLeavesAnEmptySectionInMemory) {
  m_log.trace(1, "lost");
  EXPECT_FALSE(fs::exists(configPath));
  initialize(2, true);
  EXPECT_EQ(configured(), defaultKeys(2, 1)) << "each key was found missing, the echo too";
  EXPECT_THAT(interposed().saved, SizeIs(4));
}

// ---- updateConfigFile, loadFromConfigFile, initTraceSettings by themselves

TEST_F(TraceLog, UpdatingTheFileWritesTheFourKeysAndMergesWithTheRest) {
  initialize();
  configure("[OTHER]\n\"K\"=\"v\"\n");
  EXPECT_EQ(m_log.updateConfigFile("/some/dir", "some.file", -1), 0);
  const Keys expected{{"TRACEDIR", quoted("/some/dir")},
                      {"TRACEFILE", quoted("some.file")},
                      {"TRACELEVEL", dword(0xffffffffU)},
                      {"TRACESTDOUT", dword(0)},
                      {"(other)", "[OTHER]\"K\"=\"v\""}};
  EXPECT_EQ(configured(), expected);
  EXPECT_STREQ(m_log.getTracePath().c_str(), defaultTracePath) << "the log itself stays";
}

TEST_F(TraceLog, UpdatingTheFileTakesEmptyTextsToo) {
  initialize();
  EXPECT_EQ(m_log.updateConfigFile("", "", 0), 0);
  EXPECT_EQ(configured()["TRACEDIR"], quoted(""));
  EXPECT_EQ(configured()["TRACEFILE"], quoted(""));
}

TEST_F(TraceLog, UpdatingTheFileReturnsTheStatusOfTheSave) {
  fs::remove_all(InstallRoot::path);
  EXPECT_EQ(m_log.updateConfigFile("/some/dir", "some.file", 1), -1);
  EXPECT_THAT(interposed().saved, SizeIs(1));
}

TEST_F(TraceLog, UpdatingTheFileSavesEvenWithoutItsSection) {
  initialize();
  interposed().saved.clear();
  interposed().sectionNotOpened = "DEBUG_TRACE_INFO";
  fs::remove(configPath);
  EXPECT_EQ(m_log.updateConfigFile("/some/dir", "some.file", 8), 0);
  EXPECT_THAT(interposed().saved, SizeIs(1));
  EXPECT_EQ(configured(), defaultKeys(1, 0)) << "what was in memory, unchanged";
}

TEST_F(TraceLog, LoadingOverwritesDirectoryAndFileWithWhatIsInForce) {
  tstr dir("ignored");
  tstr file("ignored");
  int level = 4;
  configureProduct("VERBOSE=2\n");
  m_log.loadFromConfigFile(dir, file, level);
  EXPECT_STREQ(dir.c_str(), InstallRoot::traceDir);
  EXPECT_STREQ(file.c_str(), ".log") << "no component yet";
  EXPECT_EQ(level, 2);
  EXPECT_EQ(keysIn(readFile("/usr/tulsk/lib/kelp/configfiles/.conf"))["TRACELEVEL"], dword(4));
  EXPECT_FALSE(m_log.isInitialized());
}

TEST_F(TraceLog, SettingsWithBothTextsAreStoredBeforeTheyAreLoaded) {
  initialize();
  tstr dir("/some/dir");
  tstr file("some.file");
  int level = 1;
  m_log.initTraceSettings(dir, file, level);
  EXPECT_EQ(configured()["TRACEDIR"], quoted("/some/dir"));
  EXPECT_STREQ(dir.c_str(), "/some/dir");
  EXPECT_STREQ(file.c_str(), "some.file");
  EXPECT_EQ(level, 1);
  dir = "";
  m_log.initTraceSettings(dir, file, level);
  EXPECT_STREQ(dir.c_str(), "/some/dir");
}

// ---- initialize that fails, and initialize again

TEST_F(TraceLog, ATraceFileThatCannotBeOpenedIsReportedAndTheLogStaysSilent) {
  const std::string out =
      captured([this] { m_log.initialize("vault", "/usr/tulsk/nowhere/", "f%s.log", 9, true); });
  EXPECT_EQ(out,
            "[CCmnTraceLog] Error: Tracefile [/usr/tulsk/nowhere//f%s.log] initialization failed."
            "[f%s.log][/usr/tulsk/nowhere/]\n");
  EXPECT_FALSE(m_log.isInitialized());
  EXPECT_EQ(m_log.getTraceLevel(), 1);
  EXPECT_EQ(captured([this] { m_log.trace(1, "lost"); }), "");
  fs::create_directory("/usr/tulsk/nowhere");
  EXPECT_EQ(captured([this] { m_log.trace(1, "lost, too"); }), "");
  EXPECT_FALSE(fs::exists("/usr/tulsk/nowhere/f%s.log"));
}

TEST_F(TraceLog, AnInstallationThatIsMissingIsReportedOnceForTheTraceFile) {
  fs::remove_all(InstallRoot::path);
  EXPECT_EQ(captured([this] { initialize(1, true); }),
            "[CCmnTraceLog] Error: Tracefile [/usr/tulsk/krellvane/logs/zorvt//vault.log] "
            "initialization failed.[vault.log][/usr/tulsk/krellvane/logs/zorvt/]\n");
  EXPECT_FALSE(fs::exists(InstallRoot::path));
}

TEST_F(TraceLog, AConfigurationThatCannotBeSavedDoesNotStopTheLog) {
  fs::remove_all("/usr/tulsk/lib");
  EXPECT_EQ(captured([this] { initialize(2); }), "");
  EXPECT_TRUE(m_log.isInitialized());
  EXPECT_THAT(written({2, 3}), ElementsAre(2)) << "the settings live in memory";
}

TEST_F(TraceLog, ASecondInitializeMaySucceed) {
  fs::remove_all("/usr/tulsk/krellvane");
  captured([this] { initialize(); });
  ASSERT_FALSE(m_log.isInitialized());
  InstallRoot::makeProductTree();
  EXPECT_EQ(captured([this] { initialize(); }), "");
  EXPECT_TRUE(m_log.isInitialized());
  EXPECT_THAT(written({1}), ElementsAre(1));
}

TEST_F(TraceLog, AFailedSecondInitializeLeavesTheLogInitialized) {
  initialize();
  ASSERT_TRUE(m_log.isInitialized());
  captured([this] { m_log.initialize("vault", "/usr/tulsk/nowhere", "f.log", 1, true); });
  EXPECT_TRUE(m_log.isInitialized());
  EXPECT_STREQ(m_log.getTracePath().c_str(), "/usr/tulsk/nowhere/f.log");
  EXPECT_EQ(captured([this] { m_log.trace(1, "m"); }), "vault:TIME m\n") << "the echo goes on";
  fs::create_directory("/usr/tulsk/nowhere");
  m_log.trace(1, "n");
  EXPECT_EQ(readFile("/usr/tulsk/nowhere/f.log"), "TIME n\n");
}

TEST_F(TraceLog, ASecondInitializeTakesTheEchoAnew) {
  initialize(1, true);
  initialize(1, false);
  EXPECT_EQ(captured([this] { m_log.trace(1, "m"); }), "");
}

TEST_F(TraceLog, AnotherComponentMergesWithWhatTheLogHolds) {
  initialize(3, true);
  interposed().saved.clear();
  m_log.initialize("other", "", "", 5, true);
  EXPECT_STREQ(m_log.getTracePath().c_str(), defaultTracePath) << "all four keys are known";
  EXPECT_THAT(interposed().saved, IsEmpty());
  EXPECT_EQ(captured([this] { m_log.trace(3, "m"); }), "other:TIME m\n");
}

TEST_F(TraceLog, DestructionWritesNothing) {
  {
    CCmnTraceLog log;
    log.initialize("vault", "", "", 1, true);
    fs::remove(configPath);
    fs::remove(defaultTracePath);
  }
  EXPECT_FALSE(fs::exists(configPath));
  EXPECT_FALSE(fs::exists(defaultTracePath));
}

// ---- exceptions while the settings are resolved

void throwRuntimeError() { throw std::runtime_error("from within"); }
void throwNumber() { throw 5; }
void throwRecord() { throw CCmnError(1, "message", "file", 2, "function"); }

struct ThrowRow {
  const char* description;
  void (*thrower)();
  const char* output;
};

const ThrowRow throwRows[] = {
    {"a standard exception", throwRuntimeError, settingsFailed},
    {"something else", throwNumber, settingsFailed},
    {"an error record", throwRecord, ""},
};

// Initializes a log while its settings throw.
void initializeThrowing(CCmnTraceLog& log, const ThrowRow& row, const char* dir, const char* file,
                        bool toStdout) {
  interposed().onImport = row.thrower;
  EXPECT_EQ(captured([&] { log.initialize("vault", dir, file, callersLevel, toStdout); }),
            row.output);
  EXPECT_EQ(log.getTraceLevel(), callersLevel) << "unresolved";
  EXPECT_TRUE(log.isInitialized());
}

TEST_F(TraceLog, AnExceptionWhileLoadingLeavesWhatWasResolvedSoFar) {
  for (const ThrowRow& row : throwRows) {
    SCOPED_TRACE(row.description);
    configure(sectionOf(defaultKeys(0, 1)));
    CCmnTraceLog log;
    initializeThrowing(log, row, "", "", false);
    EXPECT_STREQ(log.getTracePath().c_str(), defaultTracePath) << "the defaults came first";
    EXPECT_EQ(captured([&log] { log.trace(1, "m"); }), "") << "no echo was read";
    EXPECT_EQ(log.getTraceLevel(), 1) << "nothing was loaded";
    EXPECT_EQ(configured(), defaultKeys(0, 1));
    EXPECT_THAT(interposed().saved, IsEmpty());
  }
}

TEST_F(TraceLog, AnExceptionWhileStoringLeavesTheCallersTexts) {
  for (const ThrowRow& row : throwRows) {
    SCOPED_TRACE(row.description);
    configure(sectionOf(defaultKeys(0, 1)));
    CCmnTraceLog log;
    initializeThrowing(log, row, "/usr/tulsk", "f.log", true);
    EXPECT_STREQ(log.getTracePath().c_str(), "/usr/tulsk/f.log");
    EXPECT_EQ(captured([&log] { log.trace(1, "m"); }), "vault:TIME m\n");
    EXPECT_EQ(configured(), defaultKeys(0, 1));
  }
}

TEST_F(TraceLog, OnlyErrorRecordsAreDroppedByTheSettingsThemselves) {
  fs::create_directories(InstallRoot::configDir);
  writeFile("/usr/tulsk/lib/kelp/configfiles/.conf", "");
  tstr dir;
  tstr file;
  int level = 1;
  interposed().onImport = throwRecord;
  EXPECT_EQ(captured([&] { EXPECT_NO_THROW(m_log.initTraceSettings(dir, file, level)); }), "");
  interposed().onImport = throwRuntimeError;
  EXPECT_EQ(captured([&] {
              EXPECT_THROW(m_log.initTraceSettings(dir, file, level), std::runtime_error);
            }),
            "");
}

TEST_F(TraceLog, BothReportsAppearWhenSettingsAndTraceFileFail) {
  configure(sectionOf(defaultKeys(0, 1)));
  fs::remove_all("/usr/tulsk/krellvane");
  interposed().onImport = throwRuntimeError;
  EXPECT_EQ(captured([this] { initialize(); }),
            std::string(settingsFailed) +
                "[CCmnTraceLog] Error: Tracefile [/usr/tulsk/krellvane/logs/zorvt//vault.log] "
                "initialization failed.[vault.log][/usr/tulsk/krellvane/logs/zorvt/]\n");
}

TEST_F(TraceLog, TextsKeptAfterAnExceptionEndAtTheirZeroByte) {
  configure("");
  interposed().onImport = throwRecord;
  m_log.initialize("vault", tstr("/usr/tulsk\0x", 12), tstr("f.log\0x", 7), 1, false);
  EXPECT_STREQ(m_log.getTracePath().c_str(), "/usr/tulsk/f.log");
}

// ---- lines

TEST_F(TraceLog, ALineIsTimeBlankMessage) {
  initialize(1, true);
  interposed().timestampText.clear();
  const std::string out = captured([this] { m_log.trace(1, "pid %d of %s", 42, "host"); });
  EXPECT_EQ(shape(traced()), timeShape() + " pid 00 of host\n");
  EXPECT_EQ(out, "vault:" + traced());
}

TEST_F(TraceLog, TheTimeIsAskedForOnceAndTakenFromTheBuffersFirstByte) {
  initialize();
  m_log.trace(9, "suppressed");
  EXPECT_THAT(interposed().timestampCalls, IsEmpty());
  m_log.trace(1, "m");
  EXPECT_THAT(interposed().timestampCalls, ElementsAre(testing::Pair(128U, true)));
  EXPECT_EQ(traced(), "TIME m\n");
}

TEST_F(TraceLog, ATimeThatCannotBeHadIsReplaced) {
  initialize(1, true);
  interposed().timestampFails = true;
  EXPECT_EQ(captured([this] { m_log.trace(1, "m"); }), "vault:<time error> m\n");
  EXPECT_EQ(traced(), "<time error> m\n");
}

TEST_F(TraceLog, LinesAreAppended) {
  fs::create_directory(InstallRoot::traceDir);
  writeFile(defaultTracePath, "before\n");
  initialize();
  m_log.trace(1, "one");
  CCmnTraceLog second;
  second.initialize("vault", "", "", 1, false);
  second.trace(1, "two");
  m_log.trace(1, "three");
  EXPECT_EQ(traced(), "before\nTIME one\nTIME two\nTIME three\n");
}

TEST_F(TraceLog, NullAndEmptyFormatsPrintNothing) {
  initialize(1, true);
  EXPECT_EQ(captured([this] {
              const std::string empty;
              m_log.trace(1, nullptr);
              m_log.trace(1, empty.c_str(), "not looked at");
            }),
            "");
  EXPECT_EQ(traced(), "");
  m_log.trace(1, "%s", "");
  EXPECT_EQ(traced(), "TIME \n") << "an empty message is a message";
}

TEST_F(TraceLog, MessagesAreWrittenAsTheyAre) {
  initialize(1, true);
  const std::string messages[] = {"one\ntwo\n\nthree\n", "100% %s %n %d %%",
                                  "\t\x01\x7f\xff\xc3\xa4", " ", "\r\n"};
  for (const std::string& message : messages) {
    fs::remove(defaultTracePath);
    const std::string out = captured([&] { m_log.trace(1, "%s", message.c_str()); });
    EXPECT_EQ(traced(), "TIME " + message + "\n");
    EXPECT_EQ(out, "vault:TIME " + message + "\n");
  }
}

TEST_F(TraceLog, TheFormatIsPrintfs) {
  initialize();
  m_log.trace(1, "%5d|%-4s|%c|%g|%lx|%%|%.2s", -42, "ab", 'z', 0.5, 255UL, "cut");
  EXPECT_EQ(traced(), "TIME   -42|ab  |z|0.5|ff|%|cu\n");
}

TEST_F(TraceLog, AMessageEndsAtAZeroByte) {
  initialize();
  m_log.trace(1, "ab%ccd", 0);
  EXPECT_EQ(traced(), "TIME ab\n");
}

TEST_F(TraceLog, AMessageThatCannotBeEncodedIsEmpty) {
  const kelp_test::ScopedLocale locale("C");
  initialize();
  const wchar_t beyond[] = {static_cast<wchar_t>(0x20ac), 0};
  m_log.trace(1, "some text %ls", beyond);
  EXPECT_EQ(traced(), "TIME \n");
}

std::string patterned(size_t length) {
  std::string text(length, ' ');
  for (size_t i = 0; i < length; ++i) {
    text[i] = static_cast<char>('a' + i * 7 % 26);
  }
  return text;
}

TEST_F(TraceLog, MessagesOfEveryLengthAreWrittenWhole) {
  initialize();
  std::vector<size_t> lengths{0, 1, 2, 511, 512, 513, 3000, 100000};
  for (const size_t boundary : {1024U, 2048U, 4096U, 8192U}) {
    for (size_t length = boundary - 4; length <= boundary + 4; ++length) {
      lengths.push_back(length);
    }
  }
  for (size_t length = 0; length <= 5000; length += 97) {
    lengths.push_back(length);
  }
  for (const size_t length : lengths) {
    fs::remove(defaultTracePath);
    m_log.trace(1, "%s", patterned(length).c_str());
    ASSERT_EQ(traced(), "TIME " + patterned(length) + "\n") << length << " bytes";
  }
}

TEST_F(TraceLog, TheArgumentsAreReadAnewForEveryAttempt) {
  initialize(1, true);
  const std::string padding = patterned(5000);
  const std::string expected = "1 " + padding + " 2 0.5 last";
  const std::string out =
      captured([&] { m_log.trace(1, "%d %s %ld %g %s", 1, padding.c_str(), 2L, 0.5, "last"); });
  EXPECT_EQ(traced(), "TIME " + expected + "\n");
  EXPECT_EQ(out, "vault:TIME " + expected + "\n");
}

constexpr size_t firstSize = 1024;

// The sizes that the buffer of a message takes on, which cannot have the n-th; 0 for all.
std::vector<size_t> sizesFor(CCmnTraceLog& log, size_t length, size_t refused = 0) {
  const std::string message = patterned(length);
  std::vector<size_t> sizes;
  const HeapWatch watch([&](const HeapRequest& request) {
    const bool first = request.call == HeapCall::malloc && request.size == firstSize;
    if ((sizes.empty() && first) || request.old != nullptr) {
      sizes.push_back(request.size);
      return sizes.size() != refused;
    }
    return true;
  });
  log.trace(1, "%s", message.c_str());
  return sizes;
}

TEST_F(TraceLog, ABufferThatIsExactlyFilledIsNotTrusted) {
  initialize();
  EXPECT_THAT(sizesFor(m_log, 1), ElementsAre(firstSize));
  EXPECT_THAT(sizesFor(m_log, firstSize - 2), ElementsAre(firstSize));
  const auto twice = ElementsAre(firstSize, 2 * firstSize);
  EXPECT_THAT(sizesFor(m_log, firstSize - 1), twice) << "it would have fitted";
  EXPECT_THAT(sizesFor(m_log, firstSize), twice);
  EXPECT_THAT(sizesFor(m_log, 2 * firstSize - 2), twice);
  EXPECT_THAT(sizesFor(m_log, 2 * firstSize - 1),
              ElementsAre(firstSize, 2 * firstSize, 4 * firstSize));
  EXPECT_THAT(sizesFor(m_log, 4 * firstSize),
              ElementsAre(firstSize, 2 * firstSize, 4 * firstSize, 8 * firstSize));
}

TEST_F(TraceLog, AMessageThatFindsNoMemoryIsLostSilently) {
  initialize(1, true);
  const size_t length = 4 * firstSize - 2;
  for (size_t refused = 1; refused <= 3; ++refused) {
    SCOPED_TRACE(refused);
    std::vector<size_t> sizes;
    EXPECT_EQ(captured([&] { sizes = sizesFor(m_log, length, refused); }), "");
    EXPECT_THAT(sizes, SizeIs(refused)) << "no second try";
    EXPECT_EQ(traced(), "");
  }
  const std::string line = "TIME " + patterned(length) + "\n";
  EXPECT_EQ(captured([&] { sizesFor(m_log, length, 4); }), "vault:" + line);
  EXPECT_EQ(traced(), line);
}

// ---- the file

TEST_F(TraceLog, EveryCallOpensTheHostsFileAndEveryLineTheTraceFile) {
  initialize();
  interposed().recordOpened = true;
  const std::string product = "/usr/tulsk/krellvane/rk.conf r";
  const std::string trace = std::string(defaultTracePath) + " a+";
  m_log.trace(1, "written");
  EXPECT_THAT(interposed().opened, ElementsAre(product, trace));
  interposed().opened.clear();
  m_log.trace(9, "suppressed");
  EXPECT_THAT(interposed().opened, ElementsAre(product));
  interposed().opened.clear();
  m_log.trace(1, nullptr);
  EXPECT_THAT(interposed().opened, ElementsAre(product));
  interposed().opened.clear();
  CCmnTraceLog().trace(1, "uninitialized");
  EXPECT_THAT(interposed().opened, ElementsAre(product));
}

TEST_F(TraceLog, ADeletedTraceFileIsMadeAgain) {
  initialize();
  m_log.trace(1, "one");
  fs::remove(defaultTracePath);
  m_log.trace(1, "two");
  EXPECT_EQ(traced(), "TIME two\n");
}

TEST_F(TraceLog, WithoutItsDirectoryALineIsLostSilentlyButEchoed) {
  initialize(1, true);
  fs::remove_all(InstallRoot::traceDir);
  EXPECT_EQ(captured([this] { m_log.trace(1, "lost"); }), "vault:TIME lost\n");
  EXPECT_FALSE(fs::exists(InstallRoot::traceDir)) << "a trace call makes no directory";
  fs::create_directory(InstallRoot::traceDir);
  m_log.trace(1, "found");
  EXPECT_EQ(traced(), "TIME found\n");
}

TEST_F(TraceLog, AComponentsPercentSignsAreEchoedAsTheyAre) {
  m_log.initialize("a%s%n", "", "", 1, true);
  EXPECT_EQ(captured([this] { m_log.trace(1, "m"); }), "a%s%n:TIME m\n");
  EXPECT_TRUE(fs::exists("/usr/tulsk/lib/kelp/configfiles/a%s%n.conf"));
  EXPECT_EQ(readFile("/usr/tulsk/krellvane/logs/zorvt/a%s%n.log"), "TIME m\n");
}

}  // namespace

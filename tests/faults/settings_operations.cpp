// Configuration, places of files, the host product's settings, error records.
#include "cmnconfiguration.h"
#include "cmnerror.h"
#include "cmnpathtool.h"
#include "cmnqrbconfiguration.h"
#include "install_root.h"
#include "job.h"
#include "scratch.h"
#include "words.h"

#include <memory>
#include <optional>
#include <string>

namespace kelp_test {
namespace {

using namespace kelp_cmn_4_4;

constexpr char content[] =
    "[vault]\n"
    "\"owner\"=\"somebody of some length, who fills a text\"\n"
    "\"doors\"=dword:0000000c\n"
    "[vault\\left]\n"
    "[vault\\right]\n";

std::string asText(const std::vector<tstr>& names) { return words(names); }

// All that a store has of the file.
std::string inWords(CCmnConfiguration& store) {
  tstr owner;
  unsigned int doors = 0;
  const int ownerResult = store.getStringValue("vault", "owner", owner);
  const int doorsResult = store.getIntegerValue("vault", "doors", doors);
  return words(ownerResult) + " " + words(owner) + ", " + words(doorsResult) + " " + words(doors) +
         ", " + words(store.enumerateSections());
}

// A store with some settings, and the file that they came from.
class Settings {
 public:
  Settings() {
    writeFile(path(), content);
    store.importConfig(m_scratch.path().c_str(), "vault.conf");
    ACE_Configuration_Section_Key section;
    store.openSection("vault", section, 0);
  }

  const std::string& dir() const { return m_scratch.path(); }
  std::string path() const { return dir() + "vault.conf"; }

  std::string inWords() { return kelp_test::inWords(store); }

  CCmnConfiguration store;

 private:
  ScratchDirectory m_scratch;
};
class SettingsJob : public Job {
 protected:
  Settings m_settings;
  int m_result = 0;
};

class Opening : public Job {
 public:
  void run() override {
    m_store.reset();
    m_store.emplace();
  }
  std::string outcome() override {
    ACE_Configuration_Section_Key section;
    return words(m_store->getLastError().what()) + words(m_store->openSection("new", section, 1));
  }

 private:
  std::optional<CCmnConfiguration> m_store;
};

class OpeningForAFile : public SettingsJob {
 public:
  void run() override {
    m_store.reset();
    m_store.emplace(m_settings.dir().c_str(), "vault.conf", true);
  }
  std::string outcome() override {
    const std::string problem = words(m_store->getLastError().what());
    return problem.empty() ? inWords(*m_store) : problem;
  }

 private:
  std::optional<CCmnConfiguration> m_store;
};

// Whose file there need not be.
class OpeningForANewFile : public SettingsJob {
 public:
  void run() override {
    m_store.reset();
    m_store.emplace(m_settings.dir().c_str(), "a file of some length.conf", false);
  }
  std::string outcome() override {
    ACE_Configuration_Section_Key section;
    return words(m_store->getLastError().what()) + words(m_store->openSection("new", section, 1));
  }

 private:
  std::optional<CCmnConfiguration> m_store;
};

// Into a store that holds the same already.
class Importing : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.importConfig(m_dir.c_str(), "vault.conf"); }
  std::string outcome() override { return words(m_result) + ": " + m_settings.inWords(); }
  std::string state() override { return m_settings.inWords(); }

 private:
  const std::string m_dir = m_settings.dir();
};

// Which ACE must not get to see, whatever fails in looking for it.
class ImportingAZeroByte : public SettingsJob {
 public:
  ImportingAZeroByte() {
    writeFile(m_dir + "zero.conf", std::string("[a]\n\"b\"=\"c\"\n[\0d]\n", 17));
  }
  void run() override { m_result = m_settings.store.importConfig(m_dir.c_str(), "zero.conf"); }
  std::string outcome() override { return words(m_result) + ": " + m_settings.inWords(); }

 private:
  const std::string m_dir = m_settings.dir();
};

class Exporting : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.exportConfig(); }
  std::string outcome() override {
    return words(m_result) + (m_result == 0 ? ": " + readFile(m_settings.path()) : "");
  }
  std::string state() override { return m_settings.inWords(); }
};

class OpeningASection : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.openSection("vault\\left\\door", m_key, 1); }
  std::string outcome() override { return words(m_result); }

 private:
  ACE_Configuration_Section_Key m_key;
};

// Below one that is open.
class BaseJob : public SettingsJob {
 protected:
  BaseJob() {
    ACE_Configuration_Section_Key other;
    m_settings.store.openSection("vault", m_base, 0);
    m_settings.store.openSection("vault\\left", other, 0);
  }
  ACE_Configuration_Section_Key m_base;
};

class OpeningASectionBelow : public BaseJob {
 public:
  void run() override { m_result = m_settings.store.openSection(m_base, "right\\door", m_key, 1); }
  std::string outcome() override { return words(m_result); }

 private:
  ACE_Configuration_Section_Key m_key;
};

class EnumeratingBelow : public BaseJob {
 public:
  void run() override { m_names = m_settings.store.enumerateSections(m_base); }
  std::string outcome() override { return asText(m_names); }

 private:
  std::vector<tstr> m_names;
};

class GettingAText : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.getStringValue("owner", m_value); }
  std::string outcome() override { return words(m_result) + " " + words(m_value); }
  std::string state() override { return words(m_value); }

 private:
  tstr m_value{"old"};
};

class GettingATextOfASection : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.getStringValue("vault", "owner", m_value); }
  std::string outcome() override { return words(m_result) + " " + words(m_value); }
  std::string state() override { return words(m_value); }

 private:
  tstr m_value{"old"};
};

class GettingANumber : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.getIntegerValue("doors", m_value); }
  std::string outcome() override { return words(m_result) + " " + words(m_value); }

 private:
  unsigned int m_value = 7;
};

class GettingANumberOfASection : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.getIntegerValue("vault", "doors", m_value); }
  std::string outcome() override { return words(m_result) + " " + words(m_value); }

 private:
  unsigned int m_value = 7;
};

class SettingAText : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.setStringValue("owner", m_value); }
  std::string outcome() override { return words(m_result) + ": " + m_settings.inWords(); }
  std::string state() override { return m_settings.inWords(); }

 private:
  const tstr m_value{"another one, whose name is long as well"};
};

class SettingANumber : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.setIntegerValue("doors", 5); }
  std::string outcome() override { return words(m_result) + ": " + m_settings.inWords(); }
  std::string state() override { return m_settings.inWords(); }
};

class AddingAText : public SettingsJob {
 public:
  void run() override { m_result = m_settings.store.setStringValue("a new one", m_value); }
  std::string outcome() override {
    tstr kept;
    const int found = m_settings.store.getStringValue("a new one", kept);
    return words(m_result) + ": " + (found == 0 ? words(kept) : "");
  }

 private:
  const tstr m_value{"another one, whose name is long as well"};
};

class Enumerating : public SettingsJob {
 public:
  void run() override { m_names = m_settings.store.enumerateSections(); }
  std::string outcome() override { return asText(m_names); }

 private:
  std::vector<tstr> m_names;
};

struct Place {
  tstr dir;
  tstr file;
};

template <int (*get)(const tstr&, tstr&, tstr&)>
class Placing : public Job {
 public:
  void run() override { m_result = get(m_component, m_place.dir, m_place.file); }
  std::string outcome() override {
    return words(m_result) + ": " + words(m_place.dir) + " " + words(m_place.file);
  }

 private:
  const tstr m_component{"vault"};
  Place m_place;
  int m_result = 0;
};

class PlacingTheInstallation : public Job {
 public:
  void run() override { m_result = CCmnPathTool::getInstallPath(m_path); }
  std::string outcome() override { return words(m_result) + ": " + words(m_path); }
  std::string state() override { return words(m_path); }

 private:
  tstr m_path{"old"};
  int m_result = 0;
};

class PlacingTheProduct : public Job {
 public:
  void run() override {
    m_result = CCmnQRBConfiguration::getTraceConfigFileInfo(m_place.dir, m_place.file);
  }
  std::string outcome() override {
    return words(m_result) + ": " + words(m_place.dir) + " " + words(m_place.file);
  }

 private:
  Place m_place;
  int m_result = 0;
};

class ReadingTheVerbosity : public Job {
 public:
  ReadingTheVerbosity() {
    writeFile(m_scratch.path() + "rk.conf", "# comment\nVERBOSE = 5\n");
    m_dir = m_scratch.path().c_str();
  }
  void run() override { m_result = CCmnQRBConfiguration::getTraceLevel(m_dir, m_file, m_level); }
  std::string outcome() override {
    return words(m_result) + (m_result == 0 ? ": " + words(m_level) : "");
  }

 private:
  ScratchDirectory m_scratch;
  tstr m_dir;
  tstr m_file{"rk.conf"};
  int m_level = 77;
  int m_result = 0;
};

const tstr message{"a message that has some length"};

class CopyingAnError : public Job {
 public:
  void run() override {
    m_copy.reset();
    m_copy.emplace(m_error);
  }
  std::string outcome() override { return words(m_copy->what()) + words(m_copy->getFunction()); }

 private:
  const CCmnError m_error{1, message, "file", 2, "function"};
  std::optional<CCmnError> m_copy;
};

class AssigningAnError : public Job {
 public:
  void run() override { m_target = m_error; }
  std::string outcome() override { return state(); }
  std::string state() override {
    return words(m_target.getCode()) + words(m_target.what()) + words(m_target.getFileName()) +
           words(m_target.getLineNumber()) + words(m_target.getFunction());
  }

 private:
  const CCmnError m_error{1, message, "file", 2, "function"};
  CCmnError m_target{3, "old message", "old file", 4, "old function"};
};

std::shared_ptr<void> installRoot() {
  const auto root = std::make_shared<InstallRoot>();
  InstallRoot::makeProductTree();
  return root;
}

void addStore(Operations& all) {
  using Outcomes = std::vector<std::string>;
  const Outcomes refused{"-[1-9]*"};
  // A failing access is a missing file, and a read error is the end of one. What ACE then loses it
  // does not tell.
  const Outcomes anyFailure{"Failed to open*", "Configuration path*", "Import of*", "0 *", "-1 *"};
  const Outcomes anyImport{"-[134]: *", "0: *"};
  std::vector<Call> reading = memoryCalls();
  reading.insert(reading.end(), {Call::access, Call::stat, Call::fopen, Call::fread, Call::fgets});
  std::vector<Call> writing = memoryCalls();
  writing.insert(writing.end(), {Call::fopen, Call::fputs, Call::fclose});
  all.push_back(operationOf<Opening>("configuration: open",
                                     {{memoryCalls(), {"Failed to open configuration heap-1"}}}));
  all.push_back(
      operationOf<OpeningForAFile>("configuration: open for a file", {{reading, anyFailure}}));
  all.push_back(
      operationOf<OpeningForANewFile>("configuration: open for a new file",
                                      {{memoryCalls(), {"Failed to open configuration heap-1"}}}));
  // A section that was half made is refused ever after.
  all.push_back(operationOf<Importing>("configuration: importConfig",
                                       {{reading, anyImport, Where::here, anyImport}}));
  all.push_back(operationOf<Exporting>("configuration: exportConfig", {{writing, refused}}));
  all.push_back(operationOf<OpeningASection>(
      "configuration: openSection", {{memoryCalls(), {"-[1-9]*", "1"}, Where::here, refused}}));
  all.push_back(
      operationOf<OpeningASectionBelow>("configuration: openSection below",
                                        {{memoryCalls(), {"-[1-9]*", "1"}, Where::here, refused}}));
  const std::vector<Allowance> mayRefuse{{memoryCalls(), {"-[1-9]*"}}};
  all.push_back(operationOf<GettingAText>("configuration: getStringValue", mayRefuse));
  all.push_back(
      operationOf<GettingATextOfASection>("configuration: getStringValue of a section", mayRefuse));
  all.push_back(operationOf<GettingANumber>("configuration: getIntegerValue", mayRefuse));
  all.push_back(operationOf<GettingANumberOfASection>("configuration: getIntegerValue of a section",
                                                      mayRefuse));
  all.push_back(operationOf<SettingAText>("configuration: setStringValue", mayRefuse));
  all.push_back(operationOf<SettingANumber>("configuration: setIntegerValue", mayRefuse));
  all.push_back(operationOf<AddingAText>("configuration: setStringValue of a new one", mayRefuse));
  all.push_back(
      operationOf<Enumerating>("configuration: enumerateSections", {{memoryCalls(), {"", "*|"}}}));
  all.push_back(operationOf<EnumeratingBelow>("configuration: enumerateSections of a key",
                                              {{memoryCalls(), {"", "*|"}}}));
  all.push_back(operationOf<ImportingAZeroByte>("configuration: importConfig of a zero byte"));
}

void addPlaces(Operations& all) {
  all.push_back(function("places: verify", [] { return CCmnPathTool::verify("/"); }, InWords(),
                         {{{Call::access}, {"-1"}}}));
  all.push_back(operationOf<PlacingTheInstallation>("places: getInstallPath"));
  all.push_back(
      operationOf<Placing<CCmnPathTool::getMessageFileInfo>>("places: messages", {}, installRoot));
  all.push_back(
      operationOf<Placing<CCmnPathTool::getTraceFileInfo>>("places: trace", {}, installRoot));
  all.push_back(
      operationOf<Placing<CCmnPathTool::getConfigFileInfo>>("places: settings", {}, installRoot));
  all.push_back(operationOf<PlacingTheProduct>("places: the product's settings"));
  all.push_back(operationOf<ReadingTheVerbosity>("places: verbosity",
                                                 {{{Call::fopen}, {"26"}},
                                                  {{Call::fgets}, {"1"}},
                                                  {{Call::anyMemory, Call::malloc}, {"26"}}}));
}

}  // namespace

Operations settingsOperations() {
  Operations all;
  addStore(all);
  addPlaces(all);
  all.push_back(function(
      "error: make", [] { return CCmnError(1, message, "file", 2, "function"); },
      [](const CCmnError& error) { return words(error.what()) + words(error.getFunction()); }));
  all.push_back(operationOf<CopyingAnError>("error: copy"));
  all.push_back(operationOf<AssigningAnError>("error: assign"));
  all.push_back(function(
      "error: getMessageId",
      [error = std::make_shared<CCmnError>(1, message, "file", 2, "function"),
       component = std::string("a component of some length")] {
        return error->getMessageId(component, 0);
      },
      InWords()));
  return all;
}

}  // namespace kelp_test

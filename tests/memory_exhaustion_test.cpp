// What the classes that build ACE strings do where there is no memory for one: std::bad_alloc, or
// the status that their headers tell, and never a text that is cut or null.
#include "cmnacestring.h"
#include "cmnerror.h"
#include "cmnicucatalog.h"
#include "cmnicumessage.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnpathtool.h"
#include "cmnqrbconfiguration.h"
#include "cmntracelog.h"
#include "failing_memory.h"
#include "resource_bundles.h"
#include "scratch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <string>

namespace {

using kelp_cmn_4_4::CCmnError;
using kelp_cmn_4_4::CCmnIcuMessage;
using kelp_cmn_4_4::CCmnIcuMessageCatalog;
using kelp_cmn_4_4::CCmnMessageCatalogManager;
using kelp_cmn_4_4::CCmnPathTool;
using kelp_cmn_4_4::CCmnQRBConfiguration;
using kelp_cmn_4_4::CCmnTraceLog;
using kelp_cmn_4_4::SCmnMessageInfo;
using kelp_cmn_4_4::tstr;
using kelp_test::brokenText;
using kelp_test::failEachAllocation;
using kelp_test::InstallRoot;

// ---- the strings themselves

TEST(AceString, IsCopiedJoinedAndAssignedWholeOrNotAtAll) {
  const tstr with("with");
  const tstr zero("ze\0ro", 5);
  tstr target;
  failEachAllocation([&] { target = "old"; },
                     [&] {
                       const tstr made = kelp_cmn_4_4::joined("begin ", with, " ", zero);
                       kelp_cmn_4_4::assign(target, kelp_cmn_4_4::copied(made));
                     },
                     [&](bool threw) {
                       EXPECT_EQ(std::string(target.c_str(), target.length()),
                                 threw ? "old" : std::string("begin with ze\0ro", 16));
                     });
}

TEST(AceString, MayBeEmpty) {
  const tstr empty;
  tstr target("old");
  kelp_cmn_4_4::assign(target, empty);
  EXPECT_STREQ(target.c_str(), "");
  EXPECT_STREQ(kelp_cmn_4_4::joined(empty, "", empty).c_str(), "");
  EXPECT_STREQ(kelp_cmn_4_4::copied("").c_str(), "");
  EXPECT_STREQ(kelp_cmn_4_4::copied(empty).c_str(), "");
}

TEST(AceString, ThatWasBrokenBeforeIsRefused) {
  const tstr broken = brokenText();
  ASSERT_EQ(broken.c_str(), nullptr);
  tstr target("old");
  EXPECT_THROW(kelp_cmn_4_4::assign(target, broken), std::bad_alloc);
  EXPECT_THROW(kelp_cmn_4_4::joined("a", broken), std::bad_alloc);
  EXPECT_THROW(kelp_cmn_4_4::copied(broken), std::bad_alloc);
  EXPECT_STREQ(target.c_str(), "old");
}

// ---- error records

void expectTexts(const CCmnError& error, const std::string& text) {
  EXPECT_EQ(error.what(), text);
  EXPECT_EQ(error.getFileName(), text);
  EXPECT_EQ(error.getFunction(), text);
}

TEST(ErrorWithoutMemory, IsMadeAndCopiedWholeOrNotAtAll) {
  const tstr text("text");
  std::unique_ptr<CCmnError> error;
  failEachAllocation([&] { error.reset(); },
                     [&] { error = std::make_unique<CCmnError>(1, text, text, 2, text); },
                     [&](bool threw) {
                       ASSERT_EQ(error == nullptr, threw);
                       if (!threw) {
                         expectTexts(*error, "text");
                       }
                     });
  const CCmnError original(1, text, text, 2, text);
  failEachAllocation([&] { error.reset(); }, [&] { error = std::make_unique<CCmnError>(original); },
                     [&](bool threw) {
                       ASSERT_EQ(error == nullptr, threw);
                       if (!threw) {
                         expectTexts(*error, "text");
                       }
                     });
}

TEST(ErrorWithoutMemory, IsAssignedWholeOrNotAtAll) {
  const CCmnError other(3, "another", "another", 4, "another");
  CCmnError error;
  failEachAllocation([&] { error = CCmnError(1, "text", "text", 2, "text"); },
                     [&] { error = other; },
                     [&](bool threw) {
                       expectTexts(error, threw ? "text" : "another");
                       EXPECT_EQ(error.getCode(), threw ? 1 : 3);
                       EXPECT_EQ(error.getLineNumber(), threw ? 2 : 4);
                     });
}

TEST(ErrorWithoutMemory, TakesNoBrokenText) {
  const tstr broken = brokenText();
  EXPECT_THROW(CCmnError(1, broken, "", 2, ""), std::bad_alloc);
}

// ---- places

struct Place {
  tstr dir;
  tstr file;
};

// What CCmnQRBConfiguration::getTraceLevel gives for a file that cannot be opened.
constexpr int notOpened = 26;

class PlacesWithoutMemory : public testing::Test {
 protected:
  PlacesWithoutMemory() { InstallRoot::makeProductTree(); }
  InstallRoot m_root;
};

TEST_F(PlacesWithoutMemory, AreNamedWholeOrNotAtAll) {
  const struct {
    int (*get)(const tstr&, tstr&, tstr&);
    const char* dir;
    const char* file;
  } rows[] = {
      {CCmnPathTool::getMessageFileInfo, InstallRoot::resourceDir, "libvault"},
      {CCmnPathTool::getTraceFileInfo, InstallRoot::traceDir, "vault.log"},
      {CCmnPathTool::getConfigFileInfo, InstallRoot::configDir, "vault.conf"},
  };
  const tstr component("vault");
  for (const auto& row : rows) {
    Place place;
    failEachAllocation(
        [&] {
          place = {"old dir", "old file"};
        },
        [&] { row.get(component, place.dir, place.file); },
        [&](bool threw) {
          EXPECT_STREQ(place.dir.c_str(), threw ? "old dir" : row.dir);
          EXPECT_STREQ(place.file.c_str(), threw ? "old file" : row.file);
        });
    EXPECT_THROW(row.get(brokenText(), place.dir, place.file), std::bad_alloc);
  }
}

TEST_F(PlacesWithoutMemory, OfTheProductsSettingsAreNamedWholeOrNotAtAll) {
  kelp_test::writeFile(InstallRoot::productConfig, "VERBOSE=5\n");
  Place place;
  failEachAllocation(
      [&] {
        place = {"old dir", "old file"};
      },
      [&] { CCmnQRBConfiguration::getTraceConfigFileInfo(place.dir, place.file); },
      [&](bool threw) {
        EXPECT_STREQ(place.dir.c_str(), threw ? "old dir" : "/usr/tulsk/krellvane/");
        EXPECT_STREQ(place.file.c_str(), threw ? "old file" : "rk.conf");
      });
  int rc = 0;
  int level = 0;
  failEachAllocation(
      [&] { level = -1; },
      [&] { rc = CCmnQRBConfiguration::getTraceLevel(place.dir, place.file, level); },
      [&](bool threw) {
        // Without memory for its buffer the file cannot be opened, either.
        EXPECT_EQ(level, threw || rc == notOpened ? -1 : 5);
      });
}

// ---- the trace log

TEST_F(PlacesWithoutMemory, ALogThatCannotTakeItsNamesKeepsTheOldOnes) {
  CCmnTraceLog log;
  log.initialize("vault", "", "", 1, false);
  ASSERT_TRUE(log.isInitialized());
  const std::string before = log.getTracePath().c_str();
  EXPECT_THROW(log.initialize(brokenText(), "", "", 1, false), std::bad_alloc);
  EXPECT_THROW(log.initialize("other", brokenText(), "", 1, false), std::bad_alloc);
  EXPECT_THROW(log.initialize("other", "", brokenText(), 1, false), std::bad_alloc);
  EXPECT_EQ(log.getTracePath().c_str(), before);
  log.trace(1, "a line");
  EXPECT_NE(kelp_test::readFile(before).find(" a line\n"), std::string::npos);
}

TEST_F(PlacesWithoutMemory, ALineIsWrittenWholeOrNotAtAll) {
  CCmnTraceLog log;
  log.initialize("vault", "", "", 1, false);
  const std::string path = log.getTracePath().c_str();
  failEachAllocation(
      [&] { std::filesystem::remove(path); },
      [&] { log.trace(1, "a line of %s", "some length, so that it is no short text"); },
      [&](bool) {
        const std::string content = kelp_test::readFile(path);
        const std::string line = " a line of some length, so that it is no short text\n";
        const size_t timeLength = std::strlen("2024-05-01 12:34:56.123456");
        EXPECT_TRUE(content.empty() || content.substr(timeLength) == line) << content;
      });
}

// ---- catalogs and their manager

// What CCmnIcuMessageCatalog::init gives.
constexpr int opened = 0;
constexpr int notUsable = 3;

constexpr char german[] = "messages: einfacher Text";

class CatalogWithoutMemory : public testing::Test {
 protected:
  CatalogWithoutMemory() { kelp_test::installBundle("messages", kelp_test::BundleForm::directory); }

  InstallRoot m_root;
  kelp_test::ScopedIcu m_icu{"ja"};
};

TEST_F(CatalogWithoutMemory, FailsAndCanBeTriedAgain) {
  // The second name is one for which ICU needs memory before it looks for a bundle.
  for (const std::string& language : {std::string("de"), "de@collation=" + std::string(300, 'x')}) {
    SCOPED_TRACE(language);
    CCmnIcuMessageCatalog(language, "messages").init();  // what ICU does once in a process
    std::unique_ptr<CCmnIcuMessageCatalog> catalog;
    int rc = 0;
    failEachAllocation(
        [&] { catalog = std::make_unique<CCmnIcuMessageCatalog>(language, "messages"); },
        [&] { rc = catalog->init(); },
        [&](bool threw) {
          ASSERT_FALSE(threw);
          EXPECT_TRUE(rc == opened || rc == notUsable);
          if (rc == opened) {
            EXPECT_STREQ(catalog->getMessage("MSG_PLAIN", nullptr).c_str(), german);
          }
          CCmnIcuMessageCatalog next(language, "messages");
          EXPECT_EQ(next.init(), opened);
          EXPECT_STREQ(next.getMessage("MSG_PLAIN", nullptr).c_str(), german);
        });
  }
}

TEST_F(CatalogWithoutMemory, KeepsTheRootForANameThatIcuRefuses) {
  for (const std::string& name :
       {std::string("alanguagethatistoolong"), std::string("oneoftwelves"),
        "de@" + std::string(100, 'x') + "=1"}) {
    SCOPED_TRACE(name);
    CCmnIcuMessageCatalog catalog(name, "messages");
    EXPECT_EQ(catalog.init(), opened);
    EXPECT_STREQ(catalog.getMessage("MSG_PLAIN", nullptr).c_str(),
                 "messages: plain text of the root");
  }
}

// ICU needs memory to follow one key to another.
TEST_F(CatalogWithoutMemory, GivesTheWholeTextOfAnAliasOrThrows) {
  kelp_test::installBundle("typed", kelp_test::BundleForm::directory);
  CCmnIcuMessageCatalog catalog("root", "typed");
  ASSERT_EQ(catalog.init(), opened);
  std::string result;
  int failures = 0;
  failEachAllocation([&] { result.assign(1024, '?'); },
                     [&] { result = catalog.getMessage("MSG_ALIAS", "default").c_str(); },
                     [&](bool threw) {
                       failures += threw ? 1 : 0;
                       EXPECT_TRUE(threw || result == "typed: text: {0}") << result;
                     });
  EXPECT_GT(failures, 0);
}

TEST_F(CatalogWithoutMemory, GivesWholeTextsOrNone) {
  CCmnIcuMessageCatalog catalog("de", "messages");
  ASSERT_EQ(catalog.init(), opened);
  const struct {
    std::string id;
    const char* defaultText;
    std::string expected;
  } rows[] = {{"MSG_PLAIN", nullptr, german},
              {"MSG_ROOT_ONLY", nullptr, "messages: only the root has this"},
              {"MSG_NONE", nullptr, "messages: <MSG_NONE>"},
              {"MSG_NONE", "the default text", "the default text"}};
  for (const auto& row : rows) {
    std::string result;
    failEachAllocation([&] { result.assign(1024, '?'); },
                       [&] {
                         const tstr text = catalog.getMessage(row.id, row.defaultText);
                         result.assign(text.c_str(), text.length());
                       },
                       [&](bool threw) { EXPECT_TRUE(threw || result == row.expected) << result; });
  }
}

TEST_F(CatalogWithoutMemory, IsNotMadeWithABrokenName) {
  EXPECT_THROW(CCmnIcuMessageCatalog("de", brokenText()), std::bad_alloc);
  std::unique_ptr<CCmnIcuMessageCatalog> catalog;
  const std::string language("de");
  const tstr name("messages");
  failEachAllocation([&] { catalog.reset(); },
                     [&] { catalog = std::make_unique<CCmnIcuMessageCatalog>(language, name); },
                     [&](bool threw) { EXPECT_EQ(catalog == nullptr, threw); });
}

TEST_F(CatalogWithoutMemory, IsActivatedByTheNextRequest) {
  kelp_test::IcuFactory factory;
  CCmnIcuMessageCatalog("de", "messages").init();
  std::unique_ptr<CCmnMessageCatalogManager> manager;
  failEachAllocation(
      [&] {
        manager = std::make_unique<CCmnMessageCatalogManager>();
        manager->registerFactory(&factory);
      },
      [&] { manager->activateCatalog("de"); },
      [&](bool) { EXPECT_STREQ(manager->getMessage("MSG_PLAIN", nullptr, "de").c_str(), german); });
}

TEST_F(CatalogWithoutMemory, TheManagersTextsAreWholeAndStay) {
  kelp_test::IcuFactory factory;
  CCmnMessageCatalogManager manager;
  manager.registerFactory(&factory);
  manager.activateCatalog("de");
  CCmnIcuMessage message("MSG_GREETING", 1);
  message.addArgument(
      icu::Formattable(icu::UnicodeString("a name of some length, so that it is long")));
  SCmnMessageInfo* const info = message.serialize();
  const struct {
    std::function<void(char**)> get;
    std::string expected;
  } rows[] = {
      {[&](char** text) { manager.getLocalizedMessage("MSG_PLAIN", "de", text); }, german},
      {[&](char** text) { manager.getLocalizedMessage("MSG_NONE", "de", text); },
       "messages: <MSG_NONE>"},
      {[&](char** text) { manager.getLocalizedMessage(info, "de", text); },
       "messages: Grüß Gott, a name of some length, so that it is long"},
  };
  for (const auto& row : rows) {
    char untouched[] = "untouched";
    char* text = untouched;
    failEachAllocation([&] { text = untouched; }, [&] { row.get(&text); },
                       [&](bool threw) {
                         EXPECT_EQ(text, threw ? "untouched" : row.expected);
                         row.get(&text);
                         EXPECT_EQ(text, row.expected);
                         manager.deleteLocalizedMessage(&text);
                       });
  }
}

TEST_F(CatalogWithoutMemory, TheFallBackTextIsWholeWithoutAFactory) {
  CCmnMessageCatalogManager manager;
  const std::string id = "MSG_A";
  for (const char* defaultText : {static_cast<const char*>(nullptr), "a default text"}) {
    const std::string expected = defaultText == nullptr ? "<MSG_A>" : defaultText;
    std::string result;
    failEachAllocation([&] { result.assign(1024, '?'); },
                       [&] {
                         const tstr text = manager.getMessage(id, defaultText, "");
                         result.assign(text.c_str(), text.length());
                       },
                       [&](bool threw) { EXPECT_TRUE(threw || result == expected) << result; });
  }
}

}  // namespace

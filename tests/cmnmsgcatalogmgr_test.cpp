#include "cmnmsgcatalogmgr.h"

#include "cmnicumessage.h"
#include "heap.h"
#include "resource_bundles.h"

#include <ace/Malloc_Allocator.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnIcuMessage;
using kelp_cmn_4_4::CCmnMessage;
using kelp_cmn_4_4::CCmnMessageCatalog;
using kelp_cmn_4_4::CCmnMessageCatalogFactory;
using kelp_cmn_4_4::CCmnMessageCatalogManager;
using kelp_cmn_4_4::CCmnNullAllocator;
using kelp_cmn_4_4::CCmnRefCount;
using kelp_cmn_4_4::CCmnSmartPtr;
using kelp_cmn_4_4::SCmnMessageInfo;
using kelp_cmn_4_4::tstr;
using kelp_test::HeapWatch;

using Catalog = kelp_cmn_4_4::CCmnMessageCatalogPtr;
using Message = kelp_cmn_4_4::CCmnMessagePtr;
using Manager = CCmnMessageCatalogManager;
using Lines = std::vector<std::string>;

// What a catalog's init() gives that is not usable.
constexpr int notUsable = 3;

// ---- a host that tells everything it is asked

// What the host does, and a line for everything that happened to it.
struct Script {
  // The action that stands under a line runs after the line was written. It may throw.
  void say(const std::string& line) {
    written.push_back(line);
    const auto found = on.find(line);
    if (found != on.end()) {
      const std::function<void()> action = found->second;
      action();
    }
  }

  // The lines since the last call.
  Lines taken() {
    Lines lines;
    lines.swap(written);
    return lines;
  }

  Lines written;
  std::map<std::string, std::function<void()>> on;
  std::string defaultLanguage = "en";
  std::map<std::string, int> initResults;  // 0 for the languages that are not here
  std::map<std::string, tstr> texts;  // by "LANGUAGE ID"; what is not here has that for its text
};

Lines joined(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class ScriptedCatalog : public CCmnMessageCatalog {
 public:
  ScriptedCatalog(Script& script, const std::string& language)
      : CCmnMessageCatalog(language, "scripted"), m_script(script) {}
  ~ScriptedCatalog() override { m_script.say("drop catalog " + m_language); }

  int init() override {
    m_script.say("init " + m_language + ", count " + std::to_string(m_count));
    const auto found = m_script.initResults.find(m_language);
    return found == m_script.initResults.end() ? 0 : found->second;
  }

  tstr getMessage(const std::string& id, const char* defaultText) const override {
    const std::string text =
        defaultText == nullptr ? "null" : "\"" + std::string(defaultText) + "\"";
    m_script.say(id + " from " + m_language + ", default " + text + ", count " +
                 std::to_string(m_count));
    const auto found = m_script.texts.find(m_language + " " + id);
    return found == m_script.texts.end() ? tstr((m_language + " " + id).c_str()) : found->second;
  }

 private:
  Script& m_script;
};

// Its serialized text is "ID" or "ID|ARGUMENT".
class ScriptedMessage : public CCmnMessage {
 public:
  ScriptedMessage(Script& script, const std::string& serialized)
      : CCmnMessage(serialized.substr(0, serialized.find('|')), 0, "", 0),
        m_script(script),
        m_argument(serialized.substr(m_messageId.length())) {}
  ~ScriptedMessage() override { m_script.say("drop message " + m_messageId); }

  SCmnMessageInfo* serialize() override { return nullptr; }
  void deserialize(const SCmnMessageInfo* /*info*/) override {}

  std::string getMessageId() override {
    m_script.say("id of " + m_messageId);
    return m_messageId;
  }

  tstr formatMessage(tstr pattern) override {
    m_script.say("format '" + std::string(pattern.c_str()) + "' of " + m_messageId);
    return pattern + m_argument.c_str();
  }

 private:
  Script& m_script;
  std::string m_argument;
};

class ScriptedFactory : public CCmnMessageCatalogFactory {
 public:
  explicit ScriptedFactory(Script& script) : m_script(script) {}
  ~ScriptedFactory() override { m_script.say("drop factory"); }

  Catalog createCatalog(const char* language) override {
    m_script.say(std::string("create catalog ") + language);
    catalog = new ScriptedCatalog(m_script, language);
    return catalog;
  }

  Message createMessage(const SCmnMessageInfo* info) override {
    record = info;
    m_script.say(std::string("create message ") + info->text);
    Message message(new ScriptedMessage(m_script, info->text));
    if (keepsMessages) {
      kept = message;
    }
    return message;
  }

  std::string getDefaultLanguage() override {
    m_script.say("default language");
    return m_script.defaultLanguage;
  }

  CCmnMessageCatalog* catalog = nullptr;    // the last one, which need not live any more
  const SCmnMessageInfo* record = nullptr;  // what the last message was made from
  bool keepsMessages = false;
  Message kept;

 private:
  Script& m_script;
};

// Stands in for ACE's default allocator, so that a test sees which texts are still there.
class CountingAllocator : public ACE_New_Allocator {
 public:
  CountingAllocator() {
    ACE_Allocator::instance();  // makes the one that is put back
    m_previous = ACE_Allocator::instance(this);
  }
  ~CountingAllocator() override { ACE_Allocator::instance(m_previous); }

  void* malloc(size_t size) override {
    void* const block = ACE_New_Allocator::malloc(size);
    m_live.insert(block);
    return block;
  }

  void free(void* block) override {
    EXPECT_EQ(m_live.erase(block), 1U);
    ACE_New_Allocator::free(block);
  }

  bool has(const char* text) const { return m_live.count(text) != 0; }
  size_t count() const { return m_live.size(); }

 private:
  ACE_Allocator* m_previous;
  std::set<const void*> m_live;
};

struct Refused : std::runtime_error {
  Refused() : std::runtime_error("refused") {}
};

[[noreturn]] void refuse() { throw Refused(); }

class CatalogManager : public testing::Test {
 protected:
  // Registers the factory, and forgets the lines of that.
  void useFactory() {
    m_manager->registerFactory(&m_factory);
    m_script.taken();
  }

  char* byId(const char* id, const char* language) {
    char* result = nullptr;
    m_manager->getLocalizedMessage(id, language, &result);
    return result;
  }

  char* bySerialized(std::string text, const char* language) {
    SCmnMessageInfo info{text.data(), -1};  // the length is not looked at
    char* result = nullptr;
    m_manager->getLocalizedMessage(&info, language, &result);
    return result;
  }

  // With a pointer of its own, so that the caller's stays what it was.
  void giveBack(const char* text) {
    char* result = const_cast<char*>(text);
    m_manager->deleteLocalizedMessage(&result);
    EXPECT_EQ(result, text);
  }

  // What a lookup leaves behind where only "en" has a catalog.
  const Lines m_triedXx{"create catalog xx", "init xx, count 1", "drop catalog xx"};
  const Lines m_triedEn{"create catalog en", "init en, count 1", "drop catalog en"};
  const Lines m_foundInEn{"MSG_A from en, default null, count 2"};
  const Lines m_askedDefault{"default language"};

  CountingAllocator m_texts;
  Script m_script;
  ScriptedFactory m_factory{m_script};
  std::unique_ptr<Manager> m_manager{new Manager};
};

// ---- registerFactory

using RegisterFactory = CatalogManager;

TEST_F(RegisterFactory, ActivatesTheDefaultLanguage) {
  m_manager->registerFactory(&m_factory);
  EXPECT_EQ(m_script.taken(), (Lines{"default language", "create catalog en", "init en, count 1"}));
  ASSERT_NE(m_factory.catalog, nullptr);
  EXPECT_EQ(m_factory.catalog->getCount(), 1);
}

TEST_F(RegisterFactory, PassesAnEmptyDefaultLanguageAsItIs) {
  m_script.defaultLanguage = "";
  m_manager->registerFactory(&m_factory);
  EXPECT_EQ(m_script.taken(), (Lines{"default language", "create catalog ", "init , count 1"}));
  EXPECT_STREQ(m_manager->getMessage("MSG_A", nullptr, "").c_str(), " MSG_A");
  EXPECT_EQ(m_script.taken(), (Lines{"default language", "MSG_A from , default null, count 2"}));
}

TEST_F(RegisterFactory, DropsADefaultCatalogThatFails) {
  m_script.initResults["en"] = notUsable;
  m_manager->registerFactory(&m_factory);
  EXPECT_EQ(m_script.taken(), joined(m_askedDefault, m_triedEn));
}

TEST_F(RegisterFactory, ReplacesTheFactoryWithoutFreeingOrTellingIt) {
  useFactory();
  Script otherScript;
  otherScript.defaultLanguage = "de";
  ScriptedFactory other(otherScript);
  m_manager->registerFactory(&other);
  EXPECT_EQ(m_script.taken(), Lines{});
  EXPECT_EQ(otherScript.taken(),
            (Lines{"default language", "create catalog de", "init de, count 1"}));
  m_manager->activateCatalog("ja");
  EXPECT_EQ(m_script.taken(), Lines{});
  EXPECT_EQ(otherScript.taken(), (Lines{"create catalog ja", "init ja, count 1"}));
  m_manager.reset();
}

TEST_F(RegisterFactory, KeepsTheCatalogsOfTheFactoryBefore) {
  useFactory();
  Script otherScript;
  ScriptedFactory other(otherScript);
  m_manager->registerFactory(&other);
  EXPECT_EQ(otherScript.taken(), m_askedDefault);
  EXPECT_STREQ(m_manager->getMessage("MSG_A", nullptr, "en").c_str(), "en MSG_A");
  EXPECT_EQ(m_script.taken(), m_foundInEn);
  EXPECT_EQ(otherScript.taken(), Lines{});
}

TEST_F(RegisterFactory, AsksAgainForTheDefaultLanguageOfTheSameFactory) {
  m_script.initResults["en"] = notUsable;
  useFactory();
  m_script.initResults.clear();
  m_manager->registerFactory(&m_factory);
  EXPECT_EQ(m_script.taken(), (Lines{"default language", "create catalog en", "init en, count 1"}));
}

TEST_F(RegisterFactory, HasTakenTheFactoryWhenItAsksForTheDefaultLanguage) {
  m_script.on["default language"] = [this] { m_manager->activateCatalog("de"); };
  m_manager->registerFactory(&m_factory);
  EXPECT_EQ(m_script.taken(), (Lines{"default language", "create catalog de", "init de, count 1",
                                     "create catalog en", "init en, count 1"}));
}

TEST_F(RegisterFactory, KeepsAFactoryThatThrows) {
  for (const char* line : {"default language", "create catalog en", "init en, count 1"}) {
    SCOPED_TRACE(line);
    Manager fresh;
    m_script.on[line] = refuse;
    EXPECT_THROW(fresh.registerFactory(&m_factory), Refused);
    m_script.on.clear();
    m_script.taken();
    fresh.activateCatalog("en");
    EXPECT_EQ(m_script.taken(), (Lines{"create catalog en", "init en, count 1"}));
  }
}

// ---- activateCatalog

using ActivateCatalog = CatalogManager;

TEST_F(ActivateCatalog, DoesNothingWithoutAFactory) {
  m_manager->activateCatalog("de");
  EXPECT_EQ(m_script.taken(), Lines{});
  useFactory();
  m_manager->activateCatalog("de");
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog de", "init de, count 1"}));
}

TEST_F(ActivateCatalog, MakesOneCatalogForEachLanguage) {
  useFactory();
  m_manager->activateCatalog("de");
  m_manager->activateCatalog("ja");
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog de", "init de, count 1", "create catalog ja",
                                     "init ja, count 1"}));
  m_manager->activateCatalog("ja");
  m_manager->activateCatalog("de");
  m_manager->activateCatalog("en");
  EXPECT_EQ(m_script.taken(), Lines{});
}

TEST_F(ActivateCatalog, TakesTheLanguageAsItIs) {
  useFactory();
  m_script.defaultLanguage = "de";
  for (const char* language : {"", "native", "EN", "en ", "en_US"}) {
    SCOPED_TRACE(language);
    const std::string name = language;
    m_manager->activateCatalog(language);
    EXPECT_EQ(m_script.taken(), (Lines{"create catalog " + name, "init " + name + ", count 1"}));
    m_manager->activateCatalog(language);
    EXPECT_EQ(m_script.taken(), Lines{});
  }
}

TEST_F(ActivateCatalog, KeepsLanguagesApartThatDifferBehindAZeroByte) {
  useFactory();
  const std::string language("en\0x", 4);
  m_manager->activateCatalog(language);
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog en", "init en, count 1"}));
  m_manager->activateCatalog(language);
  EXPECT_EQ(m_script.taken(), Lines{});
}

TEST_F(ActivateCatalog, DropsACatalogThatFailsAndTriesAgainEachTime) {
  useFactory();
  for (const int result : {notUsable, 1, -1, INT_MIN, 256}) {
    SCOPED_TRACE(result);
    m_script.initResults["xx"] = result;
    m_manager->activateCatalog("xx");
    EXPECT_EQ(m_script.taken(), m_triedXx);
  }
  m_script.initResults.clear();
  m_manager->activateCatalog("xx");
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog xx", "init xx, count 1"}));
  m_manager->activateCatalog("xx");
  EXPECT_EQ(m_script.taken(), Lines{});
}

TEST_F(ActivateCatalog, LeavesAFailedCatalogToItsOtherHolders) {
  useFactory();
  m_script.initResults["xx"] = notUsable;
  Catalog held;
  m_script.on["init xx, count 1"] = [this, &held] { held = m_factory.catalog; };
  m_manager->activateCatalog("xx");
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog xx", "init xx, count 1"}));
  EXPECT_EQ(held->getCount(), 1);
}

TEST_F(ActivateCatalog, LetsExceptionsPassAndTriesAgain) {
  useFactory();
  m_script.on["create catalog de"] = refuse;
  EXPECT_THROW(m_manager->activateCatalog("de"), Refused);
  EXPECT_EQ(m_script.taken(), Lines{"create catalog de"});
  m_script.on.clear();
  m_script.on["init de, count 1"] = refuse;
  EXPECT_THROW(m_manager->activateCatalog("de"), Refused);
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog de", "init de, count 1", "drop catalog de"}));
  m_script.on.clear();
  m_manager->activateCatalog("de");
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog de", "init de, count 1"}));
}

TEST_F(ActivateCatalog, StoresItsCatalogInPlaceOfOneThatTheFactoryActivatedMeanwhile) {
  useFactory();
  std::vector<Catalog> made;
  bool nested = false;
  m_script.on["create catalog de"] = [this, &nested] {
    if (!nested) {
      nested = true;
      m_manager->activateCatalog("de");
    }
  };
  m_script.on["init de, count 1"] = [this, &made] { made.emplace_back(m_factory.catalog); };
  m_manager->activateCatalog("de");
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog de", "create catalog de", "init de, count 1",
                                     "init de, count 1"}));
  ASSERT_EQ(made.size(), 2U);
  EXPECT_EQ(made[0]->getCount(), 1);
  EXPECT_EQ(made[1]->getCount(), 2);
}

// ---- getMessage

using GetMessage = CatalogManager;

TEST_F(GetMessage, WithoutAFactoryGivesTheDefaultTextOrTheMarkerWhateverTheLanguage) {
  for (const char* language : {"", "en", "native", "xx"}) {
    SCOPED_TRACE(language);
    EXPECT_STREQ(m_manager->getMessage("MSG_A", nullptr, language).c_str(), "<MSG_A>");
    EXPECT_STREQ(m_manager->getMessage("MSG_A", "", language).c_str(), "");
    EXPECT_STREQ(m_manager->getMessage("MSG_A", "x", language).c_str(), "x");
  }
  EXPECT_EQ(m_script.taken(), Lines{});
}

TEST_F(GetMessage, MarksAnIdentifierUpToItsFirstZeroByte) {
  const std::string cut("MSG\0_A", 6);
  EXPECT_EQ(m_manager->getMessage(cut, nullptr, ""), tstr("<MSG>"));
  EXPECT_EQ(m_manager->getMessage("", nullptr, ""), tstr("<>"));
  EXPECT_EQ(m_manager->getMessage("\xC3\xA9\xFF%s{0}", nullptr, ""), tstr("<\xC3\xA9\xFF%s{0}>"));
}

TEST_F(GetMessage, AsksAnActiveCatalogAndNobodyElse) {
  useFactory();
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "en"), tstr("en MSG_A"));
  EXPECT_EQ(m_script.taken(), m_foundInEn);
}

TEST_F(GetMessage, ActivatesACatalogOnFirstNeed) {
  useFactory();
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "de"), tstr("de MSG_A"));
  EXPECT_EQ(m_script.taken(), (Lines{"create catalog de", "init de, count 1",
                                     "MSG_A from de, default null, count 2"}));
  EXPECT_EQ(m_manager->getMessage("MSG_B", nullptr, "de"), tstr("de MSG_B"));
  EXPECT_EQ(m_script.taken(), Lines{"MSG_B from de, default null, count 2"});
  EXPECT_EQ(m_factory.catalog->getCount(), 1);
}

TEST_F(GetMessage, AsksOnceForTheDefaultLanguageInPlaceOfAnEmptyOne) {
  useFactory();
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, ""), tstr("en MSG_A"));
  EXPECT_EQ(m_script.taken(), joined(m_askedDefault, m_foundInEn));
}

TEST_F(GetMessage, FollowsADefaultLanguageThatChanges) {
  useFactory();
  m_script.defaultLanguage = "de";
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, ""), tstr("de MSG_A"));
  EXPECT_EQ(m_script.taken(), (Lines{"default language", "create catalog de", "init de, count 1",
                                     "MSG_A from de, default null, count 2"}));
}

TEST_F(GetMessage, TakesTheLanguageAsItIs) {
  useFactory();
  m_manager->setNativeLanguage("de");
  for (const char* language : {"native", "EN", "en "}) {
    SCOPED_TRACE(language);
    const std::string name = language;
    EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, language), tstr((name + " MSG_A").c_str()));
    EXPECT_EQ(m_script.taken(), (Lines{"create catalog " + name, "init " + name + ", count 1",
                                       "MSG_A from " + name + ", default null, count 2"}));
  }
}

TEST_F(GetMessage, PassesIdentifierAndDefaultTextToTheCatalogAsTheyAre) {
  useFactory();
  const std::string id("MSG\0_A", 6);
  m_manager->getMessage(id, "", "en");
  m_manager->getMessage(id, "x{0}", "en");
  m_manager->getMessage("", nullptr, "en");
  EXPECT_EQ(m_script.taken(),
            (Lines{id + " from en, default \"\", count 2",
                   id + " from en, default \"x{0}\", count 2", " from en, default null, count 2"}));
}

TEST_F(GetMessage, ReturnsTheCatalogsTextWhole) {
  useFactory();
  m_script.texts["en MSG_A"] = tstr("a\0b", 3);
  m_script.texts["en MSG_B"] = tstr("");
  EXPECT_EQ(m_manager->getMessage("MSG_A", "x", "en"), tstr("a\0b", 3));
  EXPECT_EQ(m_manager->getMessage("MSG_B", "x", "en"), tstr(""));
}

TEST_F(GetMessage, ReturnsATextOfTheCallersOwn) {
  useFactory();
  tstr text = m_manager->getMessage("MSG_A", nullptr, "en");
  EXPECT_EQ(m_texts.count(), 2U) << "the text, and the catalog's name";
  text += " changed";
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "en"), tstr("en MSG_A"));
  m_manager.reset();
  EXPECT_EQ(text, tstr("en MSG_A changed"));
}

TEST_F(GetMessage, FallsBackToTheActiveCatalogOfTheDefaultLanguage) {
  useFactory();
  m_script.initResults["xx"] = notUsable;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "xx"), tstr("en MSG_A"));
    EXPECT_EQ(m_script.taken(), joined(joined(m_triedXx, m_askedDefault), m_foundInEn));
  }
  EXPECT_EQ(m_manager->getMessage("MSG_A", "x", "xx"), tstr("en MSG_A"));
  EXPECT_EQ(m_script.taken(), joined(joined(m_triedXx, m_askedDefault),
                                     Lines{"MSG_A from en, default \"x\", count 2"}));
}

TEST_F(GetMessage, DoesNotActivateTheDefaultLanguageToFallBackToIt) {
  m_script.initResults = {{"en", notUsable}, {"xx", notUsable}};
  useFactory();
  m_script.initResults.erase("en");
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "xx"), tstr("<MSG_A>"));
  EXPECT_EQ(m_script.taken(), joined(m_triedXx, m_askedDefault));
  EXPECT_EQ(m_manager->getMessage("MSG_A", "", "xx"), tstr(""));
  EXPECT_EQ(m_manager->getMessage("MSG_A", "x", "xx"), tstr("x"));
  m_script.taken();
  m_manager->activateCatalog("en");
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "xx"), tstr("en MSG_A"));
}

TEST_F(GetMessage, GivesTheFallbackTextForADefaultLanguageWithoutCatalog) {
  m_script.initResults["en"] = notUsable;
  useFactory();
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "en"), tstr("<MSG_A>"));
  EXPECT_EQ(m_script.taken(), joined(m_triedEn, m_askedDefault));
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, ""), tstr("<MSG_A>"));
  EXPECT_EQ(m_script.taken(), joined(joined(m_askedDefault, m_triedEn), m_askedDefault));
  EXPECT_EQ(m_manager->getMessage("MSG_A", "x", "en"), tstr("x"));
  EXPECT_EQ(m_manager->getMessage("MSG_A", "", ""), tstr(""));
}

TEST_F(GetMessage, DoesNotLookAgainForADefaultLanguageThatIsTheRequestedOne) {
  m_script.initResults["en"] = notUsable;
  useFactory();
  // The question for the default language gives the language a catalog, too late.
  m_script.on["default language"] = [this] {
    m_script.initResults.clear();
    m_manager->activateCatalog("en");
  };
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "en"), tstr("<MSG_A>"));
  EXPECT_EQ(m_script.taken(), joined(joined(m_triedEn, m_askedDefault),
                                     Lines{"create catalog en", "init en, count 1"}));
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "en"), tstr("en MSG_A"));
}

TEST_F(GetMessage, DoesNotLookAgainForTheRequestedLanguageAfterAMiss) {
  useFactory();
  m_script.initResults["xx"] = notUsable;
  m_script.on["default language"] = [this] {
    m_script.initResults.clear();
    m_manager->activateCatalog("xx");
  };
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "xx"), tstr("en MSG_A"));
}

TEST_F(GetMessage, FallsBackToADefaultLanguageThatBecameActiveWhenItWasAskedFor) {
  useFactory();
  m_script.defaultLanguage = "de";
  m_script.initResults["xx"] = notUsable;
  m_script.on["default language"] = [this] { m_manager->activateCatalog("de"); };
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "xx"), tstr("de MSG_A"));
  EXPECT_EQ(m_script.taken(), joined(joined(m_triedXx, m_askedDefault),
                                     Lines{"create catalog de", "init de, count 1",
                                           "MSG_A from de, default null, count 2"}));
}

TEST_F(GetMessage, FallsBackToTheSecondAnswerForTheDefaultLanguage) {
  useFactory();
  m_script.defaultLanguage = "xx";
  m_script.initResults["xx"] = notUsable;
  int asked = 0;
  m_script.on["default language"] = [this, &asked] {
    m_script.defaultLanguage = ++asked == 1 ? "xx" : "en";
  };
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, ""), tstr("en MSG_A"));
  EXPECT_EQ(m_script.taken(),
            joined(joined(joined(m_askedDefault, m_triedXx), m_askedDefault), m_foundInEn));
}

TEST_F(GetMessage, ComparesTheDefaultLanguageInItsWholeLength) {
  useFactory();
  m_script.initResults["en"] = notUsable;  // from here on
  const std::string language("en\0x", 4);
  EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, language), tstr("en MSG_A"));
  EXPECT_EQ(m_script.taken(), joined(joined(m_triedEn, m_askedDefault), m_foundInEn));
}

TEST_F(GetMessage, LetsExceptionsPassAndStaysUsable) {
  useFactory();
  m_script.initResults["xx"] = notUsable;
  const struct {
    const char* line;
    const char* language;
  } rows[] = {{"default language", ""},
              {"default language", "xx"},
              {"create catalog xx", "xx"},
              {"init xx, count 1", "xx"},
              {"MSG_A from en, default null, count 2", "en"},
              {"MSG_A from en, default null, count 2", "xx"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.line) + " for " + row.language);
    m_script.on[row.line] = refuse;
    EXPECT_THROW(m_manager->getMessage("MSG_A", nullptr, row.language), Refused);
    m_script.on.clear();
    EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, row.language), tstr("en MSG_A"));
    m_script.taken();
    EXPECT_EQ(m_manager->getMessage("MSG_A", nullptr, "en"), tstr("en MSG_A"));
    EXPECT_EQ(m_script.taken(), m_foundInEn) << "its catalog is let go again";
  }
}

// ---- getLocalizedMessage of a message

using LocalizedMessage = CatalogManager;

TEST_F(LocalizedMessage, IsThePatternOfItsIdentifierFormattedByTheMessage) {
  useFactory();
  Message message(new ScriptedMessage(m_script, "MSG_A|7"));
  EXPECT_EQ(m_manager->getLocalizedMessage(message, "en"), tstr("en MSG_A|7"));
  EXPECT_EQ(m_script.taken(), (Lines{"id of MSG_A", "MSG_A from en, default null, count 2",
                                     "format 'en MSG_A' of MSG_A"}));
  EXPECT_EQ(message->getCount(), 1);
}

TEST_F(LocalizedMessage, TakesTheEmptyLanguageForTheDefaultAndNativeAsItIs) {
  useFactory();
  m_manager->setNativeLanguage("de");
  Message message(new ScriptedMessage(m_script, "MSG_A"));
  EXPECT_EQ(m_manager->getLocalizedMessage(message, ""), tstr("en MSG_A"));
  EXPECT_EQ(m_script.taken(),
            (Lines{"id of MSG_A", "default language", "MSG_A from en, default null, count 2",
                   "format 'en MSG_A' of MSG_A"}));
  EXPECT_EQ(m_manager->getLocalizedMessage(message, "native"), tstr("native MSG_A"));
  EXPECT_EQ(m_script.taken(),
            (Lines{"id of MSG_A", "create catalog native", "init native, count 1",
                   "MSG_A from native, default null, count 2", "format 'native MSG_A' of MSG_A"}));
}

TEST_F(LocalizedMessage, FormatsTheMarkerWithoutAFactory) {
  Message message(new ScriptedMessage(m_script, "MSG_A|7"));
  EXPECT_EQ(m_manager->getLocalizedMessage(message, "en"), tstr("<MSG_A>|7"));
  EXPECT_EQ(m_script.taken(), (Lines{"id of MSG_A", "format '<MSG_A>' of MSG_A"}));
}

TEST_F(LocalizedMessage, IsNotKept) {
  useFactory();
  Message message(new ScriptedMessage(m_script, "MSG_A"));
  const size_t before = m_texts.count();
  {
    const tstr text = m_manager->getLocalizedMessage(message, "en");
    EXPECT_EQ(m_texts.count(), before + 1);
    m_manager.reset();
    EXPECT_EQ(text, tstr("en MSG_A"));
  }
  EXPECT_EQ(m_texts.count(), before - 1) << "the catalog's name has gone with it";
}

TEST_F(LocalizedMessage, LetsExceptionsPass) {
  useFactory();
  Message message(new ScriptedMessage(m_script, "MSG_A"));
  for (const char* line :
       {"id of MSG_A", "MSG_A from en, default null, count 2", "format 'en MSG_A' of MSG_A"}) {
    SCOPED_TRACE(line);
    m_script.on[line] = refuse;
    EXPECT_THROW(m_manager->getLocalizedMessage(message, "en"), Refused);
    m_script.on.clear();
    EXPECT_EQ(message->getCount(), 1);
  }
}

// ---- the two operations that hand out texts

enum class Source { identifier, serialized };

// What holds of both. Their results are equal for a serialized text without an argument.
class HandedOutText : public CatalogManager, public testing::WithParamInterface<Source> {
 protected:
  char* localize(const char* key, const char* language) {
    return GetParam() == Source::identifier ? byId(key, language) : bySerialized(key, language);
  }

  // The lines of a whole operation, from those of its lookup.
  static Lines around(const Lines& lookup, const std::string& key, const std::string& pattern) {
    if (GetParam() == Source::identifier) {
      return lookup;
    }
    return joined(joined({"create message " + key, "id of " + key}, lookup),
                  {"format '" + pattern + "' of " + key, "drop message " + key});
  }
};

INSTANTIATE_TEST_SUITE_P(By, HandedOutText, testing::Values(Source::identifier, Source::serialized),
                         [](const testing::TestParamInfo<Source>& test) {
                           return test.param == Source::identifier ? "Identifier" : "Serialized";
                         });

TEST_P(HandedOutText, ResolvesTheLanguage) {
  const struct {
    const char* native;  // null where it is not set
    const char* language;
    const char* asked;  // null for the default language
  } rows[] = {
      {nullptr, nullptr, nullptr},    {nullptr, "", nullptr},
      {nullptr, "native", nullptr},   {nullptr, "de", "de"},
      {"de", nullptr, nullptr},       {"de", "", nullptr},
      {"de", "native", "de"},         {"de", "ja", "ja"},
      {"ja", "native", "ja"},         {"", "native", nullptr},
      {"native", "native", "native"}, {"de", "Native", "Native"},
      {"de", "NATIVE", "NATIVE"},     {"de", "native ", "native "},
      {"de", " native", " native"},   {"de", "nativ", "nativ"},
      {"de", "natives", "natives"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.native == nullptr ? "(not set)" : row.native) + ", " +
                 (row.language == nullptr ? "(null)" : row.language));
    m_manager = std::make_unique<Manager>();
    if (row.native != nullptr) {
      m_manager->setNativeLanguage(row.native);
    }
    useFactory();
    const std::string asked = row.asked == nullptr ? "en" : row.asked;
    const std::string text = asked + " MSG_A";
    EXPECT_EQ(localize("MSG_A", row.language), text);
    const Lines before = row.asked == nullptr
                             ? m_askedDefault
                             : Lines{"create catalog " + asked, "init " + asked + ", count 1"};
    EXPECT_EQ(
        m_script.taken(),
        around(joined(before, {"MSG_A from " + asked + ", default null, count 2"}), "MSG_A", text));
  }
}

TEST_P(HandedOutText, FollowsANativeLanguageThatChanges) {
  useFactory();
  EXPECT_STREQ(localize("MSG_A", "native"), "en MSG_A");
  m_manager->setNativeLanguage("de");
  EXPECT_STREQ(localize("MSG_A", "native"), "de MSG_A");
  m_manager->setNativeLanguage("ja");
  EXPECT_STREQ(localize("MSG_A", "native"), "ja MSG_A");
}

TEST_P(HandedOutText, FallsBackLikeAnyLookup) {
  useFactory();
  m_script.initResults["xx"] = notUsable;
  EXPECT_STREQ(localize("MSG_A", "xx"), "en MSG_A");
  EXPECT_EQ(m_script.taken(),
            around(joined(joined(m_triedXx, m_askedDefault), m_foundInEn), "MSG_A", "en MSG_A"));
  m_script.defaultLanguage = "xx";
  EXPECT_STREQ(localize("MSG_A", "xx"), "<MSG_A>");
  EXPECT_EQ(m_script.taken(), around(joined(m_triedXx, m_askedDefault), "MSG_A", "<MSG_A>"));
}

TEST_P(HandedOutText, IsOneAndTheSameEntryForOneKey) {
  useFactory();
  m_script.texts["en MSG_A"] = "the longest text of the three";
  m_script.texts["de MSG_A"] = "short";
  m_script.texts["ja MSG_A"] = "not so short";
  m_manager->activateCatalog("de");
  m_manager->activateCatalog("ja");
  const size_t before = m_texts.count();
  for (const char* language : {"ja", "en", "de", "ja", "en"}) {
    SCOPED_TRACE(language);
    const char* const text = localize("MSG_A", language);
    EXPECT_EQ(tstr(text), m_script.texts[std::string(language) + " MSG_A"]);
    EXPECT_TRUE(m_texts.has(text));
    EXPECT_EQ(m_texts.count(), before + 1);
  }
  const char* const last = localize("MSG_A", "en");
  giveBack(last);
  EXPECT_FALSE(m_texts.has(last));
  EXPECT_EQ(m_texts.count(), before);
}

TEST_P(HandedOutText, ThatIsOverwrittenByTheEmptyOneIsFreed) {
  useFactory();
  m_script.texts["de MSG_A"] = "";
  m_manager->activateCatalog("de");
  const size_t before = m_texts.count();
  localize("MSG_A", "en");
  const char* const text = localize("MSG_A", "de");
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(m_texts.count(), before);
}

TEST_P(HandedOutText, StaysWhateverElseHappens) {
  useFactory();
  std::map<std::string, const char*> handedOut;
  for (int i = 0; i < 100; ++i) {
    const std::string key = "MSG_" + std::to_string(i * 37 % 100);
    handedOut[key] = localize(key.c_str(), i % 2 == 0 ? "en" : "de");
  }
  giveBack("en MSG_0");
  handedOut.erase("MSG_0");
  m_manager->getMessage("MSG_1", nullptr, "ja");
  m_manager->setNativeLanguage("ja");
  Script otherScript;
  ScriptedFactory other(otherScript);
  m_manager->registerFactory(&other);
  byId("other", "en");
  for (const auto& [key, text] : handedOut) {
    SCOPED_TRACE(key);
    EXPECT_TRUE(m_texts.has(text));
    EXPECT_THAT(text, testing::AnyOf(testing::StrEq("en " + key), testing::StrEq("de " + key)));
  }
  m_manager.reset();
  for (const auto& [key, text] : handedOut) {
    EXPECT_FALSE(m_texts.has(text)) << key;
  }
}

TEST_P(HandedOutText, IsWhole) {
  useFactory();
  m_script.texts["en MSG_A"] = tstr("ab\0cd", 5);
  const char* const text = localize("MSG_A", "en");
  EXPECT_EQ(std::string(text, 6), std::string("ab\0cd\0", 6));
}

TEST_P(HandedOutText, MayBeAskedForWithAnEarlierTextAsTheKey) {
  useFactory();
  m_script.texts["en MSG_A"] = "MSG_A";
  char* text = localize("MSG_A", "en");
  ASSERT_STREQ(text, "MSG_A");
  m_script.texts["en MSG_A"] = "a longer text in its place";
  SCmnMessageInfo info{text, -1};
  if (GetParam() == Source::identifier) {
    m_manager->getLocalizedMessage(text, "en", &text);
  } else {
    m_manager->getLocalizedMessage(&info, "en", &text);
  }
  EXPECT_STREQ(text, "a longer text in its place");
  giveBack(text);
  EXPECT_FALSE(m_texts.has(text));
}

TEST_P(HandedOutText, StaysWhereTheNextOneFails) {
  useFactory();
  m_script.initResults["xx"] = notUsable;
  Lines throwing{"default language", "create catalog xx", "init xx, count 1", m_foundInEn[0]};
  if (GetParam() == Source::serialized) {
    throwing =
        joined(throwing, {"create message MSG_A", "id of MSG_A", "format 'en MSG_A' of MSG_A"});
  }
  char* const kept = localize("MSG_A", "en");
  m_script.taken();
  std::string key = "MSG_A";
  SCmnMessageInfo info{key.data(), -1};
  for (const std::string& line : throwing) {
    SCOPED_TRACE(line);
    const size_t textsBefore = m_texts.count();
    m_script.on[line] = refuse;
    char* result = kept;
    if (GetParam() == Source::identifier) {
      EXPECT_THROW(m_manager->getLocalizedMessage(key.c_str(), "xx", &result), Refused);
    } else {
      EXPECT_THROW(m_manager->getLocalizedMessage(&info, "xx", &result), Refused);
    }
    m_script.on.clear();
    EXPECT_EQ(result, kept);
    EXPECT_STREQ(result, "en MSG_A");
    EXPECT_EQ(m_texts.count(), textsBefore);
  }
}

TEST_P(HandedOutText, ThatCannotBeHadLeavesNoEntry) {
  useFactory();
  Lines throwing{m_foundInEn[0]};
  if (GetParam() == Source::serialized) {
    throwing =
        joined(throwing, {"create message MSG_A", "id of MSG_A", "format 'en MSG_A' of MSG_A"});
  }
  for (const std::string& line : throwing) {
    SCOPED_TRACE(line);
    m_script.on[line] = refuse;
    HeapWatch watch;
    EXPECT_THROW(localize("MSG_A", "en"), Refused);
    m_script.taken();
    watch.end();
    EXPECT_EQ(watch.newBlocks(), 0);
    m_script.on.clear();
  }
}

// ---- the operation that takes an identifier

using TextById = CatalogManager;

TEST_F(TextById, IsTheMarkerWithoutAFactory) {
  EXPECT_STREQ(byId("MSG_A", nullptr), "<MSG_A>");
  EXPECT_STREQ(byId("MSG_A", "native"), "<MSG_A>");
  EXPECT_STREQ(byId("", "de"), "<>");
}

// ---- the operation that takes a serialized message

using TextBySerialized = CatalogManager;

TEST_F(TextBySerialized, IsWhatTheMessageMakesOfThePattern) {
  useFactory();
  EXPECT_STREQ(bySerialized("MSG_A|7", "en"), "en MSG_A|7");
  EXPECT_EQ(m_script.taken(),
            (Lines{"create message MSG_A|7", "id of MSG_A", "MSG_A from en, default null, count 2",
                   "format 'en MSG_A' of MSG_A", "drop message MSG_A"}));
}

TEST_F(TextBySerialized, GivesTheFactoryTheRecordItself) {
  useFactory();
  char text[] = "MSG_A";
  SCmnMessageInfo info{text, 2};
  char* result = nullptr;
  m_manager->getLocalizedMessage(&info, "en", &result);
  EXPECT_EQ(m_factory.record, &info);
  EXPECT_EQ(info.text, text);
  EXPECT_EQ(info.length, 2);
  EXPECT_STREQ(text, "MSG_A");
  EXPECT_STREQ(result, "en MSG_A");
}

TEST_F(TextBySerialized, IsKeptUnderTheWholeSerializedText) {
  useFactory();
  const char* const first = bySerialized("MSG_A|1", "en");
  const char* const second = bySerialized("MSG_A|2", "en");
  const char* const plain = byId("MSG_A", "en");
  EXPECT_STREQ(first, "en MSG_A|1");
  EXPECT_STREQ(second, "en MSG_A|2");
  EXPECT_STREQ(plain, "en MSG_A");
  EXPECT_TRUE(m_texts.has(first));
  EXPECT_TRUE(m_texts.has(second));
  EXPECT_TRUE(m_texts.has(plain));
}

TEST_F(TextBySerialized, SharesTheEntryOfAnIdentifierThatIsTheSameText) {
  useFactory();
  const size_t before = m_texts.count();
  bySerialized("MSG_A|1", "en");
  EXPECT_EQ(m_texts.count(), before + 1);
  EXPECT_STREQ(byId("MSG_A|1", "en"), "en MSG_A|1");
  EXPECT_EQ(m_texts.count(), before + 1);
  const char* const last = bySerialized("MSG_A|1", "en");
  EXPECT_EQ(m_texts.count(), before + 1);
  giveBack(last);
  EXPECT_EQ(m_texts.count(), before);
}

TEST_F(TextBySerialized, IsStoredAfterTheMessageIsLetGo) {
  useFactory();
  char key[] = "MSG_A";
  SCmnMessageInfo info{key, -1};
  char* result = nullptr;
  m_manager->getLocalizedMessage(&info, "en", &result);
  char* const earlier = result;
  std::string found;
  m_script.on["drop message MSG_A"] = [&] {
    found = result == earlier ? earlier : "stored too soon";
  };
  m_manager->activateCatalog("de");
  m_manager->getLocalizedMessage(&info, "de", &result);
  EXPECT_EQ(found, "en MSG_A");
  EXPECT_STREQ(result, "de MSG_A");
}

TEST_F(TextBySerialized, LeavesTheMessageToTheFactoryIfThatHoldsItToo) {
  useFactory();
  m_factory.keepsMessages = true;
  bySerialized("MSG_A", "en");
  EXPECT_EQ(m_script.taken(),
            (Lines{"create message MSG_A", "id of MSG_A", "MSG_A from en, default null, count 2",
                   "format 'en MSG_A' of MSG_A"}));
  EXPECT_EQ(m_factory.kept->getCount(), 1);
}

// ---- deleteLocalizedMessage

class DeleteLocalizedMessage : public CatalogManager {
 protected:
  void SetUp() override { useFactory(); }

  const char* store(const char* key, const tstr& text) {
    m_script.texts[std::string("en ") + key] = text;
    const char* const result = byId(key, "en");
    m_script.texts.erase(std::string("en ") + key);
    m_script.taken();
    return result;
  }

  // How many blocks less there are when the text is given back.
  int blocksFreedWith(const char* text) {
    HeapWatch watch;
    giveBack(text);
    watch.end();
    return -watch.newBlocks();
  }
};

TEST_F(DeleteLocalizedMessage, FreesTheTextAndLeavesThePointer) {
  const char* const text = store("MSG_A", "text");
  char* result = const_cast<char*>(text);
  m_manager->deleteLocalizedMessage(&result);
  EXPECT_FALSE(m_texts.has(text));
  EXPECT_EQ(result, text);
  EXPECT_EQ(m_script.taken(), Lines{}) << "nobody is asked";
}

TEST_F(DeleteLocalizedMessage, FindsATextThatWasNotHandedOut) {
  const char* const text = store("MSG_A", "text");
  char own[] = "text";
  char* result = own;
  m_manager->deleteLocalizedMessage(&result);
  EXPECT_FALSE(m_texts.has(text));
  EXPECT_EQ(result, own);
  EXPECT_STREQ(own, "text");
}

TEST_F(DeleteLocalizedMessage, ErasesOnlyTheFirstEqualTextInTheOrderOfTheKeys) {
  const Lines order{"", "MSG", "MSG_A", "Z", "a", "b", "\xC3\xA9"};  // by bytes
  std::map<std::string, const char*> stored;
  for (const size_t i : {4U, 0U, 6U, 2U, 5U, 1U, 3U}) {
    stored[order[i]] = store(order[i].c_str(), "text");
  }
  for (size_t erased = 0; erased < order.size(); ++erased) {
    giveBack(stored[order.back()]);  // the last, and yet the first one goes
    for (size_t i = 0; i < order.size(); ++i) {
      EXPECT_EQ(m_texts.has(stored[order[i]]), i > erased) << order[i] << " after " << erased + 1;
    }
  }
}

TEST_F(DeleteLocalizedMessage, ChangesNothingWhereNoTextMatches) {
  const Lines stored{"text", "Text", "tex", "text ", "\xC3\xA9"};
  std::vector<const char*> handedOut;
  for (size_t i = 0; i < stored.size(); ++i) {
    handedOut.push_back(store(std::to_string(i).c_str(), stored[i].c_str()));
  }
  const size_t before = m_texts.count();
  for (const char* other :
       {"te", "textt", "TEXT", "texu", "text  ", "0", "en 0", "\xC3", "\xC3\xA9\xA9", ""}) {
    giveBack(other);
    EXPECT_EQ(m_texts.count(), before) << other;
  }
  giveBack(nullptr);
  EXPECT_EQ(m_texts.count(), before);
  giveBack("tex");
  EXPECT_FALSE(m_texts.has(handedOut[2]));
  EXPECT_EQ(m_texts.count(), before - 1);
}

TEST_F(DeleteLocalizedMessage, DoesNothingWhereNothingIsKept) {
  giveBack(nullptr);
  giveBack("");
  giveBack("text");
  m_manager = std::make_unique<Manager>();
  giveBack(nullptr);
  giveBack("text");
}

TEST_F(DeleteLocalizedMessage, TakesNullForTheEmptyText) {
  const char* const empty = store("MSG_B", "");
  ASSERT_STREQ(empty, "");
  const char* const other = store("MSG_A", "text");
  EXPECT_GT(blocksFreedWith(nullptr), 0) << "its entry has gone";
  EXPECT_TRUE(m_texts.has(other));
  EXPECT_EQ(blocksFreedWith(nullptr), 0);
}

TEST_F(DeleteLocalizedMessage, ErasesTheWholeEntry) {
  store("MSG_A", "text");
  store("MSG_B", "");
  const int entry = blocksFreedWith("");
  EXPECT_GT(entry, 0);
  EXPECT_EQ(blocksFreedWith("text"), entry + 2) << "with the text, and what m_texts noted of it";
  EXPECT_EQ(blocksFreedWith(""), 0);
  EXPECT_EQ(blocksFreedWith("text"), 0);
}

TEST_F(DeleteLocalizedMessage, ComparesBeyondAZeroByte) {
  const char* const longer = store("MSG_A", tstr("ab\0cd", 5));
  const char* const plain = store("MSG_B", "ab");
  giveBack(longer);
  EXPECT_TRUE(m_texts.has(longer)) << "what is asked for is \"ab\"";
  EXPECT_FALSE(m_texts.has(plain));
  giveBack(longer);
  EXPECT_TRUE(m_texts.has(longer));
}

TEST_F(DeleteLocalizedMessage, ForgetsATextThatWasOverwritten) {
  store("MSG_A", "first");
  const char* const second = store("MSG_A", "second");
  giveBack("first");
  EXPECT_TRUE(m_texts.has(second));
  giveBack("second");
  EXPECT_FALSE(m_texts.has(second));
}

TEST_F(DeleteLocalizedMessage, LeavesTheKeyFreeForANewText) {
  giveBack(store("MSG_A", "text"));
  const char* const again = store("MSG_A", "again");
  EXPECT_STREQ(again, "again");
  EXPECT_TRUE(m_texts.has(again));
}

// ---- the native language

using NativeLanguage = CatalogManager;

TEST_F(NativeLanguage, IsEmptyAtFirst) {
  ASSERT_NE(m_manager->getNativeLanguage(), nullptr);
  EXPECT_STREQ(m_manager->getNativeLanguage(), "");
}

TEST_F(NativeLanguage, IsCopied) {
  char language[] = "de";
  m_manager->setNativeLanguage(language);
  language[0] = 'x';
  const char* const handedOut = m_manager->getNativeLanguage();
  EXPECT_STREQ(handedOut, "de");
  Manager other;
  other.setNativeLanguage("ja");
  EXPECT_EQ(m_manager->getNativeLanguage(), handedOut);
  EXPECT_STREQ(handedOut, "de");
}

TEST_F(NativeLanguage, IsReplacedAsItIs) {
  for (const char* language : {"ja", "native", "a much longer name of a language", "", "DE "}) {
    m_manager->setNativeLanguage(language);
    EXPECT_STREQ(m_manager->getNativeLanguage(), language);
  }
}

TEST_F(NativeLanguage, IsSetWithoutAskingTheFactory) {
  useFactory();
  m_manager->setNativeLanguage("de");
  m_manager->getNativeLanguage();
  EXPECT_EQ(m_script.taken(), Lines{});
}

// ---- the end of a manager, and its count

using EndOfManager = CatalogManager;

TEST_F(EndOfManager, ReleasesTheCatalogsAndDoesNotTouchTheFactory) {
  useFactory();
  m_manager->activateCatalog("de");
  m_manager->activateCatalog("ja");
  m_script.taken();
  m_manager.reset();
  EXPECT_THAT(m_script.taken(), testing::UnorderedElementsAre("drop catalog en", "drop catalog de",
                                                              "drop catalog ja"));
}

TEST_F(EndOfManager, LeavesACatalogToItsOtherHolders) {
  useFactory();
  Catalog held = m_factory.catalog;
  EXPECT_EQ(held->getCount(), 2);
  m_manager.reset();
  EXPECT_EQ(m_script.taken(), Lines{});
  EXPECT_EQ(held->getCount(), 1);
}

TEST_F(EndOfManager, MayComeAfterTheFactorys) {
  std::unique_ptr<CCmnMessageCatalogFactory> shortLived(new ScriptedFactory(m_script));
  m_manager->registerFactory(shortLived.get());
  m_script.taken();
  shortLived.reset();
  EXPECT_EQ(m_script.taken(), Lines{"drop factory"});
  m_manager.reset();
  EXPECT_EQ(m_script.taken(), Lines{"drop catalog en"});
}

TEST_F(EndOfManager, FreesEveryText) {
  useFactory();
  for (const char* key : {"MSG_A", "MSG_B", "MSG_C"}) {
    byId(key, "de");
    bySerialized(std::string(key) + "|1", "en");
  }
  EXPECT_GE(m_texts.count(), 6U);
  m_manager.reset();
  EXPECT_EQ(m_texts.count(), 0U);
}

TEST_F(EndOfManager, ComesWhenItsLastHolderLetsGo) {
  using Holder = CCmnSmartPtr<Manager, CCmnNullAllocator<Manager>>;
  Holder holder(m_manager.release());
  holder->registerFactory(&m_factory);
  m_script.taken();
  {
    const Holder other = holder;
    CCmnRefCount* const counted = other.get();
    EXPECT_EQ(counted->getCount(), 2);
  }
  EXPECT_EQ(holder->getCount(), 1);
  EXPECT_EQ(m_script.taken(), Lines{});
  holder = Holder();
  EXPECT_EQ(m_script.taken(), Lines{"drop catalog en"});
}

// A second path to the count is still one count, since the base is virtual.
class CountedTwice : public Manager, public virtual CCmnRefCount {};

TEST_F(EndOfManager, HasOneCountInAClassThatIsCountedOtherwiseToo) {
  CountedTwice both;
  CCmnRefCount& count = both;
  Manager& asManager = both;
  EXPECT_EQ(asManager.increment(), 1);
  EXPECT_EQ(count.getCount(), 1);
}

// ---- with ICU's catalogs and messages

class IcuManager : public testing::Test {
 protected:
  void SetUp() override {
    kelp_test::installBundle("messages", kelp_test::BundleForm::directory);
    m_manager.registerFactory(&m_factory);
  }

  kelp_test::ScopedIcu m_icu{"de"};
  kelp_test::InstallRoot m_root;
  kelp_test::IcuFactory m_factory;
  Manager m_manager;
};

TEST_F(IcuManager, LocalizesASerializedMessage) {
  CCmnIcuMessage message("MSG_OPEN_FAILED", 2);
  message.addArgument("/tmp/a");
  message.addArgument(13);
  SCmnMessageInfo* const info = message.serialize();
  m_manager.setNativeLanguage("ja");
  const char* const english = "messages: The file /tmp/a could not be opened (13).";
  const char* const german = "messages: Die Datei /tmp/a ließ sich nicht öffnen (13).";
  const char* const japanese = "messages: ファイル /tmp/a を開けませんでした（13）。";
  const struct {
    const char* language;
    const char* text;
  } rows[] = {
      {"en", english},
      {"de", german},
      {"ja", japanese},
      {nullptr, english},
      {"", english},
      {"native", japanese},
      {"de_AT", english},  // it has only a parent's texts: a
                           // failed catalog
      {"fr", german},      // served from the process's default locale
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.language == nullptr ? "(null)" : row.language);
    char* result = nullptr;
    m_manager.getLocalizedMessage(info, row.language, &result);
    EXPECT_STREQ(result, row.text);
    m_manager.deleteLocalizedMessage(&result);
  }
}

TEST_F(IcuManager, GivesPatternsAndMarkersUnderTheCatalogsName) {
  EXPECT_EQ(m_manager.getMessage("MSG_GREETING", nullptr, "ja"),
            tstr("messages: {0}さん、こんにちは"));
  EXPECT_EQ(m_manager.getMessage("MSG_NONE", nullptr, "ja"), tstr("messages: <MSG_NONE>"));
  EXPECT_EQ(m_manager.getMessage("MSG_NONE", "x", "ja"), tstr("x"));
  char* result = nullptr;
  m_manager.getLocalizedMessage("MSG_PLAIN", "de", &result);
  EXPECT_STREQ(result, "messages: einfacher Text");
}

TEST_F(IcuManager, LetsTheExceptionOfATextThatIsCutOffPass) {
  const std::string whole =
      "<SERIALIZED_MESSAGE MSGID=MSG_GREETING SEVERITY=2>\n"
      "\t<ARGVALUE INDEX=0 TYPE=3>Anna</ARGVALUE>\n"
      "</SERIALIZED_MESSAGE>\n";
  std::string cut = whole.substr(0, whole.find("ARGVALUE>"));
  std::string key = whole;
  SCmnMessageInfo info{key.data(), static_cast<int>(key.length())};
  char* result = nullptr;
  m_manager.getLocalizedMessage(&info, "en", &result);
  char* const before = result;
  SCmnMessageInfo cutInfo{cut.data(), static_cast<int>(cut.length())};
  EXPECT_THROW(m_manager.getLocalizedMessage(&cutInfo, "en", &result), std::out_of_range);
  EXPECT_EQ(result, before);
  EXPECT_STREQ(result, "messages: Hello, Anna");
  m_manager.getLocalizedMessage(&info, "de", &result);
  EXPECT_STREQ(result, "messages: Grüß Gott, Anna");
}

}  // namespace

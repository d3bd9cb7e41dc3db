#include "cmnicucatalog.h"

#include "cmnicumessage.h"
#include "cmnsmartptr.h"
#include "install_root.h"
#include "resource_bundles.h"
#include "scratch.h"

#include <gtest/gtest.h>
#include <unicode/fmtable.h>
#include <unicode/locid.h>
#include <unicode/resbund.h>
#include <unicode/timezone.h>
#include <unicode/uclean.h>
#include <unicode/unistr.h>

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using kelp_cmn_4_4::CCmnIcuMessage;
using kelp_cmn_4_4::CCmnIcuMessageCatalog;
using kelp_cmn_4_4::CCmnMessageCatalog;
using kelp_cmn_4_4::CCmnMessageCatalogPtr;
using kelp_cmn_4_4::tstr;
using kelp_test::BundleForm;
using kelp_test::installBundle;
using kelp_test::InstallRoot;
using kelp_test::ScopedIcu;

// What init() gives.
constexpr int opened = 0;
constexpr int notUsable = 3;

constexpr char messagesPath[] = "/usr/tulsk/resources/libmessages";

class Catalog : public CCmnIcuMessageCatalog {
 public:
  using CCmnIcuMessageCatalog::CCmnIcuMessageCatalog;
  using CCmnIcuMessageCatalog::m_bundlePath;
  using CCmnIcuMessageCatalog::m_catalogName;
  using CCmnIcuMessageCatalog::m_language;

  // The text without default, which a catalog always has.
  std::string text(const std::string& id) const { return getMessage(id, nullptr).c_str(); }
};

void expectFields(const Catalog& catalog, const std::string& language, const std::string& name,
                  const std::string& path) {
  EXPECT_EQ(catalog.m_language, language);
  EXPECT_EQ(catalog.m_catalogName.c_str(), name);
  EXPECT_EQ(catalog.m_bundlePath.c_str(), path);
}

// What ICU itself says about a bundle, and about a text in it.
UErrorCode statusOf(const std::string& path, const std::string& language) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::ResourceBundle bundle(path.c_str(), icu::Locale(language.c_str()), status);
  return status;
}

UErrorCode statusOfText(const std::string& path, const std::string& language, const char* key) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::ResourceBundle bundle(path.c_str(), icu::Locale(language.c_str()), status);
  status = U_ZERO_ERROR;
  bundle.getStringEx(key, status);
  return status;
}

// The result that belongs to a status, by the rule.
int resultFor(UErrorCode status) {
  return status == U_ZERO_ERROR || status == U_USING_DEFAULT_WARNING ? opened : notUsable;
}

std::string nameOfForm(const testing::TestParamInfo<BundleForm>& form) {
  return form.param == BundleForm::directory ? "Directory" : "Package";
}

// An install root, and ICU with the default locale "ja"; both are closed in this order's reverse.
class IcuCatalogBase : public testing::Test {
 protected:
  IcuCatalogBase() { fs::create_directories(InstallRoot::resourceDir); }

  InstallRoot m_root;
  ScopedIcu m_icu{"ja"};
};

class IcuCatalog : public IcuCatalogBase, public testing::WithParamInterface<BundleForm> {};
INSTANTIATE_TEST_SUITE_P(Forms, IcuCatalog,
                         testing::Values(BundleForm::directory, BundleForm::package), nameOfForm);

using IcuCatalogPlaces = IcuCatalogBase;

// ---- construction and places

TEST(IcuCatalogConstruction, SetsLanguageAndNameAndOpensNothing) {
  expectFields(Catalog("de_AT", "messages"), "de_AT", "messages", "");
}

TEST_P(IcuCatalog, WithoutInitHasNoTextsEvenIfTheBundleIsThere) {
  installBundle("messages", GetParam());
  const Catalog catalog("de", "messages");
  EXPECT_STREQ(catalog.getMessage("MSG_PLAIN", "default").c_str(), "default");
  EXPECT_STREQ(catalog.getMessage("MSG_PLAIN", "").c_str(), "");
  EXPECT_EQ(catalog.text("MSG_PLAIN"), "messages: <MSG_PLAIN>");
}

TEST_F(IcuCatalogPlaces, BundlePathIsTheNameWithItsPrefixBelowTheResources) {
  for (const std::string name : {"messages", "absent", "with space", "", "ネコ"}) {
    Catalog catalog("de", name.c_str());
    catalog.init();
    expectFields(catalog, "de", name, "/usr/tulsk/resources/lib" + name);
  }
}

TEST_F(IcuCatalogPlaces, InitCreatesTheMissingResourceDirectory) {
  fs::remove(InstallRoot::resourceDir);
  const mode_t oldMask = ::umask(027);
  Catalog catalog("de", "messages");
  EXPECT_EQ(catalog.init(), notUsable);
  ::umask(oldMask);
  struct stat status {};
  ASSERT_EQ(stat(InstallRoot::resourceDir, &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777U, 0750U);
  EXPECT_TRUE(fs::is_empty(InstallRoot::resourceDir));
}

TEST_F(IcuCatalogPlaces, InitFailsWithoutAnInstallRoot) {
  fs::remove_all(InstallRoot::path);
  Catalog catalog("de", "messages");
  EXPECT_EQ(catalog.init(), notUsable);
  EXPECT_STREQ(catalog.m_bundlePath.c_str(), messagesPath);
  EXPECT_FALSE(fs::exists(InstallRoot::path));
}

// ---- what init makes of ICU's status

struct StatusRow {
  const char* name;
  const char* defaultLocale;
  std::string language;
  UErrorCode status;
  const char* plainText;  // what MSG_PLAIN is afterwards, whatever the status
};

void PrintTo(const StatusRow& row, std::ostream* out) { *out << row.name; }

const char german[] = "messages: einfacher Text";
const char english[] = "messages: plain text";
const char japanese[] = "messages: 普通の文";
const char rootText[] = "messages: plain text of the root";
const char noText[] = "messages: <MSG_PLAIN>";

const StatusRow statusRows[] = {
    {"TheVeryLanguage", "ja", "de", U_ZERO_ERROR, german},
    {"TheVeryLanguageThatIsTheDefaultToo", "de", "de", U_ZERO_ERROR, german},
    {"KeywordsDoNotCount", "ja", "de@collation=phonebook", U_ZERO_ERROR, german},
    {"TheRootByName", "de", "root", U_ZERO_ERROR, rootText},
    {"NoLanguageIsTheRoot", "de", "", U_ZERO_ERROR, rootText},
    {"ParentOfACountry", "ja", "de_AT", U_USING_FALLBACK_WARNING, german},
    {"ParentOfACountryThatIsTheDefault", "de_AT", "de_AT", U_USING_FALLBACK_WARNING, german},
    {"ParentThatIsTheDefault", "de", "de_AT", U_USING_FALLBACK_WARNING, german},
    {"ParentOfACountryWithAHyphen", "ja", "de-AT", U_USING_FALLBACK_WARNING, german},
    {"ParentOfAVariant", "en", "ja_JP_X", U_USING_FALLBACK_WARNING, japanese},
    {"DefaultForAMissingLanguage", "de", "fr", U_USING_DEFAULT_WARNING, german},
    {"DefaultForAMissingCountry", "en", "fr_FR", U_USING_DEFAULT_WARNING, english},
    {"ParentOfTheDefault", "de_AT", "fr", U_USING_DEFAULT_WARNING, german},
    {"RootForAMissingDefault", "pt_BR", "fr", U_USING_DEFAULT_WARNING, rootText},
    {"RootForAMissingLanguageThatIsTheDefault", "fr", "fr", U_USING_DEFAULT_WARNING, rootText},
    {"RootAsTheDefault", "root", "fr_FR", U_USING_DEFAULT_WARNING, rootText},
    {"NoLanguageAtAll", "de", "../ja", U_USING_DEFAULT_WARNING, german},
    {"ALanguageTooLongForICU", "de", "de_AT_" + std::string(200, 'X'), U_ILLEGAL_ARGUMENT_ERROR,
     noText},
};

class IcuCatalogStatus : public testing::TestWithParam<std::tuple<BundleForm, StatusRow>> {
 protected:
  InstallRoot m_root;
};

std::string nameOfRow(const testing::TestParamInfo<IcuCatalogStatus::ParamType>& row) {
  const bool directory = std::get<BundleForm>(row.param) == BundleForm::directory;
  return std::get<StatusRow>(row.param).name +
         std::string(directory ? "InADirectory" : "InAPackage");
}

INSTANTIATE_TEST_SUITE_P(Rows, IcuCatalogStatus,
                         testing::Combine(testing::Values(BundleForm::directory,
                                                          BundleForm::package),
                                          testing::ValuesIn(statusRows)),
                         nameOfRow);

TEST_P(IcuCatalogStatus, DecidesTheResultAndTheBundleIsKept) {
  const auto& row = std::get<StatusRow>(GetParam());
  const ScopedIcu icu(row.defaultLocale);
  installBundle("messages", std::get<BundleForm>(GetParam()));
  Catalog catalog(row.language, "messages");
  EXPECT_EQ(catalog.init(), resultFor(row.status));
  EXPECT_EQ(catalog.text("MSG_PLAIN"), row.plainText);
  ASSERT_EQ(statusOf(messagesPath, row.language), row.status) << "the row met another status";
}

// ---- bundles that are missing or damaged

void expectFailedCatalog(const std::string& language) {
  Catalog catalog(language, "messages");
  EXPECT_EQ(catalog.init(), notUsable);
  EXPECT_STREQ(catalog.m_bundlePath.c_str(), messagesPath);
  EXPECT_STREQ(catalog.getMessage("MSG_PLAIN", "default").c_str(), "default");
  EXPECT_EQ(catalog.text("MSG_PLAIN"), noText);
  EXPECT_EQ(statusOf(messagesPath, language), U_MISSING_RESOURCE_ERROR);
}

TEST_F(IcuCatalogPlaces, InitFailsWithoutABundle) { expectFailedCatalog("de"); }

TEST_F(IcuCatalogPlaces, InitFailsOnAnEmptyDirectory) {
  fs::create_directory(messagesPath);
  expectFailedCatalog("de");
}

TEST_F(IcuCatalogPlaces, InitFailsOnAFileInTheDirectorysPlace) {
  kelp_test::writeFile(messagesPath, "text");
  expectFailedCatalog("de");
}

TEST_P(IcuCatalog, InitFailsWhereOnlyAnotherNameIsInstalled) {
  installBundle("typed", GetParam());
  expectFailedCatalog("de");
}

// Neither the language nor the default nor a root.
TEST_F(IcuCatalogPlaces, InitFailsWhereOnlyAnotherLanguageIsInstalled) {
  installBundle("messages", BundleForm::directory);
  for (const char* other : {"/de.res", "/ja.res", "/root.res"}) {
    fs::remove(messagesPath + std::string(other));
  }
  expectFailedCatalog("de");
}

TEST_F(IcuCatalogPlaces, ALanguageNeedsNoRoot) {
  installBundle("messages", BundleForm::directory);
  fs::remove(messagesPath + std::string("/root.res"));
  Catalog catalog("de", "messages");
  EXPECT_EQ(catalog.init(), opened);
  EXPECT_EQ(catalog.text("MSG_PLAIN"), german);
  EXPECT_EQ(catalog.text("MSG_ROOT_ONLY"), "messages: <MSG_ROOT_ONLY>");
}

struct Damage {
  const char* name;
  std::function<std::string(std::string)> apply;
};

std::string flipped(std::string content, size_t position) {
  content.at(position) = static_cast<char>(~content[position]);
  return content;
}

// A compiled file begins with the size of its header and a magic number in bytes 2 and 3; from 8 on
// it tells the byte order, the kind of the content and its version. ICU trusts the size, and all
// that comes later: such damage can crash it.
const Damage damages[] = {
    {"empty", [](const std::string&) { return std::string(); }},
    {"one byte", [](const std::string& content) { return content.substr(0, 1); }},
    {"half a header", [](const std::string& content) { return content.substr(0, 12); }},
    {"another magic number", [](const std::string& content) { return flipped(content, 2); }},
    {"another byte order", [](const std::string& content) { return flipped(content, 8); }},
    {"another kind", [](const std::string& content) { return flipped(content, 12); }},
    {"another version", [](const std::string& content) { return flipped(content, 16); }},
    {"a text", [](const std::string&) { return std::string(400, 'x'); }},
};

void damageFile(const fs::path& file, const Damage& damage) {
  kelp_test::writeFile(file, damage.apply(kelp_test::readFile(file)));
}

void damageBundle(BundleForm form, const Damage& damage) {
  if (form == BundleForm::package) {
    damageFile(messagesPath + std::string(".dat"), damage);
    return;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(messagesPath)) {
    damageFile(entry.path(), damage);
  }
}

TEST_P(IcuCatalog, InitFailsOnADamagedBundle) {
  for (const Damage& damage : damages) {
    SCOPED_TRACE(damage.name);
    const ScopedIcu icu("ja");
    fs::remove_all(InstallRoot::resourceDir);
    installBundle("messages", GetParam());
    damageBundle(GetParam(), damage);
    for (const char* language : {"de", "de_AT", "fr", "root"}) {
      SCOPED_TRACE(language);
      expectFailedCatalog(language);
    }
  }
}

// ICU opens what has a whole header, and finds less in it.
TEST_P(IcuCatalog, InitFollowsIcuOnABundleCutInHalf) {
  const Damage half{
      "half", [](const std::string& content) { return content.substr(0, content.size() / 2); }};
  for (const char* language : {"de", "root"}) {
    SCOPED_TRACE(language);
    const ScopedIcu icu("ja");
    fs::remove_all(InstallRoot::resourceDir);
    installBundle("messages", GetParam());
    damageBundle(GetParam(), half);
    Catalog catalog(language, "messages");
    EXPECT_EQ(catalog.init(), resultFor(statusOf(messagesPath, language)));
    EXPECT_STREQ(catalog.getMessage("MSG_ROOT_ONLY", "default").c_str(), "default");
  }
}

// For ICU, a damaged language is a missing one.
TEST_F(IcuCatalogPlaces, ADamagedLanguageIsPassedOverForTheDefault) {
  for (const Damage& damage : damages) {
    SCOPED_TRACE(damage.name);
    const ScopedIcu icu("ja");
    fs::remove_all(InstallRoot::resourceDir);
    installBundle("messages", BundleForm::directory);
    damageFile(messagesPath + std::string("/de.res"), damage);
    Catalog catalog("de", "messages");
    EXPECT_EQ(catalog.init(), opened);
    EXPECT_EQ(catalog.text("MSG_PLAIN"), japanese);
    EXPECT_EQ(statusOf(messagesPath, "de"), U_USING_DEFAULT_WARNING);
  }
}

TEST_P(IcuCatalog, ABundleThatIsInstalledAfterTheFirstLookIsNotSeen) {
  expectFailedCatalog("de");
  installBundle("messages", GetParam());
  expectFailedCatalog("de");
  u_cleanup();  // as a new process would
  Catalog catalog("de", "messages");
  EXPECT_EQ(catalog.init(), opened);
}

// ---- texts

struct TextRow {
  const char* language;
  std::string id;
  std::string text;
};

TEST_P(IcuCatalog, FoundTextStandsBehindTheNameInUtf8) {
  installBundle("messages", GetParam());
  const TextRow rows[] = {
      {"en", "MSG_PLAIN", "messages: plain text"},
      {"en", "MSG_GREETING", "messages: Hello, {0}"},
      {"en", "MSG_EMPTY", "messages: "},
      {"de", "MSG_GREETING", "messages: Grüß Gott, {0}"},
      {"de", "MSG_OPEN_FAILED",
       "messages: Die Datei {0} ließ sich nicht öffnen ({1,number,integer})."},
      {"ja", "MSG_PLAIN", "messages: 普通の文"},
      {"ja", "MSG_OPEN_FAILED",
       "messages: ファイル {0} を開けませんでした（{1,number,integer}）。"},
      {"ja", "MSG_ROOT_ONLY", "messages: only the root has this"},
  };
  for (const TextRow& row : rows) {
    SCOPED_TRACE(row.language + (" " + row.id));
    Catalog catalog(row.language, "messages");
    ASSERT_EQ(catalog.init(), opened);
    EXPECT_EQ(catalog.text(row.id), row.text);
    EXPECT_EQ(catalog.getMessage(row.id, "default").c_str(), row.text);
    EXPECT_EQ(catalog.getMessage(row.id, "").c_str(), row.text);
  }
}

TEST_P(IcuCatalog, TextOfTheRootCountsAsFoundInALanguage) {
  installBundle("messages", GetParam());
  Catalog catalog("de", "messages");
  ASSERT_EQ(catalog.init(), opened);
  EXPECT_EQ(catalog.text("MSG_ROOT_ONLY"), "messages: only the root has this");
  EXPECT_STREQ(catalog.getMessage("MSG_ROOT_ONLY", "default").c_str(),
               "messages: only the root has this");
  EXPECT_EQ(statusOfText(messagesPath, "de", "MSG_ROOT_ONLY"), U_USING_DEFAULT_WARNING);
}

// The country's file is one that has other keys than the language's.
TEST_F(IcuCatalogPlaces, TextOfTheLanguageCountsAsFoundInACountry) {
  installBundle("messages", BundleForm::directory);
  fs::copy_file(messagesPath + std::string("/ja.res"), messagesPath + std::string("/en_GB.res"));
  Catalog catalog("en_GB", "messages");
  ASSERT_EQ(catalog.init(), opened);
  EXPECT_EQ(statusOf(messagesPath, "en_GB"), U_ZERO_ERROR);
  EXPECT_EQ(catalog.text("MSG_PLAIN"), japanese);
  EXPECT_STREQ(catalog.getMessage("MSG_EMPTY", "default").c_str(), "messages: ");
  EXPECT_EQ(statusOfText(messagesPath, "en_GB", "MSG_EMPTY"), U_USING_FALLBACK_WARNING);
  EXPECT_EQ(catalog.text("MSG_ROOT_ONLY"), "messages: only the root has this");
}

TEST_P(IcuCatalog, WhatIsNoTextCountsAsMissing) {
  installBundle("messages", GetParam());
  installBundle("typed", GetParam());
  struct Row {
    UErrorCode status;
    const char* name;
    std::string id;
  };
  const Row rows[] = {
      {U_MISSING_RESOURCE_ERROR, "messages", "MSG_NONE"},
      {U_MISSING_RESOURCE_ERROR, "messages", ""},
      {U_MISSING_RESOURCE_ERROR, "messages", "msg_plain"},
      {U_MISSING_RESOURCE_ERROR, "messages", "MSG_PLAIN "},
      {U_MISSING_RESOURCE_ERROR, "messages", "MSG_EMPTY"},  // another language has it
      {U_MISSING_RESOURCE_ERROR, "messages", "MSG_ネコ"},
      {U_RESOURCE_TYPE_MISMATCH, "typed", "MSG_INTEGER"},
      {U_RESOURCE_TYPE_MISMATCH, "typed", "MSG_TABLE"},
      {U_RESOURCE_TYPE_MISMATCH, "typed", "MSG_ARRAY"},
      {U_RESOURCE_TYPE_MISMATCH, "typed", "MSG_VECTOR"},
      {U_RESOURCE_TYPE_MISMATCH, "typed", "MSG_BINARY"},
      {U_MISSING_RESOURCE_ERROR, "typed", "MSG_TABLE/inner"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name + (" " + row.id));
    Catalog catalog("de", row.name);
    ASSERT_EQ(catalog.init(), opened);
    EXPECT_EQ(statusOfText(catalog.m_bundlePath.c_str(), "de", row.id.c_str()), row.status);
    EXPECT_STREQ(catalog.getMessage(row.id, "the default: {0}").c_str(), "the default: {0}");
    EXPECT_STREQ(catalog.getMessage(row.id, "").c_str(), "");
    EXPECT_EQ(catalog.text(row.id), row.name + (": <" + row.id + ">"));
  }
}

TEST_P(IcuCatalog, IdentifiersAndTextsEndAtAZeroByte) {
  installBundle("messages", GetParam());
  installBundle("typed", GetParam());
  Catalog catalog("de", "messages");
  ASSERT_EQ(catalog.init(), opened);
  EXPECT_EQ(catalog.text(std::string("MSG_PLAIN\0_MORE", 15)), german);
  const tstr marker = catalog.getMessage(std::string("MSG_NONE\0_MORE", 14), nullptr);
  EXPECT_EQ(std::string(marker.c_str(), marker.length()), "messages: <MSG_NONE>");
  Catalog typed("de", "typed");
  ASSERT_EQ(typed.init(), opened);
  const tstr cut = typed.getMessage("MSG_ZERO", nullptr);
  EXPECT_EQ(std::string(cut.c_str(), cut.length()), "typed: before");
}

TEST_F(IcuCatalogPlaces, ANameMayBeEmpty) {
  installBundle("messages", BundleForm::directory);
  Catalog missing("de", "");
  EXPECT_EQ(missing.init(), notUsable);
  EXPECT_EQ(missing.text("MSG_X"), ": <MSG_X>");
  EXPECT_STREQ(missing.getMessage("MSG_X", "default").c_str(), "default");
  u_cleanup();  // as a new process would
  fs::rename(messagesPath, InstallRoot::resourceDir + std::string("lib"));
  Catalog catalog("de", "");
  EXPECT_EQ(catalog.init(), opened);
  EXPECT_EQ(catalog.text("MSG_PLAIN"), ": einfacher Text");
  EXPECT_EQ(catalog.text("MSG_X"), ": <MSG_X>");
}

TEST_P(IcuCatalog, TheResultIsTheCallersOwn) {
  installBundle("messages", GetParam());
  tstr text;
  {
    Catalog catalog("de", "messages");
    ASSERT_EQ(catalog.init(), opened);
    text = catalog.getMessage("MSG_PLAIN", nullptr);
  }
  EXPECT_STREQ(text.c_str(), german);
}

TEST_P(IcuCatalog, LookingUpChangesNothing) {
  installBundle("messages", GetParam());
  Catalog catalog("de", "messages");
  ASSERT_EQ(catalog.init(), opened);
  for (int round = 1; round <= 3; ++round) {
    SCOPED_TRACE(round);
    EXPECT_EQ(catalog.text("MSG_NONE"), "messages: <MSG_NONE>");
    EXPECT_EQ(catalog.text("MSG_PLAIN"), german);
    EXPECT_EQ(catalog.text("MSG_ROOT_ONLY"), "messages: only the root has this");
  }
  expectFields(catalog, "de", "messages", messagesPath);
  EXPECT_EQ(catalog.getCount(), 0);
}

// ---- several catalogs, several threads

TEST_P(IcuCatalog, SeveralCatalogsKeepApart) {
  installBundle("messages", GetParam());
  installBundle("typed", GetParam());
  Catalog de("de", "messages");
  Catalog ja("ja", "messages");
  Catalog typed("de", "typed");
  Catalog absent("de", "absent");
  std::optional<Catalog> again(std::in_place, "de", "messages");
  EXPECT_EQ(de.init(), opened);
  EXPECT_EQ(ja.init(), opened);
  EXPECT_EQ(typed.init(), opened);
  EXPECT_EQ(absent.init(), notUsable);
  EXPECT_EQ(again->init(), opened);
  EXPECT_EQ(again->text("MSG_PLAIN"), german);
  again.reset();
  EXPECT_EQ(de.text("MSG_PLAIN"), german);
  EXPECT_EQ(ja.text("MSG_PLAIN"), japanese);
  EXPECT_EQ(typed.text("MSG_PLAIN"), "typed: <MSG_PLAIN>");
  EXPECT_EQ(typed.text("MSG_STRING"), "typed: text: {0}");
  EXPECT_EQ(de.text("MSG_STRING"), "messages: <MSG_STRING>");
  EXPECT_EQ(absent.text("MSG_PLAIN"), "absent: <MSG_PLAIN>");
}

TEST_P(IcuCatalog, SeveralThreadsMayReadOneCatalog) {
  installBundle("messages", GetParam());
  Catalog catalog("ja", "messages");
  ASSERT_EQ(catalog.init(), opened);
  const Catalog& shared = catalog;
  std::vector<int> wrong(4);
  std::vector<std::thread> threads;
  for (int& count : wrong) {
    threads.emplace_back([&shared, &count] {
      for (int round = 0; round < 200; ++round) {
        count += shared.text("MSG_PLAIN") != japanese ? 1 : 0;
        count += shared.text("MSG_ROOT_ONLY") != "messages: only the root has this" ? 1 : 0;
        count += shared.text("MSG_NONE") != "messages: <MSG_NONE>" ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, std::vector<int>(4));
}

// ---- opening again, and closing

// Gives ICU its memory: counts the blocks and can refuse one. Frees at its end what is left, so
// that a bundle that was given up on purpose is no leak. No ICU object may outlive it.
class IcuMemory {
 public:
  IcuMemory() {
    u_cleanup();  // what was allocated elsewhere is gone
    UErrorCode status = U_ZERO_ERROR;
    u_setMemoryFunctions(this, allocate, reallocate, release, &status);
    EXPECT_EQ(status, U_ZERO_ERROR);
    ScopedIcu::setDefaultLocale("ja");
  }
  ~IcuMemory() {
    u_cleanup();  // also makes ICU forget this object
    for (void* block : m_blocks) {
      std::free(block);
    }
  }
  IcuMemory(const IcuMemory&) = delete;
  IcuMemory& operator=(const IcuMemory&) = delete;

  size_t liveBlocks() const { return m_blocks.size(); }

  // Refuses the n-th request from here on, counted from 1, and only that; 0 for none.
  void refuse(int request) { m_untilRefusal = request; }
  bool hasRefused() const { return m_refused; }

 private:
  bool mayServe() {
    const bool serve = m_untilRefusal == 0 || --m_untilRefusal > 0;
    m_refused = m_refused || !serve;
    return serve;
  }
  static IcuMemory& self(const void* context) {
    return *static_cast<IcuMemory*>(const_cast<void*>(context));
  }
  static void* allocate(const void* context, size_t size) {
    return reallocate(context, nullptr, size);
  }
  static void* reallocate(const void* context, void* block, size_t size) {
    IcuMemory& memory = self(context);
    if (!memory.mayServe()) {
      return nullptr;
    }
    memory.m_blocks.erase(block);
    void* const result = std::realloc(block, size);
    memory.m_blocks.insert(result);
    return result;
  }
  static void release(const void* context, void* block) {
    self(context).m_blocks.erase(block);
    std::free(block);
  }

  std::set<void*> m_blocks;
  int m_untilRefusal = 0;
  bool m_refused = false;
};

void fillIcusCaches(const std::string& language, const char* name) {
  Catalog catalog(language, name);
  catalog.init();
  catalog.text("MSG_PLAIN");
}

TEST_P(IcuCatalog, InitAgainReplacesTheBundleAlsoByOneThatFailed) {
  installBundle("messages", GetParam());
  const IcuMemory memory;
  Catalog catalog("de", "messages");
  ASSERT_EQ(catalog.init(), opened);
  EXPECT_EQ(catalog.text("MSG_PLAIN"), german);
  catalog.m_language = "ja";
  EXPECT_EQ(catalog.text("MSG_PLAIN"), german);
  EXPECT_EQ(catalog.init(), opened);
  EXPECT_EQ(catalog.text("MSG_PLAIN"), japanese);
  catalog.m_language = "en_US";
  EXPECT_EQ(catalog.init(), notUsable);
  EXPECT_EQ(catalog.text("MSG_PLAIN"), english);
  catalog.m_catalogName = "absent";
  EXPECT_EQ(catalog.init(), notUsable);
  EXPECT_STREQ(catalog.m_bundlePath.c_str(), "/usr/tulsk/resources/libabsent");
  EXPECT_EQ(catalog.text("MSG_PLAIN"), "absent: <MSG_PLAIN>");
  catalog.m_catalogName = "messages";
  catalog.m_language = "de";
  EXPECT_EQ(catalog.init(), opened);
  EXPECT_EQ(catalog.text("MSG_PLAIN"), german);
}

TEST_P(IcuCatalog, InitAgainDoesNotFreeTheFirstBundle) {
  installBundle("messages", GetParam());
  for (const auto& [language, name] :
       {std::pair("de", "messages"), std::pair("de_AT", "messages"), std::pair("de", "absent")}) {
    SCOPED_TRACE(language + std::string(" of ") + name);
    const IcuMemory memory;
    fillIcusCaches(language, name);
    const size_t before = memory.liveBlocks();
    size_t bundle = 0;
    {
      Catalog catalog(language, name);
      EXPECT_EQ(memory.liveBlocks(), before) << "a catalog opens nothing by itself";
      const int result = catalog.init();
      bundle = memory.liveBlocks() - before;
      EXPECT_GT(bundle, 0U);
      EXPECT_EQ(catalog.init(), result);
      EXPECT_EQ(memory.liveBlocks(), before + 2 * bundle);
    }
    EXPECT_EQ(memory.liveBlocks(), before + bundle) << "only the second is the catalog's own";
  }
}

TEST_P(IcuCatalog, TheLastHolderClosesTheBundle) {
  installBundle("messages", GetParam());
  for (const char* language : {"de", "de_AT", "fr"}) {
    SCOPED_TRACE(language);
    const IcuMemory memory;
    fillIcusCaches(language, "messages");
    const size_t before = memory.liveBlocks();
    {
      const CCmnMessageCatalogPtr first(new CCmnIcuMessageCatalog(language, "messages"));
      first->init();
      const size_t open = memory.liveBlocks();
      EXPECT_GT(open, before);
      {
        const CCmnMessageCatalogPtr second(first);
        EXPECT_EQ(second->getCount(), 2);
      }
      EXPECT_EQ(memory.liveBlocks(), open);
      EXPECT_NE(first->getMessage("MSG_PLAIN", nullptr), noText);
    }
    EXPECT_EQ(memory.liveBlocks(), before);
  }
}

TEST_P(IcuCatalog, LookingUpKeepsNoMemory) {
  installBundle("messages", GetParam());
  const IcuMemory memory;
  Catalog catalog("de", "messages");
  ASSERT_EQ(catalog.init(), opened);
  catalog.text("MSG_ROOT_ONLY");
  const size_t before = memory.liveBlocks();
  for (const char* id : {"MSG_PLAIN", "MSG_ROOT_ONLY", "MSG_NONE"}) {
    catalog.text(id);
    EXPECT_EQ(memory.liveBlocks(), before) << id;
  }
}

// The result and the text of a catalog for which ICU is refused the n-th block. Its caches are
// full, since some of what it does once in a process stays undone if that fails.
struct Outcome {
  int result;
  std::string text;
  bool refused;
};

Outcome initWithout(int request) {
  IcuMemory memory;
  fillIcusCaches("de", "messages");
  Catalog catalog("de", "messages");
  memory.refuse(request);
  const int result = catalog.init();
  memory.refuse(0);
  return {result, catalog.text("MSG_PLAIN"), memory.hasRefused()};
}

// The same with ICU alone: what its status says, and whether there is a bundle at all.
struct IcuOutcome {
  UErrorCode status = U_ZERO_ERROR;
  bool hasBundle = false;
};

IcuOutcome openWithout(int request) {
  IcuMemory memory;
  fillIcusCaches("de", "messages");
  IcuOutcome outcome;
  const icu::Locale locale("de");
  memory.refuse(request);
  const icu::ResourceBundle* const bundle =
      new icu::ResourceBundle(messagesPath, locale, outcome.status);
  memory.refuse(0);
  outcome.hasBundle = bundle != nullptr;
  delete bundle;
  return outcome;
}

TEST_P(IcuCatalog, InitFollowsIcuWhenMemoryRunsOut) {
  installBundle("messages", GetParam());
  int failures = 0;
  int withoutBundle = 0;
  bool refused = true;
  for (int request = 1; refused; ++request) {
    SCOPED_TRACE(request);
    ASSERT_LT(request, 1000);
    const Outcome outcome = initWithout(request);
    const IcuOutcome expected = openWithout(request);
    EXPECT_EQ(outcome.result, expected.hasBundle ? resultFor(expected.status) : notUsable);
    if (!expected.hasBundle || U_FAILURE(expected.status)) {
      EXPECT_EQ(outcome.text, noText);
    }
    failures += U_FAILURE(expected.status) ? 1 : 0;
    withoutBundle += expected.hasBundle ? 0 : 1;
    refused = outcome.refused;
  }
  EXPECT_GT(failures, 0);
  EXPECT_GT(withoutBundle, 0) << "no catalog had to do without the bundle object";
}

// ---- from the catalog to the text for people

using Arguments = std::vector<icu::Formattable>;

std::string formatted(const CCmnMessageCatalog& catalog, const char* id,
                      const Arguments& arguments) {
  CCmnIcuMessage message(id, 0);
  message.setArguments(arguments.data(), static_cast<int>(arguments.size()));
  return message.formatMessage(catalog.getMessage(message.getMessageId(), nullptr)).c_str();
}

icu::Formattable text(const char* utf8) { return icu::UnicodeString::fromUTF8(utf8); }

struct FormatRow {
  const char* id;
  Arguments arguments;
  const char* inEnglish;
  const char* inGerman;
};

void checkFormats(const Catalog& catalog, const std::vector<FormatRow>& rows,
                  const char* FormatRow::*expected) {
  for (const FormatRow& row : rows) {
    SCOPED_TRACE(row.*expected);
    EXPECT_EQ(formatted(catalog, row.id, row.arguments), row.*expected);
  }
}

const char unbalanced[] = "typed: open { brace";

std::vector<FormatRow> formatRows() {
  const icu::Formattable date(1e12, icu::Formattable::kIsDate);
  const int64_t wide = 9007199254740993;  // 2^53 + 1, which no double is
  return {
      {"MSG_STRING", {text("/tmp/ネコ")}, "typed: text: /tmp/ネコ", "typed: text: /tmp/ネコ"},
      {"MSG_STRING", {text("")}, "typed: text: ", "typed: text: "},
      {"MSG_STRING", {}, "typed: text: {0}", "typed: text: {0}"},
      {"MSG_LONG", {1234567}, "typed: count: 1,234,567", "typed: count: 1.234.567"},
      {"MSG_LONG", {-5}, "typed: count: -5", "typed: count: -5"},
      {"MSG_DOUBLE", {2.5}, "typed: ratio: 2.50", "typed: ratio: 2,50"},
      {"MSG_DATE", {date}, "typed: day: 2001-09-09", "typed: day: 2001-09-09"},
      {"MSG_INT64", {wide}, "typed: wide: 9007199254740993", "typed: wide: 9007199254740993"},
      {"MSG_CHOICE", {0}, "typed: none", "typed: none"},
      {"MSG_CHOICE", {1}, "typed: one", "typed: one"},
      {"MSG_CHOICE", {5}, "typed: many: 5", "typed: many: 5"},
      {"MSG_PLURAL", {1}, "typed: 1 file", "typed: 1 file"},
      {"MSG_PLURAL", {3}, "typed: 3 files", "typed: 3 files"},
      {"MSG_SELECT", {text("up")}, "typed: rising", "typed: rising"},
      {"MSG_SELECT", {text("down")}, "typed: falling", "typed: falling"},
      {"MSG_SELECT", {text("?")}, "typed: steady", "typed: steady"},
      {"MSG_MIXED", {text("box"), 3, 1.5}, "typed: 3 of box, 1.5", "typed: 3 of box, 1,5"},
      {"MSG_QUOTED", {text("x")}, "typed: it's {0} = x", "typed: it's {0} = x"},
      {"MSG_UNBALANCED", {text("x")}, unbalanced, unbalanced},
      {"MSG_INTEGER", {1}, "typed: <MSG_INTEGER>", "typed: <MSG_INTEGER>"},
  };
}

TEST_P(IcuCatalog, PatternsTakeEveryTypeOfArgumentAndKeepTheNameInFront) {
  installBundle("typed", GetParam());
  for (const auto& [defaultLocale, expected] :
       {std::pair("en_US", &FormatRow::inEnglish), std::pair("de_DE", &FormatRow::inGerman)}) {
    SCOPED_TRACE(defaultLocale);
    const ScopedIcu icu(defaultLocale);
    icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone("GMT"));
    Catalog catalog("root", "typed");
    ASSERT_EQ(catalog.init(), opened);
    checkFormats(catalog, formatRows(), expected);
  }
}

TEST_P(IcuCatalog, PatternsOfEveryScriptTakeTheirArguments) {
  installBundle("messages", GetParam());
  const struct {
    const char* language;
    const char* greeting;
    const char* failure;
  } rows[] = {
      {"en", "messages: Hello, 花子", "messages: The file /tmp/ä could not be opened (13)."},
      {"de", "messages: Grüß Gott, 花子",
       "messages: Die Datei /tmp/ä ließ sich nicht öffnen (13)."},
      {"ja", "messages: 花子さん、こんにちは",
       "messages: ファイル /tmp/ä を開けませんでした（13）。"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.language);
    Catalog catalog(row.language, "messages");
    ASSERT_EQ(catalog.init(), opened);
    EXPECT_EQ(formatted(catalog, "MSG_GREETING", {text("花子")}), row.greeting);
    EXPECT_EQ(formatted(catalog, "MSG_OPEN_FAILED", {text("/tmp/ä"), 13}), row.failure);
  }
}

}  // namespace

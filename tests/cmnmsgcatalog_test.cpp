#include "cmnmsgcatalog.h"

#include "cmnsmartptr.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kelp_cmn_4_4::CCmnMessageCatalog;
using kelp_cmn_4_4::CCmnMessageCatalogPtr;
using kelp_cmn_4_4::CCmnRefCount;
using kelp_cmn_4_4::tstr;

// A host's catalog without setup: its texts are made of what it was constructed with.
class PlainCatalog : public CCmnMessageCatalog {
 public:
  PlainCatalog(const std::string& language, const tstr& catalogName, bool* destroyed = nullptr)
      : CCmnMessageCatalog(language, catalogName), m_destroyed(destroyed) {}
  ~PlainCatalog() override {
    if (m_destroyed != nullptr) {
      *m_destroyed = true;
    }
  }

  tstr getMessage(const std::string& id, const char* defaultText) const override {
    return m_catalogName + "/" + m_language.c_str() + "/" + id.c_str() + "/" +
           (defaultText == nullptr ? "null" : defaultText);
  }

  using CCmnMessageCatalog::m_bundlePath;
  using CCmnMessageCatalog::m_catalogName;
  using CCmnMessageCatalog::m_language;

 private:
  bool* m_destroyed;
};

class UnusableCatalog : public PlainCatalog {
 public:
  using PlainCatalog::PlainCatalog;
  static constexpr int status = 42;
  int init() override { return status; }
};

void expectNoPath(const PlainCatalog& catalog, const char* language, const char* name) {
  EXPECT_EQ(catalog.m_language, language);
  EXPECT_STREQ(catalog.m_catalogName.c_str(), name);
  EXPECT_STREQ(catalog.m_bundlePath.c_str(), "");
}

TEST(CatalogStatuses, AreThoseThatHostsWereCompiledWith) {
  EXPECT_EQ(kelp_cmn_4_4::catalogOk, 0);
  EXPECT_EQ(kelp_cmn_4_4::catalogUnusable, 3);
}

TEST(MessageCatalog, HasItsLanguageAndItsNameButNoPathAtFirst) {
  expectNoPath(PlainCatalog("de_AT", "msgs"), "de_AT", "msgs");
  expectNoPath(PlainCatalog("", ""), "", "");
}

TEST(MessageCatalog, OwnsItsTexts) {
  std::string language = "ja";
  tstr name = "msgs";
  const PlainCatalog catalog(language, name);
  language = "de";
  name = "other";
  expectNoPath(catalog, "ja", "msgs");
}

TEST(MessageCatalog, InitSucceedsAndDoesNothingUnlessItIsOverridden) {
  PlainCatalog catalog("ja", "msgs");
  for (int call = 1; call <= 2; ++call) {
    SCOPED_TRACE(call);
    EXPECT_EQ(catalog.CCmnMessageCatalog::init(), 0);
    expectNoPath(catalog, "ja", "msgs");
    EXPECT_EQ(catalog.getCount(), 0);
  }
}

TEST(MessageCatalog, CallsThroughTheBaseReachTheDerivedCatalog) {
  UnusableCatalog unusable("ja", "msgs");
  CCmnMessageCatalog& base = unusable;
  EXPECT_EQ(base.init(), UnusableCatalog::status);
  EXPECT_STREQ(base.getMessage("MSG_X", "default").c_str(), "msgs/ja/MSG_X/default");
  EXPECT_STREQ(base.getMessage("MSG_X", nullptr).c_str(), "msgs/ja/MSG_X/null");
}

TEST(MessageCatalog, IsCountedLikeEverySharedObject) {
  PlainCatalog catalog("ja", "msgs");
  CCmnRefCount& counted = catalog;
  EXPECT_EQ(counted.getCount(), 0);
  EXPECT_EQ(counted.increment(), 1);
  EXPECT_EQ(catalog.getCount(), 1);
  EXPECT_EQ(counted.decrement(), 0);
}

TEST(MessageCatalog, TheLastHolderDeletesTheDerivedCatalog) {
  bool destroyed = false;
  {
    const CCmnMessageCatalogPtr first(new PlainCatalog("ja", "msgs", &destroyed));
    {
      const CCmnMessageCatalogPtr second(first);
      EXPECT_EQ(second->getCount(), 2);
    }
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(first->getCount(), 1);
  }
  EXPECT_TRUE(destroyed);
}

}  // namespace

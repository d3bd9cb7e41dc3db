#include "cmnmsgcatalog.h"

#include "cmnsmartptr.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

using kelp_cmn_4_4::CCmnMessageCatalog;
using kelp_cmn_4_4::CCmnNullAllocator;
using kelp_cmn_4_4::CCmnRefCount;
using kelp_cmn_4_4::CCmnSmartPtr;
using kelp_cmn_4_4::tstr;

static_assert(std::is_abstract_v<CCmnMessageCatalog>);
static_assert(!std::is_copy_constructible_v<CCmnMessageCatalog>);
static_assert(!std::is_copy_assignable_v<CCmnMessageCatalog>);
static_assert(std::has_virtual_destructor_v<CCmnMessageCatalog>);
static_assert(std::is_same_v<decltype(&CCmnMessageCatalog::init), int (CCmnMessageCatalog::*)()>);
static_assert(std::is_same_v<decltype(&CCmnMessageCatalog::getMessage),
                             tstr (CCmnMessageCatalog::*)(const std::string&, const char*) const>);

// A host's catalog without setup: its texts are made of what it was constructed with.
class PlainCatalog : public CCmnMessageCatalog {
 public:
  PlainCatalog(const std::string& language, const tstr& catalogName, bool* destroyed = nullptr)
      : CCmnMessageCatalog(language, catalogName), destroyed_(destroyed) {}
  ~PlainCatalog() override {
    if (destroyed_ != nullptr) {
      *destroyed_ = true;
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
  bool* destroyed_;
};

class UnusableCatalog : public PlainCatalog {
 public:
  using PlainCatalog::PlainCatalog;
  int init() override { return 42; }
};

TEST(MessageCatalog, ConstructorSetsLanguageAndNameAndLeavesThePathEmpty) {
  const PlainCatalog catalog("de_AT", "msgs");
  EXPECT_EQ(catalog.m_language, "de_AT");
  EXPECT_STREQ(catalog.m_catalogName.c_str(), "msgs");
  EXPECT_EQ(catalog.m_bundlePath.length(), 0U);
}

TEST(MessageCatalog, ConstructorTakesEmptyTexts) {
  const PlainCatalog catalog("", "");
  EXPECT_EQ(catalog.m_language, "");
  EXPECT_EQ(catalog.m_catalogName.length(), 0U);
  EXPECT_EQ(catalog.m_bundlePath.length(), 0U);
}

TEST(MessageCatalog, ConstructorCopiesTheTexts) {
  std::string language = "ja";
  tstr name = "msgs";
  const PlainCatalog catalog(language, name);
  language = "de";
  name = "other";
  EXPECT_EQ(catalog.m_language, "ja");
  EXPECT_STREQ(catalog.m_catalogName.c_str(), "msgs");
}

TEST(MessageCatalog, InitGivesZeroAndDoesNothing) {
  PlainCatalog catalog("ja", "msgs");
  for (int call = 1; call <= 2; ++call) {
    SCOPED_TRACE(call);
    EXPECT_EQ(catalog.CCmnMessageCatalog::init(), 0);
    EXPECT_EQ(catalog.m_language, "ja");
    EXPECT_STREQ(catalog.m_catalogName.c_str(), "msgs");
    EXPECT_EQ(catalog.m_bundlePath.length(), 0U);
    EXPECT_EQ(catalog.getCount(), 0);
  }
}

TEST(MessageCatalog, CallsThroughTheBaseReachTheDerivedCatalog) {
  UnusableCatalog unusable("ja", "msgs");
  CCmnMessageCatalog& base = unusable;
  EXPECT_EQ(base.init(), 42);
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
  using Holder = CCmnSmartPtr<CCmnMessageCatalog, CCmnNullAllocator<CCmnMessageCatalog>>;
  bool destroyed = false;
  {
    const Holder first(new PlainCatalog("ja", "msgs", &destroyed));
    {
      const Holder second(first);
      EXPECT_EQ(second->getCount(), 2);
    }
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(first->getCount(), 1);
  }
  EXPECT_TRUE(destroyed);
}

}  // namespace

#include "cmnsaxhandler.h"

#include "guarded_page.h"
#include "scratch.h"
#include "xerces_memory.h"

#include <gtest/gtest.h>
#include <xercesc/internal/VecAttributesImpl.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

#include <memory>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnSaxParseHandler;
using kelp_test::CountedXerces;
using xercesc::SAXParseException;
using xercesc::XMLPlatformUtils;

std::u16string text(const XMLCh* chars) { return chars == nullptr ? u"(null)" : chars; }

void expectProblem(const CCmnSaxParseHandler& handler, const std::u16string& message,
                   const std::u16string& publicId, const std::u16string& systemId, XMLFileLoc line,
                   XMLFileLoc column) {
  EXPECT_TRUE(handler.hasErrorOccurred());
  const SAXParseException& last = handler.getLastException();
  EXPECT_EQ(text(last.getMessage()), message);
  EXPECT_EQ(text(last.getPublicId()), publicId);
  EXPECT_EQ(text(last.getSystemId()), systemId);
  EXPECT_EQ(last.getLineNumber(), line);
  EXPECT_EQ(last.getColumnNumber(), column);
}

struct Callback {
  const char* name;
  void (xercesc::ErrorHandler::*call)(const SAXParseException&);
};
const Callback callbacks[] = {
    {"warning", &xercesc::ErrorHandler::warning},
    {"error", &xercesc::ErrorHandler::error},
    {"fatalError", &xercesc::ErrorHandler::fatalError},
};

// --- What a handler records

TEST(SaxParseHandler, HasRecordedNothingAtFirst) {
  const CCmnSaxParseHandler handler;
  EXPECT_FALSE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.getLastException().getMessage(), nullptr);
  EXPECT_EQ(handler.getLastException().getPublicId(), nullptr);
  EXPECT_EQ(handler.getLastException().getSystemId(), nullptr);
  EXPECT_EQ(handler.getLastException().getLineNumber(), 0U);
  EXPECT_EQ(handler.getLastException().getColumnNumber(), 0U);
  EXPECT_EQ(handler.getCharacters(), "");
}

TEST(SaxParseHandler, RecordsEveryKindOfProblemInTheSameWay) {
  for (const Callback& callback : callbacks) {
    SCOPED_TRACE(callback.name);
    CCmnSaxParseHandler handler;
    xercesc::ErrorHandler& reported = handler;
    {
      std::u16string message = u"message";
      std::u16string publicId = u"public";
      std::u16string systemId = u"system";
      const SAXParseException problem(message.c_str(), publicId.c_str(), systemId.c_str(), 7, 31);
      EXPECT_NO_THROW((reported.*callback.call)(problem));
    }
    expectProblem(handler, u"message", u"public", u"system", 7, 31);
    EXPECT_EQ(handler.getCharacters(), "");
  }
}

TEST(SaxParseHandler, KeepsTheLastProblemWhateverCameBefore) {
  for (const Callback& first : callbacks) {
    for (const Callback& second : callbacks) {
      SCOPED_TRACE(std::string(first.name) + ", then " + second.name);
      CCmnSaxParseHandler handler;
      xercesc::ErrorHandler& reported = handler;
      (reported.*first.call)(SAXParseException(u"a long first message", u"p", u"s", 100, 200));
      (reported.*second.call)(SAXParseException(u"second", nullptr, u"longer system id", 3, 4));
      expectProblem(handler, u"second", u"(null)", u"longer system id", 3, 4);
      (reported.*first.call)(SAXParseException(u"", u"longer public id", nullptr, 0, 0));
      expectProblem(handler, u"", u"longer public id", u"(null)", 0, 0);
    }
  }
}

TEST(SaxParseHandler, MayBeToldItsOwnLastProblemAgain) {
  for (const Callback& callback : callbacks) {
    SCOPED_TRACE(callback.name);
    CCmnSaxParseHandler handler;
    handler.error(SAXParseException(u"message", u"public", u"system", 1, 2));
    xercesc::ErrorHandler& reported = handler;
    (reported.*callback.call)(handler.getLastException());
    expectProblem(handler, u"message", u"public", u"system", 1, 2);
  }
}

TEST(SaxParseHandler, KeepsWhatItHasRecordedWhenAnotherDocumentBegins) {
  const CountedXerces xerces;
  CCmnSaxParseHandler handler;
  handler.characters(u"te", 2);
  handler.warning(SAXParseException(u"message", u"public", u"system", 5, 6));
  handler.characters(u"xt", 2);
  handler.endDocument();
  handler.resetErrors();
  handler.resetDocument();
  handler.startDocument();
  expectProblem(handler, u"message", u"public", u"system", 5, 6);
  EXPECT_EQ(handler.getCharacters(), "text");
}

TEST(SaxParseHandler, DoesNothingAtElements) {
  const CountedXerces xerces;
  CCmnSaxParseHandler handler;
  handler.startElement(u"", u"", u"name", xercesc::VecAttributesImpl());
  handler.endElement(u"", u"", u"name");
  handler.startElement(nullptr, nullptr, nullptr, xercesc::VecAttributesImpl());
  handler.endElement(nullptr, nullptr, nullptr);
  EXPECT_FALSE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.getCharacters(), "");
}

TEST(SaxParseHandler, HoldsItsFieldsInOrder) {
  class Fields : public CCmnSaxParseHandler {
   public:
    const void* problem() const { return &m_lastException; }
    const void* marked() const { return &m_errorOccurred; }
    const void* collected() const { return &m_characters; }
  };
  const Fields handler;
  EXPECT_EQ(handler.problem(), &handler.getLastException());
  EXPECT_EQ(handler.collected(), &handler.getCharacters());
  EXPECT_LT(handler.problem(), handler.marked());
  EXPECT_LT(handler.marked(), handler.collected());
}

// --- Character data

TEST(SaxParseHandler, DoesNotCollectWhatTheReaderGivesIt) {
  CCmnSaxParseHandler handler;
  xercesc::ContentHandler& seenByTheReader = handler;
  seenByTheReader.characters(u"text", XMLSize_t{4});
  EXPECT_EQ(handler.getCharacters(), "");
}

TEST(SaxParseHandler, AppendsEveryTextUpToItsTerminatingZero) {
  const CountedXerces xerces;
  CCmnSaxParseHandler handler;
  handler.characters(u"one", 3);
  EXPECT_EQ(handler.getCharacters(), "one");
  handler.characters(u"", 0);
  EXPECT_EQ(handler.getCharacters(), "one");
  handler.characters(u" two\0three", 10);
  EXPECT_EQ(handler.getCharacters(), "one two");
  handler.characters(u" & <four>\r\n\t", 12);
  EXPECT_EQ(handler.getCharacters(), "one two & <four>\r\n\t");
}

TEST(SaxParseHandler, DoesNotLookAtTheLengthOfAText) {
  const CountedXerces xerces;
  for (const unsigned int length : {0U, 1U, 3U, 4U, 5U, 1000U, ~0U}) {
    SCOPED_TRACE(length);
    CCmnSaxParseHandler handler;
    handler.characters(u"text", length);
    EXPECT_EQ(handler.getCharacters(), "text");
  }
}

TEST(SaxParseHandler, ReadsNothingBehindTheTerminatingZero) {
  const CountedXerces xerces;
  kelp_test::GuardedPage<char16_t> page(std::u16string(u"text\0", 5));
  CCmnSaxParseHandler handler;
  handler.characters(page.data(), 1000);
  EXPECT_EQ(handler.getCharacters(), "text");
}

TEST(SaxParseHandler, TakesTextsOfAnySize) {
  const CountedXerces xerces;
  CCmnSaxParseHandler handler;
  std::string expected;
  for (const size_t size : {1U, 15U, 16U, 1000U, 4096U, 1000000U}) {
    handler.characters(std::u16string(size, u'k').c_str(), 0);
    expected += std::string(size, 'k');
    EXPECT_EQ(handler.getCharacters() == expected, true) << size;
  }
}

// Xerces-C's transcoder, which is ICU's here, decides.
TEST(SaxParseHandler, PutsTextIntoUtf8InEveryLocale) {
  for (const char* locale : {"C", "C.UTF-8"}) {
    SCOPED_TRACE(locale);
    const kelp_test::ScopedLocale scope(locale);
    const CountedXerces xerces;
    CCmnSaxParseHandler handler;
    handler.characters(u"K\u00fcste \u20ac \u6d77 \U0001f30a", 0);
    EXPECT_EQ(handler.getCharacters(), "K\xc3\xbcste \xe2\x82\xac \xe6\xb5\xb7 \xf0\x9f\x8c\x8a");
  }
}

// That the copies are never released is meant.
TEST(SaxParseHandler, LeaksTheTranscodedCopyOfEveryText) {
  const CountedXerces xerces;
  CCmnSaxParseHandler handler;
  const size_t before = xerces.blocks();
  for (size_t call = 1; call <= 5; ++call) {
    handler.characters(call == 3 ? u"" : u"text", 4);
    EXPECT_EQ(xerces.blocks(), before + call);
  }
}

TEST(SaxParseHandler, LetsDerivedClassesReplaceItsOwnCharacters) {
  class Replacing : public CCmnSaxParseHandler {
   public:
    void characters(const XMLCh* /*chars*/, unsigned int length) override { seen = length; }
    unsigned int seen = 0;
  };
  Replacing handler;
  CCmnSaxParseHandler& base = handler;
  base.characters(u"text", 4);
  EXPECT_EQ(handler.seen, 4U);
  EXPECT_EQ(handler.getCharacters(), "");
}

// --- Xerces-C's lifetime

TEST(SaxParseHandler, InitialisesXercesForAsLongAsItLives) {
  ASSERT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
  {
    CCmnSaxParseHandler handler;
    EXPECT_NE(XMLPlatformUtils::fgMemoryManager, nullptr);
    handler.fatalError(SAXParseException(u"message", u"public", u"system", 1, 2));
  }
  EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
}

TEST(SaxParseHandler, EndsXercesOnceAndNotForOthers) {
  XMLPlatformUtils::Initialize();
  { const CCmnSaxParseHandler handler; }
  EXPECT_NE(XMLPlatformUtils::fgMemoryManager, nullptr);
  { const CCmnSaxParseHandler handler; }
  EXPECT_NE(XMLPlatformUtils::fgMemoryManager, nullptr);
  XMLPlatformUtils::Terminate();
  EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
}

TEST(SaxParseHandler, KeepsItsRecordWhenTheOthersGiveUpXerces) {
  CCmnSaxParseHandler handler;
  XMLPlatformUtils::Initialize();
  {
    CCmnSaxParseHandler other;
    other.error(SAXParseException(u"message", u"public", u"system", 1, 2));
    handler.error(other.getLastException());
  }
  XMLPlatformUtils::Terminate();
  expectProblem(handler, u"message", u"public", u"system", 1, 2);
}

TEST(SaxParseHandler, GivesBackEverythingButTheCopies) {
  const CountedXerces xerces;
  const size_t before = xerces.blocks();
  {
    const std::unique_ptr<xercesc::DefaultHandler> handler =
        std::make_unique<CCmnSaxParseHandler>();
    handler->fatalError(SAXParseException(u"message", u"public", u"system", 1, 2));
    EXPECT_EQ(xerces.blocks(), before + 3);  // the message and two ids
    handler->fatalError(SAXParseException(u"another", u"public", u"system", 1, 2));
    EXPECT_EQ(xerces.blocks(), before + 3);
  }
  EXPECT_EQ(xerces.blocks(), before);
}

TEST(SaxParseHandler, OutlivesHandlersThatWereMadeLater) {
  std::vector<std::unique_ptr<CCmnSaxParseHandler>> handlers;
  for (XMLFileLoc i = 0; i < 5; ++i) {
    handlers.push_back(std::make_unique<CCmnSaxParseHandler>());
    handlers.back()->warning(SAXParseException(u"message", u"public", u"system", i, i + 1));
  }
  while (!handlers.empty()) {
    EXPECT_NE(XMLPlatformUtils::fgMemoryManager, nullptr);
    expectProblem(*handlers.front(), u"message", u"public", u"system", 0, 1);
    handlers.pop_back();
  }
  EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
}

}  // namespace

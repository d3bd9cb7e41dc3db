#include "cmnsaxparser.h"

#include "cmnsaxhandler.h"
#include "exposed_members.h"
#include "heap.h"
#include "next_symbol.h"
#include "scratch.h"
#include "xerces_memory.h"

#include <gtest/gtest.h>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/parsers/SAX2XMLReaderImpl.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/BinInputStream.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/RuntimeException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

// --- What stands in front of Xerces-C's entries and notes every call

namespace {

using kelp_test::HeapWatch;
using kelp_test::XercesMemory;

using Lines = std::vector<std::string>;

constexpr size_t never = static_cast<size_t>(-1);

class ScriptedReader;

struct Script {
  Lines events;
  size_t failAt = never;  // the event at which failure() is called
  std::function<void()> failure;
  XercesMemory* memory = nullptr;
  int initialisations = 0;  // of Xerces-C, not yet terminated
  std::vector<ScriptedReader*> readers;
  bool readsDocuments = true;
  std::string lastDocument;
  std::string lastSystemId;
};
Script script;

void happen(const std::string& event) {
  script.events.push_back(event);
  if (script.events.size() - 1 == script.failAt) {
    script.failure();
  }
}

// A text of Xerces-C's with everything that is not ASCII as an escape.
std::string ascii(const XMLCh* text, XMLSize_t length) {
  std::string result;
  for (XMLSize_t i = 0; i < length; ++i) {
    if (text[i] < 0x80) {
      result += static_cast<char>(text[i]);
    } else {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned int>(text[i]));
      result += escape;
    }
  }
  return result;
}

std::string ascii(const XMLCh* text) {
  return text == nullptr ? "(null)" : ascii(text, std::char_traits<char16_t>::length(text));
}

std::string pointer(const char* type, const void* address) {
  return std::string(" ") + type + (address == nullptr ? "-null" : "");
}

std::string bytesOf(const xercesc::InputSource& source) {
  const std::unique_ptr<xercesc::BinInputStream> stream(source.makeStream());
  std::string bytes;
  XMLByte buffer[1000];
  while (const XMLSize_t count = stream->readBytes(buffer, sizeof buffer)) {
    bytes.append(reinterpret_cast<const char*>(buffer), count);
  }
  return bytes;
}

// Xerces-C's own reader, watched.
class ScriptedReader : public xercesc::SAX2XMLReaderImpl {
 public:
  ScriptedReader(xercesc::MemoryManager* manager, xercesc::XMLGrammarPool* pool)
      : SAX2XMLReaderImpl(manager, pool) {
    script.readers.push_back(this);
  }
  ~ScriptedReader() override {
    happen("delete reader");
    auto& readers = script.readers;
    readers.erase(std::find(readers.begin(), readers.end(), this));
  }
  void setFeature(const XMLCh* const name, const bool value) override {
    happen("setFeature " + ascii(name) + (value ? " true" : " false"));
    SAX2XMLReaderImpl::setFeature(name, value);
  }
  void setContentHandler(xercesc::ContentHandler* const handler) override {
    happen("setContentHandler" + pointer("handler", handler));
    SAX2XMLReaderImpl::setContentHandler(handler);
  }
  void setErrorHandler(xercesc::ErrorHandler* const handler) override {
    happen("setErrorHandler" + pointer("handler", handler));
    SAX2XMLReaderImpl::setErrorHandler(handler);
  }
  void parse(const xercesc::InputSource& source) override {
    happen("parse");
    script.lastDocument = script.readsDocuments ? bytesOf(source) : "";
    script.lastSystemId = ascii(source.getSystemId());
    SAX2XMLReaderImpl::parse(source);
  }
  using SAX2XMLReaderImpl::parse;
};

// A function that is a member of XMLPlatformUtils: the next one behind this program's.
template <class Function>
Function* realFunction(const std::string& mangledNameAndArguments) {
  std::string name = std::string("_Z") + typeid(xercesc::XMLPlatformUtils).name();
  name.pop_back();  // the E that ends the nested name
  return kelp_test::nextSymbol<Function>((name + mangledNameAndArguments).c_str());
}

using InitializeFunction = void(const char*, const char*, xercesc::PanicHandler*,
                                xercesc::MemoryManager*);

void realInitialize(const char* locale, const char* home, xercesc::PanicHandler* panic,
                    xercesc::MemoryManager* memory) {
  static const auto function = realFunction<InitializeFunction>(
      "10InitializeEPKcS2_PNS_12PanicHandlerEPNS_13MemoryManagerE");
  function(locale, home, panic, memory);
}

void realTerminate() {
  static const auto function = realFunction<void()>("9TerminateEv");
  function();
}

}  // namespace

void xercesc::XMLPlatformUtils::Initialize(const char* const locale, const char* const nlsHome,
                                           PanicHandler* const panicHandler,
                                           MemoryManager* const memoryManager) {
  happen(std::string("Initialize ") + locale + pointer("home", nlsHome) +
         pointer("panic", panicHandler) + pointer("memory", memoryManager));
  realInitialize(locale, nlsHome, panicHandler,
                 memoryManager != nullptr ? memoryManager : script.memory);
  ++script.initialisations;
}

void xercesc::XMLPlatformUtils::Terminate() {
  happen("Terminate");
  if (script.initialisations == 0) {
    return;
  }
  realTerminate();
  if (--script.initialisations == 0 && script.memory != nullptr) {
    script.memory->end();
  }
}

xercesc::SAX2XMLReader* xercesc::XMLReaderFactory::createXMLReader(MemoryManager* const manager,
                                                                   XMLGrammarPool* const pool) {
  const bool isDefault = manager == XMLPlatformUtils::fgMemoryManager;
  happen(std::string("createXMLReader ") + (isDefault ? "default" : "other") +
         pointer("pool", pool));
  return new (manager) ScriptedReader(manager, pool);
}

namespace {

using kelp_cmn_4_4::CCmnSaxParseHandler;
using kelp_cmn_4_4::CCmnSaxParser;
using testing::Test;
using xercesc::DefaultHandler;
using xercesc::SAXParseException;
using xercesc::XMLPlatformUtils;

KELP_EXPOSE(CCmnSaxParser, m_handler)
KELP_EXPOSE(CCmnSaxParser, m_reader)

DefaultHandler* handlerOf(const CCmnSaxParser& parser) {
  return parser.*memberOf(CCmnSaxParser_m_handler{});
}
xercesc::SAX2XMLReader* readerOf(const CCmnSaxParser& parser) {
  return parser.*memberOf(CCmnSaxParser_m_reader{});
}

class SaxParser : public Test {
 protected:
  SaxParser() {
    EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
    script = Script();
  }
  ~SaxParser() override {
    EXPECT_TRUE(script.readers.empty());
    EXPECT_EQ(script.initialisations, 0);
    EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
  }

  // What has happened since the last time.
  static Lines takeEvents() {
    Lines events;
    events.swap(script.events);
    return events;
  }
};

// Xerces-C initialised without any of the notes above; its exceptions need that.
class QuietXerces {
 public:
  QuietXerces() {
    realInitialize(xercesc::XMLUni::fgXercescDefaultLocale, nullptr, nullptr, script.memory);
  }
  ~QuietXerces() { realTerminate(); }
  QuietXerces(const QuietXerces&) = delete;
  QuietXerces& operator=(const QuietXerces&) = delete;
};

void throwXmlException() {
  throw xercesc::RuntimeException(__FILE__, __LINE__, xercesc::XMLExcepts::Str_ZeroSizedTargetBuf);
}

// --- Documents and what is seen of them

// Everything that a handler can be told, a line each; the rest of the class is `Base`.
template <class Base>
class EventLog : public Base {
 public:
  using Base::characters;
  const Lines& lines() const { return m_lines; }
  Lines takeLines() {
    Lines lines;
    lines.swap(m_lines);
    return lines;
  }

  void startDocument() override { m_lines.push_back("startDocument"); }
  void endDocument() override { m_lines.push_back("endDocument"); }
  void startElement(const XMLCh* const uri, const XMLCh* const localname, const XMLCh* const qname,
                    const xercesc::Attributes& attrs) override {
    std::string line = "<" + name(uri, localname, qname);
    for (XMLSize_t i = 0; i < attrs.getLength(); ++i) {
      EXPECT_EQ(ascii(attrs.getLocalName(i)), ascii(attrs.getQName(i)));
      line += " " + ascii(attrs.getURI(i)) + ascii(attrs.getQName(i)) + "=" +
              ascii(attrs.getValue(i)) + ":" + ascii(attrs.getType(i));
    }
    m_lines.push_back(line + ">");
  }
  void endElement(const XMLCh* const uri, const XMLCh* const localname,
                  const XMLCh* const qname) override {
    m_lines.push_back("</" + name(uri, localname, qname) + ">");
  }
  void characters(const XMLCh* const chars, const XMLSize_t length) override {
    EXPECT_EQ(chars[length], 0);
    m_lines.push_back("'" + ascii(chars, length) + "'");
  }
  void ignorableWhitespace(const XMLCh* const chars, const XMLSize_t length) override {
    m_lines.push_back("white space '" + ascii(chars, length) + "'");
  }
  void processingInstruction(const XMLCh* const target, const XMLCh* const data) override {
    m_lines.push_back("<?" + ascii(target) + " " + ascii(data) + "?>");
  }
  void startPrefixMapping(const XMLCh* const prefix, const XMLCh* const uri) override {
    m_lines.push_back("prefix " + ascii(prefix) + " of " + ascii(uri));
  }
  void skippedEntity(const XMLCh* const entity) override {
    m_lines.push_back("skipped " + ascii(entity));
  }
  void warning(const SAXParseException& problem) override {
    m_lines.push_back("warning " + text(problem));
  }
  void error(const SAXParseException& problem) override {
    m_lines.push_back("error " + text(problem));
  }
  void fatalError(const SAXParseException& problem) override {
    m_lines.push_back("fatal error " + text(problem));
  }

 protected:
  static std::string text(const SAXParseException& problem) {
    return ascii(problem.getPublicId()) + " " + ascii(problem.getSystemId()) + ":" +
           std::to_string(problem.getLineNumber()) + ":" +
           std::to_string(problem.getColumnNumber()) + " " + ascii(problem.getMessage());
  }

 private:
  // Names with a URI or a local name stand out.
  static std::string name(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) {
    const std::string both = ascii(uri) + ascii(localname);
    return (both.empty() ? "" : "{" + ascii(uri) + "}" + ascii(localname) + "=") + ascii(qname);
  }

  Lines m_lines;
};

// The same, and records problems as its base does.
// NOLINTBEGIN(bugprone-parent-virtual-call): the log does not call its base
class Recorder : public EventLog<CCmnSaxParseHandler> {
 public:
  void warning(const SAXParseException& problem) override {
    EventLog::warning(problem);
    CCmnSaxParseHandler::warning(problem);
  }
  void error(const SAXParseException& problem) override {
    EventLog::error(problem);
    CCmnSaxParseHandler::error(problem);
  }
  void fatalError(const SAXParseException& problem) override {
    EventLog::fatalError(problem);
    CCmnSaxParseHandler::fatalError(problem);
  }
  std::string lastProblem() const { return text(getLastException()); }
};
// NOLINTEND(bugprone-parent-virtual-call)

Lines eventsOf(const std::string& document) {
  Recorder handler;
  CCmnSaxParser parser(&handler);
  parser.parse(document);
  return handler.lines();
}

// Texts may come in several pieces: here in one.
Lines merged(const Lines& lines) {
  Lines result;
  for (const std::string& line : lines) {
    if (line[0] == '\'' && !result.empty() && result.back()[0] == '\'') {
      result.back().pop_back();
      result.back() += line.substr(1);
    } else {
      result.push_back(line);
    }
  }
  return result;
}

// What Xerces-C's own reader tells when nothing of this library stands between.
Lines eventsWithoutTheLibrary(const std::string& document) {
  xercesc::SAX2XMLReaderImpl reader;
  for (const XMLCh* const feature :
       {xercesc::XMLUni::fgSAX2CoreValidation, xercesc::XMLUni::fgSAX2CoreNameSpaces,
        xercesc::XMLUni::fgXercesSchema, xercesc::XMLUni::fgXercesSchemaFullChecking,
        xercesc::XMLUni::fgSAX2CoreNameSpacePrefixes}) {
    reader.setFeature(feature, false);
  }
  EventLog<DefaultHandler> handler;
  reader.setContentHandler(&handler);
  reader.setErrorHandler(&handler);
  reader.parse(xercesc::MemBufInputSource(reinterpret_cast<const XMLByte*>(document.data()),
                                          document.size(), "kelp_sax_parser"));
  return handler.lines();
}

// One of every kind of markup, with characters of one to four bytes and every kind of line end.
const std::string everyKindOfMarkup =
    "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone='yes'?>\r\n"
    "<!-- comm\xc3\xa9nt --><?before data?>"
    "<!DOCTYPE r:oot [\n<!ELEMENT r:oot (b|c)*><!ENTITY e \"<b>x</b>&#65;\">\r"
    "<!NOTATION n SYSTEM \"n\"><!ATTLIST b t (u|v) \"u\" i ID #IMPLIED><!ENTITY % p ''>%p;\n]>"
    "<r:oot xmlns:r='urn:r' plain=\"a&lt;&#x20AC;\tb\">\r\n"
    " <b t='v' i='q'/>&e;<![CDATA[<x>]]&]]>&lt;&amp;\xe2\x82\xac\xf0\x9f\x8c\x8a"
    "<?in?>\t <c\xc3\xa9 /></r:oot >\n<!-- end --><?after ?>\r\n";

// --- Set-up

const std::string initialized = "Initialize en_US home-null panic-null memory-null";
const std::string created = "createXMLReader default pool-null";
const Lines featuresOff = {
    "setFeature http://xml.org/sax/features/validation false",
    "setFeature http://xml.org/sax/features/namespaces false",
    "setFeature http://apache.org/xml/features/validation/schema false",
    "setFeature http://apache.org/xml/features/validation/schema-full-checking false",
    "setFeature http://xml.org/sax/features/namespace-prefixes false",
};
const Lines handlerRegistered = {"setContentHandler handler", "setErrorHandler handler"};
const Lines handlerRemoved = {"setContentHandler handler-null", "setErrorHandler handler-null"};
const Lines ended = {"delete reader", "Terminate"};

Lines joined(const std::vector<Lines>& pieces) {
  Lines result;
  for (const Lines& piece : pieces) {
    result.insert(result.end(), piece.begin(), piece.end());
  }
  return result;
}
const Lines prepared = joined({{initialized, created}, featuresOff});

// Leaves what stands before the first `count` lines.
Lines firstOf(Lines lines, size_t count) {
  lines.resize(std::min(count, lines.size()));
  return lines;
}

TEST_F(SaxParser, SetsUpXercesAndTheReaderThenRegistersTheHandler) {
  DefaultHandler handler;
  {
    const CCmnSaxParser parser(&handler);
    EXPECT_EQ(takeEvents(), joined({prepared, handlerRegistered}));
    EXPECT_EQ(handlerOf(parser), &handler);
    ASSERT_EQ(script.readers.size(), 1U);
    EXPECT_EQ(readerOf(parser), script.readers[0]);
    EXPECT_EQ(readerOf(parser)->getContentHandler(), &handler);
    EXPECT_EQ(readerOf(parser)->getErrorHandler(), &handler);
    for (const XMLCh* const feature :
         {xercesc::XMLUni::fgSAX2CoreValidation, xercesc::XMLUni::fgSAX2CoreNameSpaces,
          xercesc::XMLUni::fgXercesSchema, xercesc::XMLUni::fgXercesSchemaFullChecking,
          xercesc::XMLUni::fgSAX2CoreNameSpacePrefixes}) {
      EXPECT_FALSE(readerOf(parser)->getFeature(feature)) << ascii(feature);
    }
  }
  EXPECT_EQ(takeEvents(), ended);
}

TEST_F(SaxParser, RegistersNothingWithoutAHandler) {
  {
    const CCmnSaxParser parser(nullptr);
    EXPECT_EQ(takeEvents(), prepared);
    EXPECT_EQ(handlerOf(parser), nullptr);
    EXPECT_EQ(readerOf(parser)->getContentHandler(), nullptr);
    EXPECT_EQ(readerOf(parser)->getErrorHandler(), nullptr);
  }
  EXPECT_EQ(takeEvents(), ended);
}

TEST_F(SaxParser, ReplacesAndRemovesItsHandler) {
  Recorder first;
  Recorder second;
  CCmnSaxParser parser(&first);
  takeEvents();
  parser.setHandler(&second);
  EXPECT_EQ(takeEvents(), handlerRegistered);
  EXPECT_EQ(handlerOf(parser), &second);
  parser.parse("<a/>");
  EXPECT_EQ(first.lines(), Lines());
  EXPECT_EQ(second.lines(), (Lines{"startDocument", "<a>", "</a>", "endDocument"}));
  takeEvents();
  parser.setHandler(nullptr);
  EXPECT_EQ(takeEvents(), handlerRemoved);
  EXPECT_EQ(handlerOf(parser), nullptr);
  EXPECT_EQ(readerOf(parser)->getContentHandler(), nullptr);
  EXPECT_EQ(readerOf(parser)->getErrorHandler(), nullptr);
  second.takeLines();
  parser.parse("<a/>");
  parser.parse("<a></b>");
  EXPECT_EQ(second.lines(), Lines());
  EXPECT_FALSE(second.hasErrorOccurred());
  parser.setHandler(&first);
  parser.parse("<b/>");
  EXPECT_EQ(first.lines(), (Lines{"startDocument", "<b>", "</b>", "endDocument"}));
}

TEST_F(SaxParser, MayBeGivenAnotherHandlerInTheMiddleOfADocument) {
  class Replacing : public EventLog<CCmnSaxParseHandler> {
   public:
    void startElement(const XMLCh* const /*uri*/, const XMLCh* const /*localname*/,
                      const XMLCh* const /*qname*/, const xercesc::Attributes& /*attrs*/) override {
      parser->setHandler(successor);
    }
    CCmnSaxParser* parser = nullptr;
    DefaultHandler* successor = nullptr;
  };
  Recorder second;
  Replacing first;
  CCmnSaxParser parser(&first);
  first.parser = &parser;
  first.successor = &second;
  parser.parse("<a><b></c></a>");
  EXPECT_EQ(first.lines(), Lines{"startDocument"});
  EXPECT_EQ(second.lines()[0], "<b>");
  EXPECT_TRUE(second.hasErrorOccurred());
}

TEST_F(SaxParser, DropsAnXmlExceptionFromAnyStepOfTheSetUp) {
  const Lines steps = joined({prepared, handlerRegistered});
  for (size_t failAt = 0; failAt < steps.size(); ++failAt) {
    SCOPED_TRACE(steps[failAt]);
    script = Script();
    const QuietXerces xerces;
    DefaultHandler handler;
    script.failAt = failAt;
    script.failure = throwXmlException;
    const bool hasReader = failAt > 1;
    // What fails ends its own function: the set-up, or the registration of the handler.
    Lines expected = firstOf(steps, failAt + 1);
    if (hasReader && failAt < prepared.size()) {
      expected = joined({expected, handlerRegistered});
    }
    {
      const CCmnSaxParser parser(&handler);
      EXPECT_EQ(takeEvents(), expected);
      script.failAt = never;
      EXPECT_EQ(handlerOf(parser), &handler);
      EXPECT_EQ(readerOf(parser) != nullptr, hasReader);
    }
    EXPECT_EQ(takeEvents(), hasReader ? ended : Lines{"Terminate"});
  }
}

TEST_F(SaxParser, ParsesWithTheReaderThatItGotWhenAFeatureCouldNotBeSet) {
  for (size_t failAt = 2; failAt < prepared.size(); ++failAt) {
    SCOPED_TRACE(prepared[failAt]);
    script = Script();
    Recorder handler;  // initialises Xerces-C first
    takeEvents();
    script.failAt = failAt;
    script.failure = throwXmlException;
    CCmnSaxParser parser(&handler);
    parser.parse("<a/>");
    EXPECT_EQ(handler.lines().size(), 4U);
    EXPECT_EQ(handler.lines().back(), "endDocument");
  }
}

TEST_F(SaxParser, PassesOnWhatIsNoXmlExceptionDuringTheSetUp) {
  const std::pair<const char*, void (*)()> failures[] = {
      {"int", [] { throw 42; }},
      {"out of memory", [] { throw xercesc::OutOfMemoryException(); }},
      {"standard", [] { throw std::runtime_error("mine"); }},
      {"SAX", [] { throw xercesc::SAXNotSupportedException(u"mine"); }},
  };
  for (const auto& [name, failure] : failures) {
    for (size_t failAt = 0; failAt < prepared.size() + 2; ++failAt) {
      SCOPED_TRACE(std::string(name) + " at step " + std::to_string(failAt));
      script = Script();
      const QuietXerces xerces;
      DefaultHandler handler;
      script.failAt = failAt;
      script.failure = failure;
      EXPECT_ANY_THROW(CCmnSaxParser parser(&handler));
      // There is no parser that could give these up later. What failed to be initialised must not
      // be terminated: Xerces-C would meet what it has not made.
      const Lines givenUp = failAt == 0 ? Lines() : failAt == 1 ? Lines{"Terminate"} : ended;
      const Lines steps = joined({prepared, handlerRegistered});
      EXPECT_EQ(takeEvents(), joined({firstOf(steps, failAt + 1), givenUp}));
      EXPECT_TRUE(script.readers.empty());
      EXPECT_EQ(script.initialisations, 0);
    }
  }
}

TEST_F(SaxParser, GivesUpXercesWhenItsConstructorThrows) {
  for (size_t failAt = 1; failAt < prepared.size() + 2; ++failAt) {
    SCOPED_TRACE(failAt);
    XercesMemory memory;
    script = Script();
    script.memory = &memory;
    DefaultHandler handler;
    script.failAt = failAt;
    script.failure = [] { throw xercesc::OutOfMemoryException(); };
    EXPECT_THROW(CCmnSaxParser parser(&handler), xercesc::OutOfMemoryException);
    EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
    EXPECT_EQ(memory.blocks(), 0U);
    EXPECT_EQ(memory.lateCalls(), 0);
  }
}

TEST_F(SaxParser, GivesUpXercesWhicheverAllocationFails) {
  XercesMemory memory;
  script.memory = &memory;
  Recorder handler;  // keeps Xerces-C, whose own set-up cannot be undone
  bool isMade = false;
  for (size_t allocations = 0; !isMade; ++allocations) {
    ASSERT_LT(allocations, 10000U);
    memory.failAfter = allocations;
    try {
      const CCmnSaxParser parser(&handler);
      isMade = true;
    } catch (const xercesc::OutOfMemoryException&) {
      EXPECT_EQ(script.initialisations, 1) << "allocation " << allocations;
      EXPECT_TRUE(script.readers.empty());
    }
    memory.failAfter = XercesMemory::never;
  }
  CCmnSaxParser parser(&handler);
  parser.parse("<a/>");
  EXPECT_EQ(handler.lines(), (Lines{"startDocument", "<a>", "</a>", "endDocument"}));
}

TEST_F(SaxParser, StaysAsItIsWhenItCannotBeSetUpAgainForAnotherReason) {
  for (size_t failAt = 0; failAt < prepared.size(); ++failAt) {
    SCOPED_TRACE(prepared[failAt]);
    script = Script();
    Recorder handler;
    {
      CCmnSaxParser parser(&handler);
      const xercesc::SAX2XMLReader* const reader = readerOf(parser);
      takeEvents();
      script.failAt = failAt;
      script.failure = [] { throw std::bad_alloc(); };
      EXPECT_THROW(parser.init(), std::bad_alloc);
      script.failAt = never;
      EXPECT_EQ(readerOf(parser), reader);
      EXPECT_EQ(script.readers.size(), 1U);
      EXPECT_EQ(script.initialisations, 2);
      parser.parse("<a/>");
      EXPECT_EQ(handler.lines(), (Lines{"startDocument", "<a>", "</a>", "endDocument"}));
    }
    EXPECT_EQ(script.initialisations, 1);
  }
}

TEST_F(SaxParser, DropsAnXmlExceptionWhenAHandlerIsRegistered) {
  DefaultHandler first;
  DefaultHandler second;
  CCmnSaxParser parser(&first);
  script.failure = throwXmlException;

  takeEvents();
  script.failAt = 0;
  parser.setHandler(&second);
  EXPECT_EQ(takeEvents(), Lines{"setContentHandler handler"});
  EXPECT_EQ(handlerOf(parser), &second);
  EXPECT_EQ(readerOf(parser)->getContentHandler(), &first);
  EXPECT_EQ(readerOf(parser)->getErrorHandler(), &first);

  script.failAt = 1;
  parser.setHandler(&second);
  EXPECT_EQ(takeEvents(), handlerRegistered);
  EXPECT_EQ(readerOf(parser)->getContentHandler(), &second);
  EXPECT_EQ(readerOf(parser)->getErrorHandler(), &first);

  script.failAt = 1;
  script.failure = [] { throw 42; };
  EXPECT_THROW(parser.setHandler(&second), int);
  script.failAt = never;
}

TEST_F(SaxParser, KeepsItsHandlerWhenItHasNoReader) {
  const QuietXerces xerces;
  DefaultHandler first;
  DefaultHandler second;
  script.failAt = 1;
  script.failure = throwXmlException;
  CCmnSaxParser parser(&first);
  script.failAt = never;
  takeEvents();
  EXPECT_EQ(readerOf(parser), nullptr);
  EXPECT_EQ(handlerOf(parser), &first);
  parser.setHandler(&second);
  EXPECT_EQ(handlerOf(parser), &second);
  parser.setHandler(nullptr);
  EXPECT_EQ(handlerOf(parser), nullptr);
  EXPECT_EQ(takeEvents(), Lines());
}

// That nobody asks whether there is a reader is meant.
TEST_F(SaxParser, FailsInTheCallersProcessWhenItParsesWithoutAReader) {
  const QuietXerces xerces;
  script.failAt = 1;
  script.failure = throwXmlException;
  CCmnSaxParser parser(nullptr);
  script.failAt = never;
  ASSERT_EQ(readerOf(parser), nullptr);
  EXPECT_DEATH(parser.parse("<a/>"), "");
  EXPECT_DEATH(parser.parse(Lines{"<a/>"}), "");
}

TEST_F(SaxParser, MakesAnotherReaderWithoutAHandlerWhenItIsSetUpAgain) {
  Recorder handler;
  takeEvents();
  {
    CCmnSaxParser parser(&handler);
    takeEvents();
    parser.init();
    EXPECT_EQ(takeEvents(), prepared);
    ASSERT_EQ(script.readers.size(), 2U);
    EXPECT_EQ(readerOf(parser), script.readers[1]);
    EXPECT_EQ(handlerOf(parser), &handler);
    parser.parse("<a/>");
    EXPECT_EQ(handler.lines(), Lines());
    parser.setHandler(&handler);
    parser.parse("<b/>");
    EXPECT_EQ(handler.lines(), (Lines{"startDocument", "<b>", "</b>", "endDocument"}));
    takeEvents();
  }
  EXPECT_EQ(takeEvents(), ended);
  // The first reader and one initialisation have been forgotten, as they should.
  ASSERT_EQ(script.readers.size(), 1U);
  EXPECT_EQ(script.initialisations, 2);
  delete script.readers[0];
  XMLPlatformUtils::Terminate();
}

TEST_F(SaxParser, KeepsItsReaderWhenItCannotBeSetUpAgain) {
  Recorder handler;
  CCmnSaxParser parser(&handler);
  takeEvents();
  script.failAt = 1;
  script.failure = throwXmlException;
  parser.init();
  EXPECT_EQ(takeEvents(), firstOf(prepared, 2));
  script.failAt = never;
  parser.parse("<a/>");
  EXPECT_EQ(handler.lines(), (Lines{"startDocument", "<a>", "</a>", "endDocument"}));
  XMLPlatformUtils::Terminate();  // the second initialisation, which nobody gives up
}

// --- What is parsed

// Changes the document that it is told of.
class Erasing : public EventLog<CCmnSaxParseHandler> {
 public:
  explicit Erasing(std::string& document) : m_document(document) {}
  void startDocument() override { m_document.assign(m_document.size(), ' '); }

 private:
  std::string& m_document;
};

TEST_F(SaxParser, LetsTheHandlerChangeTheTextsThatWereGiven) {
  for (const bool inParts : {false, true}) {
    SCOPED_TRACE(inParts);
    Lines parts = {"<a><b>text</b></a>"};
    Erasing handler(parts[0]);
    CCmnSaxParser parser(&handler);
    if (inParts) {
      parser.parse(parts);
    } else {
      parser.parse(parts[0]);
    }
    EXPECT_EQ(parts[0], std::string(18, ' '));
    EXPECT_EQ(handler.lines(), (Lines{"<a>", "<b>", "'text'", "</b>", "</a>", "endDocument"}));
  }
}

// Of a short text the reader has read all by the time that a handler is told of anything.
TEST_F(SaxParser, LetsTheHandlerChangeALongTextThatWasGiven) {
  constexpr long size = 1'000'000;
  std::string document = "<a>" + std::string(size, 'k') + "</a>";
  Erasing handler(document);
  CCmnSaxParser parser(&handler);
  parser.parse(document);
  const Lines lines = handler.lines();
  EXPECT_EQ(lines.back(), "endDocument");
  long read = 0;
  for (const std::string& line : lines) {
    read += std::count(line.begin(), line.end(), 'k');
  }
  EXPECT_EQ(read, size);
}

TEST_F(SaxParser, JoinsPartsInOneBlockOfTheirSizes) {
  CCmnSaxParser parser(nullptr);
  script.readsDocuments = false;
  const Lines parts = {"<a>", std::string(1000, ' '), "", "</a>"};
  HeapWatch watch;
  parser.parse(parts);
  watch.end();
  ASSERT_GE(watch.requests(), 1);
  EXPECT_EQ(watch.request(0).size, 3 + 1000 + 0 + 4 + parts.size() + 1);
}

TEST_F(SaxParser, HasTheReaderNotCopyWhatItHasJoinedItself) {
  XercesMemory memory;
  script.memory = &memory;
  CCmnSaxParseHandler handler;
  CCmnSaxParser parser(&handler);
  script.readsDocuments = false;
  const std::string part = "<b>" + std::string(1000, 'k') + "</b>";
  Lines parts = {"<a>"};
  parts.insert(parts.end(), 2000, part);
  parts.emplace_back("</a>");
  parser.parse(parts);
  EXPECT_FALSE(handler.hasErrorOccurred());
  EXPECT_LT(memory.largest(), 1000000U);
}

TEST_F(SaxParser, GivesTheReaderExactlyTheBytesOfTheDocument) {
  Recorder handler;
  CCmnSaxParser parser(&handler);
  const std::string zeros("<a>\0\0b</a>\0\0", 12);
  for (const std::string& document : {std::string(), std::string("<a/>"), zeros,
                                      std::string("\0", 1), std::string(10000, '\xff')}) {
    takeEvents();
    parser.parse(document);
    EXPECT_EQ(takeEvents(), Lines{"parse"});
    EXPECT_EQ(script.lastDocument, document);
    EXPECT_EQ(script.lastSystemId, "kelp_sax_parser");
  }
}

TEST_F(SaxParser, JoinsPartsWithNothingBetween) {
  Recorder handler;
  CCmnSaxParser parser(&handler);
  const std::string zero(1, '\0');
  const std::pair<Lines, std::string> rows[] = {
      {{}, ""},
      {{""}, ""},
      {{"", "", ""}, ""},
      {{"<a/>"}, "<a/>"},
      {{"<a b='", "c'/>"}, "<a b='c'/>"},
      {{"", "<a", "", "/>", ""}, "<a/>"},
      {{zero, "a" + zero, zero + "b"}, zero + "a" + zero + zero + "b"},
  };
  for (const auto& [parts, document] : rows) {
    takeEvents();
    parser.parse(parts);
    EXPECT_EQ(takeEvents(), Lines{"parse"});
    EXPECT_EQ(script.lastDocument, document);
    EXPECT_EQ(script.lastSystemId, "kelp_sax_parser");
  }
}

TEST_F(SaxParser, ParsesATagThatIsSplitBetweenTwoParts) {
  Recorder handler;
  CCmnSaxParser parser(&handler);
  parser.parse(Lines{"<root><chi", "ld name='x'/></root>"});
  EXPECT_EQ(handler.lines(), (Lines{"startDocument", "<root>", "<child name=x:CDATA>", "</child>",
                                    "</root>", "endDocument"}));
}

TEST_F(SaxParser, TellsTheSameWhereverADocumentIsSplit) {
  const Lines expected = eventsOf(everyKindOfMarkup);
  ASSERT_EQ(expected.back(), "endDocument");
  Recorder handler;
  CCmnSaxParser parser(&handler);
  for (size_t split = 0; split <= everyKindOfMarkup.size(); ++split) {
    parser.parse(Lines{everyKindOfMarkup.substr(0, split), everyKindOfMarkup.substr(split)});
    ASSERT_EQ(handler.takeLines(), expected) << "split at " << split;
  }
  for (const size_t size : {1U, 2U, 3U, 5U}) {
    Lines parts;
    for (size_t i = 0; i < everyKindOfMarkup.size(); i += size) {
      parts.push_back(everyKindOfMarkup.substr(i, size));
      parts.emplace_back();
    }
    parser.parse(parts);
    EXPECT_EQ(handler.takeLines(), expected) << "in parts of " << size;
  }
}

TEST_F(SaxParser, TellsEverythingThatADocumentHolds) {
  EXPECT_EQ(merged(eventsOf(everyKindOfMarkup)),
            (Lines{"startDocument", "<?before data?>",
                   "<r:oot xmlns:r=urn:r:CDATA plain=a<\\u20ac b:CDATA>", "'\n '",
                   "<b t=v:ENUMERATION i=q:ID>", "</b>", "<b t=u:ENUMERATION>", "'x'", "</b>",
                   "'A<x>]]&<&\\u20ac\\ud83c\\udf0a'", "<?in ?>", "'\t '", "<c\\u00e9>",
                   "</c\\u00e9>", "</r:oot>", "<?after ?>", "endDocument"}));
}

TEST_F(SaxParser, ReadsDocumentsInTheEncodingThatTheyDeclare) {
  const Lines expected = {"startDocument", "<a>", "'K\\u00fcste'", "</a>", "endDocument"};
  const auto utf16 = [](const std::u16string& text, bool bigEndian) {
    std::string bytes;
    for (const char16_t unit : text) {
      const char high = static_cast<char>(unit >> 8);
      const char low = static_cast<char>(unit & 0xff);
      bytes += bigEndian ? high : low;
      bytes += bigEndian ? low : high;
    }
    return bytes;
  };
  const std::u16string wide = u"\ufeff<a>K\u00fcste</a>";
  const std::pair<const char*, std::string> rows[] = {
      {"UTF-8 without a word", "<a>K\xc3\xbcste</a>"},
      {"UTF-8", "<?xml version='1.0' encoding='UTF-8'?><a>K\xc3\xbcste</a>"},
      {"UTF-8 with a mark", "\xef\xbb\xbf<a>K\xc3\xbcste</a>"},
      {"UTF-16, little-endian", utf16(wide, false)},
      {"UTF-16, big-endian", utf16(wide, true)},
      {"UTF-16 without a mark", utf16(u"<?xml version='1.0'?><a>K\u00fcste</a>", false)},
      {"ISO-8859-1", "<?xml version='1.0' encoding='ISO-8859-1'?><a>K\xfcste</a>"},
      {"US-ASCII", "<?xml version='1.0' encoding='US-ASCII'?><a>K&#xfc;ste</a>"},
  };
  for (const auto& [name, document] : rows) {
    SCOPED_TRACE(name);
    EXPECT_EQ(merged(eventsOf(document)), expected);
  }
}

TEST_F(SaxParser, ParsesFiftyMegabytes) {
  class Counter : public CCmnSaxParseHandler {
   public:
    using CCmnSaxParseHandler::characters;
    void startElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/, const XMLCh* /*qname*/,
                      const xercesc::Attributes& attrs) override {
      ++elements;
      attributes += attrs.getLength();
    }
    void characters(const XMLCh* const /*chars*/, const XMLSize_t length) override {
      units += length;
    }
    size_t elements = 0;
    size_t attributes = 0;
    size_t units = 0;
  };
  const std::string element = "<e a='1'>" + std::string(1000, 't') + "</e>";
  constexpr size_t count = 50 * 1000 * 1000 / 1000;
  std::string document = "<root>";
  for (size_t i = 0; i < count; ++i) {
    document += element;
  }
  document += "</root>";
  Counter handler;
  CCmnSaxParser parser(&handler);
  parser.parse(document);
  EXPECT_FALSE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.elements, count + 1);
  EXPECT_EQ(handler.attributes, count);
  EXPECT_EQ(handler.units, count * 1000);
}

TEST_F(SaxParser, ReadsExternalEntities) {
  XercesMemory memory;  // Xerces-C leaks what it knows of an external DTD
  script.memory = &memory;
  const CCmnSaxParseHandler keepsXerces;
  const kelp_test::ScratchDirectory directory;
  const std::string entity = directory.path() + "part.ent";
  kelp_test::writeFile(entity, "<inner>\n</inner>");
  const std::string document = "<!DOCTYPE a [<!ENTITY e SYSTEM '" + entity + "'>]><a>&e;</a>";
  EXPECT_EQ(eventsOf(document),
            (Lines{"startDocument", "<a>", "<inner>", "'\n'", "</inner>", "</a>", "endDocument"}));
  const std::string definitions = directory.path() + "definitions.dtd";
  kelp_test::writeFile(definitions, "<!ENTITY e 'defined outside'>");
  EXPECT_EQ(eventsOf("<!DOCTYPE a SYSTEM '" + definitions + "'><a>&e;</a>"),
            (Lines{"startDocument", "<a>", "'defined outside'", "</a>", "endDocument"}));

  // A problem in there names that file.
  kelp_test::writeFile(entity, "<inner>\n</other>");
  Recorder handler;
  CCmnSaxParser parser(&handler);
  parser.parse(document);
  EXPECT_EQ(ascii(handler.getLastException().getSystemId()), entity);
  EXPECT_EQ(handler.getLastException().getLineNumber(), 2U);
}

TEST_F(SaxParser, EndsADocumentWhoseExternalDefinitionsAreMissing) {
  for (const char* declaration : {"", "<?xml version='1.0' standalone='yes'?>"}) {
    const Lines lines =
        eventsOf(std::string(declaration) + "<!DOCTYPE a SYSTEM '/nowhere/d.dtd'><a>text</a>");
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1].rfind("fatal error ", 0), 0U) << lines[1];
  }
}

TEST_F(SaxParser, ExpandsInternalEntitiesWithoutABound) {
  std::string document = "<!DOCTYPE a [<!ENTITY e0 'xxxxxxxxxx'>";
  for (const std::string level : {"1", "2", "3"}) {
    document += "<!ENTITY e" + level + " '";
    for (int i = 0; i < 10; ++i) {
      document += "&e" + std::to_string(std::stoi(level) - 1) + ";";
    }
    document += "'>";
  }
  const Lines lines = merged(eventsOf(document + "]><a>&e3;</a>"));
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_EQ(lines[2], "'" + std::string(10000, 'x') + "'");
}

TEST_F(SaxParser, KeepsTheRulesOfVersion11UntilADocumentDeclaresVersion10) {
  Recorder handler;
  CCmnSaxParser parser(&handler);
  const auto textOf = [&](const std::string& declaration) {
    parser.parse(declaration + "<a>x\xc2\x85y</a>");
    return merged(handler.takeLines())[2];
  };
  EXPECT_EQ(textOf(""), "'x\\u0085y'");
  EXPECT_EQ(textOf("<?xml version='1.1'?>"), "'x\ny'");
  EXPECT_EQ(textOf(""), "'x\ny'");
  EXPECT_EQ(textOf("<?xml version='1.0'?>"), "'x\\u0085y'");
  EXPECT_EQ(textOf(""), "'x\\u0085y'");
}

TEST_F(SaxParser, DoesNotAskTheHandlerForExternalEntities) {
  class Resolver : public Recorder {
   public:
    xercesc::InputSource* resolveEntity(const XMLCh* const /*publicId*/,
                                        const XMLCh* const /*systemId*/) override {
      wasAsked = true;
      return nullptr;
    }
    bool wasAsked = false;
  };
  Resolver handler;
  CCmnSaxParser parser(&handler);
  parser.parse("<!DOCTYPE a [<!ENTITY e SYSTEM '/nowhere/part.ent'>]><a>&e;</a>");
  EXPECT_FALSE(handler.wasAsked);
  EXPECT_TRUE(handler.hasErrorOccurred());
}

// --- What the features mean

TEST_F(SaxParser, NeitherValidatesNorProcessesNamespaces) {
  const std::pair<const char*, Lines> rows[] = {
      {"<!DOCTYPE a [<!ELEMENT a (b)><!ELEMENT b EMPTY><!ATTLIST a i ID #REQUIRED>]>"
       "<c z='1'><d>t</d></c>",
       {"<c z=1:CDATA>", "<d>", "'t'", "</d>", "</c>"}},
      {"<!DOCTYPE a [<!ELEMENT a (b)><!ELEMENT b EMPTY>]><a> <b/> </a>",
       {"<a>", "' '", "<b>", "</b>", "' '", "</a>"}},
      {"<x:a y:b='1'><:c/><d:e:f/></x:a>",
       {"<x:a y:b=1:CDATA>", "<:c>", "</:c>", "<d:e:f>", "</d:e:f>", "</x:a>"}},
      {"<x:a xmlns='d' xmlns:x='u' x:b='1'><x:b/><c/></x:a>",
       {"<x:a xmlns=d:CDATA xmlns:x=u:CDATA x:b=1:CDATA>", "<x:b>", "</x:b>", "<c>", "</c>",
        "</x:a>"}},
      {"<a xmlns:x='u' xmlns:y='u' x:b='1' y:b='2'/>",
       {"<a xmlns:x=u:CDATA xmlns:y=u:CDATA x:b=1:CDATA y:b=2:CDATA>", "</a>"}},
      {"<a xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
       "xsi:noNamespaceSchemaLocation='/nowhere/schema.xsd' xsi:type='nothing'/>",
       {"<a xmlns:xsi=http://www.w3.org/2001/XMLSchema-instance:CDATA "
        "xsi:noNamespaceSchemaLocation=/nowhere/schema.xsd:CDATA xsi:type=nothing:CDATA>",
        "</a>"}},
  };
  for (const auto& [document, events] : rows) {
    SCOPED_TRACE(document);
    EXPECT_EQ(eventsOf(document), joined({{"startDocument"}, events, {"endDocument"}}));
  }
}

// --- Problems

struct Problem {
  std::string document;
  const char* kind;
  XMLFileLoc line;
  XMLFileLoc column;
  size_t events;  // before it
};
const Problem problems[] = {
    {"", "fatal error", 1, 1, 1},
    {" \n ", "fatal error", 2, 2, 1},
    {"text", "fatal error", 1, 1, 1},
    {"<a>", "fatal error", 1, 4, 2},
    {"<a>\n  <b></c>\n</a>", "fatal error", 2, 8, 4},
    {"<a/>\n<b/>", "fatal error", 2, 1, 3},
    {"<a/>rest", "fatal error", 1, 5, 3},
    {"<a b='1' b='2'/>", "fatal error", 1, 12, 1},
    {"<a>\n\n&u;</a>", "fatal error", 3, 4, 3},
    {"<a>\x01</a>", "fatal error", 1, 5, 2},
    {"<a>K\xfcste</a>", "fatal error", 1, 1, 1},
    {"<?xml version='1.0' encoding='nonsense'?><a/>", "fatal error", 1, 42, 1},
    {"<!DOCTYPE a [<!ENTITY e SYSTEM '/nowhere/part.ent'>]><a>&e;</a>", "fatal error", 1, 60, 2},
    {"<?xml version='1.0' encoding='UTF-16'?><a/>", "warning", 1, 40, 1},
    {"<!DOCTYPE a [<!NOTATION n SYSTEM 'x'>\n<!NOTATION n SYSTEM 'y'>]><a/>", "warning", 2, 24, 1},
    {"<!DOCTYPE a [<!ATTLIST a b CDATA #IMPLIED>\n<!ATTLIST a b CDATA #IMPLIED>]><a/>", "warning",
     2, 14, 1},
};

TEST_F(SaxParser, ReportsProblemsWithTheirPlace) {
  for (const Problem& problem : problems) {
    SCOPED_TRACE(problem.document);
    Recorder handler;
    CCmnSaxParser parser(&handler);
    parser.parse(problem.document);
    EXPECT_TRUE(handler.hasErrorOccurred());
    ASSERT_GT(handler.lines().size(), problem.events);
    EXPECT_EQ(handler.lines()[problem.events], problem.kind + (" " + handler.lastProblem()));
    EXPECT_EQ(handler.getLastException().getPublicId(), nullptr);
    EXPECT_EQ(ascii(handler.getLastException().getSystemId()), "kelp_sax_parser");
    EXPECT_EQ(handler.getLastException().getLineNumber(), problem.line);
    EXPECT_EQ(handler.getLastException().getColumnNumber(), problem.column);
    EXPECT_GT(xercesc::XMLString::stringLen(handler.getLastException().getMessage()), 0U);
    EXPECT_EQ(handler.getCharacters(), "");
    // A fatal error ends the document; a warning leaves it whole.
    const bool isWhole = problem.kind == std::string("warning");
    EXPECT_EQ(handler.lines().size(), problem.events + (isWhole ? 4 : 1));
    EXPECT_EQ(handler.lines().back() == "endDocument", isWhole);
  }
}

TEST_F(SaxParser, TellsWhatTheReaderTellsWithoutTheLibrary) {
  const QuietXerces xerces;
  for (const Problem& problem : problems) {
    EXPECT_EQ(eventsOf(problem.document), eventsWithoutTheLibrary(problem.document))
        << problem.document;
  }
  // Documents cut short and with one byte changed.
  for (size_t i = 0; i < everyKindOfMarkup.size(); ++i) {
    const std::string cut = everyKindOfMarkup.substr(0, i);
    ASSERT_EQ(eventsOf(cut), eventsWithoutTheLibrary(cut)) << "cut at " << i;
    std::string changed = everyKindOfMarkup;
    changed[i] = static_cast<char>(changed[i] ^ 0x04);
    ASSERT_EQ(eventsOf(changed), eventsWithoutTheLibrary(changed)) << "changed at " << i;
  }
}

// That a warning counts as much as an error is meant.
TEST_F(SaxParser, MarksAPlainHandlerAtAWarning) {
  CCmnSaxParseHandler handler;
  CCmnSaxParser parser(&handler);
  parser.parse("<!DOCTYPE a [<!NOTATION n SYSTEM 'x'><!NOTATION n SYSTEM 'y'>]><a>text</a>");
  EXPECT_TRUE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.getLastException().getLineNumber(), 1U);
  EXPECT_NE(ascii(handler.getLastException().getMessage()).find("'n'"), std::string::npos);
}

TEST_F(SaxParser, LeavesAPlainHandlerUnmarkedAtAGoodDocument) {
  CCmnSaxParseHandler handler;
  CCmnSaxParser parser(&handler);
  parser.parse(everyKindOfMarkup);
  EXPECT_FALSE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.getLastException().getLineNumber(), 0U);
  EXPECT_EQ(handler.getCharacters(), "");
}

TEST_F(SaxParser, KeepsTheLastProblemOverSeveralDocuments) {
  CCmnSaxParseHandler handler;
  CCmnSaxParser parser(&handler);
  parser.parse("<a/>");
  EXPECT_FALSE(handler.hasErrorOccurred());
  parser.parse("<a>\n</b>");
  EXPECT_TRUE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.getLastException().getLineNumber(), 2U);
  parser.parse("<a/>");
  EXPECT_TRUE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.getLastException().getLineNumber(), 2U);
  parser.parse("<a>\n\n\n</b>");
  EXPECT_EQ(handler.getLastException().getLineNumber(), 4U);
  parser.parse("<?xml version='1.0' encoding='UTF-16'?><a/>");  // a warning
  EXPECT_EQ(handler.getLastException().getLineNumber(), 1U);
}

TEST_F(SaxParser, ParsesAnyNumberOfDocuments) {
  Recorder handler;
  CCmnSaxParser parser(&handler);
  const Lines good = {"startDocument", "<a>", "'x'", "</a>", "endDocument"};
  for (int i = 0; i < 100; ++i) {
    parser.parse("<a>x</a>");
    ASSERT_EQ(handler.takeLines(), good);
    parser.parse("<b><c></b>");
    ASSERT_EQ(handler.takeLines().size(), 4U);
  }
}

TEST_F(SaxParser, PassesOverMalformedDocumentsInSilenceWithoutAHandler) {
  CCmnSaxParser parser(nullptr);
  for (const Problem& problem : problems) {
    EXPECT_NO_THROW(parser.parse(problem.document)) << problem.document;
  }
  Recorder handler;
  parser.setHandler(&handler);
  parser.setHandler(nullptr);
  EXPECT_NO_THROW(parser.parse("<a></b>"));
}

TEST_F(SaxParser, LetsTheParseExceptionOfAPlainDefaultHandlerOut) {
  DefaultHandler handler;
  CCmnSaxParser parser(&handler);
  for (int round = 0; round < 2; ++round) {
    try {
      parser.parse("<a>\n</b>");
      ADD_FAILURE() << "nothing was thrown";
    } catch (const SAXParseException& problem) {
      EXPECT_EQ(ascii(problem.getSystemId()), "kelp_sax_parser");
      EXPECT_EQ(problem.getLineNumber(), 2U);
    }
    EXPECT_NO_THROW(parser.parse("<a/>"));
  }
}

// --- Exceptions of handlers

// Does something at one kind of event.
class Interrupting : public Recorder {
 public:
  std::string at;
  std::function<void()> action;

  void startDocument() override { check("startDocument"); }
  void endDocument() override { check("endDocument"); }
  void startElement(const XMLCh* const uri, const XMLCh* const localname, const XMLCh* const qname,
                    const xercesc::Attributes& attrs) override {
    check("startElement");
    Recorder::startElement(uri, localname, qname, attrs);
  }
  void endElement(const XMLCh* const /*uri*/, const XMLCh* const /*localname*/,
                  const XMLCh* const /*qname*/) override {
    check("endElement");
  }
  void characters(const XMLCh* const /*chars*/, const XMLSize_t /*length*/) override {
    check("characters");
  }
  void processingInstruction(const XMLCh* const /*target*/, const XMLCh* const /*data*/) override {
    check("processingInstruction");
  }
  void resetErrors() override { check("resetErrors"); }
  void warning(const SAXParseException& problem) override {
    Recorder::warning(problem);
    check("warning");
  }
  void fatalError(const SAXParseException& problem) override {
    Recorder::fatalError(problem);
    check("fatalError");
  }

 private:
  void check(const std::string& event) const {
    if (event == at) {
      action();
    }
  }
};

// Has an event of every kind.
const std::string interruptedDocument =
    "<!DOCTYPE a [<!NOTATION n SYSTEM 'x'><!NOTATION n SYSTEM 'y'>]><a><?p i?>text<b></b></a>";
const std::string brokenDocument = "<a><b></a>";
const std::vector<std::pair<std::string, std::string>> interruptions = {
    {"startDocument", interruptedDocument}, {"warning", interruptedDocument},
    {"startElement", interruptedDocument},  {"processingInstruction", interruptedDocument},
    {"characters", interruptedDocument},    {"endElement", interruptedDocument},
    {"endDocument", interruptedDocument},   {"fatalError", brokenDocument},
};

// What leaves parse(), as a text.
std::string exceptionOf(CCmnSaxParser& parser, const std::string& document) {
  try {
    parser.parse(document);
  } catch (const SAXParseException& exception) {
    return "SAXParseException " + ascii(exception.getMessage()) + ":" +
           std::to_string(exception.getLineNumber());
  } catch (const xercesc::XMLException& exception) {
    return "XMLException " + ascii(exception.getType());
  } catch (const xercesc::OutOfMemoryException&) {
    return "OutOfMemoryException";
  } catch (const std::exception& exception) {
    return std::string("std::exception ") + exception.what();
  } catch (int number) {
    return "int " + std::to_string(number);
  }
  return "";
}

TEST_F(SaxParser, LetsTheExceptionsOfHandlersOutAsTheyAreAndGoesOn) {
  const std::pair<std::string, void (*)()> rows[] = {
      {"std::exception mine", [] { throw std::runtime_error("mine"); }},
      {"int 42", [] { throw 42; }},
      {"SAXParseException mine:3", [] { throw SAXParseException(u"mine", u"p", u"s", 3, 4); }},
  };
  for (const auto& [expected, action] : rows) {
    for (const auto& [event, document] : interruptions) {
      SCOPED_TRACE(expected + " at " + event);
      Interrupting handler;
      CCmnSaxParser parser(&handler);
      handler.at = event;
      handler.action = action;
      for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(exceptionOf(parser, document), expected);
      }
      EXPECT_EQ(handler.hasErrorOccurred(), event != "startDocument");  // its warning
      handler.at.clear();
      handler.takeLines();
      EXPECT_EQ(exceptionOf(parser, "<good/>"), "");
      EXPECT_EQ(handler.lines(), Lines{"<good>"});
    }
  }
}

TEST_F(SaxParser, ReportsAnXmlExceptionOfAHandlerAsAProblem) {
  for (const auto& [event, document] : interruptions) {
    SCOPED_TRACE(event);
    Interrupting handler;
    CCmnSaxParser parser(&handler);
    handler.at = event;
    handler.action = [&handler] {
      handler.at.clear();
      throwXmlException();
    };
    EXPECT_EQ(exceptionOf(parser, document), "");
    EXPECT_TRUE(handler.hasErrorOccurred());
    EXPECT_EQ(handler.lines().back().rfind("fatal error ", 0), 0U) << handler.lines().back();
    handler.takeLines();
    EXPECT_EQ(exceptionOf(parser, "<good/>"), "");
    EXPECT_EQ(handler.lines(), Lines{"<good>"});
  }
}

TEST_F(SaxParser, ReportsAnXmlExceptionOfTheKindThatItsCodeHas) {
  const std::pair<std::string, xercesc::XMLExcepts::Codes> rows[] = {
      {"warning ", xercesc::XMLExcepts::Scan_CouldNotOpenSource_Warning},
      {"fatal error ", xercesc::XMLExcepts::Scan_CouldNotOpenSource},
  };
  for (const auto& [kind, code] : rows) {
    Interrupting handler;
    CCmnSaxParser parser(&handler);
    handler.at = "startElement";
    handler.action = [code = code] { throw xercesc::RuntimeException(__FILE__, __LINE__, code); };
    EXPECT_EQ(exceptionOf(parser, "<a><b/></a>"), "");
    ASSERT_EQ(handler.lines().size(), 1U) << "the document ends in either case";
    EXPECT_EQ(handler.lines()[0].rfind(kind, 0), 0U) << handler.lines()[0];
  }
}

TEST_F(SaxParser, LetsAnXmlExceptionOutThatIsThrownWhenOneIsReported) {
  Interrupting handler;
  CCmnSaxParser parser(&handler);
  handler.at = "fatalError";
  handler.action = throwXmlException;
  EXPECT_EQ(exceptionOf(parser, brokenDocument), "XMLException RuntimeException");
  handler.at.clear();
  EXPECT_EQ(exceptionOf(parser, "<good/>"), "");
}

TEST_F(SaxParser, CannotGoOnAfterAHandlerWasOutOfMemory) {
  Interrupting handler;
  CCmnSaxParser parser(&handler);
  handler.at = "startElement";
  handler.action = [] { throw xercesc::OutOfMemoryException(); };
  EXPECT_EQ(exceptionOf(parser, "<a/>"), "OutOfMemoryException");
  handler.at.clear();
  EXPECT_EQ(exceptionOf(parser, "<good/>"), "XMLException IOException");
}

TEST_F(SaxParser, ReportsAFatalErrorWhenAHandlerCallsItsOwnParser) {
  Interrupting handler;
  CCmnSaxParser parser(&handler);
  handler.at = "startElement";
  handler.action = [&parser] { parser.parse("<inner/>"); };
  EXPECT_EQ(exceptionOf(parser, "<a/>"), "");
  ASSERT_EQ(handler.lines().size(), 1U);
  EXPECT_EQ(handler.lines()[0].rfind("fatal error ", 0), 0U);
  handler.at.clear();
  handler.takeLines();
  EXPECT_EQ(exceptionOf(parser, "<good/>"), "");
  EXPECT_EQ(handler.lines(), Lines{"<good>"});
}

TEST_F(SaxParser, LetsAHandlerUseAnotherParser) {
  Recorder innerHandler;
  Interrupting handler;
  CCmnSaxParser parser(&handler);
  CCmnSaxParser inner(&innerHandler);
  handler.at = "startElement";
  handler.action = [&inner] { inner.parse("<inner></wrong>"); };
  parser.parse("<a><b/></a>");
  EXPECT_FALSE(handler.hasErrorOccurred());
  EXPECT_TRUE(innerHandler.hasErrorOccurred());
  EXPECT_EQ(handler.lines(), (Lines{"<a>", "<b>"}));
  EXPECT_EQ(innerHandler.lines().size(), 6U);
}

// --- Character data

TEST_F(SaxParser, DoesNotCollectCharactersInAPlainHandler) {
  CCmnSaxParseHandler handler;
  CCmnSaxParser parser(&handler);
  parser.parse("<a>text<![CDATA[more]]>&amp;</a>");
  EXPECT_FALSE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.getCharacters(), "");
}

TEST_F(SaxParser, CollectsTheCharactersThatAHandlerPassesOn) {
  class Forwarding : public CCmnSaxParseHandler {
   public:
    using CCmnSaxParseHandler::characters;
    void characters(const XMLCh* const chars, const XMLSize_t length) override {
      EXPECT_EQ(std::char_traits<char16_t>::length(chars), length);
      endsInsideAPair = endsInsideAPair || (length != 0 && (chars[length - 1] & 0xfc00) == 0xd800);
      m_text.append(chars, length);
    }
    void endElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/,
                    const XMLCh* /*qname*/) override {
      characters(m_text.c_str(), 0U);
      m_text.clear();
    }
    bool endsInsideAPair = false;

   private:
    std::basic_string<XMLCh> m_text;
  };
  XercesMemory memory;
  script.memory = &memory;
  const std::string longText(size_t{3} * 1024 * 1024, 'k');
  {
    Forwarding handler;
    CCmnSaxParser parser(&handler);
    parser.parse("<a>text<b> and </b><![CDATA[<more>]]>&amp;&#65;\r\n<!-- c -->\t</a>");
    EXPECT_EQ(handler.getCharacters(), "text and <more>&A\n\t");
    parser.parse("<a>!</a>");
    EXPECT_EQ(handler.getCharacters(), "text and <more>&A\n\t!");
  }
  {
    Forwarding handler;
    CCmnSaxParser parser(&handler);
    parser.parse("<a>" + longText + "</a>");
    EXPECT_TRUE(handler.getCharacters() == longText);
  }
  for (const std::string before : {"", "k"}) {
    std::string pairs = before;
    for (int i = 0; i < 700000; ++i) {
      pairs += "\xf0\x9f\x8c\x8a";
    }
    Forwarding handler;
    CCmnSaxParser parser(&handler);
    parser.parse("<a>" + pairs + "</a>");
    EXPECT_TRUE(handler.getCharacters() == pairs);
    EXPECT_EQ(handler.endsInsideAPair, before == "k") << "the pieces are of another length";
  }
  EXPECT_GT(memory.blocks(), 0U);  // the copies, which are kept on purpose
}

// --- Lifetimes

TEST_F(SaxParser, InitialisesXercesOnceForEachParserAndHandler) {
  {
    const CCmnSaxParseHandler handler;
    EXPECT_EQ(takeEvents(), Lines{initialized});
    {
      const CCmnSaxParser first(nullptr);
      const CCmnSaxParser second(nullptr);
      EXPECT_EQ(script.initialisations, 3);
      takeEvents();
    }
    EXPECT_EQ(takeEvents(), joined({ended, ended}));
    EXPECT_EQ(script.initialisations, 1);
  }
  EXPECT_EQ(takeEvents(), Lines{"Terminate"});
}

TEST_F(SaxParser, HandlersPassOnThatXercesCannotBeInitialised) {
  const QuietXerces xerces;
  script.failAt = 0;
  script.failure = throwXmlException;
  EXPECT_THROW(CCmnSaxParseHandler(), xercesc::XMLException);
  EXPECT_EQ(takeEvents(), Lines{initialized});
}

TEST_F(SaxParser, ParsersWorkSideBySide) {
  Recorder firstHandler;
  Recorder secondHandler;
  auto first = std::make_unique<CCmnSaxParser>(&firstHandler);
  auto second = std::make_unique<CCmnSaxParser>(&secondHandler);
  first->parse("<a/>");
  second->parse("<b></c>");
  first->parse("<d/>");
  EXPECT_EQ(firstHandler.takeLines(), (Lines{"startDocument", "<a>", "</a>", "endDocument",
                                             "startDocument", "<d>", "</d>", "endDocument"}));
  EXPECT_FALSE(firstHandler.hasErrorOccurred());
  EXPECT_TRUE(secondHandler.hasErrorOccurred());
  first.reset();
  second->parse("<e/>");
  EXPECT_EQ(secondHandler.lines().back(), "endDocument");
  auto third = std::make_unique<CCmnSaxParser>(&firstHandler);
  second.reset();
  third->parse("<f/>");
  EXPECT_EQ(firstHandler.lines(), (Lines{"startDocument", "<f>", "</f>", "endDocument"}));
}

TEST_F(SaxParser, ParsersShareAHandler) {
  Recorder handler;
  CCmnSaxParser first(&handler);
  {
    CCmnSaxParser second(&handler);
    second.parse("<a></b>");
  }
  first.parse("<c/>");
  EXPECT_TRUE(handler.hasErrorOccurred());
  EXPECT_EQ(handler.lines().back(), "endDocument");
}

// Handlers and parsers, told by a letter: A and B are handlers, P and Q are parsers.
class Cast {
 public:
  void enter(char who) {
    if (isHandler(who)) {
      m_handlers[who] = std::make_unique<CCmnSaxParseHandler>();
    } else {
      m_parsers[who] = std::make_unique<CCmnSaxParser>(nullptr);
    }
  }
  void leave(char who) {
    if (isHandler(who)) {
      m_handlers.erase(who);
    } else {
      m_parsers.erase(who);
    }
  }
  // Every handler records a problem of every parser.
  void act() {
    for (const auto& entry : m_handlers) {
      for (const auto& [who, parser] : m_parsers) {
        parser->setHandler(entry.second.get());
        parser->parse(std::string("<") + who + ">\n</wrong>");
        EXPECT_EQ(entry.second->getLastException().getLineNumber(), 2U);
      }
    }
  }

 private:
  static bool isHandler(char who) { return who < 'P'; }

  std::map<char, std::unique_ptr<CCmnSaxParseHandler>> m_handlers;
  std::map<char, std::unique_ptr<CCmnSaxParser>> m_parsers;
};

TEST_F(SaxParser, HandlersAndParsersComeAndGoInAnyOrder) {
  for (const std::string who : {"ABP", "APQ", "AB", "PQ"}) {
    std::string entries = who;
    do {
      std::string exits = who;
      do {
        SCOPED_TRACE("made in the order " + entries + ", destroyed in the order " + exits);
        XercesMemory memory;
        script = Script();
        script.memory = &memory;
        Cast cast;
        for (const char one : entries) {
          cast.enter(one);
        }
        EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, &memory);
        cast.act();
        for (size_t i = 0; i < exits.size(); ++i) {
          EXPECT_EQ(XMLPlatformUtils::fgMemoryManager, &memory);
          EXPECT_EQ(script.initialisations, static_cast<int>(exits.size() - i));
          cast.leave(exits[i]);
        }
        ASSERT_EQ(XMLPlatformUtils::fgMemoryManager, nullptr);
        ASSERT_EQ(memory.blocks(), 0U);
        ASSERT_EQ(memory.lateCalls(), 0);
      } while (std::next_permutation(exits.begin(), exits.end()));
    } while (std::next_permutation(entries.begin(), entries.end()));
  }
}

TEST_F(SaxParser, AnExceptionNeedsSomebodyWhoStillUsesXerces) {
  for (const bool handlerStays : {true, false}) {
    SCOPED_TRACE(handlerStays);
    XercesMemory memory;
    script = Script();
    script.memory = &memory;
    std::unique_ptr<CCmnSaxParseHandler> staying;
    if (handlerStays) {
      staying = std::make_unique<CCmnSaxParseHandler>();
    }
    DefaultHandler throwing;
    try {
      CCmnSaxParser parser(&throwing);
      parser.parse("<a></b>");
      ADD_FAILURE() << "nothing was thrown";
    } catch (const SAXParseException&) {
      EXPECT_EQ(XMLPlatformUtils::fgMemoryManager != nullptr, handlerStays);
    }
    EXPECT_EQ(memory.lateCalls() > 0, !handlerStays);
    staying.reset();
    EXPECT_EQ(memory.blocks(), 0U);
  }
}

}  // namespace

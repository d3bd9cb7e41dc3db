// XML through the parser: a document in any parts is told as the whole is, and as Xerces-C alone
// tells it, whatever it is; and one that is made is told as it was made.
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "expect.h"
#include "exposed_members.h"
#include "input.h"
#include "plain_text.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/FileManagers/PosixFileMgr.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLNetAccessor.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

using kelp_cmn_4_4::CCmnSaxParseHandler;
using kelp_cmn_4_4::CCmnSaxParser;
using kelp_fuzz::expect;
using kelp_fuzz::Input;

KELP_EXPOSE(CCmnSaxParser, m_reader)

using Events = std::vector<std::u16string>;

std::u16string units(const XMLCh* text) { return text == nullptr ? u"" : text; }

std::u16string units(XMLFileLoc number) {
  const std::string digits = std::to_string(number);
  return {digits.begin(), digits.end()};
}

// ---- Xerces-C, kept from the file system, the network and endless expansion

class NoFiles : public xercesc::PosixFileMgr {
 public:
  using PosixFileMgr::fileOpen;
  xercesc::FileHandle fileOpen(const XMLCh* /*path*/, bool /*toWrite*/,
                               xercesc::MemoryManager* const /*manager*/) override {
    return nullptr;
  }
};

// Never terminated.
bool initialiseXerces() {
  using xercesc::XMLPlatformUtils;
  XMLPlatformUtils::Initialize();
  delete XMLPlatformUtils::fgFileMgr;
  XMLPlatformUtils::fgFileMgr = new (XMLPlatformUtils::fgMemoryManager) NoFiles;
  delete XMLPlatformUtils::fgNetAccessor;
  XMLPlatformUtils::fgNetAccessor = nullptr;
  return true;
}

void boundExpansion(xercesc::SAX2XMLReader& reader) {
  static xercesc::SecurityManager manager;
  manager.setEntityExpansionLimit(100);
  reader.setProperty(xercesc::XMLUni::fgXercesSecurityManager, &manager);
}

// ---- what a document tells

class Recorder : public CCmnSaxParseHandler {
 public:
  void startDocument() override { add(u"document"); }
  void endDocument() override { add(u"end of document"); }

  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override {
    std::u16string event = u"<" + units(uri) + u"," + units(localname) + u"," + units(qname);
    for (XMLSize_t i = 0; i < attrs.getLength(); ++i) {
      event += u' ';
      event += units(attrs.getQName(i)) + u"=" + units(attrs.getValue(i));
    }
    m_open.push_back(units(qname));
    add(event);
  }
  void endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) override {
    expect(!m_open.empty() && m_open.back() == units(qname), "the end of the innermost element");
    m_open.pop_back();
    add(u">" + units(uri) + u"," + units(localname) + u"," + units(qname));
  }

  // Texts that touch each other are one, however the reader divides them.
  using CCmnSaxParseHandler::characters;
  void characters(const XMLCh* const text, const XMLSize_t length) override {
    if (length == 0) {
      return;  // as of an empty section
    }
    if (events.empty() || events.back()[0] != u'"') {
      add(u"\"");
    }
    events.back().append(text, length);
  }
  void ignorableWhitespace(const XMLCh* const text, const XMLSize_t length) override {
    add(u"blank " + std::u16string(text, length));
  }
  void processingInstruction(const XMLCh* const target, const XMLCh* const data) override {
    add(u"?" + units(target) + u" " + units(data));
  }
  void skippedEntity(const XMLCh* const name) override { add(u"skipped " + units(name)); }

  void warning(const xercesc::SAXParseException& exception) override {
    CCmnSaxParseHandler::warning(exception);
    addProblem(u"warning ", exception);
  }
  void error(const xercesc::SAXParseException& exception) override {
    CCmnSaxParseHandler::error(exception);
    addProblem(u"error ", exception);
  }
  void fatalError(const xercesc::SAXParseException& exception) override {
    CCmnSaxParseHandler::fatalError(exception);
    addProblem(u"fatal ", exception);
  }

  // What must hold of any document.
  void expectWellTold() const {
    expect(hasErrorOccurred() == !m_lastProblem.empty(), "marked when there was a problem");
    expect(hasErrorOccurred() || m_open.empty(), "every element ended");
    expect(m_lastProblem == (hasErrorOccurred() ? text(getLastException()) : u""),
           "the last problem kept");
    expect(getCharacters().empty(), "nothing collected");
  }

  Events events;

 private:
  static std::u16string text(const xercesc::SAXParseException& exception) {
    return units(exception.getLineNumber()) + u":" + units(exception.getColumnNumber()) + u" " +
           units(exception.getMessage());
  }

  void add(const std::u16string& event) { events.push_back(event); }

  void addProblem(const char16_t* kind, const xercesc::SAXParseException& exception) {
    m_lastProblem = text(exception);
    add(kind + m_lastProblem);
  }

  std::vector<std::u16string> m_open;
  std::u16string m_lastProblem;
};

// The events, and in the end what was thrown, if anything was.
template <class Parse>
Events told(Recorder& recorder, Parse parse) {
  try {
    parse();
  } catch (const xercesc::XMLException& exception) {
    recorder.events.push_back(u"thrown " + units(exception.getMessage()));
  }
  recorder.expectWellTold();
  return recorder.events;
}

template <class Document>
Events told(const Document& document) {
  Recorder recorder;
  CCmnSaxParser parser(&recorder);
  boundExpansion(*(parser.*memberOf(CCmnSaxParser_m_reader{})));
  return told(recorder, [&] { parser.parse(document); });
}

Events toldByXerces(const std::string& document) {
  Recorder recorder;
  const std::unique_ptr<xercesc::SAX2XMLReader> reader(
      xercesc::XMLReaderFactory::createXMLReader());
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreValidation, false);
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreNameSpaces, false);
  reader->setFeature(xercesc::XMLUni::fgSAX2CoreNameSpacePrefixes, false);
  reader->setContentHandler(&recorder);
  reader->setErrorHandler(&recorder);
  boundExpansion(*reader);
  const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(document.data()),
                                          document.size(), "kelp_sax_parser");
  return told(recorder, [&] { reader->parse(source); });
}

// Shows where they part.
void expectSame(const Events& events, const Events& expected, const char* demand) {
  const auto [event, other] =
      std::mismatch(events.begin(), events.end(), expected.begin(), expected.end());
  if (event != events.end() || other != expected.end()) {
    std::fprintf(
        stderr, "told: %s\nexpected: %s\n",
        event == events.end() ? "nothing more" : kelp_test::plainlyToUtf8(*event).c_str(),
        other == expected.end() ? "nothing more" : kelp_test::plainlyToUtf8(*other).c_str());
    expect(false, demand);
  }
}

std::vector<std::string> inParts(std::string document, Input& input) {
  std::vector<std::string> parts;
  while (!input.empty()) {
    const size_t length = std::min(document.size(), input.upTo(255));
    parts.push_back(document.substr(0, length));
    document.erase(0, length);
  }
  parts.push_back(document);
  return parts;
}

// ---- documents that are made

class MadeDocument {
 public:
  explicit MadeDocument(Input& input) : m_input(input) {
    m_events.push_back(u"document");
    if (input.choice()) {
      m_text += U"<?xml version=\"1.0\"?>\n";
    }
    addElement(0);
    m_text += U"\n<!-- the end -->\n";
    m_events.push_back(u"end of document");
  }

  // In UTF-8 (0), or in one of the two orders of UTF-16.
  std::string bytes(size_t form) const {
    std::string bytes;
    for (const char32_t c : (form == 0 ? m_text : U'\xfeff' + m_text)) {
      if (form == 0) {
        bytes += kelp_test::utf8(c);
        continue;
      }
      for (const char16_t unit : kelp_test::utf16(c)) {
        const char pair[] = {static_cast<char>(unit & 0xff), static_cast<char>(unit >> 8)};
        bytes += {pair[form - 1], pair[2 - form]};
      }
    }
    return bytes;
  }

  const Events& events() const { return m_events; }

 private:
  static constexpr char32_t characters[] = {U'a',  U' ',    U'<',      U'&',       U'>',     U'"',
                                            U'\'', U'\n',   U'\r',     U'\t',      U']',     U'-',
                                            U'?',  U'\xe4', U'\x3042', U'\x1f600', U'\xfffd'};
  static constexpr const char32_t* names[] = {U"a", U"b", U"long-name.1", U"\xe4", U"x:y", U"_"};

  char32_t someCharacter() { return characters[m_input.upTo(std::size(characters) - 1)]; }

  std::u32string someName() { return names[m_input.upTo(std::size(names) - 1)]; }

  static std::u16string wide(const std::u32string& text) {
    std::u16string result;
    for (const char32_t c : text) {
      result += kelp_test::utf16(c);
    }
    return result;
  }

  void addReference(char32_t c) {
    m_text += U"&#";
    for (const char digit : std::to_string(static_cast<unsigned long>(c))) {
      m_text += static_cast<char32_t>(digit);
    }
    m_text += U";";
  }

  // Gives the character that is read: a line end stands for a newline, and for a blank in a value.
  char32_t addCharacter(char32_t c, bool isInValue) {
    const bool isSpecial = c == U'<' || c == U'&' || c == U'>' || c == U'"' || c == U'\'';
    if (isSpecial || m_input.choice()) {
      addReference(c);
      return c;
    }
    m_text += c;
    if (c == U'\r') {
      m_text += U'x';  // else a newline behind it would be part of it
    }
    const bool isBlank = c == U'\n' || c == U'\r' || c == U'\t';
    if (isBlank && isInValue) {
      return U' ';
    }
    return c == U'\r' ? U'\n' : c;
  }

  std::u16string addCharacters(bool isInValue) {
    std::u32string read;
    for (size_t count = m_input.upTo(8); count > 0; --count) {
      const size_t before = m_text.size();
      read += addCharacter(someCharacter(), isInValue);
      if (m_text.size() == before + 2 && m_text[before] == U'\r') {
        read += U'x';
      }
    }
    return wide(read);
  }

  void tellText(const std::u16string& text) {
    if (text.empty()) {
      return;
    }
    if (m_events.back()[0] != u'"') {
      m_events.push_back(u"\"");
    }
    m_events.back() += text;
  }

  void addSection() {
    std::u32string text;
    for (size_t count = m_input.upTo(8); count > 0; --count) {
      const char32_t c = someCharacter();
      text += c == U']' || c == U'\r' ? U'.' : c;
    }
    m_text += U"<![CDATA[" + text + U"]]>";
    tellText(wide(text));
  }

  void addElement(size_t depth) {
    const std::u32string name = someName();
    std::u16string event = u"<,," + wide(name);
    m_text += U"<" + name;
    if (m_input.choice()) {
      m_text += U" v=\"";
      event += u" v=" + addCharacters(true);
      m_text += U"\"";
    }
    m_text += U">";
    m_events.push_back(event);
    for (size_t count = m_input.upTo(4); count > 0; --count) {
      addContent(depth);
    }
    m_text += U"</" + name + U">";
    m_events.push_back(u">,," + wide(name));
  }

  void addContent(size_t depth) {
    constexpr size_t deepest = 20;
    switch (m_input.upTo(4)) {
      case 0:
        m_text += U"<!-- a comment -->";
        break;
      case 1:
        addSection();
        break;
      case 2:
        m_text += U"<?pi  data ?>";
        m_events.push_back(u"?pi data ");
        break;
      case 3:
        if (depth < deepest) {
          addElement(depth + 1);
        }
        break;
      default:
        tellText(addCharacters(false));
    }
  }

  Input& m_input;
  std::u32string m_text;
  Events m_events;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool isInitialised = initialiseXerces();
  Input input(data, size);
  if (isInitialised && input.choice()) {
    const MadeDocument made(input);
    const std::string document = made.bytes(input.upTo(2));
    expectSame(told(document), made.events(), "what the document was made to tell");
    expectSame(told(inParts(document, input)), made.events(), "the same in parts");
    return 0;
  }
  const std::string document = input.bytes(input.upTo(3000));
  const Events events = told(document);
  expectSame(told(inParts(document, input)), events, "the same in parts");
  expectSame(toldByXerces(document), events, "what Xerces-C tells");
  return 0;
}

// XML, the digest, shared instances, sleeping.
#include "cmnicumessage.h"
#include "cmnmillisleep.h"
#include "cmnmsgcatalogmgr.h"
#include "cmnmsgdgst5.h"
#include "cmnsaxhandler.h"
#include "cmnsaxparser.h"
#include "cmntracelog.h"
#include "job.h"
#include "words.h"

#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kelp_test {
namespace {

using namespace kelp_cmn_4_4;

constexpr char outOfMemory[] = "xercesc_*::OutOfMemoryException";

// Counts what it sees, and needs no memory for that.
class Counter : public CCmnSaxParseHandler {
 public:
  using CCmnSaxParseHandler::characters;
  void startElement(const XMLCh*, const XMLCh*, const XMLCh*,
                    const xercesc::Attributes& a) override {
    ++elements;
    attributes += static_cast<int>(a.getLength());
  }
  void characters(const XMLCh* const, const XMLSize_t length) override {
    units += static_cast<int>(length);
  }
  std::string inWords() const {
    return words(elements) + " " + words(attributes) + " " + words(units) +
           (hasErrorOccurred() ? " error" : "");
  }

  int elements = 0;
  int attributes = 0;
  int units = 0;
};

const std::string document =
    "<?xml version='1.0'?><!DOCTYPE a [<!ENTITY e 'entity'>]>"
    "<a b='c' d='&lt;'><e f='g'>text &e; <![CDATA[<>]]></e><!-- c --><?p i?></a>";

// Xerces-C, initialised: where memory runs out while it is, it ends the process.
std::shared_ptr<void> initialised() {
  xercesc::XMLPlatformUtils::Initialize();
  return {nullptr, [](void*) { xercesc::XMLPlatformUtils::Terminate(); }};
}

template <class Text>
class Parsing : public Job {
 public:
  explicit Parsing(const Text& text) : m_text(text) {}
  void run() override {
    m_counter.elements = m_counter.attributes = m_counter.units = 0;
    m_parser.parse(m_text);
  }
  std::string outcome() override { return m_counter.inWords(); }

 private:
  const Text m_text;
  Counter m_counter;
  CCmnSaxParser m_parser{&m_counter};
};

class MakingAParser : public Job {
 public:
  void run() override {
    m_counter.elements = m_counter.attributes = m_counter.units = 0;
    m_parser.reset();
    m_parser.emplace(&m_counter);
  }
  std::string outcome() override {
    m_parser->parse(document);
    return m_counter.inWords();
  }

 private:
  Counter m_counter;
  std::optional<CCmnSaxParser> m_parser;
};

// Whose reader before is kept, on purpose.
class MakingAnotherReader : public Job {
 public:
  void run() override {
    m_counter.elements = m_counter.attributes = m_counter.units = 0;
    m_parser.init();
  }
  std::string outcome() override {
    m_parser.setHandler(&m_counter);
    m_parser.parse(document);
    return m_counter.inWords();
  }

 private:
  Counter m_counter;
  CCmnSaxParser m_parser{&m_counter};
};

// Without a handler, which would initialise Xerces-C itself.
class MakingTheFirstParser : public Job {
 public:
  void run() override {
    m_parser.reset();
    m_parser.emplace(nullptr);
  }
  std::string outcome() override {
    m_parser->parse(document);
    return "parses";
  }

 private:
  std::optional<CCmnSaxParser> m_parser;
};

class SettingAHandler : public Job {
 public:
  void run() override {
    m_counter.elements = m_counter.attributes = m_counter.units = 0;
    m_parser.setHandler(&m_counter);
  }
  std::string outcome() override {
    m_parser.parse(document);
    return m_counter.inWords();
  }

 private:
  Counter m_counter;
  CCmnSaxParser m_parser{nullptr};
};

class MakingAHandler : public Job {
 public:
  void run() override {
    m_handler.reset();
    m_handler.emplace();
  }
  std::string outcome() override { return words(m_handler->hasErrorOccurred()); }

 private:
  std::optional<CCmnSaxParseHandler> m_handler;
};

class CollectingCharacters : public Job {
 public:
  void run() override {
    m_handler.emplace();
    m_handler->characters(m_text, 0U);
  }
  std::string outcome() override { return m_handler->getCharacters(); }

 private:
  const XMLCh* const m_text = u"characters that are more than a text keeps in itself";
  std::optional<CCmnSaxParseHandler> m_handler;
};

class RecordingAProblem : public Job {
 public:
  void run() override { m_handler.error(m_problem); }
  std::string outcome() override {
    return words(m_handler.hasErrorOccurred()) +
           words(static_cast<int>(m_handler.getLastException().getLineNumber()));
  }

 private:
  CCmnSaxParseHandler m_handler;
  const xercesc::SAXParseException m_problem{u"a message of some length", u"public", u"system", 3,
                                             4};
};

void addXml(Operations& all) {
  const std::vector<Allowance> mayThrow{{memoryCalls(), {outOfMemory}}};
  // After that the parser is not to be used any more.
  const std::vector<Allowance> mayBreak{{memoryCalls(), {outOfMemory}, Where::here, {"*"}}};
  const std::vector<std::string> parts{document.substr(0, 70), document.substr(70)};
  const auto parse = [] { return std::make_unique<Parsing<std::string>>(document); };
  const auto parseParts = [parts] {
    return std::make_unique<Parsing<std::vector<std::string>>>(parts);
  };
  all.push_back({"xml: parse", parse, mayBreak, initialised, {}, false});
  all.push_back({"xml: parse parts", parseParts, mayBreak, initialised, {}, false});
  all.push_back(operationOf<MakingAParser>("xml: make a parser", mayThrow, initialised));
  all.push_back(operationOf<MakingAnotherReader>("xml: init", mayThrow, initialised));
  all.push_back(operationOf<SettingAHandler>("xml: setHandler", mayThrow, initialised));
  all.push_back(operationOf<MakingAHandler>("xml: make a handler", mayThrow, initialised));
  all.push_back(operationOf<CollectingCharacters>("xml: characters", mayThrow, initialised));
  all.push_back(operationOf<RecordingAProblem>("xml: record a problem", mayThrow, initialised));
  all.push_back(operationOf<MakingTheFirstParser>("xml: make the first parser", mayThrow));
}

template <class Class>
Operation sharing(const std::string& name) {
  using Holder = CCmnSmartPtr<Class, CCmnContextSingletonAllocator<Class>>;
  return function(
      "objects: share " + name, [] { return Holder::create(); },
      [](const Holder& holder) { return words(holder->getCount()); });
}

}  // namespace

Operations leafOperations() {
  Operations all;
  addXml(all);
  all.push_back(function(
      "digest", [] { return CCmnMessageDigest5(document.c_str()); },
      [](const CCmnMessageDigest5& digest) { return words(digest.GetAnsiMessageDigest()); }));
  all.push_back(sharing<CCmnRefCount>("a count"));
  all.push_back(sharing<CCmnTraceLog>("a trace log"));
  all.push_back(sharing<CCmnIcuMessage>("a message"));
  all.push_back(sharing<CCmnMessageCatalogManager>("a manager"));
  all.push_back(function(
      "millisleep", [] { return millisleep(1), 0; }, InWords()));
  return all;
}

}  // namespace kelp_test

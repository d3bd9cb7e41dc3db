#include "cmnsaxparser.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

namespace kelp_cmn_4_4 {
namespace {

void switchFeaturesOff(xercesc::SAX2XMLReader& reader) {
  for (const XMLCh* const feature :
       {xercesc::XMLUni::fgSAX2CoreValidation, xercesc::XMLUni::fgSAX2CoreNameSpaces,
        xercesc::XMLUni::fgXercesSchema, xercesc::XMLUni::fgXercesSchemaFullChecking,
        xercesc::XMLUni::fgSAX2CoreNameSpacePrefixes}) {
    reader.setFeature(feature, false);
  }
}

void parseBytes(xercesc::SAX2XMLReader* reader, const std::string& xml, bool copies) {
  xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(xml.data()), xml.length(),
                                    "kelp_sax_parser");
  source.setCopyBufToStream(copies);
  reader->parse(source);
}

// The reader needs Xerces-C to its end.
void giveUp(const xercesc::SAX2XMLReader* reader) {
  delete reader;
  xercesc::XMLPlatformUtils::Terminate();
}

}  // namespace

CCmnSaxParser::CCmnSaxParser(xercesc::DefaultHandler* handler)
    : m_handler(nullptr), m_reader(nullptr) {
  init();
  try {
    if (handler != nullptr) {
      setHandler(handler);
    }
  } catch (...) {
    giveUp(m_reader);
    throw;
  }
}

// Deliberate: also after an initialisation that failed, as no member of the fixed layout
// tells of it.
CCmnSaxParser::~CCmnSaxParser() { giveUp(m_reader); }

void CCmnSaxParser::init() {
  // What throws here is not terminated: Xerces-C would fall over what it has not made.
  try {
    xercesc::XMLPlatformUtils::Initialize();
  } catch (const xercesc::XMLException&) {
    // Deliberate: dropped. Hosts make parsers where nothing may throw, and must not parse then.
    return;
  }
  xercesc::SAX2XMLReader* reader = nullptr;
  try {
    reader = xercesc::XMLReaderFactory::createXMLReader();
    switchFeaturesOff(*reader);
  } catch (const xercesc::XMLException&) {
    // Deliberate: dropped, too. The parser has whatever reader it has got by now.
  } catch (...) {
    giveUp(reader);
    throw;
  }
  // Deliberate: an earlier reader is not deleted. A handler that calls this is called
  // from within it.
  if (reader != nullptr) {
    m_reader = reader;
  }
}

void CCmnSaxParser::setHandler(xercesc::DefaultHandler* handler) {
  m_handler = handler;
  if (m_reader == nullptr) {
    return;
  }
  try {
    m_reader->setContentHandler(handler);
    m_reader->setErrorHandler(handler);
  } catch (const xercesc::XMLException&) {
    // Dropped, as in init().
  }
}

void CCmnSaxParser::parse(const std::string& xml) {
  // Copied, so that the handler may change the text that it is told of.
  parseBytes(m_reader, xml, true);
}

void CCmnSaxParser::parse(const std::vector<std::string>& parts) {
  size_t size = 0;
  for (const std::string& part : parts) {
    size += part.length() + 1;
  }
  std::string xml;
  xml.reserve(size);
  for (const std::string& part : parts) {
    xml += part;
  }
  parseBytes(m_reader, xml, false);
}

}  // namespace kelp_cmn_4_4

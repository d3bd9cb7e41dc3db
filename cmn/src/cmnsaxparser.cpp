#include "cmnsaxparser.h"

#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

namespace kelp_cmn_4_4 {

CCmnSaxParser::CCmnSaxParser(xercesc::DefaultHandler* handler)
    : m_handler(nullptr), m_reader(nullptr) {
  init();
  if (handler != nullptr) {
    setHandler(handler);
  }
}

CCmnSaxParser::~CCmnSaxParser() {
  delete m_reader;
  xercesc::XMLPlatformUtils::Terminate();
}

void CCmnSaxParser::init() {
  try {
    xercesc::XMLPlatformUtils::Initialize();
    m_reader = xercesc::XMLReaderFactory::createXMLReader();
    for (const XMLCh* const feature :
         {xercesc::XMLUni::fgSAX2CoreValidation, xercesc::XMLUni::fgSAX2CoreNameSpaces,
          xercesc::XMLUni::fgXercesSchema, xercesc::XMLUni::fgXercesSchemaFullChecking,
          xercesc::XMLUni::fgSAX2CoreNameSpacePrefixes}) {
      m_reader->setFeature(feature, false);
    }
  } catch (const xercesc::XMLException&) {
    // Dropped, on purpose: the parser keeps whatever reader it has got by now.
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
  const xercesc::MemBufInputSource source(reinterpret_cast<const XMLByte*>(xml.data()),
                                          xml.length(), "kelp_sax_parser");
  m_reader->parse(source);
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
  parse(xml);
}

}  // namespace kelp_cmn_4_4

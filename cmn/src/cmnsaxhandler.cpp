#include "cmnsaxhandler.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLString.hpp>

namespace kelp_cmn_4_4 {
namespace {

// There is no memory manager before the initialisation.
xercesc::MemoryManager* initialisedMemoryManager() {
  xercesc::XMLPlatformUtils::Initialize();
  return xercesc::XMLPlatformUtils::fgMemoryManager;
}

}  // namespace

CCmnSaxParseHandler::CCmnSaxParseHandler()
    // NOLINTNEXTLINE(bugprone-throw-keyword-missing): a member, not a temporary
    : m_lastException(nullptr, nullptr, nullptr, 0, 0, initialisedMemoryManager()),
      m_errorOccurred(false) {}

CCmnSaxParseHandler::~CCmnSaxParseHandler() {
  m_lastException.~SAXParseException();
  xercesc::XMLPlatformUtils::Terminate();
}

void CCmnSaxParseHandler::endElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/,
                                     const XMLCh* /*qname*/) {}

void CCmnSaxParseHandler::startElement(const XMLCh* /*uri*/, const XMLCh* /*localname*/,
                                       const XMLCh* /*qname*/,
                                       const xercesc::Attributes& /*attrs*/) {}

void CCmnSaxParseHandler::error(const xercesc::SAXParseException& exception) {
  m_errorOccurred = true;
  m_lastException = exception;
}

void CCmnSaxParseHandler::fatalError(const xercesc::SAXParseException& exception) {
  CCmnSaxParseHandler::error(exception);
}

void CCmnSaxParseHandler::warning(const xercesc::SAXParseException& exception) {
  CCmnSaxParseHandler::error(exception);
}

void CCmnSaxParseHandler::characters(const XMLCh* chars, unsigned int /*length*/) {
  m_characters += xercesc::XMLString::transcode(chars);  // never released, on purpose
}

}  // namespace kelp_cmn_4_4

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
  // Deliberate: never cleared, so that a handler of many documents can be asked once.
  m_errorOccurred = true;
  m_lastException = exception;
}

void CCmnSaxParseHandler::fatalError(const xercesc::SAXParseException& exception) {
  CCmnSaxParseHandler::error(exception);
}

// Deliberate: no distinction by severity. A document with any problem is one to look at.
void CCmnSaxParseHandler::warning(const xercesc::SAXParseException& exception) {
  CCmnSaxParseHandler::error(exception);
}

void CCmnSaxParseHandler::characters(const XMLCh* chars, unsigned int /*length*/) {
  // Deliberate: never released. It lives in the memory manager, which may be the host's own and
  // free all of its memory at once. Up to the terminator, as transcode() knows no length.
  m_characters += xercesc::XMLString::transcode(chars);
}

}  // namespace kelp_cmn_4_4

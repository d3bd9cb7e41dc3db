/**
 * @file cmnsaxhandler.h
 * @brief Base of the handlers that a CCmnSaxParser calls.
 */
#ifndef CMNSAXHANDLER_H
#define CMNSAXHANDLER_H

#include "cmnexport.h"

#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>

#include <string>

namespace kelp_cmn_4_4 {

// Deliberate: characters() hides the inherited one, whose length has another type, and stands in a
// slot of its own. Hosts' handlers are compiled against both.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"

/**
 * Ignores what is well-formed and records the last problem instead of throwing it.
 *
 * Derive from it and replace what you want to see. What it has recorded accumulates over all
 * documents; take a new handler to begin anew.
 *
 * **Character data is not collected by itself.** The reader calls `characters(const XMLCh*,
 * XMLSize_t)`, which this class leaves to xercesc::DefaultHandler, where it does nothing; its own
 * characters() has another argument type and is called only by derived classes. A handler that
 * wants the text overrides the inherited operation. The text of one element comes in any number of
 * calls: references, CDATA sections, comments and children divide it, and so does a length of more
 * than a million characters, perhaps inside a surrogate pair. So collect it, and convert it or pass
 * it on when an element ends:
 * @code
 * using CCmnSaxParseHandler::characters;
 * void characters(const XMLCh* const chars, const XMLSize_t length) override {
 *   m_text.append(chars, length);  // a std::basic_string<XMLCh>
 * }
 * void endElement(const XMLCh*, const XMLCh*, const XMLCh*) override {
 *   characters(m_text.c_str(), 0U);
 *   m_text.clear();
 * }
 * @endcode
 *
 * A handler may be made before the first parser and outlive the last: it initialises Xerces-C for
 * as long as it lives. It is used by one thread at a time, and made and destroyed under the same
 * lock as parsers. It cannot be copied. What CCmnSaxParser says of Xerces-C that cannot be
 * initialised, and of -fno-exceptions, holds here, too.
 */
class KELP_CMN_API CCmnSaxParseHandler : public xercesc::DefaultHandler {
 public:
  /**
   * Nothing recorded yet.
   * @throw xercesc::OutOfMemoryException, std::bad_alloc or xercesc::XMLException if Xerces-C
   *        cannot be initialised, unless it ends the process (see CCmnSaxParser)
   */
  CCmnSaxParseHandler();

  CCmnSaxParseHandler(const CCmnSaxParseHandler&) = delete;
  CCmnSaxParseHandler& operator=(const CCmnSaxParseHandler&) = delete;

  ~CCmnSaxParseHandler() override;

  /**
   * Does nothing; for derived classes.
   * @param uri        empty, since namespaces are not processed
   * @param localname  empty, too
   * @param qname      the element's name as the document has it, NUL-terminated
   */
  void endElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname) override;

  /**
   * Does nothing; for derived classes.
   * @param uri        empty, since namespaces are not processed
   * @param localname  empty, too
   * @param qname      the element's name as the document has it, NUL-terminated
   * @param attrs      its attributes, whose local names are their whole names; valid
   *                   during the call
   */
  void startElement(const XMLCh* uri, const XMLCh* localname, const XMLCh* qname,
                    const xercesc::Attributes& attrs) override;

  /** Records the problem. Parsing goes on as far as Xerces-C allows. */
  void error(const xercesc::SAXParseException& exception) override;

  /** As error(). Nothing is thrown; Xerces-C ends the document. */
  void fatalError(const xercesc::SAXParseException& exception) override;

  /** As error(): even a warning counts as a problem, which is meant. */
  void warning(const xercesc::SAXParseException& exception) override;

  /**
   * Adds character data to getCharacters(), as Xerces-C's transcoder writes it for the local code
   * page (Debian's writes UTF-8 in every locale). Not called by the reader.
   *
   * Each call leaks the transcoded copy of the text, which is kept as it is.
   * @param chars   a text with a terminating 0, up to which it is taken; not null
   * @param length  not looked at
   */
  virtual void characters(const XMLCh* chars, unsigned int length);

  /** Whether there was a warning, an error or a fatal error. Never cleared. */
  bool hasErrorOccurred() const { return m_errorOccurred; }

  /**
   * The last warning, error or fatal error.
   * @return the last of them, with message, line and column; if there was none, at line 0,
   *         and getMessage() is a null pointer. The handler's; valid until the next one or the
   *         handler's end.
   */
  const xercesc::SAXParseException& getLastException() const { return m_lastException; }

  /** What characters() has collected; the handler's. */
  const std::string& getCharacters() const { return m_characters; }

 protected:
  // In a union, so that the destructor can end it before it gives up Xerces-C, whose
  // memory it holds.
  union {
    xercesc::SAXParseException m_lastException;  ///< the last problem
  };
  bool m_errorOccurred;      ///< whether there was one
  std::string m_characters;  ///< what characters() has collected
};

#pragma GCC diagnostic pop

}  // namespace kelp_cmn_4_4

#endif

/**
 * @file cmnsaxparser.h
 * @brief A SAX parser for documents in memory.
 */
#ifndef CMNSAXPARSER_H
#define CMNSAXPARSER_H

#include "cmnexport.h"

#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>

#include <string>
#include <vector>

namespace kelp_cmn_4_4 {

/**
 * A Xerces-C SAX2 reader that neither validates nor processes namespaces.
 *
 * Each parser initialises Xerces-C for as long as it lives; any number may be alive at once. It
 * parses any number of documents, one after the other. A parser and its handler are used by one
 * thread. It cannot be copied.
 *
 * What Xerces-C does, and what surprises:
 * - An `xercesc::XMLException` that a handler throws does not leave parse(): Xerces-C reports it to
 *   the handler's fatalError(), or warning() if it is one, and ends the document. All other
 *   exceptions of a handler leave parse() as they are, and the parser stays usable; but not after
 *   an `xercesc::OutOfMemoryException`.
 * - External entities are resolved, and no handler is asked: a document can have files of this
 *   machine read and network addresses fetched. Parse only documents that you trust.
 * - A handler must not call parse() of the parser that is calling it.
 * - The last parser of the process must not be destroyed while an exception of Xerces-C's that it
 *   threw is still being handled: the exception needs Xerces-C's memory manager. Keep another
 *   parser, or a CCmnSaxParseHandler, alive as long.
 */
class KELP_CMN_API CCmnSaxParser {
 public:
  /**
   * Makes the reader, by init(). That it failed is not reported; parse() must then not be called.
   * @param handler  receives what the reader finds; stays the caller's and must live as long as the
   *                 parser uses it; null for none
   */
  CCmnSaxParser(xercesc::DefaultHandler* handler);

  CCmnSaxParser(const CCmnSaxParser&) = delete;
  CCmnSaxParser& operator=(const CCmnSaxParser&) = delete;

  /** Ends the reader and this parser's use of Xerces-C. The handler is not touched. */
  ~CCmnSaxParser();

  /**
   * Initialises Xerces-C and makes the reader, with validation, namespaces, schema, full schema
   * checking and namespace prefixes off. An `xercesc::XMLException` on the way is dropped; any
   * other exception leaves, and leaves behind what was made by then.
   *
   * The constructor calls it. Called again, it makes another reader without a handler, and neither
   * the old one nor the second initialisation is ever given up.
   */
  void init();

  /**
   * Registers a handler for content and errors, in place of an earlier one.
   * @param handler  as for the constructor; null for none: the documents' content and errors then
   *                 go nowhere
   */
  void setHandler(xercesc::DefaultHandler* handler);

  /**
   * Parses a document. The handler is called meanwhile.
   * @param xml  its bytes, in the encoding that the document itself declares; not kept
   * @throw xercesc::SAXParseException if the handler's fatalError() throws it for a malformed
   *        document, as that of xercesc::DefaultHandler does; without a handler a malformed
   * document ends in silence
   * @throw … whatever else Xerces-C or the handler throws
   */
  void parse(const std::string& xml);

  /**
   * Parses a document that comes in parts: what they give one behind the other, with nothing in
   * between.
   * @param parts  the parts, which may begin and end anywhere
   */
  void parse(const std::vector<std::string>& parts);

 private:
  xercesc::DefaultHandler* m_handler;
  xercesc::SAX2XMLReader* m_reader;
};

}  // namespace kelp_cmn_4_4

#endif

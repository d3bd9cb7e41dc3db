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
 * parses any number of documents, one after the other. It cannot be copied.
 *
 * A parser and its handler are used by one thread. Making and destroying parsers and handlers, even
 * different ones, is not safe in several threads at once, because Xerces-C counts its users without
 * a lock: a host does it under a lock of its own, together with its other uses of Xerces-C.
 *
 * What Xerces-C does, and what surprises:
 * - An `xercesc::XMLException` that a handler throws does not leave parse(): Xerces-C reports it to
 *   the handler's fatalError(), or warning() if it is one, and ends the document. All other
 *   exceptions of a handler leave parse() as they are, and the parser stays usable; but not after
 *   an `xercesc::OutOfMemoryException`.
 * - External entities are resolved, and no handler is asked: a document can have files of this
 *   machine read and network addresses fetched. Parse only documents that you trust.
 * - A handler must not call parse() of the parser that is calling it.
 * - An exception of Xerces-C's needs its memory manager, which ends with the last parser and
 *   handler of the process. Catch it inside the parser's scope, or keep another parser or a
 *   CCmnSaxParseHandler alive outside of it.
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
   * Registers a handler for content and errors, in place of an earlier one. Without a reader it is
   * only kept. An `xercesc::XMLException` is dropped, as in init().
   * @param handler  as for the constructor; null for none: the documents' content and errors then
   *                 go nowhere
   */
  void setHandler(xercesc::DefaultHandler* handler);

  /**
   * Parses a document. The handler is called meanwhile.
   * @param xml  its bytes, in the encoding that the document itself declares; not kept
   * @throw xercesc::SAXParseException if the handler's fatalError() throws it, as that of
   *        xercesc::DefaultHandler does for a malformed document. Without a handler a malformed
   *        document ends in silence. What else Xerces-C or the handler throws leaves, too.
   */
  void parse(const std::string& xml);

  /**
   * Parses a document that comes in parts, as if they were one text; throws what the other parse()
   * throws.
   * @param parts  the parts, which may begin and end anywhere
   */
  void parse(const std::vector<std::string>& parts);

 private:
  xercesc::DefaultHandler* m_handler;
  xercesc::SAX2XMLReader* m_reader;
};

}  // namespace kelp_cmn_4_4

#endif

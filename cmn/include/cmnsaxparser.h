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
 * Each parser initialises Xerces-C for as long as it lives; any number may be alive at once. One
 * that is made where no other parser or handler lives costs more than 100 times as much as one
 * beside them (1.4 ms, say, instead of 4 us). It parses any number of documents, one after the
 * other. It cannot be copied.
 *
 * A parser and its handler are used by one thread. Making and destroying parsers and handlers, even
 * different ones, is not safe in several threads at once, because Xerces-C counts its users without
 * a lock: a host does it under a lock of its own, together with its other uses of Xerces-C.
 *
 * **Parse only documents that you trust.**
 * - Internal entities have no bound: a document of 1 KB, in which each entity names another ten
 *   times, can hold the thread for hours.
 * - External entities and an external DTD are read, and no handler is asked: a document can have
 *   files of this machine read and network addresses fetched. Their names are relative to the
 *   working directory. One that cannot be had is a fatal error and ends the document; the DTD
 *   before the first element, even where the document says that it is standalone.
 *
 * What Xerces-C does, and what surprises:
 * - A document without a declared encoding is UTF-8; UTF-16 or UTF-32 are known by a byte order
 *   mark, or by the XML declaration being written in them. Nothing else is guessed: bytes that are
 *   no UTF-8 are a fatal error.
 * - After a document that declares version 1.1 its rules (of line ends, and of control characters)
 *   hold for the parser's next documents, too, until one declares version 1.0.
 * - Memory: 160 KB while a document is parsed; and the parser keeps, until it ends, about 400 bytes
 *   for each element that was open at once. The longest attribute is kept, too, several times over,
 *   and the names of the last document's elements, about 350 bytes for each name.
 * - An `xercesc::XMLException` that a handler throws does not leave parse(): Xerces-C reports it to
 *   the handler's fatalError(), or warning() if it is one, and ends the document. All other
 *   exceptions of a handler leave parse() as they are, and the parser stays usable; but not after
 *   an `xercesc::OutOfMemoryException`.
 * - A handler must not call parse() of the parser that is calling it.
 * - An exception of Xerces-C's needs its memory manager, which ends with the last parser and
 *   handler of the process. Catch it inside the parser's scope, or keep another parser or a
 *   CCmnSaxParseHandler alive outside of it.
 * - `xercesc::OutOfMemoryException` is no std::exception.
 *
 * **When Xerces-C cannot be initialised**, for lack of memory, say, it mostly does not throw: its
 * panic handler writes a line to standard error and ends the process by `exit` with status 255. A
 * host that wants to learn of it makes the first initialisation itself, by
 * `xercesc::XMLPlatformUtils::Initialize` with a panic handler of its own that throws; where that
 * has succeeded, parsers and handlers only count their users. Where it has not, Xerces-C is not to
 * be used again in this process, nor to be terminated, which crashes as a rule.
 *
 * g++ does not compile this header with -fno-exceptions, because of Xerces-C's own headers.
 */
class KELP_CMN_API CCmnSaxParser {
 public:
  /**
   * Makes the reader, by init(). That it failed with an `xercesc::XMLException` is not reported;
   * parse() must then not be called. What else is thrown leaves, and then Xerces-C's initialisation
   * is given up again.
   * @param handler  receives what the reader finds; stays the caller's and must live as long as the
   *                 parser uses it; null for none
   * @throw xercesc::OutOfMemoryException, std::bad_alloc
   */
  CCmnSaxParser(xercesc::DefaultHandler* handler);

  CCmnSaxParser(const CCmnSaxParser&) = delete;
  CCmnSaxParser& operator=(const CCmnSaxParser&) = delete;

  /** Ends the reader and this parser's use of Xerces-C. The handler is not touched. */
  ~CCmnSaxParser();

  /**
   * Initialises Xerces-C and makes the reader, with validation, namespaces, schema, full schema
   * checking and namespace prefixes off. An `xercesc::XMLException` on the way is dropped; any
   * other exception leaves, and the parser is then as it was.
   *
   * The constructor calls it. Called again, it makes another reader without a handler, and neither
   * the old one nor the second initialisation is ever given up.
   */
  void init();

  /**
   * Registers a handler for content and errors, in place of an earlier one. Without a reader it is
   * only kept. An `xercesc::XMLException` is dropped, as in init().
   * @param handler  as for the constructor; null for none: the documents' content and errors
   *                 then go nowhere
   */
  void setHandler(xercesc::DefaultHandler* handler);

  /**
   * Parses a document. The handler is called meanwhile.
   * @param xml  its bytes, in the encoding that the document itself declares. Copied for the time
   *             of the call, so that the handler may change them; not kept
   * @throw xercesc::SAXParseException if the handler's fatalError() throws it, as that of
   *        xercesc::DefaultHandler does for a malformed document. Without a handler a malformed
   *        document ends in silence. What else Xerces-C or the handler throws leaves, too.
   */
  void parse(const std::string& xml);

  /**
   * Parses a document that comes in parts, as if they were one text; throws what the other
   * parse() throws.
   * @param parts  the parts, which may begin and end anywhere; joined for the time of the call
   */
  void parse(const std::vector<std::string>& parts);

 private:
  xercesc::DefaultHandler* m_handler;
  xercesc::SAX2XMLReader* m_reader;
};

}  // namespace kelp_cmn_4_4

#endif

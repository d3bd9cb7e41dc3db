/**
 * @file cmnmessage.h
 * @brief The abstract message, and the record in which its text travels.
 */
#ifndef CMNMESSAGE_H
#define CMNMESSAGE_H

#include "cmnexport.h"
#include "cmnrefcount.h"
#include "cmnsmartptr.h"
#include "cmntypes.h"

#include <string>

namespace kelp_cmn_4_4 {

/**
 * A serialized message on its way across the boundary of a module or process.
 *
 * A plain record: it owns nothing and frees nothing. Who filled it says how long the text lives.
 */
struct SCmnMessageInfo {
  /** The serialized text, NUL-terminated. This is all that the library's readers look at. */
  char* text;
  /** The text's length in bytes, without the NUL: for callers that copy it. Readers ignore it. */
  int length;
};

/**
 * An identified piece of information that one process raises and another one puts into words.
 *
 * It carries the identifier under which a catalog knows its pattern, a severity, the source
 * position that raised it and, in the derived class, its arguments. Messages are shared through
 * holders (CCmnMessagePtr), and cannot be copied. A message is used by one thread at a time.
 */
class KELP_CMN_API CCmnMessage : public CCmnRefCount {
 public:
  /**
   * Sets what a message carries besides its arguments.
   * @param messageId   the catalog key
   * @param severity    carried along, never interpreted by the library
   * @param fileName    the source file that raises the message
   * @param lineNumber  the line in it
   */
  CCmnMessage(const std::string& messageId, int severity, const std::string& fileName,
              int lineNumber)
      : m_messageId(messageId),
        m_severity(severity),
        m_fileName(fileName),
        m_lineNumber(lineNumber) {}

  ~CCmnMessage() override;

  /**
   * Writes the message as a text.
   * @return a record that the message owns, like the text it points to; valid until the next
   *         serialize() or the message's end
   */
  virtual SCmnMessageInfo* serialize() = 0;

  /**
   * Takes over what a serialized text says. The source position stays.
   * @param info  the record, neither null nor with a null text; not kept
   */
  virtual void deserialize(const SCmnMessageInfo* info) = 0;

  /** The severity. */
  virtual int getSeverity();

  /** The source line. */
  virtual int getLineNumber();

  /** A copy of the source file's name. */
  virtual std::string getFileName();

  /** A copy of the identifier. */
  virtual std::string getMessageId();

  /**
   * Puts the arguments into a pattern.
   * @param pattern  usually the localized text that a catalog has for the identifier
   * @return the text for people; the caller's own
   */
  virtual tstr formatMessage(tstr pattern) = 0;

 protected:
  /** The catalog key. */
  std::string m_messageId;
  /** The severity. */
  int m_severity;
  /** The source file. */
  std::string m_fileName;
  /** The source line. */
  int m_lineNumber;
};

/** A holder of a message, as CCmnMessageCatalogManager takes and its factory gives it. */
using CCmnMessagePtr = CCmnSmartPtr<CCmnMessage, CCmnNullAllocator<CCmnMessage>>;

}  // namespace kelp_cmn_4_4

#endif

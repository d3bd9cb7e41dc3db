/**
 * @file cmnicumessage.h
 * @brief The message whose arguments are ICU values.
 */
#ifndef CMNICUMESSAGE_H
#define CMNICUMESSAGE_H

#include "cmnexport.h"
#include "cmnmessage.h"
#include "cmnsmartptr.h"

#include <unicode/fmtable.h>

#include <string>

namespace kelp_cmn_4_4 {

/**
 * A message with a list of typed arguments, put into ICU message patterns (`icu::MessageFormat`).
 *
 * Argument i fills the place {i} of the pattern. Its serialized text is
 * @code{.unparsed}
 * <SERIALIZED_MESSAGE MSGID=MSG_OPEN_FAILED SEVERITY=2>
 * <TAB><ARGVALUE INDEX=0 TYPE=3>/tmp/a</ARGVALUE>
 * <TAB><ARGVALUE INDEX=1 TYPE=2>13</ARGVALUE>
 * </SERIALIZED_MESSAGE>
 * @endcode
 * with one tab character for each `<TAB>`, and a newline after every line. TYPE is the number of
 * the value's `icu::Formattable::Type`, and the value text is CCmnStringTool's:
 *
 * | TYPE | type | value text | read back as |
 * |---|---|---|---|
 * | 0 | date | double2str() of its milliseconds | double |
 * | 1 | double | double2str() | double |
 * | 2 | long | int2str() | long |
 * | 3 | string | ustr2str() | string |
 * | 4, 5, 6 | array, 64-bit integer, object | none | not at all |
 *
 * It looks like XML, but nothing is escaped: a string value must not contain "<", and an identifier
 * must not be empty nor contain white space, ">" or a zero byte. A string value with a zero
 * character comes back up to that, one with an unpaired surrogate as the empty string.
 *
 * double2str() keeps six digits, of whole numbers too: 1234567 comes back as 1234570, and a date up
 * to an hour and a half away. It writes the decimal point of the process locale (LC_NUMERIC):
 * writer and reader must agree in it.
 *
 * So a host passes what must come back exactly as an `int` or as a string: a number or a date
 * formatted by the sender, and a text that may hold "<" escaped by
 * CCmnStringTool::convertToXmlSpecialCharacters(). The receiver applies
 * CCmnStringTool::convertFromXmlSpecialCharacters() to what formatMessage() gives.
 *
 * Every function throws std::bad_alloc where memory fails, and leaves the message as it was. Values
 * that ICU had no memory for when the host made them are refused in the same way. Only of a decimal
 * number, made from a text, ICU loses digits then, or ends the process.
 */
class KELP_CMN_API CCmnIcuMessage : public CCmnMessage {
 public:
  /** An empty message, ready for deserialize(): no identifier, severity 0, no arguments. */
  CCmnIcuMessage();

  /**
   * A message without arguments.
   * @param messageId   the catalog key; serialize() restricts it, see above
   * @param severity    carried along, never interpreted
   * @param fileName    the source file that raises it
   * @param lineNumber  the line in it
   */
  CCmnIcuMessage(const std::string& messageId, int severity,
                 const std::string& fileName = std::string(), int lineNumber = 0);

  ~CCmnIcuMessage() override;

  /**
   * Replaces the arguments.
   * @param arguments  the values, which are copied; may be null if `count` is 0, and may be the
   *                   message's own
   * @param count      their number, 0 or more
   */
  void setArguments(const icu::Formattable* arguments, int count);

  /**
   * Adds an argument behind the others. Each call copies the whole list; setArguments()
   * copies it once.
   * @param argument  the value, which is copied; may be one of the message's own. Only a `double`
   *                  (to six digits), an `int` and an `icu::UnicodeString` come back from a
   *                  serialized text as they were.
   */
  void addArgument(const icu::Formattable& argument);

  /** The number of arguments. */
  int getArgumentCount() const;

  /**
   * One of the arguments, in the order in which they were added.
   * @param index  from 0 to getArgumentCount() - 1
   * @return the argument; it is the message's, and valid until the arguments change
   */
  const icu::Formattable& getArgument(int index) const;

  /**
   * Writes the message as told above. The source position is not carried.
   *
   * A message without arguments becomes the empty text: not even its identifier is carried, which
   * is meant. Give it an argument that its pattern does not use, if it is to travel. A first line
   * longer than 1,023 bytes, its line end counted, is cut there: one of 1,024 loses the line end
   * only and reads back, a longer one does not. A length beyond INT_MAX is not meaningful.
   * @return the message's own record; it and its text are valid until the next serialize() or the
   *         message's end
   */
  SCmnMessageInfo* serialize() override;

  /**
   * Takes identifier, severity and arguments from a text that serialize() wrote. The arguments are
   * replaced, also by none. INDEX is ignored: they come in the order of the text.
   *
   * The reader finds its way by searching, not by grammar. The empty text changes nothing, nor does
   * one without any character of "<SERIALIZED_MESSAGE". Other text that serialize() did not write
   * gives an identifier, a severity and arguments that are not specified. Most texts that were cut
   * off are among these: whoever receives a text must know that it is whole. An identifier is cut
   * to 1,023 bytes.
   * @param info  a record with a NUL-terminated text, neither of them null; `length` is not looked
   *              at; nothing is kept
   * @throw std::out_of_range for some texts that are cut off or damaged, such as one with a trailer
   *        but no arguments; identifier and severity may then be the new ones already, the
   *        arguments are still the old ones
   */
  void deserialize(const SCmnMessageInfo* info) override;

  /**
   * Puts the arguments into a pattern by `icu::MessageFormat::format`.
   *
   * Numbers, dates and the choice of plurals follow ICU's default locale, dates also its default
   * time zone. Both are the process's, whatever the language of the pattern.
   * @param pattern  an ICU message pattern, up to its first zero byte, in ICU's default code page:
   *                 UTF-8, which the platform's ICU lets nobody change
   * @return the text in UTF-8. A pattern that ICU refuses comes back unchanged; no error is
   *         reported. Where ICU fails midway, what it had written by then.
   * @throw std::bad_alloc if there is no memory. Not every step of ICU's number and date formats
   *        looks for that: memory that runs out there can end the process.
   */
  tstr formatMessage(tstr pattern) override;

 private:
  icu::Formattable m_arguments;
  SCmnMessageInfo m_info;
  std::string m_serialized;
};

/** A process's shared message is the library's: hosts and plugins share this instantiation. */
extern template class KELP_CMN_API CCmnContextSingletonAllocator<CCmnIcuMessage>;

}  // namespace kelp_cmn_4_4

#endif

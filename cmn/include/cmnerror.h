/**
 * @file cmnerror.h
 * @brief The error record.
 */
#ifndef CMNERROR_H
#define CMNERROR_H

#include "cmnexport.h"
#include "cmntypes.h"

#include <string>

namespace kelp_cmn_4_4 {

/**
 * What went wrong, and where.
 *
 * The library keeps its last failures in such records and throws none; a host may throw one by
 * value and catch it by reference. It is not a std::exception. Copies own their texts. A record is
 * used by one thread at a time. Where memory fails, making, copying and assigning throw
 * std::bad_alloc; a record that was to be assigned to stays as it was.
 */
class KELP_CMN_API CCmnError {
 public:
  /** No error: code 0, line 0, empty texts. */
  CCmnError();

  /**
   * Records an error.
   * @param code        the numeric error code
   * @param message     the description for people
   * @param fileName    the source file where the error arose
   * @param lineNumber  the line in it
   * @param function    the function's name
   */
  CCmnError(int code, const tstr& message, const tstr& fileName, int lineNumber,
            const tstr& function);

  /** Copies member by member. */
  CCmnError(const CCmnError& other);

  /** Assigns member by member. */
  CCmnError& operator=(const CCmnError& other);

  virtual ~CCmnError();

  /**
   * Forms the identifier under which a message catalog knows the error: "MSG_ERROR_", the component
   * in upper case, "_" and a number of at least four digits.
   *
   * The number is the code less `base` if the code is greater than `base`, else the code itself. So
   * a code equal to the base gives the base, not 0000. Longer numbers are printed in full, negative
   * ones with their sign (code -7 gives "-007").
   * @param component  the component's name; its letters are those of the process locale (LC_CTYPE),
   *                   so better give it in upper case: in a Turkish locale "i" stays "i", or
   *                   becomes another letter than "I", and no catalog has such an identifier
   * @param base       the component's first code
   * @return for instance "MSG_ERROR_CONFIG_0007" for component "config", base 1000 and code 1007
   */
  virtual std::string getMessageId(const std::string& component, long base) const;

  /** The message; never null; valid while the record lives and is not assigned to. */
  virtual const char* what() const;

  /** The numeric error code. */
  int getCode() const { return m_code; }

  /** The source file's name; never null; valid as what() is. */
  const char* getFileName() const { return m_fileName.c_str(); }

  /** The source line. */
  int getLineNumber() const { return m_lineNumber; }

  /** The function's name; never null; valid as what() is. */
  const char* getFunction() const { return m_function.c_str(); }

 private:
  int m_code;
  tstr m_message;
  tstr m_fileName;
  int m_lineNumber;
  tstr m_function;
};

}  // namespace kelp_cmn_4_4

#endif

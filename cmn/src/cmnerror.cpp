#include "cmnerror.h"

#include "Q_strings.h"
#include "cmnacestring.h"
#include "cmnstringtool.h"

namespace kelp_cmn_4_4 {
namespace {

// At least four digits, in full when there are more.
std::string catalogNumber(long code, long base) {
  char number[64];
  // Deliberate: strictly greater. A code equal to the base keeps its own number, as 0000 would
  // stand for no error.
  if (code > base) {
    // Unsigned, because the distance of two longs need not fit into one.
    Q_snprintf(number, sizeof number, "%04lu",
               static_cast<unsigned long>(code) - static_cast<unsigned long>(base));
  } else {
    Q_snprintf(number, sizeof number, "%04ld", code);
  }
  return number;
}

}  // namespace

CCmnError::CCmnError() : m_code(0), m_lineNumber(0) {}

CCmnError::CCmnError(int code, const tstr& message, const tstr& fileName, int lineNumber,
                     const tstr& function)
    : m_code(code),
      m_message(copied(message)),
      m_fileName(copied(fileName)),
      m_lineNumber(lineNumber),
      m_function(copied(function)) {}

CCmnError::CCmnError(const CCmnError& other)
    : CCmnError(other.m_code, other.m_message, other.m_fileName, other.m_lineNumber,
                other.m_function) {}

CCmnError& CCmnError::operator=(const CCmnError& other) {
  tstr message = copied(other.m_message);
  tstr fileName = copied(other.m_fileName);
  tstr function = copied(other.m_function);
  m_code = other.m_code;
  m_message.swap(message);
  m_fileName.swap(fileName);
  m_lineNumber = other.m_lineNumber;
  m_function.swap(function);
  return *this;
}

CCmnError::~CCmnError() = default;

std::string CCmnError::getMessageId(const std::string& component, long base) const {
  return "MSG_ERROR_" + CCmnStringTool::tostrupper(component) + "_" + catalogNumber(m_code, base);
}

const char* CCmnError::what() const { return m_message.c_str(); }

}  // namespace kelp_cmn_4_4

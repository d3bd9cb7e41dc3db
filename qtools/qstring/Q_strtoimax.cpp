#include "Q_strtoimax.h"

#include "Q_integertext.h"

intmax_t __Qstrtoimax(const char* text, char** end, int base) {
  const q_integertext::IntegerText number = q_integertext::readInteger(text, base);
  if (end != nullptr) {
    *end = const_cast<char*>(number.end);
  }
  const uintmax_t limit = static_cast<uintmax_t>(INTMAX_MAX) + (number.negative ? 1U : 0U);
  if (number.overflow || number.magnitude > limit) {
    errno = ERANGE;
    return number.negative ? INTMAX_MIN : INTMAX_MAX;
  }
  return static_cast<intmax_t>(number.negative ? 0 - number.magnitude : number.magnitude);
}

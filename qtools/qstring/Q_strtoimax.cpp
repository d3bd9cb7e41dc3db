#include "Q_strtoimax.h"

#include "Q_integertext.h"

intmax_t __Qstrtoimax(const char* text, char** end, int base) {
  const q_integertext::IntegerText number = q_integertext::readInteger(text, base);
  if (end != nullptr) {
    *end = const_cast<char*>(number.end);
  }
  return q_integertext::toSigned(number.value);
}

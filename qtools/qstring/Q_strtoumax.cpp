#include "Q_strtoumax.h"

#include "Q_integertext.h"

uintmax_t __Qstrtoumax(const char* text, char** end, int base) {
  const q_integertext::IntegerText number = q_integertext::readInteger(text, base);
  if (end != nullptr) {
    *end = const_cast<char*>(number.end);
  }
  return q_integertext::toUnsigned(number.value);
}

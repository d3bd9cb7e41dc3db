// Numbers as printf writes them.
#ifndef CMNNUMBERTEXT_H
#define CMNNUMBERTEXT_H

#include "Q_strings.h"

#include <cstddef>
#include <string>

namespace kelp_cmn_4_4 {

// What the format makes of a number, cut where the buffer ends.
template <size_t bufferSize, class Number>
std::string formatted(const char* format, Number number) {
  char buffer[bufferSize];
  Q_snprintf(buffer, sizeof buffer, format, number);
  return buffer;
}

}  // namespace kelp_cmn_4_4

#endif

// The scanner called as a host does that passes its arguments on.
#pragma once

#include "Q_vfscanf.h"

#include <cstdarg>

namespace kelp_test {

inline int scan(ScanSource* source, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = Q_vfscanf(source, format, args);
  va_end(args);
  return result;
}

}  // namespace kelp_test

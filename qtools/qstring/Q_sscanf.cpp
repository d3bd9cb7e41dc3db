#include "Q_sscanf.h"

#include "Q_scanner.h"

#include <cstdarg>

int Q_sscanf(const char* text, const char* format, ...) {
  q_scan::Input input(text);
  va_list args;
  va_start(args, format);
  const int assigned = q_scan::scan(input, format, &args);
  va_end(args);
  return assigned;
}

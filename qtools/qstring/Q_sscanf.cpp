#include "Q_sscanf.h"

#include "Q_vfscanf.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstring>

int Q_sscanf(const char* text, const char* format, ...) {
  const int length = static_cast<int>(std::min<size_t>(std::strlen(text), INT_MAX));
  ScanSource source = {text, length, Q_SCAN_EOF, text, length, eofread, nullptr};
  va_list args;
  va_start(args, format);
  const int assigned = Q_vfscanf(&source, format, args);
  va_end(args);
  return assigned;
}

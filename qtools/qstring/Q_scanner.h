// The scan itself. Not installed.
#ifndef Q_SCANNER_H
#define Q_SCANNER_H

#include "Q_scaninput.h"

#include <cstdarg>

namespace q_scan {

// What Q_vfscanf() does, on any input. It takes its arguments from the list.
int scan(Input& input, const char* format, va_list* args);

}  // namespace q_scan

#endif

// The one way in which classes with a registered trace log write to it.
#ifndef CMNTRACECALL_H
#define CMNTRACECALL_H

#include "cmntracelog.h"

#include <new>

namespace kelp_cmn_4_4 {

constexpr int traceError = 1;
constexpr int traceDetail = 3;

// An errno among the arguments is read before the trace can change it.
template <class... Args>
void traceTo(const CCmnTraceLogPtr& log, int level, const char* format, Args... args) {
  if (!log) {
    return;
  }
  try {
// Compilers cannot see that every format is a literal of this library.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    log->trace(level, format, args...);
#pragma GCC diagnostic pop
  } catch (const std::bad_alloc&) {
    // The line is lost: what it tells of has to be dealt with all the same.
  }
}

}  // namespace kelp_cmn_4_4

#endif

// The one way in which classes with a registered trace log write to it.
#ifndef CMNTRACECALL_H
#define CMNTRACECALL_H

#include "cmnsmartptr.h"
#include "cmntracelog.h"

namespace kelp_cmn_4_4 {

using TraceLogHolder = CCmnSmartPtr<CCmnTraceLog, CCmnContextSingletonAllocator<CCmnTraceLog>>;

constexpr int traceError = 1;
constexpr int traceDetail = 3;

// An errno among the arguments is read before the trace can change it.
template <class... Args>
void traceTo(const TraceLogHolder& log, int level, const char* format, Args... args) {
  if (log) {
    log->trace(level, format, args...);
  }
}

}  // namespace kelp_cmn_4_4

#endif

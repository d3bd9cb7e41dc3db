/**
 * @file cmntraceable.h
 * @brief Base of the classes that write to a trace log.
 */
#ifndef CMNTRACEABLE_H
#define CMNTRACEABLE_H

#include "cmnexport.h"
#include "cmntracelog.h"

namespace kelp_cmn_4_4 {

/**
 * Receives a trace log from the host and keeps it for the derived class.
 *
 * As long as no log is registered the derived class does not trace. An object, and all objects that
 * share its log, are used by one thread at a time.
 */
class KELP_CMN_API CCmnTraceable {
 public:
  /** Gives up the log. */
  virtual ~CCmnTraceable();

  /**
   * Takes a share in a log and gives up the one held before.
   * @param log  the new log; an empty holder ends tracing
   */
  virtual void registerTraceLog(const CCmnTraceLogPtr& log);

 protected:
  /** The registered log; empty until there is one. */
  CCmnTraceLogPtr m_traceLog;
};

}  // namespace kelp_cmn_4_4

#endif

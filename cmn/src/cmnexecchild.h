// What runs in the child between fork and execv.
#ifndef CMNEXECCHILD_H
#define CMNEXECCHILD_H

#include "cmntracecall.h"

#include <string>

namespace kelp_cmn_4_4 {

struct PipeEnds {
  int readEnd;
  int writeEnd;
};

// Connects the standard descriptors, sets the environment and executes argv[0]. What fails is
// traced and ends the child with status 1. The pipe leads to the parent; an empty stdinFile
// means /dev/null.
[[noreturn]] void runExecChild(const CCmnTraceLogPtr& log, const PipeEnds& ends,
                               const std::string& stdinFile, char** argv);

}  // namespace kelp_cmn_4_4

#endif

// What runs in the child between fork and execv.
#ifndef CMNEXECCHILD_H
#define CMNEXECCHILD_H

#include "cmntracecall.h"

#include <string>

namespace kelp_cmn_4_4 {

// Connects the standard descriptors, sets the environment and executes argv[0]. What fails is
// traced and ends the child with status 1. pipeEnds is the pipe to the parent, read end first; an
// empty stdinFile means /dev/null.
[[noreturn]] void runExecChild(const TraceLogHolder& log, const int (&pipeEnds)[2],
                               const std::string& stdinFile, char** argv);

}  // namespace kelp_cmn_4_4

#endif

// Reads a settings file with ACE's reader, and keeps from it what it cannot bear.
#ifndef CMNSETTINGSFILE_H
#define CMNSETTINGSFILE_H

#include <ace/Configuration.h>

namespace kelp_cmn_4_4 {

// Adds what the file says to the heap, which must be open. ACE's own status; -1 for a file that
// holds a zero byte, which ACE does not get to see.
int importSettings(ACE_Configuration_Heap& heap, const char* path);

}  // namespace kelp_cmn_4_4

#endif

// Reads and writes settings files by ACE. Keeps from it what it cannot bear, and tells what it
// keeps to itself.
#ifndef CMNSETTINGSFILE_H
#define CMNSETTINGSFILE_H

#include <ace/Configuration.h>

namespace kelp_cmn_4_4 {

// Adds what the file says to the heap, which must be open. ACE's own status; -1 for a file that
// holds a zero byte, or of which that cannot be told: ACE does not get to see it.
int importSettings(ACE_Configuration_Heap& heap, const char* path);

// Writes the heap, which must be open. ACE's own status; throws std::bad_alloc where that is 0 and
// ACE had no memory for all of the file.
int exportSettings(ACE_Configuration_Heap& heap, const char* path);

}  // namespace kelp_cmn_4_4

#endif

/**
 * @file cmnmillisleep.h
 * @brief Sleeping for milliseconds.
 */
#ifndef CMNMILLISLEEP_H
#define CMNMILLISLEEP_H

#include "cmnexport.h"

namespace kelp_cmn_4_4 {

/**
 * Sleeps once with `nanosleep`; a signal that is handled ends the sleep early.
 *
 * Where the system has no `nanosleep` (`ENOSYS`), this and every later call sleep whole seconds
 * instead: the time rounded up, and a second more where it is whole already. May be called from any
 * thread. May change `errno`.
 * @param milliseconds  how long; not negative
 */
KELP_CMN_API void millisleep(long milliseconds);

}  // namespace kelp_cmn_4_4

#endif

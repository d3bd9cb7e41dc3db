/**
 * @file cmntypes.h
 * @brief Names of types that several headers share.
 */
#ifndef CMNTYPES_H
#define CMNTYPES_H

#include <ace/SString.h>

namespace kelp_cmn_4_4 {

/**
 * The ACE string on ACE's default allocator. The library reads it as a NUL-terminated byte string.
 */
using tstr = ACE_String_Base<char>;

}  // namespace kelp_cmn_4_4

#endif

/**
 * @file Q_strtoumax.h
 * @brief The scanner's converter of unsigned integers. Usable from C.
 */
#ifndef Q_STRTOUMAX_H
#define Q_STRTOUMAX_H

#include "cmnexport.h"

/* NOLINTBEGIN(modernize-deprecated-headers): read by C compilers, too */
#include <inttypes.h>
/* NOLINTEND(modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Converts the start of a text, as `strtoumax` does.
 *
 * The text is read as __Qstrtoimax() reads it. May be called from any thread.
 * @param text  a NUL-terminated text; must not be null
 * @param end   receives the address after the last digit, or `text` when there is no number or the
 *              base is bad; may be null
 * @param base  0, or 2 to 36, as for __Qstrtoimax()
 * @return the number, negated within the type when the sign is "-"; 0 when there is none. What is
 *         out of range, whatever its sign, gives UINTMAX_MAX and sets `errno` to ERANGE; a bad base
 *         gives 0 and sets it to EINVAL; else `errno` stays
 */
KELP_CMN_API uintmax_t __Qstrtoumax(const char* text, char** end, int base);

#ifdef __cplusplus
}
#endif

#endif

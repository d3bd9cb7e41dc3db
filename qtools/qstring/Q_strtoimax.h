/**
 * @file Q_strtoimax.h
 * @brief The scanner's converter of signed integers. Usable from C.
 */
#ifndef Q_STRTOIMAX_H
#define Q_STRTOIMAX_H

#include "cmnexport.h"

/* NOLINTBEGIN(modernize-deprecated-headers): read by C compilers, too */
#include <inttypes.h>
/* NOLINTEND(modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Converts the start of a text, as `strtoimax` does.
 *
 * White space (`isspace` of the current locale) is skipped, then come an optional sign and the
 * longest run of digits of the base; letters of either case count as digits from 10 on. May be
 * called from any thread.
 * @param text  a NUL-terminated text; must not be null
 * @param end   receives the address after the last digit, or `text` when there is no number or the
 *              base is bad; may be null
 * @param base  2 to 36; or 0, for the base that the number's prefix tells: "0x" or "0X" before a
 *              hexadecimal digit 16, "0" 8, else 10. Base 16 takes that prefix, too. There is no
 *              prefix for binary numbers.
 * @return the number; 0 when there is none. What is out of range gives INTMAX_MAX or INTMAX_MIN and
 *         sets `errno` to ERANGE; a bad base gives 0 and sets it to EINVAL; else `errno` stays
 */
KELP_CMN_API intmax_t __Qstrtoimax(const char* text, char** end, int base);

#ifdef __cplusplus
}
#endif

#endif
